// ClientStatements: what a connection knows of the SQL of clients. It prepares their statements and
// keeps them for the next time, knows the files that they name, and decides what they may touch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/store/sqlite/file_tables.h"
#include "agent/store/sqlite/sqlite_connection.h"
#include "agent/store/store.h"

struct sqlite3_stmt;

namespace nox::agent {

/// A statement of a client's, prepared on one connection.
struct ClientStatement {
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept;
  };

  std::string sql;
  std::unique_ptr<sqlite3_stmt, Finalize> handle;
  std::vector<std::string> fileTables;  // that it names, as they are registered
};

/// Belongs to its connection. Errors are thrown as StoreError.
class ClientStatements : public SqlConnectionState {
public:
  static constexpr std::size_t kMostKept = 32;
  static constexpr std::size_t kLongestKept = 16u * 1024;  // bytes of its text
  static constexpr std::size_t kMostFileTables = 256;

  ClientStatements(SqliteConnection& connection, SqlConversions conversions);
  static ClientStatements& of(SqliteConnection& connection);

  /// Ready to be bound: one that was kept, if nothing that it names has changed, or a new one.
  std::unique_ptr<ClientStatement> take(const std::string& sql);
  /// Resets the statement and keeps it, where its text is not long.
  void giveBack(std::unique_ptr<ClientStatement> statement) noexcept;

  /// Does what may fail because a file is named that the connection does not know yet; again when
  /// it knows it. For work without clients' statements.
  template <class Work>
  void withFiles(Work work) {
    for (std::size_t files = 0;; ++files) {
      try {
        return work();
      } catch (const StoreError& error) {
        if (files > kMostFileTables || !learnMissing(error.what())) throw;
      }
    }
  }
  /// The table of a file, or of an item, by the name that SQL has for it; null where there is none.
  /// Throws NoTable where the name says too little.
  std::shared_ptr<const FileTable> findFileTable(std::string_view name);
  /// The table that was registered under the name; null where there is none.
  std::shared_ptr<const FileTable> registered(std::string_view name) const;
  /// All the tables that a file has for SQL; the first is its own.
  std::vector<FileTable> tablesOf(const std::string& file, std::int64_t number);

  /// While it lives, statements of clients run.
  class Run {
  public:
    explicit Run(ClientStatements& statements);
    ~Run() { statements_.running_ = false; }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    /// True with a row, false at the end.
    bool step(ClientStatement& statement);

  private:
    ClientStatements& statements_;
    const SqliteConnection::ClientSql client_;
  };

  /// What an authorizer answers.
  int authorize(int action, const char* first, const char* second, const char* database);

private:
  /// The state of the database: while it stays, so does what dictionaries say. In a transaction
  /// none is like another.
  struct Stamp {
    std::int64_t dataVersion = 0;  // changes of other connections
    std::int64_t ownChanges = 0;
    bool operator==(const Stamp& other) const {
      return dataVersion == other.dataVersion && ownChanges == other.ownChanges;
    }
  };
  struct Registered {
    std::shared_ptr<const FileTable> table;
    Stamp checked;
  };
  struct NamedFile {
    std::string name;
    std::int64_t number = 0;
  };

  std::unique_ptr<ClientStatement> takeKept(const std::string& sql);
  std::unique_ptr<ClientStatement> prepare(const std::string& sql);
  /// What went wrong with a client's statement: while it was prepared, or run.
  StoreError error(int code, bool preparing);
  int refuse(std::string reason);
  void noteRead(const char* table);
  /// Whether the tables are still what they were when they were registered; those that are not are
  /// registered anew, or forgotten.
  bool areCurrent(const std::vector<std::string>& fileTables);
  std::vector<std::string> namesOfFileTables() const;
  /// Registers the file that an error says is missing; false where it says something else, or there
  /// is no such file.
  bool learnMissing(std::string_view reason);
  void registerTable(std::shared_ptr<const FileTable> table, const Stamp& checked);
  std::vector<NamedFile> filesCalled(std::string_view name);
  FileColumns columnsOf(std::int64_t fileNumber);
  Stamp stamp();
  void requireNewNames(const std::string& sql);

  SqliteConnection& connection_;
  const SqlConversions conversions_;
  std::list<std::unique_ptr<ClientStatement>> kept_;        // the last used first
  std::unordered_map<std::string, Registered> fileTables_;  // by name in small letters

  std::int64_t unmatched_ = 0;
  bool running_ = false;  // a client's statement, that is; else one is prepared

  // Of the statement that is prepared now.
  std::vector<std::string> tablesRead_;
  std::vector<std::string> tablesMade_;
  std::string refusal_;
};

}  // namespace nox::agent
