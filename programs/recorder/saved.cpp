#include "programs/recorder/saved.h"

#include <cstdio>
#include <span>

#include "common/replacement.h"
#include "common/write_all.h"

namespace zor::recorder {

std::string SavedFile(const std::string &path, int place) {
  return path + "." + std::to_string(place);
}

// Not synchronised with the disk: clients wait.
bool SaveRecording(const Recording &recording, const std::string &path, int files) {
  Head head{};
  head.magic = kMagic;
  head.layout = kLayout;
  head.slotBytes = sizeof(Slot);
  head.clockOffsetUs = recording.clockOffsetUs;
  const std::string latest = SavedFile(path, 1);
  const Replacement replacement(latest.c_str());
  const UniqueFd file = replacement.Create(0600);
  if (!file.valid() || !WriteAll(file.get(), std::as_bytes(std::span(&head, 1))) ||
      !WriteAll(file.get(), std::as_bytes(std::span(recording.slots)))) {
    return false;
  }
  for (int place = files - 1; place > 0; --place) {
    std::rename(SavedFile(path, place).c_str(), SavedFile(path, place + 1).c_str());
  }
  return ::rename(replacement.building(), latest.c_str()) == 0;
}

}  // namespace zor::recorder
