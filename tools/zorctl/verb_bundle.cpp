#include <algorithm>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "programs/format_time.h"
#include "programs/stop_signal.h"
#include "programs/version.h"
#include "zorctl/bundle/archive.h"
#include "zorctl/bundle/piece_process.h"
#include "zorctl/bundle/pieces.h"
#include "zorctl/bundle/privacy.h"
#include "zorctl/number_option.h"
#include "zorctl/options.h"
#include "zorctl/output.h"
#include "zorctl/text.h"
#include "zorctl/verbs.h"

namespace zor::ctl {
namespace {

constexpr Milliseconds kPieceTime{10000};
constexpr uint32_t kDefaultLimit = 16u << 20;
constexpr uint32_t kLeastLimit = 64u << 10;
constexpr size_t kManifestRoom = 16u << 10;
constexpr size_t kWorthKeeping = 4096;  // of the end of a piece that does not fit

// The pieces of a ticket. A piece that cannot be made is a line in the manifest; only the archive itself can fail.
class BundleVerb : public Verb {
 public:
  void Declare(Options &options) override {
    options.Add("FILE", path_, "The archive, .tar.gz or .tar.zst; by default it is named by the time").Type("");
    AddNumber(options, "--limit", limit_, "Bytes of all pieces together, before they are compressed", kLeastLimit)
        .ShowDefault();
  }

  ExitCode Run(const Common &common) override {
    if (path_.empty()) path_ = DefaultPath();
    const Deadline deadline = common.deadline();
    daemon::StopSignal stop;  // ignores the signal of a full file as well, which write reports
    Archive archive(path_);
    size_t left = limit_ - kManifestRoom;
    for (const Piece &piece : BundlePieces()) {
      Add(archive, piece, deadline, left, stop.fd());
      if (stop.Take()) throw Failure(kExitFailure, "interrupted", "nothing is left of the archive");
    }
    archive.Add("MANIFEST", Manifest());
    ShowProgress("");
    // Whatever the pieces took: packing is the point of it all.
    archive.Finish(Deadline(std::max(deadline.left(), kPieceTime)));
    Report(common);
    return kExitOk;
  }

 private:
  static std::string DefaultPath() {
    return "zor-bundle-" + daemon::FormatTime(std::time(nullptr), "%Y%m%d-%H%M%S", ::localtime_r) + ".tar.gz";
  }

  void Add(Archive &archive, const Piece &piece, const Deadline &deadline, size_t &left, int stop) {
    ShowProgress(piece.name);
    if (left < kWorthKeeping) return LeaveOut(piece, "no room within --limit");
    if (deadline.over()) return LeaveOut(piece, "no time was left");
    PieceResult made = RunPiece(piece.make, deadline.Within(kPieceTime), left, stop);
    if (!piece.isBinary) {
      // In a process as well: a text is whatever daemons wrote.
      const std::string raw = std::move(made.text);
      const PieceResult clean =
          RunPiece([&] { Print(Masked(WithoutSecrets(WholeLines(raw, made.cutBytes)), archive.scratch())); },
                   Deadline(kPieceTime), left, stop);
      made.text = clean.failed ? "" : clean.text;
      if (clean.failed) made.problem = clean.problem;
    } else if (made.cutBytes > 0) {
      made = {"", 0, true, "no room within --limit"};  // half of it is of no use
    }
    if (made.text.empty()) return LeaveOut(piece, made.problem.empty() ? "empty" : made.problem);
    archive.Add(piece.name, made.text);
    left -= std::min(left, made.text.size());
    included_ += piece.name + "  " + std::to_string(made.text.size()) + " bytes";
    if (made.cutBytes > 0) included_ += ", without the first " + std::to_string(made.cutBytes);
    if (made.failed) included_ += ", incomplete";
    if (!made.problem.empty()) included_ += ": " + WithoutSecrets(made.problem);
    included_ += "\n";
    ++count_;
  }

  // Without the rest of the line in which the cut is.
  static std::string_view WholeLines(std::string_view text, size_t cutBytes) {
    if (cutBytes == 0) return text;
    const size_t end = text.find('\n');
    return end == text.npos ? std::string_view() : text.substr(end + 1);
  }

  void LeaveOut(const Piece &piece, const std::string &why) {
    leftOut_ += piece.name + "  " + WithoutSecrets(why) + "\n";
    ++leftOutCount_;
  }

  std::string Manifest() const {
    return std::string("Made by zorctl ") + daemon::Version() + " at " +
           daemon::FormatTime(std::time(nullptr), "%Y-%m-%dT%H:%M:%SZ", ::gmtime_r) +
           "\nMAC and IP addresses are masked; values of settings like passwords are left out.\n\nIncluded:\n" +
           included_ + "\nLeft out:\n" + leftOut_ + "\nNever included:\n" + NeverIncluded();
  }

  void Report(const Common &common) const {
    if (common.json) {
      PrintJson({{"file", path_}, {"included", count_}, {"left_out", leftOutCount_}});
      return;
    }
    Print(Escape(path_) + ": " + std::to_string(count_) + " pieces\n");
    if (leftOutCount_ > 0) Print("\nleft out:\n" + EscapeLines(leftOut_));
  }

  std::string path_;
  uint32_t limit_ = kDefaultLimit;
  std::string included_, leftOut_;
  size_t count_ = 0, leftOutCount_ = 0;
};

}  // namespace

std::unique_ptr<Verb> MakeBundleVerb() {
  return std::make_unique<BundleVerb>();
}

}  // namespace zor::ctl
