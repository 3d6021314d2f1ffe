#include "syslogd/log_service.h"

#include <zor/platform/file.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "syslogd/query_path.h"

namespace zor::syslogd {
namespace {

constexpr std::uint32_t kEverything = 0xffffffff;
constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kFailed = 1;
constexpr std::uint32_t kQueryFailed = 0xffffffff;
constexpr std::uint32_t kOwnLanguage = 0xffffffff;  // the selector of the system query
constexpr char kFilter[] = "filter";
constexpr char kServers[] = "servers";

// Bus handlers have no data pointer.
LogService *registered = nullptr;

// The record in the bytes; nothing if their size differs from the record's.
template <class Record>
std::optional<Record> From(const void *bytes, std::size_t size) {
  Record record;
  if (size != sizeof record) return std::nullopt;
  std::memcpy(&record, bytes, sizeof record);
  return record;
}

template <class Record>
std::optional<Record> BodyOf(const ZOR_MSG_HEAD &msg) {
  return From<Record>(&msg + 1, msg.bodyLength);
}

template <class Record>
std::string BytesOf(const Record &record) {
  return {reinterpret_cast<const char *>(&record), sizeof record};
}

// Whether the sender of a record is waiting for a reply.
bool Waits(const ZOR_MSG_HEAD &msg) {
  const auto record = BodyOf<ZOR_LOG_RECORD>(msg);
  return record && msg.type == ZOR_LOG_MSG_RECORD && (record->index & ZOR_LOG_SYNC_FLAG) != 0;
}

}  // namespace

const LogService::Request LogService::kRequests[] = {
    {ZOR_LOG_MSG_RECORD, &LogService::Record},         {ZOR_LOG_MSG_RECORD_KERNEL, &LogService::Record},
    {ZOR_LOG_MSG_SYSTEM_QUERY, &LogService::Query},    {ZOR_LOG_MSG_QUERY, &LogService::Query},
    {ZOR_LOG_MSG_CLEAR, &LogService::Clear},           {ZOR_LOG_MSG_SET_FILTER, &LogService::SetFilter},
    {ZOR_LOG_MSG_SET_SERVER, &LogService::SetServers}, {ZOR_LOG_MSG_FLUSH, &LogService::Flush},
};

LogService::LogService(Options options, LogStore &store, Forwarder &forwarder, daemon::ProblemLog &problems)
    : options_(std::move(options)), store_(store), forwarder_(forwarder), problems_(problems) {
  const std::string filter = store_.Setting(kFilter);
  filter_ = From<std::uint32_t>(filter.data(), filter.size()).value_or(kEverything);
  const std::string servers = store_.Setting(kServers);
  forwarder_.SetServers(From<ZOR_LOG_SERVERS>(servers.data(), servers.size()).value_or(ZOR_LOG_SERVERS{}));
}

bool LogService::Register() {
  registered = this;
  return std::ranges::all_of(kRequests, [](const Request &request) {
    return ZOR_MSG_RegSyncMsgProc(request.type, &LogService::Serve, 0, nullptr) == ZOR_OK;
  });
}

ZOR_MSG_HEAD *LogService::Serve(ZOR_MSG_HEAD *msg) {
  const auto *request = std::ranges::find(kRequests, msg->type, &Request::type);
  if (request == std::end(kRequests)) return nullptr;
  Result result;
  try {
    result = (registered->*request->serve)(*msg);
  } catch (const std::bad_alloc &) {  // the library, which called, does not pass exceptions on
    result = registered->Failure(*msg);
  }
  return result ? ZOR_MSG_MsgResponseBuilder(msg, *result, nullptr, 0) : nullptr;
}

LogService::Result LogService::Failure(const ZOR_MSG_HEAD &msg) {
  problems_.Print("no memory for request 0x%x from \"%.12s\"", msg.type, msg.source);
  switch (msg.type) {
    case ZOR_LOG_MSG_SYSTEM_QUERY:
    case ZOR_LOG_MSG_QUERY:
      return kQueryFailed;
    case ZOR_LOG_MSG_RECORD:
      return Waits(msg) ? Result(kFailed) : std::nullopt;
    case ZOR_LOG_MSG_FLUSH:
      return kFailed;
    default:
      return std::nullopt;
  }
}

LogService::Result LogService::Record(const ZOR_MSG_HEAD &msg) {
  const bool fromKernel = msg.type == ZOR_LOG_MSG_RECORD_KERNEL;
  const auto wire = BodyOf<ZOR_LOG_RECORD>(msg);
  const auto record = wire ? ParseRecord(*wire, fromKernel) : std::nullopt;
  if (!record) ReportMalformed(msg);
  const bool waits = Waits(msg);
  bool kept = record && Keep(*record);
  // A sender that waits is about to restart the device or to cut its power.
  if (waits) kept = store_.Commit() && kept;
  return waits ? Result(kept ? kDone : kFailed) : std::nullopt;
}

bool LogService::Keep(const LogRecord &record) {
  const std::uint32_t passed = record.typeLevel & filter_;
  if ((passed & ZOR_LOG_LEVEL_MASK) == 0 || passed >> ZOR_LOG_TYPE_SHIFT == 0)
    return true;  // filtered out: not a failure
  if (options_.verbose) {
    std::puts(RenderLine(record, options_.language).c_str());
    std::fflush(stdout);
  }
  forwarder_.Forward(record);
  if (!store_.Append(record)) return false;
  if (!options_.copyTo.empty()) SendCopy(record);
  return true;
}

// The receiver may be absent: the server's notice of that has no handler here.
void LogService::SendCopy(const LogRecord &record) const {
  const ZOR_LOG_COPY head = {static_cast<std::uint64_t>(record.time), record.typeLevel, record.index};
  const std::string body = BytesOf(head) + RenderText(record, options_.language) + '\0';
  ZOR_MSG_SendMsgData(options_.copyTo.c_str(), ZOR_LOG_MSG_COPY, body.data(), static_cast<std::uint32_t>(body.size()));
}

LogService::Result LogService::Query(const ZOR_MSG_HEAD &msg) {
  const auto query = BodyOf<ZOR_LOG_QUERY>(msg);
  const std::string path = query ? ResultPath(*query, options_.queryDirectory) : std::string();
  if (path.empty()) {
    ReportMalformed(msg);
    return kQueryFailed;
  }
  const auto records = store_.Read(query->typeLevel, query->count);
  if (!records) return kQueryFailed;
  const std::uint32_t language = query->selector == kOwnLanguage ? options_.language : query->selector;
  std::string lines;
  for (const LogRecord &record : *records) lines += RenderLine(record, language) + '\n';
  if (ZOR_UTIL_WriteBufToFile(path.c_str(), lines.data(), static_cast<std::uint32_t>(lines.size())) != ZOR_FILE_OK) {
    problems_.PrintErrno("%s", path.c_str());
    return kQueryFailed;
  }
  return static_cast<std::uint32_t>(records->size());
}

LogService::Result LogService::Clear(const ZOR_MSG_HEAD &msg) {
  store_.Clear(msg.data >> ZOR_LOG_TYPE_SHIFT);
  return std::nullopt;
}

LogService::Result LogService::SetFilter(const ZOR_MSG_HEAD &msg) {
  filter_ = msg.data;
  store_.SetSetting(kFilter, BytesOf(filter_));
  return std::nullopt;
}

LogService::Result LogService::SetServers(const ZOR_MSG_HEAD &msg) {
  const auto servers = BodyOf<ZOR_LOG_SERVERS>(msg);
  if (!servers) {
    ReportMalformed(msg);
    return std::nullopt;
  }
  forwarder_.SetServers(*servers);
  store_.SetSetting(kServers, BytesOf(*servers));
  return std::nullopt;
}

LogService::Result LogService::Flush(const ZOR_MSG_HEAD &) {
  return store_.Commit() ? kDone : kFailed;
}

void LogService::ReportMalformed(const ZOR_MSG_HEAD &msg) {
  problems_.Print("malformed request 0x%x of %u bytes from \"%.12s\"", msg.type, msg.bodyLength, msg.source);
}

}  // namespace zor::syslogd
