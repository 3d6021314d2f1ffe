#include "zorctl/monitor_sink.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <span>

#include "zorctl/copy_line.h"
#include "zorctl/exit_code.h"
#include "zorctl/output.h"
#include "zorctl/pcapng.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

class LineSink : public Sink {
 public:
  LineSink() : width_(OutputWidth()) { Print(Bold(Cut(CopyTitles(), width_)) + "\n"); }
  void Take(std::string_view, const messages::BusCopy &copy) override {
    if (copy.copy.missed > 0) PrintLine("... " + std::to_string(copy.copy.missed) + " missed");
    PrintLine(CopyLine(copy, conversations_.IsReply(copy)));
  }
  void Refresh(const Totals &) override { width_ = OutputWidth(); }

 private:
  void PrintLine(std::string line) const {
    if (width_ != std::string::npos) line = Cut(line, width_);
    Print(line += '\n');
  }

  size_t width_;  // asking the terminal for each line takes too long
  messages::Conversations conversations_;
};

class JsonSink : public Sink {
 public:
  void Take(std::string_view, const messages::BusCopy &copy) override {
    Print(CopyJsonLine(copy, conversations_.IsReply(copy)));
  }
  void Refresh(const Totals &) override {}

 private:
  messages::Conversations conversations_;
};

class FileSink : public Sink {
 public:
  explicit FileSink(const std::string &path) : path_(path) {
    std::signal(SIGXFSZ, SIG_IGN);  // write reports it
    const bool opened = path == "-" ? file_.Attach(OutputDescriptor(), kInterface) : file_.Open(path, kInterface);
    if (!opened) Fail();
  }
  void Take(std::string_view bytes, const messages::BusCopy &) override {
    if (!file_.Write(std::as_bytes(std::span(bytes)))) Fail();
  }
  void Refresh(const Totals &totals) override {
    if (!file_.Flush()) Fail();
    ShowProgress(totals.Text() + ", " + std::to_string(file_.bytes() / 1024) + " KiB");
  }

 private:
  static constexpr char kInterface[] = "bus";

  [[noreturn]] void Fail() {
    const int error = errno;
    if (path_ == "-" && error == EPIPE) throw OutputClosed();
    const std::string what = path_ == "-" ? "the output" : Escape(path_);
    throw Failure(kExitFailure, "cannot write " + what + ": " + std::strerror(error),
                  file_.bytes() == 0 ? "choose another file"
                                     : "the first " + std::to_string(file_.packets()) + " messages are in the file");
  }

  std::string path_;
  PcapngFile file_;
};

}  // namespace

std::unique_ptr<Sink> MakeLineSink() {
  return std::make_unique<LineSink>();
}

std::unique_ptr<Sink> MakeJsonSink() {
  return std::make_unique<JsonSink>();
}

std::unique_ptr<Sink> MakeFileSink(const std::string &path) {
  return std::make_unique<FileSink>(path);
}

}  // namespace zor::ctl
