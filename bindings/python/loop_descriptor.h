// One descriptor for the whole loop, which other loops can wait for: an epoll set of what the loop waits for, with a
// timer that expires when its next one is due or when messages were set aside. The set copies the loop's and is brought
// up to date after each pass; nothing is done for programs that never ask for it.
#ifndef ZOR_PYTHON_LOOP_DESCRIPTOR_H
#define ZOR_PYTHON_LOOP_DESCRIPTOR_H

namespace zor::py {

// The descriptor, made at the first call; -1 and errno.
int OpenDescriptor() noexcept;
void CloseDescriptor() noexcept;

void SyncDescriptor() noexcept;

// The connection has been replaced under its number, which the kernel's set does not follow: watch everything anew.
void ForgetDescriptors() noexcept;

}  // namespace zor::py

#endif
