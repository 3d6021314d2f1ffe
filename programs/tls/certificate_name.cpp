#include "programs/tls/certificate_name.h"

#include <openssl/pem.h>

#include "programs/tls/tls.h"

namespace zor::tls {

std::string NameIn(const X509 *certificate) {
  const NamesPtr names(
      static_cast<GENERAL_NAMES *>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  if (names == nullptr || sk_GENERAL_NAME_num(names.get()) != 1) return {};
  const GENERAL_NAME *name = sk_GENERAL_NAME_value(names.get(), 0);
  if (name->type != GEN_DNS) return {};
  return {reinterpret_cast<const char *>(ASN1_STRING_get0_data(name->d.dNSName)),
          static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName))};
}

std::string NameInFile(const std::string &path) {
  const BioPtr file(BIO_new_file(path.c_str(), "r"));
  if (file == nullptr) return {};
  const CertificatePtr certificate(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
  return certificate == nullptr ? std::string() : NameIn(certificate.get());
}

}  // namespace zor::tls
