// The interface of readers that parse a raw input stream.
#pragma once

#include <string>

#include "nox/core/export.h"
#include "nox/core/serializable.h"

class NOXPBlob;
class NOXPString;

namespace nox {

namespace noxp {
class RequestProt;
}

/// What the binary, character and HTTP readers have in common. No data. A concrete reader derives
/// from this and from ObjectReader; one override of each `process` serves both.
class NOX_EXPORT input_reader {
public:
  virtual ~input_reader();
  virtual Archive& process(std::string& value, const char* name) = 0;
  virtual Archive& process(NOXPBlob* value, const char* name) = 0;
  virtual Archive& process(NOXPString* value, const char* name) = 0;
  virtual Archive& process(int& value, const char* name) = 0;
  virtual Archive& process(Serializable* value, const char* name) = 0;
  /// A newly allocated root object, the caller's.
  virtual Serializable* readRootObject() = 0;
  /// The root object if it is a request, else null (the object is then deleted).
  virtual noxp::RequestProt* readRequest() = 0;
  virtual void checkEndOfObjectMarker() = 0;
  virtual void readNOXPString(NOXPString* value) = 0;
  virtual void readNOXPBlob(NOXPBlob* value) = 0;
  /// A newly allocated string, the caller's.
  virtual std::string* readString() = 0;
  virtual int readChar() = 0;
  virtual int readInt() = 0;
};

}  // namespace nox
