// TLS towards a broker, whose certificate is always checked.
#ifndef ZORCTL_FLEET_TLS_H
#define ZORCTL_FLEET_TLS_H

#include <string>

#include "programs/tls/tls.h"
#include "zorctl/fleet_access.h"

namespace zor::ctl {

// A context that accepts only certificates for the broker's host. Why it refused one is written to `refusal`, which
// must outlive the context's connections. Failure (usage) for files that cannot be used, after a line on standard
// error.
tls::ContextPtr MakeTlsContext(const FleetAccess &access, std::string *refusal);

}  // namespace zor::ctl

#endif
