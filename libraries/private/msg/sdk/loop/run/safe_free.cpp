// Deferred freeing. A block stays valid until every callback of the iteration that queued it has returned, so each
// block remembers its turn: the idle pass of the same turn, or of a run nested in it, leaves the block alone.
#include <zor/status.h>
#include <zor/trace.h>
#include <zor/uv_io.h>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/run/run.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

struct DeferredBlock {
  DeferredBlock *next;
  void *block;
  std::uint64_t turn;
};

// The hook's data pointer is the head of the list.
DeferredBlock *Pending(const UvIdle &hook) {
  return static_cast<DeferredBlock *>(hook.header.data);
}

void FreeBlock(UvIdle &hook, DeferredBlock *deferred) {
  Trace("loop", ZOR_TRACE_DEBUG, "Safe free data %p now ...", deferred->block);
  std::free(deferred->block);
  ZOR_UTIL_ListDeleteItem(&hook.header.data, deferred, nullptr);
}

void FreeAll(UvIdle *hook, std::uint32_t) {
  for (DeferredBlock *deferred : ListView<DeferredBlock>(Pending(*hook))) {
    if (!Run::InProgress(deferred->turn)) FreeBlock(*hook, deferred);
  }
}

}  // namespace

void FreeAllNow(UvLoop &loop) noexcept {
  if (loop.safeFreeIdle == nullptr) return;
  for (DeferredBlock *deferred : ListView<DeferredBlock>(Pending(*loop.safeFreeIdle))) {
    FreeBlock(*loop.safeFreeIdle, deferred);
  }
}

}  // namespace zor

uint32_t ZOR_UV_LoopSafeFree(UvLoop *loop, void *block) {
  UvLoop *owner = zor::LoopOrDefault(loop);
  if (owner == nullptr) return ZOR_E_ARGUMENT;
  if (owner->safeFreeIdle == nullptr) owner->safeFreeIdle = ZOR_UV_IdleStart(owner, zor::FreeAll);
  if (owner->safeFreeIdle == nullptr) return ZOR_E_NO_MEMORY;
  auto deferred = zor::GuardedNew<zor::DeferredBlock>();
  if (deferred == nullptr) return ZOR_E_NO_MEMORY;
  deferred->block = block;
  deferred->turn = zor::Run::TurnOf(*owner);
  ZOR_UTIL_ListAppend(&owner->safeFreeIdle->header.data, deferred.release());
  return ZOR_OK;
}
