// The form of a time text: date 'T' time zone. Only the shape is checked here, not the ranges.
#include <zor/caltime.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace {

constexpr uint32_t kValid = 0;
constexpr uint32_t kInvalid = 1;
constexpr std::size_t kTextMax = 43;
constexpr std::size_t kLengthMin = 17;
constexpr std::size_t kLengthMax = 40;
constexpr std::size_t kZoneAt = 8;  // after hh:mm:ss

bool AllDigits(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool IsNumber(std::string_view text, std::size_t digits) {
  return text.size() == digits && AllDigits(text);
}

uint32_t NumberOf(std::string_view digits) {
  uint32_t number = 0;
  for (const char c : digits) number = number * 10 + static_cast<uint32_t>(c - '0');
  return number;
}

bool StoreNumber(std::string_view text, std::size_t digits, uint32_t *number) {
  if (!IsNumber(text, digits)) return false;
  *number = NumberOf(text);
  return true;
}

// Splits the next piece off a text; adjacent separators have an empty piece between them.
std::string_view NextPiece(std::string_view &text, char separator) {
  const std::size_t at = text.find(separator);
  const std::string_view piece = text.substr(0, at);
  text = at == std::string_view::npos ? std::string_view() : text.substr(at + 1);
  return piece;
}

bool ParseDate(std::string_view date, ZOR_CAL_TIME *time) {
  std::array<std::string_view, 3> pieces;
  if (date.find('-') != std::string_view::npos) {
    for (std::string_view &piece : pieces) piece = NextPiece(date, '-');
  } else {
    if (date.size() != 8) return false;
    pieces = {date.substr(0, 4), date.substr(4, 2), date.substr(6, 2)};
  }
  return StoreNumber(pieces[0], 4, &time->year) && StoreNumber(pieces[1], 2, &time->month) &&
         StoreNumber(pieces[2], 2, &time->day);
}

// After a fraction the zone's designator is the first 'Z', else the first '+', else the first '-'.
std::size_t DesignatorAt(std::string_view seconds, std::size_t from) {
  if (seconds[from] != '.') return from;
  for (const char designator : {'Z', '+', '-'}) {
    const std::size_t at = seconds.find(designator, from + 1);
    if (at != std::string_view::npos) return at;
  }
  return std::string_view::npos;
}

// The zone: the end of the third piece of the time, and for an offset the two digits of the fourth.
bool IsZone(std::string_view seconds, bool isCut, std::string_view offsetMinutes) {
  constexpr std::size_t kFrom = kZoneAt - sizeof "hh:mm:" + 1;
  if (seconds.size() <= kFrom) return !isCut;
  const std::size_t at = DesignatorAt(seconds, kFrom);
  if (at == std::string_view::npos) return false;
  if (seconds[at] == 'Z') return true;
  return IsNumber(seconds.substr(at + 1), 2) && IsNumber(offsetMinutes, 2);
}

bool ParseTime(std::string_view text, ZOR_CAL_TIME *time) {
  const std::string_view hour = NextPiece(text, ':');
  const std::string_view minute = NextPiece(text, ':');
  const bool isCut = text.find(':') != std::string_view::npos;
  const std::string_view seconds = NextPiece(text, ':');
  const std::string_view offsetMinutes = NextPiece(text, ':');
  if (!StoreNumber(hour, 2, &time->hour) || !StoreNumber(minute, 2, &time->minute)) return false;
  const std::string_view second = seconds.substr(0, 2);
  if (second.empty() || !AllDigits(second)) return false;
  time->second = NumberOf(second);
  return IsZone(seconds, isCut, offsetMinutes);
}

}  // namespace

uint32_t ZOR_UTIL_UCTTimeFormatCheck(const char *text, ZOR_CAL_TIME *time) {
  if (text == nullptr || time == nullptr) return kInvalid;
  const std::string_view whole(text, strnlen(text, kTextMax));
  if (whole.empty()) return kValid;  // an unset parameter is no error
  if (whole.size() < kLengthMin || whole.size() > kLengthMax) return kInvalid;
  const std::size_t separator = whole.find('T');
  if (separator == std::string_view::npos || separator + 1 == whole.size()) return kInvalid;
  const bool parsed = ParseDate(whole.substr(0, separator), time) && ParseTime(whole.substr(separator + 1), time);
  return parsed ? kValid : kInvalid;
}
