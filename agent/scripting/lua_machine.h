// A Lua state that cannot harm the agent: bounded memory and time, nothing but harmless libraries,
// and C++ functions that Lua's errors never jump over.
//
// Lua is C and leaves functions with longjmp, which skips destructors. So a C++ function that Lua
// calls works in two steps. First it runs as a LuaFunction, which sees its arguments and gives its
// answer through a LuaCall and may throw, but never touches the state. Only when all its objects
// are gone is the answer, which the machine keeps, pushed by code that has nothing to destroy.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <forward_list>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/scripting/argument.h"

struct lua_State;

namespace nox::agent {

class LuaCall;
class LuaMachine;
class Session;

/// An error of a script, which it may catch. Thrown by value by LuaFunctions.
class ScriptError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Ends a script, whatever it catches. Thrown by value by LuaFunctions.
struct ScriptAbort {};

/// Throws ScriptError, ScriptAbort or Failure.
using LuaFunction = void (*)(LuaCall&);

/// The decimal text of a number: without exponent, and without point where it is whole. Throws
/// ScriptError for what has none.
std::string decimalText(double number);

/// Memory that the machines of one program have together. One thread at a time.
class LuaMemory {
public:
  static constexpr std::size_t kMost = 64u * 1024u * 1024u;

  bool take(std::size_t bytes) {
    if (bytes > kMost - used_) return false;
    used_ += bytes;
    return true;
  }
  void give(std::size_t bytes) { used_ -= bytes; }
  std::size_t used() const { return used_; }

private:
  std::size_t used_ = 0;
};

/// What a program keeps outside of its machines, counted all the same.
class LuaCharge {
public:
  explicit LuaCharge(std::shared_ptr<LuaMemory> memory) : memory_(std::move(memory)) {}
  LuaCharge(LuaCharge&& other) noexcept
      : memory_(std::move(other.memory_)), bytes_(std::exchange(other.bytes_, 0)) {}
  LuaCharge& operator=(LuaCharge&&) = delete;
  ~LuaCharge() { clear(); }

  /// Throws std::bad_alloc where there is no room.
  void add(std::size_t bytes) {
    if (!memory_->take(bytes)) throw std::bad_alloc();
    bytes_ += bytes;
  }
  void clear() {
    if (bytes_ > 0) memory_->give(std::exchange(bytes_, 0));
  }

private:
  std::shared_ptr<LuaMemory> memory_;
  std::size_t bytes_ = 0;
};

/// One value of an answer.
struct LuaValue {
  enum class Kind { Nil, Integer, Text, Object, Iterator, Rows };
  Kind kind = Kind::Nil;
  std::int64_t integer = 0;          // also an iterator's handle
  std::string text;                  // also an object's
  LuaFunction function = nullptr;    // an iterator's
  std::vector<std::string> columns;  // of rows: each row has its values by number and by name
  std::vector<std::vector<Argument>> rows;
};

/// What a LuaFunction works with: a call of it by a script. Arguments count from 1.
class LuaCall {
public:
  LuaCall(LuaMachine& machine, lua_State* state) : machine_(machine), state_(state) {}
  LuaCall(const LuaCall&) = delete;
  LuaCall& operator=(const LuaCall&) = delete;

  LuaMachine& machine() { return machine_; }

  int count() const;
  bool isAbsent(int index) const;  // or nil
  bool isNumber(int index) const;  // and no text that looks like one
  /// Text, or a number's. Valid as long as the call. All of these throw ScriptError.
  std::string_view text(int index);
  /// The same; of other values the word that people know them by: nil, true, table.
  std::string display(int index);
  std::int64_t integer(int index);
  std::int64_t integer(int index, std::int64_t absent);
  /// Anything but nil and false.
  bool flag(int index) const;
  /// Null or text: what may be stored in a row.
  Argument argument(int index);
  /// The text of an object that an earlier call answered.
  std::string_view object(int index);
  /// The iterator's handle, in its function.
  std::int64_t handle() const;
  /// What the script was resumed with, in the function that `wait` named.
  std::string_view input() const;

  void answerNil();
  void answer(std::int64_t number);
  void answer(std::string_view text);
  void answer(std::string&& text);
  /// A value with the methods of `LuaMachine::addMethod`.
  void answerObject(std::string_view text);
  /// What `for` takes: calls `next` until it answers nil. The machine's owner is told when the
  /// handle is no longer needed.
  void answerIterator(LuaFunction next, std::int64_t handle);
  void answerRows(std::vector<std::string> columns, std::vector<std::vector<Argument>> rows);

  /// Makes the whole program wait for input; `then` continues this call when it has come. Nothing
  /// may have been answered. Throws ScriptError where the program cannot stop.
  void wait(LuaFunction then, bool hidden);
  /// Throws what `wait` would throw.
  void checkWait() const;

private:
  [[noreturn]] void throwBadArgument(int index, const char* expected) const;
  LuaValue& add(LuaValue::Kind kind);

  LuaMachine& machine_;
  lua_State* state_;
  std::forward_list<std::string> numbers_;  // texts of arguments that are numbers
};

/// See the head of this file. Belongs to its session's thread.
class LuaMachine {
public:
  enum class State { Done, Waiting, WaitingHidden };

  /// `owner` is told of handles that are given back.
  class Owner {
  public:
    virtual ~Owner() = default;
    virtual void release(std::int64_t handle) noexcept = 0;
  };

  /// Throws std::bad_alloc when there is no memory for it.
  LuaMachine(Session& session, std::shared_ptr<LuaMemory> memory, Owner* owner = nullptr);
  ~LuaMachine();
  LuaMachine(const LuaMachine&) = delete;
  LuaMachine& operator=(const LuaMachine&) = delete;

  Session& session() { return session_; }
  Owner* owner() { return owner_; }

  // All of these throw Failure with the code that `failAs` set.
  void failAs(const char* sqlClass, const char* sqlSubClass);

  /// `function` as nox.NAME.
  void addFunction(const char* name, LuaFunction function);
  /// `text` as nox.NAME.
  void addConstant(const char* name, std::string_view text);
  /// A table nox.NAME whose fields are read and written by functions of (table, key[, value]).
  void addProxy(const char* name, LuaFunction read, LuaFunction write);
  /// A method of the objects.
  void addMethod(const char* name, LuaFunction function);
  /// Another global name for nox.NAME.
  void addGlobal(const char* global, const char* name);

  /// Compiles the program, which `run` starts. `name` stands in its errors.
  void load(std::string_view text, std::string_view name);

  // A program: runs once, in a coroutine that may wait for input.
  void setArguments(const std::vector<Argument>& arguments);
  State run();
  State resume(std::string_view input);
  /// The arguments as the program left them.
  std::vector<Argument> arguments(std::size_t count);
  /// Whether it ended itself.
  bool aborted() const { return verdict_ == Verdict::Aborted; }

  /// An expression: the loaded text is a function of two texts, called as often as one likes. Its
  /// value as text; nil is empty, true and false are 1 and 0.
  std::string call(std::string_view first, std::string_view second, std::size_t mostSteps);

  /// Whether the work may go on. Cheap enough to be asked every microsecond.
  bool tick() noexcept;
  /// For Lua's own functions, after `tick` said no: raises the error that ends the program.
  static int stop(lua_State* state);
  /// Whether the state is that of the program and not of a coroutine that it made.
  bool isProgram(const lua_State* state) const { return state == program_; }
  static LuaMachine& of(lua_State* state);

private:
  friend class LuaCall;
  friend struct LuaInside;  // what knows Lua, and so stays out of this header

  enum class Verdict { None, Interrupted, TimedOut, OutOfMemory, TooManySteps, Aborted, Failed };
  enum class Outcome { Answer, Error, Wait };

  struct Closer {
    void operator()(lua_State* state) const;
  };

  void* reallocate(void* block, std::size_t oldSize, std::size_t newSize) noexcept;
  /// Runs `function`, and keeps its answer or its error.
  Outcome perform(lua_State* state, LuaFunction function) noexcept;
  State proceed();
  /// The first verdict stands.
  void end(Verdict verdict) noexcept;
  /// Throws why the program ended, where it did.
  void throwVerdict();
  [[noreturn]] void throwError(std::string_view text);

  Session& session_;
  const std::shared_ptr<LuaMemory> memory_;
  Owner* const owner_;
  const char* sqlClass_ = "IE";
  const char* sqlSubClass_ = "003";

  Verdict verdict_ = Verdict::None;
  std::exception_ptr failure_;  // of the verdict Failed
  std::size_t steps_ = 0;       // left to an expression
  bool countsSteps_ = false;

  // The allocation that was refused last: Lua tries again after it has collected its garbage.
  bool refused_ = false;
  void* refusedBlock_ = nullptr;
  std::size_t refusedSize_ = 0;

  std::vector<LuaValue> results_;
  std::string error_;
  LuaFunction waiting_ = nullptr;
  bool waitingHidden_ = false;
  std::string_view input_;

  const void* objectMetatable_ = nullptr;
  int objectMetatableRef_ = 0;
  int iteratorMetatableRef_ = 0;
  int functionRef_ = 0;                       // what was loaded
  lua_State* program_ = nullptr;              // its coroutine
  std::unique_ptr<lua_State, Closer> state_;  // the last member: closing it uses the others
};

}  // namespace nox::agent
