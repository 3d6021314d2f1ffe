#include "msgsvr/hand_over.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <utility>

namespace zor::msgsvr {
namespace {

void Reply(Bus &bus, Delivery &delivery, uint32_t result, const std::string &text) {
  const std::optional<RestartRequest> request = std::exchange(bus.restartFor, std::nullopt);
  Client *client = request ? bus.Find(request->client) : nullptr;
  if (client == nullptr || client->deaf) return;
  const auto body = std::as_bytes(std::span(text).first(std::min<size_t>(text.size(), ZOR_MSG_INLINE_BODY_MAX)));
  delivery.Send(*client, BuildFrame(request->type, request->sequence, client->name, result, body));
}

}  // namespace

void HandOver::Confirm(Bus &bus, Delivery &delivery, const daemon::Inheritance &inherited) {
  Reply(bus, delivery, ZOR_CONTROL_OK, inherited.Json());
}

void HandOver::Continue() {
  const auto outcome = succession_.Continue();
  accepted_ = outcome == daemon::Succession::Outcome::kAccepted;
  if (accepted_) requested_ = true;
  if (outcome == daemon::Succession::Outcome::kRefused) RefuseRequest();
}

void HandOver::Advance() {
  if (std::exchange(accepted_, false)) return Execute();
  if (succession_.underWay()) return;
  requested_ = false;
  std::vector<int> unused;
  if (!succession_.Begin(MakeState(unused))) RefuseRequest();
}

// What is still to be said to senders is said first: only clients are in the state.
void HandOver::Execute() {
  requested_ = false;
  delivery_.FlushCopies();
  delivery_.TellUndelivered();
  std::vector<int> descriptors;
  const UniqueFd state = MakeState(descriptors);
  if (state.valid()) {
    succession_.Execute(state, descriptors);
  } else {
    succession_.Refuse(std::string("the state cannot be written: ") + std::strerror(errno));
  }
  RefuseRequest();
}

void HandOver::RefuseRequest() {
  Reply(server_.bus, delivery_, ZOR_CONTROL_UNCHANGED, succession_.reason());
}

// Invalid, with errno, if there is no memory for it.
UniqueFd HandOver::MakeState(std::vector<int> &descriptors) {
  try {
    ServerStateWriter writer(listeners_, BusRecordOf(server_.bus, server_.watch), server_.bus.restartFor);
    AddClients(server_, writer);
    descriptors = writer.descriptors();
    return writer.Finish();
  } catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return {};
  }
}

}  // namespace zor::msgsvr
