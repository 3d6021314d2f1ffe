// Message files: bodies too long for the socket. The sender makes the file, the receiver deletes it; the server lets a
// message with such a body pass only when the file lies directly in the message directory, is a regular one and belongs
// to the sender's user, and deletes it when the message cannot be delivered. So nobody can make a daemon read or delete
// the file of another user.
#ifndef MSGSVR_BODY_FILES_H
#define MSGSVR_BODY_FILES_H

#include <optional>
#include <string>
#include <vector>

#include "msgsvr/client.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

class BodyFiles {
 public:
  // The message directory as it is opened, with its last slash.
  explicit BodyFiles(std::string directory) : directory_(std::move(directory)) {}

  // Whether the file that the frame's body names may be passed on for this sender.
  bool IsAcceptable(const Client &sender, const Frame &frame) const;

  // Makes a file of the server's own; the body that names it, or nothing when the system refuses.
  std::optional<std::vector<std::byte>> Create(std::span<const std::byte> content) const;

  // The following take frames whose file was acceptable.

  // Deletes the file; does nothing for a frame whose body is not in a file.
  void Remove(std::span<const std::byte> frame) const;
  // The frame again with a body file of its own, of the same content; nothing when the system refuses.
  std::optional<std::vector<std::byte>> Duplicate(const Frame &frame) const;
  // The first bytes of the file, at most that many; nothing when another file has taken its place meanwhile.
  std::optional<std::vector<std::byte>> Read(const Client &sender, const Frame &frame, size_t maxBytes) const;

 private:
  template <typename Make>
  std::optional<std::vector<std::byte>> MakeNamed(Make make) const;
  std::string PathOf(std::string_view name) const { return directory_ + std::string(name); }

  std::string directory_;
};

}  // namespace zor::msgsvr

#endif
