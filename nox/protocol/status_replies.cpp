#include "nox/protocol/status_replies.h"

#include "nox/core/archive.h"
#include "nox/diag/file_loggers.h"

namespace nox {

Archive& OKResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  std::string ok = "OK";  // a reader's text ends here, unchecked
  return ar.process(ok, "OK");
}

ErrorResponseProt::ErrorResponseProt(const SQLExtError& e) : err_(Copied<SQLExtError>(&e)) {
  NOX_LOG(filelog::error) << " " << err_->getMsg() << EndLog();
}

ErrorResponseProt::ErrorResponseProt(const SQLExtError& e, const char* file, int line)
    : err_(Copied<SQLExtError>(&e)) {
  NOX_LOG(filelog::error) << err_->getMsg() << file << static_cast<long>(line) << EndLog();
}

Archive& ErrorResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  // A fresh error, so that a null object on the wire does not leave an earlier one in place.
  if (!ar.isWriting()) err_.emplaceEmpty();
  return ar.process(err_, "err");
}

namespace noxp {

InternalErrorRequestProt::InternalErrorRequestProt(const std::string& msg)
    : err_(Adopted<SQLExtError>(new SQLExtError("IE", "000", msg))) {}

Archive& InternalErrorRequestProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

Archive& DummyRequestProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

Archive& UnrecognizedRequestProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

InputOutputResponseProt::InputOutputResponseProt(int command)
    : command_(command), output_(nullptr) {}

InputOutputResponseProt::InputOutputResponseProt(int command, const NOXPBlob* data)
    : command_(command), output_(nullptr) {
  if (data) output_.assign(data);
}

Archive& InputOutputResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(command_, "command").process(output_, "_output");
}

}  // namespace noxp
}  // namespace nox
