// Passes on messages whose body is in a file. A receiver of the sender's user gets the sender's file, one of another
// user a copy; see body_files.h.
#ifndef MSGSVR_FILE_PASSING_H
#define MSGSVR_FILE_PASSING_H

#include <optional>
#include <span>
#include <vector>

#include "msgsvr/delivery.h"
#include "programs/limits.h"

namespace zor::msgsvr {

class FilePassing {
 public:
  FilePassing(Bus &bus, Delivery &delivery) : bus_(bus), delivery_(delivery) {}

  // Begins a turn, in which only so much is copied.
  void BeginTurn() { copiedBytes_ = 0; }
  bool HasCopiedItsDue() const { return copiedBytes_ >= limits::msgsvr::kCopiedInTurn; }

  // Whether the sender may send the file that its frame names. If not, the frame is refused. What follows is about this
  // frame.
  bool Check(Client &from, const Frame &frame);
  // At most so many bytes from the start of the body.
  std::optional<std::vector<std::byte>> Read(size_t maxBytes) { return sent_.Read(maxBytes); }
  void Forward(Client &from, Client &to, const Frame &frame);
  // Each receiver deletes its file, so each gets a file of its own. All files exist before the first receiver gets its
  // event.
  void Publish(Client &from, const Frame &frame, std::span<Client *const> subscribers);
  // The frame's effects are complete: its file is closed, and removed if only copies of it were passed on. Not earlier,
  // since after a crash the frame would be routed again.
  void EndFrame();

 private:
  class PassedFile;

  bool IsShared(const Client &to) const;
  bool ShareWith(const Client &to);
  PassedFile CopyFor(const Client &to, const Frame &frame);
  PassedFile FileFor(std::span<Client *const> subscribers, size_t index, std::span<const PassedFile> made,
                     const Frame &frame);
  std::vector<PassedFile> FilesFor(const Client &from, std::span<Client *const> subscribers, const Frame &frame);
  void Drop(const Client &from, Client &subscriber);

  Bus &bus_;
  Delivery &delivery_;
  SentFile sent_;
  bool replaced_ = false;  // by copies
  size_t copiedBytes_ = 0;
  bool toldOpen_ = false;
};

}  // namespace zor::msgsvr

#endif
