// Body files: bodies too long for the socket. The sender creates the file and the receiver deletes it. The server
// forwards such a message only if the file is a regular file directly in the message directory and owned by the
// sender's user, and deletes it if the message cannot be delivered. So no client can make a daemon read or delete
// another user's file.
#ifndef MSGSVR_BODY_FILES_H
#define MSGSVR_BODY_FILES_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "msgsvr/client.h"
#include "msgsvr/frames.h"

namespace zor::msgsvr {

class BodyFiles {
 public:
  // The real path of the message directory, with its trailing slash.
  explicit BodyFiles(std::string directory) : directory_(std::move(directory)) {}

  // Whether the frame's body names a body file of this sender.
  bool BelongsTo(const Client &sender, const Frame &frame) const;

  // Of a message: it names the file.
  using Body = std::array<std::byte, ZOR_MSG_FILE_PATH_SIZE>;
  // Creates a file owned by the server. Nothing if the system refuses.
  std::optional<Body> Create(std::span<const std::byte> content) const;

  bool Exists(const std::string &name) const;
  void RemoveNamed(const std::string &name) const;
  // Removes one that was created.
  void RemoveBody(const Body &body) const;

  struct Swept {
    size_t files;
    uint64_t bytes;
  };
  // Removes the files that have been there for a long time and belong to no message in transit, as `isInTransit` says
  // for a name. A file as old as that was left behind: by a sender that was killed before it sent the message, by a
  // receiver before it deleted the file, or by an earlier server.
  template <typename IsInTransit>
  Swept Sweep(IsInTransit isInTransit) const {
    Swept swept{0, 0};
    for (const std::string &name : OldFiles()) {
      if (!isInTransit(name)) RemoveOld(name, swept);
    }
    return swept;
  }

  // The following require a frame that passed BelongsTo.

  // The file's name in the directory.
  static std::string NameIn(std::span<const std::byte> frame);
  // Deletes the file; does nothing for a frame whose body is not in a file.
  void Remove(std::span<const std::byte> frame) const;
  // Returns a copy of the frame with a body file of its own and the same content; nothing if the system refuses.
  std::optional<std::vector<std::byte>> Duplicate(const Frame &frame) const;
  // Returns at most that many bytes from the start of the file; nothing if another file has replaced it since.
  std::optional<std::vector<std::byte>> Read(const Client &sender, const Frame &frame, size_t maxBytes) const;

 private:
  std::vector<std::string> OldFiles() const;
  void RemoveOld(const std::string &name, Swept &swept) const;
  template <typename Make>
  std::optional<Body> MakeNamed(Make make) const;
  // Takes no memory, so that files can be removed when there is none.
  class Path {
   public:
    const char *c_str() const { return text_.data(); }

   private:
    friend class BodyFiles;
    std::array<char, 4096> text_;  // the longest that the system takes
  };
  Path PathOf(std::string_view name) const;

  std::string directory_;
};

}  // namespace zor::msgsvr

#endif
