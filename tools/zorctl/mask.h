// Masks personal data in recorded bodies, as the library masks it in logs.
#ifndef ZORCTL_MASK_H
#define ZORCTL_MASK_H

#include <span>

namespace zor::ctl {

// Masks the MAC and IP addresses and UUIDs in the texts of a body, and what may be the start of one at its end if the
// body is cut there. Lengths stay the same. Addresses that are not written as text are not found.
void MaskBody(std::span<char> body, bool cut);

}  // namespace zor::ctl

#endif
