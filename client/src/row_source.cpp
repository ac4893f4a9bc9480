#include "client/src/row_source.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "client/src/numbers.h"

namespace nox::client::detail {

namespace {

using noxp::sql::ColumnMetaDataProt;
using noxp::sql::ResultSetMetaDataProt;

// A null would end the row on the wire. No text and no number begins with this byte.
constexpr std::string_view kNullValue = "\x80";

constexpr const char* kNoCursor = "24000";

std::string textOf(NOXPString* attribute) { return attribute->getString(); }

int numberOf(NOXPString* attribute) {
  const std::optional<std::int64_t> number = parseInt64(attribute->getString());
  return number ? static_cast<int>(*number) : 0;
}

bool flagOf(NOXPString* attribute) { return attribute->getString() == "1"; }

Column columnOf(ColumnMetaDataProt& data) {
  Column column;
  column.name = textOf(data.getColumnName());
  column.table = textOf(data.getTableName());
  column.dataType = numberOf(data.getDatatype());
  column.precision = numberOf(data.getPrecision());
  column.scale = numberOf(data.getScale());
  column.displayWidth = numberOf(data.getDisplayWidth());
  column.nullable = flagOf(data.isNullable());
  column.readOnly = flagOf(data.isReadOnly());
  column.blob = flagOf(data.isBlob());
  column.autoIncrement = flagOf(data.isAutoIncrement());
  return column;
}

/// As names of columns are compared: letters of ASCII without regard to their case, in any locale.
bool sameName(std::string_view a, std::string_view b) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [&lower](char x, char y) { return lower(x) == lower(y); });
}

}  // namespace

Description describe(Link& link, int statementId) {
  noxp::sql::MetaDataRequestProt request(statementId);
  const auto answer = link.ask<noxp::sql::SQLRSMDResponseProt>(request);
  Description description;
  ResultSetMetaDataProt* const data = answer->getResultSetMetaData();
  for (int i = 0; data && i < data->getNumberOfColumns(); ++i) {
    description.columns.push_back(columnOf(*data->getColumnMetaDataProt(i)));
  }
  for (int i = 0; data && i < data->getNumberOfParameters(); ++i) {
    description.parameters.push_back(columnOf(*data->getParameterMetaDataProt(i)));
  }
  return description;
}

void releaseStatement(Link& link, int statementId) noexcept {
  noxp::sql::ReleaseStatementRequestProt request(statementId);
  link.post(request);
}

RowSource::RowSource(std::shared_ptr<Link> link, int statementId, Ownership ownership,
                     std::unique_ptr<noxp::sql::ResultSetProt> first)
    : link_(std::move(link)),
      statementId_(statementId),
      ownership_(ownership),
      fetchSize_(link_->fetchSize),
      batch_(std::move(first)) {
  row_.source_ = this;
}

RowSource::~RowSource() { close(); }

void RowSource::close() noexcept {
  const std::shared_ptr<Link> link = std::exchange(link_, nullptr);
  isAtEnd_ = true;
  row_.cells_.clear();
  batch_.reset();
  if (link && ownership_ == Ownership::Statement) releaseStatement(*link, statementId_);
}

void RowSource::invalidate() {
  isInvalid_ = true;
  row_.cells_.clear();
  batch_.reset();
}

bool RowSource::show(noxp::sql::RowProt* row) {
  row_.cells_.clear();
  if (!row) return false;
  const int count = row->getNumberOfFields();
  row_.cells_.reserve(static_cast<std::size_t>(std::max(count, 0)));
  for (int i = 0; i < count; ++i) {
    const std::string_view value = row->getColumnView(i);
    if (value == kNullValue || (value.empty() && link_->emptyIsNull)) {
      row_.cells_.emplace_back();
    } else {
      row_.cells_.emplace_back(value);
    }
  }
  return true;
}

bool RowSource::next() {
  if (isInvalid_) {
    throw Error(kNoCursor, "the statement of these rows was executed again or closed",
                Outcome::NotSent);
  }
  if (isAtEnd_) return false;
  if (batch_ && show(batch_->next())) return true;
  batch_.reset();
  noxp::sql::FetchRequestProt request(statementId_, static_cast<unsigned long>(fetchSize_));
  const auto answer = link_->ask<noxp::sql::SQLResultResponseProt>(request);
  batch_.reset(answer->retrieveResultSet());
  if (batch_ && show(batch_->next())) return true;
  batch_.reset();
  // An empty batch is the end. What is owned stays until it is closed: its columns may be asked
  // for.
  isAtEnd_ = true;
  return false;
}

const std::vector<Column>& RowSource::columns() {
  if (!description_) {
    if (!link_ || isInvalid_) {
      throw Error(kNoCursor, "the rows were closed", Outcome::NotSent);
    }
    description_ = std::make_unique<Description>(describe(*link_, statementId_));
  }
  return description_->columns;
}

std::size_t RowSource::columnIndex(std::string_view name) {
  const std::vector<Column>& all = columns();
  const auto found = std::find_if(
      all.begin(), all.end(), [name](const Column& column) { return sameName(column.name, name); });
  if (found == all.end()) {
    throw Error(sqlstate::kNoColumn, "there is no column " + std::string(name), Outcome::NotSent);
  }
  return static_cast<std::size_t>(found - all.begin());
}

}  // namespace nox::client::detail
