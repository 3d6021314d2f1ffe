// The settings that a daemon gets when it registers.
#ifndef MSGSVR_REGISTRATION_H
#define MSGSVR_REGISTRATION_H

#include <cstddef>
#include <string_view>
#include <vector>

#include "msgsvr/settings.h"
#include "msgsvr/trace_overrides.h"

namespace zor::msgsvr {

// A daemon's trace settings, every member set: the operators' override, else the settings file, else the default.
struct TraceSettings {
  TraceMembers members;
  std::string_view source;  // the first of "kept" (an override), "file" and "default" that contributes a member
};
TraceSettings TraceSettingsOf(const BusSettings &settings, const TraceOverrides &overrides, const AppName &daemon);

// The body of the registration reply.
std::vector<std::byte> RegistrationBody(const BusSettings &settings, const TraceOverrides &overrides,
                                        const AppName &daemon);

}  // namespace zor::msgsvr

#endif
