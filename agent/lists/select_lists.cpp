#include "agent/lists/select_lists.h"

#include <algorithm>
#include <limits>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "agent/failure.h"
#include "agent/session/data_access.h"
#include "agent/session/session.h"

namespace nox::agent {

using noxp::remote::SelectListProt;

namespace {

// What a chunk costs on the wire, at most: a key besides its text, a record besides its bytes, and
// all that is around them.
constexpr std::size_t kKeyBytes = 4;      // 's', 2 bytes of length, ';'
constexpr std::size_t kRecordBytes = 16;  // prefix, 4 bytes of length, ';', or the null object
constexpr std::size_t kFrameBytes = 512;

// Where a chunk goes beside a command's output.
constexpr std::size_t kOfferedShare = 4;  // of a frame

// Directions as they travel.
constexpr int kNext = 1;
constexpr int kPrevious = -1;
constexpr int kAgain = 0;
constexpr int kFromStart = 2;
constexpr int kLast = -2;

[[noreturn]] void failDirection() {
  throw Failure("22", "003", "a fetch direction is 1, -1, 0, 2 or -2");
}

/// A null one is not there.
using Records = std::vector<std::unique_ptr<NOXPBlob>>;

/// Finds out how many keys a frame holds, with their records where these are wanted.
class Chunk : public RecordTaker {
public:
  Chunk(const std::vector<std::string>& keys, std::size_t frame, bool withRecords)
      : keys_(keys), frame_(frame) {
    if (withRecords) records_.reserve(keys.size());
  }

  /// False where the next key finds no room; Failure IE/008 where that is the first.
  bool addKey() { return add(0); }
  bool take(std::size_t /*place*/, const std::string_view* body) override {
    if (!add(kRecordBytes + (body != nullptr ? body->size() : 0))) return false;
    records_.push_back(body != nullptr ? blobOf(*body) : nullptr);
    return true;
  }

  std::size_t size() const { return size_; }
  /// As many as keys, or none where they are not wanted.
  Records takeRecords() { return std::move(records_); }

private:
  bool add(std::size_t recordBytes) {
    const std::string& key = keys_[size_];
    bytes_ += kKeyBytes + key.size() + recordBytes;
    if (bytes_ > frame_) {
      if (size_ > 0) return false;
      throw Failure("IE", "008", "the record \"" + key + "\" is longer than a frame may be");
    }
    ++size_;
    return true;
  }

  static std::unique_ptr<NOXPBlob> blobOf(std::string_view bytes) {
    auto blob = std::make_unique<NOXPBlob>();
    blob->assign(bytes.data(), bytes.size());
    if (blob->length() != bytes.size()) throw std::bad_alloc();
    return blob;
  }

  const std::vector<std::string>& keys_;
  const std::size_t frame_;
  std::size_t bytes_ = kFrameBytes;
  std::size_t size_ = 0;
  Records records_;
};

std::unique_ptr<SelectListProt> makeList(int id, const std::vector<std::string>& keys,
                                         Records records, bool withRecords) {
  std::string joined;
  for (const std::string& key : keys) {
    joined += key;
    joined += static_cast<char>(noxp::remote::kAttributeMark);
  }
  const NOXPBlob blob(joined.data(), joined.size());
  auto list = std::make_unique<SelectListProt>(&blob);
  list->setId(id);
  list->setHasRecordData(withRecords);
  if (withRecords) {
    for (std::unique_ptr<NOXPBlob>& record : records) {
      list->next();
      list->setRecord(record.release());
    }
    list->getAllModified()->clear();
    list->goToPosition(0);
  }
  return list;
}

}  // namespace

struct SelectLists::Open {
  int id = 0;
  SelectedKeys selected;
  // The chunk that was sent last. In front of the first: nothing at 0, behind the last: nothing at
  // the end.
  std::size_t begin = 0;
  std::size_t end = 0;
};

SelectLists::SelectLists(Session& session) : session_(session) {}

SelectLists::~SelectLists() = default;

void SelectLists::requireRoom() const {
  if (open_.size() < kMostOpen) return;
  throw Failure("IE", "007", "the session has 64 select lists open");
}

int SelectLists::open(SelectedKeys selected) {
  requireRoom();
  do {
    lastId_ = lastId_ == std::numeric_limits<int>::max() ? 1 : lastId_ + 1;
  } while (open_.count(lastId_) > 0);
  auto opened = std::make_unique<Open>();
  opened->id = lastId_;
  opened->selected = std::move(selected);
  open_.emplace(lastId_, std::move(opened));
  return lastId_;
}

SelectLists::Open& SelectLists::find(int id) const {
  const auto found = open_.find(id);
  if (found == open_.end()) {
    throw Failure("24", "000", "there is no select list " + std::to_string(id));
  }
  return *found->second;
}

std::unique_ptr<SelectListProt> SelectLists::fetch(int id, int direction, std::size_t size,
                                                   bool withRecords) {
  return fetch(find(id), direction, size, withRecords, session_.frameCap());
}

void SelectLists::checkFetch(int id, int direction) const {
  find(id);
  switch (direction) {
    case kNext:
    case kPrevious:
    case kAgain:
    case kFromStart:
    case kLast:
      return;
    default:
      failDirection();
  }
}

std::unique_ptr<SelectListProt> SelectLists::firstChunk(int id) {
  return fetch(find(id), kFromStart, static_cast<std::size_t>(session_.settings().fetchSize), false,
               session_.frameCap());
}

std::unique_ptr<SelectListProt> SelectLists::fetch(Open& list, int direction, std::size_t size,
                                                   bool withRecords, std::size_t frame) {
  const KeyList& keys = list.selected.keys;
  const std::size_t most = std::min(size, kMostKeysPerChunk);
  // The keys from `begin` to `end`, of which a frame may hold the first or, going back, the last.
  std::size_t begin = 0;
  std::size_t end = 0;
  bool fromTheEnd = false;
  const auto forward = [&](std::size_t from) {
    begin = from;
    end = begin + std::min(most, keys.size() - begin);
  };
  const auto back = [&](std::size_t from) {
    end = from;
    begin = end - std::min(most, end);
    fromTheEnd = true;
  };
  switch (direction) {
    case kNext:
      forward(list.end);
      break;
    case kPrevious:
      back(list.begin);
      break;
    case kAgain:
      begin = list.begin;
      end = begin + std::min(most, list.end - begin);
      break;
    case kFromStart:
      forward(0);
      break;
    case kLast:
      back(keys.size());
      break;
    default:
      failDirection();
  }
  if (size == 0) return makeList(list.id, {}, {}, withRecords);

  std::vector<std::string> names = keys.read(begin, end - begin);
  if (fromTheEnd) std::reverse(names.begin(), names.end());
  Chunk chunk(names, frame, withRecords);
  if (withRecords) {
    readRecords(list.selected.file, names, chunk);
  } else {
    while (chunk.size() < names.size() && chunk.addKey()) {
    }
  }
  names.resize(chunk.size());
  Records records = chunk.takeRecords();
  if (fromTheEnd) {
    std::reverse(names.begin(), names.end());
    std::reverse(records.begin(), records.end());
    begin = end - names.size();
  } else {
    end = begin + names.size();
  }
  list.begin = begin;
  list.end = end;
  return makeList(list.id, names, std::move(records), withRecords);
}

void SelectLists::readRecords(const FilePart& file, const std::vector<std::string>& keys,
                              RecordTaker& taker) {
  try {
    session_.store().readEach(file, keys, taker);
  } catch (const StoreError& error) {
    throwAsFailure(error, "IE", "008");
  }
}

void SelectLists::commit(SelectListProt& changed) {
  if (changed.getId() < 0) return;
  const std::set<unsigned long>& modified = *changed.getAllModified();
  if (changed.getId() == 0 && modified.empty()) return;  // a client's own
  const FilePart& file = find(changed.getId()).selected.file;
  std::vector<RecordWrite> writes;
  writes.reserve(modified.size());
  for (const unsigned long position : modified) {
    if (position == 0 || position > changed.size()) failPosition(position);
    changed.goToPosition(position);
    const NOXPBlob* record = nullptr;
    try {
      record = changed.getRecord();
    } catch (const SQLExtError&) {
      failPosition(position);  // keys without as many records
    }
    std::string body;
    if (record && record->getBuf()) {
      body.assign(reinterpret_cast<const char*>(record->getBuf()), record->length());
    }
    writes.push_back({file, changed.getKey(), std::move(body)});
  }
  session_.data().writeAll(std::move(writes));
}

void SelectLists::failPosition(unsigned long position) {
  throw Failure("22", "003", "the list that was sent has no record " + std::to_string(position));
}

void SelectLists::close(int id) { open_.erase(id); }

void SelectLists::closeAll() { open_.clear(); }

std::size_t SelectLists::size() const { return open_.size(); }

void SelectLists::activate(SelectListProt* given) {
  if (!given || given->getId() < 0) return;
  const auto found = open_.find(given->getId());
  if (given->size() == 0 && given->getId() > 0) {
    setActive(find(given->getId()).selected);
    return;
  }
  SelectedKeys selected;
  if (found != open_.end()) selected.file = found->second->selected.file;
  given->goToPosition(0);
  while (given->next()) {
    checkRecordId(given->getKeyView());
    selected.keys.add(given->getKeyView());
  }
  setActive(std::move(selected));
}

void SelectLists::setActive(SelectedKeys selected) { active_ = std::move(selected); }

std::optional<SelectedKeys> SelectLists::takeActive() { return std::exchange(active_, {}); }

std::unique_ptr<SelectListProt> SelectLists::offerActive() {
  if (!active_) return nullptr;
  close(std::exchange(offeredId_, 0));
  offeredId_ = open(*active_);
  return fetch(find(offeredId_), kFromStart,
               static_cast<std::size_t>(session_.settings().fetchSize), false,
               session_.frameCap() / kOfferedShare);
}

}  // namespace nox::agent
