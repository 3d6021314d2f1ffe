// Body files: bodies too long for the socket. The sender creates the file and the receiver deletes it. The server
// forwards such a message only if the file is a regular file directly in the message directory and owned by the
// sender's user, and deletes it if the message cannot be delivered. So no client can make a daemon read or delete
// another user's file.
//
// The directory is sticky: only a file's owner and the server can remove it or put another in its place. A receiver of
// another user than the sender's gets a copy that belongs to its user and that nobody else can read. It has to be a
// copy: a sender that keeps its file open, mapped or linked can write to it whatever becomes of its name and mode. The
// server needs CAP_CHOWN for that. Without, as usual where all run as one user, files are passed on as they are.
#ifndef MSGSVR_BODY_FILES_H
#define MSGSVR_BODY_FILES_H

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "msgsvr/client.h"
#include "msgsvr/frames.h"
#include "msgsvr/sent_file.h"

namespace zor::msgsvr {

class BodyFiles {
 public:
  // The real path of the message directory, with its trailing slash.
  explicit BodyFiles(std::string directory);

  // Whether files are given to the users of their receivers.
  bool gives() const { return gives_; }

  // Looks at the file that the frame's body names. Returns what is wrong with it, see SentFile::Look.
  const char *Look(const Client &sender, const Frame &frame, SentFile &file) const;

  // Of a message: it names the file.
  using Body = std::array<std::byte, ZOR_MSG_FILE_PATH_SIZE>;
  // Each makes a file that belongs to that user, if the server may give it away. Nothing, with errno, if the system
  // refuses.
  std::optional<Body> Create(std::span<const std::byte> content, uid_t user) const;
  std::optional<Body> Copy(SentFile &file, uid_t user) const;
  // Makes another name of a file.
  std::optional<Body> Link(std::span<const std::byte> frame) const;

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

  // The following require a frame whose body is in order.

  // The file's name in the directory.
  static std::string NameIn(std::span<const std::byte> frame);
  // Deletes the file; does nothing for a frame whose body is not in a file.
  void Remove(std::span<const std::byte> frame) const;

 private:
  std::vector<std::string> OldFiles() const;
  void RemoveOld(const std::string &name, Swept &swept) const;
  template <typename Make>
  std::optional<Body> MakeNamed(Make make) const;
  FilePath PathOf(std::string_view name) const { return {directory_, name}; }
  template <typename Fill>
  std::optional<Body> MakeFor(uid_t user, Fill fill) const;

  std::string directory_;
  bool gives_;
};

}  // namespace zor::msgsvr

#endif
