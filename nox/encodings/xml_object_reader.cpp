#include "nox/encodings/xml_object_reader.h"

#include <cctype>
#include <cstring>

#include "nox/core/binary_reader.h"
#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "nox/diag/file_loggers.h"
#include "nox/encodings/reader_support.h"
#include "nox/text/pstring.h"

namespace nox {

namespace {

[[noreturn]] void fail(const char* line, int c, int expected) {
  NOX_LOG(filelog::debug) << line << EndLog();
  throw new UnexpectedChar(c, expected);
}

/// One level of nesting, for as long as it lives.
class Level {
public:
  explicit Level(int& depth) : depth_(++depth) {
    if (depth_ <= BinaryReader::kMaxDepth) return;
    --depth_;
    NOX_LOG(filelog::critical) << "object nesting too deep" << EndLog();
    throw new AssertionFailure("depth <= 512");
  }
  Level(const Level&) = delete;
  Level& operator=(const Level&) = delete;
  ~Level() { --depth_; }

private:
  int& depth_;
};

}  // namespace

XMLObjectReader::XMLObjectReader(ObjectFactory* factory, MemoryBufferInputStream* in)
    : ObjectReader(factory, in) {
  if (!in || !in->getBuffer()) return;
  text_ = in->getBuffer();
  size_ = in->getBufferLength();
}

XMLObjectReader::XMLObjectReader(ObjectFactory* factory, InputStream* in)
    : ObjectReader(factory, in) {}

XMLObjectReader::~XMLObjectReader() = default;

Serializable* XMLObjectReader::readRootObject() { return readObject(nullptr); }

Archive& XMLObjectReader::process(Serializable* value, const char* /*name*/) {
  Serializable* object = readObject(value);
  if (!value) delete object;
  return *this;
}

Archive& XMLObjectReader::process(int& value, const char* /*name*/) {
  readStartTag("int");
  value = saturatedInt(readAttr("value")->c_str());
  // Deliberate: fields close with the end tag of an object.
  if (!readEndOfStartTag("int")) readEndTag("o");
  return *this;
}

Archive& XMLObjectReader::process(NOXPString* value, const char* /*name*/) {
  readStartTag("var");
  const std::unique_ptr<NOXPString> text = readAttr("value");
  // Deliberate: as for integers.
  if (!readEndOfStartTag("var")) readEndTag("o");
  if (value) *value = text.get();
  return *this;
}

Serializable* XMLObjectReader::readObject(Serializable* expected) {
  const Level level(depth_);
  readStartTag("o");
  const int type = saturatedInt(readAttr("type")->c_str());
  const int version = saturatedInt(readAttr("version")->c_str());
  const bool selfClosing = readEndOfStartTag("o");
  std::unique_ptr<Serializable> created;
  if (!expected) created = createObject(factory_, type);
  Serializable* const object = expected ? expected : created.get();
  object->serialize(*this, static_cast<unsigned int>(version));
  if (!selfClosing) readEndTag("o");
  created.release();
  return object;
}

// Deliberate: true in front of the end and false at it.
bool XMLObjectReader::eof() const { return cursor_ < size_; }

int XMLObjectReader::current() const {
  return cursor_ < size_ ? static_cast<unsigned char>(text_[cursor_]) : 0;
}

void XMLObjectReader::advance() {
  if (cursor_ <= size_) ++cursor_;
}

void XMLObjectReader::skipSpace() {
  while (!eof() && std::isspace(current())) advance();
}

void XMLObjectReader::readToken(const char* token) {
  skipSpace();
  const std::size_t tokenEnd = cursor_ + std::strlen(token);
  while (!eof() && cursor_ < tokenEnd && current() == static_cast<unsigned char>(*token)) {
    advance();
    ++token;
  }
  if (cursor_ < tokenEnd) {
    fail("XMLObjectReader::readToken: mismatched token.", current(),
         static_cast<unsigned char>(*token));
  }
}

void XMLObjectReader::readStartTag(const char* tag) {
  skipSpace();
  if (!eof() && current() != '<') {
    fail("XMLObjectReader::readStartTag: '<' expected", current(), '<');
  }
  advance();
  readToken(tag);
}

std::unique_ptr<NOXPString> XMLObjectReader::readAttr(const char* attribute) {
  skipSpace();
  readToken(attribute);
  skipSpace();
  if (current() != '=') fail("XMLObjectReader::readAttr: expected '='", current(), '=');
  advance();
  skipSpace();
  return readString();
}

std::unique_ptr<NOXPString> XMLObjectReader::readString() {
  // Deliberate: found and expected change places here.
  if (current() != '"') fail("XMLObjectReader::readString: expected '\"'", '"', current());
  advance();
  const std::size_t begin = cursor_;
  while (cursor_ < size_ && current() != '"') advance();
  // Empty where the opening quote was the last byte: nothing is read at the end of the text.
  const char* const content = begin < size_ ? text_ + begin : "";
  auto value = std::make_unique<NOXPString>(content, cursor_ - begin, true);
  if (cursor_ < size_) advance();
  return value;
}

int XMLObjectReader::readInt() { return saturatedInt(readString()->c_str()); }

bool XMLObjectReader::readEndOfStartTag(const char* /*tag*/) {
  skipSpace();
  const bool selfClosing = current() == '/';
  if (selfClosing) advance();
  if (current() != '>') fail("XMLObjectReader::readEndOfStartTag: expected '>'", current(), '>');
  advance();
  return selfClosing;
}

void XMLObjectReader::readEndTag(const char* tag) {
  skipSpace();
  expectSilently('<');
  expectSilently('/');
  skipSpace();
  readToken(tag);
  skipSpace();
  expectSilently('>');
}

void XMLObjectReader::expectSilently(char c) {
  if (current() != c) throw new UnexpectedChar(current(), c);
  advance();
}

}  // namespace nox
