#include "nox/encodings/xml_object_writer.h"

#include "nox/core/object_factory.h"
#include "nox/core/out_stream.h"
#include "nox/text/pstring.h"

namespace nox {

namespace {

std::string attribute(const char* key, const std::string& value) {
  return std::string(" ") + key + "=\"" + value + "\"";
}

std::string attribute(const char* key, const char* value) {
  return attribute(key, std::string(value ? value : ""));
}

}  // namespace

XMLObjectWriter::~XMLObjectWriter() = default;

Archive& XMLObjectWriter::process(Serializable* value, const char* name) {
  if (!value) return processNullSerializable(name);
  const int type = value->getType();
  const unsigned int version = value->getVersion();
  send("<o" + attribute("type", std::to_string(type)) +
       attribute("typeName", factory_ ? factory_->getTypeName(type) : nullptr) +
       attribute("name", name) + attribute("version", std::to_string(version)) + ">");
  value->serialize(*this, version);
  send("</o>\n");
  return *this;
}

Archive& XMLObjectWriter::process(int& value, const char* name) {
  send("<int" + attribute("name", name) + attribute("value", std::to_string(value)) + "/>");
  return *this;
}

Archive& XMLObjectWriter::process(NOXPString* value, const char* name) {
  if (!value) return processNullVar(name);
  send("<var" + attribute("name", name) + " value=\"");
  // The string itself and not its text: that would pass the native code page once more.
  if (stream_) stream_->send(*value);
  send("\"/>");
  return *this;
}

void XMLObjectWriter::writeRoot(Serializable& root) { process(&root, nullptr); }

void XMLObjectWriter::writeNullRoot() { processNullSerializable(nullptr); }

Archive& XMLObjectWriter::processNullSerializable(const char* name) {
  send("<nullobj" + attribute("name", name) + "/>");
  return *this;
}

Archive& XMLObjectWriter::processNullVar(const char* name) {
  send("<nullvar" + attribute("name", name) + "/>");
  return *this;
}

void XMLObjectWriter::send(const std::string& text) {
  if (!stream_) return;
  NOXPString converted(text);
  stream_->send(converted);
}

}  // namespace nox
