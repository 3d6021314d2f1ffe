// What measuring handler times costs: one turn of the loop and one dispatched message, while nothing is measured and
// while it is, beside another build of the library, in one process.
// Usage: lag_bench LIBMSGAPI [OTHER_LIBMSGAPI]
#include <dlfcn.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <zor/msg.h>
#include <zor/uv.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "harness.h"

namespace {

using namespace zor::bench;

constexpr std::size_t kTurns = 2000;
constexpr std::size_t kMessages = 20000;
constexpr int kManyRounds = 10 * kRounds;

template <class Function>
Function *Named(void *library, const char *name) {
  return reinterpret_cast<Function *>(::dlsym(library, name));
}

std::size_t g_turnsLeft;
decltype(ZOR_UV_LoopStop) *g_stop;

void OnReady(UvIO *watcher, std::uint32_t) {
  if (--g_turnsLeft == 0) g_stop(watcher->header.loop);
}

// A loop with an idle hook and a descriptor that is always ready, and a handler of messages.
class Library {
 public:
  explicit Library(const char *path) : library_(::dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (library_ == nullptr) std::fprintf(stderr, "%s\n", ::dlerror());
    Require(library_ != nullptr, "the library");
    Named<decltype(ZOR_UV_LoopInit)>(library_, "ZOR_UV_LoopInit")(&loop_);
    Named<decltype(ZOR_UV_IdleStart)>(library_, "ZOR_UV_IdleStart")(&loop_, [](UvIdle *, std::uint32_t) {});
    auto *io = static_cast<UvIO *>(std::calloc(1, sizeof(UvIO)));
    Named<decltype(ZOR_UV_IOInit)>(library_, "ZOR_UV_IOInit")(&loop_, io, ::eventfd(1, EFD_CLOEXEC), OnReady);
    Named<decltype(ZOR_UV_IOStart)>(library_, "ZOR_UV_IOStart")(io, UV_READABLE);
    Named<decltype(ZOR_MSG_RegisterMsgProc)>(library_, "ZOR_MSG_RegisterMsgProc")(
        Named<void(ZOR_MSG_HEAD *, std::uint32_t)>(library_, "ZOR_MSG_DefaultMsgProc"));
    Named<decltype(ZOR_MSG_RegMsgProc)>(library_, "ZOR_MSG_RegMsgProc")(
        0x4001, [](ZOR_MSG_HEAD *) {}, 0, nullptr);
  }

  double Turn() {
    g_stop = Named<decltype(ZOR_UV_LoopStop)>(library_, "ZOR_UV_LoopStop");
    auto *run = Named<decltype(ZOR_UV_LoopRun)>(library_, "ZOR_UV_LoopRun");
    g_turnsLeft = kTurns;
    const double start = Now();
    run(&loop_, 0);
    return (Now() - start) / kTurns;
  }
  double Message() {
    auto *dispatch = Named<decltype(ZOR_MSG_MsgFilterProc)>(library_, "ZOR_MSG_MsgFilterProc");
    ZOR_MSG_HEAD msg = {};
    msg.type = 0x4001;
    return TimeAll(kMessages, [&] { dispatch(&msg, 0); });
  }
  void Measure() {
    const auto start = Named<decltype(ZOR_UV_LagStart)>(library_, "ZOR_UV_LagStart");
    Require(start != nullptr && start(nullptr) == ZOR_OK, "measuring");
  }
  void Rest() { Named<decltype(ZOR_UV_LagStop)>(library_, "ZOR_UV_LagStop")(); }

 private:
  void *const library_;
  UvLoop loop_;
};

using What = double (Library::*)();

void Print(const char *what, const char *when, const std::vector<double> &costs, const std::vector<double> &ratios) {
  std::printf("%-8s %-22s %8.1f %8.3f\n", what, when, Median(costs), Median(ratios));
}

// Taken in turn, so that what else the machine does meets them alike.
void Compare(const char *what, What measured, Library &library, Library *other) {
  std::vector<double> off, on, ratioOn, ratioOther, one;
  for (int round = 0; round < kManyRounds; ++round) {
    const double theirs = other != nullptr ? (other->*measured)() : 1;
    off.push_back((library.*measured)());
    ratioOther.push_back(off.back() / theirs);
    one.push_back(1);
    library.Measure();
    on.push_back((library.*measured)());
    library.Rest();
    ratioOn.push_back(on.back() / off.back());
  }
  if (other != nullptr) {
    Print(what, "off, beside the other", off, ratioOther);
  } else {
    Print(what, "off", off, one);
  }
  Print(what, "measured, beside off", on, ratioOn);
}

}  // namespace

int main(int count, char **arguments) {
  Require(count > 1, "usage: lag_bench LIBMSGAPI [OTHER_LIBMSGAPI]");
  PinToOneProcessor();
  Library library(arguments[1]);
  std::unique_ptr<Library> other;
  if (count > 2) other = std::make_unique<Library>(arguments[2]);
  std::printf("what measuring handler times costs (median of %d rounds)\n", kManyRounds);
  std::printf("%-8s %-22s %8s %8s\n", "", "", "ns", "ratio");
  Compare("turn", &Library::Turn, library, other.get());
  Compare("message", &Library::Message, library, other.get());
  return 0;
}
