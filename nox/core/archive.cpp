#include "nox/core/archive.h"

#include "nox/diag/file_loggers.h"

namespace nox {

Archive::~Archive() = default;
bool Archive::isWriting() { return false; }
Writer* Archive::getWriter() { return nullptr; }
Reader* Archive::getReader() { return nullptr; }

Reader::~Reader() = default;
bool Reader::isWriting() { return false; }
Writer* Reader::getWriter() { return nullptr; }
Reader* Reader::getReader() { return this; }

Archive& Reader::process(std::string& /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Reader does not support string serialization" << EndLog();
  return *this;
}

Archive& Reader::process(NOXPString* /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Reader does not support NOXP string serialization" << EndLog();
  return *this;
}

Archive& Reader::process(NOXPBlob* /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Reader does not support NOXP blob serialization" << EndLog();
  return *this;
}

Writer::~Writer() = default;
bool Writer::isWriting() { return true; }
Writer* Writer::getWriter() { return this; }
Reader* Writer::getReader() { return nullptr; }

Archive& Writer::process(std::string& /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Writer can't serialize strings" << EndLog();
  return *this;
}

Archive& Writer::process(NOXPString* /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Writer can't serialize NOXP strings" << EndLog();
  return *this;
}

Archive& Writer::process(NOXPBlob* /*value*/, const char* /*name*/) {
  NOX_LOG(filelog::debug) << "Writer can't serialize NOXP blobs" << EndLog();
  return *this;
}

}  // namespace nox
