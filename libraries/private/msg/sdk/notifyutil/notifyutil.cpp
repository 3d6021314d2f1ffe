// Notifier chains. A callback may unregister any node, its own included, and may run the chain again: each run keeps a
// frame on a stack of frames; removing a node moves the frames that would visit it next, and a node whose callback is
// still running is freed only when the last frame that runs it is done.
// The file keeps its name: its trace lines carry it, and field scripts search for it.
#include <zor/notifier.h>
#include <zor/platform/list.h>
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv_loop.h>

#include <cstdio>
#include <cstdlib>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/notifyutil/boot_track.h"
#include "trace/trace_line.h"

namespace {

using Chain = ZOR_NOTIFIER_CHAIN;
using Node = ZOR_NOTIFIER_NODE;

constexpr char kModule[] = "notify";
constexpr uint32_t kNotListed = 1;

static_assert(sizeof(void *) != 4 || sizeof(Chain) == 12);
static_assert(sizeof(void *) != 4 || sizeof(Node) == 16);
static_assert(sizeof(void *) != 4 || sizeof(ZOR_NOTIFIER_HOOKS) == 16);

struct Frame {
  Node *running = nullptr;
  Node *next = nullptr;
  bool removed = false;
  Frame *outer = nullptr;
};

Frame *g_frames = nullptr;

class FrameScope {
 public:
  explicit FrameScope(Frame &frame) noexcept {
    frame.outer = g_frames;
    g_frames = &frame;
  }
  FrameScope(const FrameScope &) = delete;
  FrameScope &operator=(const FrameScope &) = delete;
  ~FrameScope() { g_frames = g_frames->outer; }
};

// Moves every run past a node that is being removed. True when a run is inside the node's callback.
bool LeaveFrames(const Node *node) {
  bool running = false;
  for (Frame *frame = g_frames; frame != nullptr; frame = frame->outer) {
    if (frame->next == node) frame->next = node->next;
    if (frame->running != node) continue;
    frame->removed = true;
    running = true;
  }
  return running;
}

// Ends a frame's visit; the outermost frame that ran a removed node frees it.
void EndVisit(Frame &frame) {
  Node *node = frame.running;
  frame.running = nullptr;
  if (!frame.removed) return;
  frame.removed = false;
  for (const Frame *outer = frame.outer; outer != nullptr; outer = outer->outer) {
    if (outer->running == node) return;
  }
  std::free(node);
}

long long LoopIndex() {
  return static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr));
}

const void *AddressOf(ZOR_NOTIFIER_CALLBACK callback) {
  return reinterpret_cast<const void *>(callback);
}

template <class StopsBefore>
uint32_t Insert(Chain *chain, ZOR_NOTIFIER_CALLBACK callback, uint32_t priority, uintptr_t data, Node **handle,
                StopsBefore stopsBefore) {
  if (handle != nullptr) *handle = nullptr;
  if (chain == nullptr || callback == nullptr) return ZOR_E_ARGUMENT;
  auto node = zor::GuardedNew<Node>();
  if (node == nullptr) return ZOR_E_NO_MEMORY;
  node->callback = callback;
  node->priority = priority;
  node->data = data;
  Node **link = &chain->nodes;
  while (*link != nullptr && !stopsBefore(**link)) link = &(*link)->next;
  node->next = *link;
  *link = node.get();
  if (handle != nullptr) *handle = node.get();
  static_cast<void>(node.release());  // the chain's now
  return ZOR_OK;
}

bool IsFilteredOut(const Chain &chain, Node *node, const ZOR_NOTIFIER_HOOKS *hooks) {
  return hooks != nullptr && hooks->filter != nullptr && hooks->filter(chain.context, node, hooks->filterArgument) == 0;
}

void TrackStart(ZOR_NOTIFIER_CALLBACK callback) {
  char text[128];
  std::snprintf(text, sizeof text, "[start cmsmodinit] init notify %lld:%p for [%s].", LoopIndex(), AddressOf(callback),
                "");
  zor::TrackBoot(text);
}

void TrackEnd(ZOR_NOTIFIER_CALLBACK callback, uint32_t status) {
  char text[128];
  std::snprintf(text, sizeof text, "[end cmsmodinit] init notify %lld:%p for [%s] return 0x%x.", LoopIndex(),
                AddressOf(callback), "", status);
  zor::TrackBoot(text);
}

// Runs one node: its hooks, its traces and its callback. The callback must not free the chain during the run.
uint32_t Visit(uintptr_t context, Node *node, const ZOR_NOTIFIER_HOOKS *hooks, bool track) {
  const ZOR_NOTIFIER_CALLBACK callback = node->callback;
  if (hooks != nullptr && hooks->before != nullptr) hooks->before(context, node);
  if (track) TrackStart(callback);
  zor::Trace(kModule, ZOR_TRACE_INFO, "[start  notify %lld:%p] for [%s].", LoopIndex(), AddressOf(callback), "");
  const uint32_t status = callback(context, node->data);
  if (track) TrackEnd(callback, status);
  zor::Trace(kModule, ZOR_TRACE_INFO, "[end  notify %lld:%p] for [%s] return 0x%x.", LoopIndex(), AddressOf(callback),
             "", status);
  if (hooks != nullptr && hooks->after != nullptr) hooks->after(context, node, status);
  return status;
}

}  // namespace

uint32_t ZOR_UTIL_NotifierInit(uintptr_t context, ZOR_NOTIFIER_CHAIN **chain) {
  if (chain == nullptr) return ZOR_E_ARGUMENT;
  *chain = zor::GuardedNew<Chain>().release();
  if (*chain == nullptr) return ZOR_E_NO_MEMORY;
  (*chain)->context = context;
  return ZOR_OK;
}

uint32_t ZOR_UTIL_NotifierRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_CALLBACK callback, uint32_t priority,
                                   uintptr_t data, ZOR_NOTIFIER_NODE **handle) {
  return Insert(chain, callback, priority, data, handle,
                [priority](const Node &listed) { return listed.priority > priority; });
}

uint32_t ZOR_UTIL_NotifierReverseRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_CALLBACK callback, uint32_t priority,
                                          uintptr_t data, ZOR_NOTIFIER_NODE **handle) {
  return Insert(chain, callback, priority, data, handle,
                [priority](const Node &listed) { return listed.priority <= priority; });
}

uint32_t ZOR_UTIL_NotifierUnRegister(ZOR_NOTIFIER_CHAIN *chain, ZOR_NOTIFIER_NODE *handle) {
  if (chain == nullptr || handle == nullptr || !zor::Unlink(chain->nodes, handle)) return kNotListed;
  if (!LeaveFrames(handle)) std::free(handle);
  return ZOR_OK;
}

uint32_t ZOR_UTIL_NotifierDoNotifyExWithCmsInit(ZOR_NOTIFIER_CHAIN *chain, uint32_t stopOnError,
                                                const ZOR_NOTIFIER_HOOKS *hooks, uint32_t bootTrack) {
  if (chain == nullptr) return ZOR_E_ARGUMENT;
  uint32_t status = ZOR_OK;
  Frame frame;
  const FrameScope scope(frame);
  for (Node *node = chain->nodes; node != nullptr; node = frame.next) {
    frame.running = node;
    frame.next = node->next;
    const bool skipped = IsFilteredOut(*chain, node, hooks) || node->callback == nullptr;
    if (!skipped) status = Visit(chain->context, node, hooks, bootTrack == 1);
    EndVisit(frame);
    if (!skipped && status != ZOR_OK && stopOnError != 0) break;
  }
  return status;
}

uint32_t ZOR_UTIL_NotifierDoNotifyEx(ZOR_NOTIFIER_CHAIN *chain, uint32_t stopOnError, const ZOR_NOTIFIER_HOOKS *hooks) {
  return ZOR_UTIL_NotifierDoNotifyExWithCmsInit(chain, stopOnError, hooks, 0);
}

uint32_t ZOR_UTIL_NotifierDoNotifyWrap(const char *name, uintptr_t, ZOR_NOTIFIER_CHAIN *chain, uint32_t stopOnError) {
  const char *shown = name == nullptr ? "" : name;
  const void *address = chain;
  zor::Trace(kModule, ZOR_TRACE_INFO, "[start  notify %lld:%p:%s].", LoopIndex(), address, shown);
  const uint32_t status = ZOR_UTIL_NotifierDoNotifyEx(chain, stopOnError, nullptr);
  zor::Trace(kModule, ZOR_TRACE_INFO, "[end  notify %lld:%p:%s] return 0x%x.", LoopIndex(), address, shown, status);
  return status;
}
