// Writes objects as plain text: their std::string fields, one behind the other.
#pragma once

#include <string>

#include "nox/core/object_writer.h"
#include "nox/io/buffered_out_stream.h"

namespace nox {

/// Gathers text in memory. Deliberate: the gathered text is never reset, so that each `writeRoot`
/// sends again all that was written since the stream was set. A copy goes on with the same text.
class NOX_EXPORT char_writer : public ObjectWriter {
public:
  using ObjectWriter::process;
  using ObjectWriter::writeRoot;

  /// `os` is not owned; without one nothing is sent.
  explicit char_writer(OutStream* os) : ObjectWriter(os), gathered_(os, false) {}
  ~char_writer() override;

  Archive& process(std::string& value, const char* name) override;
  /// The fields of `value`, with its `getVersion()`; nothing for null.
  Archive& process(Serializable* value, const char* name) override;
  // These have no text.
  Archive& process(int& value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(NOXPBlob* value, const char* name) override;

  /// Adds the text of `root` and sends all that is gathered with one `blobSend`, without a length
  /// and without flushing. Throws std::bad_alloc when that would pass 2 GiB.
  void writeRoot(Serializable& root) override;
  /// Aims the writer at another stream and drops what was gathered.
  void setOutStream(OutStream* os) override;

private:
  void write(std::string& value);
  void write(Serializable& value);
  void write(Serializable* value);

  BufferedOutStream gathered_;
};

}  // namespace nox
