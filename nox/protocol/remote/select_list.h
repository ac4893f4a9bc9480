// Select lists: ordered record keys, with the records beside them when the client asked for data.
#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::noxp::remote {

/// Separates keys that are joined into one text: the attribute mark.
constexpr unsigned char kAttributeMark = 0xFE;

/// Keys and records under a cursor. Positions count from 1; 0 stands before the first key. A list
/// with a negative id is no list: it travels as its id alone.
///
/// Records are shared between a list and its copies and chunks; the last holder frees them. Cursor
/// errors are nox::SQLExtError IE/001, thrown by value.
class NOX_EXPORT SelectListProt : public Payload<SelectListProt, TypeCode::SelectList> {
public:
  /// No list: id -1.
  SelectListProt() = default;
  /// A list with id 0 of the keys in `keys`, which are separated by attribute marks. The blob is
  /// only read; null gives no keys.
  SelectListProt(const NOXPBlob* keys);
  /// The same keys, modified positions and records, with the cursor before the first key.
  SelectListProt(const SelectListProt& other);
  /// A chunk: the next `count` entries of `source`, whose cursor moves over them. With
  /// `withRecords` it shares their records and notes which of them were modified, by their
  /// positions in `source`.
  SelectListProt(SelectListProt& source, unsigned long count, bool withRecords);
  ~SelectListProt() override;

  /// Deliberate: leaves this list alone and returns a new copy of `other`, which the caller
  /// deletes.
  [[nodiscard]] virtual SelectListProt& operator=(const SelectListProt& other);

  Archive& serialize(Archive& ar, unsigned int version) override;

  /// Moves to the next or previous key; false, without moving, where there is none. `previous`
  /// never goes back before the first key.
  bool next() {
    if (!hasNext()) return false;
    ++position_;
    return true;
  }
  bool previous();
  bool hasNext() const { return position_ < keys_.size(); }
  bool hasPrevious() const { return position_ > 1; }
  /// 0 to size(); beyond, an SQLExtError.
  void goToPosition(unsigned long position);
  unsigned long getPosition() const { return position_; }

  /// The key at the cursor.
  std::string getKey() const;
  /// The same without a copy, valid while the list lives and is not read into.
  std::string_view getKeyView() const {
    if (position_ == 0 || position_ > keys_.size()) throwKeyError();
    return keys_[position_ - 1];
  }
  /// The record at the cursor, which stays the list's; may be null.
  NOXPBlob* getRecord() const;
  /// The record at the cursor, handed over to the caller; the entry becomes null. A record that
  /// other lists share is handed over as a copy.
  NOXPBlob* extractRecord();
  /// Takes `record` over as the one at the cursor and marks the position as modified. It stays the
  /// caller's when an SQLExtError is thrown. `setHasRecordData(true)` makes records travel.
  void setRecord(NOXPBlob* record);

  bool isModified() const { return modified_.count(position_) > 0; }
  /// The modified positions; the set stays the list's.
  std::set<unsigned long>* getAllModified() { return &modified_; }

  unsigned int size() const { return static_cast<unsigned int>(keys_.size()); }
  int getId() const { return id_; }
  void setId(int id) { id_ = id; }
  bool hasRecordData() const { return hasRecordData_; }
  void setHasRecordData(bool hasRecordData) { hasRecordData_ = hasRecordData; }

  /// Replaces `out` by the keys, with an attribute mark between two of them.
  void keysToString(std::string* out) const;

protected:
  /// Replaces the keys by those in `keys`. A mark at the end adds no empty key.
  void fromDynArrayKeys(const NOXPBlob* keys);

private:
  /// A record that several lists may hold; empty where it was extracted or never loaded.
  using SharedRecord = std::shared_ptr<std::unique_ptr<NOXPBlob>>;

  [[noreturn]] static void throwKeyError();
  SharedRecord hold(NOXPBlob* record);
  const SharedRecord& recordAtCursor() const;
  void dropRecords();
  void writeEntries(Archive& ar);
  void readEntries(Archive& ar);

  int id_ = -1;
  unsigned int position_ = 0;
  bool hasRecordData_ = false;
  std::vector<std::string> keys_;
  std::vector<SharedRecord> records_;  // entry i belongs to key i; may be shorter than the keys
  std::set<unsigned long> modified_;
  // Records that were given up as a whole. Their pointers stay valid with the list, and may be set
  // again.
  std::map<NOXPBlob*, SharedRecord> dropped_;
};

/// The older, flat form: all keys in one blob, separated by attribute marks.
class NOX_EXPORT SelectListProt5 : public Payload<SelectListProt5, TypeCode::SelectList5> {
public:
  SelectListProt5() = default;
  /// Takes `keys` over; null gives no keys.
  SelectListProt5(Adopted<NOXPBlob> keys);
  SelectListProt5(const SelectListProt5& other) = default;
  explicit SelectListProt5(const SelectListProt5* other);
  SelectListProt5& operator=(const SelectListProt5& other) = default;
  ~SelectListProt5() override;

  Archive& serialize(Archive& ar, unsigned int version) override;

  int count() const;
  /// The key at `index`, counted from 0, as a new string that the caller deletes; empty beyond the
  /// last key.
  NOXPString* get(unsigned int index);
  NOXPBlob* getKeys() const { return keys_.get(); }

private:
  OwnedBlob keys_;
};

}  // namespace nox::noxp::remote
