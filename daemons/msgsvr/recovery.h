// Makes the state of a server that has crashed from the journal that it left: the same records as for a hand-over, from
// which Restoration puts the bus together again.
//
// The work that was under way is finished here as far as sockets are concerned: of a write that was begun, the rest is
// queued; the input that had not been routed becomes the sender's. A frame at which the server has crashed for the
// second time, or was killed again and again, is dropped. What cannot be known after a crash: what clients had not read
// of what is in their sockets, the requests that were pending, the statistics, and descriptors on their way.
#ifndef MSGSVR_RECOVERY_H
#define MSGSVR_RECOVERY_H

#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "msgsvr/server_state.h"
#include "programs/descriptor_set.h"
#include "programs/journal/reader.h"
#include "programs/problem_log.h"
#include "programs/service_manager.h"

namespace zor::msgsvr {

class Recovery {
 public:
  Recovery(std::string_view program, daemon::DescriptorSet &descriptors, daemon::ProblemLog &log)
      : program_(program), descriptors_(descriptors), log_(log) {}

  // The state of the server that stored these descriptors; nothing if it left no usable journal. Journals and sockets
  // of clients are taken from the list; those that are of no use are removed from the store, and the log tells of them.
  std::optional<ServerState> Run(std::vector<daemon::PassedDescriptor> &passed);

 private:
  bool FinishFlush(daemon::JournalContent &content);
  bool FinishTurn(daemon::JournalContent &content);
  bool FinishWrite(daemon::JournalContent &content, size_t &routed);
  void KeepInput(daemon::JournalTurn &turn, size_t routed, daemon::JournalClient &from);
  bool StripDescriptor(daemon::JournalClient &from);
  void DropFrame(daemon::JournalClient &from);
  std::optional<ServerState> StateIn(daemon::JournalContent &content);
  std::optional<ClientRecord> RecordOf(daemon::JournalClient &client);
  std::nullopt_t CutOff(const daemon::JournalClient &client, pid_t pid, std::string_view name, const char *reason);
  void QueueOutput(daemon::JournalClient &client, ClientRecord &record);
  void TakeSockets(std::vector<daemon::PassedDescriptor> &passed, ServerState *state);

  std::string_view program_;
  daemon::DescriptorSet &descriptors_;
  daemon::ProblemLog &log_;
  std::unordered_set<uint64_t> named_;  // clients cut off that the log has named
};

}  // namespace zor::msgsvr

#endif
