#include "agent/scripting/lua_machine.h"

#include <lua.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "agent/failure.h"
#include "agent/log/log.h"
#include "agent/names.h"
#include "agent/scripting/lua_sandbox.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

// Instructions between two looks at the clock. One instruction may take milliseconds (a text of
// megabytes that is joined with another), so these are few.
constexpr int kInstructionsPerTick = 200;
constexpr std::size_t kLongestError = 2000;  // bytes of an error's text
constexpr char kOver[] = "the program is over";

bool isReadable(std::string_view text) {
  return isUtf8(text) && std::none_of(text.begin(), text.end(), [](char c) {
           return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
         });
}

/// An iterator's hold on its handle, in a block of Lua's.
struct Cursor {
  std::int64_t handle;
  bool open;
};

}  // namespace

/// The machine as Lua's own functions see it. Everything here may be left by a jump, so nothing
/// here has a destructor.
struct LuaInside {
  static void* allocate(void* self, void* block, std::size_t oldSize, std::size_t newSize) {
    // For a new block, the old size is a kind of object.
    return static_cast<LuaMachine*>(self)->reallocate(block, block ? oldSize : 0, newSize);
  }

  static void hook(lua_State* state, lua_Debug* /*event*/) {
    LuaMachine& machine = LuaMachine::of(state);
    if (machine.countsSteps_) {
      if (machine.steps_ < kInstructionsPerTick) {
        machine.end(LuaMachine::Verdict::TooManySteps);
      } else {
        machine.steps_ -= kInstructionsPerTick;
      }
    }
    if (!machine.tick()) LuaMachine::stop(state);
  }

  /// Runs `body`, which Lua's errors may end, and answers how it went. `body` gets an empty stack;
  /// what it returns stays on the caller's, or else the error.
  template <class Body>
  static int protect(lua_State* state, int results, Body body) {
    static_assert(std::is_trivially_destructible_v<Body>);
    lua_pushcfunction(state, [](lua_State* inner) -> int {
      Body& callee = *static_cast<Body*>(lua_touserdata(inner, 1));
      lua_settop(inner, 0);
      return callee(inner);
    });
    lua_pushlightuserdata(state, &body);
    return lua_pcall(state, 1, results, 0);
  }

  /// `protect` for the machine's own preparations, which fail for want of memory alone.
  template <class Body>
  static void prepare(LuaMachine& machine, Body body) {
    if (protect(machine.state_.get(), 0, body) != LUA_OK) {
      lua_settop(machine.state_.get(), 0);
      throw std::bad_alloc();
    }
  }

  static int open(lua_State* state, LuaMachine& machine) {
    openSandbox(state);
    lua_newtable(state);
    lua_setglobal(state, "nox");

    lua_createtable(state, 0, 3);
    machine.objectMetatable_ = lua_topointer(state, -1);
    lua_newtable(state);
    lua_setfield(state, -2, "__index");
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
    machine.objectMetatableRef_ = luaL_ref(state, LUA_REGISTRYINDEX);

    lua_createtable(state, 0, 3);
    lua_pushcfunction(state, closeCursor);
    lua_setfield(state, -2, "__gc");
    lua_pushcfunction(state, closeCursor);
    lua_setfield(state, -2, "__close");
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
    machine.iteratorMetatableRef_ = luaL_ref(state, LUA_REGISTRYINDEX);

    machine.program_ = lua_newthread(state);
    luaL_ref(state, LUA_REGISTRYINDEX);
    return 0;
  }

  static int closeCursor(lua_State* state) {
    Cursor* const cursor = static_cast<Cursor*>(lua_touserdata(state, 1));
    if (!cursor || !cursor->open) return 0;
    cursor->open = false;
    LuaMachine& machine = LuaMachine::of(state);
    if (machine.owner_) machine.owner_->release(cursor->handle);
    return 0;
  }

  static void pushFunction(lua_State* state, LuaFunction function) {
    lua_pushlightuserdata(state, reinterpret_cast<void*>(function));
    lua_pushcclosure(state, enter, 1);
  }

  static int enter(lua_State* state) {
    const auto function = reinterpret_cast<LuaFunction>(lua_touserdata(state, lua_upvalueindex(1)));
    LuaMachine& machine = LuaMachine::of(state);
    return leave(state, machine, machine.perform(state, function));
  }

  static int enterAgain(lua_State* state, int /*status*/, lua_KContext /*context*/) {
    LuaMachine& machine = LuaMachine::of(state);
    return leave(state, machine, machine.perform(state, machine.waiting_));
  }

  static int leave(lua_State* state, LuaMachine& machine, LuaMachine::Outcome outcome) {
    switch (outcome) {
      case LuaMachine::Outcome::Wait:
        return lua_yieldk(state, 0, 0, enterAgain);
      case LuaMachine::Outcome::Error:
        luaL_where(state, 1);
        lua_pushlstring(state, machine.error_.data(), machine.error_.size());
        lua_concat(state, 2);
        return lua_error(state);
      case LuaMachine::Outcome::Answer:
        break;
    }
    int pushed = 0;
    for (const LuaValue& value : machine.results_) {
      luaL_checkstack(state, 8, "too many results");
      pushed += push(state, machine, value);
    }
    machine.results_.clear();
    return pushed;
  }

  /// How many values it pushed.
  static int push(lua_State* state, LuaMachine& machine, const LuaValue& value) {
    switch (value.kind) {
      case LuaValue::Kind::Nil:
        lua_pushnil(state);
        return 1;
      case LuaValue::Kind::Integer:
        lua_pushinteger(state, value.integer);
        return 1;
      case LuaValue::Kind::Text:
        lua_pushlstring(state, value.text.data(), value.text.size());
        return 1;
      case LuaValue::Kind::Object:
        std::memcpy(lua_newuserdatauv(state, value.text.size(), 0), value.text.data(),
                    value.text.size());
        lua_rawgeti(state, LUA_REGISTRYINDEX, machine.objectMetatableRef_);
        lua_setmetatable(state, -2);
        return 1;
      case LuaValue::Kind::Iterator:
        return pushIterator(state, machine, value);
      case LuaValue::Kind::Rows:
        pushRows(state, value);
        return 1;
    }
    return 0;
  }

  /// The four values that `for` takes: the function, two that are not needed, and what is closed
  /// when the loop ends.
  static int pushIterator(lua_State* state, LuaMachine& machine, const LuaValue& value) {
    auto* const cursor = static_cast<Cursor*>(lua_newuserdatauv(state, sizeof(Cursor), 0));
    *cursor = Cursor{value.integer, true};
    lua_rawgeti(state, LUA_REGISTRYINDEX, machine.iteratorMetatableRef_);
    lua_setmetatable(state, -2);
    lua_pushlightuserdata(state, reinterpret_cast<void*>(value.function));
    lua_pushvalue(state, -2);
    lua_pushcclosure(state, enter, 2);
    lua_insert(state, -2);
    lua_pushnil(state);
    lua_insert(state, -2);
    lua_pushnil(state);
    lua_insert(state, -2);
    return 4;
  }

  static void pushRows(lua_State* state, const LuaValue& value) {
    lua_createtable(state, static_cast<int>(value.rows.size()), 0);
    lua_Integer number = 0;
    for (const std::vector<Argument>& row : value.rows) {
      lua_createtable(state, static_cast<int>(row.size()), static_cast<int>(row.size()));
      for (std::size_t i = 0; i < row.size(); ++i) {
        if (!row[i]) continue;
        lua_pushlstring(state, row[i]->data(), row[i]->size());
        if (i < value.columns.size()) {
          lua_pushlstring(state, value.columns[i].data(), value.columns[i].size());
          lua_pushvalue(state, -2);
          lua_rawset(state, -4);
        }
        lua_rawseti(state, -2, static_cast<lua_Integer>(i) + 1);
      }
      lua_rawseti(state, -2, ++number);
    }
  }

  /// "name:line: " of the innermost function of a coroutine that an error ended; its calls are
  /// still there. Empty where none has lines.
  static std::string placeOf(lua_State* state) {
    lua_Debug frame;
    for (int level = 0; lua_getstack(state, level, &frame) != 0; ++level) {
      if (lua_getinfo(state, "Sl", &frame) != 0 && frame.currentline > 0) {
        return std::string(frame.short_src) + ":" + std::to_string(frame.currentline) + ": ";
      }
    }
    return {};
  }

  /// The text of an error object, which stays on the stack.
  static std::string_view errorText(lua_State* state) {
    if (lua_type(state, -1) != LUA_TSTRING) return "an error that is no text";
    std::size_t size = 0;
    const char* const text = lua_tolstring(state, -1, &size);
    return {text, size};
  }
};

std::string decimalText(double number) {
  if (!std::isfinite(number)) throw ScriptError("a number that is not finite has no decimal text");
  if (number == 0) return "0";  // no minus
  // The shortest that reads as the same number, without an exponent: at most 309 digits, or as
  // many zeros with 17 digits behind them.
  std::array<char, 400> digits{};
  const auto end =
      std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed);
  return std::string(digits.data(), end.ptr);
}

LuaMachine& LuaMachine::of(lua_State* state) {
  return **static_cast<LuaMachine**>(lua_getextraspace(state));
}

int LuaMachine::stop(lua_State* state) {
  // From now on before each instruction: who catches the error gets no further.
  lua_sethook(state, &LuaInside::hook, LUA_MASKCOUNT, 1);
  return luaL_error(state, kOver);
}

void LuaMachine::Closer::operator()(lua_State* state) const { lua_close(state); }

LuaMachine::LuaMachine(Session& session, std::shared_ptr<LuaMemory> memory, Owner* owner)
    : session_(session),
      memory_(std::move(memory)),
      owner_(owner),
      state_(lua_newstate(&LuaInside::allocate, this)) {
  if (!state_) throw std::bad_alloc();
  // Coroutines take both over from the state that makes them.
  *static_cast<LuaMachine**>(lua_getextraspace(state_.get())) = this;
  lua_sethook(state_.get(), &LuaInside::hook, LUA_MASKCOUNT, kInstructionsPerTick);
  LuaInside::prepare(*this, [this](lua_State* state) { return LuaInside::open(state, *this); });
}

LuaMachine::~LuaMachine() = default;

void* LuaMachine::reallocate(void* block, std::size_t oldSize, std::size_t newSize) noexcept {
  if (newSize == 0) {
    std::free(block);
    memory_->give(oldSize);
    return nullptr;
  }
  if (newSize <= oldSize) {
    void* const smaller = std::realloc(block, newSize);
    if (!smaller) return block;  // as it was: Lua relies on shrinking
    memory_->give(oldSize - newSize);
    return smaller;
  }

  // Lua collects its garbage after a refusal and asks once more. When it asks for anything else, or
  // in vain, memory is exhausted, and the program is not to catch that.
  const bool again = refused_ && block == refusedBlock_ && newSize == refusedSize_;
  if (refused_ && !again) end(Verdict::OutOfMemory);
  refused_ = false;
  if (memory_->take(newSize - oldSize)) {
    if (void* const larger = std::realloc(block, newSize)) return larger;
    memory_->give(newSize - oldSize);
  }
  if (again) {
    end(Verdict::OutOfMemory);
  } else {
    tick();  // collecting takes long: a program that lives on it is stopped here
    refused_ = true;
    refusedBlock_ = block;
    refusedSize_ = newSize;
  }
  return nullptr;
}

LuaMachine::Outcome LuaMachine::perform(lua_State* state, LuaFunction function) noexcept {
  waiting_ = nullptr;
  results_.clear();
  try {
    try {
      if (!tick()) throw ScriptError(kOver);
      LuaCall call(*this, state);
      function(call);
      return waiting_ ? Outcome::Wait : Outcome::Answer;
    } catch (const ScriptError& error) {
      error_ = error.what();
    } catch (const ScriptAbort&) {
      end(Verdict::Aborted);
      error_ = kOver;
    } catch (const Failure& failure) {
      error_ = failure.what();
      // A transaction that was rolled back takes the program with it: what it did is gone, and it
      // must not go on as if it were there.
      if (failure.state().sqlClass == "40") {
        failure_ = std::current_exception();
        end(Verdict::Failed);
      }
      tick();  // or else the deadline may be what failed
    } catch (const std::bad_alloc&) {
      end(Verdict::OutOfMemory);
      error_ = kOver;
    } catch (...) {
      failure_ = std::current_exception();
      end(Verdict::Failed);
      error_ = kOver;
    }
  } catch (...) {  // no memory for a text of the error
    end(Verdict::OutOfMemory);
    error_.clear();
  }
  waiting_ = nullptr;
  return Outcome::Error;
}

bool LuaMachine::tick() noexcept {
  if (verdict_ != Verdict::None) return false;
  if (refused_) {
    end(Verdict::OutOfMemory);
  } else if (session_.isInterrupted()) {
    end(Verdict::Interrupted);
  } else if (const auto deadline = session_.deadline();
             deadline && Session::Clock::now() > *deadline) {
    end(Verdict::TimedOut);
  }
  return verdict_ == Verdict::None;
}

void LuaMachine::end(Verdict verdict) noexcept {
  if (verdict_ == Verdict::None) verdict_ = verdict;
}

void LuaMachine::failAs(const char* sqlClass, const char* sqlSubClass) {
  sqlClass_ = sqlClass;
  sqlSubClass_ = sqlSubClass;
}

void LuaMachine::throwVerdict() {
  if (refused_) end(Verdict::OutOfMemory);
  const auto fail = [this](const char* reason) {
    throwError(LuaInside::placeOf(program_) + reason);
  };
  switch (verdict_) {
    case Verdict::None:
    case Verdict::Aborted:
      return;
    case Verdict::Interrupted:
      fail("interrupted");
      break;
    case Verdict::TimedOut:
      fail("it takes longer than STATEMENT_TIMEOUT allows");
      break;
    case Verdict::OutOfMemory:
      fail("it needs more than 64 MiB of memory");
      break;
    case Verdict::TooManySteps:
      fail("it takes too many steps");
      break;
    case Verdict::Failed:
      std::rethrow_exception(failure_);
  }
}

void LuaMachine::throwError(std::string_view text) {
  if (text.size() > kLongestError) {
    text = text.substr(0, kLongestError);
    while (text.size() > kLongestError - 4 && !isUtf8(text)) text.remove_suffix(1);
  }
  throw Failure(sqlClass_, sqlSubClass_, isReadable(text) ? std::string(text) : Log::escaped(text));
}

void LuaMachine::addFunction(const char* name, LuaFunction function) {
  LuaInside::prepare(*this, [name, function](lua_State* state) {
    lua_getglobal(state, "nox");
    LuaInside::pushFunction(state, function);
    lua_setfield(state, -2, name);
    return 0;
  });
}

void LuaMachine::addConstant(const char* name, std::string_view text) {
  LuaInside::prepare(*this, [name, text](lua_State* state) {
    lua_getglobal(state, "nox");
    lua_pushlstring(state, text.data(), text.size());
    lua_setfield(state, -2, name);
    return 0;
  });
}

void LuaMachine::addProxy(const char* name, LuaFunction read, LuaFunction write) {
  LuaInside::prepare(*this, [name, read, write](lua_State* state) {
    lua_getglobal(state, "nox");
    lua_newtable(state);
    lua_createtable(state, 0, 3);
    LuaInside::pushFunction(state, read);
    lua_setfield(state, -2, "__index");
    LuaInside::pushFunction(state, write);
    lua_setfield(state, -2, "__newindex");
    lua_pushboolean(state, 0);
    lua_setfield(state, -2, "__metatable");
    lua_setmetatable(state, -2);
    lua_setfield(state, -2, name);
    return 0;
  });
}

void LuaMachine::addMethod(const char* name, LuaFunction function) {
  LuaInside::prepare(*this, [this, name, function](lua_State* state) {
    lua_rawgeti(state, LUA_REGISTRYINDEX, objectMetatableRef_);
    lua_getfield(state, -1, "__index");
    LuaInside::pushFunction(state, function);
    lua_setfield(state, -2, name);
    return 0;
  });
}

void LuaMachine::addGlobal(const char* global, const char* name) {
  LuaInside::prepare(*this, [global, name](lua_State* state) {
    lua_getglobal(state, "nox");
    lua_getfield(state, -1, name);
    lua_setglobal(state, global);
    return 0;
  });
}

void LuaMachine::load(std::string_view text, std::string_view name) {
  lua_State* const state = state_.get();
  const std::string chunkName = "=" + std::string(name);
  const int status = LuaInside::protect(
      state, 0, [this, text, chunk = chunkName.c_str()](lua_State* inner) -> int {
        if (luaL_loadbufferx(inner, text.data(), text.size(), chunk, "t") != LUA_OK) {
          return lua_error(inner);
        }
        functionRef_ = luaL_ref(inner, LUA_REGISTRYINDEX);
        return 0;
      });
  throwVerdict();
  if (status != LUA_OK) throwError(LuaInside::errorText(state));
}

void LuaMachine::setArguments(const std::vector<Argument>& arguments) {
  LuaInside::prepare(*this, [&arguments](lua_State* state) {
    lua_createtable(state, static_cast<int>(arguments.size()), 0);
    lua_Integer number = 0;
    for (const Argument& argument : arguments) {
      ++number;
      if (!argument) continue;
      lua_pushlstring(state, argument->data(), argument->size());
      lua_rawseti(state, -2, number);
    }
    lua_setglobal(state, "args");
    return 0;
  });
}

LuaMachine::State LuaMachine::run() {
  lua_rawgeti(program_, LUA_REGISTRYINDEX, functionRef_);
  return proceed();
}

LuaMachine::State LuaMachine::resume(std::string_view input) {
  input_ = input;
  return proceed();
}

LuaMachine::State LuaMachine::proceed() {
  int results = 0;
  const int status = lua_resume(program_, nullptr, 0, &results);
  input_ = {};
  throwVerdict();
  if (verdict_ == Verdict::Aborted || status == LUA_OK) return State::Done;
  if (status != LUA_YIELD) throwError(LuaInside::errorText(program_));
  lua_pop(program_, results);
  return waitingHidden_ ? State::WaitingHidden : State::Waiting;
}

std::vector<Argument> LuaMachine::arguments(std::size_t count) {
  lua_State* const state = state_.get();
  const int status = LuaInside::protect(state, 1, [](lua_State* inner) {
    lua_pushglobaltable(inner);
    lua_pushliteral(inner, "args");
    lua_rawget(inner, -2);
    return 1;
  });
  if (status != LUA_OK) throwError(LuaInside::errorText(state));
  if (!lua_istable(state, -1)) throwError("args is no table");
  std::vector<Argument> arguments(count);
  for (std::size_t i = 0; i < count; ++i) {
    lua_rawgeti(state, -1, static_cast<lua_Integer>(i) + 1);
    try {
      LuaCall call(*this, state);
      arguments[i] = call.argument(lua_gettop(state));
    } catch (const ScriptError&) {
      throwError("args[" + std::to_string(i + 1) + "] is neither text nor a number but a " +
                 luaL_typename(state, -1));
    }
    lua_pop(state, 1);
  }
  lua_pop(state, 1);
  return arguments;
}

std::string LuaMachine::call(std::string_view first, std::string_view second,
                             std::size_t mostSteps) {
  throwVerdict();
  countsSteps_ = true;
  steps_ = mostSteps;
  lua_State* const state = state_.get();
  const int status =
      LuaInside::protect(state, 1, [first, second, function = functionRef_](lua_State* inner) {
        lua_rawgeti(inner, LUA_REGISTRYINDEX, function);
        lua_pushlstring(inner, first.data(), first.size());
        lua_pushlstring(inner, second.data(), second.size());
        lua_call(inner, 2, 1);
        return 1;
      });
  throwVerdict();
  if (status != LUA_OK) throwError(LuaInside::errorText(state));
  std::string value;
  switch (lua_type(state, -1)) {
    case LUA_TNIL:
      break;
    case LUA_TBOOLEAN:
      value = lua_toboolean(state, -1) != 0 ? "1" : "0";
      break;
    default:
      try {
        LuaCall call(*this, state);
        value = call.text(lua_gettop(state));
      } catch (const ScriptError&) {
        throwError("its value is neither text nor a number");
      }
  }
  lua_pop(state, 1);
  return value;
}

int LuaCall::count() const { return lua_gettop(state_); }

bool LuaCall::isAbsent(int index) const { return lua_isnoneornil(state_, index); }

bool LuaCall::isNumber(int index) const { return lua_type(state_, index) == LUA_TNUMBER; }

void LuaCall::throwBadArgument(int index, const char* expected) const {
  throw ScriptError("bad argument #" + std::to_string(index) + " (" + expected + " expected, got " +
                    luaL_typename(state_, index) + ")");
}

std::string_view LuaCall::text(int index) {
  switch (lua_type(state_, index)) {
    case LUA_TSTRING: {
      std::size_t size = 0;
      const char* const text = lua_tolstring(state_, index, &size);
      return {text, size};
    }
    case LUA_TNUMBER:
      return numbers_.emplace_front(lua_isinteger(state_, index)
                                        ? std::to_string(lua_tointeger(state_, index))
                                        : decimalText(lua_tonumber(state_, index)));
    default:
      throwBadArgument(index, "text");
  }
}

std::string LuaCall::display(int index) {
  switch (lua_type(state_, index)) {
    case LUA_TSTRING:
    case LUA_TNUMBER:
      return std::string(text(index));
    case LUA_TBOOLEAN:
      return lua_toboolean(state_, index) != 0 ? "true" : "false";
    default:
      return luaL_typename(state_, index);
  }
}

std::int64_t LuaCall::integer(int index) {
  int isInteger = 0;
  const lua_Integer number = lua_tointegerx(state_, index, &isInteger);
  if (isInteger == 0) throwBadArgument(index, "whole number");
  return number;
}

std::int64_t LuaCall::integer(int index, std::int64_t absent) {
  return isAbsent(index) ? absent : integer(index);
}

bool LuaCall::flag(int index) const { return lua_toboolean(state_, index) != 0; }

Argument LuaCall::argument(int index) {
  if (isAbsent(index)) return std::nullopt;
  return std::string(text(index));
}

std::string_view LuaCall::object(int index) {
  const void* const block = lua_touserdata(state_, index);
  if (block && lua_getmetatable(state_, index) != 0) {
    const bool ours = lua_topointer(state_, -1) == machine_.objectMetatable_;
    lua_pop(state_, 1);
    if (ours) return {static_cast<const char*>(block), lua_rawlen(state_, index)};
  }
  throwBadArgument(index, "file");
}

std::int64_t LuaCall::handle() const {
  const auto* const cursor =
      static_cast<const Cursor*>(lua_touserdata(state_, lua_upvalueindex(2)));
  if (!cursor->open) throw ScriptError("the loop of this iterator is over");
  return cursor->handle;
}

std::string_view LuaCall::input() const { return machine_.input_; }

LuaValue& LuaCall::add(LuaValue::Kind kind) {
  LuaValue& value = machine_.results_.emplace_back();
  value.kind = kind;
  return value;
}

void LuaCall::answerNil() { add(LuaValue::Kind::Nil); }

void LuaCall::answer(std::int64_t number) { add(LuaValue::Kind::Integer).integer = number; }

void LuaCall::answer(std::string_view text) { add(LuaValue::Kind::Text).text = text; }

void LuaCall::answer(std::string&& text) { add(LuaValue::Kind::Text).text = std::move(text); }

void LuaCall::answerObject(std::string_view text) { add(LuaValue::Kind::Object).text = text; }

void LuaCall::answerIterator(LuaFunction next, std::int64_t handle) {
  LuaValue& value = add(LuaValue::Kind::Iterator);
  value.function = next;
  value.integer = handle;
}

void LuaCall::answerRows(std::vector<std::string> columns,
                         std::vector<std::vector<Argument>> rows) {
  LuaValue& value = add(LuaValue::Kind::Rows);
  value.columns = std::move(columns);
  value.rows = std::move(rows);
}

void LuaCall::checkWait() const {
  if (state_ != machine_.program_) throw ScriptError("input is not possible inside a coroutine");
  if (lua_isyieldable(state_) == 0) {
    throw ScriptError("input is not possible inside a function that a library calls");
  }
}

void LuaCall::wait(LuaFunction then, bool hidden) {
  checkWait();
  machine_.waiting_ = then;
  machine_.waitingHidden_ = hidden;
}

}  // namespace nox::agent
