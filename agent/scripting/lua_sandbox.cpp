#include "agent/scripting/lua_sandbox.h"

#include <lua.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string_view>

#include "agent/scripting/lua_machine.h"
#include "agent/scripting/patterns.h"

// A script may do what it likes for as long as its session's deadline allows. The deadline is seen
// between instructions, so no library function may work for long inside one of them. What the
// language's own libraries have of that kind is replaced here: functions that loop over a range
// which a script names, matching with patterns, and callbacks out of loops. The rest takes time in
// proportion to texts that exist, and so to the memory that a script may have.
//
// Lua's errors leave these functions with longjmp: nothing in them has a destructor.

namespace nox::agent {

namespace {

// A range longer than memory can hold elements has no use.
constexpr lua_Integer kLongestRange = LuaMemory::kMost / 16;

void tick(lua_State* state) {
  if (!LuaMachine::of(state).tick()) LuaMachine::stop(state);
}

bool tickOf(void* machine) { return static_cast<LuaMachine*>(machine)->tick(); }

void checkRange(lua_State* state, lua_Integer first, lua_Integer last) {
  if (first <= last && static_cast<lua_Unsigned>(last) - static_cast<lua_Unsigned>(first) >=
                           static_cast<lua_Unsigned>(kLongestRange)) {
    luaL_error(state, "the range is too long");
  }
}

/// A replacement that calls the library's own function, its upvalue, with the `count` arguments on
/// top of the stack.
int callOriginal(lua_State* state, int count) {
  lua_pushvalue(state, lua_upvalueindex(1));
  lua_insert(state, -(count + 1));
  const int below = lua_gettop(state) - count - 1;
  lua_call(state, count, LUA_MULTRET);
  return lua_gettop(state) - below;
}

/// The length of a list is asked for by the library's function once more; where a script answers,
/// it may say something else then.
void checkPlainLength(lua_State* state) {
  if (luaL_getmetafield(state, 1, "__len") != LUA_TNIL) {
    luaL_error(state, "a table with a __len of its own is not possible here");
  }
}

// --- base ---------------------------------------------------------------------------------------

int setMetatable(lua_State* state) {
  tick(state);
  // A finalizer runs where nothing can stop it.
  if (lua_istable(state, 2)) {
    lua_pushliteral(state, "__gc");
    if (lua_rawget(state, 2) != LUA_TNIL) luaL_error(state, "finalizers are not possible");
    lua_pop(state, 1);
  }
  return callOriginal(state, lua_gettop(state));
}

/// load(text [, name [, mode [, environment]]]): text alone, whatever the mode says.
int load(lua_State* state) {
  std::size_t size = 0;
  const char* const text = luaL_checklstring(state, 1, &size);
  const char* const name = luaL_optstring(state, 2, "=(load)");
  const bool hasEnvironment = !lua_isnone(state, 4);
  lua_settop(state, 4);
  tick(state);
  if (luaL_loadbufferx(state, text, size, name, "t") != LUA_OK) {
    luaL_pushfail(state);
    lua_insert(state, -2);
    return 2;
  }
  if (hasEnvironment) {
    lua_pushvalue(state, 4);
    if (!lua_setupvalue(state, -2, 1)) lua_pop(state, 1);
  }
  return 1;
}

int protectedResults(lua_State* state, int status, lua_KContext ignored) {
  if (status == LUA_OK || status == LUA_YIELD) {
    return lua_gettop(state) - static_cast<int>(ignored);
  }
  lua_pushboolean(state, 0);
  lua_pushvalue(state, -2);
  return 2;
}

/// The handler of xpcall: the script's own, its upvalue, unless the program is over. The language
/// calls handlers where the error happened; for one that the deadline raised, that is a place where
/// no further deadline is seen.
int handleError(lua_State* state) {
  if (!LuaMachine::of(state).tick()) return 1;
  lua_pushvalue(state, lua_upvalueindex(1));
  lua_insert(state, 1);
  lua_call(state, lua_gettop(state) - 1, 1);
  return 1;
}

/// xpcall(function, handler, ...)
int protectedCall(lua_State* state) {
  luaL_checktype(state, 2, LUA_TFUNCTION);
  tick(state);
  lua_pushvalue(state, 2);
  lua_pushcclosure(state, handleError, 1);
  lua_replace(state, 2);
  lua_pushboolean(state, 1);
  lua_pushvalue(state, 1);
  lua_rotate(state, 3, 2);  // function, handler, true, function, arguments
  const int status = lua_pcallk(state, lua_gettop(state) - 4, LUA_MULTRET, 2, 2, protectedResults);
  return protectedResults(state, status, 2);
}

// --- string -------------------------------------------------------------------------------------

std::string_view checkText(lua_State* state, int index) {
  std::size_t size = 0;
  const char* const text = luaL_checklstring(state, index, &size);
  return {text, size};
}

/// Where a search begins, from 0: negative numbers count from the end. May be behind the end.
std::size_t startOf(lua_State* state, int index, std::size_t length) {
  const lua_Integer position = luaL_optinteger(state, index, 1);
  if (position > 0) return static_cast<std::size_t>(position) - 1;
  if (position == 0 || position < -static_cast<lua_Integer>(length)) return 0;
  return length - static_cast<std::size_t>(-position);
}

/// Where the match that begins at `place` ends, or null; an error of the pattern is one of Lua.
const char* matchAt(lua_State* state, PatternMatcher& matcher, const char* place) {
  const char* const end = matcher.matchAt(place);
  if (!end && matcher.stopped()) LuaMachine::stop(state);
  if (!end && matcher.error()) luaL_error(state, "%s", matcher.error());
  return end;
}

void pushCapture(lua_State* state, const char* subject, const PatternMatcher::Capture& capture) {
  if (capture.isOpen) luaL_error(state, "unfinished capture");
  if (capture.isPosition) {
    lua_pushinteger(state, capture.begin - subject + 1);
  } else {
    lua_pushlstring(state, capture.begin, capture.length);
  }
}

/// The captures, or the whole match where the pattern has none. How many they are.
int pushCaptures(lua_State* state, const char* subject, const PatternMatcher& matcher,
                 const char* begin, const char* end) {
  if (matcher.captureCount() == 0) {
    lua_pushlstring(state, begin, static_cast<std::size_t>(end - begin));
    return 1;
  }
  luaL_checkstack(state, matcher.captureCount(), "too many captures");
  for (int i = 0; i < matcher.captureCount(); ++i) pushCapture(state, subject, matcher.capture(i));
  return matcher.captureCount();
}

int search(lua_State* state, bool wantsPlace) {
  const std::string_view subject = checkText(state, 1);
  std::string_view pattern = checkText(state, 2);
  const std::size_t start = startOf(state, 3, subject.size());
  const bool isPlain =
      wantsPlace && (lua_toboolean(state, 4) != 0 || PatternMatcher::isPlain(pattern));
  tick(state);
  if (start > subject.size()) {
    luaL_pushfail(state);
    return 1;
  }
  const char* const subjectEnd = subject.data() + subject.size();
  const char* place = subject.data() + start;
  if (isPlain) {
    // Linear in both, unlike the searches of std::string_view.
    const void* const found =
        memmem(place, static_cast<std::size_t>(subjectEnd - place), pattern.data(), pattern.size());
    if (!found) {
      luaL_pushfail(state);
      return 1;
    }
    const lua_Integer first = static_cast<const char*>(found) - subject.data() + 1;
    lua_pushinteger(state, first);
    lua_pushinteger(state, first + static_cast<lua_Integer>(pattern.size()) - 1);
    return 2;
  }
  const bool isAnchored = !pattern.empty() && pattern.front() == '^';
  if (isAnchored) pattern.remove_prefix(1);
  PatternMatcher matcher(subject, pattern, tickOf, &LuaMachine::of(state));
  do {
    const char* const end = matchAt(state, matcher, place);
    if (!end) continue;
    if (!wantsPlace) return pushCaptures(state, subject.data(), matcher, place, end);
    lua_pushinteger(state, place - subject.data() + 1);
    lua_pushinteger(state, end - subject.data());
    if (matcher.captureCount() == 0) return 2;
    return 2 + pushCaptures(state, subject.data(), matcher, place, end);
  } while (place++ != subjectEnd && !isAnchored);
  luaL_pushfail(state);
  return 1;
}

int find(lua_State* state) { return search(state, true); }

int match(lua_State* state) { return search(state, false); }

/// The iterator of gmatch. Upvalues: subject, pattern, where to go on, where the last match ended
/// (-1: nowhere yet). An empty match there has been seen.
int nextMatch(lua_State* state) {
  const std::string_view subject = checkText(state, lua_upvalueindex(1));
  const std::string_view pattern = checkText(state, lua_upvalueindex(2));
  tick(state);
  PatternMatcher matcher(subject, pattern, tickOf, &LuaMachine::of(state));
  const lua_Integer lastEnd = lua_tointeger(state, lua_upvalueindex(4));
  const lua_Integer first = lua_tointeger(state, lua_upvalueindex(3));
  for (auto at = static_cast<std::size_t>(first); at <= subject.size(); ++at) {
    const char* const place = subject.data() + at;
    const char* const end = matchAt(state, matcher, place);
    if (!end || end - subject.data() == lastEnd) continue;
    lua_pushinteger(state, end - subject.data());
    lua_pushvalue(state, -1);
    lua_replace(state, lua_upvalueindex(3));
    lua_replace(state, lua_upvalueindex(4));
    return pushCaptures(state, subject.data(), matcher, place, end);
  }
  return 0;
}

int matchAll(lua_State* state) {
  const std::string_view subject = checkText(state, 1);
  checkText(state, 2);
  std::size_t start = startOf(state, 3, subject.size());
  if (start > subject.size()) start = subject.size() + 1;  // no match
  lua_settop(state, 2);
  lua_pushinteger(state, static_cast<lua_Integer>(start));
  lua_pushinteger(state, -1);
  lua_pushcclosure(state, nextMatch, 4);
  return 1;
}

/// One match and what takes its place.
struct Replacement {
  const char* subject;
  const char* begin;
  const char* end;
  const PatternMatcher& matcher;
};

/// Pushes capture `index`, from 0; the whole match where the pattern has no captures.
void pushChosenCapture(lua_State* state, const Replacement& match, int index) {
  if (index < match.matcher.captureCount()) {
    pushCapture(state, match.subject, match.matcher.capture(index));
  } else if (index == 0) {
    lua_pushlstring(state, match.begin, static_cast<std::size_t>(match.end - match.begin));
  } else {
    luaL_error(state, "invalid capture index %%%d in replacement string", index + 1);
  }
}

/// Adds the replacement text, the third argument, with its captures filled in.
void addTemplate(lua_State* state, luaL_Buffer& result, const Replacement& match) {
  const std::string_view text = checkText(state, 3);
  std::size_t at = 0;
  for (;;) {
    const std::size_t escape = text.find('%', at);
    luaL_addlstring(&result, text.data() + at, text.substr(at, escape - at).size());
    if (escape == std::string_view::npos) return;
    const char code = escape + 1 < text.size() ? text[escape + 1] : '\0';
    if (code == '%') {
      luaL_addchar(&result, '%');
    } else if (code == '0') {
      luaL_addlstring(&result, match.begin, static_cast<std::size_t>(match.end - match.begin));
    } else if (code >= '1' && code <= '9') {
      pushChosenCapture(state, match, code - '1');
      luaL_tolstring(state, -1, nullptr);  // a position is a number
      lua_remove(state, -2);
      luaL_addvalue(&result);
    } else {
      luaL_error(state, "invalid use of '%%' in replacement string");
    }
    at = escape + 2;
  }
}

void addReplacement(lua_State* state, luaL_Buffer& result, const Replacement& match) {
  switch (lua_type(state, 3)) {
    case LUA_TFUNCTION: {
      tick(state);
      lua_pushvalue(state, 3);
      const int captures =
          pushCaptures(state, match.subject, match.matcher, match.begin, match.end);
      lua_call(state, captures, 1);
      break;
    }
    case LUA_TTABLE:
      pushChosenCapture(state, match, 0);
      lua_gettable(state, 3);
      break;
    default:
      addTemplate(state, result, match);
      return;
  }
  if (lua_toboolean(state, -1) == 0) {  // nothing takes its place
    lua_pop(state, 1);
    luaL_addlstring(&result, match.begin, static_cast<std::size_t>(match.end - match.begin));
  } else if (lua_isstring(state, -1) != 0) {
    luaL_addvalue(&result);
  } else {
    luaL_error(state, "invalid replacement value (a %s)", luaL_typename(state, -1));
  }
}

int substitute(lua_State* state) {
  const std::string_view subject = checkText(state, 1);
  std::string_view pattern = checkText(state, 2);
  const int type = lua_type(state, 3);
  luaL_argexpected(
      state,
      type == LUA_TNUMBER || type == LUA_TSTRING || type == LUA_TFUNCTION || type == LUA_TTABLE, 3,
      "string/function/table");
  const lua_Integer most = luaL_optinteger(state, 4, std::numeric_limits<lua_Integer>::max());
  if (type == LUA_TNUMBER) lua_tolstring(state, 3, nullptr);  // now and not within the loop
  lua_settop(state, 3);
  tick(state);
  const bool isAnchored = !pattern.empty() && pattern.front() == '^';
  if (isAnchored) pattern.remove_prefix(1);

  PatternMatcher matcher(subject, pattern, tickOf, &LuaMachine::of(state));
  const char* const subjectEnd = subject.data() + subject.size();
  const char* place = subject.data();
  const char* lastEnd = nullptr;
  lua_Integer count = 0;
  luaL_Buffer result;
  luaL_buffinit(state, &result);
  while (count < most) {
    const char* const end = matchAt(state, matcher, place);
    if (end && end != lastEnd) {
      ++count;
      addReplacement(state, result, Replacement{subject.data(), place, end, matcher});
      place = lastEnd = end;
    } else if (place < subjectEnd) {
      luaL_addchar(&result, *place);
      ++place;
    } else {
      break;
    }
    if (isAnchored) break;
  }
  luaL_addlstring(&result, place, static_cast<std::size_t>(subjectEnd - place));
  luaL_pushresult(&result);
  lua_pushinteger(state, count);
  return 2;
}

/// string.rep(text, n [, separator]). The library's own loops n times even over nothing.
int repeat(lua_State* state) {
  const std::string_view text = checkText(state, 1);
  const lua_Integer n = luaL_checkinteger(state, 2);
  std::size_t separatorSize = 0;
  const char* const separator = luaL_optlstring(state, 3, "", &separatorSize);
  tick(state);
  const std::size_t each = text.size() + separatorSize;
  if (n <= 0 || each == 0) {
    lua_pushliteral(state, "");
    return 1;
  }
  if (each > LuaMemory::kMost || static_cast<lua_Unsigned>(n) > LuaMemory::kMost / each) {
    return luaL_error(state, "resulting string too large");
  }
  // All but the last separator: the first copy, and then what is there once more, again and again.
  const std::size_t total = static_cast<std::size_t>(n) * each - separatorSize;
  luaL_Buffer result;
  char* const bytes = luaL_buffinitsize(state, &result, total);
  std::memcpy(bytes, text.data(), text.size());
  std::size_t done = text.size();
  if (n > 1) {
    std::memcpy(bytes + done, separator, separatorSize);
    done = each;
  }
  while (done < total) {
    const std::size_t more = std::min(done, total - done);
    std::memcpy(bytes + done, bytes, more);
    done += more;
  }
  luaL_pushresultsize(&result, total);
  return 1;
}

// --- table --------------------------------------------------------------------------------------

/// For functions whose work is bounded by itself, but that scripts may have called out of loops.
int tickAndCall(lua_State* state) {
  tick(state);
  return callOriginal(state, lua_gettop(state));
}

int insertOrRemove(lua_State* state) {
  tick(state);
  checkPlainLength(state);
  return callOriginal(state, lua_gettop(state));
}

int concatenate(lua_State* state) {
  tick(state);
  const lua_Integer first = luaL_optinteger(state, 3, 1);
  const lua_Integer last =
      lua_isnoneornil(state, 4) ? luaL_len(state, 1) : luaL_checkinteger(state, 4);
  checkRange(state, first, last);
  lua_settop(state, 2);
  lua_pushinteger(state, first);
  lua_pushinteger(state, last);
  return callOriginal(state, 4);
}

int move(lua_State* state) {
  tick(state);
  checkRange(state, luaL_checkinteger(state, 2), luaL_checkinteger(state, 3));
  return callOriginal(state, lua_gettop(state));
}

/// The order of sort: the script's, its upvalue, or the language's own.
int isLess(lua_State* state) {
  tick(state);
  if (lua_isnil(state, lua_upvalueindex(1))) {
    lua_pushboolean(state, lua_compare(state, 1, 2, LUA_OPLT));
  } else {
    lua_pushvalue(state, lua_upvalueindex(1));
    lua_insert(state, 1);
    lua_call(state, 2, 1);
  }
  return 1;
}

int sort(lua_State* state) {
  tick(state);
  luaL_checktype(state, 1, LUA_TTABLE);
  if (!lua_isnoneornil(state, 2)) luaL_checktype(state, 2, LUA_TFUNCTION);
  checkPlainLength(state);
  lua_settop(state, 2);
  lua_pushcclosure(state, isLess, 1);
  return callOriginal(state, 2);
}

// --- coroutine ----------------------------------------------------------------------------------

int yield(lua_State* state) {
  // The program itself is a coroutine, too; it stops for input alone.
  if (LuaMachine::of(state).isProgram(state)) {
    return luaL_error(state, "attempt to yield from outside a coroutine");
  }
  return lua_yield(state, lua_gettop(state));
}

int closeCoroutine(lua_State* state) {
  // What a coroutine has to close runs without a deadline, where a deadline ended it.
  tick(state);
  return callOriginal(state, lua_gettop(state));
}

/// Resumes its upvalue, and hands an error of it on.
int resumeWrapped(lua_State* state) {
  tick(state);
  lua_State* const inner = lua_tothread(state, lua_upvalueindex(1));
  const int count = lua_gettop(state);
  if (lua_checkstack(inner, count) == 0) return luaL_error(state, "too many arguments to resume");
  lua_xmove(state, inner, count);
  int results = 0;
  const int ended = lua_resume(inner, state, count, &results);
  if (ended == LUA_OK || ended == LUA_YIELD) {
    luaL_checkstack(state, results, "too many results to resume");
    lua_xmove(inner, state, results);
    return results;
  }
  tick(state);
  const int status = lua_status(inner);
  if (status != LUA_OK && status != LUA_YIELD)
    lua_resetthread(inner);  // it failed: close what it has
  lua_xmove(inner, state, 1);
  if (lua_type(state, -1) == LUA_TSTRING) {  // where it came from, as errors have it
    luaL_where(state, 1);
    lua_insert(state, -2);
    lua_concat(state, 2);
  }
  return lua_error(state);
}

int wrap(lua_State* state) {
  luaL_checktype(state, 1, LUA_TFUNCTION);
  lua_State* const inner = lua_newthread(state);
  lua_pushvalue(state, 1);
  lua_xmove(state, inner, 1);
  lua_pushcclosure(state, resumeWrapped, 1);
  return 1;
}

// --- all ----------------------------------------------------------------------------------------

struct Entry {
  const char* name;
  lua_CFunction function;  // null: the name is taken away
};

constexpr Entry kBase[] = {{"collectgarbage", nullptr},
                           {"dofile", nullptr},
                           {"loadfile", nullptr},
                           {"print", nullptr},
                           {"warn", nullptr},
                           {"load", load},
                           {"setmetatable", setMetatable},
                           {"xpcall", protectedCall}};
constexpr Entry kString[] = {{"dump", nullptr},    {"find", find},       {"match", match},
                             {"gmatch", matchAll}, {"gsub", substitute}, {"rep", repeat}};
constexpr Entry kTable[] = {
    {"concat", concatenate}, {"insert", insertOrRemove}, {"remove", insertOrRemove}, {"move", move},
    {"sort", sort},          {"unpack", tickAndCall}};
constexpr Entry kCoroutine[] = {{"yield", yield}, {"close", closeCoroutine}, {"wrap", wrap}};

/// Opens a library and changes it. Each replacement has the function that it replaces as upvalue.
template <std::size_t N>
void openLibrary(lua_State* state, const char* name, lua_CFunction open,
                 const Entry (&changes)[N]) {
  luaL_requiref(state, name, open, 1);
  for (const Entry& change : changes) {
    if (change.function) {
      lua_getfield(state, -1, change.name);
      lua_pushcclosure(state, change.function, 1);
    } else {
      lua_pushnil(state);
    }
    lua_setfield(state, -2, change.name);
  }
  lua_pop(state, 1);
}

}  // namespace

int openSandbox(lua_State* state) {
  openLibrary(state, LUA_GNAME, luaopen_base, kBase);
  openLibrary(state, LUA_STRLIBNAME, luaopen_string, kString);
  openLibrary(state, LUA_TABLIBNAME, luaopen_table, kTable);
  openLibrary(state, LUA_COLIBNAME, luaopen_coroutine, kCoroutine);
  luaL_requiref(state, LUA_MATHLIBNAME, luaopen_math, 1);
  luaL_requiref(state, LUA_UTF8LIBNAME, luaopen_utf8, 1);
  lua_pop(state, 2);
  return 0;
}

}  // namespace nox::agent
