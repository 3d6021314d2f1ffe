#include "zorgen/text.h"

#include <cstdio>

#include "common/utf8.h"
#include "programs/messages/text.h"

namespace zor::zorgen {
namespace {

template <class... Values>
std::string Format(const char *format, Values... values) {
  char text[16];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::string PythonCharacter(char32_t character) {
  if (character == '"' || character == '\\') return {'\\', static_cast<char>(character)};
  if (character >= ' ' && character < 0x7f) return {static_cast<char>(character)};
  return Format("\\U%08x", static_cast<unsigned>(character));
}

void Replace(std::string &text, std::string_view what, std::string_view by) {
  for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) text.replace(at, what.size(), by);
}

// "Words." whether there was a full stop or not.
std::string Sentence(const std::string &text) {
  if (text.empty()) return text;
  return text.find_last_of(".!?") == text.size() - 1 ? text : text + ".";
}

}  // namespace

std::string CLiteral(std::string_view text) {
  std::string literal = "\"";
  for (const char each : text) {
    // A question mark could begin a trigraph. Octal digits end by themselves, hexadecimal ones do not.
    if (each == '"' || each == '\\' || each == '?') {
      literal.append({'\\', each});
    } else if (each >= ' ' && each < 0x7f) {
      literal += each;
    } else {
      literal += Format("\\%03o", static_cast<unsigned>(static_cast<unsigned char>(each)));
    }
  }
  return literal + "\"";
}

std::string PythonLiteral(std::string_view text) {
  std::string literal = "\"";
  while (!text.empty()) {
    const Utf8Sequence next = FirstUtf8Character(text);
    literal += next.length == 0 ? "\\ufffd" : PythonCharacter(next.value);
    text.remove_prefix(next.length == 0 ? 1 : next.length);
  }
  return literal + "\"";
}

std::string PythonBytes(std::string_view bytes) {
  std::string literal = "b\"";
  for (const char each : bytes) literal += Format("\\x%02x", static_cast<unsigned>(static_cast<unsigned char>(each)));
  return literal + "\"";
}

std::string CommentText(std::string_view text) {
  std::string line = messages::Escape(text);
  Replace(line, "*/", "* /");
  Replace(line, "/*", "/ *");
  Replace(line, "??", "? ?");
  Replace(line, "??", "? ?");  // of "???" the last two are left
  // A line that ends in a backslash, even with blanks behind it, would take the next one into its comment.
  const size_t end = line.find_last_not_of(' ') + 1;
  if (end > 0 && line[end - 1] == '\\') line.replace(end, line.npos, ".");
  return line;
}

std::string About(const types::Type &type) {
  constexpr std::string_view kKinds[] = {"Request", "One-way message", "Event", "Notice"};
  std::string about = Sentence(type.meaning);
  about.append(about.empty() ? "" : " ").append(kKinds[static_cast<size_t>(type.kind)]);
  if (type.to != "any") about += " to " + type.to;
  if (!type.module.empty()) about += " of " + type.module;
  if (!type.since.empty()) about += ", since " + type.since;
  return CommentText(about + ".");
}

std::string About(const types::Field &field) {
  std::string about = field.meaning;
  if (!field.unit.empty()) about += (about.empty() ? "[" : " [") + field.unit + "]";
  if (!field.since.empty()) about += (about.empty() ? "since " : ", since ") + field.since;
  return CommentText(about);
}

std::string Hex(uint32_t number) {
  return Format("0x%x", number);
}

}  // namespace zor::zorgen
