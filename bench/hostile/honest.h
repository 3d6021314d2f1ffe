// A pair of clients that were there before the attack and stay, and newcomers: each server must serve them whatever
// others send.
#ifndef BENCH_HOSTILE_HONEST_H
#define BENCH_HOSTILE_HONEST_H

#include <memory>
#include <string>

namespace zor::hostile {

class Honest {
 public:
  virtual ~Honest() = default;
  // Converses with the server. False if it was not served.
  virtual bool IsServed() = 0;
  // Waits until the server has handled what was sent to it before.
  virtual void Sync() {}
  // Discards what hostile processes have sent to it.
  virtual void Drain() {}
};

enum class Service { kBus, kCms, kSyslog, kNotify, kLog };

// In the system at the root.
std::unique_ptr<Honest> MakeHonest(Service service, const std::string &root);

}  // namespace zor::hostile

#endif
