// A member of a bus whose machines differ in their byte order: what both sides of its talks share.
#ifndef MACHINES_BOARD_MEMBER_H
#define MACHINES_BOARD_MEMBER_H

#include <rpc/xdr.h>
#include <zor/kiva.h>
#include <zor/msg.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace zor::test {

constexpr uint32_t kWord = 0x01020304;
constexpr uint32_t kEvent = 0x2DA65;
constexpr char kEventText[] = "{\"word\":16909060}";
// A restful path, whose reply is the words and the text of the request as the server reads them.
constexpr char kPath[] = "/mixed";
constexpr char kName[] = "words";
// Requests: the order of the server's machine; its body back; a word of the body as the server reads it; a record of
// XDR with its state and size increased; a list of XDR with each state increased; a query of names as an error; a
// record and JSON with each number increased; an event; the end. A management message comes back with each kind
// increased.
enum Request : uint32_t { kOrder = 0x4001, kEcho, kRead, kXdr, kList, kQuery, kRecord, kJson, kPublish, kEnd };

using Block = std::unique_ptr<ZOR_MSG_HEAD, decltype([](ZOR_MSG_HEAD *msg) { std::free(msg); })>;

inline std::string BodyOf(ZOR_MSG_HEAD &msg) {
  const auto *body = static_cast<const char *>(ZOR_MSG_GetMsgByHead(&msg));
  return body == nullptr ? std::string() : std::string(body, msg.bodyLength);
}

inline Block MakeMessage(const char *to, uint32_t type, uint32_t data, const std::string &body) {
  void *block = ZOR_MSG_GetMsgBlock(static_cast<uint32_t>(body.size()));
  ZOR_MSG_SetMsgProfile(block, to, type, static_cast<uint32_t>(body.size()));
  Block msg(ZOR_MSG_GetMsgHead(block));
  if (!body.empty()) std::memcpy(block, body.data(), body.size());
  msg->data = data;
  return msg;
}

template <typename Record>
std::string Encode(Record &record, int32_t (*convert)(XDR *, Record *)) {
  std::array<char, 512> bytes{};
  XDR xdr;
  xdrmem_create(&xdr, bytes.data(), bytes.size(), XDR_ENCODE);
  if (convert(&xdr, &record) == 0) std::abort();
  return {bytes.data(), xdr_getpos(&xdr)};
}

template <typename Record>
Record Decode(std::string bytes, int32_t (*convert)(XDR *, Record *)) {
  Record record{};
  XDR xdr;
  xdrmem_create(&xdr, bytes.data(), static_cast<u_int>(bytes.size()), XDR_DECODE);
  if (convert(&xdr, &record) == 0) std::abort();
  return record;
}

// The first record is the caller's, the others are the list's.
inline void Destroy(dev_crashinfo_list &list) {
  ZOR_Crash_DestroyDevInfo(&list.info);
  ZOR_Crash_DestroyDevInfoList(list.next);
}

// Serves until it is asked to end; the exit status.
int Serve();
// Asks the peer, which serves, and checks the replies; the exit status.
int AskAll(const char *peer);

}  // namespace zor::test

#endif
