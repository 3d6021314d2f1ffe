#include "msgsvr/recorder_store.h"

#include <string>

#include "programs/limits.h"
#include "programs/paths.h"
#include "programs/recorder/saved.h"
#include "programs/service_manager.h"

namespace zor::msgsvr {
namespace {

using recorder::Recording;

std::optional<Recording> RecordingIn(const UniqueFd &former, daemon::ProblemLog &log) {
  if (!former.valid()) return std::nullopt;
  std::string problem;
  auto recording = recorder::ReadRecording(former.get(), problem);
  if (!recording) log.Print("what the server before this one has recorded cannot be read: %s", problem.c_str());
  return recording;
}

void Save(const Recording &recording, const std::string &path, daemon::ProblemLog &log) {
  const std::string file = recorder::SavedFile(path, 1);
  if (recorder::SaveRecording(recording, path, limits::msgsvr::kRecorderFiles)) {
    log.Print("the latest %zu frames before the crash are in %s", recording.slots.size(), file.c_str());
  } else {
    log.PrintErrno("%s: the frames before the crash cannot be saved", file.c_str());
  }
}

}  // namespace

void StartRecorder(Bus &bus, UniqueFd former) {
  if (bus.settings.recorderFrames == 0) return;
  const auto recording = RecordingIn(former, bus.log);
  if (!bus.recorder.Start(bus.settings.recorderFrames, recording.value_or(Recording()))) {
    bus.log.PrintErrno("frames are not recorded");
  }
  bus.NoteWallClock();
}

// It is no longer stored when it is read: it would be read again if this crashed.
void KeepRecorder(Bus &bus, UniqueFd crashed) {
  if (bus.kept) {
    daemon::RemoveStoredDescriptors(kStoredRecorder);
    if (bus.recorder.on()) daemon::StoreDescriptor(kStoredRecorder, bus.recorder.fd());
  }
  bus.Try([&] {
    const auto recording = RecordingIn(crashed, bus.log);
    if (!recording || recording->slots.empty()) return;
    Save(*recording, daemon::FixedPath(bus.settings.recorderFile), bus.log);
  });
}

}  // namespace zor::msgsvr
