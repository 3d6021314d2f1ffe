// What the members of a chaos run have sent, received and been notified of, message by message, in memory that outlives
// a member that is killed. Each message has a slot, whose number is its sequence number on the bus: the notice about a
// message that was not delivered carries it back.
//
// Every message that was sent must in the end have been received, or noticed by its sender, or be part of a number that
// the message server has named in its log. What a killed member had in its hands is nobody's: it may have taken one
// message out of its socket without noting it, and may have begun to send one.
#ifndef BENCH_CHAOS_ACCOUNT_H
#define BENCH_CHAOS_ACCOUNT_H

#include <atomic>
#include <cstdint>
#include <map>
#include <span>
#include <string>

namespace zor::bench {

constexpr uint32_t kMostWorkers = 32;

// How far a message is known to have come.
constexpr uint8_t kBegun = 1;     // its sender was about to send it
constexpr uint8_t kSent = 2;      // the library took it
constexpr uint8_t kNotTaken = 4;  // the library did not
constexpr uint8_t kReceived = 8;  // at the receiver
constexpr uint8_t kNoticed = 16;  // its sender was notified that it was not delivered

struct Message {
  std::atomic<uint8_t> marks;
  uint8_t to;
};

// The newest message that has arrived from a worker.
struct Newest {
  uint32_t number;  // and 1; 0: none
  uint32_t life;
};

struct Worker {
  std::atomic<uint32_t> begun;     // slots of its share in use
  std::atomic<uint32_t> received;  // only grows, so that a standstill is seen
  std::atomic<uint32_t> outOfOrder;
  std::atomic<uint32_t> doubled;
  std::atomic<uint32_t> strange;  // what no member has sent
  std::atomic<uint32_t> noDescriptor;
  std::atomic<uint32_t> events;  // published, or begun to
  std::atomic<uint32_t> eventsReceived;
  std::atomic<uint32_t> missedEvents;
  std::atomic<uint32_t> gapEvents;  // missed according to gap notices
  Newest newestFrom[kMostWorkers];
  Newest newestEvent[kMostWorkers];  // since it joined
  uint32_t deaths;                   // kept by the controller
};

struct Account {
  std::atomic<bool> quiet;  // no more messages
  uint32_t workers;
  uint32_t share;                          // slots of one worker
  std::atomic<uint64_t> longestRoundTrip;  // ns
  std::atomic<uint64_t> roundTrips;
  std::atomic<uint64_t> failedRequests;
  Worker worker[kMostWorkers];
  Message *message;  // the shares of all workers, in the same memory

  static Account *Create(uint32_t workers, uint32_t messages);
};

std::string WorkerName(uint32_t index);
uint64_t Deaths(const Account &account);
// Messages that were sent and have not come to anything yet.
uint64_t CountSilent(const Account &account);

// What the log of the message server names: messages lost for each name, and lines that it has left out.
struct Named {
  std::map<std::string, uint64_t> byName;
  uint64_t descriptors = 0;
  uint64_t linesLeftOut = 0;
};
Named ReadLog(const std::string &path);

// Prints the balance. True when it is even.
bool Balance(const Account &account, Named named);

}  // namespace zor::bench

#endif
