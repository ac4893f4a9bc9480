#include "agent/scripting/subroutine.h"

#include <algorithm>
#include <map>
#include <utility>

#include <nox/nox.h>

#include "agent/commands/commands.h"
#include "agent/failure.h"
#include "agent/lists/key_list.h"
#include "agent/multivalue.h"
#include "agent/scripting/lua_machine.h"
#include "agent/scripting/native_stack.h"
#include "agent/scripting/nox_functions.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"
#include "agent/store/store.h"

namespace nox::agent {

namespace {

constexpr char kSubroutines[] = "NOX.SUBS";
constexpr int kDeepest = 32;
// What the language's own limits let one program use of the thread's stack, and the store's what a
// statement may use on top of that, with room to spare.
constexpr std::size_t kStackOfOne = 1024u * 1024u;
constexpr std::size_t kMostIterators = 16;
constexpr std::size_t kKeysAtOnce = 1000;

[[noreturn]] void failToLoad(const std::string& reason) { throw Failure("IE", "004", reason); }

/// The source, its lines divided by line feeds: as a record they may be its attributes.
std::string sourceOf(Session& session, std::string_view name) {
  NOXPBlob body;
  try {
    if (session.data().read(kSubroutines, name, DataAccess::kReadPlain, body) != DataAccess::Done) {
      failToLoad("there is no subroutine \"" + std::string(name) + "\"");
    }
  } catch (const Failure& failure) {
    if (failure.state().sqlClass == "40") throw;
    failToLoad(failure.reason());
  }
  if (body.length() == 0) return {};
  std::string source(reinterpret_cast<const char*>(body.getBuf()), body.length());
  std::replace(source.begin(), source.end(), kAttribute, '\n');
  return source;
}

/// Lines, divided by attribute marks, and bounded by what a reply can carry.
class Output {
public:
  Output(std::size_t most, std::shared_ptr<LuaMemory> memory)
      : most_(most), charge_(std::move(memory)) {}

  void add(std::string_view lines) {
    if (lines.size() >= most_ - std::min(most_, text_.size())) {
      throw ScriptError("there is more output than a reply can carry");
    }
    charge_.add(lines.size() + 1);
    if (any_) text_ += kAttribute;
    any_ = true;
    text_ += lines;
  }

  std::string take() {
    any_ = false;
    charge_.clear();
    return std::exchange(text_, {});
  }

private:
  const std::size_t most_;
  LuaCharge charge_;
  std::string text_;
  bool any_ = false;
};

class LuaSubroutine final : public Subroutine, private ScriptHost {
public:
  LuaSubroutine(Session& session, std::string_view name, std::vector<Argument> arguments,
                bool mayPrompt)
      : session_(session),
        name_(name),
        mayPrompt_(mayPrompt),
        depth_(innermost ? innermost->depth_ + 1 : 1),
        memory_(innermost ? innermost->memory_ : std::make_shared<LuaMemory>()),
        source_(sourceOf(session, name)),
        arguments_(std::move(arguments)),
        // A reply has more than the output: half of it.
        output_(session.frameCap() / 2, memory_),
        executedOutput_(session.frameCap() / 2, memory_) {
    if (depth_ > kDeepest) {
      throw Failure("IE", "003", "subroutines call one another more than 32 deep");
    }
  }

  State run(std::optional<std::string_view> input) override {
    if (nativeStackLeft() < kStackOfOne) {
      throw Failure("IE", "003", "subroutines call one another too deep for the thread's stack");
    }
    const LuaSubroutine* const outer = std::exchange(innermost, this);
    try {
      const State state = proceed(input);
      innermost = outer;
      return state;
    } catch (...) {
      innermost = outer;
      machine_.reset();
      throw;
    }
  }

  std::string takeOutput() override { return output_.take(); }
  void finish(Reply& /*reply*/) override {}
  const std::vector<Argument>& arguments() const override { return arguments_; }
  bool aborted() const override { return aborted_; }

private:
  /// An iterator's keys, and those that were read from them.
  struct Keys {
    explicit Keys(std::shared_ptr<LuaMemory> memory) : charge(std::move(memory)) {}

    LuaCharge charge;
    KeyList list;
    std::vector<std::string> chunk;
    std::size_t next = 0;   // in the chunk
    std::size_t begin = 0;  // of the chunk, in the list
  };

  State proceed(std::optional<std::string_view> input) {
    if (!machine_) start();
    const LuaMachine::State state = input ? machine_->resume(*input) : machine_->run();
    switch (state) {
      case LuaMachine::State::Waiting:
        return State::WantsInput;
      case LuaMachine::State::WaitingHidden:
        return State::WantsHiddenInput;
      case LuaMachine::State::Done:
        break;
    }
    end();
    return State::Done;
  }

  void start() {
    machine_ = std::make_unique<LuaMachine>(session_, memory_, static_cast<ScriptHost*>(this));
    addTextFunctions(*machine_);
    addSessionFunctions(*machine_);
    machine_->load(source_, name_);
    source_ = {};
    machine_->setArguments(arguments_);
  }

  void end() {
    arguments_ = machine_->arguments(arguments_.size());
    aborted_ = machine_->aborted();
    machine_.reset();
  }

  // ScriptHost
  void release(std::int64_t handle) noexcept override { keys_.erase(handle); }

  void print(std::string_view line) override { output_.add(line); }

  void checkMayPrompt() const override {
    if (!mayPrompt_) throw ScriptError("input is not possible in a call through SQL");
  }

  Step execute(std::string_view line) override {
    executedOutput_.take();
    command_ = makeCommand(session_, line);
    return step(std::nullopt);
  }

  Step continueExecution(std::string_view input) override { return step(input); }

  void dropExecution() noexcept override { command_.reset(); }

  Step step(std::optional<std::string_view> input) {
    // A command that fails is over.
    std::unique_ptr<CommandProgram> command = std::move(command_);
    const State state = command->run(input);
    const std::string text = command->takeOutput();
    if (state == State::Done) {
      if (!text.empty()) executedOutput_.add(text);
      executedCode_ = command->code();
      session_.setLastCommandCode(executedCode_);
      return Step::Done;
    }
    executedOutput_.add(text);
    output_.add(text);  // the client has to see what it answers
    command_ = std::move(command);
    return state == State::WantsInput ? Step::WantsInput : Step::WantsHiddenInput;
  }

  Executed takeExecuted() override { return {executedOutput_.take(), executedCode_}; }

  std::int64_t keepKeys(std::string_view file) override {
    if (keys_.size() == kMostIterators) throw ScriptError("too many selections at once");
    Keys keys(memory_);
    const FilePart part = parseFilePart(file, "IE", "007");
    try {
      const auto cursor = session_.data().scan(part, false);
      while (cursor->next()) {
        keys.list.add(cursor->key());
        if (keys.list.size() <= KeyList::kMostInMemory) {
          keys.charge.add(sizeof(std::string) + cursor->key().size());
        } else {
          keys.charge.clear();  // on the disk now
        }
      }
    } catch (const StoreError& error) {
      throwAsFailure(error, "IE", "007");
    }
    keys_.emplace(++lastHandle_, std::move(keys));
    return lastHandle_;
  }

  std::optional<std::string_view> nextKey(std::int64_t handle) override {
    Keys& keys = keys_.at(handle);
    if (keys.next == keys.chunk.size()) {
      keys.begin += keys.chunk.size();
      keys.chunk = keys.list.read(keys.begin, kKeysAtOnce);
      keys.next = 0;
      if (keys.chunk.empty()) return std::nullopt;
    }
    return keys.chunk[keys.next++];
  }

  // Of this thread, while it runs: what it creates is nested in it.
  static thread_local const LuaSubroutine* innermost;

  Session& session_;
  const std::string name_;
  const bool mayPrompt_;
  const int depth_;
  const std::shared_ptr<LuaMemory> memory_;
  std::string source_;
  std::vector<Argument> arguments_;
  bool aborted_ = false;
  Output output_;

  std::unique_ptr<CommandProgram> command_;  // that the script executes
  Output executedOutput_;
  int executedCode_ = 0;

  std::map<std::int64_t, Keys> keys_;
  std::int64_t lastHandle_ = 0;
  std::unique_ptr<LuaMachine> machine_;  // ends first: its iterators give their keys back
};

thread_local const LuaSubroutine* LuaSubroutine::innermost = nullptr;

}  // namespace

void checkSubroutine(Session& session, std::string_view name) {
  const std::string source = sourceOf(session, name);
  LuaMachine machine(session, std::make_shared<LuaMemory>());
  machine.failAs("IE", "004");
  machine.load(source, name);
}

std::unique_ptr<Subroutine> makeSubroutine(Session& session, std::string_view name,
                                           std::vector<Argument> arguments, bool mayPrompt) {
  return std::make_unique<LuaSubroutine>(session, name, std::move(arguments), mayPrompt);
}

}  // namespace nox::agent
