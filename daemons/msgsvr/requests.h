// Requests to the server itself: the table in requests.cpp names the function for each type.
#ifndef MSGSVR_REQUESTS_H
#define MSGSVR_REQUESTS_H

#include <span>

#include "msgsvr/delivery.h"
#include "msgsvr/file_passing.h"
#include "msgsvr/permission.h"

namespace zor::msgsvr {

class Requests {
 public:
  Requests(Bus &bus, Delivery &delivery, FilePassing &files)
      : bus_(bus), delivery_(delivery), files_(files), permission_(bus) {}

  // Grants the sender the name that it asks for and replies with its settings.
  void Register(Client &from, const Frame &frame);
  // The same for a daemon of the other byte order; the frame has been converted.
  void RegisterInOtherOrder(Client &from, const Frame &frame);
  // Carries out a request of a registered client. False if the server has no request of that type.
  bool Handle(Client &from, const Frame &frame);

 private:
  using Body = std::span<const std::byte>;
  struct Entry {
    uint32_t type;
    void (Requests::*handle)(Client &from, const Frame &frame, Body body);
  };
  static const Entry kEntries[];

  void CarryOut(const Entry &entry, Client &from, const Frame &frame, Body body);
  void Subscribe(Client &from, const Frame &frame, Body body);
  void Unsubscribe(Client &from, const Frame &frame, Body body);
  void CountProcesses(Client &from, const Frame &frame, Body body);
  void SafeExit(Client &from, const Frame &frame, Body body);
  void Report(Client &from, const Frame &frame, Body body);
  void RegisterPatterns(Client &from, const Frame &frame, Body body);
  void SyncWait(Client &from, const Frame &frame, Body body);
  void SyncPost(Client &from, const Frame &frame, Body body);
  void Ignore(Client &from, const Frame &frame, Body body);

  void Grant(Client &from, const Frame &frame);
  void ReplaceSilent(const Client &newcomer);

  std::optional<size_t> EventOf(const Client &from, const Frame &frame);

  Bus &bus_;
  Delivery &delivery_;
  FilePassing &files_;
  Permission permission_;
};

}  // namespace zor::msgsvr

#endif
