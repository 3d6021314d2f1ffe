// How a daemon registers, and the settings that it gets.
//
// A daemon on another board may have the other byte order. It registers in its own order, since it cannot know ours;
// the reply is in its order too and says so, and from then on the daemon converts all headers, so that everything else
// on the bus is in the order of this server.
#ifndef MSGSVR_REGISTRATION_H
#define MSGSVR_REGISTRATION_H

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "msgsvr/frames.h"
#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"

namespace zor::msgsvr {

// A daemon's trace settings, every member set: the operators' override, else the settings file, else the default.
struct TraceSettings {
  TraceMembers members;
  std::string_view source;  // the first of "kept" (an override), "file" and "default" that contributes a member
};
TraceSettings TraceSettingsOf(const BusSettings &settings, const TraceOverrides &overrides, const AppName &daemon);

// Whether a daemon registers in the other byte order.
bool IsRegistrationInOtherOrder(const Frame &frame);

// Such a registration in the order of this server. The frame that it was made from stays as it is: after a crash the
// next server reads it again.
struct ConvertedRegistration {
  explicit ConvertedRegistration(const Frame &received);
  ConvertedRegistration(const ConvertedRegistration &) = delete;
  ConvertedRegistration &operator=(const ConvertedRegistration &) = delete;

  std::array<std::byte, ZOR_MSG_HEAD_SIZE> bytes;
  Frame frame;
};

// The body of the registration reply. A daemon of the other byte order converts the trace levels in it, and nothing
// else.
std::vector<std::byte> RegistrationBody(const BusSettings &settings, const TraceOverrides &overrides,
                                        const AppName &daemon, bool otherOrder);

}  // namespace zor::msgsvr

#endif
