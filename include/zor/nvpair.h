/* A list of name-value pairs: its owner holds the first node, null for the empty list. */
#ifndef ZOR_NVPAIR_H
#define ZOR_NVPAIR_H

typedef struct ZOR_NVPAIR {
  struct ZOR_NVPAIR *next;
  char *name;
  char *value;
} ZOR_NVPAIR;

#endif
