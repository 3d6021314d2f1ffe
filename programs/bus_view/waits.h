// Who waits for whom, for views.
#ifndef PROGRAMS_BUS_VIEW_WAITS_H
#define PROGRAMS_BUS_VIEW_WAITS_H

#include "programs/bus_view/view.h"

namespace zor::busview {

// Fills in the view's waits and cycles.
void FindWaits(const Sample &sample, View &view);

}  // namespace zor::busview

#endif
