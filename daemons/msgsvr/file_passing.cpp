#include "msgsvr/file_passing.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace zor::msgsvr {

// A frame and the file that it names, which is removed unless the frame has been delivered.
class FilePassing::PassedFile {
 public:
  PassedFile() = default;
  // The frame itself.
  PassedFile(const BodyFiles &files, std::span<const std::byte> frame)
      : files_(&files), frame_(frame.begin(), frame.end()) {}
  // The frame with another file, which `make` makes when there is memory for the frame; invalid if it makes none.
  template <typename Make>
  PassedFile(const BodyFiles &files, const Frame &frame, Make make) {
    frame_.resize(ZOR_MSG_HEAD_SIZE + ZOR_MSG_FILE_PATH_SIZE);
    const std::optional<BodyFiles::Body> body = make();
    if (!body) return;
    ZOR_MSG_HEAD head = frame.head;
    head.bodyLength = ZOR_MSG_FILE_PATH_SIZE;
    std::memcpy(frame_.data(), &head, sizeof head);
    std::memcpy(frame_.data() + sizeof head, body->data(), body->size());
    files_ = &files;
  }
  PassedFile(PassedFile &&other) noexcept
      : files_(std::exchange(other.files_, nullptr)), frame_(std::move(other.frame_)) {}
  PassedFile &operator=(PassedFile &&other) noexcept {
    std::swap(files_, other.files_);
    std::swap(frame_, other.frame_);
    return *this;
  }
  PassedFile(const PassedFile &) = delete;
  PassedFile &operator=(const PassedFile &) = delete;
  ~PassedFile() {
    if (files_ != nullptr) files_->Remove(frame_);
  }

  bool valid() const { return files_ != nullptr; }
  std::span<const std::byte> frame() const { return frame_; }
  void SetDelivered() { files_ = nullptr; }

 private:
  const BodyFiles *files_ = nullptr;
  std::vector<std::byte> frame_;
};

bool FilePassing::Check(Client &from, const Frame &frame) {
  replaced_ = false;
  const char *problem = bus_.files.Look(from, frame, sent_);
  if (problem == nullptr) return true;
  bus_.log.PrintOf(from.charge.holder(), "%s: refused a message of type 0x%x: its body %s", from.Label().c_str(),
                   frame.type(), problem);
  delivery_.Refuse(from, frame.bytes, frame.destination);
  return false;
}

// Whether the client gets the sender's own file. One that others may write to is copied for everybody.
bool FilePassing::IsShared(const Client &to) const {
  return !bus_.files.gives() || (to.peer.uid == sent_.owner() && !sent_.isWritableByOthers());
}

// Sees to it that nobody else can open the file. False, with errno, if that is impossible. Where daemons run as the
// server's user, that is what nearly all run as, and changing the mode would cost a tenth of a round trip.
bool FilePassing::ShareWith(const Client &to) {
  if (bus_.files.gives()) return sent_.owner() == ::geteuid() || sent_.MakePrivate();
  if (to.peer.uid != sent_.owner() && !std::exchange(toldOpen_, true)) {
    bus_.log.Print(
        "body files go to clients of other users as they are, such as from user %u to %s: CAP_CHOWN is missing",
        sent_.owner(), to.Label().c_str());
  }
  return true;
}

void FilePassing::Forward(Client &from, Client &to, const Frame &frame) {
  const bool shared = IsShared(to);
  if (shared && ShareWith(to)) return delivery_.Forward(from, to, frame);
  PassedFile copy = shared ? PassedFile() : CopyFor(to, frame);
  if (!copy.valid()) {
    bus_.log.PrintOf(from.charge.holder(), "%s: refused a message of type 0x%x: its body file cannot be passed on: %s",
                     from.Label().c_str(), frame.type(), std::strerror(errno));
  } else if (delivery_.ForwardCopy(from, to, frame, copy.frame())) {
    copy.SetDelivered();
    replaced_ = true;
    return;
  }
  delivery_.DropUndelivered(from, frame.bytes, to.name);
}

void FilePassing::Publish(Client &from, const Frame &frame, std::span<Client *const> subscribers) {
  if (subscribers.empty()) return bus_.files.Remove(frame.bytes);
  auto files = FilesFor(from, subscribers, frame);
  replaced_ = std::ranges::none_of(files, [&](const PassedFile &file) {
    return file.valid() && BodyFiles::NameIn(file.frame()) == BodyFiles::NameIn(frame.bytes);
  });
  for (size_t i = 0; i < files.size(); ++i) {
    if (files[i].valid() && delivery_.SendEvent(*subscribers[i], files[i].frame())) files[i].SetDelivered();
  }
}

// One for each subscriber; invalid where there is none.
std::vector<FilePassing::PassedFile> FilePassing::FilesFor(const Client &from, std::span<Client *const> subscribers,
                                                           const Frame &frame) {
  std::vector<PassedFile> files(subscribers.size());
  for (size_t i = 0; i < files.size(); ++i) {
    files[i] = FileFor(subscribers, i, files, frame);
    if (!files[i].valid()) Drop(from, *subscribers[i]);
  }
  return files;
}

// The last one that may have it gets the sender's file itself, the others links. Copies are made once for each user.
FilePassing::PassedFile FilePassing::FileFor(std::span<Client *const> subscribers, size_t index,
                                             std::span<const PassedFile> made, const Frame &frame) {
  const BodyFiles &files = bus_.files;
  const Client &to = *subscribers[index];
  if (IsShared(to)) {
    if (!ShareWith(to)) return {};
    const auto rest = subscribers.subspan(index + 1);
    if (std::ranges::none_of(rest, [this](const Client *other) { return IsShared(*other); })) {
      return {files, frame.bytes};
    }
    return {files, frame, [&] { return files.Link(frame.bytes); }};
  }
  for (size_t i = 0; i < index; ++i) {
    if (!made[i].valid() || subscribers[i]->peer.uid != to.peer.uid) continue;
    return {files, frame, [&] { return files.Link(made[i].frame()); }};
  }
  return CopyFor(to, frame);
}

FilePassing::PassedFile FilePassing::CopyFor(const Client &to, const Frame &frame) {
  copiedBytes_ += sent_.size();
  return {bus_.files, frame, [&] { return bus_.files.Copy(sent_, to.peer.uid); }};
}

void FilePassing::Drop(const Client &from, Client &subscriber) {
  ++subscriber.counters.dropped;
  ++bus_.counters.dropped;
  bus_.log.PrintOf(from.charge.holder(), "%s: event from %s dropped: its body file cannot be passed on: %s",
                   subscriber.Label().c_str(), from.Label().c_str(), std::strerror(errno));
}

void FilePassing::EndFrame() {
  sent_.Close();
  if (!std::exchange(replaced_, false)) return;
  sent_.Remove();
  delivery_.FlushPosted();
}

}  // namespace zor::msgsvr
