#include "nox/core/object_reader.h"

#include "nox/core/input_reader.h"
#include "nox/core/input_stream.h"

namespace nox {

input_reader::~input_reader() = default;

ObjectReader::~ObjectReader() = default;

void ObjectReader::setInputStream(InputStream* stream) {
  if (stream == stream_) return;
  delete stream_;
  stream_ = stream;
}

InputStream* ObjectReader::getInputStream() { return stream_; }

void ObjectReader::setObjectFactory(ObjectFactory* factory) { factory_ = factory; }

ObjectFactory* ObjectReader::getObjectFactory() { return factory_; }

}  // namespace nox
