// Server-sent events to one page. What it has not read waits in a bounded queue, shared with the other pages; a page
// that lets it overflow is dropped, and gets everything anew when it comes back.
#ifndef ZORWEB_EVENT_STREAM_H
#define ZORWEB_EVENT_STREAM_H

#include <microhttpd.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "programs/loop_watch.h"
#include "zorweb/traffic_filter.h"

namespace zor::web {

// An event as it travels. Pages share it, and it counts in the memory that all of them take.
class Event {
 public:
  explicit Event(std::string text) : text_(std::move(text)) { all_ += text_.size(); }
  Event(const Event &) = delete;
  Event &operator=(const Event &) = delete;
  ~Event() { all_ -= text_.size(); }

  const std::string &text() const { return text_; }
  // Bytes of all events that some page has still to read.
  static std::size_t all() { return all_; }

 private:
  static inline std::size_t all_ = 0;
  std::string text_;
};
using EventText = std::shared_ptr<const Event>;

// `data` has no line ends.
EventText MakeEvent(std::string_view name, std::string_view data);

// What a page shows besides the bus itself.
struct Wants {
  bool logs = false;
  bool traffic = false;
  TrafficFilter filter;
};

class EventStream {
 public:
  // `session` is what admits the page, as long as it is valid.
  EventStream(Wants wants, std::string session) : wants_(std::move(wants)), session_(std::move(session)) {}
  EventStream(const EventStream &) = delete;
  EventStream &operator=(const EventStream &) = delete;

  const Wants &wants() const { return wants_; }
  const std::string &session() const { return session_; }
  // No event reaches the page any more.
  bool ended() const { return ended_; }

  void Push(const EventText &event);
  // Once a second: after some silence a sign of life. A page that waits for an event is not watched otherwise, so that
  // one that has gone would keep its connection for as long as the bus is silent.
  void OnTick();
  // Cuts the page off.
  void Drop();

  // The server's side.
  void Attach(MHD_Connection *connection, daemon::LoopTimer &turn) {
    connection_ = connection;
    turn_ = &turn;
  }
  ssize_t Read(char *buffer, size_t room);
  void End();

 private:
  void Wake();

  Wants wants_;
  std::string session_;
  MHD_Connection *connection_ = nullptr;
  daemon::LoopTimer *turn_ = nullptr;  // lets the server see that the connection has resumed
  std::deque<EventText> queue_;
  size_t bytes_ = 0;   // in the queue
  size_t offset_ = 0;  // of the first event, which has been read in part
  int silent_ = 0;     // ticks since the latest event
  bool parked_ = false;
  bool dropped_ = false;
  bool ended_ = false;
};

}  // namespace zor::web

#endif
