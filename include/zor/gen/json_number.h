/*
 * Numbers of JSON texts, for the messages that zorgen makes code for: exact both ways, and independent of the locale,
 * whose decimal point may be a comma.
 */
#ifndef ZOR_GEN_JSON_NUMBER_H
#define ZOR_GEN_JSON_NUMBER_H

#include <float.h>
#include <stdio.h>
#include <stdlib.h>
#include <zor/gen/view.h>
#include <zor/gen/writer.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Room for any number. */
#define ZOR_JSON_NUMBER_SIZE 40

/* Up to here whole numbers and powers of ten are exact in a double. */
#define ZOR_JSON_EXACT 9007199254740992.0
#define ZOR_JSON_TENS 22

static inline double zor_json_power(int exponent) {
  static const double kPowers[ZOR_JSON_TENS + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                                    1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                                    1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  return kPowers[exponent];
}

/* A number's text in parts: its significant digits, as far as they fit, and the power of ten behind them. */
struct zor_json_decimal {
  uint64_t digits;
  int exponent;
  bool negative;
  bool exact; /* all digits are there */
};

static inline int zor_json_exponent(const char *at, const char *end) {
  const bool negative = at != end && *at == '-';
  int value = 0;
  if (at != end && (*at == '-' || *at == '+')) ++at;
  for (; at != end && value < 100000; ++at) value = value * 10 + (*at - '0');
  return negative ? -value : value;
}

/* The text is a valid number. */
static inline struct zor_json_decimal zor_json_decimal_of(struct zor_gen_view text) {
  struct zor_json_decimal decimal = {0, 0, false, true};
  const char *at = text.data, *end = text.data + text.length;
  bool fraction = false;
  decimal.negative = *at == '-';
  if (decimal.negative) ++at;
  for (; at != end && *at != 'e' && *at != 'E'; ++at) {
    if (*at == '.') {
      fraction = true;
      continue;
    }
    if (decimal.digits > (UINT64_MAX - 9u) / 10u) {
      decimal.exact = false;
      if (!fraction && decimal.exponent < 100000) ++decimal.exponent;
      continue;
    }
    decimal.digits = decimal.digits * 10u + (uint64_t)(*at - '0');
    if (fraction && decimal.exponent > -100000) --decimal.exponent;
  }
  if (at != end) decimal.exponent += zor_json_exponent(at + 1, end);
  return decimal;
}

/* The double that is nearest to a valid number, by the C library: as whole digits and an exponent, so that no decimal
   point is needed. A double is decided by fewer than 800 digits and whether any follow. */
static inline double zor_json_nearest(struct zor_gen_view text) {
  char copy[840];
  const char *at = text.data, *end = text.data + text.length;
  int length = 0, exponent = 0;
  bool fraction = false, started = false, dropped = false;
  if (*at == '-') copy[length++] = *at++;
  for (; at != end && *at != 'e' && *at != 'E'; ++at) {
    if (*at == '.') {
      fraction = true;
      continue;
    }
    started = started || *at != '0';
    if (!started || length >= 800) {
      dropped = dropped || *at != '0';
      if (!started && fraction && exponent > -100000) --exponent;
      if (started && !fraction && exponent < 100000) ++exponent;
      continue;
    }
    copy[length++] = *at;
    if (fraction && exponent > -100000) --exponent;
  }
  if (dropped) {
    copy[length++] = '1';
    --exponent;
  }
  if (at != end) exponent += zor_json_exponent(at + 1, end);
  snprintf(copy + length, sizeof copy - (size_t)length, "0e%d", exponent - 1);
  return strtod(copy, NULL);
}

/* A valid number's value; false if it is beyond what a double can be. */
static inline bool zor_json_to_double(struct zor_gen_view text, double *out) {
  const struct zor_json_decimal decimal = zor_json_decimal_of(text);
  double value;
  if (decimal.exact && (double)decimal.digits <= ZOR_JSON_EXACT && decimal.exponent >= -ZOR_JSON_TENS &&
      decimal.exponent <= ZOR_JSON_TENS) {
    value = (double)decimal.digits;
    value = decimal.exponent < 0 ? value / zor_json_power(-decimal.exponent) : value * zor_json_power(decimal.exponent);
    *out = decimal.negative ? -value : value;
    return true;
  }
  value = zor_json_nearest(text);
  if (!(value >= -DBL_MAX && value <= DBL_MAX)) return false;
  *out = value;
  return true;
}

/* Whole digits, perhaps with a sign; false beyond 64 bits. */
static inline bool zor_json_whole(struct zor_gen_view text, bool *negative, uint64_t *magnitude) {
  const char *at = text.data, *end = text.data + text.length;
  uint64_t value = 0;
  *negative = *at == '-';
  if (*negative) ++at;
  if (end - at > 20) return false;
  /* Up to 19 digits fit in any case. */
  for (; at != end && end - at > 1; ++at) value = value * 10u + (uint64_t)(*at - '0');
  if (at != end) {
    const uint64_t digit = (uint64_t)(*at - '0');
    if (value > (UINT64_MAX - digit) / 10u) return false;
    value = value * 10u + digit;
  }
  *magnitude = value;
  return true;
}

/* A valid number without a remainder, however it is written: 21.0 and 2.1e1 are 21. */
static inline bool zor_json_to_integer(struct zor_gen_view text, bool whole, bool *negative, uint64_t *magnitude) {
  double value;
  if (whole) return zor_json_whole(text, negative, magnitude);
  if (!zor_json_to_double(text, &value) || value > ZOR_JSON_EXACT || value < -ZOR_JSON_EXACT) return false;
  *negative = value < 0;
  if (*negative) value = -value;
  *magnitude = (uint64_t)value;
  return (double)*magnitude == value;
}

/* Puts digits before end, with a point before the last few of them if there are decimals; returns where they begin. */
static inline char *zor_json_print_digits(char *end, uint64_t digits, int decimals) {
  char *at = end;
  int count;
  for (count = 0; digits > 0 || count <= decimals; ++count) {
    if (count == decimals && decimals > 0) *--at = '.';
    *--at = (char)('0' + (int)(digits % 10u));
    digits /= 10u;
  }
  return at;
}

static inline void zor_json_put_integer(struct zor_gen_writer *writer, bool negative, uint64_t magnitude) {
  char room[ZOR_JSON_NUMBER_SIZE];
  char *end = room + sizeof room;
  char *at = zor_json_print_digits(end, magnitude, 0);
  if (negative) *--at = '-';
  zor_gen_put(writer, at, (size_t)(end - at));
}

/* With all digits that a double can need; whatever the locale's decimal point is becomes a point. */
static inline void zor_json_put_digits_of(struct zor_gen_writer *writer, double value) {
  char room[ZOR_JSON_NUMBER_SIZE];
  const char *from;
  char *at = room;
  snprintf(room, sizeof room, "%.17g", value);
  for (from = room; *from != '\0'; ++from) {
    if (strchr("0123456789e+-", *from) != NULL) {
      *at++ = *from;
    } else if (at == room || at[-1] != '.') {
      *at++ = '.';
    }
  }
  zor_gen_put(writer, room, (size_t)(at - room));
}

/* As few digits as a reader needs for the same double, for those with up to 15 of them; JSON has no infinity. */
static inline void zor_json_put_double(struct zor_gen_writer *writer, double value) {
  char room[ZOR_JSON_NUMBER_SIZE];
  char *end = room + sizeof room;
  uint64_t bits;
  double size;
  int decimals;
  memcpy(&bits, &value, sizeof bits);
  if (!(value >= -DBL_MAX && value <= DBL_MAX)) writer->failed = true;
  if (writer->failed) return;
  size = bits >> 63 != 0 ? -value : value;
  /* Only with a point zero keeps its sign: a reader takes -0 for a whole number. */
  for (decimals = size > 0 || bits == 0 ? 0 : 1; decimals <= ZOR_JSON_TENS; ++decimals) {
    const double scaled = size * zor_json_power(decimals);
    const uint64_t digits = scaled < ZOR_JSON_EXACT ? (uint64_t)(scaled + 0.5) : 0;
    if (!(scaled < ZOR_JSON_EXACT)) break;
    if ((double)digits / zor_json_power(decimals) == size) {
      char *at = zor_json_print_digits(end, digits, decimals);
      if (bits >> 63 != 0) *--at = '-';
      zor_gen_put(writer, at, (size_t)(end - at));
      return;
    }
  }
  zor_json_put_digits_of(writer, value);
}

#ifdef __cplusplus
}
#endif

#endif
