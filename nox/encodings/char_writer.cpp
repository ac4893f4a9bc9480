#include "nox/encodings/char_writer.h"

namespace nox {

char_writer::~char_writer() = default;

Archive& char_writer::process(std::string& value, const char* /*name*/) {
  write(value);
  return *this;
}

Archive& char_writer::process(Serializable* value, const char* /*name*/) {
  write(value);
  return *this;
}

Archive& char_writer::process(int& /*value*/, const char* /*name*/) { return *this; }

Archive& char_writer::process(NOXPString* /*value*/, const char* /*name*/) { return *this; }

Archive& char_writer::process(NOXPBlob* /*value*/, const char* /*name*/) { return *this; }

void char_writer::writeRoot(Serializable& root) {
  write(root);
  if (!stream_) return;
  // The gathered text always fits an int: the buffer takes no more than 2^31 - 5 bytes.
  stream_->blobSend(reinterpret_cast<char*>(gathered_.getBuffer()),
                    static_cast<int>(gathered_.getLength()));
}

void char_writer::setOutStream(OutStream* os) {
  stream_ = os;
  gathered_ = BufferedOutStream(os, false);
}

void char_writer::write(std::string& value) { gathered_.send(value.data(), value.size()); }

void char_writer::write(Serializable& value) { value.serialize(*this, value.getVersion()); }

void char_writer::write(Serializable* value) {
  if (value) write(*value);
}

}  // namespace nox
