// Delivery of frames to clients.
//
// A forwarded frame stays in the receive buffer. Consecutive frames from one client to another form a run, which is
// sent with one system call, straight from that buffer if nothing is queued ahead of it. What the socket does not
// accept is queued. What does not fit the queue is refused: its receiver is slow, not dead, and gets what comes when it
// has read again. Nothing here ever blocks.
//
// If a message cannot be delivered, its sender gets a notice with the message's type, whether or not it was one-way,
// since only the sender knows; the body file, if there is one, is deleted.
#ifndef MSGSVR_DELIVERY_H
#define MSGSVR_DELIVERY_H

#include <array>
#include <span>

#include "msgsvr/bus.h"
#include "msgsvr/descriptor_shares.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

// The events watched on a client with an empty queue. Edge-triggered: no call per message to re-arm, and a paused
// client can be left unread.
inline constexpr uint32_t kClientEvents = EPOLLIN | EPOLLRDHUP | EPOLLET;

class Delivery {
 public:
  explicit Delivery(Bus &bus) : bus_(bus), descriptorShares_(bus) {}

  // Adds a frame to the run, which must be flushed before the receive buffer is reused. Throws std::bad_alloc, with
  // nothing changed.
  void Forward(Client &from, Client &to, const Frame &frame);
  // The same for a frame that takes another's place, which names its own body file. Nothing of it is sent before
  // FlushPosted. False if the client cannot take it. Throws std::bad_alloc, with nothing changed.
  bool ForwardCopy(Client &from, Client &to, const Frame &frame, std::span<const std::byte> copy);
  void FlushRun();

  // Sends one frame: at once, or with FlushPosted while a client's input is being routed. False if the client cannot
  // take it: the frame is lost, its body file is left alone. Throws std::bad_alloc before anything is sent.
  bool Send(Client &to, std::span<const std::byte> frame);
  // The same for the reply to a registration in the other byte order, which the frame is converted to.
  void SendInOtherOrder(Client &to, std::span<const std::byte> frame);
  // Sends the server's reply to a request.
  void Reply(Client &to, const Frame &request, uint32_t data = 0, std::span<const std::byte> body = {});
  // Notifies the sender that the message could not be delivered to that name. Its body file is left alone. Needs no
  // memory.
  void Refuse(Client &from, std::span<const std::byte> frame, const AppName &to);
  // The same, and deletes the body file, which must belong to the sender.
  void DropUndelivered(Client &from, std::span<const std::byte> frame, const AppName &to);
  void FlushPosted();
  // Everything that this frame of the receive buffer causes has happened, or will with FlushRun.
  void EndFrame(const Client &from, std::span<const std::byte> frame);
  // Passes a descriptor on to the client that received the sender's latest message.
  void PassDescriptor(Client &from, UniqueFd descriptor);

  // Copies for monitors and the recorder: a request to the server, before it is carried out; an event without
  // subscribers. FlushCopies sends, at the end of a turn, what was copied in it.
  void CopyRequest(const Frame &frame) {
    FlushRun();
    Copy(frame.bytes, AppName(), ZOR_CONTROL_DELIVERED);
  }
  void CopyUndelivered(const Frame &frame) { Copy(frame.bytes, AppName(), ZOR_CONTROL_UNDELIVERED); }
  void FlushCopies();

  // Call it when the client's socket has become writable.
  void FlushQueue(Client &client);

  // Sends an event to a subscriber, after the notice of events that it has missed, if it wants one. False if it cannot
  // take it, or there is no memory.
  bool SendEvent(Client &to, std::span<const std::byte> event);
  // Tells the senders of messages that went unread.
  void TellUndelivered();

  // A client whose queue a sender's message has taken past its half since the last call; null if there is none.
  Client *TakeCongested() { return std::exchange(congested_, nullptr); }

 private:
  void NoteForwarded(Client &from, Client &to, const ZOR_MSG_HEAD &head);
  void Slowed(Client &to);
  bool IsCopied() const { return bus_.recorder.on() || !bus_.monitors.empty(); }
  void Copy(std::span<const std::byte> frame, const AppName &receiver, uint32_t outcome);
  bool TrySend(Client &to, std::span<const std::byte> frame, std::span<const std::byte> onWire);
  bool TellGap(Client &to, std::span<const std::byte> event);
  void AddNotice(Client &to, uint32_t type, uint32_t sequence);
  void Commit(std::span<const std::byte> frames, uint64_t lastTarget);
  size_t OffsetOf(std::span<const std::byte> frames) const;
  bool IsAtWork(std::span<const std::byte> frame) const;
  size_t Write(Client &to, std::span<const std::byte> frames, daemon::Receiver receiver);
  size_t Post(Client &to, std::span<const std::byte> frame);
  void AddPosted(Client &client);
  size_t Queue(Client &to, std::span<const std::byte> frames, size_t sent);
  bool Push(Client &to, std::span<const std::byte> frame, size_t begun);
  void WatchForOutput(Client &to);
  bool Refused(Client &to, std::span<const std::byte> frame);
  void Missed(Client &to);
  void TakeBack(Client &to, std::span<const std::byte> frames);
  void LogLostDescriptor(const Client &to, const char *reason);

  Bus &bus_;
  DescriptorShares descriptorShares_;
  Client *runFrom_ = nullptr;
  Client *runTo_ = nullptr;
  std::span<const std::byte> run_;
  Client *posted_ = nullptr;  // first of the clients to which something was posted
  Client *congested_ = nullptr;
};

}  // namespace zor::msgsvr

#endif
