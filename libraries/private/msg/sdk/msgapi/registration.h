// Registration: what a daemon and the server exchange when the daemon joins the bus.
#ifndef SDK_MSGAPI_REGISTRATION_H
#define SDK_MSGAPI_REGISTRATION_H

#include <zor/msg_wire.h>

#include <cstdint>

namespace zor {

// Registers the name of the context over its socket, and applies what the reply contains: the granted name, the byte
// order, the periodic report and the trace settings. ZOR_E_REFUSED when no name was granted; ZOR_E_ARGUMENT without a
// reply; any status of a synchronous request.
std::uint32_t Register() noexcept;

// The request for the name of the context.
ZOR_MSG_HEAD NewRegistration() noexcept;

// What a reply contains, in two steps: the byte order first, since the levels among the settings are swapped
// accordingly and messages may be sent in between. Both replace what an earlier reply has set.
void SetPeerByteOrder(const ZOR_MSG_HEAD &reply) noexcept;
void ApplySettings(const ZOR_MSG_HEAD &reply) noexcept;

// Ends the periodic report.
void StopReports() noexcept;

}  // namespace zor

#endif
