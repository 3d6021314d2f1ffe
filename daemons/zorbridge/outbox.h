// Everything that must reach the broker, in order, until the broker has acknowledged it.
//
// Records wait in memory first. What is acknowledged before its group is due never touches the disk; the rest is
// written in groups, one transaction each, because every write wears the flash. Written records beyond a window leave
// the memory and are read back when their turn comes.
//
// A record's identity at the consumers is its stream and its number, which counts 1, 2, 3, ... without holes in a
// stream. No identity is ever used twice: a stream goes on after a clean stop, with the exact next number; after any
// other end a new one begins, since nobody knows which of the old one's numbers the broker has got. What is still in
// the file keeps its old identity. The first 12 digits of a stream's name are random and chosen with the file, the last
// 4 count such ends, so that consumers can sort streams.
#ifndef ZORBRIDGE_OUTBOX_H
#define ZORBRIDGE_OUTBOX_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "programs/exit_code.h"
#include "programs/problem_log.h"

namespace zor::bridge {

class OutboxState;

class Outbox {
 public:
  using Clock = std::chrono::steady_clock;

  struct Options {
    std::string path;  // of the file, the real one; a lock file PATH.lock decides who owns it
    std::string gateway;
    std::uint64_t queueBytes = 0;            // what may wait, in memory and file together
    std::uint64_t groupBytes = 0;            // written at the latest when so much is unwritten ...
    std::chrono::milliseconds groupTime{0};  // ... or after this time
    std::uint64_t dailyBytes = 0;            // of writes to the file in 24 hours
    std::function<Clock::time_point()> now = Clock::now;
  };
  struct Record {  // to be published
    std::uint64_t number = 0;
    std::string stream;   // its own, which after an unclean end is not that of new records
    std::string topic;    // below PREFIX/GATEWAY
    std::string payload;  // whole JSON text with the envelope
  };
  struct Figures {
    std::uint64_t records = 0;
    std::uint64_t bytes = 0;
    std::uint64_t givenUp = 0;       // since the start
    std::uint64_t writtenToday = 0;  // bytes
    bool writesUsedUp = false;       // nothing more is written today
    std::string problem;             // why the file cannot be used at present; empty: it can
    std::optional<std::string> oldest;
  };

  Outbox();
  // Closes.
  ~Outbox();
  Outbox(const Outbox &) = delete;
  Outbox &operator=(const Outbox &) = delete;

  // kExitBusy when another process has the lock, kExitFailure when there can be no lock. A damaged file is set aside
  // (".damaged"), which is logged, and a new stream begun. A file that cannot be used is only logged: records stay in
  // memory, and it is tried again. The log must outlive this.
  daemon::ExitCode Open(const Options &options, daemon::ProblemLog &problems);
  // Writes all that is unacknowledged, whatever the day's bound, and the next number.
  void Close();

  // Takes a record: a topic below PREFIX/GATEWAY, and JSON members without braces, such as "module":"lan",... What
  // does not fit is given up and counted in the gap record, under the group (such as "event/lan").
  void Keep(std::string_view topic, std::string_view group, std::string_view members);

  // The oldest record that has not been handed out, valid until the next call; null: none now. After an unclean end the
  // old stream must be acknowledged before the new one begins, so that numbers in flight are of one stream.
  const Record *Next();
  // That record has been published.
  void HandedOut();
  // The broker has this one, in any order. Numbers that are not in flight are ignored. There may be a Next afterwards.
  void Acknowledged(std::uint64_t number);
  // The line has ended: what is unacknowledged is next again, from the oldest.
  void Rewind();

  // When Write must be called at the latest; nothing: never, until something else is called.
  std::optional<Clock::time_point> Due() const;
  // One transaction: what is unwritten and unacknowledged in, what is acknowledged out. A failure is logged once, and
  // tried again later; nothing leaves the memory. There may be a Next afterwards.
  void Write();

  Figures figures() const;
  // That of new records.
  const std::string &stream() const;

 private:
  std::unique_ptr<OutboxState> state_;
};

}  // namespace zor::bridge

#endif
