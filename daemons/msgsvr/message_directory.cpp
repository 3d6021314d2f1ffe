#include "msgsvr/message_directory.h"

#include <sys/stat.h>
#include <zor/paths.h>

#include "programs/capability.h"
#include "programs/paths.h"

namespace zor::msgsvr {
namespace {

// Daemons that run as other users are members of the server's group; new files in the directory get that group.
constexpr mode_t kOpenMode = 02770;
// Names are random, so who cannot list them cannot open another's file before the server has taken it over.
constexpr mode_t kListing = S_IRGRP | S_IROTH;

void Guard(const char *path, daemon::ProblemLog &log) {
  struct stat status;
  if (::stat(path, &status) != 0) return log.PrintErrno("%s", path);
  const mode_t mode = status.st_mode & ALLPERMS;
  const mode_t guarded = (mode & ~kListing) | S_ISVTX;
  if (mode == guarded || ::chmod(path, guarded) == 0) return;
  log.PrintErrno("%s: whoever may write to it can replace the body files of others: its mode cannot be set", path);
}

}  // namespace

bool MakeMessageDirectory(daemon::ProblemLog &log) {
  if (!daemon::MakeDirectory(ZOR_PATH_MSG_FILE_DIR, kOpenMode)) {
    log.PrintErrno("%s: cannot create the directory", ZOR_PATH_MSG_FILE_DIR);
    return false;
  }
  const std::string path = daemon::FixedPath(ZOR_PATH_MSG_FILE_DIR);
  struct stat status;
  if (daemon::HasCapability(CAP_CHOWN)) {
    Guard(path.c_str(), log);
  } else if (::stat(path.c_str(), &status) == 0 && (status.st_mode & S_ISVTX) != 0) {
    log.Print(
        "%s: clients cannot delete the body files of other users: CAP_CHOWN is missing, with which they would "
        "get files of their own",
        path.c_str());
  }
  return true;
}

}  // namespace zor::msgsvr
