// Looks at the bus for the pages: once a second while one is open, otherwise now and then, so that the plots of the
// next one do not begin empty.
#ifndef ZORWEB_BUS_FEED_H
#define ZORWEB_BUS_FEED_H

#include <zor/msg_wire.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "programs/bus_request.h"
#include "programs/bus_view/view.h"
#include "programs/loop_watch.h"
#include "zorweb/history.h"
#include "zorweb/losses.h"
#include "zorweb/pages.h"

namespace zor::web {

class BusFeed {
 public:
  BusFeed(const Pages &pages, std::chrono::seconds idlePeriod) : pages_(pages), idlePeriod_(idlePeriod) {}
  BusFeed(const BusFeed &) = delete;
  BusFeed &operator=(const BusFeed &) = delete;

  // Once a second.
  void OnTick();
  // All that is known, for a page that has just been opened.
  void Greet(EventStream &stream);
  void OnBusLost();
  void OnRejoined() { SetTrouble(""); }

  // The message server's list now, or why there is none. Valid during the call, which may come at once.
  using OnList = std::function<void(std::string_view list, const std::string &trouble)>;
  static void Ask(OnList then);

 private:
  void Look();
  void Take(std::string_view list);
  void SetTrouble(const std::string &trouble);
  std::string State() const;

  const Pages &pages_;
  std::chrono::seconds idlePeriod_;
  std::chrono::steady_clock::time_point lookedAt_;
  bool looking_ = false;
  std::string trouble_;  // why nothing is known; empty: nothing is wrong
  std::optional<busview::Sample> sample_;
  std::string view_;  // the latest, as an event's data
  History history_;
  Losses losses_;
};

}  // namespace zor::web

#endif
