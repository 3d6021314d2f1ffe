#include "notifyserver/client.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "notifyserver/frame.h"
#include "programs/limits.h"
#include "programs/service_manager.h"

namespace zor::notifyserver {
namespace {

ucred PeerIn(const StandingRecord &record) {
  return {record.pid, record.uid, static_cast<gid_t>(-1)};
}

}  // namespace

Client::Client(UniqueFd socket, const ucred &peer, uint64_t id, Surroundings &surroundings)
    : socket_(std::move(socket)),
      id_(id),
      peer_(peer),
      shared_(surroundings),
      admission_(surroundings.guard, access::ReadIdentity(socket_.get())),
      charge_(surroundings.accounts, {peer.uid, peer.pid}),
      slot_(surroundings.journal, id),
      output_(slot_, surroundings.limits.queueBytes) {}

Client::Client(UniqueFd socket, const ClientRecord &record, Surroundings &surroundings)
    : counts(record.counts),
      socket_(std::move(socket)),
      id_(record.standing.id),
      peer_(PeerIn(record.standing)),
      shared_(surroundings),
      admission_(surroundings.guard,
                 record.standing.identity ? *record.standing.identity : access::ReadIdentity(socket_.get())),
      connectedAt_(TimeOf(record.standing.connectedAt)),
      charge_(surroundings.accounts, {peer_.uid, peer_.pid}),
      slot_(surroundings.journal, id_),
      output_(slot_, std::clamp<size_t>(record.queueBytes, surroundings.limits.queueBytes,
                                        limits::notifyserver::kMostQueueBytes)),
      mid_(record.standing.mid),
      registration_(record.standing.registration),
      since_(record.standing.since),
      isOperator_(record.standing.isOperator),
      requests_(record.standing.requests),
      outputBroken_(record.outputBroken),
      lost_(record.lost) {}

bool Client::Watch() {
  errno = ENOMEM;
  if (!slot_.valid()) return false;
  SaveRecord();
  waitsForOutput_ = reachable() && !output_.empty();
  const uint32_t events = waitsForOutput_ ? uint32_t{EPOLLIN} | uint32_t{EPOLLOUT} : uint32_t{EPOLLIN};
  return !ended_ && shared_.poll.Add(socket_.get(), events, this);
}

bool Client::Restore(const ClientRecord &record) {
  if (!slot_.valid() || !slot_.AppendInput(record.input)) return false;
  if (record.crashes > 0) slot_.EditNotes().crashes = record.crashes;
  awaited = FrameSize(record.input);
  for (const QueuedRecord &message : record.queue) {
    if (!output_.Push(message.bytes, message.sent)) return false;
  }
  UpdateCharge();
  return true;
}

StandingRecord Client::Standing() const {
  return {id_,           mid_,
          registration_, since_,
          isOperator_,   peer_.uid,
          peer_.pid,     Nanoseconds(connectedAt_),
          requests_,     shared_.guard.IdentityOf(subject())};
}

ClientRecord Client::Record() const {
  ClientRecord record;
  record.standing = Standing();
  record.socket = socket_.get();
  record.input.resize(slot_.inputBytes());
  slot_.CopyInput(record.input);
  record.queueBytes = output_.maxBytes();
  output_.ForEach([&record](std::span<const std::byte> bytes, size_t sent, int) {
    record.queue.push_back({{bytes.begin(), bytes.end()}, sent});
  });
  record.outputBroken = outputBroken_;
  record.lost = lost_;
  record.counts = counts;
  return record;
}

std::string Client::StoredName() const {
  return kStoredPrefix + std::to_string(id_);
}

Client::Text Client::Label() const {
  Text label;
  if (registered()) {
    std::snprintf(label.text_.data(), label.text_.size(), "module %u (pid %d)", mid_, peer_.pid);
  } else {
    std::snprintf(label.text_.data(), label.text_.size(), "an unregistered client (pid %d)", peer_.pid);
  }
  return label;
}

void Client::Register(uint32_t mid, uint64_t registration) {
  mid_ = mid;
  registration_ = registration;
  since_ = std::time(nullptr);
  SaveRecord();
}

void Client::SetOperator(bool isOperator) {
  if (isOperator == isOperator_) return;
  isOperator_ = isOperator;
  SaveRecord();
}

void Client::AddRequest(const Request &request) {
  requests_.push_back(request);
  SaveRecord();
}

void Client::SaveRecord() {
  bool saved = false;
  try {
    const StandingRecord standing = Standing();
    shared_.record.clear();
    daemon::FieldWriter writer(shared_.record);
    Describe(writer, standing);
    saved = slot_.valid() && writer.valid() && slot_.SetRecord(shared_.record);
  } catch (const std::bad_alloc &) {  // as without room
  }
  if (!saved) End("no memory for its record");
}

bool Client::Deliver(std::span<const std::byte> message) {
  if (!reachable() || !output_.Fits({message.size()})) {
    ++lost_;
    if (reachable()) End("its output queue is full");
    return false;
  }
  if (!output_.Push(message)) {
    ++lost_;
    return false;
  }
  ++counts.out;
  if (unflushed_ || waitsForOutput_) return true;
  unflushed_ = true;
  shared_.unflushed.push_back(this);
  return true;
}

void Client::Flush() {
  unflushed_ = false;
  if (!reachable()) return;
  const auto state = output_.Flush(socket_.get());
  if (state == daemon::OutputQueue::State::kBroken) return BreakOutput();
  UpdateCharge();
  WaitForOutput(state == daemon::OutputQueue::State::kBlocked);
}

bool Client::NeedsFlush() const {
  return output_.maxBytes() - output_.bytes() < shared_.limits.maxDataBytes + limits::notifyserver::kQueueOverhead;
}

void Client::End(const char *reason) {
  if (ended_) return;
  ended_ = true;
  reason_ = reason;
  shared_.ended.push_back(this);
}

Client::Unread Client::unread() const {
  Unread unread = {output_.bytesLeft(), output_.messageCount(), 0};
  int held = 0;
  if (::ioctl(socket_.get(), SIOCOUTQ, &held) == 0 && held > 0) unread.socket = static_cast<size_t>(held);
  return unread;
}

// A peer that no longer reads ends only after the data that it sent before is read. Any other failure would leave it
// waiting for messages that never come.
void Client::BreakOutput() {
  if (errno != EPIPE && errno != ECONNRESET) return End(std::strerror(errno));
  outputBroken_ = true;
  WaitForOutput(false);
}

void Client::WaitForOutput(bool on) {
  if (on == waitsForOutput_) return;
  const uint32_t events = on ? uint32_t{EPOLLIN} | uint32_t{EPOLLOUT} : uint32_t{EPOLLIN};
  if (!shared_.poll.Change(socket_.get(), events, this)) return End(std::strerror(errno));
  waitsForOutput_ = on;
}

void FlushAll(Surroundings &surroundings) {
  for (Client *client : surroundings.unflushed) client->Flush();
  surroundings.unflushed.clear();
}

void FlushFull(Surroundings &surroundings) {
  std::erase_if(surroundings.unflushed, [](Client *client) { return client->NeedsFlush() && (client->Flush(), true); });
}

}  // namespace zor::notifyserver
