// What a daemon is told when it registers.
#ifndef MSGSVR_REGISTRATION_H
#define MSGSVR_REGISTRATION_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"

namespace zor::msgsvr {

// Its trace settings, every member set: what operators have made them, else what the settings file says, else defaults.
struct TraceSettings {
  TraceMembers members;
  std::string_view source;  // the first of "kept", "file" and "default" that has a part in it
};
TraceSettings TraceSettingsOf(const BusSettings &settings, const TraceOverrides &kept, const AppName &daemon);

// The body of the registration reply.
std::vector<std::byte> RegistrationBody(const BusSettings &settings, const TraceOverrides &kept, const AppName &daemon);

}  // namespace zor::msgsvr

#endif
