// The open pages, and what they get.
#ifndef ZORWEB_PAGES_H
#define ZORWEB_PAGES_H

#include <memory>
#include <string_view>
#include <vector>

#include "zorweb/event_stream.h"

namespace zor::web {

class Pages {
 public:
  using Stream = std::shared_ptr<EventStream>;

  void Add(Stream stream) { streams_.push_back(std::move(stream)); }
  // Drops those that `may` no longer admits, and forgets those that have ended.
  template <class May>
  void Prune(const May &may) {
    for (const Stream &each : streams_) {
      if (!may(each->session())) each->Drop();
    }
    std::erase_if(streams_, [](const Stream &each) { return each->ended(); });
  }

  // Once a second.
  void OnTick() const {
    for (const Stream &each : streams_) each->OnTick();
  }

  bool empty() const { return streams_.empty(); }
  const std::vector<Stream> &all() const { return streams_; }
  bool anyWants(bool Wants::*what) const {
    for (const Stream &each : streams_) {
      if (!each->ended() && each->wants().*what) return true;
    }
    return false;
  }
  // To all pages, or to those that want it.
  void Push(std::string_view name, std::string_view data, bool Wants::*what = nullptr) const {
    const EventText event = MakeEvent(name, data);
    for (const Stream &each : streams_) {
      if (what == nullptr || each->wants().*what) each->Push(event);
    }
  }

 private:
  std::vector<Stream> streams_;
};

}  // namespace zor::web

#endif
