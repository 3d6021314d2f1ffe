#include "chaos/account.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <regex>
#include <string>

#include "harness.h"

namespace zor::bench {
namespace {

uint64_t Take(uint64_t &pool, uint64_t wanted) {
  const uint64_t taken = std::min(pool, wanted);
  pool -= taken;
  return taken;
}

struct Totals {
  uint64_t sent = 0, received = 0, noticed = 0, both = 0, named = 0, inHand = 0, notTaken = 0, begun = 0;
  uint64_t unaccounted = 0;
};

class Settlement {
 public:
  Settlement(const Account &account, Named named) : account_(account), named_(std::move(named)) {
    for (uint32_t i = 0; i < account.workers; ++i) inHand_[i] = account.worker[i].deaths;
  }

  Totals Run() {
    for (uint32_t from = 0; from < account_.workers; ++from) {
      const uint32_t begun = std::min<uint32_t>(account_.worker[from].begun, account_.share);
      for (uint32_t n = 0; n < begun; ++n) Settle(from, account_.message[from * account_.share + n]);
    }
    for (const auto &[way, count] : unaccounted_) {
      std::printf("unaccounted from %-27s %10llu\n", way.c_str(), static_cast<unsigned long long>(count));
    }
    return totals_;
  }

 private:
  void Settle(uint32_t from, const Message &message) {
    const uint8_t marks = message.marks;
    const bool arrived = (marks & (kReceived | kNoticed)) != 0;
    if (!arrived && (marks & kSent) == 0) {
      ++((marks & kNotTaken) != 0 ? totals_.notTaken : totals_.begun);
      return;
    }
    ++totals_.sent;
    if ((marks & kReceived) != 0) ++totals_.received;
    if ((marks & kNoticed) != 0) ++((marks & kReceived) != 0 ? totals_.both : totals_.noticed);
    if (!arrived) SettleSilent(from, message.to);
  }

  // Named as unread by its receiver, or its notice is named as unread by its sender, or the receiver died with it.
  void SettleSilent(uint32_t from, uint32_t to) {
    if (Take(named_.byName[WorkerName(to)], 1) == 1 || Take(named_.byName[WorkerName(from)], 1) == 1) {
      ++totals_.named;
    } else if (Take(inHand_[to], 1) == 1) {
      ++totals_.inHand;
    } else {
      ++totals_.unaccounted;
      ++unaccounted_[WorkerName(from) + " to " + WorkerName(to)];
    }
  }

  const Account &account_;
  Named named_;
  uint64_t inHand_[kMostWorkers] = {};
  std::map<std::string, uint64_t> unaccounted_;
  Totals totals_;
};

}  // namespace

Account *Account::Create(uint32_t workers, uint32_t messages) {
  const uint32_t share = messages / (workers - 1) + 1;  // the last one sends nothing
  const std::size_t size = sizeof(Account) + std::size_t{share} * workers * sizeof(Message);
  void *memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Require(memory != MAP_FAILED, "memory for the account");
  auto *account = static_cast<Account *>(memory);
  account->workers = workers;
  account->share = share;
  account->message = static_cast<Message *>(static_cast<void *>(account + 1));
  return account;
}

std::string WorkerName(uint32_t index) {
  return "w" + std::to_string(index);
}

uint64_t Deaths(const Account &account) {
  uint64_t deaths = 0;
  for (uint32_t i = 0; i < account.workers; ++i) deaths += account.worker[i].deaths;
  return deaths;
}

uint64_t CountSilent(const Account &account) {
  const std::span<Message> all(account.message, std::size_t{account.share} * account.workers);
  return static_cast<uint64_t>(std::count_if(all.begin(), all.end(), [](const Message &message) {
    return (message.marks & (kSent | kReceived | kNoticed)) == kSent;
  }));
}

Named ReadLog(const std::string &path) {
  const std::regex ended(R"((w\d+) \(pid \d+\) has ended: (?:at most )?(\d+) messages to it unread, (\d+) refused)");
  const std::regex refused(R"((w\d+) \(pid \d+\) reads again: (\d+) messages to it were refused)");
  const std::regex leftOut(R"((\d+) more problems not shown)");
  Named named;
  std::ifstream stream(path);
  std::smatch found;
  for (std::string line; std::getline(stream, line);) {
    if (std::regex_search(line, found, ended)) {
      named.byName[found[1]] += std::stoull(found[2]) + std::stoull(found[3]);
    } else if (std::regex_search(line, found, refused)) {
      named.byName[found[1]] += std::stoull(found[2]);
    }
    if (line.find("descriptor to it dropped") != std::string::npos) ++named.descriptors;
    if (std::regex_search(line, found, leftOut)) named.linesLeftOut += std::stoull(found[1]);
  }
  return named;
}

bool Balance(const Account &account, Named named) {
  const uint64_t leftOut = named.linesLeftOut, namedDescriptors = named.descriptors, deaths = Deaths(account);
  const Totals totals = Settlement(account, std::move(named)).Run();
  uint64_t doubled = 0, outOfOrder = 0, strange = 0, events = 0, missed = 0, gaps = 0, noDescriptor = 0;
  for (const Worker &worker : std::span(account.worker, account.workers)) {
    doubled += worker.doubled;
    outOfOrder += worker.outOfOrder;
    strange += worker.strange;
    events += worker.eventsReceived;
    missed += worker.missedEvents;
    gaps += worker.gapEvents;
    noDescriptor += worker.noDescriptor;
  }
  const auto print = [](const char *what, uint64_t number) {
    std::printf("%-44s %10llu\n", what, static_cast<unsigned long long>(number));
  };
  print("messages sent", totals.sent);
  print("received", totals.received);
  print("noticed by their senders", totals.noticed);
  print("named in the log by count", totals.named);
  print("in the hands of killed members", totals.inHand);
  print("unaccounted", totals.unaccounted);
  print("doubled", doubled);
  print("out of order", outOfOrder);
  print("that no member sent", strange);
  print("events received", events);
  print("events missed", missed);
  print("of these in gap notices", gaps);
  print("descriptors that did not come", noDescriptor);
  print("of these in the log", namedDescriptors);
  print("noticed though received", totals.both);
  print("not taken by the library", totals.notTaken);
  print("begun by killed members", totals.begun);
  print("lines left out of the log", leftOut);
  print("members killed", deaths);
  // A member that is killed while it publishes leaves a number that no event has.
  missed -= std::min(missed, deaths * account.workers);
  return totals.unaccounted == 0 && doubled == 0 && outOfOrder == 0 && strange == 0 && totals.begun <= deaths &&
         missed <= gaps && noDescriptor <= namedDescriptors + deaths;
}

}  // namespace zor::bench
