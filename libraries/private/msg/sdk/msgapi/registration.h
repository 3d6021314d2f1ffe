// Registration: what a daemon and the server exchange when the daemon joins the bus.
#ifndef SDK_MSGAPI_REGISTRATION_H
#define SDK_MSGAPI_REGISTRATION_H

#include <cstdint>

namespace zor {

// Registers the name of the context over its socket, and applies what the reply contains: the granted name, the byte
// order, the periodic report and the trace settings. ZOR_E_REFUSED when no name was granted; ZOR_E_ARGUMENT without a
// reply; any status of a synchronous request.
std::uint32_t Register() noexcept;

// Ends the periodic report.
void StopReports() noexcept;

}  // namespace zor

#endif
