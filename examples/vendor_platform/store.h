/*
 * The configuration store of the example: one flat file, which is read whole into a sorted array and written whole
 * beside its name, then renamed. So readers need no lock and see the state before or after a change; writers take turns
 * at a lock file. A store of some kilobytes is what this is for.
 */
#ifndef EXAMPLE_STORE_H
#define EXAMPLE_STORE_H

#include <limits.h>
#include <stddef.h>
#include <stdint.h>

/* One entry, of the kinds that ZOR_STORE_List names. An object has one without a name, so that it exists without
 * values. */
typedef struct Entry {
  uint32_t kind;
  uint32_t id;
  uint32_t instance;
  uint32_t size; /* of the value */
  char *name;    /* "" for none; the value is behind it in the same block, with a NUL behind it */
  char *value;
} Entry;

typedef struct Store {
  Entry *entries; /* by kind, id, instance and name */
  size_t count;
  size_t room;
} Store;

/* A call on the system's store. */
typedef struct Session {
  char path[PATH_MAX];
  int lock; /* -1 for one that only reads */
  Store store;
} Session;

/* Where such an entry is, or would be. */
size_t example_store_find(const Store *store, uint32_t kind, uint32_t id, uint32_t instance, const char *name);
/* Null when there is none. */
const Entry *example_store_get(const Store *store, uint32_t kind, uint32_t id, uint32_t instance, const char *name);
/* The other functions return statuses of config.h. */
uint32_t example_store_put(Store *store, const Entry *entry);
void example_store_erase(Store *store, size_t first, size_t count);
void example_store_release(Store *store);

uint32_t example_store_read(const char *path, Store *store);
uint32_t example_store_write(const char *path, const Store *store, unsigned mode);

/* After a failed begin there is nothing to end. The end writes what has been changed when the status is 0 and the
   session may write. */
uint32_t example_begin(Session *session, int writes);
uint32_t example_end(Session *session, uint32_t status);

/* Not 0 when all was written. */
int example_write_all(int fd, const void *bytes, size_t length);

#endif
