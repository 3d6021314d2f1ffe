#include "msgsvr/paused_senders.h"

#include "programs/limits.h"

namespace zor::msgsvr {

void PausedSenders::Add(Client &sender, const Client &reader, Clock::time_point now) {
  if (sender.paused) return;
  sender.paused = true;
  pausedSenders_.push_back({&sender, &reader, now + limits::msgsvr::kSenderPause});
}

bool PausedSenders::IsOver(const Pause &pause, Clock::time_point now) {
  const daemon::OutputQueue &queue = pause.reader->output;
  return pause.sender->ended || pause.reader->ended || now >= pause.until || queue.bytes() <= queue.maxBytes() / 4;
}

}  // namespace zor::msgsvr
