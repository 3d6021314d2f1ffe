// Encrypts and authenticates an export: AES-256-GCM with a key that scrypt makes from a passphrase.
//
// Head and content are authenticated as a whole, and no byte of the content is given out before that. Each file has its
// own salt and so its own key.
#ifndef CMS_SEAL_H
#define CMS_SEAL_H

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "cms/seal_head.h"
#include "cms/secret.h"

namespace zor::cms {

// A head with random salt and nonce, and 2^cost rounds to make the key. None if the system gives no random numbers.
std::optional<SealHead> MakeSealHead(uint8_t cost);

// The encrypted file; none without memory or without the library of ciphers.
std::optional<std::vector<std::byte>> Seal(SealHead head, std::span<const std::byte> content,
                                           std::span<const std::byte> passphrase);

enum class Unsealed {
  kGood,
  kUnknown,       // not of this version, or its parameters are out of bounds
  kNotAuthentic,  // not sealed with this passphrase, cut or changed
  kNoMemory,
  kNoCrypto,  // the library of ciphers is missing
};
// Sets the content only when the file is good.
Unsealed Unseal(std::span<const std::byte> file, std::span<const std::byte> passphrase, Secret *content);

}  // namespace zor::cms

#endif
