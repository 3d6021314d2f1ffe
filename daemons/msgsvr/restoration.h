// Puts the bus and its clients together again from records: the one way by which a server gets clients that it has not
// accepted itself, whoever made the records.
//
// A record that cannot be restored cuts off its client, which the log names; it harms no other. Who gets messages to a
// name, and requests for a path, depends on the order of registrations, so they are repeated in that order.
#ifndef MSGSVR_RESTORATION_H
#define MSGSVR_RESTORATION_H

#include <string>
#include <vector>

#include "msgsvr/server_state.h"
#include "programs/descriptor_set.h"

namespace zor::msgsvr {

class Restoration {
 public:
  // The numbers in the records are those of descriptors in the set. The bus must be new.
  Restoration(const ServerParts &server, daemon::DescriptorSet &descriptors)
      : server_(server), bus_(server.bus), descriptors_(descriptors) {}

  void Run(const ServerState &state);

 private:
  struct Restored {
    Client *client;
    const ClientRecord *record;
  };

  void RestoreBus(const BusRecord &record);
  void RestoreClient(const ClientRecord &record);
  const char *Fill(Client &client, const ClientRecord &record);
  bool CheckSockets(Client &client, const ClientRecord &record);
  void RestoreNotes(Client &client, const ClientRecord &record);
  bool Queue(Client &client, const ClientRecord &record);
  template <typename Record, typename OrderOf, typename Repeat>
  void RepeatInOrder(std::vector<Record> records, OrderOf orderOf, Repeat repeat);
  void RepeatRegistrations();
  void RepeatPatterns();
  void RepeatBarrierWaits();
  void RestoreTimes();

  ServerParts server_;
  Bus &bus_;
  daemon::DescriptorSet &descriptors_;
  std::vector<Restored> restored_;
};

}  // namespace zor::msgsvr

#endif
