#include "nox/client/statement.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "client/src/numbers.h"
#include "client/src/row_source.h"
#include "client/src/statement_state.h"
#include "client/src/wire_text.h"

namespace nox::client {

using detail::Link;
using detail::RowSource;

std::string_view Cell::text() const {
  if (!value_) throw Error(sqlstate::kNull, "null was asked for its value", Outcome::NotSent);
  return *value_;
}

std::int64_t Cell::int64() const { return detail::requireInt64(text()); }

double Cell::real() const { return detail::requireDouble(text()); }

bool Cell::boolean() const {
  const std::string_view value = text();
  const auto is = [value](std::string_view lower) {
    if (value.size() != lower.size()) return false;
    for (std::size_t i = 0; i < value.size(); ++i) {
      if ((value[i] | 0x20) != lower[i]) return false;
    }
    return true;
  };
  if (value == "1" || is("true")) return true;
  if (value == "0" || is("false")) return false;
  throw Error(sqlstate::kNotANumber, "neither true nor false: \"" + std::string(value) + "\"",
              Outcome::NotSent);
}

Cell Row::operator[](std::size_t i) const {
  if (i >= cells_.size()) {
    throw std::out_of_range("a row of " + std::to_string(cells_.size()) +
                            " columns, counted from 0, was asked for another");
  }
  return Cell(cells_[i]);
}

Cell Row::operator[](std::string_view column) const {
  return (*this)[source_->columnIndex(column)];
}

Rows::Rows(std::shared_ptr<RowSource> source) : source_(std::move(source)) {}

Rows::Rows(Rows&& other) noexcept = default;

Rows& Rows::operator=(Rows&& other) noexcept {
  Rows taken(std::move(other));
  std::swap(source_, taken.source_);
  return *this;
}

// A statement may know the source, too: it ends with its rows.
Rows::~Rows() {
  if (source_) source_->close();
}

Rows& Rows::fetchSize(int rows) & {
  source_->setFetchSize(rows);
  return *this;
}

Rows Rows::fetchSize(int rows) && {
  fetchSize(rows);
  return std::move(*this);
}

Rows::Iterator Rows::begin() { return Iterator(next() ? source_.get() : nullptr); }
Rows::Iterator Rows::end() { return {}; }
bool Rows::next() { return source_->next(); }
const Row& Rows::row() const { return source_->row(); }
const std::vector<Column>& Rows::columns() { return source_->columns(); }
void Rows::close() { source_->close(); }

Rows::Iterator::Iterator(RowSource* source) : source_(source) {}

Rows::Iterator::reference Rows::Iterator::operator*() const { return source_->row(); }

Rows::Iterator& Rows::Iterator::operator++() {
  if (!source_->next()) source_ = nullptr;
  return *this;
}

namespace detail {

SqlAnswer takeSqlAnswer(Link& link, Serializable& request) {
  const std::unique_ptr<Serializable> answer = link.exchange(request);
  SqlAnswer taken;
  if (auto* const rows = dynamic_cast<noxp::sql::SQLResultResponseProt*>(answer.get())) {
    taken.statementId = rows->getStatementId();
    taken.hasRows = true;
    taken.rows.reset(rows->retrieveResultSet());
  } else if (auto* const done = dynamic_cast<noxp::sql::SQLUpdateResponseProt*>(answer.get())) {
    taken.statementId = done->getStatementId();
    taken.changes = done->getUpdateCount();
  } else {
    link.channel().failAnswer(request.getType(), answer->getType());
  }
  return taken;
}

Rows requireRows(SqlResult result) {
  if (!result.rows) {
    throw Error(kWrongKind, "the statement answers no rows; it has been executed",
                Outcome::Rejected);
  }
  return std::move(*result.rows);
}

std::int64_t requireNoRows(SqlResult result) {
  if (result.rows) {
    throw Error(kWrongKind, "the statement answers rows", Outcome::Rejected);
  }
  return result.changes;
}

}  // namespace detail

void Statement::State::endRows() {
  if (const std::shared_ptr<RowSource> source = rows.lock()) source->invalidate();
  rows.reset();
}

void Statement::State::close() noexcept {
  const std::shared_ptr<Link> used = std::exchange(link, nullptr);
  if (!used) return;
  endRows();
  detail::releaseStatement(*used, id);
}

Link& Statement::State::use() {
  if (!link) throw Error(sqlstate::kUnusable, "the statement was closed", Outcome::NotSent);
  return *link;
}

const detail::Description& Statement::State::describe() {
  if (!description) {
    description = std::make_unique<detail::Description>(detail::describe(use(), id));
  }
  return *description;
}

Statement::Statement(std::unique_ptr<State> state) : state_(std::move(state)) {}

Statement::Statement(Statement&& other) noexcept = default;

Statement& Statement::operator=(Statement&& other) noexcept {
  Statement taken(std::move(other));
  std::swap(state_, taken.state_);
  return *this;
}

Statement::~Statement() {
  if (state_) state_->close();
}

Statement& Statement::bind(const std::vector<Value>& values) {
  noxp::sql::BindRequestProt request(state_->id, detail::parametersOf(values).release());
  state_->endRows();
  state_->use().ask<noxp::sql::SQLOKResponseProt>(request);
  return *this;
}

SqlResult Statement::execute() {
  noxp::sql::ExecuteRequestProt request(state_->id);
  state_->endRows();
  detail::SqlAnswer answer = detail::takeSqlAnswer(state_->use(), request);
  SqlResult result;
  result.changes = answer.changes;
  if (answer.hasRows) {
    auto source = std::make_shared<RowSource>(
        state_->link, state_->id, RowSource::Ownership::Borrowed, std::move(answer.rows));
    state_->rows = source;
    result.rows = Rows(std::move(source));
  }
  return result;
}

Rows Statement::query() { return detail::requireRows(execute()); }

std::int64_t Statement::update() { return detail::requireNoRows(execute()); }

const std::vector<Column>& Statement::columns() { return state_->describe().columns; }

const std::vector<Column>& Statement::parameters() { return state_->describe().parameters; }

void Statement::close() { state_->close(); }

int Statement::id() const { return state_->id; }

}  // namespace nox::client
