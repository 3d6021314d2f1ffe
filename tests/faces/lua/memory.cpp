// Out of memory in every place: a script that uses the whole module runs again and again, and each time another
// allocation of the interpreter fails. It must end with an error or go on, never crash or leak, and the bus must be
// left.
#include <zor/msg_head.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <lua.hpp>

namespace {

constexpr char kScript[] = R"(
  local zor, limit = ...
  local bus = zor.check(zor.open("forgetful"))
  local heard, reported = 0, false
  bus:on_error(function() reported = true end)
  bus:on_gap(function() end)
  bus:on("device", function(event) heard = heard + #event.payload.list end)
  local served
  served = bus:serve(0x6301, function(request)
    served:close()  -- its reply comes here, too
    bus:sleep(0.001)
    heard = heard + 1
    return request.json
  end)
  bus:spawn(function() bus:call("nobody", 0x6201) heard = heard + 1 end)
  bus:call("nobody", 0x6201)
  bus:publish("device", "made", { list = { 1, 2 } })
  bus:publish("lan", "made", { port = 1 })
  bus:send("forgetful", 0x6301, { payload = { text = "x" } })
  local turns = 0
  bus:every(0.001, function()
    turns = turns + 1
    if heard == 4 or reported or turns > limit then bus:stop() end
  end)
  bus:run()
  assert(heard == 4, heard)
)";

// From 5.2 on the interpreter collects garbage and tries once more.
constexpr long kFailures = LUA_VERSION_NUM == 501 ? 1 : 2;

// Of the loop, about a millisecond each, until a script gives up what has not come.
constexpr lua_Integer kTurns = 300;
constexpr lua_Integer kPatientTurns = 60000;

// So many allocations fail, from that number on.
struct Budget {
  long allocations = 0;
  long failing = -1;
  bool failed = false;
};

void *Allocate(void *data, void *block, std::size_t oldSize, std::size_t newSize) {
  auto &budget = *static_cast<Budget *>(data);
  if (newSize == 0) {
    std::free(block);
    return nullptr;
  }
  if (block == nullptr || newSize > oldSize) {
    const long number = ++budget.allocations;
    if (budget.failing >= 0 && number >= budget.failing && number < budget.failing + kFailures) {
      budget.failed = true;
      return nullptr;
    }
  }
  return std::realloc(block, newSize);
}

// Whether the script succeeded; `first` is where its own allocations began.
bool RunScript(Budget &budget, long failing, long &first) {
  lua_State *L = lua_newstate(Allocate, &budget);
  if (L == nullptr) std::abort();
  luaL_openlibs(L);
  if (luaL_loadstring(L, kScript) != 0 || luaL_dostring(L, "return (require 'zor')") != 0) {
    std::printf("memory: %s\n", lua_tostring(L, -1));
    std::exit(1);
  }
  first = budget.allocations;
  budget.failing = failing < 0 ? -1 : first + failing;
  lua_pushinteger(L, failing < 0 ? kPatientTurns : kTurns);
  const bool succeeded = lua_pcall(L, 2, 0, 0) == 0;
  if (!succeeded && failing < 0) std::printf("memory: %s\n", lua_tostring(L, -1));
  lua_close(L);
  return succeeded;
}

bool Check(bool condition, const char *what, long number) {
  if (!condition) std::printf("memory: allocation %ld: %s\n", number, what);
  return condition;
}

}  // namespace

int main() {
  long first = 0;
  Budget whole;
  if (!Check(RunScript(whole, -1, first), "the script fails with enough memory", -1)) return 1;
  const long count = whole.allocations - first;
  long reached = 0;
  long errors = 0;
  for (long number = 1; number <= count; ++number) {
    Budget budget;
    if (!RunScript(budget, number, first)) ++errors;
    if (budget.failed) ++reached;
    if (!Check(g_stMsgCtx.socketFd == -1, "the bus was not left", number)) return 1;
  }
  std::printf("memory: %ld allocations, %ld errors\n", count, errors);
  return Check(errors > reached / 4, "hardly any failure was noticed", reached) ? 0 : 1;
}
