#include "zorbridge/trace_tap.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/msg.h>
#include <zor/platform/file.h>
#include <zor/uv.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <utility>

#include "common/malloc_ptr.h"
#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "programs/bus_request.h"
#include "programs/files.h"
#include "programs/fleet_wire.h"
#include "programs/limits.h"

namespace zor::bridge {
namespace {

using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): its own limits
using Json = nlohmann::ordered_json;

constexpr uint32_t kDefaultSeconds = 60;
constexpr std::chrono::milliseconds kServerTime{3000};

std::string TextOf(const Json &value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// What a request asks for; nothing for anything else.
struct Asked {
  std::string daemon;
  Json levels;
  uint32_t seconds = kDefaultSeconds;
};
std::optional<Asked> AskedBy(const std::string &payload) {
  const Json value = Json::parse(payload, nullptr, false);
  if (!value.is_object()) return std::nullopt;
  Asked asked;
  for (const auto &[name, member] : value.items()) {
    if (name == "daemon" && member.is_string()) {
      asked.daemon = member.get<std::string>();
    } else if (name == "levels" && member.is_object() && !member.empty()) {
      asked.levels = member;
    } else if (name == "seconds" && member.is_number_unsigned()) {
      asked.seconds = static_cast<uint32_t>(std::clamp<uint64_t>(member.get<uint64_t>(), 1, kMostTraceSeconds));
    } else {
      return std::nullopt;
    }
  }
  if (asked.daemon.empty() || asked.daemon.size() >= ZOR_MSG_NAME_SIZE || asked.levels.is_null()) return std::nullopt;
  return asked;
}

}  // namespace

TraceTap::TraceTap(std::string path, Uplink &uplink, daemon::ProblemLog &problems)
    : path_(std::move(path)), uplink_(uplink), problems_(problems) {}

TraceTap::~TraceTap() = default;

void TraceTap::Serve(const Requests::Own &request) {
  const auto asked = AskedBy(request.payload);
  if (!asked)
    return request.failed(fleet::result::kInvalid, R"(not {"daemon":"...","levels":{"MODULE":"LEVEL"},"seconds":N})");
  if (taps_.contains(asked->daemon))
    return request.failed(fleet::result::kBusy, "its lines are being passed on already");
  if (taps_.size() >= kTraces)
    return request.failed(fleet::result::kBusy, "the lines of too many daemons are being passed on");
  auto owner = std::make_unique<Tap>();
  owner->owner = this;
  owner->daemon = asked->daemon;
  if (!Listen(*owner)) return request.failed(fleet::result::kGone, "the bridge has no socket for the lines");
  const Json settings = {
      {"name", asked->daemon}, {"output", "127.0.0.1:" + std::to_string(owner->port)}, {"levels", asked->levels}};
  taps_[asked->daemon] = std::move(owner);
  const auto onFormer = [this, name = asked->daemon, text = TextOf(settings), seconds = asked->seconds, request](
                            const ZOR_MSG_HEAD *reply, daemon::NoReply) {
    const auto found = taps_.find(name);
    if (found == taps_.end()) return;
    if (reply == nullptr || reply->data != ZOR_CONTROL_OK) {
      End(name);
      return request.failed(fleet::result::kRefused,
                            "the message server does not tell the bridge the settings of " + name);
    }
    found->second->former = daemon::BodyOf(*reply);
    Begin(*found->second, text, seconds, request);
  };
  daemon::AskBus({"", ZOR_MSG_CONTROL_TRACE_GET, 0, daemon::NameField(asked->daemon)}, kServerTime, onFormer);
}

bool TraceTap::Listen(Tap &tap) {
  UniqueFd socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (!socket.valid() || ::bind(socket.get(), Generic(&address), size) != 0 ||
      ::getsockname(socket.get(), Generic(&address), &size) != 0) {
    return false;
  }
  MallocPtr<UvIO> watcher(static_cast<UvIO *>(std::calloc(1, sizeof(UvIO))));
  if (watcher == nullptr || ZOR_UV_IOInit(nullptr, watcher.get(), socket.get(), OnReadable) != ZOR_OK) return false;
  socket.release();
  tap.port = ntohs(address.sin_port);
  tap.watcher = watcher.release();
  tap.watcher->header.data = &tap;
  return ZOR_UV_IOStart(tap.watcher, UV_READABLE) == ZOR_OK;
}

void TraceTap::Begin(Tap &tap, const std::string &settings, uint32_t seconds, const Requests::Own &request) {
  // Before anything is changed: a crash must not make the change stay.
  if (!WriteLeft()) {
    const std::string name = tap.daemon;
    End(name);
    return request.failed(fleet::result::kGone, "the bridge cannot write down the present settings");
  }
  tap.timer = ZOR_UTIL_TimerAdd(seconds * 1000, 1, OnTimeOver, &tap);
  const auto onSet = [this, name = tap.daemon, seconds, request](const ZOR_MSG_HEAD *reply, daemon::NoReply) {
    if (reply != nullptr && reply->data == ZOR_CONTROL_OK) {
      return request.done("\"daemon\":" + TextOf(Json(name)) + ",\"seconds\":" + std::to_string(seconds));
    }
    End(name);
    const bool isMalformed = reply != nullptr && reply->data == ZOR_CONTROL_MALFORMED;
    request.failed(isMalformed ? fleet::result::kInvalid : fleet::result::kRefused,
                   isMalformed ? "no such module or level" : "the message server does not take the settings");
  };
  daemon::AskBus({"", ZOR_MSG_CONTROL_TRACE_SET, 0, settings}, kServerTime, onSet);
}

void TraceTap::OnReadable(UvIO *watcher, uint32_t) {
  constexpr int kInTurn = 32;
  Tap &tap = *static_cast<Tap *>(watcher->header.data);
  char line[4096];
  for (int count = 0; count < kInTurn; ++count) {
    const ssize_t length = ::recv(watcher->fd, line, sizeof line, MSG_DONTWAIT);
    if (length < 0) return;
    tap.owner->Pass(tap, {line, static_cast<size_t>(length)});
  }
}

void TraceTap::Pass(Tap &tap, std::string_view line) {
  const auto now = std::chrono::steady_clock::now();
  if (now - tap.second >= std::chrono::seconds(1)) {
    tap.second = now;
    tap.lines = 0;
  }
  if (++tap.lines > kTraceLinesPerSecond) return;
  while (line.ends_with('\n') || line.ends_with('\r') || line.ends_with('\0')) line.remove_suffix(1);
  uplink_.Record(Keeping::kDrop, fleet::Topic({fleet::topic::kTrace, tap.daemon}), "trace",
                 "\"daemon\":" + TextOf(Json(tap.daemon)) + ",\"text\":" + TextOf(Json(std::string(line))));
}

void TraceTap::OnTimeOver(void *tap) {
  auto &over = *static_cast<Tap *>(tap);
  over.timer = nullptr;
  over.owner->End(std::string(over.daemon));
}

void TraceTap::End(const std::string &daemon) {
  const auto found = taps_.find(daemon);
  if (found == taps_.end()) return;
  const std::unique_ptr<Tap> tap = std::move(found->second);
  taps_.erase(found);
  ZOR_UTIL_TimerDel(tap->timer);
  tap->watcher->header.data = nullptr;
  ZOR_UV_IODelete(tap->watcher);
  if (tap->former.empty()) return;
  Restore(tap->former);
  if (!WriteLeft()) problems_.PrintErrno("%s", path_.c_str());
}

void TraceTap::Restore(const std::string &former) {
  Json settings = Json::parse(former, nullptr, false);
  if (!settings.is_object() || !settings.contains("name") || !settings["name"].is_string()) return;
  const bool wasKept = settings.value("source", Json()) == "kept";
  settings.erase("source");
  const std::string name = settings["name"].get<std::string>();
  const auto onDone = [this, name](const ZOR_MSG_HEAD *reply, daemon::NoReply) {
    if (reply != nullptr && reply->data == ZOR_CONTROL_OK) return;
    problems_.Print("the trace settings of %s could not be restored", name.c_str());
  };
  const daemon::BusRequest request =
      wasKept ? daemon::BusRequest{"", ZOR_MSG_CONTROL_TRACE_SET, 0, TextOf(settings)}
              : daemon::BusRequest{"", ZOR_MSG_CONTROL_TRACE_CLEAR, 0, daemon::NameField(name)};
  daemon::AskBus(request, kServerTime, onDone);
}

bool TraceTap::WriteLeft() {
  Json left = Json::array();
  for (const auto &[name, tap] : taps_) {
    if (!tap->former.empty()) left.push_back(tap->former);
  }
  if (left.empty()) return ::unlink(path_.c_str()) == 0 || errno == ENOENT;
  const std::string text = TextOf(left);
  return daemon::ReplaceFile(path_, std::as_bytes(std::span(text)));
}

void TraceTap::RestoreLeft() {
  void *buffer = nullptr;
  uint32_t length = 0;
  const uint32_t status = ZOR_UTIL_ReadFileToBuf(path_.c_str(), &buffer, &length);
  const MallocPtr<void> owner(buffer);
  if (status != ZOR_FILE_OK) return;
  const Json left = Json::parse(std::string_view(static_cast<const char *>(buffer), length), nullptr, false);
  for (const Json &former : left.is_array() ? left : Json::array()) {
    if (former.is_string()) Restore(former.get<std::string>());
  }
  ::unlink(path_.c_str());
}

void TraceTap::Stop() {
  while (!taps_.empty()) End(std::string(taps_.begin()->first));
}

}  // namespace zor::bridge
