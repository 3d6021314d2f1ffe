#include "zorctl/control_result.h"

#include <zor/control_wire.h>

#include "zorctl/exit_code.h"

namespace zor::ctl {

void CheckControl(uint32_t result, const std::string &server) {
  switch (result) {
    case ZOR_CONTROL_OK:
      return;
    case ZOR_CONTROL_REFUSED:
      throw Failure(kExitRefused, server + " answers only root and its own user", "run this as one of them");
    case ZOR_CONTROL_MALFORMED:
      throw Failure(kExitRefused, server + " does not understand the request", "check the arguments");
    case ZOR_CONTROL_UNKNOWN:
      throw Failure(kExitRefused, server + " does not know this request", "use a server and a tool of one version");
    default:
      throw Failure(kExitFailure, server + " could not do it", "look at its log: memory, its disk, or queue_bytes");
  }
}

}  // namespace zor::ctl
