#include "store.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zor/platform/config.h>
#include <zor/platform/file.h>
#include <zor/platform/limits.h>

/* The file: this, an item for each entry with name and value behind it, and a sum over all of that. */
static const char kMagic[8] = "exstore1";
typedef struct Item {
  uint32_t kind, id, instance, nameLength, size;
} Item;

static uint32_t Fail(const char *path, const char *reason, uint32_t status) {
  fprintf(stderr, "configuration store %s: %s\n", path, reason);
  return status;
}

static int CompareNumbers(uint32_t a, uint32_t b) {
  return a < b ? -1 : a > b;
}

static int Compare(const Entry *entry, uint32_t kind, uint32_t id, uint32_t instance, const char *name) {
  int order = CompareNumbers(entry->kind, kind);
  if (order == 0) order = CompareNumbers(entry->id, id);
  if (order == 0) order = CompareNumbers(entry->instance, instance);
  return order != 0 ? order : strcmp(entry->name, name);
}

size_t example_store_find(const Store *store, uint32_t kind, uint32_t id, uint32_t instance, const char *name) {
  size_t low = 0, high = store->count;
  while (low < high) {
    const size_t middle = low + (high - low) / 2;
    if (Compare(&store->entries[middle], kind, id, instance, name) < 0) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

const Entry *example_store_get(const Store *store, uint32_t kind, uint32_t id, uint32_t instance, const char *name) {
  const size_t at = example_store_find(store, kind, id, instance, name);
  const int isThere = at < store->count && Compare(&store->entries[at], kind, id, instance, name) == 0;
  return isThere ? &store->entries[at] : NULL;
}

uint32_t example_store_put(Store *store, const Entry *entry) {
  if (store->count == store->room) {
    const size_t room = store->room * 2 + 16;
    Entry *grown = realloc(store->entries, room * sizeof *grown);
    if (grown == NULL) return ZOR_STORE_E_NO_MEMORY;
    store->entries = grown;
    store->room = room;
  }
  const size_t nameSize = strlen(entry->name) + 1;
  char *block = malloc(nameSize + entry->size + 1);
  if (block == NULL) return ZOR_STORE_E_NO_MEMORY;
  memcpy(block, entry->name, nameSize);
  if (entry->size > 0) memcpy(block + nameSize, entry->value, entry->size);
  block[nameSize + entry->size] = '\0';
  const size_t at = example_store_find(store, entry->kind, entry->id, entry->instance, entry->name);
  if (example_store_get(store, entry->kind, entry->id, entry->instance, entry->name) != NULL) {
    free(store->entries[at].name);
  } else {
    memmove(store->entries + at + 1, store->entries + at, (store->count++ - at) * sizeof *store->entries);
  }
  store->entries[at] = *entry;
  store->entries[at].name = block;
  store->entries[at].value = block + nameSize;
  return ZOR_STORE_OK;
}

void example_store_erase(Store *store, size_t first, size_t count) {
  for (size_t i = first; i < first + count; ++i) free(store->entries[i].name);
  memmove(store->entries + first, store->entries + first + count,
          (store->count - first - count) * sizeof *store->entries);
  store->count -= count;
}

void example_store_release(Store *store) {
  for (size_t i = 0; i < store->count; ++i) free(store->entries[i].name);
  free(store->entries);
  memset(store, 0, sizeof *store);
}

static uint64_t Sum(const char *bytes, size_t length) {
  uint64_t sum = 0xcbf29ce484222325u;
  for (size_t i = 0; i < length; ++i) sum = (sum ^ (unsigned char)bytes[i]) * 0x100000001b3u;
  return sum;
}

/* The sum shows what is cut or damaged; lengths and order are checked all the same, since files come from elsewhere. */
static uint32_t Parse(const char *bytes, size_t length, Store *store) {
  uint64_t sum;
  if (length < sizeof kMagic + sizeof sum || memcmp(bytes, kMagic, sizeof kMagic) != 0) return ZOR_STORE_E_IO;
  const char *const end = bytes + length - sizeof sum;
  memcpy(&sum, end, sizeof sum);
  if (sum != Sum(bytes, length - sizeof sum)) return ZOR_STORE_E_IO;
  const char *at = bytes + sizeof kMagic;
  uint32_t status = ZOR_STORE_OK;
  while (at < end && status == ZOR_STORE_OK) {
    Item item;
    if ((size_t)(end - at) < sizeof item) return ZOR_STORE_E_IO;
    memcpy(&item, at, sizeof item);
    at += sizeof item;
    const size_t left = (size_t)(end - at);
    if (item.kind < 1 || item.kind > 3 || item.nameLength > left || item.size > left - item.nameLength) {
      return ZOR_STORE_E_IO;
    }
    char *name = strndup(at, item.nameLength);
    if (name == NULL) return ZOR_STORE_E_NO_MEMORY;
    const Entry entry = {item.kind, item.id, item.instance, item.size, name, (char *)at + item.nameLength};
    const size_t before = store->count;
    status = example_store_put(store, &entry);
    free(name);
    if (status == ZOR_STORE_OK && store->count == before) return ZOR_STORE_E_IO; /* twice */
    at += (size_t)item.nameLength + item.size;
  }
  return status;
}

uint32_t example_store_read(const char *path, Store *store) {
  memset(store, 0, sizeof *store);
  struct stat info;
  if (stat(path, &info) != 0 && errno == ENOENT) return ZOR_STORE_E_NOT_FOUND;
  void *bytes = NULL;
  uint32_t length = 0;
  uint32_t status = ZOR_UTIL_ReadFileToBuf(path, &bytes, &length);
  if (status == ZOR_FILE_E_NO_MEMORY) return ZOR_STORE_E_NO_MEMORY;
  if (status != ZOR_FILE_OK) return Fail(path, "cannot be read", ZOR_STORE_E_IO);
  status = Parse(bytes, length, store);
  free(bytes);
  if (status == ZOR_STORE_OK) return status;
  example_store_release(store);
  return status == ZOR_STORE_E_IO ? Fail(path, "no store, or a damaged one", status) : status;
}

static char *Append(char *at, const void *bytes, size_t length) {
  memcpy(at, bytes, length);
  return at + length;
}

/* The content of a file; null without memory or above what can be read again. */
static char *Compose(const Store *store, size_t *length) {
  uint64_t sum = 0;
  *length = sizeof kMagic + sizeof sum;
  for (size_t i = 0; i < store->count; ++i) {
    *length += sizeof(Item) + strlen(store->entries[i].name) + store->entries[i].size;
  }
  char *bytes = *length <= ZOR_FILE_READ_MAX ? malloc(*length) : NULL;
  if (bytes == NULL) return NULL;
  char *at = Append(bytes, kMagic, sizeof kMagic);
  for (size_t i = 0; i < store->count; ++i) {
    const Entry *entry = &store->entries[i];
    const Item item = {entry->kind, entry->id, entry->instance, (uint32_t)strlen(entry->name), entry->size};
    at = Append(at, &item, sizeof item);
    at = Append(at, entry->name, item.nameLength);
    at = Append(at, entry->value, item.size);
  }
  sum = Sum(bytes, (size_t)(at - bytes));
  Append(at, &sum, sizeof sum);
  return bytes;
}

/* A rename is on the disk when its directory is. */
static int SyncDirectory(const char *path) {
  char directory[PATH_MAX];
  snprintf(directory, sizeof directory, "%s", path);
  char *slash = strrchr(directory, '/');
  if (slash != NULL) slash[slash == directory] = '\0';
  const int fd = open(slash == NULL ? "." : directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const int isSynced = fd >= 0 && fsync(fd) == 0;
  if (fd >= 0) close(fd);
  return isSynced;
}

uint32_t example_store_write(const char *path, const Store *store, unsigned mode) {
  char building[PATH_MAX + 32];
  snprintf(building, sizeof building, "%s.%d.new", path, (int)getpid());
  size_t length = 0;
  char *bytes = Compose(store, &length);
  if (bytes == NULL) return ZOR_STORE_E_NO_MEMORY;
  unlink(building);
  const int fd = open(building, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, (mode_t)mode);
  int isDone = fd >= 0 && example_write_all(fd, bytes, length) && fsync(fd) == 0;
  free(bytes);
  if (fd >= 0) isDone = close(fd) == 0 && isDone;
  isDone = isDone && rename(building, path) == 0 && SyncDirectory(path);
  if (isDone) return ZOR_STORE_OK;
  const int error = errno;
  unlink(building);
  return Fail(path, strerror(error), ZOR_STORE_E_IO);
}

/* Waits for other writers. Explicitly unlocked later: a process that was forked meanwhile has the descriptor too. */
static uint32_t Lock(Session *session) {
  char path[PATH_MAX + 8];
  snprintf(path, sizeof path, "%s.lock", session->path);
  session->lock = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0660);
  if (session->lock < 0) return Fail(session->path, strerror(errno), ZOR_STORE_E_IO);
  const struct timespec nap = {0, 5000000};
  for (int waited = 0; flock(session->lock, LOCK_EX | LOCK_NB) != 0; waited += 5) {
    if (waited >= ZOR_STORE_WAIT_MS) {
      close(session->lock);
      return Fail(session->path, "another process writes", ZOR_STORE_E_BUSY);
    }
    nanosleep(&nap, NULL);
  }
  return ZOR_STORE_OK;
}

static void Unlock(Session *session) {
  if (session->lock < 0) return;
  flock(session->lock, LOCK_UN);
  close(session->lock);
}

uint32_t example_begin(Session *session, int writes) {
  session->lock = -1;
  char fixed[PATH_MAX];
  if (ZOR_UTIL_FixedPath(ZOR_STORE_PATH, fixed, sizeof fixed) == 0)
    return Fail("", "its path is too long", ZOR_STORE_E_IO);
  /* Where daemons cannot make files beside the fixed path, a link leads to where they can. */
  const ssize_t length = readlink(fixed, session->path, sizeof session->path - 1);
  if (length > 0) session->path[length] = '\0';
  if (length <= 0) memcpy(session->path, fixed, strlen(fixed) + 1);
  if (session->path[0] != '/') return Fail(fixed, "a link with a relative target", ZOR_STORE_E_IO);
  uint32_t status = writes ? Lock(session) : ZOR_STORE_OK;
  if (status != ZOR_STORE_OK) return status;
  status = example_store_read(session->path, &session->store);
  if (status == ZOR_STORE_OK || status == ZOR_STORE_E_NOT_FOUND) return ZOR_STORE_OK;
  Unlock(session);
  return status;
}

uint32_t example_end(Session *session, uint32_t status) {
  if (status == ZOR_STORE_OK && session->lock >= 0) status = example_store_write(session->path, &session->store, 0660);
  Unlock(session);
  example_store_release(&session->store);
  return status;
}
