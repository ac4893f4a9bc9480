// The root of all readers: an archive that makes objects from an input stream.
#pragma once

#include "nox/core/archive.h"

namespace nox {

class InputStream;
class ObjectFactory;

/// Holds, without owning, a factory and the current input stream.
class NOX_EXPORT ObjectReader : public Reader {
public:
  using Reader::process;
  /// Frees neither factory nor stream.
  ~ObjectReader() override;

  /// Reads one root object, newly allocated and the caller's.
  virtual Serializable* readRootObject() = 0;
  /// Makes `stream` the current one and deletes the stream that it replaces, also the one given to
  /// the constructor: hand over streams from the heap. Nothing happens when it is current already.
  virtual void setInputStream(InputStream* stream);
  virtual InputStream* getInputStream();
  virtual void setObjectFactory(ObjectFactory* factory);
  virtual ObjectFactory* getObjectFactory();

protected:
  ObjectReader(ObjectFactory* factory, InputStream* stream) : factory_(factory), stream_(stream) {}
  ObjectReader(const ObjectReader&) = default;
  ObjectReader(ObjectReader&&) = default;
  ObjectReader& operator=(const ObjectReader&) = default;
  ObjectReader& operator=(ObjectReader&&) = default;

  ObjectFactory* factory_;
  InputStream* stream_;
};

}  // namespace nox
