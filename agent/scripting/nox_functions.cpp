#include "agent/scripting/nox_functions.h"

#include <string>
#include <utility>
#include <vector>

#include <nox/nox.h>

#include "agent/conversions/conversions.h"
#include "agent/multivalue.h"
#include "agent/names.h"
#include "agent/session/data_access.h"
#include "agent/session/named_commons.h"
#include "agent/session/session.h"
#include "agent/sql/script_sql.h"

namespace nox::agent {

namespace {

ScriptHost& hostOf(LuaCall& call) { return static_cast<ScriptHost&>(*call.machine().owner()); }

// --- marks: nox.NAME(record, attribute [, value [, subvalue]] [, text]) --------------------------

/// A field's number: what it adds to a record in front of it must stay reasonable.
int numberAt(LuaCall& call, int index) {
  const std::int64_t number = call.integer(index, 0);
  if (number < -1 || number > static_cast<std::int64_t>(kLongestRecord)) {
    throw ScriptError("bad argument #" + std::to_string(index) + " (no number of a field)");
  }
  return static_cast<int>(number);
}

/// The numbers from the second argument to `last`.
Position positionOf(LuaCall& call, int last) {
  if (last < 2 || last > 4) throw ScriptError("a field has one to three numbers");
  Position at;
  at.attribute = numberAt(call, 2);
  if (last >= 3) at.value = numberAt(call, 3);
  if (last >= 4) at.subvalue = numberAt(call, 4);
  return at;
}

void extractField(LuaCall& call) {
  const std::string_view record = call.text(1);
  call.answer(extract(record, positionOf(call, call.count())));
}

void replaceField(LuaCall& call) {
  const std::string_view record = call.text(1);
  const int last = call.count();
  const Position at = positionOf(call, last - 1);
  call.answer(replace(record, at, call.text(last)));
}

void insertField(LuaCall& call) {
  const std::string_view record = call.text(1);
  const int last = call.count();
  const Position at = positionOf(call, last - 1);
  call.answer(insert(record, at, call.text(last)));
}

void deleteField(LuaCall& call) {
  const std::string_view record = call.text(1);
  call.answer(remove(record, positionOf(call, call.count())));
}

/// nox.dcount(text [, delimiter])
void countFields(LuaCall& call) {
  char delimiter = kAttribute;
  if (!call.isAbsent(2)) {
    const std::string_view text = call.text(2);
    if (text.size() != 1) throw ScriptError("bad argument #2 (one byte expected)");
    delimiter = text.front();
  }
  call.answer(static_cast<std::int64_t>(dcount(call.text(1), delimiter)));
}

// --- conversions: nox.NAME(data, code) ----------------------------------------------------------

void convertTo(LuaCall& call, Direction direction) {
  const std::string_view data = call.text(1);
  if (data.size() > kLongestRecord) throw ScriptError("bad argument #1 (longer than a record)");
  call.answer(convert(data, call.text(2), direction));
}

void convertOutput(LuaCall& call) { convertTo(call, Direction::Output); }

void convertInput(LuaCall& call) { convertTo(call, Direction::Input); }

// --- files --------------------------------------------------------------------------------------

/// nox.open(name)
void openFile(LuaCall& call) {
  const std::string_view name = call.text(1);
  call.machine().session().data().open(name);
  call.answerObject(name);
}

int modeAt(LuaCall& call, int index) {
  const std::int64_t mode = call.integer(index, 0);
  // What is no mode at all stays none as an int.
  return mode < 0 || mode > 100 ? -1 : static_cast<int>(mode);
}

/// file:read(id [, mode]): the record or nil, and the status.
void readRecord(LuaCall& call) {
  NOXPBlob body;
  const DataAccess::Status status =
      call.machine().session().data().read(call.object(1), call.text(2), modeAt(call, 3), body);
  if (status == DataAccess::Done) {
    call.answer(body.length() == 0 ? std::string_view()
                                   : std::string_view(reinterpret_cast<const char*>(body.getBuf()),
                                                      body.length()));
  } else {
    call.answerNil();
  }
  call.answer(static_cast<std::int64_t>(status));
}

/// file:write(id, record [, mode]): the status.
void writeRecord(LuaCall& call) {
  call.answer(static_cast<std::int64_t>(call.machine().session().data().write(
      call.object(1), call.text(2), call.text(3), modeAt(call, 4))));
}

/// file:delete(id): the status.
void deleteRecord(LuaCall& call) {
  call.answer(static_cast<std::int64_t>(
      call.machine().session().data().remove(call.object(1), call.text(2))));
}

/// file:release([id]): the lock of a record, or all that the session has in the file.
void releaseLock(LuaCall& call) {
  const bool whole = call.isAbsent(2);
  call.machine().session().data().release(
      whole ? DataAccess::kReleaseFile : DataAccess::kReleaseRecord, call.object(1),
      whole ? std::string_view() : call.text(2));
}

void nextKey(LuaCall& call) {
  const std::optional<std::string_view> key = hostOf(call).nextKey(call.handle());
  if (key) {
    call.answer(*key);
  } else {
    call.answerNil();
  }
}

/// for id in file:select() do ... end
void selectKeys(LuaCall& call) {
  call.answerIterator(nextKey, hostOf(call).keepKeys(call.object(1)));
}

// --- SQL: nox.sql(statement, ...) ---------------------------------------------------------------

void executeSql(LuaCall& call) {
  std::vector<SqlValue> parameters;
  for (int i = 2; i <= call.count(); ++i) {
    SqlValue& value = parameters.emplace_back();
    Argument argument = call.argument(i);
    if (!argument) continue;
    value.kind = call.isNumber(i) ? SqlValue::Kind::Number : SqlValue::Kind::Text;
    value.bytes = std::move(*argument);
  }
  ScriptSqlResult result = runSql(call.machine().session(), call.text(1), parameters);
  if (result.isQuery) {
    call.answerRows(std::move(result.columns), std::move(result.rows));
  } else {
    call.answer(result.changes);
  }
}

// --- named commons ------------------------------------------------------------------------------

void readCommon(LuaCall& call) { call.answer(namedCommon(call.machine().session(), call.text(2))); }

void writeCommon(LuaCall& call) {
  setNamedCommon(call.machine().session(), call.text(2),
                 call.isAbsent(3) ? std::nullopt : std::optional(call.text(3)));
}

// --- input, output, commands --------------------------------------------------------------------

/// nox.print(...): a line.
void print(LuaCall& call) {
  std::string line;
  for (int i = 1; i <= call.count(); ++i) {
    if (i > 1) line += '\t';
    line += call.display(i);
  }
  hostOf(call).print(line);
}

void answerInput(LuaCall& call) { call.answer(call.input()); }

/// nox.input([hidden]): what the client answers to the last line that was printed.
void input(LuaCall& call) {
  hostOf(call).checkMayPrompt();
  call.wait(answerInput, call.flag(1));
}

void continueCommand(LuaCall& call);

void afterStep(LuaCall& call, ScriptHost::Step step) {
  ScriptHost& host = hostOf(call);
  if (step != ScriptHost::Step::Done) {
    try {
      host.checkMayPrompt();
      call.wait(continueCommand, step == ScriptHost::Step::WantsHiddenInput);
    } catch (...) {
      host.dropExecution();
      throw;
    }
    return;
  }
  ScriptHost::Executed executed = host.takeExecuted();
  call.answer(std::move(executed.output));
  call.answer(static_cast<std::int64_t>(executed.code));
}

void continueCommand(LuaCall& call) {
  afterStep(call, hostOf(call).continueExecution(call.input()));
}

/// nox.execute(line): what the command printed, and its code.
void executeCommand(LuaCall& call) { afterStep(call, hostOf(call).execute(call.text(1))); }

void abortProgram(LuaCall& /*call*/) { throw ScriptAbort(); }

}  // namespace

void addTextFunctions(LuaMachine& machine) {
  machine.addConstant("AM", {&kAttribute, 1});
  machine.addConstant("VM", {&kValue, 1});
  machine.addConstant("SM", {&kSubvalue, 1});
  machine.addFunction("ext", extractField);
  machine.addFunction("rep", replaceField);
  machine.addFunction("ins", insertField);
  machine.addFunction("del", deleteField);
  machine.addFunction("dcount", countFields);
  machine.addFunction("oconv", convertOutput);
  machine.addFunction("iconv", convertInput);
}

void addSessionFunctions(LuaMachine& machine) {
  machine.addFunction("open", openFile);
  machine.addMethod("read", readRecord);
  machine.addMethod("write", writeRecord);
  machine.addMethod("delete", deleteRecord);
  machine.addMethod("release", releaseLock);
  machine.addMethod("select", selectKeys);
  machine.addFunction("sql", executeSql);
  machine.addProxy("common", readCommon, writeCommon);
  machine.addFunction("print", print);
  machine.addGlobal("print", "print");
  machine.addFunction("input", input);
  machine.addFunction("execute", executeCommand);
  machine.addFunction("abort", abortProgram);
}

}  // namespace nox::agent
