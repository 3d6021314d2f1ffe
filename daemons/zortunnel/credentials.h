// What this side proves itself with, and what it believes of the other side: certificate, key, authority, revocations.
#ifndef ZORTUNNEL_CREDENTIALS_H
#define ZORTUNNEL_CREDENTIALS_H

#include "programs/problem_log.h"
#include "programs/tls/tls.h"
#include "zortunnel/settings.h"

namespace zor::tunnel {

// Everything that new connections need, read from the files of the settings. Null, with a line in the log, if any of it
// cannot be used.
tls::ContextPtr LoadCredentials(const TunnelSettings &settings, daemon::ProblemLog &log);

}  // namespace zor::tunnel

#endif
