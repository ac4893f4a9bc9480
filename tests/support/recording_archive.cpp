#include "tests/support/recording_archive.h"

#include "tests/support/bytes.h"

namespace nox::test {

namespace {

std::string shown(const char* name) { return name ? name : "-"; }

}  // namespace

void RecordingWriter::note(const char* kind, const char* name, const std::string& value) {
  lines_.push_back(std::string(kind) + " " + shown(name) + "=" + value);
}

Archive& RecordingWriter::process(NOXPBlob* value, const char* name) {
  const std::string content =
      value ? hex({reinterpret_cast<const char*>(value->getBuf()), value->length()}) : "null";
  note("blob", name, content);
  return *this;
}

Archive& RecordingWriter::process(NOXPString* value, const char* name) {
  note("string", name, value ? reinterpret_cast<const char*>(value->getUTF8()) : "null");
  return *this;
}

Archive& RecordingWriter::process(std::string& value, const char* name) {
  note("text", name, value);
  return *this;
}

Archive& RecordingWriter::process(int& value, const char* name) {
  note("int", name, std::to_string(value));
  return *this;
}

Archive& RecordingWriter::process(Serializable* value, const char* name) {
  if (!value) {
    note("object", name, "null");
    return *this;
  }
  note("object", name,
       "type " + std::to_string(value->getType()) + " version " +
           std::to_string(value->getClassVersion()));
  value->serialize(*this, static_cast<unsigned int>(value->getClassVersion()));
  lines_.emplace_back("end");
  return *this;
}

void RecordingReader::note(const char* kind, const char* name, bool null) {
  lines_.push_back(std::string(kind) + " " + shown(name) + (null ? " null" : ""));
}

Archive& RecordingReader::process(NOXPBlob* value, const char* name) {
  note("blob", name, value == nullptr);
  return *this;
}

Archive& RecordingReader::process(NOXPString* value, const char* name) {
  note("string", name, value == nullptr);
  return *this;
}

Archive& RecordingReader::process(std::string& /*value*/, const char* name) {
  note("text", name, false);
  return *this;
}

Archive& RecordingReader::process(int& value, const char* name) {
  note("int", name, false);
  if (int_ >= 0) value = int_;
  return *this;
}

Archive& RecordingReader::process(Serializable* value, const char* name) {
  note("object", name, value == nullptr);
  return *this;
}

std::vector<std::string> fieldsOf(Serializable& object, unsigned int version) {
  RecordingWriter writer;
  object.serialize(writer, version);
  return writer.lines();
}

}  // namespace nox::test
