#include "certificates.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include <algorithm>

#include "harness.h"

namespace zor::bench {
namespace {

constexpr long kDay = 24 * 60 * 60;

std::shared_ptr<EVP_PKEY> MakeKey() {
  return {EVP_EC_gen("P-256"), EVP_PKEY_free};
}

template <class Write, class... Rest>
std::string Pem(Write write, Rest... rest) {
  const std::unique_ptr<BIO, decltype(&BIO_free_all)> text(BIO_new(BIO_s_mem()), BIO_free_all);
  Require(write(text.get(), rest...) == 1, "OpenSSL writes PEM");
  char *bytes = nullptr;
  const long length = BIO_get_mem_data(text.get(), &bytes);
  return {bytes, static_cast<size_t>(length)};
}

void AddExtension(X509 *certificate, int kind, const std::string &value) {
  X509_EXTENSION *extension = X509V3_EXT_conf_nid(nullptr, nullptr, kind, value.c_str());
  Require(extension != nullptr && X509_add_ext(certificate, extension, -1) == 1, value.c_str());
  X509_EXTENSION_free(extension);
}

std::shared_ptr<X509> MakeCertificate(EVP_PKEY *key, const char *name, const X509 *issuer, int days) {
  static long serial = 0;
  std::shared_ptr<X509> made(X509_new(), X509_free);
  X509_set_version(made.get(), X509_VERSION_3);
  ASN1_INTEGER_set(X509_get_serialNumber(made.get()), ++serial);
  X509_gmtime_adj(X509_getm_notBefore(made.get()), std::min(days - 1, -1) * kDay);
  X509_gmtime_adj(X509_getm_notAfter(made.get()), days * kDay);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(made.get()), "CN", MBSTRING_ASC,
                             reinterpret_cast<const unsigned char *>(name), -1, -1, 0);
  X509_set_issuer_name(made.get(), X509_get_subject_name(issuer == nullptr ? made.get() : issuer));
  X509_set_pubkey(made.get(), key);
  return made;
}

}  // namespace

Authority::Authority() : key_(MakeKey()), own_(MakeCertificate(key_.get(), "authority", nullptr, 7)) {
  AddExtension(own_.get(), NID_basic_constraints, "critical,CA:TRUE");
  X509_sign(own_.get(), key_.get(), EVP_sha256());
  certificate_ = Pem(PEM_write_bio_X509, own_.get());
}

Issued Authority::Issue(const std::string &names, int days) const {
  const auto key = MakeKey();
  const auto made = MakeCertificate(key.get(), "modem", own_.get(), days);
  if (!names.empty()) AddExtension(made.get(), NID_subject_alt_name, names);
  X509_sign(made.get(), key_.get(), EVP_sha256());
  return {Pem(PEM_write_bio_X509, made.get()),
          Pem(PEM_write_bio_PrivateKey, key.get(), nullptr, nullptr, 0, nullptr, nullptr),
          ASN1_INTEGER_get(X509_get0_serialNumber(made.get()))};
}

std::string Authority::Revoke(const std::vector<long> &serials, int days) const {
  const std::shared_ptr<X509_CRL> list(X509_CRL_new(), X509_CRL_free);
  const std::shared_ptr<ASN1_TIME> time(X509_gmtime_adj(nullptr, std::min(days - 1, -1) * kDay), ASN1_TIME_free);
  X509_CRL_set_version(list.get(), X509_CRL_VERSION_2);
  X509_CRL_set_issuer_name(list.get(), X509_get_subject_name(own_.get()));
  X509_CRL_set1_lastUpdate(list.get(), time.get());
  for (const long serial : serials) {
    X509_REVOKED *revoked = X509_REVOKED_new();
    const std::shared_ptr<ASN1_INTEGER> number(ASN1_INTEGER_new(), ASN1_INTEGER_free);
    ASN1_INTEGER_set(number.get(), serial);
    X509_REVOKED_set_serialNumber(revoked, number.get());
    X509_REVOKED_set_revocationDate(revoked, time.get());
    X509_CRL_add0_revoked(list.get(), revoked);
  }
  X509_gmtime_adj(time.get(), days * kDay);
  X509_CRL_set1_nextUpdate(list.get(), time.get());
  X509_CRL_sign(list.get(), key_.get(), EVP_sha256());
  return Pem(PEM_write_bio_X509_CRL, list.get());
}

}  // namespace zor::bench
