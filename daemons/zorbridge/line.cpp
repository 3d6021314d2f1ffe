#include "zorbridge/line.h"

#include <algorithm>
#include <utility>

namespace zor::bridge {
namespace {

constexpr std::chrono::seconds kFarewellTime(1);
// The library counts in whole seconds.
constexpr std::chrono::seconds kTickSlack(1);
constexpr int kFirstRefusal = 128;
// So many in a row are no accident.
constexpr int kShortLines = 3;
// Answers to what is read are stored until the broker takes them, which it need not do.
constexpr int kMostReadsUnanswered = 256;

std::size_t SizeOf(const Publication &publication) {
  return publication.topic.size() + publication.payload.size() + publication.responseTo.size() +
         publication.correlation.size();
}

}  // namespace

BrokerLink::Line::Line(Options options, LinkListener &listener, daemon::ProblemLog &log)
    : options_(std::move(options)),
      listener_(listener),
      log_(log),
      retry_(options_.retry),
      said_(options_.brokers.size()),
      resolver_(OnLookedUp, this),
      underWay_(std::max<uint32_t>(options_.inFlight, 1), kMostUnderWay) {}

void BrokerLink::Line::OnSocket(void *self, uint32_t event) {
  auto &line = *static_cast<Line *>(self);
  if (line.session_ == nullptr) return;
  if (event == UV_READABLE) {
    line.session_->Read();
    ++line.readsUnanswered_;
  }
  // Answers to what has been read go out at once.
  if (event == UV_WRITABLE || line.session_->wantsToWrite()) line.session_->Write();
  line.Settle();
}

void BrokerLink::Line::OnTimer(void *self) {
  auto &line = *static_cast<Line *>(self);
  switch (line.state_) {
    case State::kPause:
      return line.Attempt();
    case State::kLookUp:
      line.resolver_.Cancel();
      return line.FailAttempt("its name cannot be looked up: there is no answer", false);
    case State::kConnect:
      line.Close();
      return line.TryAddresses("it does not answer");
    case State::kOpen:
      return line.Tick();
    case State::kStopping:
      if (line.session_ != nullptr) line.session_->Disconnect();
      return line.Finish();
    case State::kStopped:
      return;
  }
}

void BrokerLink::Line::Tick() {
  const auto now = Clock::now();
  const auto oldest = underWay_.oldest();
  if (oldest && now >= *oldest + options_.ackTime) return SessionEnded("the broker does not acknowledge", false);
  if (now >= keepAliveDue_) {
    session_->KeepAlive();
    if (now >= writtenAt_ + keepAlive_) writtenAt_ = now;  // it has sent a ping
    keepAliveDue_ = writtenAt_ + keepAlive_ + kTickSlack;
  }
  Settle();
}

// Acts on what has happened in a session, after each call of it by the loop.
void BrokerLink::Line::Settle() {
  TellRefusals();
  for (auto events = session_->TakeEvents(); !events.empty(); events = session_->TakeEvents()) {
    for (const SessionEvent &event : events) Take(event);
  }
  if (!session_->ended() && !session_->wantsToWrite()) {
    underWay_.AllSent();
    readsUnanswered_ = 0;
  }
  if (state_ == State::kOpen && blocked_ && underWay_.HasRoomFor(blocked_->first, blocked_->second)) {
    blocked_.reset();
    listener_.OnRoom();
  }
  if (session_->ended()) return SessionEnded(WhyEnded(), session_->refused() || shortLines_ >= kShortLines);
  socket_.Await(UV_WRITABLE, session_->wantsToWrite());
  socket_.Await(UV_READABLE, !session_->wantsToWrite() || readsUnanswered_ < kMostReadsUnanswered);
  if (state_ != State::kOpen) return;
  const auto oldest = underWay_.oldest();
  timer_.Set(oldest ? std::min(*oldest + options_.ackTime, keepAliveDue_) : keepAliveDue_);
  if (!refusals_.empty()) timer_.Set(Clock::now());
}

void BrokerLink::Line::Take(const SessionEvent &event) {
  switch (event.kind) {
    case SessionEvent::Kind::kAccepted:
      return Accepted(event.code);
    case SessionEvent::Kind::kSubscribed:
      if (event.code >= kFirstRefusal) {
        log_.Print("broker %s: a subscription is refused: %s", broker().Text().c_str(), ReasonText(event.code).c_str());
      }
      return Opened();
    case SessionEvent::Kind::kDelivery:
      Opened();  // it may come before the answer to the subscription
      if (event.code > 0) writtenAt_ = Clock::now();
      return listener_.OnDelivery(event.delivery);
    case SessionEvent::Kind::kPublished:
      return Acknowledged(event);
  }
}

void BrokerLink::Line::Accepted(int keepAliveSeconds) {
  keepAlive_ = std::chrono::seconds(keepAliveSeconds > 0 ? keepAliveSeconds : options_.keepAliveSeconds);
  writtenAt_ = Clock::now();
  keepAliveDue_ = writtenAt_ + keepAlive_ + kTickSlack;
  if (options_.subscriptions.empty()) return Opened();
  session_->Subscribe(options_.subscriptions, options_.retainedToo);
}

void BrokerLink::Line::Opened() {
  if (state_ != State::kConnect) return;
  state_ = State::kOpen;
  openedAt_ = Clock::now();
  figures_.since = std::chrono::system_clock::now();
  figures_.problem.clear();
  if (++figures_.connects == 1 || failureSaid_) log_.Print("connected to broker %s", broker().Text().c_str());
  failureSaid_ = false;
  listener_.OnConnected();
}

void BrokerLink::Line::Acknowledged(const SessionEvent &event) {
  const std::optional<uint64_t> token = underWay_.Take(event.id);
  if (!token) return;
  // The broker lives, and has heard of us: while that goes on, nothing needs to be done for the keep-alive.
  keepAliveDue_ = std::max(keepAliveDue_, writtenAt_ + keepAlive_ + kTickSlack);
  if (state_ == State::kStopping && event.id == farewellId_) SayGoodbye();
  if (event.code >= kFirstRefusal) {
    const std::string why = ReasonText(event.code);
    log_.Print("broker %s: a publication is refused: %s", broker().Text().c_str(), why.c_str());
    if (*token != 0) listener_.OnRefused(*token, why);
  } else if (*token != 0) {
    listener_.OnAcknowledged(*token);
  }
}

void BrokerLink::Line::TellRefusals() {
  for (const Refusal &each : std::exchange(refusals_, {})) listener_.OnRefused(each.token, each.why);
}

bool BrokerLink::Line::Publish(const Publication &publication) {
  if (state_ != State::kOpen || session_->ended()) return false;
  const std::size_t size = SizeOf(publication);
  if (!underWay_.HasRoomFor(publication.qos, size)) {
    blocked_ = {publication.qos, size};
    return false;
  }
  return Send(publication);
}

bool BrokerLink::Line::Send(const Publication &publication) {
  std::string problem;
  const Session::Sent sent = session_->Publish(publication, &lastId_, &problem);
  if (sent == Session::Sent::kBroken) {
    timer_.Set(Clock::now());
    return false;
  }
  if (sent == Session::Sent::kRefused) {
    log_.Print("%s cannot be published: %s", publication.topic.c_str(), problem.c_str());
    if (publication.token != 0) refusals_.push_back({publication.token, problem});
    timer_.Set(Clock::now());
    return true;
  }
  writtenAt_ = Clock::now();
  if (publication.qos > 0) {
    underWay_.Add(lastId_, publication.token, SizeOf(publication));
    timer_.SetSooner(writtenAt_ + options_.ackTime);
  } else {
    underWay_.AddUnsent(SizeOf(publication));
  }
  const bool more = session_->wantsToWrite();
  if (!more) underWay_.AllSent();
  socket_.Await(UV_WRITABLE, more);
  return true;
}

void BrokerLink::Line::Stop(const Publication &farewell) {
  if (state_ == State::kStopping || state_ == State::kStopped) return;
  const bool open = std::exchange(state_, State::kStopping) == State::kOpen;
  resolver_.Cancel();
  timer_.Set(Clock::now() + (open ? kFarewellTime : std::chrono::seconds(0)));
  if (!open) return Close();
  if (farewell.topic.empty() || !Send(farewell) || farewell.qos == 0) return SayGoodbye();
  farewellId_ = lastId_;
}

void BrokerLink::Line::SayGoodbye() {
  session_->Disconnect();
  if (session_->ended())
    timer_.Set(Clock::now());
  else
    socket_.Await(UV_WRITABLE, true);
}

// A broker may close the connection of a client whose name another one takes without telling it why.
std::string BrokerLink::Line::WhyEnded() {
  const bool isShort =
      state_ == State::kOpen && session_->closed() && Clock::now() - openedAt_ < options_.retry.lasting;
  shortLines_ = isShort ? shortLines_ + 1 : 0;
  if (shortLines_ < kShortLines) return session_->why();
  return session_->why() + " soon after it was accepted, again and again: is there a second gateway with the name " +
         options_.clientId + '?';
}

void BrokerLink::Line::SessionEnded(const std::string &why, bool refused) {
  Close();
  if (state_ == State::kStopping) return Finish();
  if (state_ == State::kConnect) {
    if (refused) return FailAttempt(why, true);
    return TryAddresses(why);
  }
  ++figures_.failures;
  figures_.problem = why;
  figures_.since.reset();
  // A good line is worth the first choice again; one that did not last is not.
  const bool lasted = retry_.Ended(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - openedAt_));
  if (lasted) said_.assign(said_.size(), {});
  Say(why);
  PauseThen(lasted ? 0 : at_ + 1, refused);
  listener_.OnDisconnected(why);
}

void BrokerLink::Line::Close() {
  session_.reset();
  socket_.Close();
  readsUnanswered_ = 0;
  underWay_.Clear();
  refusals_.clear();
  blocked_.reset();
}

void BrokerLink::Line::Finish() {
  Close();
  state_ = State::kStopped;
  timer_.Park();
  listener_.OnStopped();
}

}  // namespace zor::bridge
