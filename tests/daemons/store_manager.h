// A service manager with a descriptor store: it starts a server with what the store holds, as after a crash.
#ifndef TESTS_DAEMONS_STORE_MANAGER_H
#define TESTS_DAEMONS_STORE_MANAGER_H

#include <sys/types.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/unique_fd.h"
#include "daemons/manager_socket.h"

namespace zor::test {

class StoreManager {
 public:
  // The path of its socket.
  explicit StoreManager(const std::string &path);
  // Kills the server.
  ~StoreManager();

  // Starts the server and waits until it is ready.
  void Start(std::vector<std::string> command);
  void Signal(int number) const;
  // Ends it without a warning; the store then has all that it had stored.
  void Kill();
  // How often a server was ready so far.
  int readyCount() const { return ready_; }
  // Whether it becomes ready once more than that.
  bool AwaitReady(int count) const;
  bool IsRunning() const;

  // The stored descriptors; change them only while no server runs.
  std::vector<std::pair<std::string, UniqueFd>> store;

 private:
  void Serve();
  void Handle(Notification notification);
  // Waits until everything that was sent before has been handled.
  void Settle();

  ManagerSocket socket_;
  pid_t server_ = -1;
  std::atomic<int> ready_ = 0;
  std::atomic<int> settled_ = 0;
  std::atomic<bool> stopped_ = false;
  std::mutex mutex_;  // of the store
  std::thread thread_;
};

}  // namespace zor::test

#endif
