#include "cms/crypto.h"

#include <dlfcn.h>

#include <cstdio>

#include "common/loaded_function.h"

namespace zor::cms {

Crypto crypto;

namespace {

constexpr char kLibrary[] = "libcrypto.so.3";

bool FindAll(void *library) {
  return FindLoaded(library, "OPENSSL_init_crypto", crypto.initialize) &&
         FindLoaded(library, "EVP_PBE_scrypt", crypto.makeKey) &&
         FindLoaded(library, "EVP_CIPHER_CTX_new", crypto.makeCipher) &&
         FindLoaded(library, "EVP_CIPHER_CTX_free", crypto.freeCipher) &&
         FindLoaded(library, "EVP_CIPHER_CTX_ctrl", crypto.control) &&
         FindLoaded(library, "EVP_aes_256_gcm", crypto.aes256Gcm) &&
         FindLoaded(library, "EVP_EncryptInit_ex", crypto.startEncryption) &&
         FindLoaded(library, "EVP_EncryptUpdate", crypto.encrypt) &&
         FindLoaded(library, "EVP_EncryptFinal_ex", crypto.endEncryption) &&
         FindLoaded(library, "EVP_DecryptInit_ex", crypto.startDecryption) &&
         FindLoaded(library, "EVP_DecryptUpdate", crypto.decrypt) &&
         FindLoaded(library, "EVP_DecryptFinal_ex", crypto.endDecryption);
}

// What the system's configuration of the library may add, such as modules to load, has no business here.
bool Load() {
  void *const library = ::dlopen(kLibrary, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr || !FindAll(library)) {
    std::fprintf(stderr, "cms: encrypted exports: %s\n", ::dlerror());
    return false;
  }
  if (crypto.initialize(OPENSSL_INIT_NO_LOAD_CONFIG, nullptr) == 1) return true;
  std::fprintf(stderr, "cms: encrypted exports: %s cannot be initialized\n", kLibrary);
  return false;
}

}  // namespace

bool LoadCrypto() {
  static const bool isLoaded = Load();
  return isLoaded;
}

}  // namespace zor::cms
