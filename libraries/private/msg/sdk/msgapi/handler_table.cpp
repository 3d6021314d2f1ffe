#include "sdk/msgapi/handler_table.h"

#include <zor/status.h>

#include "base/alloc.h"
#include "base/list.h"

namespace zor {
namespace {

ZOR_MSG_PROC_ENTRY *table = nullptr;
unsigned walksRunning = 0;
bool anyDead = false;

HandlerEntry *First() noexcept {
  return static_cast<HandlerEntry *>(table);
}

// Behind all entries of the same type and of the same or a lower order, so that equal orders keep their sequence.
void Insert(ZOR_MSG_PROC_ENTRY *entry) noexcept {
  ZOR_MSG_PROC_ENTRY **link = &table;
  while (*link != nullptr && !((*link)->type == entry->type && (*link)->order > entry->order)) link = &(*link)->next;
  entry->next = *link;
  *link = entry;
}

void Remove(HandlerEntry *entry) noexcept {
  ZOR_UTIL_ListDeleteItem(&table, entry, nullptr);
}

void FreeDeadEntries() noexcept {
  for (HandlerEntry *entry : ListView(First())) {
    if (entry->dead) Remove(entry);
  }
  anyDead = false;
}

}  // namespace

HandlerWalk::HandlerWalk() noexcept {
  ++walksRunning;
}

HandlerWalk::~HandlerWalk() {
  if (--walksRunning == 0 && anyDead) FreeDeadEntries();
}

HandlerWalk::Iterator HandlerWalk::begin() const noexcept {
  return Iterator(First());
}

}  // namespace zor

uint32_t ZOR_MSG_RegMsgProcEx(uint32_t type, ZOR_MSG_HANDLER proc, ZOR_MSG_SYNC_HANDLER syncProc, uint32_t order,
                              ZOR_MSG_PROC_ENTRY **handle) {
  if (handle != nullptr) *handle = nullptr;
  auto entry = zor::GuardedNew<zor::HandlerEntry>();
  if (entry == nullptr) return ZOR_E_NO_MEMORY;
  entry->type = type;
  entry->order = order;
  entry->proc = proc;
  entry->syncProc = syncProc;
  if (handle != nullptr) *handle = entry.get();
  zor::Insert(entry.release());
  return ZOR_OK;
}

uint32_t ZOR_MSG_RegMsgProc(uint32_t type, ZOR_MSG_HANDLER proc, uint32_t order, ZOR_MSG_PROC_ENTRY **handle) {
  return ZOR_MSG_RegMsgProcEx(type, proc, nullptr, order, handle);
}

uint32_t ZOR_MSG_RegSyncMsgProc(uint32_t type, ZOR_MSG_SYNC_HANDLER syncProc, uint32_t order,
                                ZOR_MSG_PROC_ENTRY **handle) {
  return ZOR_MSG_RegMsgProcEx(type, nullptr, syncProc, order, handle);
}

void ZOR_MSG_UnRegMsgProc(ZOR_MSG_PROC_ENTRY *handle) {
  // The handle may be stale: it is only compared until it is found in the table.
  zor::HandlerEntry *entry = zor::Find(zor::First(), [&](const zor::HandlerEntry &each) { return &each == handle; });
  if (entry == nullptr) return;
  if (zor::walksRunning == 0) return zor::Remove(entry);
  entry->dead = true;
  zor::anyDead = true;
}
