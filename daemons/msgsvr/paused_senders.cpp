#include "msgsvr/paused_senders.h"

#include "msgsvr/unread.h"
#include "programs/limits.h"

namespace zor::msgsvr {

PausedSenders::Progress PausedSenders::ProgressOf(const Client &reader) {
  return {reader.flushes, UnsentBytes(reader.socket.get())};
}

void PausedSenders::Add(Client &sender, Client &reader, Clock::time_point now) {
  if (sender.paused || reader.ended || reader.deaf) return;
  const Progress progress = ProgressOf(reader);
  if (reader.stalled && progress == Progress{reader.flushes, reader.unsentWhenStalled}) return;
  pausedSenders_.push_back({&sender, &reader, now + limits::msgsvr::kSenderPause, progress, now});
  reader.stalled = false;
  sender.paused = true;
}

void PausedSenders::Restore(const Pause &pause) {
  pause.sender->paused = true;
  pausedSenders_.push_back(pause);
}

bool PausedSenders::IsOver(Pause &pause, Clock::time_point now) {
  Client &reader = *pause.reader;
  if (pause.sender->ended || reader.ended || reader.deaf || now >= pause.until ||
      reader.output.bytes() <= reader.output.maxBytes() / 4) {
    return true;
  }
  const Progress progress = ProgressOf(reader);
  if (progress != pause.progress) {
    pause.progress = progress;
    pause.progressAt = now;
  }
  if (now - pause.progressAt < limits::msgsvr::kReaderStall) return false;
  reader.stalled = true;
  reader.unsentWhenStalled = progress.unsent;
  return true;
}

}  // namespace zor::msgsvr
