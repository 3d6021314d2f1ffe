#include "programs/messages/message_types.h"

#include <zor/msg_wire.h>

#include <algorithm>
#include <vector>

#include "common/ascii.h"
#include "programs/format_number.h"
#include "programs/message_kind.h"
#include "programs/messages/invalid.h"
#include "programs/messages/nearest.h"
#include "programs/messages/number.h"
#include "programs/messages/text.h"
#include "programs/types/book.h"
#include "programs/types/own_types.h"

namespace zor::messages {
namespace {

using types::Type;
using types::TypeBook;

constexpr std::string_view kPrefixes[] = {"ZOR_MSG_", "ZOR_"};  // the longer one first

uint32_t NumberOf(const Type &type) {
  if (!type.isRange()) return type.first;
  throw Invalid(type.name + " covers a range of types",
                "give a number from " + daemon::HexText(type.first) + " to " + daemon::HexText(type.last));
}

// As DidYouMean; the name may have been given in full.
std::string TypeMeant(std::string_view text) {
  std::vector<std::string> names;
  for (const Type *type : TypeBook::Installed().All()) {
    const bool inFull = type->nameSpace == types::kOwnNamespace && StartsWithIgnoringCase(text, "ZOR_");
    names.push_back(inFull ? type->name : TypeText(*type));
  }
  return DidYouMean(text, names);
}

uint32_t NumberNamed(std::string_view text, const std::vector<const Type *> &named) {
  const uint32_t number = NumberOf(*named.front());
  const bool clear = std::all_of(named.begin(), named.end(), [=](const Type *each) { return each->first == number; });
  if (clear) return number;
  std::vector<std::string> names;
  names.reserve(named.size());
  for (const Type *each : named) names.push_back(each->fullName());
  throw Invalid(Escape(text) + " is more than one type", "write " + Join(names, " or "));
}

}  // namespace

const Type *FindType(uint32_t type) {
  return TypeBook::Installed().Find(type);
}

std::string TypeText(const Type &type) {
  if (type.nameSpace != types::kOwnNamespace) return type.fullName();
  for (const std::string_view prefix : kPrefixes) {
    if (type.name.starts_with(prefix)) return type.name.substr(prefix.size());
  }
  return type.name;
}

std::string TypeText(uint32_t type) {
  const Type *known = FindType(type);
  if (known != nullptr && !known->isRange()) return TypeText(*known);
  const bool mayBeEvent = type > ZOR_MSG_EVENT_FIRST && type <= ZOR_MSG_EVENT_LAST;
  const types::Module *module = mayBeEvent ? TypeBook::Installed().FindModule(type) : nullptr;
  return module == nullptr ? daemon::HexText(type) : module->name;
}

void UseInstalledKinds() {
  daemon::SetKindSource([](uint32_t type) {
    const Type *known = FindType(type);
    if (known == nullptr) return daemon::MessageKind::kUnknown;
    return known->kind == types::Kind::kRequest ? daemon::MessageKind::kRequest : daemon::MessageKind::kNoRequest;
  });
}

uint32_t ParseType(std::string_view text) {
  if (const auto number = ParseUint32(text); number && *number <= ZOR_MSG_TYPE_MASK) return *number;
  TypeBook &book = TypeBook::Installed();
  if (const auto named = book.Named(text); !named.empty()) return NumberNamed(text, named);
  if (const types::Module *module = book.FindModule(text)) return module->type;
  throw UnknownName("unknown message type " + Escape(text), TypeMeant(text) + "give a number from 0 to " +
                                                                daemon::HexText(ZOR_MSG_TYPE_MASK) +
                                                                " or a name from zorctl complete types");
}

}  // namespace zor::messages
