/// @file
/// URLs and storage paths: <zor/url.h> as values.
#ifndef ZOR_CPP_URL_HPP
#define ZOR_CPP_URL_HPP

#include <zor/url.h>
#include <zor/cpp/message.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace zor {
inline namespace face {

/// A URL taken apart. `const auto url = zor::Url::try_parse("http://host:8080/path?query")`.
struct Url {
  /// ZOR_URL_HTTP and so on.
  std::int32_t protocol = -1;
  std::string host;
  /// The protocol's own if the URL has none.
  std::uint32_t port = 0;
  /// Begins with '/', includes the query, and is escaped; empty if the URL has none.
  std::string path;

  /// An Argument error when it is malformed or its protocol is not known.
  static Result<Url> try_parse(const std::string &text) {
    Url url;
    char *host = nullptr, *path = nullptr;
    const bool good = ZOR_UTIL_ParseUrl(text.c_str(), &url.protocol, &host, &url.port, &path) != 0;
    const std::unique_ptr<char, detail::FreeBlock> ownHost(host), ownPath(path);
    if (!good) return Error(ZOR_E_ARGUMENT, "malformed URL: " + text);
    if (host != nullptr) url.host = host;
    if (path != nullptr) url.path = path;
    return url;
  }
  static Url parse(const std::string &text) { return try_parse(text).value(); }

  /// "HTTP" and so on; empty for none.
  std::string protocol_name() const {
    const char *const name = ZOR_UTIL_GetProtocolTypeStrFromIdx(protocol);
    return name == nullptr ? "" : name;
  }

  /// Escapes what a URI must not contain; reserved characters and escapes stay. "/" for an empty text.
  static std::string escape(const std::string &text) { return Own(ZOR_UTIL_GetEscapedUri(text.c_str())); }

  /// A storage path as a token, and back. Check a decoded path before it is opened: its sender chose it.
  static Result<std::string> try_encode_path(const std::string &path) {
    return Code(ZOR_UTIL_EncodePath, path, 2 * path.size() + 16, "malformed path");
  }
  static Result<std::string> try_decode_path(const std::string &token) {
    return Code(ZOR_UTIL_DecodePath, token, token.size() + 16, "malformed path token");
  }

 private:
  static std::string Own(char *text) {
    const std::unique_ptr<char, detail::FreeBlock> owner(text);
    if (text == nullptr) NoMemory().raise();
    return text;
  }
  static Result<std::string> Code(std::uint32_t (*code)(const char *, char *, std::uint32_t), const std::string &text,
                                  std::size_t room, const char *problem) {
    std::string output(room, '\0');
    const std::uint32_t status = code(text.c_str(), output.data(), static_cast<std::uint32_t>(room));
    if (status != ZOR_OK) return Error(status, problem);
    return output.substr(0, output.find('\0'));
  }
};

}  // namespace face
}  // namespace zor

#endif
