#include "zorctl/fleet_line.h"

#include <dlfcn.h>

#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// In the build's directory, and as installed. The module is never unloaded: it holds code of live objects.
void *LoadModule() {
  constexpr const char *kPlaces[] = {"$ORIGIN/zorctl-fleet.so", ZORCTL_MODULE_PATH};
  std::string why;
  for (const char *place : kPlaces) {
    if (void *module = ::dlopen(place, RTLD_NOW | RTLD_LOCAL)) return module;
    why = ::dlerror();
  }
  throw Failure(kExitFailure, "cannot load the part for fleets: " + Escape(why),
                "install it, and the libraries mosquitto and ssl, with the package zorctl");
}

}  // namespace

std::unique_ptr<FleetLine> OpenFleetLine(const FleetAccess &access, const Deadline &deadline) {
  auto *opener = reinterpret_cast<FleetLineOpener *>(::dlsym(LoadModule(), kFleetLineOpener));
  if (opener == nullptr) {
    throw Failure(kExitFailure, "the part for fleets is not of this version", "install both from the same package");
  }
  return std::unique_ptr<FleetLine>(opener(access, deadline));
}

}  // namespace zor::ctl
