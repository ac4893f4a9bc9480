// Writes objects in the binary format, one root object per frame.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "nox/core/object_writer.h"
#include "nox/io/buffered_out_stream.h"

namespace nox {

/// Gathers a root object in memory and hands it to the target stream in one `send` and one `flush`.
/// One writer per connection and thread. Once it exists it allocates nothing per message that fits
/// its block.
///
/// When a target or a `serialize` throws in the middle of `writeRoot`, what was gathered stays and
/// would go out with the next frame: call `setOutStream` or take a new writer.
///
/// Objects travel with their `getClassVersion()`, which is 0 until somebody sets it, whatever their
/// `getVersion()` says.
class NOX_EXPORT BinaryWriter : public ObjectWriter {
public:
  using ObjectWriter::process;
  using ObjectWriter::writeRoot;

  /// Frames go to `os`, which stays the caller's; null makes a writer that only measures.
  explicit BinaryWriter(OutStream* os);
  BinaryWriter(const BinaryWriter&) = delete;
  BinaryWriter& operator=(const BinaryWriter&) = delete;
  ~BinaryWriter() override;

  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(std::string& value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(Serializable* value, const char* name) override;

  /// Writes the frame of `root` and sets its packet size to the whole frame, its length included.
  void writeRoot(Serializable& root) override;
  /// Aims the writer at another stream and drops what was gathered.
  void setOutStream(OutStream* os) override;
  OutStream* getOutStream() override;

  /// The binary writer that `ar` is, for payloads that know a shorter way into it; null for other
  /// archives and for subclasses, which may write fields their own way.
  static BinaryWriter* behind(Archive& ar);
  /// Adds bytes that are already in the binary format, for payloads that keep them so.
  void writeEncoded(std::string_view bytes);
  /// An object whose fields are a count and bytes that are already in the binary format.
  void writeObject(int type, int version, int count, std::string_view encoded);
  /// What `process` would write for each of many strings, at less cost.
  void writeStrings(std::vector<std::string>& values);

protected:
  void writeNullRoot() override;
  /// The 4 bytes of `value`, without the marker.
  void sendInt(int value);

private:
  void write(int value);
  void write(std::string& value);
  void write(NOXPString* value);
  void write(NOXPString& value) { write(&value); }
  void write(NOXPBlob* value);
  void write(NOXPBlob& value) { write(&value); }
  void write(Serializable* value);
  void write(Serializable& value) { write(&value); }

  template <class T>
  Archive& writeAny(T&& value);
  bool writeShortText(const std::string& utf8);
  void writeText(std::string_view utf8);
  void writeCompressible(Serializable& root, int threshold);

  std::unique_ptr<BufferedOutStream> frame_;
  std::unique_ptr<BufferedOutStream> plainBody_;  // kept for the next compressible message
  BufferedOutStream* out_;                        // where fields go: the frame or the plain body
};

}  // namespace nox
