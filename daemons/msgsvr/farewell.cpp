#include "msgsvr/farewell.h"

#include <sys/ioctl.h>

#include <algorithm>

namespace zor::msgsvr {

void Farewell::Say(Clock::duration time) {
  const bool watched = poll_.valid() && poll_.Add(signals_.fd(), EPOLLIN, &signals_);
  for (Client &client : bus_.clients) {
    if (!client.output.empty()) poll_.Add(client.socket.get(), EPOLLOUT, &client);
  }
  const Clock::time_point end = Clock::now() + time;
  for (Clock::time_point now = Clock::now(); watched && now < end && !hurried_ && SomethingQueued();
       now = Clock::now()) {
    HandleEvents(static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
  }
  for (Client &client : bus_.clients) NameWhatIsLeft(client);
}

// Copies for monitors are not worth waiting for.
bool Farewell::SomethingQueued() const {
  return std::any_of(bus_.clients.begin(), bus_.clients.end(), [](const Client &client) {
    return !client.ended && !client.deaf && Bus::MessagesFor(client) > 0;
  });
}

void Farewell::HandleEvents(int timeoutMs) {
  for (const epoll_event &event : poll_.Wait(timeoutMs)) {
    if (event.data.ptr == &signals_) {
      hurried_ = signals_.Take() == daemon::ServerSignals::Request::kStop || hurried_;
      continue;
    }
    Client &client = *static_cast<Client *>(event.data.ptr);
    delivery_.FlushQueue(client);
    // One that needs nothing, or can take nothing, is not asked about again.
    if (client.deaf || client.output.empty()) poll_.Remove(client.socket.get());
  }
}

void Farewell::NameWhatIsLeft(Client &client) const {
  int unread = 0;
  if (client.ended || ::ioctl(client.socket.get(), FIONREAD, &unread) != 0 || unread == 0) return;
  bus_.log.Print("%s: %d bytes from it are not routed any more", client.Label().c_str(), unread);
}

}  // namespace zor::msgsvr
