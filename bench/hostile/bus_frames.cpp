#include "hostile/bus_frames.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zor/config_wire.h>
#include <zor/control_wire.h>
#include <zor/kiva_wire.h>
#include <zor/log_wire.h>
#include <zor/paths.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace zor::hostile {
namespace {

constexpr uint32_t kEvent = ZOR_MSG_EVENT_FIRST + 7;
constexpr std::string_view kNames[] = {"m0", "m1", "m2", "m3", "web", "mic", "cms", "syslog", "*", "", "eleven_char"};

}  // namespace

const BusFrames::Form BusFrames::kServerForms[] = {
    {ZOR_MSG_REGISTER_APP, 40, &BusFrames::Nothing},
    {ZOR_MSG_SUBSCRIBE_EVENT, 40, &BusFrames::Name},
    {ZOR_MSG_UNSUBSCRIBE_EVENT, 30, &BusFrames::Name},
    {ZOR_MSG_GET_PROCESS_NUM, 30, &BusFrames::Name},
    {ZOR_MSG_SAFE_EXIT, 20, &BusFrames::Name},
    {ZOR_MSG_TIMED_REPORT, 20, &BusFrames::Nothing},
    {ZOR_MSG_RESTFUL_REGISTER, 40, &BusFrames::Patterns},
    {ZOR_MSG_RESTFUL_REQUEST_A, 20, &BusFrames::Restful},
    {ZOR_MSG_RESTFUL_REQUEST, 30, &BusFrames::Restful},
    {ZOR_MSG_RESTFUL_REQUEST_B, 20, &BusFrames::Restful},
    {ZOR_MSG_SYNC_WAIT, 30, &BusFrames::Name},
    {ZOR_MSG_SYNC_POST, 30, &BusFrames::Name},
    {ZOR_MSG_SEND_FAILED_NOTICE, 10, &BusFrames::Any},
    {ZOR_MSG_CONTROL_LIST, 10, &BusFrames::Nothing},
    {ZOR_MSG_CONTROL_MONITOR, 30, &BusFrames::Filter},
    {ZOR_MSG_CONTROL_MONITOR, 20, &BusFrames::Nothing},
    {ZOR_MSG_CONTROL_COPY, 10, &BusFrames::Any},
    {ZOR_MSG_CONTROL_TRACE_GET, 20, &BusFrames::Field},
    {ZOR_MSG_CONTROL_TRACE_SET, 30, &BusFrames::Trace},
    {ZOR_MSG_CONTROL_TRACE_CLEAR, 10, &BusFrames::Field},
    {ZOR_MSG_CONTROL_RECORDER, 5, &BusFrames::Nothing},
    {ZOR_MSG_CONTROL_GAPS, 20, &BusFrames::Nothing},
    {ZOR_MSG_CONTROL_LAST, 5, &BusFrames::Any},
    {kEvent, 60, &BusFrames::Any},
    {ZOR_MSG_DB_SAVE, 10, &BusFrames::Any},
    {0x4777, 100, &BusFrames::Any},
};

const BusFrames::Form BusFrames::kCmsForms[] = {
    {ZOR_MSG_DYN_APP_UPDATE, 40, &BusFrames::Field},
    {ZOR_MSG_DB_SAVE, 20, &BusFrames::Nothing},
    {ZOR_MSG_RESTORE_DEFAULT, 40, &BusFrames::Restore},
    {ZOR_MSG_EXPORT_CFG_USER, 60, &BusFrames::Nothing},
    {ZOR_MSG_DB_SAVE_TO_APP, 10, &BusFrames::Nothing},
    {ZOR_MSG_EXPORT_CFG_FILE, 60, &BusFrames::Path},
    {ZOR_MSG_EXPORT_ENC_CFG_FILE, 10, &BusFrames::Path},
    {ZOR_MSG_IMPORT_CFG_FILE, 30, &BusFrames::Path},
    {ZOR_MSG_CHECK_CFG_FILE, 60, &BusFrames::Path},
    {ZOR_MSG_CLEAN_CFG, 5, &BusFrames::Nothing},
    {ZOR_MSG_APP_SAVE_SYNC, 5, &BusFrames::Nothing},
    {ZOR_MSG_DB_SAVE_SYNC, 5, &BusFrames::Nothing},
    {ZOR_MSG_DEL_APPDATA, 5, &BusFrames::Any},
    {ZOR_MSG_DB_SAVE_TO_APP_SYNC, 5, &BusFrames::Nothing},
    {ZOR_MSG_KILL_ALL_DYN_APP, 40, &BusFrames::Any},
    {ZOR_MSG_KIVA_ADD, 20, &BusFrames::Device},
    {ZOR_MSG_KIVA_ADD_SYNC, 20, &BusFrames::Device},
    {ZOR_MSG_KIVA_REMOVE, 20, &BusFrames::Device},
    {ZOR_MSG_KIVA_REMOVE_SYNC, 20, &BusFrames::Device},
    {ZOR_MSG_RESTFUL_REQUEST, 40, &BusFrames::Restful},
    {ZOR_MSG_REGISTER_APP, 20, &BusFrames::Any},
    {kEvent, 40, &BusFrames::Any},
    {0x4777, 40, &BusFrames::Any},
};

const BusFrames::Form BusFrames::kSyslogForms[] = {
    {ZOR_LOG_MSG_RECORD, 200, &BusFrames::Record},      {ZOR_LOG_MSG_RECORD_KERNEL, 100, &BusFrames::Record},
    {ZOR_LOG_MSG_SYSTEM_QUERY, 6, &BusFrames::Query},   {ZOR_LOG_MSG_QUERY, 6, &BusFrames::Query},
    {ZOR_LOG_MSG_CLEAR, 3, &BusFrames::Nothing},        {ZOR_LOG_MSG_SET_FILTER, 10, &BusFrames::Nothing},
    {ZOR_LOG_MSG_SET_SERVER, 10, &BusFrames::Servers},  {ZOR_LOG_MSG_FLUSH, 3, &BusFrames::Any},
    {ZOR_MSG_RESTFUL_REQUEST, 10, &BusFrames::Restful}, {0x4777, 20, &BusFrames::Any},
};

std::span<const BusFrames::Form> BusFrames::Forms() const {
  if (to_ == To::kCms) return kCmsForms;
  return to_ == To::kSyslog ? std::span<const Form>(kSyslogForms) : std::span<const Form>(kServerForms);
}

std::string BusFrames::Next() {
  if (dice_.OneIn(40)) return dice_.Noise(1 + dice_.Below(300));
  if (to_ == To::kServer && dice_.OneIn(30000)) return Finish(ZOR_MSG_CONTROL_RESTART, "", 0, "");
  std::string frame = Message();
  ZOR_MSG_HEAD head;
  std::memcpy(&head, frame.data(), sizeof head);
  if (head.type == ZOR_LOG_MSG_SET_SERVER) return frame;
  if (dice_.OneIn(12)) dice_.Damage(frame);
  if (frame.size() < sizeof head) return frame;
  std::memcpy(&head, frame.data(), sizeof head);
  // Each daemon exits when it is told to.
  if ((head.type & ZOR_MSG_TYPE_MASK) == ZOR_MSG_SAFE_EXIT && head.destination[0] != '\0') frame[0] = '\0';
  return frame;
}

std::string BusFrames::Message() {
  const Form &form = dice_.PickWeighted(Forms());
  std::string body = (this->*form.body)();
  if (form.type == ZOR_LOG_MSG_SET_SERVER) return Finish(form.type, Destination(), 0, std::move(body));
  if (dice_.OneIn(3)) dice_.Damage(body);
  uint32_t type = form.type;
  if (dice_.OneIn(10)) {
    type |= ZOR_MSG_BODY_IN_FILE;
    body = FileBody(body);
  }
  if (dice_.OneIn(20)) type |= ZOR_MSG_BOARD_MASK & dice_.Word();
  static constexpr uint32_t kData[] = {0, 1, 2, kEvent, ZOR_MSG_EVENT_FIRST, ZOR_MSG_EVENT_LAST + 1};
  return Finish(type, Destination(), dice_.OneIn(3) ? dice_.Number() : dice_.Pick(kData), std::move(body));
}

std::string BusFrames::Registration(bool good) {
  std::string frame = Finish(ZOR_MSG_REGISTER_APP, "", 0, "");
  const std::string name = "m" + std::to_string(dice_.Below(4));
  name.copy(frame.data() + offsetof(ZOR_MSG_HEAD, source), ZOR_MSG_NAME_SIZE);
  if (!good) dice_.Damage(frame);
  return frame;
}

std::string BusFrames::Finish(uint32_t type, std::string_view destination, uint32_t data, std::string body) {
  ZOR_MSG_HEAD head = {};
  head.type = type;
  head.sequence = dice_.Word();
  dice_.Pick(kNames).copy(head.source, sizeof head.source);
  destination.copy(head.destination, sizeof head.destination);
  head.data = data;
  head.bodyLength = static_cast<uint32_t>(body.size());
  return BytesOf(head) + body;
}

std::string_view BusFrames::Destination() {
  if (to_ == To::kCms) return dice_.OneIn(3) ? "" : "cms";
  if (to_ == To::kSyslog) return "syslog";
  return dice_.OneIn(2) ? "" : dice_.Pick(kNames);
}

// What the path leads to may be the sender's body file, and whatever else a directory can hold.
std::string BusFrames::FileBody(const std::string &content) {
  const std::string directory = ZOR_PATH_MSG_FILE_DIR;
  const std::string path = directory + "msg_file_" + std::to_string(dice_.Below(64));
  const std::string real = root_ + path;
  static constexpr const char *kHostile[] = {
      "/etc/passwd", "/var/run/msg/", "/var/run/msg/../../etc/zor/msgsvr.conf", "/var/run/msg/directory", "",
      "msg_file_1"};
  std::error_code ignored;  // whatever is there is hostile
  switch (dice_.Below(8)) {
    case 0:
      ::unlink(real.c_str());
      ::mkfifo(real.c_str(), 0600);
      break;
    case 1:
      ::unlink(real.c_str());
      std::filesystem::create_symlink(dice_.OneIn(2) ? "/dev/zero" : "/etc/passwd", real, ignored);
      break;
    case 2:
      std::filesystem::create_hard_link(root_ + directory + "msg_file_1", real, ignored);
      break;
    case 3:
      ::mkdir((root_ + "/var/run/msg/directory").c_str(), 0700);
      return std::string(dice_.Pick(kHostile)).append(dice_.Below(ZOR_MSG_FILE_PATH_SIZE), '\0');
    default:
      ::unlink(real.c_str());
      std::ofstream(real) << content;
      if (dice_.OneIn(20)) std::filesystem::resize_file(real, dice_.OneIn(2) ? 0 : 1 << 30, ignored);
  }
  std::string body = path;
  body.resize(ZOR_MSG_FILE_PATH_SIZE, dice_.OneIn(20) ? 'x' : '\0');
  return body;
}

std::string BusFrames::Nothing() {
  return "";
}

std::string BusFrames::Any() {
  return dice_.Noise(dice_.OneIn(20) ? dice_.Below(ZOR_MSG_INLINE_BODY_MAX + 1) : dice_.Below(40));
}

std::string BusFrames::Name() {
  return std::string(dice_.Pick(kNames)) + '\0';
}

std::string BusFrames::Field() {
  std::string field(dice_.Pick(kNames));
  field.resize(ZOR_MSG_NAME_SIZE);
  return field;
}

std::string BusFrames::Patterns() {
  static constexpr std::string_view kPatterns[] = {"/api/*", "/a/b", "/*/*/*", "*", "//", "/api/{x}/?", "a**b"};
  std::string list;
  for (uint32_t count = dice_.OneIn(50) ? 250 : dice_.Below(4); count > 0; --count) {
    list.append(dice_.Pick(kPatterns)).append("|");
  }
  return list + '\0';
}

std::string BusFrames::Restful() {
  ZOR_MSG_RESTFUL_HEAD head = {};
  const std::string_view paths[] = {"/api", "/a", "/", "/api/x/y/z", std::string_view()};
  dice_.Pick(paths).copy(head.prefix, sizeof head.prefix);
  dice_.Pick(paths).copy(head.name, sizeof head.name);
  return BytesOf(head) + Any();
}

std::string BusFrames::Filter() {
  ZOR_CONTROL_FILTER filter = {};
  dice_.Pick(kNames).copy(filter.name, sizeof filter.name);
  filter.directions = dice_.Below(4);
  if (dice_.OneIn(2)) filter.firstType = dice_.Number();
  if (dice_.OneIn(2)) filter.lastType = dice_.Number();
  return BytesOf(filter);
}

std::string BusFrames::Trace() {
  static constexpr std::string_view kTexts[] = {
      R"({"name":"web","output":"file","file_kib":1024,"levels":{"msg":"debug"}})",
      R"({"name":"*","levels":{"loop":3,"all":"info","a":1,"b":2}})",
      R"({"name":"m1","output":"127.0.0.1:5","file_kib":18446744073709551615})",
      R"({"name":"m2","levels":[[[[[[{"a":{"b":{"c":1e999}}}]]]]]]})",
      R"({"name":"\u0000\ud800","output":null})",
  };
  return std::string(dice_.Pick(kTexts)) + '\0';
}

std::string BusFrames::Path() {
  static constexpr std::string_view kPaths[] = {"/var/export.db",
                                                "/var/other.db",
                                                "/var/cfg/config_0.db",
                                                "/var/cfg",
                                                "/var/cfg/../cfg/x.db",
                                                "/var/cfg/fifo",
                                                "/var/cfg/zero",
                                                "/var/cfg/link",
                                                "/etc/zor/cms.conf",
                                                "/no/such/directory/x",
                                                "relative",
                                                "",
                                                "/",
                                                "/var/cfg/noise.db"};
  std::string path(dice_.Pick(kPaths));
  if (dice_.OneIn(20)) path.append(dice_.Below(400), 'x');
  return path + '\0';
}

std::string BusFrames::Restore() {
  return BytesOf(ZOR_CFG_RESTORE{dice_.Below(3), dice_.OneIn(4) ? dice_.Number() : dice_.Below(2)});
}

std::string BusFrames::Device() {
  const std::string mac = "00112233445" + std::to_string(dice_.Below(8));
  kiva_info_status status = {};
  for (uint32_t *each : {&status.dlSize, &status.param1, &status.state, &status.param3, &status.flags}) {
    *each = dice_.Number();
  }
  switch (dice_.Below(3)) {
    case 0:
      return mac;
    case 1:
      return (mac + std::string(ZOR_KIVA_MAC_SIZE, '\0')).substr(0, ZOR_KIVA_MAC_SIZE);
    default:
      return BytesOf(status) + mac + '\0' + std::string(dice_.Below(600), 'd') + '\0' + "/var/x.xml" + '\0';
  }
}

std::string BusFrames::Record() {
  static constexpr uint32_t kIndexes[] = {0x1A000000, 0x1E080001, 0x1A000026, ZOR_LOG_KERNEL_INDEX, 0x0300000B};
  ZOR_LOG_RECORD record = {};
  record.index = dice_.Pick(kIndexes);
  record.typeLevel = dice_.OneIn(2) ? ZOR_LOG_KERNEL << ZOR_LOG_TYPE_SHIFT | ZOR_LOG_ERROR : dice_.Number();
  record.parameterCount = static_cast<uint16_t>(dice_.OneIn(8) ? dice_.Number() : dice_.Below(4));
  const std::string text = dice_.OneIn(2) ? "name" : dice_.Noise(dice_.Below(64));
  for (std::size_t at = 0; at + text.size() < sizeof record.parameters; at += 80) {
    text.copy(record.parameters + at, text.size());
  }
  record.usedLength = static_cast<uint16_t>(dice_.OneIn(8) ? dice_.Number() : 4 * dice_.Below(65));
  return BytesOf(record);
}

std::string BusFrames::Query() {
  static constexpr std::string_view kPaths[] = {"/var/syslog/result", "/var/syslog/..", "/var/syslog/fifo",
                                                "/var/syslog/link",   "/etc/passwd",    "/var/syslog/"};
  ZOR_LOG_QUERY query = {};
  query.selector = dice_.Number();
  query.typeLevel = dice_.OneIn(2) ? UINT32_MAX : dice_.Word();
  query.count = dice_.OneIn(2) ? dice_.Below(5) : dice_.Number();
  dice_.Pick(kPaths).copy(query.text, sizeof query.text);
  return BytesOf(query);
}

// Undamaged where it could lead out of this machine.
std::string BusFrames::Servers() {
  static constexpr std::string_view kServers[] = {"127.0.0.1", "::1", "127.1", "", "localhost", "%n%s", "127.0.0.1 x"};
  ZOR_LOG_SERVERS servers = {};
  dice_.Pick(kServers).copy(servers.server1, sizeof servers.server1);
  dice_.Pick(kServers).copy(servers.server2, sizeof servers.server2);
  if (dice_.OneIn(10)) std::memset(servers.server2, 'x', sizeof servers.server2);
  servers.number1 = static_cast<uint16_t>(dice_.Number());
  servers.port = static_cast<uint16_t>(dice_.Number());
  const std::string name = dice_.Noise(sizeof servers.name);
  name.copy(servers.name, sizeof servers.name);
  std::string body = BytesOf(servers);
  if (dice_.OneIn(10)) body.resize(dice_.Below(body.size()));
  return body;
}

}  // namespace zor::hostile
