// An account of a test's own, and short ways to work on it.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "agent/store/sqlite/sqlite_engine.h"
#include "agent/store/sqlite/sqlite_store.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent::test {

inline const FilePart kFile{"CUSTOMERS", Part::Data};
inline const FilePart kDict{"CUSTOMERS", Part::Dict};

constexpr std::chrono::hours kForEver{1};
constexpr std::chrono::milliseconds kNotAtAll{0};

/// Waits until `condition` holds; false after seconds in which it did not.
inline bool eventually(const std::function<bool()>& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::yield();
  }
  return true;
}

/// The kind of the StoreError that `work` throws; nothing where it throws none.
template <class Work>
std::optional<StoreError::Kind> failure(Work work) {
  try {
    work();
  } catch (const StoreError& error) {
    return error.kind();
  }
  return std::nullopt;
}

/// What a StoreError of `work` says; empty where it throws none.
template <class Work>
std::string reason(Work work) {
  try {
    work();
  } catch (const StoreError& error) {
    return error.what();
  }
  return {};
}

inline std::optional<std::string> read(StoreSession& session, std::string_view id,
                                       const FilePart& file = kFile) {
  NOXPBlob body;
  if (!session.read(file, id, body)) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(body.getBuf()), body.length());
}

/// Runs one statement of SQL to its end.
inline void sql(StoreSession& session, std::string_view text) {
  const std::unique_ptr<SqlStatement> statement = session.prepare(text, true);
  statement->execute({});
  statement->close();
}

/// The first column of a query's rows, with commas between; "null" for null.
inline std::string answer(StoreSession& session, std::string_view text) {
  const std::unique_ptr<SqlStatement> statement = session.prepare(text, true);
  statement->execute({});
  std::string values;
  while (const SqlRow* row = statement->next()) {
    if (!values.empty()) values += ',';
    values += row->front().value_or("null");
  }
  return values;
}

/// An engine with the account MAIN, in which the file CUSTOMERS is.
class StoreTest : public ::testing::Test {
protected:
  StoreTest() {
    reopen();
    engine->createAccount("MAIN");
    newSession()->createFile(kFile.file);
  }

  /// Tests need no disk that survives a power failure, and most wait for one many times.
  static SqliteOptions quickOptions() {
    SqliteOptions options;
    options.synchronousFull = false;
    return options;
  }

  /// As after a restart. Sessions and branches of the old engine have ended.
  void reopen(SqliteOptions options = quickOptions()) {
    engine.reset();
    engine = makeSqliteEngine(directory.path(), std::move(options));
  }

  SqliteStore& store() { return dynamic_cast<SqliteStore&>(engine->open("MAIN")); }
  std::unique_ptr<StoreSession> newSession() { return engine->open("MAIN").openSession(); }
  std::string databaseFile() const { return directory.file("MAIN.db"); }

  TempDirectory directory;
  std::unique_ptr<StoreEngine> engine;
};

}  // namespace nox::agent::test
