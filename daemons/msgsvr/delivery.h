// Delivery of frames to clients.
//
// A frame that is passed on stays in the receive buffer. Consecutive frames from one client to another become a run,
// which goes out in one system call, straight from that buffer when nothing is queued before it. What the socket does
// not take is queued; a client whose queue overflows is cut off. Nothing here ever waits.
//
// The rule for what cannot be delivered: the sender gets a notice with the type of its message, one-way or not, since
// only the sender knows which it was; and the body file, if there is one, is deleted.
#ifndef MSGSVR_DELIVERY_H
#define MSGSVR_DELIVERY_H

#include <span>

#include "msgsvr/bus.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

// What epoll watches on a client that has nothing queued. Edge-triggered: a message then costs no call to re-arm, and
// a client that is held can be left unread.
inline constexpr uint32_t kClientEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;

class Delivery {
 public:
  explicit Delivery(Bus &bus) : bus_(bus) {}

  // Adds a frame to the run, which must be flushed before the receive buffer is used again.
  void Forward(Client &from, Client &to, const Frame &frame);
  void FlushRun();

  // Sends one frame now. False when the client cannot take it: the frame is lost, a body file stays where it is.
  bool Send(Client &to, std::span<const std::byte> frame);
  // The answer of the server to a request.
  void Reply(Client &to, const Frame &request, uint32_t data = 0, std::span<const std::byte> body = {});
  // The notice that a message was not delivered to that name. The body file of the frame is left alone.
  void Refuse(Client &from, std::span<const std::byte> frame, const AppName &to);
  // The same, and deletes the body file, which must have been acceptable.
  void Undelivered(Client &from, std::span<const std::byte> frame, const AppName &to);
  // Passes a descriptor on to the client that got the sender's latest message.
  void PassDescriptor(Client &from, daemon::Fd descriptor);

  // Copies for monitors. What a client says to the server, before the server does it; an event that nobody wants; and
  // at the end of a turn, sends what has been copied in it.
  void CopyTaken(const Frame &frame) { Copy(frame.bytes, AppName(), ZOR_CONTROL_DELIVERED); }
  void CopyUnwanted(const Frame &frame) { Copy(frame.bytes, AppName(), ZOR_CONTROL_UNDELIVERED); }
  void FlushCopies();

  // To be called when the client's socket has become writable.
  void FlushQueue(Client &client);

  // A client whose queue has passed the half since the last call; null when there is none.
  Client *TakeCongested() { return std::exchange(congested_, nullptr); }

 private:
  void Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome);
  size_t Write(Client &to, std::span<const std::byte> frames);
  size_t Queue(Client &to, std::span<const std::byte> frames, size_t sent);
  void Queued(Client &to);
  void DescriptorLost(const Client &to);
  void Overflow(Client &to, std::span<const std::byte> rest);

  Bus &bus_;
  Client *runFrom_ = nullptr;
  Client *runTo_ = nullptr;
  std::span<const std::byte> run_;
  Client *congested_ = nullptr;
};

}  // namespace zor::msgsvr

#endif
