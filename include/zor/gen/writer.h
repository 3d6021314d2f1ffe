/*
 * Writes the bodies of the messages that zorgen makes code for: into a buffer of fixed size, into one that grows, or
 * nowhere, which only counts. Integers are in this machine's byte order, as everything in a message.
 */
#ifndef ZOR_GEN_WRITER_H
#define ZOR_GEN_WRITER_H

#include <zor/gen/view.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zor_gen_writer {
  char *start;
  char *at;
  char *end;
  size_t missing;                                            /* bytes that did not fit */
  bool failed;                                               /* a value that the encoding cannot carry */
  void (*grow)(struct zor_gen_writer *writer, size_t count); /* makes room for that many bytes; null: fixed size */
  void *owner;                                               /* for grow */
};

/* A null buffer counts only. */
static inline struct zor_gen_writer zor_gen_writer_to(void *buffer, size_t capacity) {
  struct zor_gen_writer writer;
  writer.start = writer.at = (char *)buffer;
  writer.end = buffer == NULL ? NULL : writer.start + capacity;
  writer.missing = 0;
  writer.failed = false;
  writer.grow = NULL;
  writer.owner = NULL;
  return writer;
}

/* The length of the body, or the length that it would have when only counting; 0 if it does not fit or is invalid. */
static inline size_t zor_gen_written(const struct zor_gen_writer *writer) {
  if (writer->failed) return 0;
  if (writer->missing > 0) return writer->start == NULL ? writer->missing : 0;
  return (size_t)(writer->at - writer->start);
}

/* Makes room if that is possible. */
static inline bool zor_gen_grow(struct zor_gen_writer *writer, size_t count) {
  if (writer->grow == NULL) {
    writer->missing += count;
    return false;
  }
  writer->grow(writer, count);
  return true;
}

/* That many bytes to be filled; null if there is no room for them, which is noted. */
ZOR_GEN_INLINE char *zor_gen_room(struct zor_gen_writer *writer, size_t count) {
  char *room;
  if ((size_t)(writer->end - writer->at) < count && !zor_gen_grow(writer, count)) return NULL;
  room = writer->at;
  writer->at += count;
  return room;
}

/* Bytes as they are. */
ZOR_GEN_INLINE void zor_gen_put(struct zor_gen_writer *writer, const void *bytes, size_t count) {
  char *room;
  if (count == 0) return;
  room = zor_gen_room(writer, count);
  if (room != NULL) memcpy(room, bytes, count);
}

static inline void zor_gen_put_bool(struct zor_gen_writer *writer, bool value) {
  const uint8_t byte = value ? 1 : 0;
  zor_gen_put(writer, &byte, 1);
}

/* The plain content, padded with zeros to size bytes. */
static inline void zor_gen_put_padded(struct zor_gen_writer *writer, struct zor_gen_view view, size_t size) {
  const size_t length = zor_gen_length(view);
  char *room;
  if (length > size) {
    writer->failed = true;
    return;
  }
  if (size == 0) return;
  room = zor_gen_room(writer, size);
  if (room == NULL) return;
  zor_gen_copy(view, room, length);
  memset(room + length, 0, size - length);
}

/* A field of so many bytes. */
static inline void zor_gen_put_bytes_of(struct zor_gen_writer *writer, struct zor_gen_view view, size_t size) {
  zor_gen_put_padded(writer, view, size);
}

/* All bytes that are left. */
static inline void zor_gen_put_rest(struct zor_gen_writer *writer, struct zor_gen_view view) {
  zor_gen_put_padded(writer, view, zor_gen_length(view));
}

/* A NUL in a text would end it, and move the fields behind it. */
static inline bool zor_gen_has_nul(struct zor_gen_view view) {
  const char *at = view.data, *piece;
  char room[4];
  size_t length;
  if (view.length == 0) return false;
  if (view.form == ZOR_GEN_PLAIN) return memchr(view.data, '\0', view.length) != NULL;
  while ((length = zor_gen_piece(&view, &at, &piece, room)) > 0) {
    if (memchr(piece, '\0', length) != NULL) return true;
  }
  return false;
}

/* A text in a field of so many bytes, of which the last is its NUL. */
static inline void zor_gen_put_text_of(struct zor_gen_writer *writer, struct zor_gen_view view, size_t size) {
  writer->failed = writer->failed || zor_gen_length(view) >= size || zor_gen_has_nul(view);
  if (!writer->failed) zor_gen_put_padded(writer, view, size);
}

/* A text up to its NUL. */
static inline void zor_gen_put_text(struct zor_gen_writer *writer, struct zor_gen_view view) {
  zor_gen_put_text_of(writer, view, zor_gen_length(view) + 1);
}

#ifdef __cplusplus
}
#endif

#endif
