// Preloaded into a program, makes the N-th call of one kind fail. Selected by environment variables, for the program
// whose name is FAULT_PROGRAM only, so that what it starts is spared:
//
//   FAULT_CALL   alloc; read, write, send, recv (also several messages); accept; open: whatever makes a descriptor;
//                epoll: whatever waits, and additions; store: what only a database calls to write
//   FAULT_NTH    which call of that kind fails, from 1
//   FAULT_ERROR  the errno; 0: the call succeeds for its first byte alone
//   FAULT_FILE   made when the fault has happened, so that a test knows when a walk has reached its end; once is
//   enough,
//                also for a program that executes itself
//   FAULT_IF     may be set to the name of a variable: only a program that finds that variable has the fault
//
// A program that links the library arms the fault itself.
#undef _FILE_OFFSET_BITS  // which renames what is defined here: both names of a call are
#include "faults/fault_library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

struct Fault {
  char call[16] = "";
  long nth = 0;  // 0: none
  int error = 0;
  const char *file = nullptr;
};

constinit Fault g_fault;
constinit std::atomic<long> g_calls{0};
constinit std::atomic<long> g_liveBlocks{0};

// Environment variables are read before main, since getenv must not run inside an allocation of the program's start.
__attribute__((constructor)) void ReadFault() {
  const char *program = ::getenv("FAULT_PROGRAM");
  const char *call = ::getenv("FAULT_CALL");
  const char *nth = ::getenv("FAULT_NTH");
  const char *error = ::getenv("FAULT_ERROR");
  if (program == nullptr || call == nullptr || nth == nullptr || error == nullptr) return;
  if (std::strcmp(program, ::program_invocation_short_name) != 0) return;
  const char *condition = ::getenv("FAULT_IF");
  if (condition != nullptr && ::getenv(condition) == nullptr) return;
  g_fault.file = ::getenv("FAULT_FILE");
  if (g_fault.file != nullptr && ::access(g_fault.file, F_OK) == 0) return;
  zor::test::ArmFault(call, std::atol(nth), std::atoi(error));
}

// Whether this call is the one that fails.
bool IsDue(const char *call) {
  if (g_fault.nth == 0 || std::strcmp(g_fault.call, call) != 0 || ++g_calls != g_fault.nth) return false;
  if (g_fault.file != nullptr) {
    const long fd = ::syscall(SYS_openat, AT_FDCWD, g_fault.file, O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
    ::syscall(SYS_close, fd);
  }
  errno = g_fault.error;
  return true;
}

// Where a descriptor is watched, for those that epoll announces but once.
struct Watch {
  int poll;
  epoll_event event;
};
constexpr int kWatches = 1024;
constinit Watch g_watches[kWatches] = {};

// What a read has been made to leave is announced again, as if it had arrived a moment later.
void Announce(int fd) {
  if (fd < 0 || fd >= kWatches || (g_watches[fd].event.events & EPOLLET) == 0) return;
  const int error = errno;
  ::syscall(SYS_epoll_ctl, g_watches[fd].poll, EPOLL_CTL_MOD, fd, &g_watches[fd].event);
  errno = error;
}

// Of a call that moves bytes: true when it fails; a short count is made by the caller's smaller size instead.
bool Fails(const char *call, size_t &size) {
  if (!IsDue(call)) return false;
  if (g_fault.error != 0) return true;
  if (size > 1) size = 1;
  return false;
}

// The same for what gathers or scatters: `cut` is used instead of the message or vector for a short count.
bool Fails(const char *call, const iovec *vectors, size_t count, iovec &cut) {
  cut = count == 0 ? iovec{} : vectors[0];
  return Fails(call, cut.iov_len);
}

msghdr Cut(const msghdr &message, iovec &vector) {
  msghdr cut = message;
  if (message.msg_iovlen == 0 || vector.iov_len == message.msg_iov[0].iov_len) return cut;
  cut.msg_iov = &vector;
  cut.msg_iovlen = 1;
  return cut;
}

template <class Function>
Function *Next(const char *name) {
  void *found = ::dlsym(RTLD_NEXT, name);
  Function *function;
  std::memcpy(&function, &found, sizeof function);
  return function;
}

// Counts a block that is handed out.
void *Live(void *block) {
  if (block != nullptr) ++g_liveBlocks;
  return block;
}

// A call that succeeds or fails as a whole.
template <class Result, class... Arguments>
Result Pass(const char *call, Result (*next)(Arguments...), Arguments... arguments) {
  return IsDue(call) ? -1 : next(arguments...);
}

}  // namespace

namespace zor::test {

void ArmFault(const char *call, long nth, int error) {
  g_calls = 0;
  std::strncpy(g_fault.call, call, sizeof g_fault.call - 1);
  g_fault.error = error;
  g_fault.nth = nth;
}

bool FaultHappened() {
  return g_calls >= g_fault.nth;
}

long LiveBlocks() {
  return g_liveBlocks;
}

}  // namespace zor::test

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own names
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void *__libc_memalign(size_t alignment, size_t size);
void __libc_free(void *block);
// NOLINTEND(bugprone-reserved-identifier)

void *malloc(size_t size) {
  return IsDue("alloc") ? nullptr : Live(__libc_malloc(size));
}

void *calloc(size_t count, size_t size) {
  return IsDue("alloc") ? nullptr : Live(__libc_calloc(count, size));
}

void *realloc(void *block, size_t size) {
  if (IsDue("alloc")) return nullptr;
  return block == nullptr ? Live(__libc_realloc(block, size)) : __libc_realloc(block, size);
}

void *aligned_alloc(size_t alignment, size_t size) {
  return IsDue("alloc") ? nullptr : Live(__libc_memalign(alignment, size));
}

void free(void *block) {
  if (block != nullptr) --g_liveBlocks;
  __libc_free(block);
}

ssize_t read(int fd, void *bytes, size_t size) {
  static auto *const next = Next<ssize_t(int, void *, size_t)>("read");
  return Fails("read", size) ? -1 : next(fd, bytes, size);
}

ssize_t write(int fd, const void *bytes, size_t size) {
  static auto *const next = Next<ssize_t(int, const void *, size_t)>("write");
  return Fails("write", size) ? -1 : next(fd, bytes, size);
}

ssize_t writev(int fd, const iovec *vectors, int count) {
  static auto *const next = Next<ssize_t(int, const iovec *, int)>("writev");
  iovec cut;
  if (Fails("write", vectors, static_cast<size_t>(count), cut)) return -1;
  return cut.iov_len == vectors[0].iov_len ? next(fd, vectors, count) : next(fd, &cut, 1);
}

ssize_t recv(int fd, void *bytes, size_t size, int flags) {
  static auto *const next = Next<ssize_t(int, void *, size_t, int)>("recv");
  const size_t whole = size;
  if (Fails("recv", size)) return Announce(fd), -1;
  const ssize_t result = next(fd, bytes, size, flags);
  if (size != whole) Announce(fd);
  return result;
}

ssize_t recvfrom(int fd, void *bytes, size_t size, int flags, sockaddr *address, socklen_t *length) {
  static auto *const next = Next<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>("recvfrom");
  return Fails("recv", size) ? -1 : next(fd, bytes, size, flags, address, length);
}

ssize_t recvmsg(int fd, msghdr *message, int flags) {
  static auto *const next = Next<ssize_t(int, msghdr *, int)>("recvmsg");
  iovec vector;
  if (Fails("recv", message->msg_iov, message->msg_iovlen, vector)) return Announce(fd), -1;
  msghdr cut = Cut(*message, vector);
  const ssize_t result = next(fd, &cut, flags);
  if (cut.msg_iov == &vector) Announce(fd);
  message->msg_namelen = cut.msg_namelen;
  message->msg_controllen = cut.msg_controllen;
  message->msg_flags = cut.msg_flags;
  return result;
}

// Only the first message can be cut: callers that pass several treat them alike.
int recvmmsg(int fd, mmsghdr *messages, unsigned count, int flags, timespec *timeout) {
  static auto *const next = Next<int(int, mmsghdr *, unsigned, int, timespec *)>("recvmmsg");
  msghdr &first = messages[0].msg_hdr;
  const msghdr whole = first;
  iovec vector;
  if (Fails("recv", first.msg_iov, first.msg_iovlen, vector)) return Announce(fd), -1;
  first = Cut(first, vector);
  const int result = next(fd, messages, count, flags, timeout);
  if (first.msg_iov == &vector) Announce(fd);
  first.msg_iov = whole.msg_iov;
  first.msg_iovlen = whole.msg_iovlen;
  return result;
}

ssize_t send(int fd, const void *bytes, size_t size, int flags) {
  static auto *const next = Next<ssize_t(int, const void *, size_t, int)>("send");
  const size_t whole = size;
  if (Fails("send", size)) return Announce(fd), -1;
  const ssize_t result = next(fd, bytes, size, flags);
  if (size != whole) Announce(fd);
  return result;
}

ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address, socklen_t length) {
  static auto *const next = Next<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto");
  return Fails("send", size) ? -1 : next(fd, bytes, size, flags, address, length);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags) {
  static auto *const next = Next<ssize_t(int, const msghdr *, int)>("sendmsg");
  iovec vector;
  if (Fails("send", message->msg_iov, message->msg_iovlen, vector)) return Announce(fd), -1;
  const msghdr cut = Cut(*message, vector);
  const ssize_t result = next(fd, &cut, flags);
  if (cut.msg_iov == &vector) Announce(fd);
  return result;
}

int sendmmsg(int fd, mmsghdr *messages, unsigned count, int flags) {
  static auto *const next = Next<int(int, mmsghdr *, unsigned, int)>("sendmmsg");
  msghdr &first = messages[0].msg_hdr;
  const msghdr whole = first;
  iovec vector;
  if (Fails("send", first.msg_iov, first.msg_iovlen, vector)) return Announce(fd), -1;
  first = Cut(first, vector);
  const int result = next(fd, messages, vector.iov_len == whole.msg_iov[0].iov_len ? count : 1, flags);
  if (first.msg_iov == &vector) Announce(fd);
  first = whole;
  return result;
}

int accept4(int fd, sockaddr *address, socklen_t *length, int flags) {
  static auto *const next = Next<int(int, sockaddr *, socklen_t *, int)>("accept4");
  return Pass("accept", next, fd, address, length, flags);
}

int open(const char *path, int flags, ...) {
  static auto *const next = Next<int(const char *, int, mode_t)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return Pass("open", next, path, flags, mode);
}

int open64(const char *path, int flags, ...) __attribute__((alias("open")));

int socket(int domain, int type, int protocol) {
  static auto *const next = Next<int(int, int, int)>("socket");
  return Pass("open", next, domain, type, protocol);
}

int pipe2(int *ends, int flags) {
  static auto *const next = Next<int(int *, int)>("pipe2");
  return Pass("open", next, ends, flags);
}

int epoll_create1(int flags) {
  static auto *const next = Next<int(int)>("epoll_create1");
  return Pass("open", next, flags);
}

int epoll_ctl(int poll, int operation, int fd, epoll_event *event) {
  static auto *const next = Next<int(int, int, int, epoll_event *)>("epoll_ctl");
  if (fd >= 0 && fd < kWatches && event != nullptr) g_watches[fd] = {poll, *event};
  return Pass("epoll", next, poll, operation, fd, event);
}

int epoll_wait(int poll, epoll_event *events, int count, int timeoutMs) {
  static auto *const next = Next<int(int, epoll_event *, int, int)>("epoll_wait");
  return Pass("epoll", next, poll, events, count, timeoutMs);
}

int poll(pollfd *entries, nfds_t count, int timeoutMs) {
  static auto *const next = Next<int(pollfd *, nfds_t, int)>("poll");
  return Pass("epoll", next, entries, count, timeoutMs);
}

int select(int count, fd_set *readable, fd_set *writable, fd_set *exceptional, timeval *timeout) {
  static auto *const next = Next<int(int, fd_set *, fd_set *, fd_set *, timeval *)>("select");
  return Pass("epoll", next, count, readable, writable, exceptional, timeout);
}

ssize_t pwrite64(int fd, const void *bytes, size_t size, off64_t offset) {
  static auto *const next = Next<ssize_t(int, const void *, size_t, off64_t)>("pwrite64");
  return Fails("store", size) ? -1 : next(fd, bytes, size, offset);
}

int fsync(int fd) {
  static auto *const next = Next<int(int)>("fsync");
  return Pass("store", next, fd);
}

int fdatasync(int fd) {
  static auto *const next = Next<int(int)>("fdatasync");
  return Pass("store", next, fd);
}

int ftruncate64(int fd, off64_t length) {
  static auto *const next = Next<int(int, off64_t)>("ftruncate64");
  return Pass("store", next, fd, length);
}

}  // extern "C"
