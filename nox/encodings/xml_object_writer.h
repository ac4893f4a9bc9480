// Renders objects as a small XML-like text for people to read.
#pragma once

#include <string>

#include "nox/core/object_writer.h"

namespace nox {

class ObjectFactory;

/// One element per field: `<o type="3" typeName="..." name="..." version="0">...</o>` and a line
/// feed for an object, `<int name="count" value="7"/>`, `<var name="..." value="..."/>`,
/// `<nullobj name="..."/>` and `<nullvar name="..."/>`. Missing names are empty texts.
///
/// Deliberate: nothing is escaped, and std::string and blob fields are left out. Objects appear
/// with their `getVersion()`, where the binary form sends `getClassVersion()`. Strings are
/// converted to UTF-8 in place, as by every writer.
class NOX_EXPORT XMLObjectWriter : public ObjectWriter {
public:
  using ObjectWriter::process;
  using ObjectWriter::writeRoot;

  /// `factory` gives the objects' type names, and none when it is null. Neither argument is owned;
  /// without a stream nothing is written.
  XMLObjectWriter(ObjectFactory* factory, OutStream* os) : ObjectWriter(os), factory_(factory) {}
  XMLObjectWriter(const XMLObjectWriter&) = default;
  XMLObjectWriter& operator=(const XMLObjectWriter&) = default;
  ~XMLObjectWriter() override;

  Archive& process(Serializable* value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;

  /// Writes `root` without a name. The stream is not flushed.
  void writeRoot(Serializable& root) override;

protected:
  Archive& processNullSerializable(const char* name);
  Archive& processNullVar(const char* name);
  void writeNullRoot() override;

private:
  void send(const std::string& text);

  ObjectFactory* factory_;
};

}  // namespace nox
