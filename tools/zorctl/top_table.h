// The daemons as a table of fixed columns: the important ones first to stay when it is narrow.
#ifndef ZORCTL_TOP_TABLE_H
#define ZORCTL_TOP_TABLE_H

#include <string>
#include <vector>

#include "zorctl/screen_line.h"
#include "zorctl/top_data.h"

namespace zor::ctl {

class TopTable {
 public:
  // With those columns that fit; all of them where there is no limit.
  explicit TopTable(size_t columns);

  std::string Title() const;
  std::string RowText(const TopRow &row) const;

 private:
  std::vector<size_t> shown_;  // indices of columns
  size_t stateWidth_ = 0;
};

}  // namespace zor::ctl

#endif
