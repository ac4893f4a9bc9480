// SelectList: record ids that the server keeps, walked page by page.
//
//   SelectList people = file.select();
//   for (SelectList::Entry& entry : people.withRecords()) {
//     if (entry.record()[2] == "Oslo") entry.replace(moved(entry.record()));
//   }
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nox/client/export.h"
#include "nox/client/record.h"

namespace nox::client {

namespace detail {
class Link;
}

/// A list on the server; it is closed there with this object. Only one page of it is in memory.
/// Moves only. Belongs to its connection: use it in the thread that uses the connection.
///
/// Changes made with Entry::replace are written, all of a page or none, when the next page is
/// fetched, and by commit(). Those of the last page that was seen when the walk was broken off are
/// dropped unless commit() is called.
class NOX_CLIENT_EXPORT SelectList {
public:
  class Entry;
  class Iterator;
  using Page = std::vector<Entry>;

  SelectList(SelectList&& other) noexcept;
  SelectList& operator=(SelectList&& other) noexcept;
  ~SelectList();

  /// Pages bring the records, as they are at that moment.
  SelectList& withRecords(bool wanted = true) &;
  SelectList withRecords(bool wanted = true) &&;
  /// How many ids a page has at most, from 1 to 10,000: what is beyond is taken as the nearest. The
  /// server may send fewer.
  SelectList& pageSize(std::size_t ids) &;
  SelectList pageSize(std::size_t ids) &&;

  /// Walks from the first entry on, fetching page by page; each call starts anew. Single pass.
  Iterator begin();
  Iterator end();

  // By hand. Each writes the changes of the current page first, and says whether there is a page:
  // false behind the last and before the first, where page() is empty.
  bool nextPage();
  bool previousPage();
  bool firstPage();
  bool lastPage();
  /// The current page once more, with what its records are now.
  bool samePage();
  Page& page();
  const Page& page() const;

  /// Writes what was changed on the current page: all of it or nothing.
  void commit();
  /// All ids that are left, from the next page on.
  std::vector<std::string> ids();
  /// How many ids are left, from the next page on.
  std::size_t count();
  /// Closes the list before its destructor would.
  void close();
  /// The number under which the server keeps it.
  int id() const;

private:
  friend class Connection;
  friend class Conversation;
  friend class File;
  struct NOX_CLIENT_HIDDEN State;
  explicit SelectList(std::unique_ptr<State> state);

  std::unique_ptr<State> state_;
};

/// An id, and its record where records were asked for.
class NOX_CLIENT_EXPORT SelectList::Entry {
public:
  Entry(std::string id, Record record, bool hasRecord)
      : id_(std::move(id)), record_(std::move(record)), hasRecord_(hasRecord) {}

  const std::string& id() const { return id_; }
  /// False without withRecords(), and for a record that was deleted since the list was made.
  bool hasRecord() const { return hasRecord_; }
  const Record& record() const { return record_; }
  /// Takes the record out, which leaves an empty one.
  Record takeRecord() { return std::exchange(record_, Record()); }
  /// The record that is to be written under this id.
  void replace(Record record) {
    record_ = std::move(record);
    hasRecord_ = true;
    isModified_ = true;
  }
  bool isModified() const { return isModified_; }

private:
  friend class SelectList;
  std::string id_;
  Record record_;
  bool hasRecord_;
  bool isModified_ = false;
};

/// Belongs to its list, which must stay where it is.
class NOX_CLIENT_EXPORT SelectList::Iterator {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Entry;
  using difference_type = std::ptrdiff_t;
  using pointer = Entry*;
  using reference = Entry&;

  Iterator() = default;
  reference operator*() const { return *entry_; }
  pointer operator->() const { return entry_; }
  Iterator& operator++();
  void operator++(int) { ++*this; }
  friend bool operator==(const Iterator& a, const Iterator& b) { return a.entry_ == b.entry_; }
  friend bool operator!=(const Iterator& a, const Iterator& b) { return a.entry_ != b.entry_; }

private:
  friend class SelectList;
  explicit Iterator(SelectList& list);

  SelectList* list_ = nullptr;
  Entry* entry_ = nullptr;  // null at the end
  Entry* pageEnd_ = nullptr;
};

}  // namespace nox::client
