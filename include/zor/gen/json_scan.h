/*
 * Checks JSON text and finds where its values end, for the messages that zorgen makes code for. Strict, since bodies
 * are hostile: valid UTF-8, no half surrogate pairs, no control characters in strings, nothing after the value, and at
 * most ZOR_JSON_DEPTH containers within each other. Nothing recurses and nothing is allocated.
 */
#ifndef ZOR_GEN_JSON_SCAN_H
#define ZOR_GEN_JSON_SCAN_H

#include <zor/gen/view.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How deep containers may lie in each other. The message's own object is one. */
#define ZOR_JSON_DEPTH 64

struct zor_json_scan {
  const char *at;
  const char *end;
  bool failed;
};

static inline bool zor_json_fail(struct zor_json_scan *scan) {
  scan->failed = true;
  return false;
}

static inline void zor_json_space(struct zor_json_scan *scan) {
  while (scan->at != scan->end && (*scan->at == ' ' || *scan->at == '\n' || *scan->at == '\t' || *scan->at == '\r')) {
    ++scan->at;
  }
}

/* The next character that is no space; NUL at the end, which no valid text has. */
ZOR_GEN_INLINE char zor_json_peek(struct zor_json_scan *scan) {
  if (scan->at != scan->end && *scan->at > ' ') return *scan->at;
  zor_json_space(scan);
  return scan->at == scan->end ? '\0' : *scan->at;
}

ZOR_GEN_INLINE bool zor_json_expect(struct zor_json_scan *scan, char wanted) {
  if (zor_json_peek(scan) != wanted) return zor_json_fail(scan);
  ++scan->at;
  return true;
}

/* Whether a character of a string stands for itself and is a single byte. */
ZOR_GEN_INLINE bool zor_json_is_plain(char character) {
  return character != '"' && character != '\\' && (unsigned char)((unsigned char)character - 0x20u) < 0x60u;
}

/* Where the characters end that stand for themselves. */
ZOR_GEN_INLINE const char *zor_json_run(const char *at, const char *end) {
#if defined(__GNUC__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  /* Eight at a time: the highest bit of a byte is set where it is special. A borrow marks only bytes behind a special
   * one. */
  const uint64_t ones = UINT64_C(0x0101010101010101);
  while (end - at >= 8) {
    uint64_t word, special;
    memcpy(&word, at, sizeof word);
    special = (word - ones * 0x20u) | ((word ^ ones * '"') - ones) | ((word ^ ones * '\\') - ones) | word;
    special &= ones * 0x80u;
    if (special != 0) return at + __builtin_ctzll(special) / 8;
    at += 8;
  }
#endif
  while (at != end && zor_json_is_plain(*at)) ++at;
  return at;
}

/* The length of the UTF-8 character at a byte above 0x7f; 0 if it is malformed, overlong or a surrogate. */
static inline size_t zor_json_utf8(const char *at, const char *end) {
  const unsigned lead = (unsigned char)at[0];
  const size_t length = lead >= 0xf0u ? 4 : lead >= 0xe0u ? 3 : 2;
  unsigned second, lowest = 0x80u, highest = 0xbfu;
  size_t i;
  if (lead < 0xc2u || lead > 0xf4u || (size_t)(end - at) < length) return 0;
  second = (unsigned char)at[1];
  if (lead == 0xe0u) lowest = 0xa0u;
  if (lead == 0xedu) highest = 0x9fu;
  if (lead == 0xf0u) lowest = 0x90u;
  if (lead == 0xf4u) highest = 0x8fu;
  if (second < lowest || second > highest) return 0;
  for (i = 2; i < length; ++i) {
    if (((unsigned char)at[i] & 0xc0u) != 0x80u) return 0;
  }
  return length;
}

/* A string; the view is its inside. */
static inline bool zor_json_string(struct zor_json_scan *scan, struct zor_gen_view *inside) {
  enum zor_gen_form form = ZOR_GEN_PLAIN;
  const char *at, *start;
  char room[4];
  size_t length;
  if (!zor_json_expect(scan, '"')) return false;
  at = start = scan->at;
  for (;;) {
    at = zor_json_run(at, scan->end);
    if (at == scan->end) return zor_json_fail(scan);
    if (*at == '"') break;
    if (*at == '\\') {
      form = ZOR_GEN_ESCAPED;
      if (zor_gen_unescape(&at, scan->end, room) == 0) return zor_json_fail(scan);
    } else {
      length = (unsigned char)*at < 0x80u ? 0 : zor_json_utf8(at, scan->end);
      if (length == 0) return zor_json_fail(scan);
      at += length;
    }
  }
  *inside = zor_gen_view_of(start, (size_t)(at - start), form);
  scan->at = at + 1;
  return true;
}

/* At least one digit. */
static inline bool zor_json_digits(struct zor_json_scan *scan) {
  const char *start = scan->at;
  while (scan->at != scan->end && *scan->at >= '0' && *scan->at <= '9') ++scan->at;
  return scan->at != start || zor_json_fail(scan);
}

/* A number; whole: it has neither a fraction nor an exponent. */
static inline bool zor_json_number(struct zor_json_scan *scan, struct zor_gen_view *text, bool *whole) {
  const char *start = (zor_json_space(scan), scan->at);
  *whole = true;
  if (scan->at != scan->end && *scan->at == '-') ++scan->at;
  if (scan->at != scan->end && *scan->at == '0') {
    ++scan->at;
  } else if (!zor_json_digits(scan)) {
    return false;
  }
  if (scan->at != scan->end && *scan->at == '.') {
    *whole = false;
    ++scan->at;
    if (!zor_json_digits(scan)) return false;
  }
  if (scan->at != scan->end && (*scan->at == 'e' || *scan->at == 'E')) {
    *whole = false;
    ++scan->at;
    if (scan->at != scan->end && (*scan->at == '+' || *scan->at == '-')) ++scan->at;
    if (!zor_json_digits(scan)) return false;
  }
  *text = zor_gen_bytes(start, (size_t)(scan->at - start));
  return true;
}

/* Most numbers: at most 18 digits in a row, perhaps with a point among them, and the end of the value behind them. */
struct zor_json_short {
  uint64_t digits;
  int decimals;
  bool negative;
};

/* Reads such a number at once. False, and nothing is read, for any other value, valid or not. */
static inline bool zor_json_short_number(struct zor_json_scan *scan, struct zor_json_short *number) {
  const char *at = (zor_json_peek(scan), scan->at), *end = scan->end, *start, *point = NULL;
  uint64_t digits = 0;
  number->negative = at != end && *at == '-';
  if (number->negative) ++at;
  start = at;
  for (; at != end; ++at) {
    const unsigned digit = (unsigned)(unsigned char)*at - '0';
    if (digit <= 9u) {
      digits = digits * 10u + digit;
    } else if (*at == '.' && point == NULL) {
      point = at;
    } else {
      break;
    }
    if (at - start >= 18) return false;
  }
  if (at == end || (*at != ',' && *at != '}') || at == start) return false;
  if (point == start || (point != NULL && point + 1 == at)) return false;
  if (*start == '0' && (point == NULL ? start + 1 != at : start + 1 != point)) return false;
  number->digits = digits;
  number->decimals = point == NULL ? 0 : (int)(at - point - 1);
  scan->at = at;
  return true;
}

/* Moves behind the word, if it is next. */
static inline bool zor_json_word(struct zor_json_scan *scan, const char *word, size_t length) {
  zor_json_space(scan);
  if ((size_t)(scan->end - scan->at) < length || memcmp(scan->at, word, length) != 0) return false;
  scan->at += length;
  return true;
}

/* A value that is no container. */
static inline bool zor_json_skip_scalar(struct zor_json_scan *scan) {
  struct zor_gen_view ignored;
  bool whole;
  switch (zor_json_peek(scan)) {
    case '"':
      return zor_json_string(scan, &ignored);
    case 't':
      return zor_json_word(scan, "true", 4) || zor_json_fail(scan);
    case 'f':
      return zor_json_word(scan, "false", 5) || zor_json_fail(scan);
    case 'n':
      return zor_json_word(scan, "null", 4) || zor_json_fail(scan);
    default:
      return zor_json_number(scan, &ignored, &whole);
  }
}

/* A member's name and its colon. */
static inline bool zor_json_name(struct zor_json_scan *scan, struct zor_gen_view *name) {
  return zor_json_string(scan, name) && zor_json_expect(scan, ':');
}

/* The containers that are open: a bit for each, set for an object, the innermost lowest. */
struct zor_json_nest {
  uint64_t objects;
  unsigned depth;
};

/* After a value: closes the containers that end here. True when another value must follow. */
static inline bool zor_json_after_value(struct zor_json_scan *scan, struct zor_json_nest *nest) {
  struct zor_gen_view name;
  while (nest->depth > 0) {
    const bool in_object = (nest->objects & 1u) != 0;
    const char next = zor_json_peek(scan);
    if (next == ',') {
      ++scan->at;
      return !in_object || zor_json_name(scan, &name);
    }
    if (next != (in_object ? '}' : ']')) return zor_json_fail(scan);
    ++scan->at;
    nest->objects >>= 1;
    --nest->depth;
  }
  return false;
}

/* Opens a container. True when a value must follow; false if it is empty, and then it is closed again. */
static inline bool zor_json_enter(struct zor_json_scan *scan, struct zor_json_nest *nest, bool object) {
  struct zor_gen_view name;
  /* The depth is that inside the message's own object. */
  if (nest->depth + 1 >= ZOR_JSON_DEPTH) return zor_json_fail(scan);
  ++scan->at;
  if (zor_json_peek(scan) == (object ? '}' : ']')) {
    ++scan->at;
    return false;
  }
  ++nest->depth;
  nest->objects = nest->objects << 1 | (object ? 1u : 0u);
  return !object || zor_json_name(scan, &name);
}

/* Any value. */
static inline bool zor_json_skip(struct zor_json_scan *scan) {
  struct zor_json_nest nest = {0, 0};
  bool more = true;
  while (more && !scan->failed) {
    const char next = zor_json_peek(scan);
    if (next == '{' || next == '[') {
      if (zor_json_enter(scan, &nest, next == '{')) continue;
    } else {
      zor_json_skip_scalar(scan);
    }
    more = !scan->failed && zor_json_after_value(scan, &nest);
  }
  return !scan->failed;
}

/* Whether a text is one valid value. */
static inline bool zor_json_is_valid(const char *text, size_t length) {
  struct zor_json_scan scan;
  scan.at = text;
  scan.end = text + length;
  scan.failed = length == 0;
  if (scan.failed || !zor_json_skip(&scan)) return false;
  zor_json_space(&scan);
  return scan.at == scan.end;
}

#ifdef __cplusplus
}
#endif

#endif
