// Reads what clients send and routes it, frame by frame.
//
// Every byte is in the journal from the moment when it has left the socket: in the receive buffer, or in its client's
// input. The effects of a frame become valid together with the note that it has been routed. A crash therefore neither
// loses nor repeats a frame; one at which the server crashes again and again is dropped.
//
// The start of a short frame goes back to the buffer for the next read. That of a long one, which may be longer than
// the buffer, stays where it is and grows there until the frame is whole.
#ifndef NOTIFYSERVER_INTAKE_H
#define NOTIFYSERVER_INTAKE_H

#include <cstddef>
#include <optional>
#include <span>

#include "notifyserver/client.h"
#include "notifyserver/limits.h"
#include "notifyserver/router.h"
#include "programs/problem_log.h"

namespace zor::notifyserver {

class Intake {
 public:
  Intake(Surroundings &surroundings, Router &router, daemon::ProblemLog &log)
      : shared_(surroundings), router_(router), log_(log) {}

  // Reads once, at most as much as the buffer holds, and routes the whole frames. End of file ends the client. Throws
  // std::bad_alloc: call Abandon then.
  void Read(Client &client);
  // Routes the whole frames that a server that has crashed left behind.
  void Resume(Client &client);
  // Ends the work for a client that has ended in the middle of it.
  void Abandon();

 private:
  // Puts the client's input into the buffer, unless it is of a long frame. Returns its length there.
  size_t Begin(Client &client);
  void End(Client &client, std::span<const std::byte> rest);
  size_t ReadSocket(Client &client);
  // Routes the frames at the start of the buffer's bytes, from an offset on. Returns the offset behind them.
  size_t RouteFrames(Client &client, std::span<std::byte> bytes, size_t routed);
  // Completes the long frame with the bytes that follow its start, and routes it. Returns how many of them it took;
  // nothing if it is still not complete, and all of them have become input.
  std::optional<size_t> RouteLong(Client &client, std::span<const std::byte> bytes);
  void RouteAt(size_t offset, Client &client, Frame &frame);
  void DropFatal(Client &client, const Frame &frame);
  size_t MostData(const Client &client) const;

  Surroundings &shared_;
  Router &router_;
  daemon::ProblemLog &log_;
};

}  // namespace zor::notifyserver

#endif
