#include "lua_json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "common/utf8.h"

namespace zor::lua {
namespace {

constexpr int kDepthMax = 100;
constexpr int kValuesMax = 100000;
constexpr char kArray[] = "zor.array";
constexpr char kNoMemory[] = "not enough memory for JSON";
constexpr char kTooDeep[] = "JSON of more than 100 levels";
constexpr char kTooMany[] = "JSON of more than 100000 values";

void DeleteTree(void *tree) {
  cJSON_Delete(static_cast<cJSON *>(tree));
}

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = FirstUtf8Character(text).length;
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

// In as few digits as give the same number again; cJSON gives up the last ones. A locale's comma is no JSON.
void PrintDouble(double number, char *digits, std::size_t size) {
  for (int precision = 15; precision <= 17; ++precision) {
    std::snprintf(digits, size, "%.*g", precision, number);
    if (std::strtod(digits, nullptr) == number) break;
  }
  if (char *comma = std::strchr(digits, ','); comma != nullptr) *comma = '.';
}

// Builds a tree from a Lua value. Each item is in the tree before its own items are made, so that the tree's owner
// frees all of them whatever happens. Reads tables raw: no code of the user's runs meanwhile.
class Builder {
 public:
  Builder(lua_State *L, Owned &tree) : L_(L), tree_(tree) {}

  // Null, or why the value has no JSON.
  const char *Add(int index, cJSON *parent, const char *key, int depth) {
    if (depth > kDepthMax) return kTooDeep;
    if (++values_ > kValuesMax) return kTooMany;
    luaL_checkstack(L_, 6, "JSON");
    switch (lua_type(L_, index)) {
      case LUA_TBOOLEAN:
        return Attach(cJSON_CreateBool(lua_toboolean(L_, index)), parent, key);
      case LUA_TNUMBER:
        return AddNumber(index, parent, key);
      case LUA_TSTRING:
        return AddText(index, parent, key);
      case LUA_TTABLE:
        return AddTable(index, parent, key, depth);
      case LUA_TLIGHTUSERDATA:
        if (lua_touserdata(L_, index) == nullptr) return Attach(cJSON_CreateNull(), parent, key);
        break;
      default:
        break;
    }
    return "a value that JSON does not have, such as a function";
  }

 private:
  const char *Attach(cJSON *item, cJSON *parent, const char *key) {
    if (item == nullptr) return kNoMemory;
    if (parent == nullptr) {
      tree_.block = item;
      return nullptr;
    }
    const bool done =
        key == nullptr ? cJSON_AddItemToArray(parent, item) != 0 : cJSON_AddItemToObject(parent, key, item) != 0;
    if (!done) cJSON_Delete(item);
    return done ? nullptr : kNoMemory;
  }

  const char *AddNumber(int index, cJSON *parent, const char *key) {
    const auto number = static_cast<double>(lua_tonumber(L_, index));
    if (!std::isfinite(number)) return "a number that is not finite";
    char digits[32];
#if LUA_VERSION_NUM > 501
    if (lua_isinteger(L_, index) != 0) {
      std::snprintf(digits, sizeof digits, LUA_INTEGER_FMT, lua_tointeger(L_, index));
      return Attach(cJSON_CreateRaw(digits), parent, key);
    }
#endif
    PrintDouble(number, digits, sizeof digits);
    return Attach(cJSON_CreateRaw(digits), parent, key);
  }

  const char *AddText(int index, cJSON *parent, const char *key) {
    std::size_t length = 0;
    const char *text = lua_tolstring(L_, index, &length);
    const char *fault = FaultOf({text, length});
    return fault != nullptr ? fault : Attach(cJSON_CreateString(text), parent, key);
  }

  bool IsMarkedArray(int index) {
    if (lua_getmetatable(L_, index) == 0) return false;
    luaL_getmetatable(L_, kArray);
    const bool marked = lua_rawequal(L_, -1, -2) != 0;
    lua_pop(L_, 2);
    return marked;
  }

  std::size_t CountKeys(int index) {
    std::size_t count = 0;
    for (lua_pushnil(L_); lua_next(L_, index) != 0; lua_pop(L_, 1)) ++count;
    return count;
  }

  const char *AddTable(int index, cJSON *parent, const char *key, int depth) {
    const std::size_t length = RawLength(L_, index);
    const bool array = length > 0 || IsMarkedArray(index);
    cJSON *item = array ? cJSON_CreateArray() : cJSON_CreateObject();
    const char *fault = Attach(item, parent, key);
    if (fault != nullptr) return fault;
    return array ? AddElements(index, length, item, depth) : AddMembers(index, item, depth);
  }

  const char *AddElements(int index, std::size_t length, cJSON *item, int depth) {
    if (CountKeys(index) != length) return "a table with holes, or with both a list and names";
    for (std::size_t i = 1; i <= length; ++i) {
      lua_rawgeti(L_, index, static_cast<int>(i));
      const char *fault = Add(lua_gettop(L_), item, nullptr, depth + 1);
      lua_pop(L_, 1);
      if (fault != nullptr) return fault;
    }
    return nullptr;
  }

  const char *AddMembers(int index, cJSON *item, int depth) {
    for (lua_pushnil(L_); lua_next(L_, index) != 0; lua_pop(L_, 1)) {
      // Converting a number in place would confuse lua_next.
      if (lua_type(L_, -2) != LUA_TSTRING) return "a table whose names are not texts";
      std::size_t length = 0;
      const char *name = lua_tolstring(L_, -2, &length);
      const char *fault = FaultOf({name, length});
      if (fault == nullptr) fault = Add(lua_gettop(L_), item, name, depth + 1);
      if (fault != nullptr) return fault;
    }
    return nullptr;
  }

  lua_State *L_;
  Owned &tree_;
  int values_ = 0;
};

// What a text would cost, before any of it is parsed: null, or why it is refused.
const char *Survey(std::string_view text) {
  int depth = 0;
  int values = 1;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c == '\\') {
        if (text.substr(i, 6) == "\\u0000") return "a text with a NUL byte";
        ++i;
      }
      if (c == '"') quoted = false;
    } else if (c == '"') {
      quoted = true;
    } else if (c == '[' || c == '{') {
      if (++depth > kDepthMax) return kTooDeep;
      ++values;
    } else if (c == ']' || c == '}') {
      --depth;
    } else if (c == ',') {
      ++values;
    }
    if (values > kValuesMax) return kTooMany;
  }
  return nullptr;
}

void PushNumber(lua_State *L, double number) {
#if LUA_VERSION_NUM > 501
  constexpr double kExactMax = 9007199254740992.0;  // a cJSON number is a double, which keeps integers up to here
  if (std::abs(number) <= kExactMax && number == std::floor(number)) {
    return lua_pushinteger(L, static_cast<lua_Integer>(number));
  }
#endif
  lua_pushnumber(L, number);
}

void PushValue(lua_State *L, const cJSON *item) {
  luaL_checkstack(L, 4, "JSON");
  if (cJSON_IsArray(item) != 0) {
    lua_newtable(L);
    luaL_getmetatable(L, kArray);
    lua_setmetatable(L, -2);
    int at = 0;
    for (const cJSON *each = item->child; each != nullptr; each = each->next) {
      PushValue(L, each);
      lua_rawseti(L, -2, ++at);
    }
  } else if (cJSON_IsObject(item) != 0) {
    lua_newtable(L);
    for (const cJSON *each = item->child; each != nullptr; each = each->next) {
      lua_pushstring(L, each->string);
      PushValue(L, each);
      lua_rawset(L, -3);
    }
  } else if (cJSON_IsString(item) != 0) {
    lua_pushstring(L, item->valuestring);
  } else if (cJSON_IsNumber(item) != 0) {
    PushNumber(L, item->valuedouble);
  } else if (cJSON_IsBool(item) != 0) {
    lua_pushboolean(L, cJSON_IsTrue(item));
  } else {
    lua_pushlightuserdata(L, nullptr);
  }
}

int Refuse(lua_State *L, const char *reason) {
  lua_pushnil(L);
  lua_pushstring(L, reason);
  return 2;
}

// encode(value) -> text, or nil and why not
int Encode(lua_State *L) {
  luaL_checkany(L, 1);
  const char *reason = nullptr;
  Owned *tree = PushJson(L, 1, reason);
  if (tree == nullptr) return Refuse(L, reason);
  Owned *text = PushOwned(L, cJSON_free);
  text->block = cJSON_PrintUnformatted(static_cast<cJSON *>(tree->block));
  Release(*tree);
  if (text->block == nullptr) return Refuse(L, kNoMemory);
  lua_pushstring(L, static_cast<char *>(text->block));
  Release(*text);
  return 1;
}

// decode(text) -> value, or nil and why not. Daemons in C often send the text's NUL too.
int Decode(lua_State *L) {
  std::size_t length = 0;
  const char *bytes = luaL_checklstring(L, 1, &length);
  while (length > 0 && bytes[length - 1] == '\0') --length;
  const std::string_view text(bytes, length);
  if (!IsUtf8(text)) return Refuse(L, "a text that is not UTF-8");
  const char *reason = Survey(text);
  if (reason != nullptr) return Refuse(L, reason);
  Owned *tree = PushOwned(L, DeleteTree);
  const char *end = nullptr;
  tree->block = cJSON_ParseWithLengthOpts(bytes, length, &end, 0);
  if (tree->block == nullptr) return Refuse(L, "no JSON");
  if (text.find_first_not_of(" \t\r\n", static_cast<std::size_t>(end - bytes)) != std::string_view::npos) {
    return Refuse(L, "more than one JSON value");
  }
  PushValue(L, static_cast<cJSON *>(tree->block));
  Release(*tree);
  return 1;
}

// array(table or nil) -> the table, which is a list in JSON even when it is empty
int MarkArray(lua_State *L) {
  if (lua_isnoneornil(L, 1)) {
    lua_settop(L, 0);
    lua_newtable(L);
  }
  luaL_checktype(L, 1, LUA_TTABLE);
  lua_settop(L, 1);
  luaL_getmetatable(L, kArray);
  lua_setmetatable(L, 1);
  return 1;
}

}  // namespace

const char *FaultOf(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return "a text with a NUL byte";
  return IsUtf8(text) ? nullptr : "a text that is not UTF-8";
}

Owned *PushJson(lua_State *L, int index, const char *&reason) {
  const int top = lua_gettop(L);
  Owned *tree = PushOwned(L, DeleteTree);
  reason = Builder(L, *tree).Add(index, nullptr, nullptr, 1);
  lua_settop(L, top + 1);
  if (reason == nullptr) return tree;
  Release(*tree);
  lua_settop(L, top);
  return nullptr;
}

void AddJsonFunctions(lua_State *L) {
  luaL_newmetatable(L, kArray);
  lua_pop(L, 1);
  constexpr luaL_Reg kFunctions[] = {{"encode", Encode}, {"decode", Decode}, {"array", MarkArray}, {nullptr, nullptr}};
  SetFunctions(L, kFunctions);
  lua_pushlightuserdata(L, nullptr);
  lua_setfield(L, -2, "null");
}

}  // namespace zor::lua
