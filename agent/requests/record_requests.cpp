// Requests about single records, and the named commons.
#include <cstddef>
#include <memory>
#include <string>

#include <nox/nox.h>

#include "agent/failure.h"
#include "agent/requests/fields.h"
#include "agent/session/data_access.h"
#include "agent/session/dispatcher.h"
#include "agent/session/named_commons.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace remote = noxp::remote;

namespace {

remote::ToviResponseProt status(DataAccess::Status outcome) { return {outcome, nullptr}; }

bool fitsIntoFrame(const Session& session, const NOXPBlob& record) {
  // No agent is told to make smaller frames; most records are not worth asking for the limit.
  constexpr std::size_t kAlwaysFits = 2048;
  constexpr std::size_t kAround = 64;  // what is around the record in its frame, at most
  return record.length() <= kAlwaysFits || record.length() + kAround <= session.frameCap();
}

void readRecord(Session& session, remote::ReadRecordRequestProt& request, Reply& reply) {
  auto record = std::make_unique<NOXPBlob>();
  const DataAccess::Status outcome = session.data().read(
      textOf(request.getFileName()), textOf(request.getRecordId()), request.getReadMode(), *record);
  if (outcome != DataAccess::Done) return reply.send(status(outcome));
  if (!fitsIntoFrame(session, *record)) {
    throw Failure("IE", "008", "the record is longer than a frame may be");
  }
  reply.send(remote::ToviResponseProt(outcome, record.release()));
}

void writeRecord(Session& session, remote::WriteRecordRequestProt& request, Reply& reply) {
  reply.send(
      status(session.data().write(textOf(request.getFileName()), textOf(request.getRecordId()),
                                  bytesOf(request.getRecord()), request.getWriteMode())));
}

void deleteRecord(Session& session, remote::DeleteRecordRequestProt& request, Reply& reply) {
  reply.send(
      status(session.data().remove(textOf(request.getFileName()), textOf(request.getRecordId()))));
}

void existsRecord(Session& session, remote::ExistsRecordRequestProt& request, Reply& reply) {
  reply.send(
      status(session.data().exists(textOf(request.getFileName()), textOf(request.getRecordId()))));
}

void releaseRecordLock(Session& session, remote::ReleaseRecordLockRequestProt& request,
                       Reply& reply) {
  session.data().release(request.getLockMode(), textOf(request.getFileName()),
                         textOf(request.getRecordId()));
  reply.send(OKResponseProt());
}

void readCommon(Session& session, remote::ReadCommonRequestProt& request, Reply& reply) {
  const std::string value = namedCommon(session, textOf(request.getName()));
  const NOXPBlob bytes(value.data(), value.size());
  reply.send(remote::ReadCommonResponseProt(&bytes));
}

}  // namespace

void registerRecordRequests(Dispatcher& dispatcher) {
  using Brief = Dispatcher::Entry::Brief;
  dispatcher.on<remote::ReadRecordRequestProt>("ReadRecord", readRecord).brief = Brief::Yes;
  dispatcher.on<remote::WriteRecordRequestProt>("WriteRecord", writeRecord).brief =
      Brief::WhileWriting;
  dispatcher.on<remote::DeleteRecordRequestProt>("DeleteRecord", deleteRecord).brief =
      Brief::WhileWriting;
  dispatcher.on<remote::ExistsRecordRequestProt>("ExistsRecord", existsRecord).brief = Brief::Yes;
  dispatcher.on<remote::ReleaseRecordLockRequestProt>("ReleaseRecordLock", releaseRecordLock);
  dispatcher.on<remote::ReadCommonRequestProt>("ReadCommon", readCommon);
}

}  // namespace nox::agent
