#include "zorctl/fleet_line.h"

#include <dlfcn.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "common/loaded_function.h"
#include "zorctl/exit_code.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

// From the tool's directory, as built and as installed. The loader's own $ORIGIN is that of whatever calls dlopen, such
// as a sanitizer. The module is never unloaded: it holds code of live objects.
void *LoadModule() {
  constexpr const char *kPlaces[] = {"zorctl-fleet.so", ZORCTL_MODULE_PATH};
  std::error_code unknown;
  const std::filesystem::path directory = std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path();
  std::string why = "the tool's directory is unknown";
  for (const char *place : kPlaces) {
    if (unknown) break;
    if (void *module = ::dlopen((directory / place).c_str(), RTLD_NOW | RTLD_LOCAL)) return module;
    why = ::dlerror();
  }
  throw Failure(kExitFailure, "cannot load the part for fleets: " + Escape(why),
                "install it, and the libraries mosquitto and ssl, with the package zorctl");
}

}  // namespace

std::unique_ptr<FleetLine> OpenFleetLine(const FleetAccess &access, const Deadline &deadline) {
  FleetLineOpener *opener = nullptr;
  if (!FindLoaded(LoadModule(), kFleetLineOpener, opener)) {
    throw Failure(kExitFailure, "the part for fleets is not of this version", "install both from the same package");
  }
  return std::unique_ptr<FleetLine>(opener(access, deadline));
}

}  // namespace zor::ctl
