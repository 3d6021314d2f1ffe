/*
 * Reads the records of the messages that zorgen makes code for. Bodies are hostile. A record may end early, after any
 * field: what is missing keeps its default. A text may end early too; a number that is truncated makes the record
 * invalid. What follows the last known field is from a newer version.
 */
#ifndef ZOR_GEN_READER_H
#define ZOR_GEN_READER_H

#include <zor/gen/view.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zor_gen_reader {
  const char *at;
  const char *end;
  bool failed;
};

static inline struct zor_gen_reader zor_gen_reader_of(const void *body, size_t length) {
  struct zor_gen_reader reader;
  reader.at = length == 0 ? "" : (const char *)body;
  reader.end = reader.at + length;
  reader.failed = false;
  return reader;
}

ZOR_GEN_INLINE size_t zor_gen_left(const struct zor_gen_reader *reader) {
  return (size_t)(reader->end - reader->at);
}

/* A number of so many bytes. */
ZOR_GEN_INLINE void zor_gen_get(struct zor_gen_reader *reader, void *number, size_t size) {
  const size_t left = zor_gen_left(reader);
  if (left >= size) {
    memcpy(number, reader->at, size);
    reader->at += size;
  } else if (left > 0) {
    reader->failed = true;
    reader->at = reader->end;
  }
}

static inline void zor_gen_get_bool(struct zor_gen_reader *reader, bool *value) {
  if (reader->at != reader->end) *value = *reader->at++ != '\0';
}

/* Bytes, at most size of them, and where they end. */
static inline void zor_gen_get_bytes_of(struct zor_gen_reader *reader, struct zor_gen_view *view, size_t size) {
  const size_t left = zor_gen_left(reader);
  if (left == 0) return;
  *view = zor_gen_bytes(reader->at, left < size ? left : size);
  reader->at += view->length;
}

static inline void zor_gen_get_rest(struct zor_gen_reader *reader, struct zor_gen_view *view) {
  zor_gen_get_bytes_of(reader, view, zor_gen_left(reader));
}

/* The text before the first NUL of a view; false without one. */
static inline bool zor_gen_cut(struct zor_gen_view *view) {
  const char *end = (const char *)memchr(view->data, '\0', view->length);
  if (end == NULL) return false;
  view->length = (size_t)(end - view->data);
  return true;
}

/* A text in a field of so many bytes, which must have a NUL among them. */
static inline void zor_gen_get_text_of(struct zor_gen_reader *reader, struct zor_gen_view *view, size_t size) {
  if (zor_gen_left(reader) == 0) return;
  zor_gen_get_bytes_of(reader, view, size);
  if (!zor_gen_cut(view) && view->length == size) reader->failed = true;
}

/* A text up to its NUL or the end. */
static inline void zor_gen_get_text(struct zor_gen_reader *reader, struct zor_gen_view *view) {
  if (zor_gen_left(reader) == 0) return;
  *view = zor_gen_bytes(reader->at, zor_gen_left(reader));
  reader->at += zor_gen_cut(view) ? view->length + 1 : view->length;
}

#ifdef __cplusplus
}
#endif

#endif
