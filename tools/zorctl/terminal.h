// A terminal as a whole screen. Nothing is decided here: lines come in, keys go out.
#ifndef ZORCTL_TERMINAL_H
#define ZORCTL_TERMINAL_H

#include <cstdio>
#include <memory>
#include <optional>

#include "zorctl/screen_line.h"
#include "zorctl/terminal_guard.h"
#include "zorctl/top.h"

struct screen;

namespace zor::ctl {

class Terminal {
 public:
  // Throws Failure where there is no terminal, or none that can be drawn on.
  Terminal();
  ~Terminal();
  Terminal(const Terminal &) = delete;
  Terminal &operator=(const Terminal &) = delete;

  int fd() const;
  // The next key; no value if none is left, also after a change of size.
  std::optional<Press> Read();
  Size size() const;
  void Draw(const Screen &lines);

 private:
  struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
  };
  using File = std::unique_ptr<std::FILE, CloseFile>;

  File input_;
  File output_;
  std::optional<TerminalGuard> guard_;
  ::screen *screen_ = nullptr;
  bool colours_ = false;
};

}  // namespace zor::ctl

#endif
