// What the C++ headers made by zorgen need beside the functions in C: texts and bytes are strings there.
#ifndef ZOR_GEN_MESSAGE_HPP
#define ZOR_GEN_MESSAGE_HPP

#include <zor/gen/data.h>
#include <zor/gen/json_writer.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zor::gen {

inline zor_gen_view View(std::string_view text) {
  return zor_gen_bytes(text.data(), text.size());
}

// Appends the plain content.
inline void Append(std::string &out, zor_gen_view view) {
  if (view.form == ZOR_GEN_PLAIN) {
    if (view.length != 0) out.append(view.data, view.length);
    return;
  }
  const std::size_t used = out.size();
  out.resize(used + zor_gen_length(view));
  zor_gen_copy(view, out.data() + used, out.size() - used);
}

// Reads a text or bytes by a function that fills a view, perhaps one that takes a size; the string keeps its default if
// the message lacks the field.
template <class Reader, class Get, class... Size>
void Take(Reader &reader, std::string &out, Get get, Size... size) {
  zor_gen_view view = {nullptr, 0, ZOR_GEN_PLAIN};
  get(&reader, &view, static_cast<std::size_t>(size)...);
  if (view.data == nullptr) return;
  out.clear();
  Append(out, view);
}

// Keeps an unknown member.
inline void Keep(zor_json_reader &reader, std::string &unknown) {
  if (!zor_json_skip(&reader.scan)) return;
  if (!unknown.empty()) unknown += ',';
  unknown.append(reader.member, reader.scan.at);
}

// A writer that appends to a string.
class Appender {
 public:
  explicit Appender(std::string &body) : body_(body), before_(body.size()), writer_(zor_gen_writer_to(nullptr, 0)) {
    writer_.grow = &Grow;
    writer_.owner = this;
    Move(before_, before_);
  }

  zor_gen_writer *writer() { return &writer_; }

  // Throws std::invalid_argument, and leaves the string as it was, if a value cannot be encoded: a text that is too
  // long for its field, has a NUL in it or is not UTF-8 in JSON, an infinite number in JSON. Without exceptions it
  // aborts.
  void Finish() {
    body_.resize(writer_.failed ? before_ : Used());
    if (!writer_.failed) return;
#ifdef __cpp_exceptions
    throw std::invalid_argument("a value that the message's encoding cannot carry");
#else
    std::abort();
#endif
  }

 private:
  std::size_t Used() const {
    return static_cast<std::size_t>(writer_.at - writer_.start);
  }

  // The string's bytes from used on are room.
  void Move(std::size_t used, std::size_t size) {
    body_.resize(size);
    writer_.start = body_.data();
    writer_.at = writer_.start + used;
    writer_.end = writer_.start + size;
  }

  static void Grow(zor_gen_writer *writer, std::size_t count) {
    auto *self = static_cast<Appender *>(writer->owner);
    constexpr std::size_t kLeast = 128;
    const std::size_t used = self->Used();
    self->Move(used, used + count + (used > kLeast ? used : kLeast));
  }

  std::string &body_;
  std::size_t before_;
  zor_gen_writer writer_;
};

}  // namespace zor::gen

#endif
