// Trace settings that arrive with the answer to the registration.
#include <cstring>

#include "base/bytes.h"
#include "base/text.h"
#include "message/context.h"
#include "trace/trace.h"

namespace zor {
namespace {

void ApplyEntry(ZOR_TRACE_SETTINGS_ENTRY entry) {
  NameField module;
  CopyName(module, entry.module);
  const bool swapped = (g_stMsgCtx.flags & ZOR_MSG_FLAG_SWAP) != 0;
  ZOR_TRACE_SetPackageLevel(module, swapped ? SwapU32(entry.level) : entry.level);
}

void ApplyOutput(const ZOR_TRACE_SETTINGS_HEAD &head) {
  if (head.outputText[0] == '\0') return ZOR_TRACE_SetOutput(head.outputIndex);
  char text[ZOR_TRACE_OUTPUT_TEXT_SIZE + 1] = {};
  std::memcpy(text, head.outputText, sizeof head.outputText);
  ZOR_TRACE_SetOutputByString(text);
}

}  // namespace

void TraceMsgInitRespProc(const void *block, std::uint32_t length) noexcept {
  m_aucAppName = g_stMsgCtx.appName;
  ZOR_TRACE_SETTINGS_HEAD head;
  if (block == nullptr || length < sizeof head) return;
  std::memcpy(&head, block, sizeof head);
  ZOR_TRACE_SetFileMaxSize(head.fileMaxKiB);
  const auto *bytes = static_cast<const char *>(block);
  ZOR_TRACE_SETTINGS_ENTRY entry;
  for (std::size_t at = sizeof head; length - at >= sizeof entry; at += sizeof entry) {
    std::memcpy(&entry, bytes + at, sizeof entry);
    ApplyEntry(entry);
  }
  ApplyOutput(head);
}

}  // namespace zor
