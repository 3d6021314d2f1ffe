// One connection through the tunnel: a socket to the other side, which speaks TLS, and a plain one to a daemon or the
// message server. After the handshake bytes pass both ways, as they are. What cannot be written waits in a queue of
// fixed size, and while that is full nothing more is read: a slow reader slows its sender, as without the tunnel.
//
// An end of what is sent passes in either direction, after everything before it. When the other side breaks off, what
// it had sent is still delivered. When the plain side ends altogether, the other side is told and given some time to
// say so too, so that nothing on its way to it is lost.
//
// Both sockets are watched for changes only (EPOLLET), so Move must go on until neither moves.
#ifndef ZORTUNNEL_CONNECTION_H
#define ZORTUNNEL_CONNECTION_H

#include <netinet/in.h>

#include <chrono>
#include <optional>
#include <string>

#include "common/unique_fd.h"
#include "programs/holder.h"
#include "programs/tls/tls.h"
#include "zortunnel/byte_queue.h"

namespace zor::tunnel {

using Clock = std::chrono::steady_clock;

class Connection {
 public:
  enum class State { kConnecting, kHandshake, kOpen, kEnded };

  // The address is that of the other side. A plain socket may be added later.
  Connection(UniqueFd other, UniqueFd plain, tls::SslPtr ssl, const sockaddr_in &address, State state)
      : plain_(std::move(plain)), other_(std::move(other)), ssl_(std::move(ssl)), address_(address), state_(state) {}

  State state() const { return state_; }
  int other() const { return other_.get(); }
  int plain() const { return plain_.get(); }
  const sockaddr_in &address() const { return address_; }
  // For the limits of the log.
  daemon::Holder holder() const;
  // The other side's address, behind its name if that is known.
  std::string Label() const;
  // The name in the other side's certificate.
  const std::string &name() const { return name_; }
  // Why the other side, or the way to it, failed; empty if it did not.
  const std::string &problem() const { return problem_; }
  // Whether the other side has sent anything.
  bool heard() const { return heard_; }
  // Whether the other side was the first to end it.
  bool endedByOther() const { return otherEnd_ && !plainEndFirst_; }

  std::optional<Clock::time_point> deadline;

  // Goes on with connecting and with the handshake. True when that has just been finished.
  bool Establish();
  // Begins to pass bytes; the plain socket must be there. Throws std::bad_alloc.
  void Open(UniqueFd plain);
  void Open();
  // Moves what can be moved. True if there may be more to move at once. A time for the end is set as the deadline.
  bool Move(std::chrono::seconds endTime);
  void End(std::string problem = {});

 private:
  bool CheckConnected();
  // Each of these returns whether anything has moved.
  bool ReadOther();
  bool WritePlain();
  bool ReadPlain();
  bool WriteOther();

  bool FailOther(int result);
  bool IsDone() const;

  UniqueFd plain_;
  UniqueFd other_;
  tls::SslPtr ssl_;
  sockaddr_in address_;
  State state_;
  std::string name_;
  std::string problem_;
  ByteQueue toPlain_;
  ByteQueue toOther_;
  bool otherEnd_ = false;       // nothing more comes from the other side
  bool plainEnd_ = false;       // the same of the plain one
  bool plainEndFirst_ = false;  // that was first
  bool endPassed_ = false;      // to the plain side
  bool endSaid_ = false;        // to the other side
  bool otherBroken_ = false;    // nothing can be written to it
  bool plainBroken_ = false;    // the same
  bool heard_ = false;
};

}  // namespace zor::tunnel

#endif
