/*
 * Texts and bytes of the messages that zorgen makes code for. A decoded message points into the body that it was
 * decoded from, so nothing is allocated, and it lives as long as that body. A text of a JSON body may have escapes in
 * it, and bytes are hexadecimal digits there: read both by the functions below, which give the plain content in every
 * case.
 */
#ifndef ZOR_GEN_VIEW_H
#define ZOR_GEN_VIEW_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Short functions that generated code calls for every field: with a size that is known a copy is a single instruction,
   but only where it is inlined, which compilers do not do by themselves for so many calls. */
#ifdef __GNUC__
#define ZOR_GEN_INLINE static inline __attribute__((always_inline))
#else
#define ZOR_GEN_INLINE static inline
#endif

enum zor_gen_form {
  ZOR_GEN_PLAIN,   /* the content itself */
  ZOR_GEN_ESCAPED, /* the inside of a JSON string that has escapes */
  ZOR_GEN_HEX      /* two hexadecimal digits for each byte */
};

struct zor_gen_view {
  const char *data; /* null only in an empty view */
  size_t length;
  enum zor_gen_form form;
};

static inline struct zor_gen_view zor_gen_view_of(const void *data, size_t length, enum zor_gen_form form) {
  struct zor_gen_view view;
  view.data = (const char *)data;
  view.length = length;
  view.form = form;
  return view;
}

static inline struct zor_gen_view zor_gen_bytes(const void *data, size_t length) {
  return zor_gen_view_of(data, length, ZOR_GEN_PLAIN);
}

static inline struct zor_gen_view zor_gen_text(const char *text) {
  return zor_gen_bytes(text, strlen(text));
}

/* A hexadecimal digit's value; 16 for any other character. */
static inline unsigned zor_gen_digit(char digit) {
  if (digit >= '0' && digit <= '9') return (unsigned)digit - '0';
  if (digit >= 'a' && digit <= 'f') return (unsigned)digit - 'a' + 10u;
  if (digit >= 'A' && digit <= 'F') return (unsigned)digit - 'A' + 10u;
  return 16u;
}

/* Writes a character as UTF-8 and returns its length. */
static inline size_t zor_gen_utf8(uint32_t character, char out[4]) {
  const size_t length = character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
  size_t i;
  if (length == 1) {
    out[0] = (char)character;
    return 1;
  }
  for (i = length - 1; i > 0; --i) {
    out[i] = (char)(0x80u | (character & 0x3fu));
    character >>= 6;
  }
  out[0] = (char)((0xf00u >> length & 0xf0u) | character);
  return length;
}

/* The four digits of \uNNNN; above 0xffff if they are missing or others. */
static inline uint32_t zor_gen_unit(const char *at, const char *end) {
  uint32_t unit = 0;
  int i;
  if (end - at < 4) return 0x10000u;
  for (i = 0; i < 4; ++i) {
    const unsigned digit = zor_gen_digit(at[i]);
    if (digit > 15u) return 0x10000u;
    unit = unit << 4 | digit;
  }
  return unit;
}

/* Reads the escape at *at, which is its backslash, and moves *at behind it. Returns how many bytes it stands for; 0 if
   it is malformed or half a surrogate pair. */
static inline size_t zor_gen_unescape(const char **at, const char *end, char out[4]) {
  static const char kNames[] = "\"\\/bfnrt", kMeanings[] = "\"\\/\b\f\n\r\t";
  const char *escape = *at + 1;
  const char *name;
  uint32_t unit, low;
  if (escape >= end) return 0;
  if (*escape != 'u') {
    name = *escape == '\0' ? NULL : strchr(kNames, *escape);
    if (name == NULL) return 0;
    out[0] = kMeanings[name - kNames];
    *at = escape + 1;
    return 1;
  }
  unit = zor_gen_unit(++escape, end);
  if (unit > 0xffffu || (unit >= 0xdc00u && unit <= 0xdfffu)) return 0;
  escape += 4;
  if (unit >= 0xd800u && unit <= 0xdbffu) {
    if (end - escape < 6 || escape[0] != '\\' || escape[1] != 'u') return 0;
    low = zor_gen_unit(escape + 2, end);
    if (low < 0xdc00u || low > 0xdfffu) return 0;
    unit = 0x10000u + ((unit - 0xd800u) << 10) + (low - 0xdc00u);
    escape += 6;
  }
  *at = escape;
  return zor_gen_utf8(unit, out);
}

/* Moves *at to the next piece of the plain content; the piece is at *piece, perhaps in room. Returns its length; 0 at
   the end, and at whatever a valid body does not have. */
static inline size_t zor_gen_piece(const struct zor_gen_view *view, const char **at, const char **piece, char room[4]) {
  const char *end = view->data + view->length;
  const char *start = *at;
  *piece = room;
  if (start == end) return 0;
  if (view->form == ZOR_GEN_HEX) {
    if (end - start < 2 || zor_gen_digit(start[0]) > 15u || zor_gen_digit(start[1]) > 15u) return 0;
    room[0] = (char)(zor_gen_digit(start[0]) << 4 | zor_gen_digit(start[1]));
    *at += 2;
    return 1;
  }
  if (view->form == ZOR_GEN_ESCAPED && *start == '\\') return zor_gen_unescape(at, end, room);
  *piece = start;
  *at = view->form == ZOR_GEN_ESCAPED ? (const char *)memchr(start, '\\', (size_t)(end - start)) : end;
  if (*at == NULL) *at = end;
  return (size_t)(*at - start);
}

/* Copies the plain content, as far as it fits, and returns its whole length. No NUL is added. */
static inline size_t zor_gen_copy(struct zor_gen_view view, void *buffer, size_t capacity) {
  const char *at = view.data, *piece;
  char room[4];
  size_t total = 0, length;
  if (view.form == ZOR_GEN_PLAIN) {
    length = view.length < capacity ? view.length : capacity;
    if (length > 0) memcpy(buffer, view.data, length);
    return view.length;
  }
  if (view.length == 0) return 0;
  while ((length = zor_gen_piece(&view, &at, &piece, room)) > 0) {
    if (total < capacity) memcpy((char *)buffer + total, piece, length < capacity - total ? length : capacity - total);
    total += length;
  }
  return total;
}

/* The length of the plain content. */
static inline size_t zor_gen_length(struct zor_gen_view view) {
  return view.form == ZOR_GEN_PLAIN ? view.length : zor_gen_copy(view, NULL, 0);
}

/* Copies the plain content with a NUL behind it. False, and an empty text, if it does not fit or has a NUL in it. */
static inline bool zor_gen_copy_text(struct zor_gen_view view, char *buffer, size_t capacity) {
  size_t length;
  if (capacity == 0) return false;
  length = zor_gen_copy(view, buffer, capacity - 1);
  if (length < capacity && (length == 0 || memchr(buffer, '\0', length) == NULL)) {
    buffer[length] = '\0';
    return true;
  }
  buffer[0] = '\0';
  return false;
}

/* Whether the plain content is these bytes. */
static inline bool zor_gen_equals(struct zor_gen_view view, const void *bytes, size_t length) {
  const char *at = view.data, *piece, *rest = (const char *)bytes;
  char room[4];
  size_t part;
  if (view.length == 0) return length == 0;
  while ((part = zor_gen_piece(&view, &at, &piece, room)) > 0) {
    if (part > length || memcmp(piece, rest, part) != 0) return false;
    rest += part;
    length -= part;
  }
  return length == 0;
}

#ifdef __cplusplus
}
#endif

#endif
