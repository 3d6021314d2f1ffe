// The screen of `top`: what is shown, and what keys change. Knows no terminal: keys come in, lines go out.
#ifndef ZORCTL_TOP_H
#define ZORCTL_TOP_H

#include <optional>
#include <string>

#include "zorctl/screen_line.h"
#include "zorctl/top_data.h"

namespace zor::ctl {

enum class Key { kCharacter, kEnter, kEscape, kBackspace, kUp, kDown, kPageUp, kPageDown, kHome, kEnd };

struct Press {
  Key key = Key::kCharacter;
  char character = 0;
};

class Top {
 public:
  Top(SortKey sort, std::string filter) : sort_(sort), filter_(std::move(filter)) {}

  void Show(TopData data);
  // What keeps the data from being current; empty: nothing.
  void SetTrouble(std::string trouble) { trouble_ = std::move(trouble); }
  void Take(const Press &press);
  bool finished() const { return finished_; }

  // At most as many lines as there are rows, none longer than the columns.
  Screen Draw(const Size &size);

 private:
  enum class Mode { kList, kFilter, kDetail, kHelp };
  // A daemon across samples.
  struct Identity {
    std::string name;
    std::string board;
    int pid;
    uint64_t since;
    size_t twin;
    friend bool operator==(const Identity &, const Identity &) = default;
  };

  static Identity IdentityOf(const TopRow &row);
  std::vector<TopRow> Rows() const { return RowsOf(data_, sort_, filter_); }
  // The place of the selected daemon; the first one if it is not there.
  size_t SelectedIn(const std::vector<TopRow> &rows) const;
  void Select(const std::vector<TopRow> &rows, size_t index);

  void TakeInList(const Press &press);
  void TakeInFilter(const Press &press);
  void TakeInDetail(const Press &press);
  void TakeCharacter(char character);
  bool Move(const Press &press);
  Screen DrawList(const Size &size) const;
  Screen DrawDetail(const Size &size);
  std::string Footer(size_t columns) const;

  TopData data_;
  std::string trouble_;
  SortKey sort_;
  std::string filter_;
  Mode mode_ = Mode::kList;
  std::optional<Identity> selected_;  // no value: whichever is first
  size_t scrolled_ = 0;               // lines, in the detail
  bool finished_ = false;
};

}  // namespace zor::ctl

#endif
