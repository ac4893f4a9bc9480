// A layer under SQLite's log of changes: what a commit appends goes to the file in one piece.
#pragma once

struct sqlite3;
struct sqlite3_file;
struct sqlite3_vfs;

namespace nox::agent {

/// The layer, above the system's own files. SQLite writes each changed page to the log in two
/// parts; one write instead of eight makes a commit of four small records some 8 of 130 us shorter
/// on a fast disk. Everything but the log passes untouched.
class GatheredLog {
public:
  /// The name under which databases are opened whose commits synchronise the log. Registers the
  /// layer at its first use.
  static const char* vfsName();
  /// Registers a layer above `below` under `name`; both stay for ever.
  static void registerAbove(sqlite3_vfs& below, const char* name);

  /// While it lives, a COMMIT runs: it ends with a synchronisation, at the latest before which
  /// everything is written. What fails fails the COMMIT, as if it had been written at once. At all
  /// other times nothing is held back. Does nothing where the log is not opened through the layer.
  class Commit {
  public:
    explicit Commit(sqlite3* db);
    ~Commit();
    Commit(const Commit&) = delete;
    Commit& operator=(const Commit&) = delete;

  private:
    sqlite3_file* log_ = nullptr;
  };
};

}  // namespace nox::agent
