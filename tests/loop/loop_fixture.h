// What the loop's tests share: a loop of their own, watchers whose callbacks are closures, and the trace as text.
#ifndef TESTS_LOOP_LOOP_FIXTURE_H
#define TESTS_LOOP_LOOP_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/trace.h>
#include <zor/uv.h>

#include <cstdlib>
#include <deque>
#include <functional>
#include <initializer_list>
#include <string>

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
  bool Has(const std::string &text) { return Count(text) > 0; }
  int Count(const std::string &text) {
    const std::string all = output_.Text();
    int count = 0;
    for (size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size()) ++count;
    return count;
  }

 private:
  Capture output_;
};

// Two connected stream sockets, close-on-exec. Not closed: watchers close what they are given.
struct SocketPair {
  SocketPair();
  void MakeReadable() const;  // a byte for `near`
  int near;
  int far;
};

class LoopTest : public testing::Test {
 protected:
  LoopTest() { ZOR_UV_LoopInit(&loop_); }
  ~LoopTest() override { ZOR_UV_LoopDestroy(&loop_); }

  uint32_t Run(uint32_t idleTimeMs = 0) { return ZOR_UV_LoopRun(&loop_, idleTimeMs); }
  void Stop() { ZOR_UV_LoopStop(&loop_); }
  UvTimer *AddTimer(uint32_t intervalMs, uint32_t repeatCount, std::function<void()> action);
  UvIO *AddWatcher(int fd, uint32_t events, std::function<void(uint32_t)> action);
  UvIdle *AddIdle(std::function<void()> action);
  bool IsListed(const void *watcher) const;

  UvLoop loop_;

 private:
  std::deque<std::function<void(uint32_t)>> actions_;  // the data of the watchers
  void *Keep(std::function<void(uint32_t)> action) { return &actions_.emplace_back(std::move(action)); }
};

}  // namespace zor::test

#endif
