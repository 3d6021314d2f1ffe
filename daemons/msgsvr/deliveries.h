// The messages delivered to a client that it has perhaps not read yet, oldest first. They convert a number of unread
// bytes into messages and the age of the oldest, and say who must be told, and which body files are left, when the
// client ends without having read them.
//
// The kernel does not say which messages a client has read, only, now and then, that nothing is left: then the record
// starts afresh. It is asked so rarely that it costs nothing, and the record is bounded.
#ifndef MSGSVR_DELIVERIES_H
#define MSGSVR_DELIVERIES_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace zor::msgsvr {

struct Delivered {
  uint32_t bytes;
  uint32_t timeMs;  // of the server's millisecond clock, which may wrap
  uint32_t type;
  uint32_t sequence;
  uint64_t from;  // id of the sender that is told when it goes unread; 0: nobody

  // The two bytes that carry one.
  bool isDescriptor() const { return bytes == 2; }
};

class Deliveries {
 public:
  struct Unread {
    uint64_t bytes;
    uint64_t messages;
    uint32_t oldestMs;  // age
    bool atLeast;       // the true values are larger: the record does not reach back far enough
  };

  struct File {
    uint64_t record;  // number of its message
    std::string name;
  };
  struct State {
    std::vector<Delivered> records;
    std::vector<File> files;
    uint64_t base = 0;  // number of the oldest record
  };
  Deliveries() = default;
  explicit Deliveries(State state);
  State state() const { return {records_, {files().begin(), files().end()}, base_}; }

  // Makes room for one more message, so that noting it cannot fail afterwards. Throws std::bad_alloc.
  // With `mayGrow`, which is asked for a number of bytes, the record grows; without, its oldest part is forgotten.
  template <typename MayGrow>
  void Reserve(bool bodyInFile, MayGrow mayGrow) {
    if (records_.size() == records_.capacity()) {
      if (records_.size() < kFirstRoom || mayGrow(records_.size() * sizeof(Delivered))) {
        records_.reserve(std::max(kFirstRoom, 2 * records_.size()));
      } else {
        Forget(records_.size() / 2);
      }
    }
    if (bodyInFile) ReserveFile();
  }
  void Add(const Delivered &delivered) {
    records_.push_back(delivered);
    if (delivered.isDescriptor()) ++descriptors_;
  }
  // Notes the body file of the message that is added next.
  void AddFile(std::string name) { files_->list.push_back({base_ + records_.size(), std::move(name)}); }
  // Removes the newest records: they were refused after all.
  void DropNewest(size_t count);
  // Everything has been read. Files stay noted until their reader has deleted them.
  template <typename Exists>
  void Clear(Exists exists) {
    ClearRecords();
    if (files_ == nullptr || files_->list.size() < files_->checkAt) return;
    std::erase_if(files_->list, [&](const File &file) { return !exists(file.name); });
    files_->checkAt = files_->list.size() * 2 + 1;
  }
  // Whether the client has read the newest record, since it has replied to it.
  bool IsNewest(uint32_t type, uint32_t sequence) const {
    return !records_.empty() && records_.back().type == type && records_.back().sequence == sequence;
  }

  size_t count() const { return records_.size(); }

  // Whether it is time to ask the kernel, and then either Clear or Trim.
  bool IsCheckDue() const { return records_.size() >= checkAt_; }
  // Forgets the oldest records beyond that many, and files that their reader has deleted.
  template <typename Exists>
  void Trim(size_t most, Exists exists) {
    if (records_.size() > most) Forget(records_.size() - most);
    ForgetReadFiles(exists);
    checkAt_ = CheckAt();
  }

  // Descriptors that it has perhaps not read, altogether and from one client.
  size_t descriptors() const { return descriptors_; }
  size_t DescriptorsFrom(uint64_t id) const;
  // All descriptors but the last so many have been read, and with them what precedes them.
  void KeepDescriptors(size_t count);

  // Describes this many unread bytes, which hold at least `queued` messages.
  Unread UnreadOf(uint64_t bytes, size_t queued, uint32_t nowMs) const;
  // The records that hold the last so many bytes.
  std::span<const Delivered> Newest(uint64_t bytes) const;
  // All that may be unread: whatever precedes a file that has been deleted was read.
  template <typename Exists>
  std::span<const Delivered> Unproven(Exists exists) {
    ForgetReadFiles(exists);
    return records_;
  }

  std::span<const File> files() const { return files_ == nullptr ? std::span<const File>() : files_->list; }
  size_t HeldBytes() const {
    const size_t ofFiles =
        files_ == nullptr ? 0 : sizeof *files_ + files_->list.capacity() * (sizeof(File) + kFileNameBytes);
    return records_.capacity() * sizeof(Delivered) + ofFiles;
  }

 private:
  struct Files {
    std::vector<File> list;
    size_t checkAt = 1;
  };

  template <typename Exists>
  void ForgetReadFiles(Exists exists) {
    size_t read = files().size();
    while (read > 0 && exists(files_->list[read - 1].name)) --read;
    if (read == 0) return;
    const uint64_t record = files_->list[read - 1].record;
    files_->list.erase(files_->list.begin(), files_->list.begin() + static_cast<std::ptrdiff_t>(read));
    if (record >= base_) Forget(static_cast<size_t>(record - base_) + 1);
  }
  void ReserveFile();
  void ClearRecords();
  uint32_t CheckAt() const { return static_cast<uint32_t>(std::max(kFirstCheck, records_.size() * 2)); }
  void CountDescriptors();
  void Forget(size_t count);

  std::vector<Delivered> records_;
  std::unique_ptr<Files> files_;  // null until the first one
  uint64_t base_ = 0;             // number of the oldest record
  uint32_t descriptors_ = 0;
  uint32_t checkAt_ = kFirstCheck;

  static constexpr size_t kFirstCheck = 4;
  static constexpr size_t kFirstRoom = 2;
  static constexpr size_t kFileNameBytes = 64;  // that a file's name costs at most
};

}  // namespace zor::msgsvr

#endif
