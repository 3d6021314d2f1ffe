// The part of the queue that deals with its file: opening it, writing groups, reading back, and every failure of these.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "programs/limits.h"
#include "zorbridge/outbox_state.h"
#include "zorbridge/stream_name.h"
#include "zorbridge/time_text.h"
#include "zorbridge/written_bytes.h"

namespace zor::bridge {

namespace bounds = limits::zorbridge;

bool OutboxState::Lock(daemon::ExitCode &code) {
  const std::string path = options_.path + ".lock";
  lock_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (lock_.valid() && ::flock(lock_.get(), LOCK_EX | LOCK_NB) == 0) return true;
  const bool isBusy = lock_.valid() && errno == EWOULDBLOCK;
  code = isBusy ? daemon::kExitBusy : daemon::kExitFailure;
  if (isBusy) {
    problems_.Print("%s: another zorbridge is running", path.c_str());
  } else {
    problems_.PrintErrno("%s: cannot lock the queue", path.c_str());
  }
  lock_.reset();
  return false;
}

daemon::ExitCode OutboxState::Open() {
  daemon::ExitCode code = daemon::kExitOk;
  if (Lock(code)) Attach();
  return code;
}

bool OutboxState::Attach() {
  const std::uint64_t before = WrittenBytes();
  const bool attached = TryAttach() || (file_.damaged() && SetAside() && TryAttach());
  daily_.Count(WrittenBytes() - before);
  if (!attached) return Fail(writeFailed_);
  Succeed(writeFailed_);
  return true;
}

bool OutboxState::TryAttach() {
  OutboxFile::Content content;
  bool attached = false;
  try {
    attached = file_.Open(options_.path, options_.queueBytes / 8) && file_.ReadContent(content) && Adopt(content);
  } catch (...) {  // no memory: as before the attempt
    file_.Close();
    throw;
  }
  if (!attached) file_.Close();
  return attached;
}

// With its log, which would otherwise be replayed into the new file. Both can still be looked at.
bool OutboxState::SetAside() {
  file_.Close();
  const std::string aside = options_.path + ".damaged";
  std::rename((options_.path + "-wal").c_str(), (aside + "-wal").c_str());
  if (std::rename(options_.path.c_str(), aside.c_str()) != 0) {
    problems_.PrintErrno("%s: cannot set the damaged queue aside", options_.path.c_str());
    return false;
  }
  problems_.Print("%s: %s: set aside as %s", options_.path.c_str(), file_.problem().c_str(), aside.c_str());
  return true;
}

// Continues the file's stream after a clean stop, if nothing has been kept yet. What has been kept already goes behind
// the file's records, in its own stream.
bool OutboxState::Adopt(OutboxFile::Content &content) {
  if (content.state && !dayKnown_) daily_.Resume(content.state->day, now_);
  dayKnown_ = true;
  std::vector<Stream> streams = std::move(content.streams);
  const std::int64_t following = streams.empty() ? 1 : streams.back().id + 1;
  const bool isFirst = next_ == 1 && !gap_.open();
  const bool continues = isFirst && !streams.empty() && content.state && content.state->next > 0;
  const std::int64_t shift = std::max<std::int64_t>(following - streams_.front().id, 0);
  // Only the latest one's name is needed without records.
  const std::int64_t oldest = StreamOf(content.backlog.firstKey);
  while (streams.size() > 1 && streams.front().id < oldest) streams.erase(streams.begin());
  if (isFirst && !continues) {
    streams.push_back({following, streams.empty() ? streams_.back().name : StreamNameAfter(streams.back().name)});
  } else if (!isFirst) {
    for (const Stream &each : streams_) streams.push_back({each.id + shift, each.name});
  }
  if (!Mark(streams, content.backlog.firstKey)) return false;
  if (continues) next_ = content.state->next;
  if (!isFirst) window_.MoveStreams(shift);
  streams_ = std::move(streams);
  window_.PutFirst(content.backlog);
  recordKey_ = -1;
  ForgetStreams();
  return true;
}

// From now on the end of this process is an unclean one, unless Close says otherwise.
bool OutboxState::Mark(const std::vector<Stream> &streams, std::int64_t firstKey) {
  bool marked = file_.Begin() && file_.RemoveStreamsBefore(streams.front().id);
  for (const Stream &each : streams) marked = marked && file_.SaveStream(each);
  marked = marked && SaveState(firstKey, false) && file_.Commit();
  if (!marked) file_.Rollback();
  return marked;
}

bool OutboxState::SaveState(std::int64_t firstKey, bool last) {
  const DailyWrites::Saved day = daily_.ToSave(now_, last);
  if (!file_.SaveState({last ? next_ : 0, firstKey, day})) return false;
  daily_.HaveSaved(day, now_);
  return true;
}

// One line for each kind of failure, however often it is tried again.
bool OutboxState::Fail(bool &kind) {
  kind = true;
  if (problem_ != file_.problem()) {
    problem_ = file_.problem();
    problems_.Print("%s: %s: records stay in memory", options_.path.c_str(), problem_.c_str());
  }
  pause_ = std::clamp<std::chrono::milliseconds>(pause_ * 2, bounds::kFirstRetryPause, bounds::kMostRetryPause);
  retryAt_ = now_ + pause_;
  return false;
}

void OutboxState::Succeed(bool &kind) {
  kind = false;
  if (writeFailed_ || readFailed_ || problem_.empty()) return;
  problems_.Print("%s: can be used again", options_.path.c_str());
  problem_.clear();
  pause_ = {};
}

// The file has turned out to be damaged. What is in memory goes into a new one; what was only in the file is lost.
void OutboxState::Replace() {
  const RecordWindow::Hole hole = window_.hole();
  Gap lost;
  lost.Count({}, hole.records, hole.fromMs, hole.toMs);
  const std::string members = lost.Members();
  KeptRecord instead;
  instead.key = hole.firstKey;
  instead.timeMs = hole.fromMs;
  instead.keptAt = now_;
  instead.text = "gap" + members;
  instead.topicLength = 3;
  window_.LoseFile(std::move(instead));
  staleSince_.reset();
  readFailed_ = false;
  givenUp_ += hole.records;
  recordKey_ = -1;
  if (hole.records > 0) {
    problems_.Print("%s: %llu records are lost", options_.path.c_str(), static_cast<unsigned long long>(hole.records));
  }
  if (SetAside()) {
    Attach();
  } else {
    Fail(writeFailed_);
  }
}

void OutboxState::Load() {
  const RecordWindow::Hole hole = window_.hole();
  std::uint64_t bytes = 0;
  const bool read = file_.Read(hole.firstKey, hole.endKey, [&](KeptRecord record) {
    bytes += record.size();
    record.keptAt = now_;
    window_.Restore(std::move(record));
    return bytes < bounds::kReadBytes && window_.hole().records > 0;
  });
  if (read && bytes > 0) {
    Succeed(readFailed_);
  } else if (read || file_.damaged()) {
    Replace();
  } else {
    Fail(readFailed_);
  }
}

bool OutboxState::HasWork() const {
  return window_.unwrittenBytes() > 0 || window_.staleBytes() > 0 ||
         (gap_.open() && gapCounted_ && now_ >= gapWrittenAt_ + kGapPause);
}

bool OutboxState::MayWrite() {
  if (writeFailed_ && now_ < retryAt_) return false;
  const bool isUsedUp = daily_.UsedUp(now_);
  if (isUsedUp != usedUp_) {
    problems_.Print("%s: %s", options_.path.c_str(),
                    isUsedUp ? "the day's writes are used up: records stay in memory" : "a new day: written again");
  }
  usedUp_ = isUsedUp;
  return !isUsedUp;
}

void OutboxState::Write() {
  now_ = options_.now();
  if (!file_.isOpen() && (now_ < retryAt_ || !Attach())) return;
  if (readFailed_ && now_ >= retryAt_) Load();
  if (!file_.isOpen()) return;
  if (gap_.open() && HasRoom(0)) CloseGap();
  if (HasWork() && MayWrite()) WriteGroup(false);
}

bool OutboxState::WriteGroup(bool last) {
  const std::uint64_t before = WrittenBytes();
  const bool removes = window_.staleBytes() > 0;
  const bool written = file_.Begin() && WriteAll(last) && file_.Commit();
  if (!written) file_.Rollback();
  if (written) {
    window_.Written(bounds::kWindowBytes);
    window_.StaleRemoved();
    staleSince_.reset();
    gapCounted_ = false;
    gapWrittenAt_ = now_;
    // Failing is harmless: the pages stay for later records.
    if (removes) file_.Shrink();
  }
  daily_.Count(WrittenBytes() - before);
  if (written) {
    Succeed(writeFailed_);
  } else if (file_.damaged()) {
    Replace();
  } else {
    Fail(writeFailed_);
  }
  return written;
}

bool OutboxState::WriteAll(bool last) {
  const bool put = window_.ForEachUnwritten([this](const KeptRecord &record) {
    return file_.Put(record.key, record.timeMs, record.topic(), record.members());
  });
  if (!put) return false;
  const std::int64_t now = gap_.open() ? UnixMs() : 0;
  if (gap_.open() && !file_.Put(NextKey(), now, "gap", gap_.Members())) return false;
  const std::int64_t firstKey = window_.FirstKey(NextKey());
  const bool removes = window_.staleBytes() > 0;
  if (removes && !file_.RemoveBefore(firstKey)) return false;
  return (!last && !removes && !daily_.MustSave(now_)) || SaveState(firstKey, last);
}

void OutboxState::Close() {
  now_ = options_.now();
  if (!lock_.valid()) return;
  const bool written = (file_.isOpen() || Attach()) && WriteLast();
  if (!written && window_.unwrittenBytes() > 0) {
    problems_.Print("%s: %llu bytes of records are lost", options_.path.c_str(),
                    static_cast<unsigned long long>(window_.unwrittenBytes()));
  }
  file_.Close();
  lock_.reset();
}

// The log is emptied first, so that what that writes is counted.
bool OutboxState::WriteLast() {
  CloseGap();
  if (HasWork()) WriteGroup(false);
  const std::uint64_t before = WrittenBytes();
  if (file_.isOpen()) file_.Checkpoint();
  daily_.Count(WrittenBytes() - before);
  if (!file_.isOpen()) return false;
  return WriteGroup(true) || (file_.isOpen() && WriteGroup(true));  // into a new file, if it was damaged
}

}  // namespace zor::bridge
