// Reads one block of text from a stream and lets an object read itself from it.
#pragma once

#include "nox/core/input_reader.h"
#include "nox/core/object_reader.h"

namespace nox {

/// An archive of plain text: the one field it fills is a std::string, with what has arrived. Other
/// fields stay as they are.
class NOX_EXPORT char_reader : public input_reader, public ObjectReader {
public:
  using ObjectReader::process;

  /// The most that one read takes off the stream.
  static constexpr int kBlockSize = 10240;

  /// Neither argument is owned, unless it is replaced by `setInputStream`.
  char_reader(ObjectFactory* factory, InputStream* in) : ObjectReader(factory, in) {}
  ~char_reader() override;

  /// One read of up to kBlockSize bytes.
  Archive& process(std::string& value, const char* name) override;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(Serializable* value, const char* name) override;

  /// Waits one second for a block of up to kBlockSize bytes and reads an object of type 0 from it.
  /// The object is the caller's; its packet size is the number of bytes that came, also 0. Throws
  /// `new UnknownType(0)` when the factory has no such object, and what the stream throws.
  Serializable* readRootObject() override;
  /// The same when `object` is null; otherwise `object` reads itself and is returned.
  Serializable* readObject(Serializable* object);
  noxp::RequestProt* readRequest() override;

protected:
  /// There are no markers in plain text.
  void checkEndOfObjectMarker() override {}

private:
  void readNOXPString(NOXPString* /*value*/) override {}
  void readNOXPBlob(NOXPBlob* /*value*/) override {}
  std::string* readString() override;
  int readChar() override;
  int readInt() override;
};

}  // namespace nox
