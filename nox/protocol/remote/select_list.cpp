#include "nox/protocol/remote/select_list.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/diag/file_loggers.h"
#include "nox/protocol/sql_ext_error.h"

namespace nox::noxp::remote {

namespace {

constexpr char kMark = static_cast<char>(kAttributeMark);

SQLExtError cursorError(const char* text) { return SQLExtError("IE", "001", text); }

std::string_view bytesOf(const NOXPBlob& blob) {
  return {reinterpret_cast<const char*>(blob.getBuf()), blob.length()};
}

}  // namespace

SelectListProt::SelectListProt(const NOXPBlob* keys) : id_(0) { fromDynArrayKeys(keys); }

SelectListProt::SelectListProt(const SelectListProt& other)
    : Payload<SelectListProt, TypeCode::SelectList>(other),
      id_(other.id_),
      hasRecordData_(other.hasRecordData_),
      keys_(other.keys_),
      records_(other.records_),
      modified_(other.modified_) {}

SelectListProt::SelectListProt(SelectListProt& source, unsigned long count, bool withRecords)
    : id_(source.id_), hasRecordData_(source.hasRecordData_) {
  const bool takeRecords = withRecords && source.hasRecordData_;
  // A read that failed half-way may have left the cursor behind the last key.
  const std::size_t rest = source.hasNext() ? source.keys_.size() - source.position_ : 0;
  keys_.reserve(std::min<std::size_t>(count, rest));
  for (; count > 0 && source.next(); --count) {
    const std::size_t index = source.position_ - 1;
    keys_.push_back(source.keys_[index]);
    if (!takeRecords) continue;
    // A list may hold fewer records than keys.
    records_.push_back(index < source.records_.size() ? source.records_[index] : nullptr);
    // Deliberate: the position in the source, not in the chunk; a commit names what the server has.
    if (source.isModified()) modified_.insert(source.position_);
  }
}

SelectListProt::~SelectListProt() {
  NOX_LOG(filelog::debug) << "SelectListProt::~SelectListProt() [id = " << static_cast<long>(id_)
                          << "]" << EndLog();
}

SelectListProt& SelectListProt::operator=(const SelectListProt& other) {
  return *new SelectListProt(other);
}

Archive& SelectListProt::serialize(Archive& ar, unsigned int /*version*/) {
  ar.process(id_, "id");
  if (ar.isWriting()) {
    if (id_ >= 0) writeEntries(ar);
    return ar;
  }
  if (id_ >= 0) readEntries(ar);
  position_ = 0;
  return ar;
}

// Deliberate: the names differ by direction. Keys and records are written without one and modified
// positions as "updatedPos"; they are read as "key", "record" and "updatedRecord".
void SelectListProt::writeEntries(Archive& ar) {
  int numKeys = static_cast<int>(keys_.size());
  ar.process(numKeys, "numKeys");
  if (BinaryWriter* const writer = BinaryWriter::behind(ar)) {
    writer->writeStrings(keys_);
  } else {
    for (std::string& key : keys_) ar& key;
  }
  int hasRecords = hasRecordData_ ? 1 : 0;
  ar.process(hasRecords, "hasRecords");
  if (hasRecordData_) {
    int numRecords = static_cast<int>(records_.size());
    ar.process(numRecords, "numRecords");
    for (const SharedRecord& record : records_) ar&(record ? record->get() : nullptr);
    int numUpdatedRecords = static_cast<int>(modified_.size());
    ar.process(numUpdatedRecords, "numUpdatedRecords");
    for (const unsigned long position : modified_) {
      int updated = static_cast<int>(position);
      ar.process(updated, "updatedPos");
    }
  }
  NOX_LOG(filelog::debug) << "FETCH " << static_cast<long>(numKeys)
                          << " item(s) from select list [id = " << static_cast<long>(id_) << "]."
                          << EndLog();
}

// The counts are only claims: entries are kept as they come, so that a false count ends where the
// bytes end and not in memory.
void SelectListProt::readEntries(Archive& ar) {
  int numKeys = 0;
  ar.process(numKeys, "numKeys");
  keys_.clear();
  if (BinaryReader* const reader = BinaryReader::behind(ar)) {
    reader->readStrings(keys_, numKeys);
  } else {
    for (int i = 0; i < numKeys; ++i) ar.process(keys_.emplace_back(), "key");
  }

  int hasRecords = 0;
  ar.process(hasRecords, "hasRecords");
  hasRecordData_ = hasRecords == 1;
  if (!hasRecordData_) return;
  int numRecords = 0;
  ar.process(numRecords, "numRecords");
  dropRecords();
  for (int i = 0; i < numRecords; ++i) {
    records_.push_back(std::make_shared<std::unique_ptr<NOXPBlob>>(std::make_unique<NOXPBlob>()));
    ar.process(records_.back()->get(), "record");
  }
  int numUpdatedRecords = 0;
  ar.process(numUpdatedRecords, "numUpdatedRecords");
  modified_.clear();
  for (int i = 0; i < numUpdatedRecords; ++i) {
    int updated = 0;
    ar.process(updated, "updatedRecord");
    modified_.insert(static_cast<unsigned int>(updated));
  }
}

bool SelectListProt::previous() {
  if (!hasPrevious()) return false;
  --position_;
  return true;
}

void SelectListProt::goToPosition(unsigned long position) {
  if (position > keys_.size()) {
    throw cursorError("Error while accessing select list, position not in range.");
  }
  position_ = static_cast<unsigned int>(position);
}

std::string SelectListProt::getKey() const { return std::string(getKeyView()); }

void SelectListProt::throwKeyError() {
  throw cursorError("Error while accessing select list key.");
}

const SelectListProt::SharedRecord& SelectListProt::recordAtCursor() const {
  if (position_ == 0 || position_ > records_.size()) {
    throw cursorError("Error while accessing select list record.");
  }
  return records_[position_ - 1];
}

NOXPBlob* SelectListProt::getRecord() const {
  const SharedRecord& record = recordAtCursor();
  return record ? record->get() : nullptr;
}

NOXPBlob* SelectListProt::extractRecord() {
  const SharedRecord& record = recordAtCursor();
  if (!record || !*record) return nullptr;
  NOXPBlob* const extracted = record.use_count() == 1 ? record->release() : new NOXPBlob(**record);
  records_[position_ - 1] = nullptr;
  return extracted;
}

void SelectListProt::setRecord(NOXPBlob* record) {
  if (records_.size() < keys_.size()) {
    // Deliberate: a list without a record for every key forgets those it had.
    dropRecords();
    records_.resize(keys_.size());
  }
  const SharedRecord& current = recordAtCursor();
  if (!current || record != current->get()) records_[position_ - 1] = hold(record);
  modified_.insert(position_);
}

/// Takes `record` over, unless it throws. One that this list gave up before is its own already.
SelectListProt::SharedRecord SelectListProt::hold(NOXPBlob* record) {
  if (!record) return nullptr;
  if (const auto dropped = dropped_.extract(record)) return std::move(dropped.mapped());
  auto held = std::make_shared<std::unique_ptr<NOXPBlob>>();
  held->reset(record);
  return held;
}

void SelectListProt::dropRecords() {
  for (SharedRecord& record : records_) {
    if (record) dropped_.emplace(record->get(), record);
  }
  records_.clear();
}

void SelectListProt::keysToString(std::string* out) const {
  out->clear();
  for (const std::string& key : keys_) {
    if (&key != keys_.data()) out->push_back(kMark);
    out->append(key);
  }
}

void SelectListProt::fromDynArrayKeys(const NOXPBlob* keys) {
  keys_.clear();
  if (!keys) return;
  std::string_view rest = bytesOf(*keys);
  while (!rest.empty()) {
    const std::size_t mark = rest.find(kMark);
    keys_.emplace_back(rest.substr(0, mark));
    rest = mark == std::string_view::npos ? std::string_view() : rest.substr(mark + 1);
  }
}

SelectListProt5::SelectListProt5(Adopted<NOXPBlob> keys) : keys_(std::move(keys)) {
  if (!keys_) keys_.emplaceEmpty();
}

SelectListProt5::SelectListProt5(const SelectListProt5* other)
    : SelectListProt5(other ? *other : SelectListProt5()) {}

SelectListProt5::~SelectListProt5() {
  NOX_LOG(filelog::debug) << "SelectListProt5::~SelectListProt5 ()" << EndLog();
}

Archive& SelectListProt5::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(keys_, "_keys");
}

int SelectListProt5::count() const {
  // A text of its own: the blob's bytes end in no NUL. A NUL among them ends the text.
  const std::string text(bytesOf(*keys_));
  return NOXPString().DCount(reinterpret_cast<const unsigned char*>(text.c_str()), kAttributeMark);
}

NOXPString* SelectListProt5::get(unsigned int index) {
  NOX_LOG(filelog::debug) << "SelectListProt5::get(index=" << static_cast<long>(index) << EndLog();
  auto key = std::make_unique<NOXPString>();
  constexpr unsigned int kLastAttribute = std::numeric_limits<int>::max();
  if (index >= kLastAttribute ||
      !key->ExtractFrom(keys_.get(), static_cast<int>(index) + 1, 0, 0)) {
    key->assign("", 0, true);
  }
  NOX_LOG(filelog::debug) << "SelectListProt5::get(index=" << static_cast<long>(index) << ") OK: '"
                          << key->c_str() << "'" << EndLog();
  return key.release();
}

}  // namespace nox::noxp::remote
