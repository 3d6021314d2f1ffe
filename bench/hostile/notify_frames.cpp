#include "hostile/notify_frames.h"

#include <zor/mlog_wire.h>
#include <zor/notify_control_wire.h>

#include <cstring>

namespace zor::hostile {
namespace {

constexpr uint32_t kMostModules = 24;  // those of honest clients are beyond

std::string WithData(ZOR_NOTIFY_MSG head, const std::string &data) {
  head.data_len = static_cast<uint32_t>(data.size());
  return BytesOf(head) + data;
}

}  // namespace

std::string NotifyFrames::Next() {
  if (dice_.OneIn(40)) return dice_.Noise(1 + dice_.Below(300));
  if (dice_.OneIn(200)) return Registration(dice_.OneIn(2));
  ZOR_NOTIFY_MSG head = {};
  head.msg_type = Type();
  head.seq = dice_.Below(8);
  head.source_id = Module();
  head.des_id = dice_.OneIn(4) ? ZOR_NOTIFY_MID_SERVER : Module();
  head.sync_tag = dice_.Below(2);
  head.ack_tag = head.sync_tag == 0 ? ZOR_NOTIFY_ACK_REQUEST : 1 + dice_.Below(2);
  head.request_word = dice_.Number();
  head.async_flag = dice_.Below(3);
  // Mostly short, sometimes longer than a buffer, rarely the longest.
  const uint32_t kind = dice_.Below(4000);
  const std::string data(kind == 0 ? ZOR_NOTIFY_DATA_MAX : kind < 10 ? 70000 : dice_.Below(80), 'd');
  head.sub_data_len1 = dice_.Below(data.size() + 1);
  head.sub_data_len2 = static_cast<uint32_t>(data.size()) - head.sub_data_len1;
  std::string frame = WithData(head, data);
  if (dice_.OneIn(8)) {
    std::string start = frame.substr(0, sizeof head);
    dice_.Damage(start);
    frame.replace(0, sizeof head, start);
  }
  return frame;
}

std::string NotifyFrames::Registration(bool good) {
  ZOR_NOTIFY_MSG head = {};
  head.msg_type = ZOR_NOTIFY_TYPE_REGISTER;
  head.des_id = ZOR_NOTIFY_MID_SERVER;
  head.ack_tag = ZOR_NOTIFY_ACK_REQUEST;
  const uint32_t module = good ? 1 + dice_.Below(kMostModules) : dice_.Number();
  std::string data = BytesOf(module);
  head.sub_data_len1 = sizeof module;
  if (!good && dice_.OneIn(2)) dice_.Damage(data);
  std::string frame = WithData(head, data);
  if (!good) dice_.Damage(frame);
  return frame;
}

uint32_t NotifyFrames::Module() {
  return dice_.OneIn(10) ? dice_.Number() : dice_.Below(kMostModules + 1);
}

uint32_t NotifyFrames::Type() {
  if (dice_.OneIn(20000)) return ZOR_NOTIFY_CONTROL_RESTART;
  static constexpr uint32_t kTypes[] = {0x55, 0x56, ZOR_NOTIFY_CONTROL_LIST, ZOR_NOTIFY_CONTROL_LAST, 0};
  return dice_.OneIn(20) ? dice_.Number() : dice_.Pick(kTypes);
}

std::string LogDatagram(Dice &dice) {
  if (dice.OneIn(30)) return dice.Noise(dice.Below(1200));
  static constexpr uint32_t kTypes[] = {ZOR_MLOG_LINE, ZOR_MLOG_LINE, ZOR_MLOG_SET_STAT, ZOR_MLOG_GET_STAT};
  ZOR_MLOG_MSG msg = {};
  msg.type = dice.OneIn(500) ? ZOR_MLOG_POWER_OFF : dice.OneIn(20) ? dice.Number() : dice.Pick(kTypes);
  if (msg.type == ZOR_MLOG_SET_STAT || msg.type == ZOR_MLOG_GET_STAT) {
    ZOR_MLOG_STAT stat = {};
    const std::string name = "hostile" + std::to_string(dice.Below(400)), value = dice.Noise(dice.Below(300));
    name.copy(stat.name, sizeof stat.name);
    value.copy(stat.value, sizeof stat.value);
    msg.length = sizeof stat;
    std::memcpy(msg.data, &stat, sizeof stat);
  } else if (msg.type == ZOR_MLOG_LINE) {
    const std::string text = dice.Noise(dice.OneIn(10) ? dice.Below(ZOR_MLOG_DATA_MAX + 1) : dice.Below(60));
    text.copy(msg.data, text.size());
    msg.length = static_cast<uint32_t>(text.size());
  }
  std::string datagram = BytesOf(msg).substr(0, ZOR_MLOG_HEAD_SIZE + msg.length);
  if (dice.OneIn(6)) dice.Damage(datagram);
  return datagram;
}

}  // namespace zor::hostile
