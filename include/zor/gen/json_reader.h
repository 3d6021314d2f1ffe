/*
 * Reads the JSON bodies of the messages that zorgen makes code for: one object, member by member. A member that is
 * missing or null keeps its default, the last of several with one name counts, and unknown ones are kept as they are
 * written.
 */
#ifndef ZOR_GEN_JSON_READER_H
#define ZOR_GEN_JSON_READER_H

#include <zor/gen/json_number.h>
#include <zor/gen/json_scan.h>
#include <zor/gen/reader.h>

#ifdef __cplusplus
extern "C" {
#endif

struct zor_json_reader {
  struct zor_json_scan scan;
  const char *member;       /* where the member begins, with its name */
  struct zor_gen_view name; /* of the member whose value is next */
  bool first;
  bool done;
  bool bare; /* members without the braces around them */
};

/* NULs at the end are ignored. An empty body is an object without members. */
static inline struct zor_json_reader zor_json_reader_of(const void *body, size_t length) {
  struct zor_json_reader reader;
  const char *text = length == 0 ? "" : (const char *)body;
  while (length > 0 && text[length - 1] == '\0') --length;
  reader.scan.at = text;
  reader.scan.end = text + length;
  reader.scan.failed = false;
  reader.member = text;
  reader.name = zor_gen_bytes(text, 0);
  reader.first = true;
  reader.bare = false;
  reader.done = length == 0;
  if (length > 0) zor_json_expect(&reader.scan, '{');
  return reader;
}

/* Members with commas between them: what zor_json_keep has kept. */
static inline struct zor_json_reader zor_json_members_of(struct zor_gen_view members) {
  struct zor_json_reader reader = zor_json_reader_of(NULL, 0);
  if (members.length == 0) return reader;
  reader.scan.at = members.data;
  reader.scan.end = members.data + members.length;
  reader.bare = true;
  reader.done = false;
  return reader;
}

/* The end of the object, and nothing behind it. */
static inline bool zor_json_finish(struct zor_json_reader *reader) {
  reader->done = true;
  if (!reader->bare) ++reader->scan.at;
  zor_json_space(&reader->scan);
  if (reader->scan.at != reader->scan.end) zor_json_fail(&reader->scan);
  return false;
}

/* Moves to the value of the next member. */
static inline bool zor_json_next(struct zor_json_reader *reader) {
  struct zor_json_scan *scan = &reader->scan;
  char next;
  if (reader->done || scan->failed) return false;
  next = zor_json_peek(scan);
  if (reader->bare ? scan->at == scan->end : next == '}') return zor_json_finish(reader);
  if (!reader->first && !zor_json_expect(scan, ',')) return false;
  reader->first = false;
  zor_json_space(scan);
  reader->member = scan->at;
  return zor_json_name(scan, &reader->name);
}

ZOR_GEN_INLINE bool zor_json_is(const struct zor_json_reader *reader, const char *name, size_t length) {
  if (reader->name.form == ZOR_GEN_PLAIN) {
    return reader->name.length == length && memcmp(reader->name.data, name, length) == 0;
  }
  return zor_gen_equals(reader->name, name, length);
}

/* Skips the value of an unknown member. The view grows so that it begins at the first unknown member and ends behind
   the last: known ones may lie between them. */
static inline void zor_json_keep(struct zor_json_reader *reader, struct zor_gen_view *unknown) {
  if (!zor_json_skip(&reader->scan)) return;
  if (unknown->length == 0) *unknown = zor_gen_bytes(reader->member, 0);
  unknown->length = (size_t)(reader->scan.at - unknown->data);
}

/* A value keeps its default when it is null. */
ZOR_GEN_INLINE bool zor_json_get_null(struct zor_json_reader *reader) {
  return zor_json_peek(&reader->scan) == 'n' && (zor_json_skip_scalar(&reader->scan), true);
}

static inline void zor_json_get_bool(struct zor_json_reader *reader, bool *value) {
  if (zor_json_get_null(reader)) return;
  if (zor_json_word(&reader->scan, "true", 4)) {
    *value = true;
  } else if (zor_json_word(&reader->scan, "false", 5)) {
    *value = false;
  } else {
    zor_json_fail(&reader->scan);
  }
}

static inline void zor_json_get_f64(struct zor_json_reader *reader, double *value) {
  const char *start = reader->scan.at;
  struct zor_json_short number;
  struct zor_gen_view text;
  bool whole;
  if (zor_json_short_number(&reader->scan, &number)) {
    if ((double)number.digits <= ZOR_JSON_EXACT) {
      const double size = (double)number.digits / zor_json_power(number.decimals);
      /* -0 is a whole number, without a sign. */
      *value = number.negative && (number.digits > 0 || number.decimals > 0) ? -size : size;
      return;
    }
    reader->scan.at = start;
  }
  if (zor_json_get_null(reader) || !zor_json_number(&reader->scan, &text, &whole)) return;
  if (!zor_json_to_double(text, value)) zor_json_fail(&reader->scan);
  if (whole && *value == 0) *value = 0;
}

/* True with a whole number of at most 64 bits; false at null. */
static inline bool zor_json_integer(struct zor_json_reader *reader, bool *negative, uint64_t *magnitude) {
  const char *start = reader->scan.at;
  struct zor_json_short number;
  struct zor_gen_view text;
  bool whole;
  if (zor_json_short_number(&reader->scan, &number)) {
    *negative = number.negative;
    *magnitude = number.digits;
    if (number.decimals == 0) return true;
    reader->scan.at = start;
  }
  if (zor_json_get_null(reader) || !zor_json_number(&reader->scan, &text, &whole)) return false;
  return zor_json_to_integer(text, whole, negative, magnitude) || zor_json_fail(&reader->scan);
}

/* True with a number from 0 to most; a number beyond that makes the body invalid. */
static inline bool zor_json_unsigned(struct zor_json_reader *reader, uint64_t most, uint64_t *value) {
  bool negative;
  if (!zor_json_integer(reader, &negative, value)) return false;
  return (*value <= most && !(negative && *value != 0)) || zor_json_fail(&reader->scan);
}

/* True with a number from -most-1 to most; a number beyond that makes the body invalid. */
static inline bool zor_json_signed(struct zor_json_reader *reader, uint64_t most, int64_t *value) {
  uint64_t magnitude;
  bool negative;
  if (!zor_json_integer(reader, &negative, &magnitude)) return false;
  if (magnitude > most + (negative ? 1u : 0u)) return zor_json_fail(&reader->scan);
  /* The lowest number has no positive counterpart. */
  *value = negative && magnitude > 0 ? -(int64_t)(magnitude - 1u) - 1 : (int64_t)magnitude;
  return true;
}

static inline void zor_json_get_u8(struct zor_json_reader *reader, uint8_t *value) {
  uint64_t number;
  if (zor_json_unsigned(reader, UINT8_MAX, &number)) *value = (uint8_t)number;
}
static inline void zor_json_get_u16(struct zor_json_reader *reader, uint16_t *value) {
  uint64_t number;
  if (zor_json_unsigned(reader, UINT16_MAX, &number)) *value = (uint16_t)number;
}
static inline void zor_json_get_u32(struct zor_json_reader *reader, uint32_t *value) {
  uint64_t number;
  if (zor_json_unsigned(reader, UINT32_MAX, &number)) *value = (uint32_t)number;
}
static inline void zor_json_get_u64(struct zor_json_reader *reader, uint64_t *value) {
  uint64_t number;
  if (zor_json_unsigned(reader, UINT64_MAX, &number)) *value = number;
}
static inline void zor_json_get_i8(struct zor_json_reader *reader, int8_t *value) {
  int64_t number;
  if (zor_json_signed(reader, INT8_MAX, &number)) *value = (int8_t)number;
}
static inline void zor_json_get_i16(struct zor_json_reader *reader, int16_t *value) {
  int64_t number;
  if (zor_json_signed(reader, INT16_MAX, &number)) *value = (int16_t)number;
}
static inline void zor_json_get_i32(struct zor_json_reader *reader, int32_t *value) {
  int64_t number;
  if (zor_json_signed(reader, INT32_MAX, &number)) *value = (int32_t)number;
}
static inline void zor_json_get_i64(struct zor_json_reader *reader, int64_t *value) {
  int64_t number;
  if (zor_json_signed(reader, INT64_MAX, &number)) *value = number;
}

static inline void zor_json_get_text(struct zor_json_reader *reader, struct zor_gen_view *value) {
  if (!zor_json_get_null(reader)) zor_json_string(&reader->scan, value);
}

/* A text for a field of so many bytes, of which the last is its NUL. */
static inline void zor_json_get_text_of(struct zor_json_reader *reader, struct zor_gen_view *value, size_t size) {
  struct zor_gen_view text;
  if (zor_json_get_null(reader) || !zor_json_string(&reader->scan, &text)) return;
  if (zor_gen_length(text) >= size) {
    zor_json_fail(&reader->scan);
  } else {
    *value = text;
  }
}

/* Bytes, at most size of them, which are hexadecimal digits here. */
static inline void zor_json_get_bytes_of(struct zor_json_reader *reader, struct zor_gen_view *value, size_t size) {
  struct zor_gen_view text;
  size_t i;
  if (zor_json_get_null(reader) || !zor_json_string(&reader->scan, &text)) return;
  if (text.length % 2 != 0 || text.length / 2 > size) zor_json_fail(&reader->scan);
  for (i = 0; i < text.length && !reader->scan.failed; ++i) {
    if (zor_gen_digit(text.data[i]) > 15u) zor_json_fail(&reader->scan);
  }
  if (!reader->scan.failed) *value = zor_gen_view_of(text.data, text.length, ZOR_GEN_HEX);
}

static inline void zor_json_get_bytes(struct zor_json_reader *reader, struct zor_gen_view *value) {
  zor_json_get_bytes_of(reader, value, SIZE_MAX);
}

/* Any value, as its text; null is a value here. */
static inline void zor_json_get_json(struct zor_json_reader *reader, struct zor_gen_view *value) {
  const char *start = (zor_json_space(&reader->scan), reader->scan.at);
  if (zor_json_skip(&reader->scan)) *value = zor_gen_bytes(start, (size_t)(reader->scan.at - start));
}

/* A JSON value in a record, which takes the rest; NULs at the end are ignored. */
static inline void zor_gen_get_json(struct zor_gen_reader *reader, struct zor_gen_view *value) {
  struct zor_gen_view text = zor_gen_bytes(reader->at, 0);
  zor_gen_get_rest(reader, &text);
  while (text.length > 0 && text.data[text.length - 1] == '\0') --text.length;
  if (text.length == 0) return;
  *value = text;
  reader->failed = reader->failed || !zor_json_is_valid(text.data, text.length);
}

#ifdef __cplusplus
}
#endif

#endif
