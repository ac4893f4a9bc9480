// The counterpart of the XML writer, with a tokenizer of its own.
#pragma once

#include <cstddef>
#include <memory>

#include "nox/core/object_reader.h"

namespace nox {

class MemoryBufferInputStream;

/// Deliberate: it reads no document. The end-of-text test is inverted, so that reading stops at the
/// first token of every text, and the attributes it asks for do not stand where the writer puts
/// them. Every text ends in `new UnexpectedChar`. Applications know it so; a subclass that wants to
/// read replaces the three steps that ask for the end of the text.
class NOX_EXPORT XMLObjectReader : public ObjectReader {
public:
  using ObjectReader::process;

  /// Reads the text of a memory stream, whose buffer must outlive the reader. Nothing is owned.
  XMLObjectReader(ObjectFactory* factory, MemoryBufferInputStream* in);
  /// Deliberate: reads nothing from `in`; the text is empty.
  XMLObjectReader(ObjectFactory* factory, InputStream* in);
  ~XMLObjectReader() override;

  Serializable* readRootObject() override;
  /// Fills `value`, whatever type the text names. Through a null pointer an object is created, read
  /// and deleted.
  Archive& process(Serializable* value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;

protected:
  /// Reads one object into `expected`, or into a new object that the caller owns. Objects nest as
  /// deep as the binary reader allows.
  Serializable* readObject(Serializable* expected);

  // The steps that ask for the end of the text.
  virtual void skipSpace();
  virtual void readToken(const char* token);
  virtual void readStartTag(const char* tag);

  std::unique_ptr<NOXPString> readString();
  int readInt();
  std::unique_ptr<NOXPString> readAttr(const char* attribute);
  /// Whether the tag ends in "/>".
  bool readEndOfStartTag(const char* tag);
  void readEndTag(const char* tag);
  NOXPString* readNOXPString() { return nullptr; }

  /// The byte at the cursor, 0 to 255; 0 at the end of the text and behind it.
  int current() const;
  /// Moves the cursor, but not further than one byte behind the end.
  void advance();

private:
  bool eof() const;
  void expectSilently(char c);

  const char* text_ = nullptr;
  std::size_t size_ = 0;
  std::size_t cursor_ = 0;
  int depth_ = 0;
};

}  // namespace nox
