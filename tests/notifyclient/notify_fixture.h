// A notification client in the hands of a test.
#ifndef TESTS_NOTIFYCLIENT_NOTIFY_FIXTURE_H
#define TESTS_NOTIFYCLIENT_NOTIFY_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zor/notifyclt.h>

#include <string>

#include "support/capture.h"
#include "support/child.h"
#include "support/notify_frame.h"

namespace zor::test {

// The client on one end of a socket pair, without a server, a registration or a watcher on the loop. What the peer
// sends before a request lies in the socket as the answer.
class SwitchedClient : public testing::Test {
 protected:
  SwitchedClient() { ZOR_NOTIFYCLT_SwitchSock(pair_.near.Release()); }
  ~SwitchedClient() override { ZOR_NOTIFYCLT_Destroy(); }

  const BusPeer &peer() const { return pair_.far; }

  SocketPair pair_;
};

}  // namespace zor::test

#endif
