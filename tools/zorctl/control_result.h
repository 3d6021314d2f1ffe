// Results of operators' requests to servers: the data word of zor/control_wire.h.
#ifndef ZORCTL_CONTROL_RESULT_H
#define ZORCTL_CONTROL_RESULT_H

#include <cstdint>
#include <string>
#include <string_view>

namespace zor::ctl {

// Throws Failure for anything but ZOR_CONTROL_OK. `server` names the server in its text; a body is the server's reason.
void CheckControl(uint32_t result, const std::string &server, std::string_view body = {});

}  // namespace zor::ctl

#endif
