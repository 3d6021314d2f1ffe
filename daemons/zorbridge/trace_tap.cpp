#include "zorbridge/trace_tap.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zor/control_wire.h>
#include <zor/msg.h>
#include <zor/platform/file.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <utility>

#include "common/malloc_ptr.h"
#include "common/socket_address.h"
#include "common/unique_fd.h"
#include "programs/files.h"
#include "programs/fleet_wire.h"
#include "programs/limits.h"
#include "programs/messages/json_text.h"

namespace zor::bridge {
namespace {

using namespace limits::zorbridge;  // NOLINT(google-build-using-namespace): its own limits
using Json = nlohmann::ordered_json;

constexpr uint32_t kDefaultSeconds = 60;
constexpr std::chrono::milliseconds kServerTime{3000};

using messages::JsonText;

std::chrono::milliseconds TimeFor(const Requests::Own &request) {
  return std::min(kServerTime, Requests::TimeUntil(request.deadline));
}

bool IsOk(const ZOR_MSG_HEAD *reply) {
  return reply != nullptr && reply->data == ZOR_CONTROL_OK;
}

// The message server does not do what is needed for the request.
void Fail(const Requests::Own &request, const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
  if (reply == nullptr && why == daemon::NoReply::kTimeOver) {
    return request.failed(fleet::result::kLate, "the message server has not replied in time");
  }
  if (reply == nullptr) return request.failed(fleet::result::kGone, "the message server has gone");
  if (reply->data == ZOR_CONTROL_MALFORMED) return request.failed(fleet::result::kInvalid, "no such module or level");
  request.failed(fleet::result::kRefused, "the message server does not let the bridge set trace levels");
}

// What a request asks for; nothing for anything else.
struct Asked {  // NOLINT(bugprone-exception-escape): what moves JSON does not throw
  std::string daemon;
  Json levels;
  uint32_t seconds = kDefaultSeconds;
};
std::optional<Asked> AskedBy(const std::string &payload) {
  const Json value = messages::ParseJson(payload);
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
  const auto onFormer = [this, name = asked->daemon, text = JsonText(settings), seconds = asked->seconds, request](
                            const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
    const auto found = taps_.find(name);
    if (found == taps_.end()) return;  // the bridge stops
    if (!IsOk(reply)) {
      End(name);
      return Fail(request, reply, why);
    }
    if (Requests::Clock::now() >= request.deadline) {
      End(name);
      return request.failed(fleet::result::kLate, Requests::kOverBefore);
    }
    const auto left = left_.extract(name);
    found->second->former = left ? left.mapped().former : daemon::BodyOf(*reply);
    Begin(*found->second, text, seconds, request);
  };
  daemon::AskBus({"", ZOR_MSG_CONTROL_TRACE_GET, 0, daemon::NameField(asked->daemon)}, TimeFor(request), onFormer);
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
  tap.port = ntohs(address.sin_port);
  return tap.timer.Open(OnTimeOver, &tap) && tap.socket.Open(std::move(socket), UV_READABLE, OnReadable, &tap);
}

void TraceTap::Begin(Tap &tap, const std::string &settings, uint32_t seconds, const Requests::Own &request) {
  // Before anything is changed: a crash must not make the change stay.
  if (!WriteFile()) {
    End(std::string(tap.daemon));
    return request.failed(fleet::result::kGone, "the bridge cannot write down the present settings");
  }
  const auto onSet = [this, name = tap.daemon, seconds, request](const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
    const auto found = taps_.find(name);
    if (found == taps_.end()) return;
    if (!IsOk(reply)) {
      End(name);
      return Fail(request, reply, why);
    }
    found->second->timer.Set(daemon::LoopTimer::Clock::now() + std::chrono::seconds(seconds));
    request.done("\"daemon\":" + JsonText(Json(name)) + ",\"seconds\":" + std::to_string(seconds));
  };
  daemon::AskBus({"", ZOR_MSG_CONTROL_TRACE_SET, 0, settings}, TimeFor(request), onSet);
}

void TraceTap::OnReadable(void *tap, uint32_t) {
  constexpr int kInTurn = 32;
  Tap &from = *static_cast<Tap *>(tap);
  char line[4096];
  for (int count = 0; count < kInTurn; ++count) {
    const ssize_t length = ::recv(from.socket.fd(), line, sizeof line, MSG_DONTWAIT);
    if (length < 0) return;
    from.owner->Pass(from, {line, static_cast<size_t>(length)});
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
                 "\"daemon\":" + JsonText(Json(tap.daemon)) + ",\"text\":" + JsonText(Json(std::string(line))));
}

void TraceTap::OnTimeOver(void *tap) {
  const auto &over = *static_cast<const Tap *>(tap);
  over.owner->End(std::string(over.daemon));
}

void TraceTap::End(const std::string &daemon) {
  const auto found = taps_.find(daemon);
  if (found == taps_.end()) return;
  const std::unique_ptr<Tap> tap = std::move(found->second);
  taps_.erase(found);
  if (tap->former.empty()) return;
  left_[daemon].former = tap->former;
  Restore(daemon);
}

void TraceTap::Restore(const std::string &daemon) {
  Left &left = left_.at(daemon);
  left.asked = true;
  const std::string former = left.former;
  const auto then = [this, daemon](const ZOR_MSG_HEAD *reply, daemon::NoReply why) { OnRestored(daemon, reply, why); };
  const bool wasKept = messages::ParseJson(former).value("source", Json()) == "kept";
  daemon::AskBus(wasKept ? daemon::BusRequest{"", ZOR_MSG_CONTROL_TRACE_SET, 0, former}
                         : daemon::BusRequest{"", ZOR_MSG_CONTROL_TRACE_CLEAR, 0, daemon::NameField(daemon)},
                 kServerTime, then);
}

// What has not been restored stays in the file for the next attempt.
void TraceTap::OnRestored(const std::string &daemon, const ZOR_MSG_HEAD *reply, daemon::NoReply why) {
  const auto found = left_.find(daemon);
  if (found == left_.end()) return;
  found->second.asked = false;
  if (reply == nullptr && why == daemon::NoReply::kServerGone) {
    return problems_.Print("the trace settings of %s are restored when the message server is back", daemon.c_str());
  }
  if (!IsOk(reply)) return problems_.Print("the trace settings of %s could not be restored", daemon.c_str());
  left_.erase(found);
  if (!WriteFile()) problems_.PrintErrno("%s", path_.c_str());
}

bool TraceTap::WriteFile() const {
  Json all = Json::array();
  for (const auto &[name, left] : left_) all.push_back(left.former);
  for (const auto &[name, tap] : taps_) {
    if (!tap->former.empty()) all.push_back(tap->former);
  }
  if (all.empty()) return ::unlink(path_.c_str()) == 0 || errno == ENOENT;
  const std::string text = JsonText(all);
  return daemon::ReplaceFile(path_, std::as_bytes(std::span(text)));
}

void TraceTap::RestoreLeft() {
  void *buffer = nullptr;
  uint32_t length = 0;
  const uint32_t status = ZOR_UTIL_ReadFileToBuf(path_.c_str(), &buffer, &length);
  const MallocPtr<void> owner(buffer);
  if (status != ZOR_FILE_OK) return;
  const Json all = messages::ParseJson({static_cast<const char *>(buffer), length});
  for (const Json &each : all.is_array() ? all : Json::array()) {
    const Json former = each.is_string() ? messages::ParseJson(each.get_ref<const std::string &>()) : Json();
    if (!former.is_object() || !former.value("name", Json()).is_string()) continue;
    left_[former["name"].get<std::string>()].former = each.get<std::string>();
  }
  OnRejoined();
}

void TraceTap::OnRejoined() {
  for (const auto &[daemon, left] : std::map(left_)) {
    if (!left.asked) Restore(daemon);
  }
}

void TraceTap::Stop() {
  while (!taps_.empty()) End(std::string(taps_.begin()->first));
  // The bridge does not stay for the replies. Asked again at its next start, settings of an operator would be lost.
  std::erase_if(left_, [](const auto &each) { return each.second.asked; });
  if (!WriteFile()) problems_.PrintErrno("%s", path_.c_str());
}

}  // namespace zor::bridge
