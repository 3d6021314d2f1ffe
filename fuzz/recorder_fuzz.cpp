// Recordings of a message server that has crashed: whatever is read is sound, and is written and read as the same.
#include <zor/control_wire.h>

#include <algorithm>
#include <span>
#include <string>

#include "fuzz.h"
#include "programs/recorder/reader.h"
#include "programs/recorder/recorder.h"

using namespace zor::recorder;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::string problem;
  const auto recording = ReadRecording(std::as_bytes(std::span(data, size)), problem);
  zor::fuzz::Require(recording.has_value() == problem.empty(), "either it is read or there is a reason");
  if (!recording) return 0;
  zor::fuzz::Require(recording->slots.size() + recording->damaged <= size / sizeof(Slot) + 1, "nothing is read twice");
  uint64_t before = 0;
  for (const Slot &slot : recording->slots) {
    zor::fuzz::Require(slot.number > before, "frames are in their order");
    before = slot.number;
    const std::string copy = CopyOf(slot, recording->clockOffsetUs, 0);
    zor::fuzz::Require(copy.size() == sizeof(ZOR_CONTROL_COPY) + slot.bytes, "a copy is whole");
  }
  Recorder successor;
  if (!successor.Start(1024, *recording)) return 0;
  const std::string content = successor.Content();
  const auto again = ReadRecording(std::as_bytes(std::span(content)), problem);
  zor::fuzz::Require(again && again->damaged == 0 && again->clockOffsetUs == recording->clockOffsetUs,
                     "a successor's recording is sound");
  zor::fuzz::Require(again->slots.size() == std::min<size_t>(recording->slots.size(), 1024),
                     "a successor has the latest frames");
  return 0;
}
