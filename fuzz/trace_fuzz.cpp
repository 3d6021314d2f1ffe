// Trace settings as the message server sends them: the input is the block after the two words of the
// registration reply.
#include <zor/trace.h>

#include <cstring>

#include "base/list.h"
#include "fuzz.h"
#include "message/context.h"
#include "support/temp_root.h"
#include "trace/levels.h"

namespace {

using zor::fuzz::Require;

void CheckEntries(size_t size) {
  size_t count = 0;
  for (const zor::TraceEntry *entry : zor::ListView(zor::TraceEntries())) {
    ++count;
    Require(std::memchr(entry->module, '\0', sizeof entry->module) != nullptr, "a name is terminated");
    Require(entry->level != 0, "a setting of 0 is none");
    Require(ZOR_TRACE_IsModuleEnabled(entry->module, entry->level) == 1, "a module is traced up to its level");
    Require(entry->level == UINT32_MAX || !zor::IsTraced(entry->module, entry->level + 1), "and no further");
  }
  Require(count * sizeof(ZOR_TRACE_SETTINGS_ENTRY) <= size, "there are no more settings than came");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const zor::test::TempRoot root;
  for (const uint32_t flags : {0u, ZOR_MSG_FLAG_SWAP}) {
    g_stMsgCtx.flags = flags;
    zor::TraceMsgInitRespProc(std::vector<uint8_t>(data, data + size).data(), static_cast<uint32_t>(size));
    CheckEntries(size);
    Require(ZOR_TRACE_GetFileMaxSize() >= 1024 && ZOR_TRACE_GetOutput() <= 1, "there is an output, with a limit");
    ZOR_TRACE_SetPackageLevel(nullptr, 0);
    ZOR_TRACE_SetOutput(0);
  }
  return 0;
}
