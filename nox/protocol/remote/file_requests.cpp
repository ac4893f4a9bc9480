#include "nox/protocol/remote/file_requests.h"

#include "nox/diag/file_loggers.h"
#include "nox/protocol/remote/trace.h"

namespace nox::noxp::remote {

OpenFileRequestProt::OpenFileRequestProt(CopiedString fileName) : fileName_(fileName) {}

OpenFileRequestProt::OpenFileRequestProt(const OpenFileRequestProt* other) {
  if (other) *this = *other;
}

OpenFileRequestProt::~OpenFileRequestProt() {
  NOX_LOG(filelog::debug) << "OpenFileRequestProt::~OpenFileRequestProt\n" << EndLog();
}

Archive& OpenFileRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  traceField(filelog::debug, "=> OpenFileRequestProt", this, "_fileName", fileName_.get());
  ar.process(fileName_, "_fileName");
  traceField(filelog::debug, "<= OpenFileRequestProt", this, "_fileName", fileName_.get());
  return ar;
}

CloseFileRequestProt::CloseFileRequestProt(CopiedString fileName) : fileName_(fileName) {}

CloseFileRequestProt::~CloseFileRequestProt() {
  NOX_LOG(filelog::debug) << "CloseFileRequestProt::~CloseFileRequestProt\n" << EndLog();
}

Archive& CloseFileRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(fileName_, "_fileName");
}

ClearFileRequestProt::ClearFileRequestProt(CopiedString fileName) : fileName_(fileName) {}

ClearFileRequestProt::~ClearFileRequestProt() {
  // Deliberate: the established line, which names another class's destructor.
  NOX_LOG(filelog::debug) << "ClearFileRequestProt::~CloseFileRequestProt\n" << EndLog();
}

Archive& ClearFileRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(fileName_, "_fileName");
}

SelectFileRequestProt::SelectFileRequestProt(const char* fileName)
    : fileName_(CopiedString(fileName)) {}

SelectFileRequestProt::~SelectFileRequestProt() {
  NOX_LOG(filelog::debug) << "SelectFileRequestProt::~SelectFileRequestProt\n" << EndLog();
}

Archive& SelectFileRequestProt::serialize(Archive& ar, unsigned int version) {
  serializedVersion = version;
  // Deliberate: no underscore, although the other file requests have one.
  return ar.process(fileName_, "fileName");
}

}  // namespace nox::noxp::remote
