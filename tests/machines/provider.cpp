#include <zor/dmmsg.h>
#include <zor/dns.h>
#include <zor/msg.h>
#include <zor/status.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "board_member.h"
#include "records.h"

namespace zor::test {
namespace {

std::string RaiseRecord(const std::string &bytes) {
  dev_kiva_info record = Decode(bytes, xdr_dev_kiva_info);
  ++record.status.state;
  ++record.status.dlSize;
  std::string raised = Encode(record, xdr_dev_kiva_info);
  ZOR_UPG_DestroyKivaInfo(&record);
  return raised;
}

std::string RaiseList(const std::string &bytes) {
  dev_crashinfo_list list = Decode(bytes, xdr_dev_crashinfo_list);
  for (dev_crashinfo_list *each = &list; each != nullptr; each = each->next) ++each->info.ResultState;
  std::string raised = Encode(list, xdr_dev_crashinfo_list);
  Destroy(list);
  return raised;
}

std::string RefuseName(const std::string &query) {
  const auto length = static_cast<uint32_t>(query.size());
  std::string block(reinterpret_cast<const char *>(&length), sizeof length);
  block += query;
  DnsPacket *reply = ZOR_DNS_PacketBuildErrorResponse(reinterpret_cast<const DnsPacket *>(block.data()), 3);
  if (reply == nullptr) std::abort();
  std::string bytes(reinterpret_cast<const char *>(reply->data), reply->length);
  std::free(reply);
  return bytes;
}

uint32_t WordIn(const std::string &body) {
  uint32_t word = 0;
  if (body.size() >= sizeof word) std::memcpy(&word, body.data(), sizeof word);
  return word;
}

void Publish() {
  const Block event = MakeMessage("", kEvent, kWord, kEventText);
  ZOR_MSG_Send(event.get());
}

// The data word and the body of the reply.
std::pair<uint32_t, std::string> Answer(ZOR_MSG_HEAD &msg) {
  const std::string body = BodyOf(msg);
  const bool isReversed = msg.data != kByteOrder;
  switch (msg.type) {
    case kOrder:
      return {kByteOrder, ""};
    case kEcho:
      return {msg.data + 1, body};
    case kRead:
      return {WordIn(body), ""};
    case kXdr:
      return {0, RaiseRecord(body)};
    case kList:
      return {0, RaiseList(body)};
    case kQuery:
      return {0, RefuseName(body)};
    case kRecord:
      return {0, AnswerRecord(body, isReversed)};
    case kJson:
      return {0, AnswerJson(body)};
    case ZOR_MSG_DM:
      return {0, AnswerManagement(body, isReversed)};
    default:
      return {0, ""};
  }
}

uint32_t DescribeRequest(void *body, char **text) {
  const auto *head = static_cast<const ZOR_MSG_RESTFUL_HEAD *>(body);
  return ::asprintf(text, "%08x %08x %s", head->word0, head->word1, reinterpret_cast<const char *>(head + 1)) > 0
             ? ZOR_OK
             : 1;
}

}  // namespace

int Serve() {
  static constexpr ZOR_MSG_RESTFUL_ENTRY kPaths[] = {{kName, DescribeRequest}, {nullptr, nullptr}};
  if (ZOR_MSG_RegRestfulProcsEx(kPath, kPaths, "expand") != ZOR_OK) return 1;
  std::puts("ready");
  std::fflush(stdout);
  ZOR_MSG_HEAD *received = nullptr;
  while (ZOR_MSG_Recv(g_stMsgCtx.socketFd, &received, 0) == ZOR_OK) {
    const Block msg(received);
    if (msg->type == ZOR_MSG_RESTFUL_REQUEST) {
      ZOR_MSG_DefaultMsgProc(msg.get());
      continue;
    }
    const auto [data, body] = Answer(*msg);
    const Block reply = MakeMessage(msg->source, msg->type, data, body);
    reply->sequence = msg->sequence;
    if (msg->type == kPublish) Publish();
    if (ZOR_MSG_Send(reply.get()) != ZOR_OK) return 1;
    if (msg->type == kEnd) return 0;
  }
  return 1;
}

}  // namespace zor::test
