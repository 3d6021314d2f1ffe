// Where the files are that a line with TLS needs.
#ifndef ZORBRIDGE_TLS_FILES_H
#define ZORBRIDGE_TLS_FILES_H

#include <string>

namespace zor::bridge {

// Real paths, in PEM. They are read at each attempt, so that renewed ones need no restart.
struct Tls {
  std::string authority;    // who may vouch for brokers; required for mqtts
  std::string certificate;  // this side's own; empty: none is shown
  std::string key;
  std::string revoked;  // empty: revocations are not checked
};

}  // namespace zor::bridge

#endif
