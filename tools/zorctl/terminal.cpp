#include "zorctl/terminal.h"

#include <fcntl.h>
#include <langinfo.h>
#define NCURSES_NOMACROS  // functions, in no conflict with names of the library
#include <ncursesw/curses.h>
#include <unistd.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <string_view>

#include "zorctl/exit_code.h"
#include "zorctl/output.h"
#include "zorctl/text.h"

namespace zor::ctl {
namespace {

constexpr short kAlarmColours = 1, kWarningColours = 2;

// Lines are UTF-8 whatever the user's locale is.
void SetUtf8() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(::nl_langinfo(CODESET)) != "UTF-8") std::setlocale(LC_CTYPE, "C.UTF-8");
}

int InputDescriptor() {
  if (::isatty(STDIN_FILENO) == 1) return ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  return ::open("/dev/tty", O_RDONLY | O_CLOEXEC);
}

std::FILE *Open(int fd, const char *mode) {
  return fd < 0 ? nullptr : ::fdopen(fd, mode);
}

attr_t AttributesOf(Style style, bool colours) {
  switch (style) {
    case Style::kPlain:
      return A_NORMAL;
    case Style::kBold:
      return A_BOLD;
    case Style::kDim:
      return A_DIM;
    case Style::kTitle:
      return A_BOLD | A_UNDERLINE;
    case Style::kSelected:
      return A_REVERSE;
    case Style::kWarning:
      return colours ? static_cast<attr_t>(COLOR_PAIR(kWarningColours)) : A_BOLD;
    case Style::kAlarm:
      return A_BOLD | (colours ? static_cast<attr_t>(COLOR_PAIR(kAlarmColours)) : A_UNDERLINE);
  }
  return A_NORMAL;
}

struct KeyCode {
  int code;
  Key key;
};
constexpr std::array kKeys = {
    KeyCode{'\n', Key::kEnter},
    KeyCode{'\r', Key::kEnter},
    KeyCode{KEY_ENTER, Key::kEnter},
    KeyCode{27, Key::kEscape},
    KeyCode{KEY_BACKSPACE, Key::kBackspace},
    KeyCode{127, Key::kBackspace},
    KeyCode{'\b', Key::kBackspace},
    KeyCode{KEY_UP, Key::kUp},
    KeyCode{KEY_DOWN, Key::kDown},
    KeyCode{KEY_PPAGE, Key::kPageUp},
    KeyCode{KEY_NPAGE, Key::kPageDown},
    KeyCode{KEY_HOME, Key::kHome},
    KeyCode{KEY_END, Key::kEnd},
};

}  // namespace

Terminal::Terminal()
    : input_(Open(InputDescriptor(), "r")),
      output_(Open(::fcntl(OutputDescriptor(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1), "w")) {
  if (input_ == nullptr || output_ == nullptr) {
    throw Failure(kExitFailure, "cannot open the terminal", "use --batch");
  }
  SetUtf8();
  guard_.emplace(::fileno(output_.get()));
  screen_ = ::newterm(nullptr, output_.get(), input_.get());
  if (screen_ == nullptr) {
    const char *type = std::getenv("TERM");
    throw Failure(kExitFailure, "cannot draw on a terminal of type " + Escape(type == nullptr ? "" : type),
                  "set TERM, or use --batch");
  }
  guard_->Arm();
  ::cbreak();
  ::noecho();
  ::nonl();
  ::keypad(stdscr, TRUE);
  ::nodelay(stdscr, TRUE);
  ::set_escdelay(25);
  ::curs_set(0);
  colours_ = WantsColour() && ::has_colors() && ::start_color() == OK && ::use_default_colors() == OK;
  if (!colours_) return;
  ::init_pair(kAlarmColours, COLOR_RED, -1);
  ::init_pair(kWarningColours, COLOR_YELLOW, -1);
}

Terminal::~Terminal() {
  if (screen_ == nullptr) return;
  ::endwin();
  ::delscreen(screen_);
}

int Terminal::fd() const {
  return ::fileno(input_.get());
}

std::optional<Press> Terminal::Read() {
  for (int code = ::getch(); code != ERR; code = ::getch()) {
    if (code == KEY_RESIZE) {
      ::clearok(stdscr, TRUE);
      continue;
    }
    for (const KeyCode &each : kKeys) {
      if (each.code == code) return Press{each.key};
    }
    if (code >= ' ' && code <= '~') return Press{Key::kCharacter, static_cast<char>(code)};
  }
  return std::nullopt;
}

Size Terminal::size() const {
  return {static_cast<size_t>(std::max(getmaxy(stdscr), 0)), static_cast<size_t>(std::max(getmaxx(stdscr), 0))};
}

void Terminal::Draw(const Screen &lines) {
  ::erase();
  for (size_t row = 0; row < lines.size(); ++row) {
    ::move(static_cast<int>(row), 0);
    for (const Span &span : lines[row]) {
      ::attrset(static_cast<int>(AttributesOf(span.style, colours_)));
      ::addstr(span.text.c_str());  // the last cell of the screen reports an error, although it is drawn
    }
  }
  ::attrset(static_cast<int>(A_NORMAL));
  ::refresh();
}

}  // namespace zor::ctl
