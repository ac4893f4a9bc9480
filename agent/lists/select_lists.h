// The select lists that a session holds open, and its active one.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nox/nox.h>

#include "agent/lists/key_list.h"
#include "agent/names.h"

namespace nox::agent {

class RecordTaker;
class Session;

/// Keys with the file that they belong to; a client's own keys have none (an empty name).
struct SelectedKeys {
  FilePart file;
  KeyList keys;
};

/// Ids count from 1. Failures: 24/000 for a list that is not open, IE/007 for one too many, 22/003
/// for a position outside.
class SelectLists {
public:
  static constexpr std::size_t kMostOpen = 64;
  static constexpr std::size_t kMostKeysPerChunk = 10'000;

  explicit SelectLists(Session& session);
  ~SelectLists();

  /// Keeps the keys under a new id.
  int open(SelectedKeys selected);
  /// Throws where one more would be too many.
  void requireRoom() const;
  /// The next chunk as it travels: never bigger than a frame may be. `direction` and `size` as the
  /// client sent them; a size of 0 moves nothing. Failure 22/003 for another direction, IE/008 for
  /// records that cannot be read.
  std::unique_ptr<noxp::remote::SelectListProt> fetch(int id, int direction, std::size_t size,
                                                      bool withRecords);
  /// Throws what `fetch` would for a list that is not open or another direction.
  void checkFetch(int id, int direction) const;
  /// From the start, as many keys as the session fetches at once.
  std::unique_ptr<noxp::remote::SelectListProt> firstChunk(int id);
  /// Writes the changed records of `changed` back, all or none. A list without changes, and the
  /// one that is no list, changes nothing.
  void commit(noxp::remote::SelectListProt& changed);
  void close(int id);
  void closeAll();
  std::size_t size() const;

  // The active list: what a SELECT leaves for the next command.

  /// As a request gives it: with keys, those; without keys, the open list of its id (which a copy
  /// of its keys becomes active); null or id -1 leaves the active list alone.
  void activate(noxp::remote::SelectListProt* given);
  void setActive(SelectedKeys selected);
  /// Consumes it.
  std::optional<SelectedKeys> takeActive();
  bool hasActive() const { return active_.has_value(); }
  void clearActive() { active_.reset(); }
  /// What is active after a command, for its reply: opened as a list, with its id and first chunk;
  /// null where nothing is. Replaces the list that the last reply opened for the active one.
  std::unique_ptr<noxp::remote::SelectListProt> offerActive();

private:
  struct Open;

  Open& find(int id) const;
  std::unique_ptr<noxp::remote::SelectListProt> fetch(Open& list, int direction, std::size_t size,
                                                      bool withRecords, std::size_t frame);
  void readRecords(const FilePart& file, const std::vector<std::string>& keys, RecordTaker& taker);
  [[noreturn]] static void failPosition(unsigned long position);

  Session& session_;
  std::map<int, std::unique_ptr<Open>> open_;
  int lastId_ = 0;
  std::optional<SelectedKeys> active_;
  int offeredId_ = 0;
};

}  // namespace nox::agent
