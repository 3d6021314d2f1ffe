#include "zorweb/http.h"

#include "common/ascii.h"

namespace zor::web {

Reply PlainReply(unsigned status, std::string text) {
  return {status, kPlainText, std::move(text) + '\n', {}};
}

Reply Redirect(std::string to) {
  Reply reply = PlainReply(MHD_HTTP_SEE_OTHER, "See " + to);
  reply.headers.emplace_back(MHD_HTTP_HEADER_LOCATION, std::move(to));
  return reply;
}

std::string Exchange::Value(MHD_ValueKind kind, const char *name) const {
  const char *value = nullptr;
  size_t length = 0;
  if (connection_ == nullptr ||
      MHD_lookup_connection_value_n(connection_, kind, name, std::string_view(name).size(), &value, &length) !=
          MHD_YES ||
      value == nullptr) {
    return {};
  }
  return {value, length};
}

unsigned Exchange::CountHeaders(const char *name) const {
  std::pair<const char *, unsigned> found = {name, 0};
  const auto count = [](void *data, MHD_ValueKind, const char *key, const char *) -> MHD_Result {
    auto &[wanted, number] = *static_cast<std::pair<const char *, unsigned> *>(data);
    if (EqualIgnoringCase(key, wanted)) ++number;
    return MHD_YES;
  };
  if (connection_ != nullptr) MHD_get_connection_values(connection_, MHD_HEADER_KIND, count, &found);
  return found.second;
}

in_addr_t Exchange::peer() const {
  const MHD_ConnectionInfo *info =
      connection_ == nullptr ? nullptr : MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
  if (info == nullptr || info->client_addr->sa_family != AF_INET) return INADDR_ANY;
  return reinterpret_cast<const sockaddr_in *>(info->client_addr)->sin_addr.s_addr;
}

void Exchange::Answer(Reply reply) {
  if (isAnswered()) return;
  reply_ = std::move(reply);
  Resume();
}

void Exchange::Answer(std::shared_ptr<EventStream> stream) {
  if (isAnswered()) return;
  stream_ = std::move(stream);
  Resume();
}

void Exchange::Resume() {
  if (!suspended_ || connection_ == nullptr) return;
  suspended_ = false;
  MHD_resume_connection(connection_);
  turn_.Set(daemon::LoopTimer::Clock::now());
}

}  // namespace zor::web
