/*
 * Writes the JSON bodies of the messages that zorgen makes code for. What JSON cannot carry makes the writer fail: a
 * text that is not UTF-8, a number that is infinite or none, a JSON value that is malformed.
 */
#ifndef ZOR_GEN_JSON_WRITER_H
#define ZOR_GEN_JSON_WRITER_H

#include <zor/gen/json_reader.h>
#include <zor/gen/writer.h>

#ifdef __cplusplus
extern "C" {
#endif

static inline void zor_json_put_bool(struct zor_gen_writer *writer, bool value) {
  zor_gen_put(writer, value ? "true" : "false", value ? 4 : 5);
}

static inline void zor_json_put_unsigned(struct zor_gen_writer *writer, uint64_t value) {
  zor_json_put_integer(writer, false, value);
}

static inline void zor_json_put_signed(struct zor_gen_writer *writer, int64_t value) {
  zor_json_put_integer(writer, value < 0, value < 0 ? (uint64_t)0 - (uint64_t)value : (uint64_t)value);
}

/* One character that does not stand for itself; returns its length in the text, 0 if it is malformed. */
static inline size_t zor_json_put_special(struct zor_gen_writer *writer, const char *at, const char *end) {
  static const char kShort[] = "\"\\\b\f\n\r\t", kNames[] = "\"\\bfnrt", kDigits[] = "0123456789abcdef";
  const unsigned byte = (unsigned char)*at;
  const char *meaning;
  char escape[6] = {'\\', 'u', '0', '0', '0', '0'};
  size_t length;
  if (byte >= 0x80u) {
    length = zor_json_utf8(at, end);
    zor_gen_put(writer, at, length);
    return length;
  }
  meaning = byte == 0 ? NULL : strchr(kShort, (int)byte);
  if (meaning != NULL) {
    escape[1] = kNames[meaning - kShort];
    zor_gen_put(writer, escape, 2);
  } else {
    escape[4] = kDigits[byte >> 4];
    escape[5] = kDigits[byte & 0xfu];
    zor_gen_put(writer, escape, 6);
  }
  return 1;
}

static inline void zor_json_put_text(struct zor_gen_writer *writer, struct zor_gen_view view) {
  const char *at = view.data, *end = view.data + view.length, *start;
  zor_gen_put(writer, "\"", 1);
  while (view.form == ZOR_GEN_PLAIN && at != end && !writer->failed) {
    start = at;
    at = zor_json_run(at, end);
    zor_gen_put(writer, start, (size_t)(at - start));
    if (at != end) {
      const size_t length = zor_json_put_special(writer, at, end);
      writer->failed = length == 0;
      at += length;
    }
  }
  if (view.form != ZOR_GEN_PLAIN) zor_gen_put(writer, view.data, view.length);
  zor_gen_put(writer, "\"", 1);
}

/* A text for a field of so many bytes, of which the last is its NUL. */
static inline void zor_json_put_text_of(struct zor_gen_writer *writer, struct zor_gen_view view, size_t size) {
  writer->failed = writer->failed || zor_gen_length(view) >= size;
  zor_json_put_text(writer, view);
}

/* Bytes as hexadecimal digits. */
static inline void zor_json_put_bytes(struct zor_gen_writer *writer, struct zor_gen_view view) {
  static const char kDigits[] = "0123456789abcdef";
  size_t i;
  zor_gen_put(writer, "\"", 1);
  if (view.form != ZOR_GEN_PLAIN) {
    zor_gen_put(writer, view.data, view.length);
  } else {
    char *room = view.length == 0 ? NULL : zor_gen_room(writer, 2 * view.length);
    for (i = 0; room != NULL && i < view.length; ++i) {
      room[2 * i] = kDigits[(unsigned char)view.data[i] >> 4];
      room[2 * i + 1] = kDigits[(unsigned char)view.data[i] & 0xfu];
    }
  }
  zor_gen_put(writer, "\"", 1);
}

static inline void zor_json_put_bytes_of(struct zor_gen_writer *writer, struct zor_gen_view view, size_t size) {
  writer->failed = writer->failed || zor_gen_length(view) > size;
  zor_json_put_bytes(writer, view);
}

/* A JSON value as its text; an empty one is null. */
static inline void zor_json_put_json(struct zor_gen_writer *writer, struct zor_gen_view view) {
  if (view.length == 0) view = zor_gen_bytes("null", 4);
  writer->failed = writer->failed || !zor_json_is_valid(view.data, view.length);
  zor_gen_put(writer, view.data, view.length);
}

/* Whether a name is in a list, in which each name has its NUL and the last one is empty. */
static inline bool zor_json_is_known(const struct zor_json_reader *reader, const char *names) {
  for (; *names != '\0'; names += strlen(names) + 1) {
    if (zor_json_is(reader, names, strlen(names))) return true;
  }
  return false;
}

/* The members that were kept and have none of the known names; before is what is written before the first of them. */
static inline void zor_json_put_kept(struct zor_gen_writer *writer, struct zor_gen_view members, const char *known,
                                     char before) {
  struct zor_json_reader reader = zor_json_members_of(members);
  while (zor_json_next(&reader)) {
    if (!zor_json_skip(&reader.scan)) break;
    if (zor_json_is_known(&reader, known)) continue;
    zor_gen_put(writer, &before, 1);
    zor_gen_put(writer, reader.member, (size_t)(reader.scan.at - reader.member));
    before = ',';
  }
  writer->failed = writer->failed || reader.scan.failed;
}

/* A JSON value in a record, which takes the rest. An empty one is empty. */
static inline void zor_gen_put_json(struct zor_gen_writer *writer, struct zor_gen_view view) {
  writer->failed = writer->failed || (view.length > 0 && !zor_json_is_valid(view.data, view.length));
  zor_gen_put(writer, view.data, view.length);
}

#ifdef __cplusplus
}
#endif

#endif
