// Results of operators' requests to servers: the data word of zor/control_wire.h.
#ifndef ZORCTL_CONTROL_RESULT_H
#define ZORCTL_CONTROL_RESULT_H

#include <cstdint>
#include <string>

namespace zor::ctl {

// Throws Failure for anything but ZOR_CONTROL_OK. `server` names the server in its text.
void CheckControl(uint32_t result, const std::string &server);

}  // namespace zor::ctl

#endif
