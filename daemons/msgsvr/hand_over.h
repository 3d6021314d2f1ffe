// Replaces the server, on request, by the program that is at its path now. programs/succession.h says how; this makes
// the states for it, between two turns, when every client's state is in its record, and replies to who asked for it.
#ifndef MSGSVR_HAND_OVER_H
#define MSGSVR_HAND_OVER_H

#include <string_view>

#include "msgsvr/delivery.h"
#include "msgsvr/server_state.h"
#include "programs/inheritance.h"
#include "programs/succession.h"

namespace zor::msgsvr {

class HandOver {
 public:
  HandOver(const ServerParts &server, Delivery &delivery, const ListenersRecord &listeners,
           const daemon::ProgramImage &image)
      : server_(server), delivery_(delivery), listeners_(listeners), succession_(image, server.bus.log) {}

  bool valid() const { return succession_.valid(); }
  // Readable when Continue has something to do.
  int fd() const { return succession_.fd(); }
  void Continue();

  // Asks for it, as a request in the bus does.
  void Request() { requested_ = true; }
  // Call it at the end of each turn.
  void EndTurn() {
    if (requested_ || server_.bus.restartFor) Advance();
  }

  // In the successor: replies to who asked.
  static void Confirm(Bus &bus, Delivery &delivery, const daemon::Inheritance &inherited);

 private:
  void Advance();
  void Execute();
  void RefuseRequest();
  UniqueFd MakeState(std::vector<int> &descriptors);

  ServerParts server_;
  Delivery &delivery_;
  ListenersRecord listeners_;
  daemon::Succession succession_;
  bool requested_ = false;  // not begun yet, or not executed yet
  bool accepted_ = false;
};

}  // namespace zor::msgsvr

#endif
