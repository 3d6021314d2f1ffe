// The files in which recordings of crashed servers are kept. Those of a path are PATH.1, the latest, PATH.2 and so on.
#ifndef PROGRAMS_RECORDER_SAVED_H
#define PROGRAMS_RECORDER_SAVED_H

#include <string>

#include "programs/recorder/reader.h"

namespace zor::recorder {

// The path, unless the settings of msgsvr give another one.
inline constexpr char kSavedPath[] = "/var/lib/zor/msgsvr.recorder";

std::string SavedFile(const std::string &path, int place);

// Makes the recording the latest file, for its owner only, and removes the oldest if there are more than so many.
// False, with errno, if it cannot be written; then the files that are there stay as they are.
bool SaveRecording(const Recording &recording, const std::string &path, int files);

}  // namespace zor::recorder

#endif
