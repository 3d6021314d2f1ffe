// Fixture of the loop's tests: their own loop, watchers whose callbacks are closures, and the trace as text.
#ifndef TESTS_LOOP_LOOP_FIXTURE_H
#define TESTS_LOOP_LOOP_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/trace.h>
#include <zor/uv.h>

#include <cstdlib>
#include <deque>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>

#include "support/capture.h"

namespace zor::test {

// A zeroed record for a loop, which frees it.
template <class Record>
Record *NewRecord() {
  return static_cast<Record *>(std::calloc(1, sizeof(Record)));
}

// Collects the trace of some modules.
class Trace {
 public:
  explicit Trace(std::initializer_list<const char *> modules) {
    for (const char *module : modules) ZOR_TRACE_SetPackageLevel(module, ZOR_TRACE_DEBUG);
  }
  ~Trace() { ZOR_TRACE_SetPackageLevel(nullptr, 0); }
  int Count(const std::string &text) {
    const std::string all = output_.Text();
    int count = 0;
    for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
    return count;
  }

 private:
  Capture output_;
};

// Two connected stream sockets, close-on-exec. Watchers close them.
struct LoopSocketPair {
  LoopSocketPair() {
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  }
  void MakeReadable() const {  // a byte for `near`
    if (::write(far, "x", 1) != 1) std::abort();
  }
  int ends[2] = {};
  const int &near = ends[0];
  const int &far = ends[1];
};

class LoopTest : public testing::Test {
 protected:
  LoopTest() { ZOR_UV_LoopInit(&loop_); }
  ~LoopTest() override { ZOR_UV_LoopDestroy(&loop_); }

  uint32_t Run(uint32_t idleTimeMs = 0) { return ZOR_UV_LoopRun(&loop_, idleTimeMs); }
  void Stop() { ZOR_UV_LoopStop(&loop_); }
  UvTimer *AddTimer(uint32_t intervalMs, uint32_t repeatCount, std::function<void()> action) {
    auto *timer = NewRecord<UvTimer>();
    ZOR_UV_TimerInit(&loop_, timer);
    void *data = Keep([action](uint32_t) { action(); });
    ZOR_UV_TimerStart(
        timer, intervalMs, repeatCount, [](void *kept) { Act(kept, 0); }, data);
    return timer;
  }
  UvIO *AddWatcher(int fd, uint32_t events, std::function<void(uint32_t)> action) {
    auto *watcher = NewRecord<UvIO>();
    ZOR_UV_IOInit(&loop_, watcher, fd, [](UvIO *io, uint32_t event) { Act(io->header.data, event); });
    watcher->header.data = Keep(std::move(action));
    ZOR_UV_IOStart(watcher, events);
    return watcher;
  }
  UvIdle *AddIdle(std::function<void()> action) {
    UvIdle *hook = ZOR_UV_IdleStart(&loop_, [](UvIdle *idle, uint32_t) { Act(idle->header.data, 0); });
    hook->header.data = Keep([action](uint32_t) { action(); });
    return hook;
  }
  bool IsListed(const void *watcher) const {
    const UvWatcher *each = loop_.watchers;
    while (each != nullptr && each != watcher) each = each->next;
    return each != nullptr;
  }

  UvLoop loop_;

 private:
  std::deque<std::function<void(uint32_t)>> actions_;  // the data of the watchers
  void *Keep(std::function<void(uint32_t)> action) { return &actions_.emplace_back(std::move(action)); }
  static void Act(void *data, uint32_t event) {
    const auto action = *static_cast<std::function<void(uint32_t)> *>(data);  // the action may free its own record
    action(event);
  }
};

}  // namespace zor::test

#endif
