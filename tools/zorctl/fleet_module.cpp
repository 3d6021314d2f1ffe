// What the tool loads to reach a fleet, see fleet_line.h.
#include "zorctl/fleet_line.h"

extern "C" __attribute__((visibility("default"))) zor::ctl::FleetLine *ZorOpenFleetLine(
    const zor::ctl::FleetAccess &access, const zor::ctl::Deadline &deadline);

zor::ctl::FleetLine *ZorOpenFleetLine(const zor::ctl::FleetAccess &access, const zor::ctl::Deadline &deadline) {
  return zor::ctl::OpenMqttLine(access, deadline).release();
}
