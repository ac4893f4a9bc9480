#include "agent/sql/statements.h"

#include <algorithm>
#include <array>
#include <limits>
#include <optional>
#include <utility>

#include "agent/failure.h"
#include "agent/requests/fields.h"
#include "agent/scripting/subroutine.h"
#include "agent/session/session.h"
#include "agent/sql/descriptions.h"
#include "agent/sql/parameters.h"
#include "agent/sql/sql_failure.h"

namespace nox::agent {

namespace {

using noxp::sql::ResultSetMetaDataProt;
using noxp::sql::ResultSetProt;

/// How long rows are read ahead: a client that comes back with something else waits no longer. One
/// row may take longer, up to the statement's own time.
constexpr std::chrono::milliseconds kTimeAhead{50};

constexpr int kCatalogId = 0;

/// What a parameter takes in a frame besides its bytes, and then some for the reply around them.
constexpr std::size_t kMostAroundParameter = 64;
/// What a description takes besides its names.
constexpr std::size_t kMostAroundColumn = 400;

struct Property {
  std::string_view name;
  Catalog catalog;
};
constexpr std::array<Property, 6> kProperties = {{{"TABLES", Catalog::Tables},
                                                  {"COLUMNS", Catalog::Columns},
                                                  {"PRIMARYKEYS", Catalog::PrimaryKeys},
                                                  {"INDEXES", Catalog::Indexes},
                                                  {"PROCEDURES", Catalog::Procedures},
                                                  {"TYPES", Catalog::Types}}};

[[noreturn]] void throwUnknown(int id) {
  throw Failure("26", "000", "there is no statement " + std::to_string(id));
}

/// The store's part of a request, with its errors as clients of SQL read them.
template <class Work>
auto inStore(Work work) {
  try {
    return work();
  } catch (const StoreError& error) {
    throwAsSqlFailure(error);
  }
}

/// Facts that were gathered, row by row.
class GatheredRows : public SqlRows {
public:
  explicit GatheredRows(CatalogRows gathered) : gathered_(std::move(gathered)) {}

  const SqlRow* next() override {
    if (next_ == gathered_.rows.size()) return nullptr;
    const auto& values = gathered_.rows[next_++];
    row_.assign(values.begin(), values.end());
    return &row_;
  }
  void close() override { next_ = gathered_.rows.size(); }

private:
  const CatalogRows gathered_;
  std::size_t next_ = 0;
  SqlRow row_;
};

}  // namespace

SqlStatements::SqlStatements(Session& session) : session_(session) {}

SqlStatements::~SqlStatements() = default;

std::unique_ptr<SqlStatement> SqlStatements::prepare(std::string_view sql, bool mustExist) {
  requireRoom();
  return inStore([&] {
    auto statement = session_.store().prepare(sql, mustExist);
    if (mustExist) requireRights(*statement);
    return statement;
  });
}

void SqlStatements::requireRoom() const {
  if (open_.size() >= kMost) {
    throw Failure("IE", "001", "the session holds " + std::to_string(kMost) + " statements");
  }
}

void SqlStatements::requireRights(SqlStatement& statement) const {
  if (!statement.isReadOnly()) session_.requireWrite();
}

void SqlStatements::requireRoomToRead() const {
  const auto isReading = [](const auto& held) {
    const auto* const query = std::get_if<Query>(&held.second);
    return query && query->batches && !query->batches->isReadUp();
  };
  if (static_cast<std::size_t>(std::count_if(open_.begin(), open_.end(), isReading)) >=
      kMostReading) {
    throw Failure("IE", "001",
                  std::to_string(kMostReading) + " queries have rows left to be fetched");
  }
}

int SqlStatements::keep(Held held) {
  do {
    lastId_ = lastId_ == std::numeric_limits<int>::max() ? 1 : lastId_ + 1;
  } while (open_.count(lastId_) > 0);
  open_.emplace(lastId_, std::move(held));
  return lastId_;
}

SqlStatements::Query& SqlStatements::query(int id) {
  const auto found = open_.find(id);
  if (found == open_.end()) throwUnknown(id);
  if (auto* const query = std::get_if<Query>(&found->second)) return *query;
  throw Failure("26", "000", "statement " + std::to_string(id) + " is a subroutine, to be called");
}

int SqlStatements::compile(std::string_view sql) {
  Query query;
  query.statement = prepare(sql, true);
  return keep(std::move(query));
}

int SqlStatements::precompile(std::string_view sql) {
  Query query;
  query.statement = prepare(sql, false);
  return keep(std::move(query));
}

void SqlStatements::bind(int id, noxp::ParameterListProt* parameters) {
  Query& bound = query(id);
  std::vector<SqlValue> values = valuesOf(parameters);
  inStore([&] {
    const std::optional<int> count = bound.statement->parameterCount();
    if (count && values.size() != static_cast<std::size_t>(*count)) {
      throw Failure(
          "02", "001",
          std::to_string(values.size()) + " values for " + std::to_string(*count) + " parameters");
    }
    // The rows that are left belong to the values that were bound before.
    stopReading(bound.batches.get());
    bound.batches.reset();
    bound.statement->close();
  });
  bound.values = std::move(values);
}

SqlStatements::Outcome SqlStatements::execute(Query& query) {
  SqlStatement& statement = *query.statement;
  stopReading(query.batches.get());
  query.batches.reset();
  Outcome outcome;
  inStore([&] {
    requireRights(statement);
    const auto count = static_cast<std::size_t>(statement.parameterCount().value_or(0));
    if (query.values.size() != count) {
      throw Failure("02", "001",
                    std::to_string(query.values.size()) + " values are bound to " +
                        std::to_string(count) + " parameters");
    }
    if (statement.isQuery()) requireRoomToRead();
    statement.execute(query.values);
    if (!statement.isQuery()) outcome.changes = statement.changes();
  });
  if (statement.isQuery()) {
    query.batches = std::make_unique<RowBatches>(statement, bounds());
    outcome.rows = take(query, rowsOrFetchSize(0));
  }
  return outcome;
}

SqlStatements::Outcome SqlStatements::execute(int id) { return execute(query(id)); }

SqlStatements::Executed SqlStatements::compileAndExecute(std::string_view sql) {
  Executed executed;
  executed.id = compile(sql);
  try {
    executed.outcome = execute(executed.id);
  } catch (...) {
    open_.erase(executed.id);
    throw;
  }
  return executed;
}

std::unique_ptr<ResultSetProt> SqlStatements::take(RowBatches& batches, std::size_t rows) {
  auto batch = batches.take(rows);
  reading_ = &batches;
  rowsWanted_ = rows;
  return batch;
}

std::unique_ptr<ResultSetProt> SqlStatements::take(Query& query, std::size_t rows) {
  try {
    return take(*query.batches, rows);
  } catch (const Failure&) {
    query.batches.reset();
    throw;
  }
}

std::unique_ptr<ResultSetProt> SqlStatements::fetch(int id, int rows) {
  if (id == kCatalogId && catalog_.batches) {
    return take(*catalog_.batches, rowsOrFetchSize(rows));
  }
  Query& fetched = query(id);
  if (!fetched.batches) {
    throw Failure("24", "000", "statement " + std::to_string(id) + " has no rows to fetch");
  }
  if (fetched.statement->isOverWithTransaction()) {
    fetched.batches.reset();
    throw Failure("24", "000", "the query ended with the transaction in which it was executed");
  }
  return take(fetched, rowsOrFetchSize(rows));
}

std::unique_ptr<ResultSetMetaDataProt> SqlStatements::describe(int id) {
  if (id == kCatalogId && catalog_.batches) return agent::describe(catalog_.columns, {});
  const auto found = open_.find(id);
  if (found == open_.end()) throwUnknown(id);
  auto* const query = std::get_if<Query>(&found->second);
  if (!query) return agent::describe({}, {});
  return inStore([&] {
    const std::vector<SqlColumn> columns = query->statement->columns();
    const std::vector<SqlColumn> parameters = query->statement->parameters();
    std::size_t bytes = 0;
    for (const auto* const described : {&columns, &parameters}) {
      for (const SqlColumn& column : *described) {
        bytes += kMostAroundColumn + column.name.size() + column.table.size();
      }
    }
    if (bytes > session_.frameCap()) {
      throw Failure("IE", "001", "the description is larger than a frame may be");
    }
    return agent::describe(columns, parameters);
  });
}

void SqlStatements::release(int id) {
  const auto found = open_.find(id);
  if (found == open_.end()) {
    throw Failure("IE", "002", "there is no statement " + std::to_string(id));
  }
  if (const auto* const query = std::get_if<Query>(&found->second)) {
    stopReading(query->batches.get());
  }
  open_.erase(found);
}

int SqlStatements::load(std::string_view subroutine) {
  requireRoom();
  checkSubroutine(session_, subroutine);
  return keep(LoadedSubroutine{std::string(subroutine)});
}

noxp::ACEBinaryFormatParameterListProt SqlStatements::call(int id,
                                                           noxp::ParameterListProt* parameters) {
  const auto found = open_.find(id);
  if (found == open_.end()) throwUnknown(id);
  const auto* const loaded = std::get_if<LoadedSubroutine>(&found->second);
  if (!loaded) {
    throw Failure("26", "000", "statement " + std::to_string(id) + " is no subroutine");
  }
  const std::string name = loaded->name;  // the program may run for long and do anything
  const auto program = [&] {
    try {
      return makeSubroutine(session_, name, argumentsOf(parameters), false);
    } catch (const Failure& failure) {
      // It was there when it was loaded: here it is the call that fails.
      throw Failure("IE", "003", failure.reason(), failure.status());
    }
  }();
  if (program->run(std::nullopt) != Program::State::Done) {
    throw Failure("IE", "003", "the subroutine asks for input, which a call cannot give");
  }
  if (program->aborted()) throw Failure("IE", "003", "the subroutine aborted itself");
  std::size_t bytes = 0;
  for (const Argument& argument : program->arguments()) {
    bytes += kMostAroundParameter + (argument ? argument->size() : 0);
  }
  if (bytes > session_.frameCap()) {
    throw Failure("IE", "003", "the subroutine left more in its parameters than a frame may hold");
  }
  return parametersOf(program->arguments(), parameters);
}

std::unique_ptr<ResultSetProt> SqlStatements::databaseMetaData(std::string_view property,
                                                               noxp::ParameterListProt* patterns) {
  const auto* const known =
      std::find_if(kProperties.begin(), kProperties.end(),
                   [&](const Property& candidate) { return candidate.name == property; });
  if (known == kProperties.end()) {
    throw Failure("0A", "000", "there is no property \"" + std::string(property) + "\"");
  }
  std::vector<std::string> texts;
  for (const Argument& pattern : argumentsOf(patterns)) texts.push_back(pattern.value_or(""));

  stopReading(catalog_.batches.get());
  catalog_ = CatalogQuery();
  CatalogRows gathered = inStore([&] { return session_.store().catalog(known->catalog, texts); });
  catalog_.columns = gathered.columns;
  const std::size_t all = gathered.rows.size();
  catalog_.rows = std::make_unique<GatheredRows>(std::move(gathered));
  catalog_.batches = std::make_unique<RowBatches>(*catalog_.rows, bounds());
  return catalog_.batches->take(all);
}

void SqlStatements::prepareNextBatch() {
  RowBatches* const batches = std::exchange(reading_, nullptr);
  if (!batches || batches->isReadUp()) return;
  const auto now = std::chrono::steady_clock::now();
  const std::chrono::seconds timeout = session_.settings().statementTimeout;
  if (timeout.count() > 0) session_.store().setDeadline(now + timeout);
  batches->prepare(rowsWanted_, now + kTimeAhead);
}

void SqlStatements::stopReading(const RowBatches* batches) {
  if (reading_ == batches) reading_ = nullptr;
}

void SqlStatements::closeAll() {
  reading_ = nullptr;
  catalog_ = CatalogQuery();
  open_.clear();
}

std::size_t SqlStatements::rowsOrFetchSize(int rows) const {
  return static_cast<std::size_t>(rows > 0 ? rows : session_.settings().fetchSize);
}

RowBatches::Bounds SqlStatements::bounds() const {
  return {session_.frameCap(), session_.settings().emptyNull};
}

}  // namespace nox::agent
