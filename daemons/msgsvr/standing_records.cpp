// Writes the standing records of the bus and its clients into the journal.
#include "msgsvr/bus_fields.h"
#include "msgsvr/bus_record.h"
#include "msgsvr/client_fields.h"
#include "msgsvr/client_record.h"

namespace zor::msgsvr {
namespace {

template <typename Record>
bool Write(daemon::JournalSlot &slot, const Record &record) {
  const auto bytes = daemon::WriteRecord(record);
  return bytes && slot.SetRecord(*bytes);
}

}  // namespace

// A client whose record is out of date would be somebody else after a crash.
void Bus::WriteChanged() {
  const auto write = [this](daemon::JournalSlot &slot, auto recordOf) {
    bool written = false;
    return Try([&] { written = Write(slot, recordOf()); }) && written;
  };
  if (std::exchange(someChanged_, false)) {
    for (Client &client : clients) {
      if (!client.recordChanged) continue;
      client.recordChanged = false;
      if (client.ended) continue;
      if (!write(client.slot, [&] { return StandingRecordOf(*this, client); })) {
        CutOff(client, "no memory for its record");
      }
    }
  }
  if (busChanged_) busChanged_ = !write(slot_, [this] { return StandingBusRecordOf(*this); });
}

}  // namespace zor::msgsvr
