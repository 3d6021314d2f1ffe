/* zor/platform/file.h. */
#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>

#include "store.h"

/* A board's whole system may be in a directory: EXAMPLE_ROOT is its own way to say so, ZOR_ROOT that of everybody who
   tries the bus out. A program with raised privileges takes neither from its caller. */
static const char *Root(void) {
  const char *root = secure_getenv("EXAMPLE_ROOT");
  if (root == NULL) root = secure_getenv("ZOR_ROOT");
  return root == NULL ? "" : root;
}

size_t ZOR_UTIL_FixedPath(const char *path, char *out, size_t size) {
  if (out == NULL || size == 0) return 0;
  out[0] = '\0';
  if (path == NULL) return 0;
  const char *root = Root();
  const size_t rootLength = strlen(root);
  const size_t pathLength = strlen(path);
  if (rootLength >= size || pathLength >= size - rootLength) return 0;
  memcpy(out, root, rootLength);
  memcpy(out + rootLength, path, pathLength + 1);
  return rootLength + pathLength;
}

/* A pipe would block, a device is not to be truncated. -1 for those. */
static int OpenRegular(const char *path, int flags) {
  const int fd = open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0640);
  struct stat status;
  if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode))) return fd;
  close(fd);
  return -1;
}

int example_write_all(int fd, const void *bytes, size_t length) {
  const char *at = bytes;
  while (length > 0) {
    const ssize_t step = write(fd, at, length);
    if (step < 0 && errno != EINTR) return 0;
    if (step <= 0) continue;
    at += step;
    length -= (size_t)step;
  }
  return 1;
}

/* Files of the kernel announce no size: it is read until there is no more. */
static uint32_t ReadAll(int fd, char **bytes, size_t *length) {
  size_t room = 4096;
  *length = 0;
  *bytes = NULL;
  for (;;) {
    char *grown = realloc(*bytes, room + 1);
    if (grown == NULL) return ZOR_FILE_E_NO_MEMORY;
    *bytes = grown;
    while (*length < room) {
      const ssize_t step = read(fd, *bytes + *length, room - *length);
      if (step == 0) return ZOR_FILE_OK;
      if (step < 0 && errno != EINTR) return ZOR_FILE_E_IO;
      if (step > 0) *length += (size_t)step;
    }
    if (*length > ZOR_FILE_READ_MAX) return ZOR_FILE_E_NO_MEMORY;
    room *= 2;
  }
}

uint32_t ZOR_UTIL_ReadFileToBuf(const char *path, void **buffer, uint32_t *length) {
  if (buffer != NULL) *buffer = NULL;
  if (length != NULL) *length = 0;
  if (path == NULL || buffer == NULL || length == NULL) return ZOR_FILE_E_ARGUMENT;
  const int fd = OpenRegular(path, O_RDONLY);
  if (fd < 0) return ZOR_FILE_E_IO;
  char *bytes = NULL;
  size_t count = 0;
  uint32_t status = ReadAll(fd, &bytes, &count);
  close(fd);
  if (status == ZOR_FILE_OK && count > ZOR_FILE_READ_MAX) status = ZOR_FILE_E_NO_MEMORY;
  if (status != ZOR_FILE_OK) {
    free(bytes);
    return status;
  }
  bytes[count] = '\0';
  *buffer = bytes;
  *length = (uint32_t)count;
  return ZOR_FILE_OK;
}

char *ZOR_UTIL_StrFileToBuf(const char *path) {
  void *text = NULL;
  uint32_t length = 0;
  ZOR_UTIL_ReadFileToBuf(path, &text, &length);
  return text;
}

uint32_t ZOR_UTIL_WriteBufToFile(const char *path, const void *buffer, uint32_t length) {
  if (path == NULL || (buffer == NULL && length != 0)) return ZOR_FILE_E_ARGUMENT;
  const int fd = OpenRegular(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW);
  if (fd < 0) return ZOR_FILE_E_IO;
  const int isWritten = example_write_all(fd, buffer, length);
  if (close(fd) == 0 && isWritten) return ZOR_FILE_OK;
  unlink(path);
  return ZOR_FILE_E_IO;
}

uint32_t ZOR_UTIL_RemoveAndroidWPerm(const char *path, const char *mode) {
  if (path == NULL || mode == NULL || *mode == '\0') return ZOR_FILE_E_ARGUMENT;
  char *end = NULL;
  const unsigned long bits = strtoul(mode, &end, 8);
  if (*end != '\0' || bits > 07777) return ZOR_FILE_E_ARGUMENT;
  return chmod(path, (mode_t)(bits & ~0002ul)) == 0 ? ZOR_FILE_OK : ZOR_FILE_E_IO;
}

uint32_t ZOR_UTIL_ChangeFileUGid(const char *path, const char *account) {
  if (path == NULL || account == NULL) return ZOR_FILE_E_ARGUMENT;
  const struct passwd *owner = getpwnam(account);
  if (owner == NULL) return ZOR_FILE_E_NO_ACCOUNT;
  return lchown(path, owner->pw_uid, owner->pw_gid) == 0 ? ZOR_FILE_OK : ZOR_FILE_E_IO;
}
