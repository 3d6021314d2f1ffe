// JSON values with an owner, and texts from other processes made valid for JSON.
#ifndef PROGRAMS_JSON_H
#define PROGRAMS_JSON_H

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <string_view>

namespace zor::daemon {

struct JsonDeleter {
  void operator()(cJSON *value) const { cJSON_Delete(value); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// The value as compact text; empty if memory runs out.
std::string JsonText(const cJSON *value);

// Valid UTF-8 without control characters: every other byte becomes '?'.
std::string CleanText(std::string_view text);

// Add a member to an object. Numbers are exact up to 2^53; texts are cleaned.
template <typename Number>
void AddNumber(cJSON *object, const char *name, Number number) {
  cJSON_AddNumberToObject(object, name, static_cast<double>(number));
}
void AddText(cJSON *object, const char *name, std::string_view text);

}  // namespace zor::daemon

#endif
