#include "nox/protocol/remote/record_requests.h"

#include "nox/diag/file_loggers.h"

namespace nox::noxp::remote {

ReadRecordRequestProt::ReadRecordRequestProt(int readMode, CopiedString fileName,
                                             CopiedString recordId)
    : readMode_(readMode), fileName_(fileName), recordId_(recordId) {}

ReadRecordRequestProt::~ReadRecordRequestProt() {
  NOX_LOG(filelog::debug) << "ReadRecordRequestProt::~ReadRecordRequestProt\n" << EndLog();
}

Archive& ReadRecordRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(readMode_, "readMode")
      .process(fileName_, "_fileName")
      .process(recordId_, "_recordId");
}

WriteRecordRequestProt::WriteRecordRequestProt(int writeMode, CopiedString fileName,
                                               CopiedString recordId, CopiedBlob record)
    : writeMode_(writeMode), fileName_(fileName), recordId_(recordId), record_(record) {}

WriteRecordRequestProt::~WriteRecordRequestProt() {
  NOX_LOG(filelog::debug) << "WriteRecordRequestProt::~WriteRecordRequestProt\n" << EndLog();
}

Archive& WriteRecordRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(writeMode_, "writeMode")
      .process(fileName_, "_fileName")
      .process(recordId_, "_recordId")
      .process(record_, "_record");
}

DeleteRecordRequestProt::DeleteRecordRequestProt(CopiedString fileName, CopiedString recordId)
    : fileName_(fileName), recordId_(recordId) {}

DeleteRecordRequestProt::~DeleteRecordRequestProt() {
  NOX_LOG(filelog::debug) << "DeleteRecordRequestProt::~DeleteRecordRequestProt\n" << EndLog();
}

Archive& DeleteRecordRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(fileName_, "_fileName").process(recordId_, "_recordId");
}

ExistsRecordRequestProt::ExistsRecordRequestProt(CopiedString fileName, CopiedString recordId)
    : fileName_(fileName), recordId_(recordId) {}

ExistsRecordRequestProt::~ExistsRecordRequestProt() {
  NOX_LOG(filelog::debug) << "ExistsRecordRequestProt::~ExistsRecordRequestProt\n" << EndLog();
}

Archive& ExistsRecordRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(fileName_, "_fileName").process(recordId_, "_recordId");
}

ReleaseRecordLockRequestProt::ReleaseRecordLockRequestProt(int lockMode, CopiedString fileName,
                                                           CopiedString recordId)
    : lockMode_(lockMode), fileName_(fileName), recordId_(recordId) {}

ReleaseRecordLockRequestProt::~ReleaseRecordLockRequestProt() {
  NOX_LOG(filelog::debug) << "ReleaseRecordLockRequestProt::~ReleaseRecordLockRequestProt\n"
                          << EndLog();
}

Archive& ReleaseRecordLockRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  // Deliberate: the established wire name, although its siblings are "readMode" and "writeMode".
  return ar.process(lockMode_, "lockRequestProt")
      .process(fileName_, "_fileName")
      .process(recordId_, "_recordId");
}

ReadCommonRequestProt::ReadCommonRequestProt(CopiedString name) : name_(name) {}

ReadCommonRequestProt::ReadCommonRequestProt(const ReadCommonRequestProt* other) {
  if (other) *this = *other;
}

Archive& ReadCommonRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(name_, "_name");
}

}  // namespace nox::noxp::remote
