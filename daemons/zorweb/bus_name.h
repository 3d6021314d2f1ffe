// The name of this program on the bus.
#ifndef ZORWEB_BUS_NAME_H
#define ZORWEB_BUS_NAME_H

namespace zor::web {

inline constexpr char kBusName[] = "zorweb";

}  // namespace zor::web

#endif
