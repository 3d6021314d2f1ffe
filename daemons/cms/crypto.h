// OpenSSL's library of ciphers, loaded when an export is encrypted or decrypted: an idle daemon would keep 400 KiB of
// its own memory for it, and a device that never encrypts exports can leave it out.
#ifndef CMS_CRYPTO_H
#define CMS_CRYPTO_H

#include <openssl/crypto.h>
#include <openssl/evp.h>

namespace zor::cms {

struct Crypto {
  decltype(&OPENSSL_init_crypto) initialize;
  decltype(&EVP_PBE_scrypt) makeKey;
  decltype(&EVP_CIPHER_CTX_new) makeCipher;
  decltype(&EVP_CIPHER_CTX_free) freeCipher;
  decltype(&EVP_CIPHER_CTX_ctrl) control;
  decltype(&EVP_aes_256_gcm) aes256Gcm;
  decltype(&EVP_EncryptInit_ex) startEncryption;
  decltype(&EVP_EncryptUpdate) encrypt;
  decltype(&EVP_EncryptFinal_ex) endEncryption;
  decltype(&EVP_DecryptInit_ex) startDecryption;
  decltype(&EVP_DecryptUpdate) decrypt;
  decltype(&EVP_DecryptFinal_ex) endDecryption;
};

// Loads it, once. False, with a line on standard error, if that fails.
bool LoadCrypto();
// Its functions; null before it is loaded.
extern Crypto crypto;

}  // namespace zor::cms

#endif
