#include "agent/commands/queries.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "agent/commands/grammar.h"
#include "agent/commands/rows.h"
#include "agent/failure.h"
#include "agent/multivalue.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

// What travels besides the bytes of a key and of a row, at most.
constexpr std::size_t kKeyOverhead = 4;
constexpr std::size_t kRowOverhead = 24;

// What an open query keeps in memory, in bytes: a session may have many.
constexpr std::size_t kPreparedRows = 256u * 1024;
constexpr std::size_t kSortMemory = 2u * 1024 * 1024;

/// Counts what goes into a space.
class Room {
public:
  explicit Room(std::size_t bytes) : left_(bytes) {}
  /// False, with nothing taken, where it is too much.
  bool take(std::size_t bytes) {
    if (bytes > left_) return false;
    left_ -= bytes;
    return true;
  }

private:
  std::size_t left_;
};

/// A query as a LIST: SELECT and SSELECT list the ids.
ListCommand parseQuery(std::string_view text) {
  Command command = parseCommand(text);
  if (auto* const list = std::get_if<ListCommand>(&command)) return std::move(*list);
  if (auto* const select = std::get_if<SelectCommand>(&command)) {
    ListCommand list;
    list.target = std::move(select->target);
    list.items.push_back({"@ID", 0});
    return list;
  }
  throw Failure("IE", "011", "a query is a LIST, SORT, SELECT or SSELECT");
}

}  // namespace

struct Queries::Query {
  std::unique_ptr<Rows> rows;        // null behind the last
  std::deque<std::string> prepared;  // rows that were read already
  std::uint64_t lastUse = 0;

  bool ended() const { return !rows && prepared.empty(); }

  bool next(std::string& row) {
    if (!prepared.empty()) {
      row = std::move(prepared.front());
      prepared.pop_front();
      return true;
    }
    if (!rows) return false;
    if (!rows->next()) {
      rows.reset();
      return false;
    }
    row = rows->columns();
    return true;
  }
};

Queries::Queries(Session& session) : session_(session) {}
Queries::~Queries() = default;

void Queries::closeAll() { open_.clear(); }

int Queries::newId() {
  if (open_.size() >= kMostOpen) {
    open_.erase(std::min_element(open_.begin(), open_.end(), [](const auto& a, const auto& b) {
      return a.second->lastUse < b.second->lastUse;
    }));
  }
  do {
    lastId_ = lastId_ == std::numeric_limits<int>::max() ? 1 : lastId_ + 1;
  } while (open_.count(lastId_) > 0);
  return lastId_;
}

std::unique_ptr<noxp::remote::ToviResponseProt> Queries::execute(std::string_view text) {
  const ListCommand list = parseQuery(text);
  std::vector<Item> items = listedItems(session_, list);
  std::string heading;
  for (const Item& item : items) {
    if (&item != &items.front()) heading += kAttribute;
    heading += item.heading();
  }

  auto query = std::make_unique<Query>();
  query->rows =
      std::make_unique<Rows>(session_, list.target, std::move(items), list.first, kSortMemory);
  query->lastUse = ++uses_;
  // The first chunk: its keys travel now, its rows with the fetches.
  Room room(session_.roomInFrame());
  Room memory(kPreparedRows);
  if (!room.take(heading.size())) {
    throw Failure("IE", "011", "the headings are longer than a frame may be");
  }
  std::string keys;
  for (int row = 0; row < session_.settings().fetchSize; ++row) {
    if (!query->rows->next()) {
      query->rows.reset();
      break;
    }
    const std::string_view id = query->rows->id();
    const std::string_view columns = query->rows->columns();
    query->prepared.emplace_back(columns);
    if (!room.take(id.size() + kKeyOverhead)) break;
    if (row > 0) keys += kAttribute;
    keys += id;
    if (!memory.take(columns.size())) break;
  }

  const NOXPBlob keyBlob(keys.data(), keys.size());
  auto chunk = std::make_unique<noxp::remote::SelectListProt>(&keyBlob);
  const int id = newId();
  chunk->setId(id);
  open_[id] = std::move(query);
  auto record = std::make_unique<NOXPBlob>(heading.data(), heading.size());
  return std::make_unique<noxp::remote::ToviResponseProt>(0, record.release(), chunk.release());
}

std::unique_ptr<noxp::remote::StatementFetchResponseProt> Queries::fetch(int id, int rows) {
  const auto found = open_.find(id);
  if (found == open_.end()) {
    throw Failure("26", "000", "there is no query " + std::to_string(id));
  }
  Query& query = *found->second;
  query.lastUse = ++uses_;
  const auto wanted =
      static_cast<std::size_t>(rows > 0 ? rows : std::max(session_.settings().fetchSize, 1));

  std::vector<std::string> batch;
  Room room(session_.roomInFrame());
  try {
    std::string row;
    while (batch.size() < wanted && query.next(row)) {
      if (!room.take(row.size() + kRowOverhead)) {
        if (batch.empty()) throw Failure("IE", "011", "a row is longer than a frame may be");
        query.prepared.push_front(std::move(row));
        break;
      }
      batch.push_back(std::move(row));
    }
  } catch (...) {
    // Where it stands is not certain: better no query than one that leaves a row out.
    open_.erase(found);
    throw;
  }

  constexpr int kMore = 0;
  constexpr int kEnd = 1;
  constexpr int kRowType = 0;
  auto parameters =
      std::make_unique<noxp::ACEBinaryFormatParameterListProt>(static_cast<int>(batch.size()));
  for (std::size_t i = 0; i < batch.size(); ++i) {
    parameters->setString(static_cast<int>(i), std::move(batch[i]), kRowType);
  }
  return std::make_unique<noxp::remote::StatementFetchResponseProt>(query.ended() ? kEnd : kMore,
                                                                    parameters.release());
}

}  // namespace nox::agent
