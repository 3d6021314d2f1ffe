// Seals and unseals in a process that exists for that alone.
//
// The cryptographic library does not survive everywhere that memory runs out, and what fails while it sets itself up
// fails for ever; here that ends one request. Its memory, the secrets in it included, ends with the process, which may
// use so much processor time and no more.
#ifndef CMS_SEAL_PROCESS_H
#define CMS_SEAL_PROCESS_H

#include "cms/seal.h"

namespace zor::cms {

// The same as Seal and Unseal, which set the last parameter only when they succeed. A process that cannot be made, or
// does not end by itself, counts as a lack of memory.
Unsealed SealApart(const SealHead &head, std::span<const std::byte> content, std::span<const std::byte> passphrase,
                   std::vector<std::byte> *file);
Unsealed UnsealApart(std::span<const std::byte> file, std::span<const std::byte> passphrase, Secret *content);

}  // namespace zor::cms

#endif
