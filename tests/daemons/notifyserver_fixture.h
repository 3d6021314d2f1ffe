// A running notification server and raw clients that talk to it.
#ifndef TESTS_DAEMONS_NOTIFYSERVER_FIXTURE_H
#define TESTS_DAEMONS_NOTIFYSERVER_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "support/capture.h"
#include "support/child.h"
#include "support/notify_frame.h"
#include "support/temp_root.h"

namespace zor::test {

class NotifyServerTest : public testing::Test {
 protected:
  // A server with this text in its settings file.
  Child Run(const std::string &settings) const;
  // Starts the server and waits until it listens.
  void Start(const std::string &settings = "");
  // Stops it and returns its log.
  std::string Stop();

  // A connection that has sent nothing yet.
  BusPeer Connect() const;
  // A client that the server has registered.
  BusPeer Register(uint32_t mid) const;
  // Waits until the server has handled everything that this registered client has sent.
  static void Settle(const BusPeer &client, uint32_t mid);

  TempRoot root_;
  std::unique_ptr<Child> server_;

 private:
  std::unique_ptr<Capture> log_;
};

}  // namespace zor::test

#endif
