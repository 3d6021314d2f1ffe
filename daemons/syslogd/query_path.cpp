#include "syslogd/query_path.h"

#include <cstring>

#include "programs/paths.h"

namespace zor::syslogd {

std::string ResultPath(const ZOR_LOG_QUERY &query, const std::string &directory) {
  const std::string path(query.text, ::strnlen(query.text, sizeof query.text));
  const std::string start = directory + "/";
  if (path.size() == sizeof query.text || !path.starts_with(start)) return {};
  const std::string name = path.substr(start.size());
  if (name.empty() || name == "." || name == ".." || name.find('/') != name.npos) return {};
  return daemon::FixedPath(path);
}

}  // namespace zor::syslogd
