#include "nox/client/batch.h"

#include <utility>

#include "client/src/link.h"
#include "client/src/record_requests.h"
#include "client/src/statement_state.h"
#include "nox/client/connection.h"

namespace nox::client {

namespace {

using detail::Link;

/// The outcome of an answer, whichever of the batch's requests it answers.
Batch::Result resultOf(Serializable& answer) {
  Batch::Result result;
  if (auto* const tovi = dynamic_cast<noxp::remote::ToviResponseProt*>(&answer)) {
    if (const std::optional<Status> status = detail::statusOf(*tovi)) {
      result.status = *status;
      result.record = detail::recordOf(*tovi);
      return result;
    }
  } else if (auto* const update = dynamic_cast<noxp::sql::SQLUpdateResponseProt*>(&answer)) {
    result.changes = update->getUpdateCount();
    return result;
  } else if (dynamic_cast<noxp::sql::SQLResultResponseProt*>(&answer)) {
    result.status = Status::NotDone;
    result.error = Error(detail::kWrongKind, "the statement answers rows", Outcome::Rejected);
    return result;
  } else if (dynamic_cast<OKResponseProt*>(&answer) ||
             dynamic_cast<noxp::sql::SQLOKResponseProt*>(&answer)) {
    return result;
  }
  result.status = Status::NotDone;
  result.error = Error(sqlstate::kOutOfStep, "the answer is of the wrong kind", Outcome::Unknown);
  return result;
}

}  // namespace

struct Batch::State {
  explicit State(std::shared_ptr<Link> owner) : link(std::move(owner)) {}

  std::shared_ptr<Link> link;
  MemoryBufferOutStream encoded;  // the frames, one behind the other
  BinaryWriter writer{&encoded};
  std::vector<detail::EncodedFrame> frames;
  std::vector<std::size_t> resultOf;  // of each frame
  std::size_t results = 0;

  std::size_t add(Serializable& request) {
    addPart(request);
    return results++;
  }
  /// A request that belongs to the result of the one behind it.
  void addPart(Serializable& request) {
    try {
      writer.writeRoot(request);
    } catch (...) {
      writer.setOutStream(&encoded);  // drops the half that was written
      throw;
    }
    frames.push_back({encoded.str().size(), request.getType(), false});
    resultOf.push_back(results);
  }
  void clear() {
    encoded.str().clear();
    frames.clear();
    resultOf.clear();
    results = 0;
  }
};

Batch::Batch(Connection& connection) : state_(std::make_unique<State>(connection.link_)) {}

Batch::Batch(Batch&& other) noexcept = default;
Batch& Batch::operator=(Batch&& other) noexcept = default;
Batch::~Batch() = default;

std::size_t Batch::read(std::string_view file, std::string_view id) {
  return read(file, id, Lock::None);
}

std::size_t Batch::read(std::string_view file, std::string_view id, Lock lock, Wait wait) {
  noxp::remote::ReadRecordRequestProt request(detail::readMode(lock, wait), nullptr, nullptr);
  detail::fill(request, file, id);
  if (lock != Lock::None) state_->link->mayHoldLocks = true;
  return state_->add(request);
}

std::size_t Batch::write(std::string_view file, std::string_view id, const Record& record) {
  noxp::remote::WriteRecordRequestProt request(detail::kWriteAndRelease, nullptr, nullptr, nullptr);
  detail::fill(request, file, id, record);
  return state_->add(request);
}

std::size_t Batch::writeNew(std::string_view file, std::string_view id, const Record& record) {
  noxp::remote::WriteRecordRequestProt request(detail::kWriteNew, nullptr, nullptr, nullptr);
  detail::fill(request, file, id, record);
  state_->link->mayHoldLocks = true;
  return state_->add(request);
}

std::size_t Batch::remove(std::string_view file, std::string_view id) {
  noxp::remote::DeleteRecordRequestProt request;
  detail::fill(request, file, id);
  return state_->add(request);
}

std::size_t Batch::exists(std::string_view file, std::string_view id) {
  noxp::remote::ExistsRecordRequestProt request;
  detail::fill(request, file, id);
  return state_->add(request);
}

std::size_t Batch::release(std::string_view file, std::string_view id) {
  noxp::remote::ReleaseRecordLockRequestProt request(detail::kReleaseRecord, nullptr, nullptr);
  detail::fill(request, file, id);
  return state_->add(request);
}

std::size_t Batch::update(Statement& statement, const std::vector<Value>& values) {
  // Each connection counts its statements by itself: here the number may be another one's.
  if (&statement.state_->use() != state_->link.get()) {
    throw Error(sqlstate::kBadArgument, "the statement belongs to another connection",
                Outcome::NotSent);
  }
  // A statement that refused its values would run with those before them.
  const std::size_t wanted = statement.parameters().size();
  if (values.size() != wanted) {
    throw Error(
        detail::kWrongCount,
        std::to_string(values.size()) + " values for " + std::to_string(wanted) + " parameters",
        Outcome::NotSent);
  }
  noxp::sql::BindRequestProt bind(statement.id(), detail::parametersOf(values).release());
  noxp::sql::ExecuteRequestProt execute(statement.id());
  statement.state_->endRows();
  state_->addPart(bind);
  return state_->add(execute);
}

std::size_t Batch::size() const { return state_->results; }

std::size_t Batch::bytes() const { return state_->encoded.str().size(); }

void Batch::clear() { state_->clear(); }

std::vector<Batch::Result> Batch::run() {
  Link& link = *state_->link;
  std::vector<Result> results(state_->results);
  const auto take = [&](std::size_t frame, std::optional<Error> error,
                        std::unique_ptr<Serializable> answer) {
    Result& result = results[state_->resultOf[frame]];
    if (result.error) return;  // of another part
    if (error) {
      result.status = Status::NotDone;
      result.error = std::move(error);
    } else {
      result = resultOf(*answer);
    }
  };
  link.channel().exchangeAll(state_->encoded.str(), state_->frames, link.requestTimeout, take);
  clear();
  for (const Result& result : results) {
    if (result.error && result.error->sqlState() == sqlstate::kOutOfStep) {
      link.channel().condemn(result.error->message());
    }
  }
  return results;
}

}  // namespace nox::client
