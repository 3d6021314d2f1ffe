// The body of the registration reply: what the settings say to a daemon of that name.
#ifndef MSGSVR_REGISTRATION_H
#define MSGSVR_REGISTRATION_H

#include <cstddef>
#include <vector>

#include "msgsvr/settings.h"

namespace zor::msgsvr {

std::vector<std::byte> RegistrationBody(const BusSettings &settings, const AppName &daemon);

}  // namespace zor::msgsvr

#endif
