#include "cms/seal.h"

#include <unistd.h>

#include <algorithm>
#include <memory>

#include "cms/crypto.h"
#include "programs/limits.h"

namespace zor::cms {
namespace {

constexpr size_t kKeySize = 32;

using Cipher = std::unique_ptr<EVP_CIPHER_CTX, decltype([](EVP_CIPHER_CTX *cipher) { crypto.freeCipher(cipher); })>;

unsigned char *Raw(std::byte *bytes) {
  return reinterpret_cast<unsigned char *>(bytes);
}

const unsigned char *Raw(const std::byte *bytes) {
  return reinterpret_cast<const unsigned char *>(bytes);
}

int Length(std::span<const std::byte> bytes) {
  return static_cast<int>(bytes.size());  // limited to kExportBytes
}

// The key; empty without memory.
Secret KeyOf(const SealHead &head, std::span<const std::byte> passphrase) {
  Secret key(kKeySize);
  const int made = crypto.makeKey(reinterpret_cast<const char *>(passphrase.data()), passphrase.size(),
                                  Raw(head.salt.data()), head.salt.size(), uint64_t{1} << head.log2Rounds,
                                  head.blockSize, head.parallel, limits::cms::kKeyMemory, Raw(key.data()), key.size());
  if (made != 1) key.clear();
  return key;
}

}  // namespace

std::optional<SealHead> MakeSealHead(uint8_t cost) {
  SealHead head;
  head.log2Rounds = cost;
  const bool made =
      ::getentropy(head.salt.data(), head.salt.size()) == 0 && ::getentropy(head.nonce.data(), head.nonce.size()) == 0;
  return made ? std::optional(head) : std::nullopt;
}

std::optional<std::vector<std::byte>> Seal(SealHead head, std::span<const std::byte> content,
                                           std::span<const std::byte> passphrase) {
  if (!LoadCrypto()) return std::nullopt;
  head.contentLength = static_cast<uint32_t>(content.size());
  const auto start = WriteSealHead(head);
  const Secret key = KeyOf(head, passphrase);
  const Cipher cipher(crypto.makeCipher());
  if (key.empty() || !cipher) return std::nullopt;
  std::vector<std::byte> file(kSealHeadSize + content.size() + kSealTagSize);
  std::copy(start.begin(), start.end(), file.begin());
  std::byte *const encrypted = file.data() + kSealHeadSize;
  std::byte *const tag = encrypted + content.size();
  int count = 0;
  const bool sealed =
      crypto.startEncryption(cipher.get(), crypto.aes256Gcm(), nullptr, Raw(key.data()), Raw(head.nonce.data())) == 1 &&
      crypto.encrypt(cipher.get(), nullptr, &count, Raw(start.data()), Length(start)) == 1 &&
      crypto.encrypt(cipher.get(), Raw(encrypted), &count, Raw(content.data()), Length(content)) == 1 &&
      crypto.endEncryption(cipher.get(), Raw(tag), &count) == 1 &&
      crypto.control(cipher.get(), EVP_CTRL_AEAD_GET_TAG, kSealTagSize, tag) == 1;
  return sealed ? std::optional(std::move(file)) : std::nullopt;
}

Unsealed Unseal(std::span<const std::byte> file, std::span<const std::byte> passphrase, Secret *content) {
  const std::optional<SealHead> head = ReadSealHead(file);
  if (!head) return Unsealed::kUnknown;
  if (file.size() != kSealHeadSize + head->contentLength + kSealTagSize) return Unsealed::kNotAuthentic;
  if (!LoadCrypto()) return Unsealed::kNoCrypto;
  const auto encrypted = file.subspan(kSealHeadSize, head->contentLength);
  std::array<std::byte, kSealTagSize> tag;
  std::copy(encrypted.end(), file.end(), tag.begin());
  const Secret key = KeyOf(*head, passphrase);
  const Cipher cipher(crypto.makeCipher());
  if (key.empty() || !cipher) return Unsealed::kNoMemory;
  Secret decrypted(encrypted.size());
  int count = 0;
  const bool ready =
      crypto.startDecryption(cipher.get(), crypto.aes256Gcm(), nullptr, Raw(key.data()), Raw(head->nonce.data())) ==
          1 &&
      crypto.decrypt(cipher.get(), nullptr, &count, Raw(file.data()), kSealHeadSize) == 1 &&
      crypto.decrypt(cipher.get(), Raw(decrypted.data()), &count, Raw(encrypted.data()), Length(encrypted)) == 1 &&
      crypto.control(cipher.get(), EVP_CTRL_AEAD_SET_TAG, kSealTagSize, tag.data()) == 1;
  if (!ready) return Unsealed::kNoMemory;
  unsigned char nothing[EVP_MAX_BLOCK_LENGTH];
  if (crypto.endDecryption(cipher.get(), nothing, &count) != 1) return Unsealed::kNotAuthentic;
  *content = std::move(decrypted);
  return Unsealed::kGood;
}

}  // namespace zor::cms
