// The only barrier for exceptions: without memory, a call leaves the queue as it was.
#include "zorbridge/outbox.h"

#include <new>
#include <utility>

#include "zorbridge/outbox_state.h"

namespace zor::bridge {
namespace {

template <typename Function>
void Guarded(const std::unique_ptr<OutboxState> &state, Function function) noexcept {
  if (state == nullptr) return;
  try {
    function(*state);
  } catch (const std::bad_alloc &) {
    // Tried again with the next call.
  }
}

}  // namespace

Outbox::Outbox() = default;

Outbox::~Outbox() {
  Close();
}

daemon::ExitCode Outbox::Open(const Options &options, daemon::ProblemLog &problems) {
  try {
    auto state = std::make_unique<OutboxState>(options, problems);
    const daemon::ExitCode code = state->Open();
    if (code == daemon::kExitOk) state_ = std::move(state);
    return code;
  } catch (const std::bad_alloc &) {
    problems.Print("%s: no memory for the queue", options.path.c_str());
    return daemon::kExitFailure;
  }
}

void Outbox::Close() {
  Guarded(state_, [](OutboxState &state) { state.Close(); });
  state_.reset();
}

void Outbox::Keep(std::string_view topic, std::string_view group, std::string_view members) {
  Guarded(state_, [&](OutboxState &state) { state.Keep(topic, group, members); });
}

const Outbox::Record *Outbox::Next() {
  const Record *next = nullptr;
  Guarded(state_, [&next](OutboxState &state) { next = state.Next(); });
  return next;
}

void Outbox::HandedOut() {
  Guarded(state_, [](OutboxState &state) { state.HandedOut(); });
}

void Outbox::Acknowledged(std::uint64_t number) {
  Guarded(state_, [number](OutboxState &state) { state.Acknowledged(number); });
}

void Outbox::Rewind() {
  Guarded(state_, [](OutboxState &state) { state.Rewind(); });
}

std::optional<Outbox::Clock::time_point> Outbox::Due() const {
  return state_ == nullptr ? std::nullopt : state_->Due();
}

void Outbox::Write() {
  Guarded(state_, [](OutboxState &state) { state.Write(); });
}

Outbox::Figures Outbox::figures() const {
  return state_ == nullptr ? Figures() : state_->figures();
}

const std::string &Outbox::stream() const {
  static const std::string kNone;
  return state_ == nullptr ? kNone : state_->stream();
}

}  // namespace zor::bridge
