// The system's journal, by its own datagrams: the service manager's library would do the same and bring six more.
#ifndef ZORCTL_JOURNAL_SOCKET_H
#define ZORCTL_JOURNAL_SOCKET_H

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/unique_fd.h"

namespace zor::ctl {

class JournalSocket {
 public:
  // Throws Failure where there is no journal.
  JournalSocket();

  using Field = std::pair<std::string_view, std::string>;
  // One entry. Waits while the journal is busy; throws Failure when it is gone.
  void Send(const std::vector<Field> &fields);

 private:
  UniqueFd fd_;
};

}  // namespace zor::ctl

#endif
