#include "nox/core/object_writer.h"

#include "nox/diag/file_loggers.h"

namespace nox {

ObjectWriter::~ObjectWriter() = default;

void ObjectWriter::setOutStream(OutStream* os) { stream_ = os; }

OutStream* ObjectWriter::getOutStream() { return stream_; }

ObjectWriter* ObjectWriter::createWriter(OutStream* os, const char* kind) {
  return createWriter(os, kind, ",", ",");
}

ObjectWriter* ObjectWriter::createWriter(OutStream* /*os*/, const char* /*kind*/,
                                         const char* /*fieldSeparator*/,
                                         const char* /*recordSeparator*/) {
  NOX_LOG(filelog::debug) << " ObjectWriter::createWriter" << EndLog();
  return nullptr;
}

void ObjectWriter::writeNullRoot() {}

}  // namespace nox
