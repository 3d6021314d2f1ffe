// What is sent (Content) and what is received (Reply, and the view that all received messages share).
#ifndef ZOR_CPP_MESSAGE_HPP
#define ZOR_CPP_MESSAGE_HPP

#include <zor/msg.h>
#include <zor/cpp/json.hpp>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace zor {
inline namespace face {

/// Bytes of a body, where they are no text.
using Bytes = std::vector<std::uint8_t>;

namespace detail {

struct FreeBlock {
  void operator()(void *block) const noexcept { std::free(block); }
};
/// A message with its owner.
using Block = std::unique_ptr<ZOR_MSG_HEAD, FreeBlock>;

/// A type that zorgen made: a message that encodes itself.
template <typename T, typename = void>
struct IsDescribed : std::false_type {};
template <typename T>
struct IsDescribed<T, std::void_t<decltype(std::declval<const T &>().append_to(std::declval<std::string &>())),
                                  decltype(std::declval<const T &>().data_word())>> : std::true_type {};

template <typename T>
struct IsBytes : std::false_type {};
template <typename T, typename A>
struct IsBytes<std::vector<T, A>> : std::bool_constant<sizeof(T) == 1 && std::is_trivially_copyable_v<T>> {};

template <typename T>
struct IsPair : std::false_type {};
template <typename W, typename B>
struct IsPair<std::pair<W, B>> : std::is_integral<W> {};

template <typename T>
inline constexpr bool kIsContent = std::is_integral_v<T> || std::is_convertible_v<const T &, std::string_view> ||
                                   IsBytes<T>::value || IsDescribed<T>::value || IsPair<T>::value;

inline std::string_view BodyOf(const ZOR_MSG_HEAD &head) noexcept {
  return {reinterpret_cast<const char *>(&head + 1), head.bodyLength};
}

inline std::string_view NameOf(const char (&name)[ZOR_MSG_NAME_SIZE]) noexcept {
  return {name, ::strnlen(name, sizeof name)};
}

/// A name as it is on the bus: cut to what fits.
inline std::string_view CutName(std::string_view name) noexcept {
  return name.substr(0, ZOR_MSG_NAME_SIZE - 1);
}

inline bool IsEvent(std::uint32_t type) noexcept {
  return type >= ZOR_MSG_EVENT_FIRST && type <= ZOR_MSG_EVENT_LAST;
}

}  // namespace detail

/// A data word and a body to send. Made of: nothing; an integer, the data word; a text or bytes, the body; a Json, its
/// compact text; a pair of an integer and any of these; a described type. Texts and bytes that are not handed over are
/// referred to, not copied: send it before they change.
class Content {
 public:
  Content() noexcept = default;
  Content(const Json &json) : isOwned_(true), owned_(json.dump()) {}
  /// A JSON object, written in place.
  Content(std::initializer_list<JsonMember> members) : Content(Json(members)) {}
  template <typename T, typename D = std::remove_cv_t<std::remove_reference_t<T>>,
            std::enable_if_t<!std::is_same_v<D, Content> && !std::is_same_v<D, Json> && detail::kIsContent<D>, int> = 0>
  Content(T &&value) {
    Take(std::forward<T>(value));
  }

  std::uint32_t word() const noexcept { return word_; }
  std::string_view body() const noexcept { return isOwned_ ? std::string_view(owned_) : view_; }

 private:
  template <typename T>
  void Take(T &&value) {
    using D = std::remove_cv_t<std::remove_reference_t<T>>;
    if constexpr (std::is_integral_v<D>) {
      word_ = static_cast<std::uint32_t>(value);
    } else if constexpr (detail::IsDescribed<D>::value) {
      word_ = value.data_word();
      value.append_to(owned_);
      isOwned_ = true;
    } else if constexpr (detail::IsPair<D>::value) {
      *this = Content(std::forward<T>(value).second);
      word_ = static_cast<std::uint32_t>(value.first);
    } else if constexpr (std::is_same_v<T, std::string>) {
      owned_ = std::move(value);
      isOwned_ = true;
    } else if constexpr (detail::IsBytes<D>::value) {
      view_ = {reinterpret_cast<const char *>(value.data()), value.size()};
      if constexpr (!std::is_lvalue_reference_v<T>) {
        owned_ = view_;
        isOwned_ = true;
      }
    } else {
      view_ = value;
    }
  }

  std::uint32_t word_ = 0;
  bool isOwned_ = false;
  std::string_view view_;
  std::string owned_;
};

/// What a received message has, whoever owns it.
class Received {
 public:
  explicit Received(const ZOR_MSG_HEAD &head) noexcept : head_(&head) {}

  std::uint32_t type() const noexcept { return head_->type & ZOR_MSG_TYPE_MASK; }
  std::uint32_t sequence() const noexcept { return head_->sequence; }
  /// The data word.
  std::uint32_t word() const noexcept { return head_->data; }
  /// The sender's name; empty for the message server.
  std::string_view source() const noexcept { return detail::NameOf(head_->source); }
  std::string_view body() const noexcept { return detail::BodyOf(*head_); }
  /// The body as a text, up to its first NUL if it has one.
  std::string_view text() const noexcept { return body().substr(0, body().find('\0')); }
  Bytes bytes() const { return Bytes(body().begin(), body().end()); }
  /// The body as JSON; raises Argument when it is malformed.
  Json json() const { return try_json().value(); }
  Result<Json> try_json() const { return Json::try_parse(text()); }
  /// The message as a described type; raises Argument when it does not decode.
  template <typename M>
  M as() const {
    return try_as<M>().value();
  }
  template <typename M>
  Result<M> try_as() const {
    M message{};
    if (!M::decode(body(), word(), message)) return Error(ZOR_E_ARGUMENT, "the body does not decode");
    return message;
  }

 protected:
  const ZOR_MSG_HEAD *head() const noexcept { return head_; }

 private:
  const ZOR_MSG_HEAD *head_;
};

/// The reply to a call, with its body.
class Reply : public Received {
 public:
  explicit Reply(detail::Block block) noexcept : Received(*block), block_(std::move(block)) {}
  Reply(Reply &&) noexcept = default;
  Reply &operator=(Reply &&) noexcept = default;

 private:
  detail::Block block_;
};

namespace detail {

/// The error that a reply carries, if it is an error reply.
inline std::optional<Error> ErrorOf(const Reply &reply) {
  if (reply.word() < 0x10000 || reply.word() > 0x1FFFF || reply.body().substr(0, 1) != "{") return std::nullopt;
  const Result<Json> json = reply.try_json();
  if (!json || !(*json)["error"].is_text()) return std::nullopt;
  return Failed(std::string((*json)["error"].text()), reply.word());
}

}  // namespace detail

}  // namespace face
}  // namespace zor

#endif
