// A client of a real message server that writes and reads raw frames, so that a test sees what is on the wire and can
// send what the library never would.
#ifndef TESTS_SUPPORT_WIRE_CLIENT_H
#define TESTS_SUPPORT_WIRE_CLIENT_H

#include <cstdint>
#include <string>
#include <vector>

#include "support/scripted_server.h"

namespace zor::test {

class WireClient : public BusPeer {
 public:
  explicit WireClient(int fd = -1) : BusPeer(fd) {}
  // Connects to the local socket at a path.
  static WireClient Connect(const std::string &path);
  // Connects to a port of the loopback address.
  static WireClient ConnectTcp(uint16_t port);

  // Registers a name; returns the server's reply.
  Message Register(const std::string &name) const;
  // Sends a message and waits for the next one that arrives.
  Message Ask(const Message &message) const;
  // The same with the body fetched from its file beneath the server's root, if it is in one: as the library does.
  // Notices that come before the reply are skipped.
  Message AskAndFetch(const Message &message, const std::string &root) const;
  // The next message; an empty one and a test failure when none arrives.
  Message Next() const;

  // Sends bytes with descriptors attached: two zero bytes and one descriptor in a well-formed frame.
  void SendDescriptors(const std::string &bytes, const std::vector<int> &descriptors) const;
  void SendDescriptor(int descriptor) const { SendDescriptors(std::string(2, '\0'), {descriptor}); }
  // Reads two zero bytes and their descriptor; -1 when anything else arrives.
  int ReceiveDescriptor() const;
};

}  // namespace zor::test

#endif
