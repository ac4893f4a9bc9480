// The root of all writers: an archive that puts objects onto an output stream.
#pragma once

#include "nox/core/archive.h"

namespace nox {

class OutStream;

/// Holds the target stream without owning it.
class NOX_EXPORT ObjectWriter : public Writer {
public:
  using Writer::process;
  explicit ObjectWriter(OutStream* os) : stream_(os) {}
  ObjectWriter(const ObjectWriter&) = default;
  ObjectWriter(ObjectWriter&&) = default;
  ObjectWriter& operator=(const ObjectWriter&) = default;
  ObjectWriter& operator=(ObjectWriter&&) = default;
  ~ObjectWriter() override;

  /// Writes `root` as one root object.
  virtual void writeRoot(Serializable& root) = 0;
  virtual void setOutStream(OutStream* os);
  virtual OutStream* getOutStream();

  /// The same; null is written as the null object.
  void writeRoot(Serializable* root) {
    if (root) {
      writeRoot(*root);
    } else {
      writeNullRoot();
    }
  }

  /// Deliberately empty hooks that return null: callers construct the writer they want.
  static ObjectWriter* createWriter(OutStream* os, const char* kind);
  static ObjectWriter* createWriter(OutStream* os, const char* kind, const char* fieldSeparator,
                                    const char* recordSeparator);

protected:
  /// Writes a root that holds no object; the base writes nothing.
  virtual void writeNullRoot();

  OutStream* stream_;
};

}  // namespace nox
