// What an Outbox is made of: the window of records, the file, the gap, the day's writes, and the stream. Exceptions may
// leave it only where they leave it as it was.
#ifndef ZORBRIDGE_OUTBOX_STATE_H
#define ZORBRIDGE_OUTBOX_STATE_H

#include <optional>
#include <string>
#include <vector>

#include "common/unique_fd.h"
#include "zorbridge/daily_writes.h"
#include "zorbridge/gap.h"
#include "zorbridge/outbox.h"
#include "zorbridge/outbox_file.h"
#include "zorbridge/record_window.h"

namespace zor::bridge {

class OutboxState {
 public:
  using TimePoint = Outbox::Clock::time_point;

  OutboxState(const Outbox::Options &options, daemon::ProblemLog &problems);

  daemon::ExitCode Open();
  void Close();

  void Keep(std::string_view topic, std::string_view group, std::string_view members);
  void GiveUp(std::string_view group) noexcept;
  const Outbox::Record *Next();
  void HandedOut();
  void Acknowledged(std::uint64_t number);
  void Rewind() { window_.Rewind(); }
  std::optional<TimePoint> Due() const;
  void Write();
  Outbox::Figures figures() const;
  const std::string &stream() const { return streams_.back().name; }

 private:
  std::int64_t NextKey() const { return KeyOf(streams_.back().id, next_); }

  // outbox_disk.cpp: the file.
  bool Lock(daemon::ExitCode &code);
  bool Attach();
  bool TryAttach();
  bool SetAside();
  bool Adopt(OutboxFile::Content &content);
  bool Mark(const std::vector<Stream> &streams, std::int64_t firstKey);
  void Replace();
  bool Fail(bool &kind);
  void Succeed(bool &kind);
  void Load();
  bool HasWork() const;
  bool MayWrite();
  bool WriteGroup(bool last);
  bool WriteAll(bool last);
  bool WriteLast();
  bool SaveState(std::int64_t firstKey, bool last);

  // outbox_state.cpp: what is kept.
  bool IsNearlyFull() const;
  bool HasRoom(std::uint64_t size);
  void CloseGap();
  void Append(std::string_view topic, std::string_view members, std::int64_t timeMs);
  void WriteWhen(bool due);
  void Render(const KeptRecord &record);
  void ForgetStreams();

  static constexpr std::chrono::seconds kGapPause{60};

  Outbox::Options options_;
  daemon::ProblemLog &problems_;
  UniqueFd lock_;
  OutboxFile file_;
  RecordWindow window_;
  DailyWrites daily_;

  std::vector<Stream> streams_;  // those that have records; the last one is that of new records
  std::uint64_t next_ = 1;       // number of the next record

  Gap gap_;
  bool gapCounted_ = false;  // since it was written
  TimePoint gapWrittenAt_{};
  bool full_ = false;
  std::uint64_t givenUp_ = 0;

  TimePoint now_{};  // as of the current call
  std::optional<TimePoint> staleSince_;
  std::string problem_;  // why the file cannot be used
  bool writeFailed_ = false;
  bool readFailed_ = false;
  TimePoint retryAt_{};
  std::chrono::milliseconds pause_{0};
  bool usedUp_ = false;    // the day's writes
  bool dayKnown_ = false;  // from the file

  std::string envelope_;  // up to the stream
  Outbox::Record record_;
  std::int64_t recordKey_ = -1;  // which it is
};

}  // namespace zor::bridge

#endif
