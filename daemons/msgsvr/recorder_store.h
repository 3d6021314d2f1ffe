// The flight recorder's life: it begins with what the server before this one has recorded, and the service manager
// keeps it. What a server that crashed has recorded is saved as a file, beside those of the crashes before.
#ifndef MSGSVR_RECORDER_STORE_H
#define MSGSVR_RECORDER_STORE_H

#include "common/unique_fd.h"
#include "msgsvr/bus.h"

namespace zor::msgsvr {

// Its name in the service manager's descriptor store.
inline constexpr char kStoredRecorder[] = "recorder";

// Starts to record. The former recorder is that of the server from which this one takes over on request; invalid if
// there is none.
void StartRecorder(Bus &bus, UniqueFd former);
// Gives the recorder to the service manager, and saves that of the server that has crashed; invalid if none has.
void KeepRecorder(Bus &bus, UniqueFd crashed);

}  // namespace zor::msgsvr

#endif
