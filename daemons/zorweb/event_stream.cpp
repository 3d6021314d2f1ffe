#include "zorweb/event_stream.h"

#include <sys/socket.h>

#include <algorithm>

#include "programs/limits.h"

namespace zor::web {

EventText MakeEvent(std::string_view name, std::string_view data) {
  std::string text = "event: ";
  text.append(name).append("\ndata: ").append(data).append("\n\n");
  return std::make_shared<const Event>(std::move(text));
}

void EventStream::Push(const EventText &event) {
  if (ended_ || dropped_) return;
  const bool lags = bytes_ + event->text().size() > limits::zorweb::kStreamBytes;
  if ((lags || Event::all() > limits::zorweb::kUnreadBytes) && !queue_.empty()) return Drop();
  queue_.push_back(event);
  bytes_ += event->text().size();
  silent_ = 0;
  Wake();
}

void EventStream::OnTick() {
  if (++silent_ >= limits::zorweb::kBeatSeconds) Push(std::make_shared<const Event>(":\n\n"));
}

// The server does not ask for more while the page does not read, so its connection must fail.
void EventStream::Drop() {
  if (ended_ || dropped_) return;
  dropped_ = true;
  queue_.clear();
  bytes_ = offset_ = 0;
  if (connection_ == nullptr) return;
  const MHD_ConnectionInfo *info = MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info != nullptr) ::shutdown(info->connect_fd, SHUT_RDWR);
  Wake();
}

void EventStream::Wake() {
  if (!parked_) return;
  parked_ = false;
  MHD_resume_connection(connection_);
  turn_->Set(daemon::LoopTimer::Clock::now());
}

ssize_t EventStream::Read(char *buffer, size_t room) {
  if (dropped_) return MHD_CONTENT_READER_END_WITH_ERROR;
  size_t count = 0;
  while (count < room && !queue_.empty()) {
    const std::string &first = queue_.front()->text();
    const size_t part = std::min(room - count, first.size() - offset_);
    first.copy(buffer + count, part, offset_);
    count += part;
    offset_ += part;
    if (offset_ < first.size()) break;
    bytes_ -= first.size();
    offset_ = 0;
    queue_.pop_front();
  }
  if (count == 0) {
    parked_ = true;
    MHD_suspend_connection(connection_);
  }
  return static_cast<ssize_t>(count);
}

void EventStream::End() {
  ended_ = true;
  parked_ = false;
  connection_ = nullptr;
  queue_.clear();
}

}  // namespace zor::web
