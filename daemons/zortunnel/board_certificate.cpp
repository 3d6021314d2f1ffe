#include "zortunnel/board_certificate.h"

#include "programs/board_name.h"
#include "programs/tls/certificate_name.h"

namespace zor::tunnel {

std::string BoardNameIn(const X509 *certificate) {
  std::string name = tls::NameIn(certificate);
  if (!daemon::IsBoardName(name)) name.clear();
  return name;
}

}  // namespace zor::tunnel
