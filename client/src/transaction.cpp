#include "nox/client/transaction.h"

#include <exception>
#include <utility>

#include "client/src/link.h"
#include "client/src/transaction_requests.h"
#include "client/src/wire_text.h"

namespace nox::client {

namespace {

using detail::Link;

constexpr std::size_t kLongestId = 128;

// There is no transaction, or not one in that state: the server has rolled it back already.
constexpr const char* kInvalidState = "25000";

void appendHex(std::string& to, std::string_view bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    to += kDigits[byte >> 4];
    to += kDigits[byte & 0x0F];
  }
}

[[noreturn]] void throwOver(const char* what) {
  throw Error(kInvalidState, what, Outcome::NotSent);
}

}  // namespace

Transaction::Transaction(std::shared_ptr<Link> link) : link_(std::move(link)) {}

Transaction::Transaction(Transaction&& other) noexcept = default;

Transaction& Transaction::operator=(Transaction&& other) noexcept {
  Transaction taken(std::move(other));
  std::swap(link_, taken.link_);
  return *this;
}

Transaction::~Transaction() { giveUp(); }

void Transaction::commit() {
  if (!link_) throwOver("the transaction is over");
  const std::shared_ptr<Link> link = std::exchange(link_, nullptr);
  link->inTransaction = false;
  noxp::sql::TransactionCommitRequestProt request;
  link->ask<OKResponseProt>(request);
}

void Transaction::rollback() {
  if (!link_) throwOver("the transaction is over");
  const std::shared_ptr<Link> link = std::exchange(link_, nullptr);
  link->inTransaction = false;
  noxp::sql::TransactionRollbackRequestProt request;
  link->ask<OKResponseProt>(request);
}

void Transaction::giveUp() noexcept {
  if (!link_ || !link_->isUsable()) return;
  const std::shared_ptr<Link> link = link_;
  try {
    rollback();
  } catch (const Error& error) {
    // Nobody may go on in a transaction that is believed to be over.
    if (error.sqlState() != kInvalidState && link->open()) {
      link->open()->condemn("a transaction could not be rolled back: " + error.message());
    }
  } catch (const std::exception&) {
    if (link->open()) link->open()->condemn("a transaction could not be rolled back");
  }
}

Xid Xid::of(std::int32_t format, std::string_view globalId, std::string_view branch) {
  Xid xid;
  xid.format = format;
  appendHex(xid.id, globalId);
  xid.id += ':';
  appendHex(xid.id, branch);
  if (xid.id.size() > kLongestId) {
    throw Error(sqlstate::kBadArgument,
                "a branch's id takes " + std::to_string(xid.id.size()) + " bytes; 128 can travel",
                Outcome::NotSent);
  }
  return xid;
}

namespace detail {

void ask(Link& link, noxp::remote::XARequestProt& request, const Xid& xid) {
  if (xid.id.empty() || xid.id.size() > kLongestId) {
    throw Error(sqlstate::kBadArgument, "a branch's id has 1 to 128 bytes", Outcome::NotSent);
  }
  put(request.getXid()->getTransactionId(), xid.id, "the branch's id");
  request.getXid()->setFormat(xid.format);
  link.ask<noxp::remote::TransactionResponseProt>(request);
}

}  // namespace detail

XaBranch::XaBranch(std::shared_ptr<Link> link, Xid xid, State state)
    : link_(std::move(link)), xid_(std::move(xid)), state_(state) {}

XaBranch::XaBranch(XaBranch&& other) noexcept
    : link_(std::move(other.link_)),
      xid_(std::move(other.xid_)),
      state_(std::exchange(other.state_, State::Finished)) {}

XaBranch& XaBranch::operator=(XaBranch&& other) noexcept {
  XaBranch taken(std::move(other));
  std::swap(link_, taken.link_);
  std::swap(xid_, taken.xid_);
  std::swap(state_, taken.state_);
  return *this;
}

XaBranch::~XaBranch() { giveUp(); }

void XaBranch::end() {
  if (state_ != State::Started) throwOver("the branch does not run on this connection");
  noxp::remote::XAEndTransactionRequestProt request;
  detail::ask(*link_, request, xid_);
  link_->inTransaction = false;
  state_ = State::Ended;
}

void XaBranch::prepare() {
  if (state_ != State::Ended) throwOver("only an ended branch can be prepared");
  noxp::remote::XAPrepareTransactionRequestProt request;
  detail::ask(*link_, request, xid_);
  state_ = State::Prepared;
}

void XaBranch::commit() {
  if (state_ != State::Ended && state_ != State::Prepared) {
    throwOver("only an ended or prepared branch can be committed");
  }
  noxp::remote::XACommitTransactionRequestProt request;
  detail::ask(*link_, request, xid_);
  state_ = State::Finished;
}

void XaBranch::rollback() {
  if (state_ == State::Finished) throwOver("the branch is over");
  noxp::remote::XARollbackTransactionRequestProt request;
  if (state_ == State::Started) end();
  detail::ask(*link_, request, xid_);
  state_ = State::Finished;
}

void XaBranch::giveUp() noexcept {
  if (!link_ || !link_->isUsable()) return;
  if (state_ != State::Started && state_ != State::Ended) return;
  const bool mustEnd = state_ == State::Started;
  try {
    rollback();
  } catch (const std::exception&) {
    // An ended branch that stays is no part of the session; a running one is.
    if (mustEnd && link_->open()) link_->open()->condemn("a branch could not be rolled back");
  }
}

}  // namespace nox::client
