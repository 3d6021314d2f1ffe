#include "notifyserver/intake.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "programs/journal/crash_mark.h"
#include "programs/journal/turn.h"
#include "programs/limits.h"

namespace zor::notifyserver {
namespace {

constexpr size_t kNoFrame = UINT32_MAX;

}  // namespace

void Intake::Read(Client &client) {
  const size_t kept = Begin(client);
  const std::span<std::byte> bytes = shared_.journal.buffer().first(kept + ReadSocket(client));
  size_t routed = 0;
  if (!client.ended() && client.slot().inputBytes() > kept) {
    const auto taken = RouteLong(client, bytes);
    if (!taken) return;
    routed = *taken;
  }
  routed = RouteFrames(client, bytes, routed);
  End(client, bytes.subspan(routed));
}

// Input that does not fit the buffer begins with a long frame.
void Intake::Resume(Client &client) {
  // The server before this one has perhaps not looked at it.
  if (client.awaited > ZOR_NOTIFY_HEAD_SIZE + MostData(client)) client.End("its frame is oversized");
  while (!client.ended() && client.slot().inputBytes() > shared_.journal.buffer().size()) {
    Begin(client);
    if (!RouteLong(client, {})) return;
    Abandon();
  }
  const size_t kept = Begin(client);
  if (client.ended() || client.slot().inputBytes() > kept) return Abandon();
  const std::span<std::byte> bytes = shared_.journal.buffer().first(kept);
  End(client, bytes.subspan(RouteFrames(client, bytes, 0)));
}

void Intake::Abandon() {
  daemon::LeaveTurn(shared_.journal);
}

size_t Intake::Begin(Client &client) {
  daemon::Journal &journal = shared_.journal;
  daemon::JournalSlot &slot = client.slot();
  journal.SetFrameAt(kNoFrame);
  if (client.awaited <= journal.buffer().size() / 2 && slot.inputBytes() <= journal.buffer().size()) {
    const size_t kept = daemon::BeginTurn(slot);
    journal.SetFrameAt(kNoFrame);
    return kept;
  }
  journal.readMessage().msg_len = 0;
  daemon::journal::Turn &turn = journal.EditTurn();
  turn.reader = slot.index();
  turn.kept = 0;
  turn.routed = 0;
  turn.crashes = slot.notes().crashes;
  journal.Commit();
  return 0;
}

void Intake::End(Client &client, std::span<const std::byte> rest) {
  client.awaited = FrameSize(rest);
  if (!daemon::EndTurn(client.slot(), rest)) client.End("no memory for what it sent");
  client.UpdateCharge();
}

// A connection that was reset, because the peer closed it with unread data, reports that before its last bytes.
size_t Intake::ReadSocket(Client &client) {
  ssize_t count = daemon::ReadInTurn(shared_.journal, client.socket(), {});
  if (count < 0 && errno == ECONNRESET) count = daemon::ReadInTurn(shared_.journal, client.socket(), {});
  if (count > 0) return static_cast<size_t>(count);
  if (count == 0 || errno == ECONNRESET) {
    client.End();
  } else if (errno != EAGAIN && errno != EINTR) {
    client.End(std::strerror(errno));
  }
  return 0;
}

size_t Intake::RouteFrames(Client &client, std::span<std::byte> bytes, size_t routed) {
  while (!client.ended()) {
    Parsed parsed = ParseFrame(bytes.subspan(routed), MostData(client));
    if (parsed.state == Parsed::State::kPartial) break;
    if (parsed.state == Parsed::State::kMalformed) {
      client.End(parsed.reason);
      break;
    }
    RouteAt(routed, client, parsed.frame);
    routed += parsed.frame.bytes.size();
    daemon::CommitRouted(shared_.journal, routed);
    FlushFull(shared_);
  }
  return routed;
}

std::optional<size_t> Intake::RouteLong(Client &client, std::span<const std::byte> bytes) {
  daemon::JournalSlot &slot = client.slot();
  const size_t before = slot.inputBytes();
  if (before + bytes.size() < client.awaited) {
    if (!slot.AppendInput(bytes)) client.End("no memory for what it sent");
    Abandon();
    client.UpdateCharge();
    return std::nullopt;
  }
  std::vector<std::byte> input;
  input.reserve(std::max(before, client.awaited));
  input.resize(before);
  slot.CopyInput(input);
  const size_t taken = client.awaited - std::min(before, client.awaited);
  std::vector<std::byte> rest;
  if (taken == 0) {
    rest.assign(input.begin() + static_cast<ptrdiff_t>(client.awaited), input.end());
    input.resize(client.awaited);
  } else {
    input.insert(input.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(taken));
  }
  Parsed parsed = ParseFrame(input, MostData(client));
  if (parsed.state == Parsed::State::kWhole) {
    RouteAt(0, client, parsed.frame);
  } else {
    client.End(parsed.reason);
  }
  slot.ClearInput();
  slot.EditNotes().crashes = 0;
  if (!slot.AppendInput(rest)) client.End("no memory for what it sent");
  client.awaited = FrameSize(rest);
  daemon::CommitRouted(shared_.journal, taken);
  FlushFull(shared_);
  return taken;
}

void Intake::RouteAt(size_t offset, Client &client, Frame &frame) {
  daemon::Journal &journal = shared_.journal;
  const bool fatal = offset == 0 && journal.turn().crashes >= daemon::kMostCrashes;
  journal.SetFrameAt(offset);
  if (fatal) {
    DropFatal(client, frame);
  } else {
    router_.Route(client, frame);
  }
  journal.SetFrameAt(kNoFrame);
}

void Intake::DropFatal(Client &client, const Frame &frame) {
  log_.PrintOf(client.holder(), "message 0x%x of %zu bytes from %s to module %u dropped: the server crashes at it",
               frame.head.msg_type, frame.bytes.size(), client.Label().c_str(), frame.head.des_id);
  router_.Refuse(client, frame);
}

// Before it registers, a client may send nothing longer than a registration.
size_t Intake::MostData(const Client &client) const {
  return client.registered() ? shared_.limits.maxDataBytes : limits::notifyserver::kRegistration;
}

}  // namespace zor::notifyserver
