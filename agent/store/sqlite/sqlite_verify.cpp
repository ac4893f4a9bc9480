#include "agent/store/sqlite/sqlite_verify.h"

#include <set>
#include <string_view>
#include <utility>

#include "agent/failure.h"
#include "agent/store/sqlite/changesets.h"
#include "agent/store/sqlite/records.h"

namespace nox::agent {

namespace {

constexpr std::size_t kMostOfAKind = 100;

class Verification {
public:
  explicit Verification(SqliteConnection& connection) : connection_(connection) {}

  std::vector<std::string> run() {
    connection_.execute("BEGIN");
    // A part that is damaged ends its own check; the others still have something to say.
    tryTo(&Verification::checkPages);
    tryTo(&Verification::checkReferences);
    tryTo(&Verification::checkFiles);
    tryTo(&Verification::checkBranches);
    connection_.rollback();
    return std::move(mistakes_);
  }

private:
  using Check = void (Verification::*)();

  void tryTo(Check check) {
    found_ = 0;
    try {
      (this->*check)();
    } catch (const StoreError& error) {
      if (error.kind() != StoreError::Kind::Damaged) throw;
      mistakes_.emplace_back(error.what());
    }
  }

  void add(std::string mistake) {
    if (++found_ <= kMostOfAKind) mistakes_.push_back(std::move(mistake));
  }

  void checkPages() {
    Statement check = connection_.prepare("PRAGMA integrity_check(100)");
    while (check.step()) {
      if (check.bytes(0) != "ok") add(std::string(check.bytes(0)));
    }
  }

  void checkReferences() {
    Statement check = connection_.prepare("PRAGMA foreign_key_check");
    while (check.step()) {
      add("a row of table " + std::string(check.bytes(0)) + " refers to a row of table " +
          std::string(check.bytes(2)) + " that is not there");
    }
  }

  void checkFiles() {
    std::set<std::string> tables;
    {
      Statement find = connection_.prepare(
          "SELECT name FROM sqlite_schema WHERE type = 'table'"
          " AND (name GLOB 'nox_data_*' OR name GLOB 'nox_dict_*')");
      while (find.step()) tables.emplace(find.bytes(0));
    }
    Statement files = connection_.prepare("SELECT number, name FROM nox_files ORDER BY name");
    while (files.step()) {
      const std::string name(files.bytes(1));
      if (!isFileName(name)) add("\"" + name + "\" is no file name");
      for (const Part part : {Part::Data, Part::Dict}) {
        const FilePart file{name, part};
        const std::string table = SqliteConnection::tableName(files.integer(0), part);
        if (tables.erase(table) == 0) {
          add("file " + file.text() + " has no table " + table);
        } else {
          checkRecords(file, table);
        }
      }
    }
    for (const std::string& table : tables) add("table " + table + " belongs to no file");
  }

  void checkRecords(const FilePart& file, const std::string& table) {
    Statement records = connection_.prepare("SELECT id, length(body), typeof(body) FROM " + table);
    while (records.step()) {
      try {
        checkRecordId(records.bytes(0));
      } catch (const Failure& failure) {
        add("file " + file.text() + " has a record that cannot be read: " + failure.reason());
      }
      const bool isBody = records.bytes(2) == "blob" &&
                          records.integer(1) <= static_cast<std::int64_t>(kLongestRecord);
      if (!isBody) {
        add("record " + std::string(records.bytes(0)) + " of file " + file.text() +
            " is no record");
      }
    }
  }

  void checkBranches() {
    Statement branches = connection_.prepare("SELECT format, id, changes FROM nox_xa");
    while (branches.step()) {
      if (!areChanges(branches.bytes(2))) {
        add("the changes of branch " + std::to_string(branches.integer(0)) + ":" +
            std::string(branches.bytes(1)) + " cannot be read");
      }
    }
  }

  SqliteConnection& connection_;
  std::vector<std::string> mistakes_;
  std::size_t found_ = 0;
};

}  // namespace

std::vector<std::string> findMistakes(SqliteConnection& connection) {
  return Verification(connection).run();
}

}  // namespace nox::agent
