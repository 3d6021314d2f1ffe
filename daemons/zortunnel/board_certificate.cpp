#include "zortunnel/board_certificate.h"

#include <string_view>

#include "programs/board_name.h"
#include "programs/tls/tls.h"

namespace zor::tunnel {

std::string BoardNameIn(const X509 *certificate) {
  const tls::NamesPtr names(
      static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  if (names == nullptr || sk_GENERAL_NAME_num(names.get()) != 1) return {};
  const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), 0);
  if (name->type != GEN_DNS) return {};
  const std::string_view text(reinterpret_cast<const char *>(ASN1_STRING_get0_data(name->d.dNSName)),
                              static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName)));
  return daemon::IsBoardName(text) ? std::string(text) : std::string();
}

}  // namespace zor::tunnel
