// The last messages, when the server stops.
#ifndef MSGSVR_FAREWELL_H
#define MSGSVR_FAREWELL_H

#include "msgsvr/delivery.h"
#include "programs/stop_signal.h"

namespace zor::msgsvr {

// Delivers what is queued, until nothing is, the time is over, or a second stop signal arrives, and names what clients
// have sent and is not read any more.
void SayFarewell(Bus &bus, Delivery &delivery, daemon::ServerSignals &signals);

}  // namespace zor::msgsvr

#endif
