#include "programs/messages/status_text.h"

#include <zor/dmmsg.h>
#include <zor/status.h>

#include <algorithm>
#include <iterator>

namespace zor::messages {
namespace {

constexpr Status kStatuses[] = {
    {ZOR_E_CONNECT, "ZOR_E_CONNECT", "no connection"},
    {ZOR_E_ARGUMENT, "ZOR_E_ARGUMENT", "argument error"},
    {ZOR_E_REFUSED, "ZOR_E_REFUSED", "refused"},
    {ZOR_E_NOT_CONNECTED, "ZOR_E_NOT_CONNECTED", "not connected"},
    {ZOR_E_PEER_GONE, "ZOR_E_PEER_GONE", "peer gone"},
    {ZOR_E_TIMEOUT, "ZOR_E_TIMEOUT", "timed out"},
    {ZOR_E_NO_MEMORY, "ZOR_E_NO_MEMORY", "out of memory"},
    {ZOR_E_IO, "ZOR_E_IO", "input or output error"},
    {ZOR_E_NOT_WRITABLE, "ZOR_E_NOT_WRITABLE", "not writable"},
    {ZOR_E_BODY_FILE, "ZOR_E_BODY_FILE", "cannot write a body file"},
    {ZOR_E_BUSY, "ZOR_E_BUSY", "busy"},
    {ZOR_E_DM_ARGUMENT, "ZOR_E_DM_ARGUMENT", "argument error in a management message"},
    {ZOR_E_DM_NO_BLOCK, "ZOR_E_DM_NO_BLOCK", "no memory for a management message"},
    {ZOR_E_DM_NO_MEMORY, "ZOR_E_DM_NO_MEMORY", "management message too large"},
    {ZOR_E_DM_BAD_ANSWER, "ZOR_E_DM_BAD_ANSWER", "malformed management reply"},
};

}  // namespace

std::span<const Status> Statuses() {
  return kStatuses;
}

std::string_view StatusText(uint64_t number) {
  const auto *found = std::find_if(std::begin(kStatuses), std::end(kStatuses),
                                   [=](const Status &each) { return each.status == number; });
  return found == std::end(kStatuses) ? std::string_view() : found->text;
}

}  // namespace zor::messages
