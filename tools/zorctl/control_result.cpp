#include "zorctl/control_result.h"

#include <zor/control_wire.h>

#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {

void CheckControl(uint32_t result, const std::string &server, std::string_view body) {
  switch (result) {
    case ZOR_CONTROL_OK:
      return;
    case ZOR_CONTROL_REFUSED:
      throw Failure(kExitRefused, server + " refuses this to your user",
                    "run this as root, or see its log for the rule; without rules it serves root and its own user");
    case ZOR_CONTROL_MALFORMED:
      throw Failure(kExitRefused, server + " rejected the request as malformed", "check the arguments");
    case ZOR_CONTROL_UNKNOWN:
      throw Failure(kExitRefused, server + " does not know this request",
                    "use a server and a tool of the same version");
    case ZOR_CONTROL_UNCHANGED:
      throw Failure(kExitRefused, server + " goes on as before: " + Escape(std::string(body)),
                    "repair the cause, then run this command again");
    default:
      throw Failure(kExitFailure, server + " could not carry out the request",
                    "check its log: out of memory, disk full, or queue_bytes exceeded");
  }
}

}  // namespace zor::ctl
