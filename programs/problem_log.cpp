#include "programs/problem_log.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>

namespace zor::daemon {
namespace {

// Below PIPE_BUF: a pipe that poll calls writable takes such a line whole and without waiting.
constexpr size_t kLineMax = 1024;

using Line = std::array<char, kLineMax>;

constexpr std::chrono::seconds kRefill{1};
constexpr std::chrono::seconds kClientRefill{5};

bool WriteLine(const char *program, const char *before, const char *text) {
  Line line;
  const int wanted = std::snprintf(line.data(), line.size() - 1, "%s: %s%s", program, before, text);
  if (wanted < 0) return false;
  const size_t length = std::min(static_cast<size_t>(wanted), line.size() - 2);
  // Texts quote what peers send: no byte of it may end the line or steer the operator's terminal.
  std::replace_if(
      line.begin(), line.begin() + static_cast<ptrdiff_t>(length),
      [](unsigned char byte) { return byte < ' ' || byte == 0x7f; }, '?');
  line[length] = '\n';
  pollfd entry = {STDERR_FILENO, POLLOUT, 0};
  if (::poll(&entry, 1, 0) != 1 || (entry.revents & POLLOUT) == 0) return false;
  ssize_t count;
  do {
    count = ::write(STDERR_FILENO, line.data(), length + 1);
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

}  // namespace

ProblemLog::~ProblemLog() {
  for (const Kept &client : clients_) SayLeftOut(client);
  if (own_.leftOut == 0) return;
  Line text;
  std::snprintf(text.data(), text.size(), "%lu more problems not shown", own_.leftOut);
  WriteLine(program_, "", text.data());
}

void ProblemLog::Print(const char *format, ...) {
  Line text;
  va_list arguments;
  va_start(arguments, format);
  const bool good = std::vsnprintf(text.data(), text.size(), format, arguments) >= 0;
  va_end(arguments);
  PrintLimited(good ? text.data() : format);
}

void ProblemLog::PrintErrno(const char *format, ...) {
  const int error = errno;
  Line text;
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (length < 0) return PrintLimited(format);
  const size_t used = std::min(static_cast<size_t>(length), text.size() - 1);
  std::snprintf(text.data() + used, text.size() - used, ": %s", std::strerror(error));
  PrintLimited(text.data());
}

void ProblemLog::PrintOf(const Holder &client, const char *format, ...) {
  const Clock::time_point now = Clock::now();
  Credit &own = Find(clients_, client, limits::kClientProblemBurst, now);
  Credit &user = Find(users_, {client.user, 0}, limits::kUserProblemBurst, now);
  if (!own.Earn(now, limits::kClientProblemBurst, kClientRefill) ||
      !user.Earn(now, limits::kUserProblemBurst, kRefill)) {
    ++own.leftOut;
    return;
  }
  Line text;
  va_list arguments;
  va_start(arguments, format);
  const bool good = std::vsnprintf(text.data(), text.size(), format, arguments) >= 0;
  va_end(arguments);
  std::array<char, 80> before = {};
  if (own.leftOut > 0) {
    std::snprintf(before.data(), before.size(), "(%lu more problems of this client not shown) ", own.leftOut);
  }
  if (!WriteLine(program_, before.data(), good ? text.data() : format)) {
    ++own.leftOut;
    return;
  }
  --own.lines;
  --user.lines;
  own.leftOut = 0;
}

template <size_t kSize>
ProblemLog::Credit &ProblemLog::Find(Table<kSize> &table, const Holder &key, int burst, Clock::time_point now) {
  auto kept = std::ranges::find_if(
      table, [&](const Kept &each) { return each.usedAt != Clock::time_point{} && each.key == key; });
  if (kept == table.end()) {
    kept = std::ranges::min_element(table, {}, &Kept::usedAt);
    own_.leftOut += kept->credit.leftOut;
    *kept = {key, {burst, now, 0}, now};
  }
  kept->usedAt = now;
  return kept->credit;
}

// Whether there is one left.
bool ProblemLog::Credit::Earn(Clock::time_point now, int most, std::chrono::seconds forOne) {
  if (const auto earned = (now - earnedAt) / forOne; earned > 0) {
    lines = static_cast<int>(std::min<decltype(earned)>(most, lines + earned));
    earnedAt = now;
  }
  return lines > 0;
}

void ProblemLog::PrintLimited(const char *text) {
  std::array<char, 64> before = {};
  if (own_.leftOut > 0) std::snprintf(before.data(), before.size(), "(%lu more problems not shown) ", own_.leftOut);
  if (!own_.Earn(Clock::now(), limits::kProblemBurst, kRefill) || !WriteLine(program_, before.data(), text)) {
    ++own_.leftOut;
    return;
  }
  --own_.lines;
  own_.leftOut = 0;
}

void ProblemLog::SayLeftOut(const Kept &kept) {
  if (kept.credit.leftOut == 0) return;
  Line text;
  std::snprintf(text.data(), text.size(), "%lu more problems of process %lld of user %u not shown", kept.credit.leftOut,
                static_cast<long long>(kept.key.process), kept.key.user);
  WriteLine(program_, "", text.data());
}

}  // namespace zor::daemon
