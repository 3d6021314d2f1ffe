#include "zorctl/mlog_file.h"

#include <zor/mlog_wire.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "zorctl/exit_code.h"
#include "zorctl/log_lines.h"

namespace zor::ctl {
namespace {

void AppendLines(std::vector<std::string> &lines, std::string_view text) {
  // A new file has a NUL behind its header.
  text.remove_prefix(std::min(text.find_first_not_of('\0'), text.size()));
  for (std::string &line : SplitLines(text)) lines.push_back(std::move(line));
}

// Without the line whose beginning is missing.
std::string_view WholeLines(std::string_view text) {
  const size_t end = text.find('\n');
  return end == text.npos ? std::string_view() : text.substr(end + 1);
}

// How much of the new text differs from the old one of the same place: whole lines.
std::string_view Changed(std::string_view before, std::string_view now) {
  if (now.size() != before.size()) return now;  // the file has grown, so nothing is behind its end
  const auto same = std::mismatch(now.rbegin(), now.rend(), before.rbegin());
  const auto different = static_cast<size_t>(now.rend() - same.first);
  if (different == 0) return {};
  const size_t end = now.find('\n', different - 1);
  return now.substr(0, end == now.npos ? now.size() : end + 1);
}

}  // namespace

std::optional<MlogImage> MlogImage::Of(std::string bytes) {
  const auto header = ReadMlogHeader(bytes);
  if (!header || header->offset > bytes.size()) return std::nullopt;
  return MlogImage{std::move(bytes), *header};
}

std::string_view MlogImage::Front() const {
  return all().substr(ZOR_MLOG_FILE_HEADER_SIZE, header.offset - ZOR_MLOG_FILE_HEADER_SIZE);
}

std::vector<std::string> MlogImage::Lines() const {
  std::vector<std::string> lines;
  AppendLines(lines, WholeLines(Remnant()));
  AppendLines(lines, Front());
  return lines;
}

MlogImage::News MlogImage::Since(const MlogImage &before) const {
  News news;
  const MlogHeader &now = header, &then = before.header;
  if (now.overturn == then.overturn && now.offset >= then.offset) {
    AppendLines(news.lines, all().substr(then.offset, now.offset - then.offset));
  } else if (now.overturn == then.overturn + 1 && now.offset <= then.offset && bytes.size() >= then.offset) {
    AppendLines(news.lines, Changed(before.Remnant(), all().substr(then.offset)));
    AppendLines(news.lines, Front());
  } else {
    news = {Lines(), true};
  }
  return news;
}

MlogImage ReadMlog(const std::string &path) {
  // The server may be writing: its header and its lines are not written at once.
  constexpr int kTries = 5;
  for (int i = 0; i < kTries; ++i) {
    std::ifstream file(path, std::ios::binary);
    // A directory opens as well.
    std::error_code unknown;
    const bool isDirectory = std::filesystem::is_directory(path, unknown);
    if (!file || isDirectory) {
      const int error = isDirectory ? EISDIR : errno;
      throw Failure(error == EACCES ? kExitRefused : kExitFailure, "cannot read " + path + ": " + std::strerror(error),
                    error == EACCES ? "run this as root or as a member of the file's group"
                                    : "check whether mlogserver runs, and its setting log_file");
    }
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    file.clear();
    file.seekg(0);
    std::string header(ZOR_MLOG_FILE_HEADER_SIZE, '\0');
    file.read(header.data(), static_cast<std::streamsize>(header.size()));
    if (i + 1 < kTries && !bytes.starts_with(header)) continue;
    if (auto image = MlogImage::Of(std::move(bytes))) return std::move(*image);
    break;
  }
  throw Failure(kExitFailure, path + " is no file of mlogserver", "check its setting log_file");
}

}  // namespace zor::ctl
