// What can go wrong on the bus: exceptions by name, and results for programs that do without exceptions.
#ifndef ZOR_CPP_ERROR_HPP
#define ZOR_CPP_ERROR_HPP

#include <zor/status.h>

#include <cstdint>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#if defined(__cpp_exceptions)
#define ZOR_CPP_EXCEPTIONS 1
#else
#define ZOR_CPP_EXCEPTIONS 0
#endif

namespace zor {
inline namespace face {

/// Why a call failed. Each but kOther has an exception of that name: zor::PeerGone and so on.
enum class ErrorKind { kOther, kNotConnected, kRefused, kPeerGone, kTimeout, kArgument, kNoMemory, kFailed };

/// The base of all exceptions of this interface, and the error of a Result: a status of <zor/status.h> and a text.
class Error : public std::exception {
 public:
  /// The kind follows from the status.
  explicit Error(std::uint32_t status, std::string text = {})
      : Error(KindOf(status), status, text.empty() ? std::string(TextOf(status)) : std::move(text)) {}

  ErrorKind kind() const noexcept { return kind_; }
  std::uint32_t status() const noexcept { return status_; }
  const std::string &text() const noexcept { return text_; }
  const char *what() const noexcept override { return text_.c_str(); }

  /// Throws the exception of this kind. Without exceptions, prints the text and aborts.
  [[noreturn]] void raise() const;

 protected:
  Error(ErrorKind kind, std::uint32_t status, std::string text)
      : kind_(kind), status_(status), text_(std::move(text)) {}

 private:
  struct Known {
    std::uint32_t status;
    ErrorKind kind;
    const char *text;
  };
  static const Known &Find(std::uint32_t status) {
    static constexpr Known kKnown[] = {
        {ZOR_E_CONNECT, ErrorKind::kNotConnected, "no message server"},
        {ZOR_E_ARGUMENT, ErrorKind::kArgument, "invalid argument"},
        {ZOR_E_REFUSED, ErrorKind::kRefused, "the server granted no name"},
        {ZOR_E_NOT_CONNECTED, ErrorKind::kNotConnected, "not on the bus"},
        {ZOR_E_PEER_GONE, ErrorKind::kPeerGone, "the peer is not on the bus"},
        {ZOR_E_TIMEOUT, ErrorKind::kTimeout, "no reply in time"},
        {ZOR_E_NO_MEMORY, ErrorKind::kNoMemory, "out of memory"},
        {0, ErrorKind::kOther, "failed"},
    };
    const Known *known = kKnown;
    while (known->status != 0 && known->status != status) ++known;
    return *known;
  }
  static ErrorKind KindOf(std::uint32_t status) { return Find(status).kind; }
  static const char *TextOf(std::uint32_t status) { return Find(status).text; }

  ErrorKind kind_;
  std::uint32_t status_;
  std::string text_;
};

/// There is no server, or this process is not on the bus.
struct NotConnected : Error {
  explicit NotConnected(std::string text = {}, std::uint32_t status = ZOR_E_NOT_CONNECTED)
      : Error(ErrorKind::kNotConnected, status, text.empty() ? "not on the bus" : std::move(text)) {}
};
/// The server granted no name.
struct Refused : Error {
  explicit Refused(std::string text = {}) : Error(ZOR_E_REFUSED, std::move(text)) {}
};
/// No client has the name, or the connection to the server ended.
struct PeerGone : Error {
  explicit PeerGone(std::string text = {}) : Error(ZOR_E_PEER_GONE, std::move(text)) {}
};
/// No reply came in time.
struct Timeout : Error {
  explicit Timeout(std::string text = {}) : Error(ZOR_E_TIMEOUT, std::move(text)) {}
};
/// An argument or a body is invalid.
struct Argument : Error {
  explicit Argument(std::string text = {}) : Error(ZOR_E_ARGUMENT, std::move(text)) {}
};
/// Out of memory.
struct NoMemory : Error {
  explicit NoMemory(std::string text = {}) : Error(ZOR_E_NO_MEMORY, std::move(text)) {}
};
/// The peer sent an error reply. Thrown in a handler, it becomes one.
struct Failed : Error {
  explicit Failed(std::string text, std::uint32_t status = ZOR_E_IO)
      : Error(ErrorKind::kFailed, status, std::move(text)) {}
};

namespace detail {

/// Throws; without exceptions there is nobody to catch it, so the process ends with the text.
template <typename E>
[[noreturn]] void Raise(const E &error) {
#if ZOR_CPP_EXCEPTIONS
  throw error;
#else
  std::fprintf(stderr, "zor: %s\n", error.what());
  std::terminate();
#endif
}

inline void Check(std::uint32_t status, const char *what) {
  if (status != ZOR_OK) Error(status, std::string(what) + ": " + Error(status).text()).raise();
}

/// Runs what belongs to the user. Nothing thrown there gets past here, into the C functions that called; it is returned
/// instead.
template <typename F>
std::optional<Error> Guard(F &&body) noexcept {
#if ZOR_CPP_EXCEPTIONS
  try {
    body();
  } catch (const Error &error) {
    return error;
  } catch (const std::bad_alloc &) {
    return Error(ZOR_E_NO_MEMORY);
  } catch (const std::exception &error) {
    return Error(ZOR_E_IO, error.what());
  } catch (...) {
    return Error(ZOR_E_IO, "unknown exception");
  }
#else
  body();
#endif
  return std::nullopt;
}

}  // namespace detail

inline void Error::raise() const {
  switch (kind_) {
    case ErrorKind::kNotConnected:
      detail::Raise(NotConnected(text_, status_));
    case ErrorKind::kRefused:
      detail::Raise(Refused(text_));
    case ErrorKind::kPeerGone:
      detail::Raise(PeerGone(text_));
    case ErrorKind::kTimeout:
      detail::Raise(Timeout(text_));
    case ErrorKind::kArgument:
      detail::Raise(Argument(text_));
    case ErrorKind::kNoMemory:
      detail::Raise(NoMemory(text_));
    case ErrorKind::kFailed:
      detail::Raise(Failed(text_, status_));
    case ErrorKind::kOther:
      break;
  }
  detail::Raise(*this);
}

/// A value, or the Error why there is none. Every function try_NAME returns one where NAME would throw.
template <typename T>
class [[nodiscard]] Result {
 public:
  using value_type = T;
  Result(T value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error)) {}

  bool has_value() const noexcept { return value_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }

  /// The value; raises the error when there is none.
  T &value() & {
    if (!value_) error_->raise();
    return *value_;
  }
  const T &value() const & {
    if (!value_) error_->raise();
    return *value_;
  }
  T value() && {
    if (!value_) error_->raise();
    return std::move(*value_);
  }
  template <typename U>
  T value_or(U &&other) const & {
    return value_.value_or(std::forward<U>(other));
  }
  /// The value, which must be there.
  T &operator*() noexcept { return *value_; }
  const T &operator*() const noexcept { return *value_; }
  T *operator->() noexcept { return &*value_; }
  const T *operator->() const noexcept { return &*value_; }
  /// The error, which must be there.
  const Error &error() const noexcept { return *error_; }

 private:
  std::optional<T> value_;
  std::optional<Error> error_;
};

/// Success, or the Error.
template <>
class [[nodiscard]] Result<void> {
 public:
  using value_type = void;
  Result() = default;
  Result(Error error) : error_(std::move(error)) {}

  bool has_value() const noexcept { return !error_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }
  void value() const {
    if (error_) error_->raise();
  }
  const Error &error() const noexcept { return *error_; }

 private:
  std::optional<Error> error_;
};

namespace detail {
inline Result<void> ResultOf(std::uint32_t status) {
  if (status == ZOR_OK) return {};
  return Error(status);
}
}  // namespace detail

}  // namespace face
}  // namespace zor

#endif
