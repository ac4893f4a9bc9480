#include "nox/client/connection.h"

#include <utility>

#include "client/src/conversation_state.h"
#include "client/src/link.h"
#include "client/src/listing_state.h"
#include "client/src/login.h"
#include "client/src/monitor_table.h"
#include "client/src/numbers.h"
#include "client/src/record_requests.h"
#include "client/src/row_source.h"
#include "client/src/select_list_state.h"
#include "client/src/statement_state.h"
#include "client/src/transaction_requests.h"
#include "client/src/uri.h"
#include "client/src/wire_text.h"

namespace nox::client {

namespace {

using detail::Link;
using detail::RowSource;
using noxp::remote::SelectListProt;

// Requests of this layout hand their select list over, and take bytes as they are.
constexpr int kQueryWithSelectList = 1;

constexpr int kOutputConversion = 0;
constexpr int kInputConversion = 1;

const char* nameOf(Catalog what) {
  switch (what) {
    case Catalog::Tables:
      return "TABLES";
    case Catalog::Columns:
      return "COLUMNS";
    case Catalog::PrimaryKeys:
      return "PRIMARYKEYS";
    case Catalog::Indexes:
      return "INDEXES";
    case Catalog::Procedures:
      return "PROCEDURES";
    case Catalog::Types:
      return "TYPES";
  }
  return "";
}

std::string convert(Link& link, int type, std::string_view data, std::string_view code) {
  noxp::remote::ConvRequestProt request(type, nullptr, nullptr);
  detail::put(request.getData(), data, "the data");
  detail::put(request.getConversion(), code, "the conversion's code");
  const auto answer = link.ask<noxp::remote::ConvResponseProt>(request);
  return std::string(detail::bytesOf(answer->getResult()));
}

std::unique_ptr<NOXPString> sqlText(std::string_view text) {
  auto copy = std::make_unique<NOXPString>();
  detail::put(copy.get(), text, "the SQL text");
  return copy;
}

/// A list of the client's own: keys without a list on the server.
std::unique_ptr<SelectListProt> listOf(const std::vector<std::string>& keys) {
  std::string joined;
  for (const std::string& key : keys) {
    joined += detail::checkedText(key, detail::kRecordId);
    joined += kAttributeMark;
  }
  NOXPBlob blob;
  detail::put(&blob, joined);
  return std::make_unique<SelectListProt>(&blob);
}

}  // namespace

void Canceller::cancel() const noexcept { impl_->cancel(); }

Connection::Connection(std::shared_ptr<Link> link) : link_(std::move(link)) {}

Connection::Connection(Connection&& other) noexcept = default;

Connection& Connection::operator=(Connection&& other) noexcept {
  Connection taken(std::move(other));
  std::swap(link_, taken.link_);
  return *this;
}

Connection::~Connection() { close(); }

Connection Connection::open(std::string_view uri) { return open(Options::fromUri(uri)); }

Connection Connection::open(const Options& options) {
  return Connection(detail::openLink(options));
}

void Connection::close() {
  if (link_) link_->close();
}

// --- files ---------------------------------------------------------------------------------------

File Connection::file(std::string_view name) {
  noxp::remote::OpenFileRequestProt request;
  detail::put(request.getFileName(), name, detail::kFileName);
  link_->ask<OKResponseProt>(request);
  return File(link_, std::string(name));
}

void Connection::releaseLocks() {
  noxp::remote::ReleaseRecordLockRequestProt request(detail::kReleaseAll, nullptr, nullptr);
  link_->ask<OKResponseProt>(request);
  link_->mayHoldLocks = false;
}

// --- commands ------------------------------------------------------------------------------------

CommandResult Connection::execute(std::string_view command) {
  return Conversation::State::ofCommand(link_, command, nullptr)->finish();
}

CommandResult Connection::execute(std::string_view command, const SelectList& active) {
  const SelectList::State& used = *active.state_;
  if (!used.link) throw Error(sqlstate::kUnusable, "the list was closed", Outcome::NotSent);
  // Each session counts its lists by itself: here the number may be another one's.
  if (used.link != link_) {
    throw Error(sqlstate::kBadArgument, "the list belongs to another connection", Outcome::NotSent);
  }
  SelectListProt list;
  list.setId(used.id);
  return Conversation::State::ofCommand(link_, command, &list)->finish();
}

CommandResult Connection::execute(std::string_view command, const std::vector<std::string>& keys) {
  const std::unique_ptr<SelectListProt> list = listOf(keys);
  return Conversation::State::ofCommand(link_, command, list.get())->finish();
}

Conversation Connection::converse(std::string_view command) {
  return Conversation(Conversation::State::ofCommand(link_, command, nullptr));
}

SelectList Connection::select(std::string_view command) {
  CommandResult result = execute(command);
  if (result.list) return std::move(*result.list);
  return SelectList(SelectList::State::from(link_, nullptr));
}

Listing Connection::listing(std::string_view query) {
  auto text = std::make_unique<NOXPBlob>();
  detail::put(text.get(), query);
  noxp::remote::StatementExecuteQueryRequestProt request(text.release(), nullptr);
  request.setClassVersion(kQueryWithSelectList);
  const auto answer = link_->ask<noxp::remote::ToviResponseProt>(request);
  const auto* const list = dynamic_cast<const SelectListProt*>(answer->getSelectList());
  if (!list || list->getId() < 0) {
    link_->channel().failAnswer(request.getType(), answer->getType());
  }
  auto state = std::make_unique<Listing::State>();
  state->link = link_;
  state->id = list->getId();
  state->fetchSize = link_->fetchSize;
  state->heading = detail::recordOf(*answer);
  return Listing(std::move(state));
}

// --- subroutines ---------------------------------------------------------------------------------

Subroutine Connection::subroutine(std::string_view name) {
  return Subroutine(link_, detail::checkedText(name, "the subroutine's name"));
}

CallResult Connection::call(std::string_view name, const std::vector<Value>& parameters) {
  return subroutine(name).call(parameters);
}

Record Connection::common(std::string_view name) {
  noxp::remote::ReadCommonRequestProt request;
  detail::put(request.getName(), name, "the common's name");
  const auto answer = link_->ask<noxp::remote::ReadCommonResponseProt>(request);
  return Record(detail::bytesOf(answer->getValue()));
}

// --- SQL -----------------------------------------------------------------------------------------

Statement Connection::prepare(std::string_view text) {
  noxp::sql::CompileRequestProt request(sqlText(text).release());
  const auto answer = link_->ask<noxp::sql::SQLOKResponseProt>(request);
  return Statement(std::make_unique<Statement::State>(link_, answer->getStatementId()));
}

SqlResult Connection::sql(std::string_view text, const std::vector<Value>& values) {
  SqlResult result;
  detail::SqlAnswer answer;
  if (values.empty()) {
    noxp::sql::CompileAndExecuteRequestProt request(sqlText(text).release());
    answer = detail::takeSqlAnswer(*link_, request);
  } else {
    Statement statement = prepare(text);
    statement.bind(values);
    noxp::sql::ExecuteRequestProt request(statement.id());
    answer = detail::takeSqlAnswer(*link_, request);
    // From here on the statement is released below, or by its rows.
    statement.state_->link.reset();
  }
  result.changes = answer.changes;
  if (answer.hasRows) {
    result.rows = Rows(std::make_shared<RowSource>(
        link_, answer.statementId, RowSource::Ownership::Statement, std::move(answer.rows)));
  } else {
    detail::releaseStatement(*link_, answer.statementId);
  }
  return result;
}

Rows Connection::query(std::string_view text, const std::vector<Value>& values) {
  return detail::requireRows(sql(text, values));
}

std::int64_t Connection::update(std::string_view text, const std::vector<Value>& values) {
  return detail::requireNoRows(sql(text, values));
}

Rows Connection::catalog(Catalog what, const std::vector<std::string>& patterns) {
  const std::vector<Value> values(patterns.begin(), patterns.end());
  noxp::sql::DatabaseMetaDataRequestProt request(nameOf(what),
                                                 detail::parametersOf(values).release());
  if (const std::shared_ptr<RowSource> before = link_->catalog.lock()) before->invalidate();
  const auto answer = link_->ask<noxp::sql::SQLResultResponseProt>(request);
  auto source = std::make_shared<RowSource>(
      link_, answer->getStatementId(), RowSource::Ownership::Borrowed,
      std::unique_ptr<noxp::sql::ResultSetProt>(answer->retrieveResultSet()));
  link_->catalog = source;
  return Rows(std::move(source));
}

// --- transactions --------------------------------------------------------------------------------

Transaction Connection::begin(Isolation isolation) {
  constexpr int kVersionWithIsolation = 1;
  noxp::sql::TransactionStartRequestProt request(static_cast<int>(isolation));
  request.setClassVersion(kVersionWithIsolation);
  link_->ask<OKResponseProt>(request);
  link_->inTransaction = true;
  return Transaction(link_);
}

XaBranch Connection::startBranch(const Xid& xid) {
  noxp::remote::XAStartTransactionRequestProt request;
  detail::ask(*link_, request, xid);
  link_->inTransaction = true;
  return XaBranch(link_, xid, XaBranch::State::Started);
}

XaBranch Connection::preparedBranch(const Xid& xid) {
  return XaBranch(link_, xid, XaBranch::State::Prepared);
}

std::vector<XaBranchInfo> Connection::recover() { return detail::branchesIn(monitor("xa list")); }

// --- the session ---------------------------------------------------------------------------------

std::string Connection::convertOutput(std::string_view data, std::string_view code) {
  return convert(*link_, kOutputConversion, data, code);
}

std::string Connection::convertInput(std::string_view data, std::string_view code) {
  return convert(*link_, kInputConversion, data, code);
}

void Connection::setProperty(const std::string& key, const std::string& value) {
  setProperties({{key, value}});
}

void Connection::setProperties(const std::map<std::string, std::string>& properties) {
  Properties set;
  for (const auto& [key, value] : properties) {
    set.setProperty(detail::checkedText(key, "a property's name"),
                    detail::checkedText(value, "a property's value"));
  }
  noxp::common::SetPropertiesRequestProt request(set);
  link_->isChanged = true;
  link_->ask<noxp::common::SetPropertiesResponseProt>(request);
  const auto emptyNull = properties.find("EMPTY_NULL");
  if (emptyNull != properties.end()) link_->emptyIsNull = emptyNull->second == "1";
}

bool Connection::switchAccount(std::string_view user, std::string_view account,
                               std::string_view password) {
  noxp::remote::SwitchAccountRequestProt request;
  detail::put(request.getUser(), user, "the user's name");
  detail::put(request.getAccount(), account, "the account's name");
  detail::put(request.getPassword(), password, "the password");
  link_->isChanged = true;
  const auto answer = link_->ask<noxp::remote::SwitchAccountResponseProt>(request, true);
  if (answer->getStatus() != 0) return false;
  link_->user = user;
  link_->account = account;
  return true;
}

DateTime Connection::dateTime() {
  noxp::remote::DateTimeRequestProt request;
  const auto answer = link_->ask<noxp::remote::DateTimeResponseProt>(request);
  return {answer->getDate(), answer->getTime()};
}

ServerInfo Connection::serverInfo() {
  noxp::remote::EISMetaDataRequestProt request;
  const auto answer = link_->ask<noxp::remote::EISMetaDataReplyProt>(request);
  ServerInfo info;
  info.name = detail::bytesOf(answer->getProductName());
  info.version = detail::bytesOf(answer->getProductVersion());
  info.user = detail::bytesOf(answer->getUserName());
  const auto most = detail::parseInt64(detail::bytesOf(answer->getMaxConnections()));
  info.maxConnections = static_cast<int>(most.value_or(0));
  return info;
}

std::string Connection::echo(std::string_view bytes) {
  noxp::common::EchoRequestProt request;
  detail::put(request.getBuffer(), bytes);
  const auto answer = link_->ask<noxp::common::EchoResponseProt>(request);
  return std::string(detail::bytesOf(answer->getBuffer()));
}

std::chrono::nanoseconds Connection::ping() {
  constexpr std::string_view kContent = "ping";
  const auto begin = std::chrono::steady_clock::now();
  if (echo(kContent) != kContent) {
    link_->channel().condemn("an echo came back changed");
    throw Error(sqlstate::kOutOfStep, "an echo came back changed", Outcome::Unknown);
  }
  return std::chrono::steady_clock::now() - begin;
}

void Connection::log(std::string_view line, LogLevel level) {
  NOXPString text;
  detail::put(&text, line, "the line");
  noxp::common::LoggingRequestProt request(&text, static_cast<int>(level));
  link_->ask<OKResponseProt>(request);
}

std::string Connection::monitor(std::string_view command) {
  constexpr std::string_view kError = "error: ";
  noxp::remote::MonitoringRequestProt request(detail::checkedText(command, "the command"));
  const auto answer = link_->ask<noxp::remote::MonitoringResponseProt>(request);
  const std::string& text = answer->getResponse();
  if (text.compare(0, kError.size(), kError) == 0) {
    throw Error("42000", text.substr(kError.size()), Outcome::Rejected);
  }
  return text;
}

// --- this side -----------------------------------------------------------------------------------

void Connection::setRequestTimeout(std::chrono::milliseconds timeout) {
  if (timeout.count() < 0) detail::throwBadOption("a request's timeout is negative");
  link_->requestTimeout = timeout;
}

std::chrono::milliseconds Connection::requestTimeout() const { return link_->requestTimeout; }

bool Connection::isUsable() const { return link_->isUsable(); }

std::string Connection::unusableReason() const {
  return link_->open() ? link_->open()->unusableReason() : "it was closed";
}

bool Connection::isAlive() { return link_->open() && link_->open()->isAlive(); }

Canceller Connection::canceller() const { return Canceller(link_->canceller()); }

const std::string& Connection::user() const { return link_->user; }
const std::string& Connection::account() const { return link_->account; }
const Host& Connection::host() const { return link_->host; }
bool Connection::isEncrypted() const { return link_->isEncrypted(); }

}  // namespace nox::client
