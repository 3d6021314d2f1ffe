// What servers answer to operators' requests: the data word of zor/control_wire.h.
#ifndef ZORCTL_CONTROL_RESULT_H
#define ZORCTL_CONTROL_RESULT_H

#include <cstdint>
#include <string>

namespace zor::ctl {

// Failure, which names the server as what it is, for anything but ZOR_CONTROL_OK.
void CheckControl(uint32_t result, const std::string &server);

}  // namespace zor::ctl

#endif
