// An XML reader that reads, and the text it reads from.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "nox/encodings/xml_object_reader.h"
#include "nox/text/pstring.h"

namespace nox::test {

/// A text in a block of exactly its size, so that a sanitizer sees every byte read behind it.
class ExactText {
public:
  explicit ExactText(const std::string& text)
      : bytes_(new char[text.size()]), stream_(bytes_.get(), text.size()) {
    std::memcpy(bytes_.get(), text.data(), text.size());
  }
  MemoryBufferInputStream* stream() { return &stream_; }

private:
  std::unique_ptr<char[]> bytes_;
  MemoryBufferInputStream stream_;
};

/// What a subclass makes of the reader: the three steps that ask for the end of the text ask for
/// it the right way round.
class MendedReader : public XMLObjectReader {
public:
  using XMLObjectReader::readAttr;
  using XMLObjectReader::readEndOfStartTag;
  using XMLObjectReader::readEndTag;
  using XMLObjectReader::readInt;
  using XMLObjectReader::readNOXPString;
  using XMLObjectReader::readObject;
  using XMLObjectReader::readString;
  using XMLObjectReader::XMLObjectReader;

protected:
  void skipSpace() override {
    while (current() == ' ' || current() == '\n') advance();
  }
  void readToken(const char* token) override {
    skipSpace();
    for (; *token; ++token, advance()) {
      if (current() != *token) throw new UnexpectedChar(current(), *token);
    }
  }
  void readStartTag(const char* tag) override {
    skipSpace();
    readToken("<");
    readToken(tag);
  }
};

}  // namespace nox::test
