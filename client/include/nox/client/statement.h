// Statement and Rows: SQL, with rows that are fetched batch by batch.
//
//   for (const Row& row : connection.query("SELECT ID, AGE FROM PERSON WHERE CITY = ?", {"Oslo"}))
//   {
//     std::cout << row["ID"].text() << ' ' << row["AGE"].int64() << '\n';
//   }
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "nox/client/export.h"
#include "nox/client/value.h"

namespace nox::client {

namespace detail {
class Link;
class RowSource;
}  // namespace detail

/// A column of an answer, or a parameter of a statement.
struct Column {
  std::string name;
  std::string table;  ///< empty for an expression
  int dataType = 0;   ///< a code of catalog(Catalog::Types)
  int precision = 0;
  int scale = 0;
  int displayWidth = 0;
  bool nullable = true;
  bool readOnly = false;
  bool blob = false;
  bool autoIncrement = false;
};

/// One value of a row: a view, valid as long as its row.
class NOX_CLIENT_EXPORT Cell {
public:
  Cell() = default;
  explicit Cell(std::optional<std::string_view> value) : value_(value) {}

  bool isNull() const { return !value_; }
  // Error 22002 for null; 22018 where the text is no such number.
  std::string_view text() const;
  std::string_view bytes() const { return text(); }
  std::int64_t int64() const;
  double real() const;
  /// 0, 1, true or false in any case.
  bool boolean() const;
  std::string_view textOr(std::string_view forNull) const { return value_ ? *value_ : forNull; }
  std::optional<std::string_view> get() const { return value_; }

private:
  std::optional<std::string_view> value_;
};

/// The row on which its Rows stands; valid until they move on, and not copied for that reason.
class NOX_CLIENT_EXPORT Row {
public:
  Row(const Row&) = delete;
  Row& operator=(const Row&) = delete;

  std::size_t size() const { return cells_.size(); }
  /// Counted from 0. Throws std::out_of_range.
  Cell operator[](std::size_t i) const;
  Cell operator[](int i) const { return (*this)[static_cast<std::size_t>(i)]; }
  /// By the column's name, whose letters A to Z may be in either case; the names are asked for
  /// once. Error 42S22 where there is no such column.
  Cell operator[](std::string_view column) const;
  Cell operator[](const char* column) const { return (*this)[std::string_view(column)]; }

private:
  friend class detail::RowSource;
  Row() = default;

  std::vector<std::optional<std::string_view>> cells_;
  detail::RowSource* source_ = nullptr;
};

/// The answer to a query: a single-pass range of rows. Only one batch is in memory; breaking off
/// early closes the query on the server. Moves only. Belongs to its connection: use it in the
/// thread that uses the connection. Rows of a Statement end with its next execution.
class NOX_CLIENT_EXPORT Rows {
public:
  class Iterator;

  Rows(Rows&& other) noexcept;
  Rows& operator=(Rows&& other) noexcept;
  ~Rows();

  /// Rows per batch from the next one on; the server may send fewer.
  Rows& fetchSize(int rows) &;
  Rows fetchSize(int rows) &&;

  Iterator begin();
  Iterator end();
  /// The same by hand: moves to the next row, the first one at first; false behind the last.
  bool next();
  const Row& row() const;

  /// Asked of the server once.
  const std::vector<Column>& columns();
  /// Ends the query before the destructor would.
  void close();

private:
  friend class Connection;
  friend class Statement;
  explicit Rows(std::shared_ptr<detail::RowSource> source);

  std::shared_ptr<detail::RowSource> source_;
};

/// Belongs to its Rows.
class NOX_CLIENT_EXPORT Rows::Iterator {
public:
  using iterator_category = std::input_iterator_tag;
  using value_type = Row;
  using difference_type = std::ptrdiff_t;
  using pointer = const Row*;
  using reference = const Row&;

  Iterator() = default;
  reference operator*() const;
  pointer operator->() const { return &**this; }
  Iterator& operator++();
  void operator++(int) { ++*this; }
  friend bool operator==(const Iterator& a, const Iterator& b) { return a.source_ == b.source_; }
  friend bool operator!=(const Iterator& a, const Iterator& b) { return a.source_ != b.source_; }

private:
  friend class Rows;
  explicit Iterator(detail::RowSource* source);
  detail::RowSource* source_ = nullptr;  // null at the end
};

/// What a statement of any kind gave: rows, or how many rows it changed.
struct SqlResult {
  std::optional<Rows> rows;
  std::int64_t changes = 0;
};

/// A statement that the server has prepared; it is released with this object. Moves only. Belongs
/// to its connection: use it in the thread that uses the connection.
class NOX_CLIENT_EXPORT Statement {
public:
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&& other) noexcept;
  ~Statement();

  /// Keeps the values for the executions that follow. Error 02001 when their number is wrong.
  Statement& bind(const std::vector<Value>& values);
  SqlResult execute();
  SqlResult execute(const std::vector<Value>& values) { return bind(values).execute(); }
  /// For a statement that answers rows. Error 07005 for another, which has then been executed.
  Rows query();
  Rows query(const std::vector<Value>& values) { return bind(values).query(); }
  /// For one that does not: how many rows it changed. Error 07005 for one that answers rows.
  std::int64_t update();
  std::int64_t update(const std::vector<Value>& values) { return bind(values).update(); }

  // Both are asked of the server once.
  const std::vector<Column>& columns();
  const std::vector<Column>& parameters();
  /// Releases the statement before its destructor would.
  void close();
  /// The number under which the server keeps it.
  int id() const;

private:
  friend class Batch;
  friend class Connection;
  struct NOX_CLIENT_HIDDEN State;
  explicit Statement(std::unique_ptr<State> state);

  std::unique_ptr<State> state_;
};

}  // namespace nox::client
