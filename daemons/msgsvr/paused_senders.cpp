#include "msgsvr/paused_senders.h"

#include "common/limits.h"

namespace zor::msgsvr {

void PausedSenders::Add(Client &sender, const Client &reader, Clock::time_point now) {
  if (sender.held) return;
  sender.held = true;
  pausedSenders_.push_back({&sender, &reader, now + limits::msgsvr::kHold});
}

bool PausedSenders::IsOver(const Hold &hold, Clock::time_point now) {
  const daemon::OutputQueue &queue = hold.reader->output;
  return hold.sender->ended || hold.reader->ended || now >= hold.until || queue.bytes() <= queue.maxBytes() / 4;
}

}  // namespace zor::msgsvr
