#include "nox/core/out_stream.h"

#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox {

namespace {

void sendText(OutStream& out, NOXPString& text) {
  // In this order: the conversion decides the length. A string that could not be converted keeps
  // its old one, which says nothing about these bytes.
  const unsigned char* bytes = text.getUTF8();
  if (!bytes || text.getType() != NOXPString::Utf8) return;
  const std::size_t n = text.length();
  if (n > 0) out.send(reinterpret_cast<const char*>(bytes), n);
}

}  // namespace

OutStream::~OutStream() = default;

void OutStream::send(NOXPBlob& blob) { blobSend(&blob); }
void OutStream::send(NOXPBlob* blob) { blobSend(blob); }
void OutStream::send(NOXPString& text) { sendText(*this, text); }

void OutStream::send(NOXPString* text) {
  if (text) sendText(*this, *text);
}

void OutStream::blobSend(NOXPBlob* blob) {
  if (!blob || blob->length() == 0) return;
  send(reinterpret_cast<const char*>(blob->getBuf()), blob->length());
}

void OutStream::blobSend(char* data, int n) {
  if (n > 0) send(data, static_cast<std::size_t>(n));
}

}  // namespace nox
