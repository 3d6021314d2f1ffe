/*
 * Calendar times of remote management: UTC texts in the style of ISO 8601, their difference, and the delay until the
 * next multiple of an interval. Checks return 0 for valid and 1 for invalid; what they print goes to standard output.
 */
#ifndef ZOR_CALTIME_H
#define ZOR_CALTIME_H

#include <stdint.h>
#include <zor/export.h>

ZOR_BEGIN_DECLS

/* A calendar time without a zone. */
typedef struct ZOR_CAL_TIME {
  uint32_t year;
  uint32_t month; /* 1-12 */
  uint32_t day;
  uint32_t hour;
  uint32_t minute;
  uint32_t second;
} ZOR_CAL_TIME;

/*
 * Checks the form of a text such as "2020-01-31T08:05:00Z", "20200131T08:05:00", "2020-01-31T08:05:00.123+08:00" or
 * "2020-01-31T08:05:00-05:30", 17 to 40 characters, and stores its six numbers. Only the form is checked, not the
 * ranges; a zone offset is checked and not applied. An empty text is valid and stores nothing. On failure some of the
 * numbers may be stored already. Returns 0; 1 for a null argument or another form.
 */
ZOR_API uint32_t ZOR_UTIL_UCTTimeFormatCheck(const char *text, ZOR_CAL_TIME *time);

/*
 * Checks the ranges of a calendar time. Months and days of 0 pass; so does February 30, since of the days that a month
 * lacks only February 29 and day 31 are refused. A missing day, a bad hour, minute or second and the all-zero time each
 * print a line; a month above 12 or a day above 31 does not. Returns 0 or 1.
 */
ZOR_API uint32_t ZOR_UTIL_CheckTimeValid(uint32_t year, uint32_t month, uint32_t day, uint32_t hour, uint32_t minute,
                                         uint32_t second);

/*
 * The difference between two texts in seconds, the later minus the earlier; *firstIsLater becomes 1 when the first one
 * is later, else 0. Equal times (a line is printed) and times whose years are more than 50 apart give 0 and leave
 * *difference untouched. Only the first time's ranges are checked. Returns 0; 1 for a null argument or a text that
 * fails its check.
 */
ZOR_API uint32_t ZOR_UTIL_GetDifTime(const char *first, const char *second, uint32_t *difference,
                                     uint32_t *firstIsLater);

/*
 * Returns time / interval and stores the rest of that division (remainder nonzero) or what is missing to the next
 * multiple (remainder 0), where 0 becomes interval. With a null delay it returns time, and interval is not used.
 * Otherwise interval must not be 0.
 */
ZOR_API uint32_t ZOR_UTIL_GetDelayTime(uint32_t time, uint32_t interval, uint32_t remainder, uint32_t *delay);

ZOR_END_DECLS

#endif
