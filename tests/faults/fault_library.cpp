// Preloaded into a program, makes the N-th call of one kind fail. Selected by environment variables, for the program
// whose name is FAULT_PROGRAM only, so that what it starts is spared:
//
//   FAULT_CALL   alloc, read, write, send, recv, accept, open or epoll
//   FAULT_NTH    which call of that kind fails, from 1
//   FAULT_ERROR  the errno; 0: the call succeeds for its first byte alone
//   FAULT_FILE   made when the fault has happened, so that a test knows when a walk has reached its end
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/epoll.h>
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

// Environment variables are read before main, since getenv must not run inside an allocation of the program's start.
__attribute__((constructor)) void ReadFault() {
  const char *program = ::getenv("FAULT_PROGRAM");
  const char *call = ::getenv("FAULT_CALL");
  const char *nth = ::getenv("FAULT_NTH");
  const char *error = ::getenv("FAULT_ERROR");
  if (program == nullptr || call == nullptr || nth == nullptr || error == nullptr) return;
  if (std::strcmp(program, ::program_invocation_short_name) != 0) return;
  std::strncpy(g_fault.call, call, sizeof g_fault.call - 1);
  g_fault.error = std::atoi(error);
  g_fault.file = ::getenv("FAULT_FILE");
  g_fault.nth = std::atol(nth);
}

// Whether this call is the one that fails.
bool IsDue(const char *call) {
  if (g_fault.nth == 0 || std::strcmp(g_fault.call, call) != 0 || ++g_calls != g_fault.nth) return false;
  const long fd = ::syscall(SYS_openat, AT_FDCWD, g_fault.file, O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
  ::syscall(SYS_close, fd);
  errno = g_fault.error;
  return true;
}

// Of a call that moves bytes: true when it fails; a short count is made by the caller's smaller size instead.
bool Fails(const char *call, size_t &size) {
  if (!IsDue(call)) return false;
  if (g_fault.error != 0) return true;
  if (size > 1) size = 1;
  return false;
}

template <class Function>
Function *Next(const char *name) {
  void *found = ::dlsym(RTLD_NEXT, name);
  Function *function;
  std::memcpy(&function, &found, sizeof function);
  return function;
}

}  // namespace

extern "C" {

void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);

void *malloc(size_t size) {
  return IsDue("alloc") ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size) {
  return IsDue("alloc") ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *block, size_t size) {
  return IsDue("alloc") ? nullptr : __libc_realloc(block, size);
}

ssize_t read(int fd, void *bytes, size_t size) {
  static auto *const next = Next<ssize_t(int, void *, size_t)>("read");
  return Fails("read", size) ? -1 : next(fd, bytes, size);
}

ssize_t write(int fd, const void *bytes, size_t size) {
  static auto *const next = Next<ssize_t(int, const void *, size_t)>("write");
  return Fails("write", size) ? -1 : next(fd, bytes, size);
}

ssize_t recv(int fd, void *bytes, size_t size, int flags) {
  static auto *const next = Next<ssize_t(int, void *, size_t, int)>("recv");
  return Fails("recv", size) ? -1 : next(fd, bytes, size, flags);
}

ssize_t recvfrom(int fd, void *bytes, size_t size, int flags, sockaddr *address, socklen_t *length) {
  static auto *const next = Next<ssize_t(int, void *, size_t, int, sockaddr *, socklen_t *)>("recvfrom");
  return Fails("recv", size) ? -1 : next(fd, bytes, size, flags, address, length);
}

ssize_t recvmsg(int fd, msghdr *message, int flags) {
  static auto *const next = Next<ssize_t(int, msghdr *, int)>("recvmsg");
  size_t size = 1;
  return Fails("recv", size) ? -1 : next(fd, message, flags);
}

ssize_t sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address, socklen_t length) {
  static auto *const next = Next<ssize_t(int, const void *, size_t, int, const sockaddr *, socklen_t)>("sendto");
  return Fails("send", size) ? -1 : next(fd, bytes, size, flags, address, length);
}

ssize_t sendmsg(int fd, const msghdr *message, int flags) {
  static auto *const next = Next<ssize_t(int, const msghdr *, int)>("sendmsg");
  size_t size = message->msg_iovlen == 0 ? 0 : message->msg_iov[0].iov_len;
  const size_t whole = size;
  if (Fails("send", size)) return -1;
  if (size == whole) return next(fd, message, flags);
  iovec piece = {message->msg_iov[0].iov_base, size};
  msghdr cut = *message;
  cut.msg_iov = &piece;
  cut.msg_iovlen = 1;
  return next(fd, &cut, flags);
}

int accept4(int fd, sockaddr *address, socklen_t *length, int flags) {
  static auto *const next = Next<int(int, sockaddr *, socklen_t *, int)>("accept4");
  return IsDue("accept") ? -1 : next(fd, address, length, flags);
}

int open(const char *path, int flags, ...) {
  static auto *const next = Next<int(const char *, int, ...)>("open");
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return IsDue("open") ? -1 : next(path, flags, mode);
}

int epoll_ctl(int poll, int operation, int fd, epoll_event *event) {
  static auto *const next = Next<int(int, int, int, epoll_event *)>("epoll_ctl");
  return IsDue("epoll") ? -1 : next(poll, operation, fd, event);
}

int epoll_wait(int poll, epoll_event *events, int count, int timeoutMs) {
  static auto *const next = Next<int(int, epoll_event *, int, int)>("epoll_wait");
  return IsDue("epoll") ? -1 : next(poll, events, count, timeoutMs);
}

}  // extern "C"
