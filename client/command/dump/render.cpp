#include "client/command/dump/render.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "client/command/base64.h"
#include "client/command/dump/fields.h"
#include "client/command/dump/json.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

constexpr std::string_view kHidden = "********";
// More than anybody sends, and no danger to the machine on which a stranger's capture is read.
constexpr std::size_t kMostInflated = 256u * 1024u * 1024u;

/// Bytes as text in quotes: what is no printable ASCII, and is no part of a UTF-8 character, as
/// \xHH.
std::string quoted(std::string_view bytes, std::size_t most) {
  std::string shown = "\"";
  for (const char c : bytes.substr(0, most)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      shown += '\\';
      shown += c;
    } else if (byte < ' ' || byte >= 0x7F) {
      std::array<char, 8> escaped{};
      std::snprintf(escaped.data(), escaped.size(), "\\x%02X", static_cast<unsigned int>(byte));
      shown += escaped.data();
    } else {
      shown += c;
    }
  }
  shown += '"';
  if (bytes.size() > most) shown += " and " + std::to_string(bytes.size() - most) + " more bytes";
  return shown;
}

std::string bytesText(std::size_t n) { return std::to_string(n) + (n == 1 ? " byte" : " bytes"); }

std::string typeText(ObjectFactory& factory, int type) {
  const char* const name = factory.getTypeName(type);
  return std::string(name ? name : "unknown") + " (" + std::to_string(type) + ")";
}

/// The object tree, a field per line.
class Tree {
public:
  Tree(ObjectFactory& factory, const RenderOptions& options)
      : factory_(factory), options_(options) {}

  std::string of(const ObjectFields& root) {
    object(root, 0);
    return std::move(text_);
  }

private:
  void object(const ObjectFields& object, std::size_t depth) {
    text_ += typeText(factory_, object.type);
    if (object.version != 0) text_ += " version " + std::to_string(object.version);
    text_ += '\n';
    for (const Field& field : object.fields) {
      text_.append(2 * (depth + 1), ' ');
      if (!field.name.empty()) text_ += field.name + ": ";
      value(field, depth + 1);
    }
  }

  void value(const Field& field, std::size_t depth) {
    switch (field.kind) {
      case Field::Kind::Number:
        text_ += std::to_string(field.number);
        break;
      case Field::Kind::Text:
      case Field::Kind::Blob:
        text_ += field.secret && !options_.showPasswords ? std::string(kHidden)
                                                         : quoted(field.bytes, options_.mostBytes);
        if (field.kind == Field::Kind::Blob) {
          text_ += " (" + bytesText(field.bytes.size()) + ")";
        }
        break;
      case Field::Kind::Object:
        object(*field.object, depth);
        return;
      case Field::Kind::Null:
        text_ += "null";
        break;
    }
    text_ += '\n';
  }

  ObjectFactory& factory_;
  const RenderOptions& options_;
  std::string text_;
};

/// What the values in the frame are called, in the order in which they stand there.
struct ValueName {
  std::string name;
  bool secret = false;
};

void collectNames(const ObjectFields& object, std::vector<ValueName>& names) {
  for (const Field& field : object.fields) {
    names.push_back({field.name, field.secret});
    if (field.object) collectNames(*field.object, names);
  }
}

/// Walks the bytes with nothing but the format to go by: every value begins with a marker that says
/// what it is, and ';' ends an object. Names are taken from the object, where it could be read.
class Hex {
public:
  Hex(std::string_view frame, const std::vector<ValueName>& names, ObjectFactory& factory,
      const RenderOptions& options)
      : frame_(frame), names_(names), factory_(factory), options_(options) {}

  std::string text() {
    try {
      root();
    } catch (const std::runtime_error& error) {
      while (at_ < frame_.size()) show(std::min(kBytesPerLine, frame_.size() - at_), "");
      text_ += "! " + std::string(error.what()) + "\n";
    }
    return std::move(text_);
  }

private:
  static constexpr std::size_t kBytesPerLine = 8;
  static constexpr std::size_t kDeepest = 512;  // as readers allow

  void root() {
    show(4, bytesText(number(0, 4)) + " follow");
    show(1, "[ a root object");
    ++depth_;
    if (frame_.substr(at_, 4) == "GZIP") {
      compressed();
    } else {
      value("");
    }
    --depth_;
    show(1, "] its end");
  }

  void value(const std::string& name, bool secret = false) {
    const std::string label = name.empty() ? "" : name + ": ";
    switch (marker()) {
      case 'L':
        return object(label);
      case 'I':
        return show(5, label + std::to_string(static_cast<std::int32_t>(number(1, 4))));
      case 's':
        return string(label, secret);
      case 'j':
        return blob(label, secret);
      default:
        throw std::runtime_error("byte " + std::to_string(at_) + " is no marker of a value");
    }
  }

  void object(const std::string& label) {
    if (depth_ > kDeepest) throw std::runtime_error("objects nest too deep");
    constexpr int kNull = 1;
    show(1, label + "object");
    ++depth_;
    const auto type = static_cast<int>(number(1, 4));
    if (type == kNull) {
      show(5, "null");
    } else {
      show(5, typeText(factory_, type));
      show(5, "class version " + std::to_string(number(1, 4)));
      while (marker() != ';') {
        const ValueName name = next_ < names_.size() ? names_[next_++] : ValueName();
        value(name.name, name.secret);
      }
    }
    --depth_;
    show(1, "; end of the object");
  }

  void string(const std::string& label, bool secret) {
    const std::size_t n = number(1, 2);
    show(3, label + "string of " + bytesText(n));
    content(n, secret);
    show(1, "; end of the string");
  }

  void blob(const std::string& label, bool secret) {
    show(1, label + "blob");
    if (marker() == 'b') {
      const std::size_t n = number(1, 4);
      show(5, bytesText(n));
      content(n, secret);
      show(1, "; end of the bytes");
    } else {
      show(1, "null");
    }
    show(1, "; end of the blob");
  }

  void compressed() {
    constexpr std::size_t kHeader = 10;
    constexpr std::size_t kTrailer = 8;
    show(4, "compressed");
    if (frame_.size() - at_ < kHeader + kTrailer + 1) {
      throw std::runtime_error("the frame ends early");
    }
    show(kHeader, "header of a gzip member");
    skip(frame_.size() - at_ - kTrailer - 1, "of compressed data");
    show(4, "checksum");
    show(4, "size when inflated, lowest byte first");
  }

  void content(std::size_t n, bool secret) {
    if (secret && !options_.showPasswords) return skip(n, "not shown: " + std::string(kHidden));
    const std::string_view all = take(n);
    const std::size_t shown = std::min(n, options_.mostBytes);
    for (std::size_t i = 0; i < shown; i += kBytesPerLine) {
      const std::string_view piece = all.substr(i, std::min(kBytesPerLine, shown - i));
      line(at_ - n + i, piece, quoted(piece, piece.size()));
    }
    if (n > shown) line(at_ - n + shown, "", "... and " + bytesText(n - shown) + " more");
  }

  void skip(std::size_t n, const std::string& what) {
    take(n);
    line(at_ - n, "", bytesText(n) + " " + what);
  }

  char marker() const {
    if (at_ >= frame_.size()) throw std::runtime_error("the frame ends early");
    return frame_[at_];
  }

  /// The big-endian number that lies `offset` bytes ahead.
  std::uint32_t number(std::size_t offset, std::size_t size) const {
    if (frame_.size() - at_ < offset + size) throw std::runtime_error("the frame ends early");
    std::uint32_t value = 0;
    for (const char c : frame_.substr(at_ + offset, size)) {
      value = value << 8 | static_cast<unsigned char>(c);
    }
    return value;
  }

  std::string_view take(std::size_t n) {
    if (frame_.size() - at_ < n) throw std::runtime_error("the frame ends early");
    at_ += n;
    return frame_.substr(at_ - n, n);
  }

  void show(std::size_t n, const std::string& meaning) {
    const std::string_view bytes = take(n);
    line(at_ - n, bytes.substr(0, kBytesPerLine), meaning);
    if (n > kBytesPerLine) line(at_ - n + kBytesPerLine, bytes.substr(kBytesPerLine), "");
  }

  void line(std::size_t offset, std::string_view bytes, const std::string& meaning) {
    std::array<char, 24> number{};
    std::snprintf(number.data(), number.size(), "%06zX  ", offset);
    std::string hex;
    for (const char c : bytes) {
      std::array<char, 4> pair{};
      std::snprintf(pair.data(), pair.size(), "%02X ", static_cast<unsigned int>(c & 0xFF));
      hex += pair.data();
    }
    if (meaning.empty()) {
      if (!hex.empty()) hex.pop_back();
    } else {
      hex.resize(kBytesPerLine * 3 + 1, ' ');
      hex.append(2 * depth_, ' ');
    }
    text_ += number.data() + hex + meaning + "\n";
  }

  std::string_view frame_;
  const std::vector<ValueName>& names_;
  ObjectFactory& factory_;
  const RenderOptions& options_;
  std::size_t next_ = 0;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
  std::string text_;
};

std::string characterText(int c) {
  if (c < 0) return "the end";
  const char byte = static_cast<char>(c);
  return quoted(std::string_view(&byte, 1), 1);
}

/// What reading the frame gave: an object, or none and why (a frame that holds the null object
/// gives neither); and the fields that its bytes spell.
struct ReadFrame {
  std::unique_ptr<Serializable> object;
  std::string problem;
  ObjectFields fields;
};

/// What stands between the brackets, inflated where it is compressed.
std::string bodyOf(std::string_view frame) {
  constexpr std::size_t kHead = 5;  // the length and '['
  constexpr std::string_view kCompressed = "GZIP";
  if (frame.size() <= kHead) throw std::runtime_error("the frame ends early");
  std::string_view body = frame.substr(kHead, frame.size() - kHead - 1);
  if (body.substr(0, kCompressed.size()) != kCompressed) return std::string(body);
  body.remove_prefix(kCompressed.size());
  std::string inflated;
  GZipCompressor::uncompressTo(body.data(), body.size(), inflated, kMostInflated);
  return inflated;
}

ReadFrame read(std::string_view bytes, ObjectFactory& factory) {
  ReadFrame result;
  try {
    MemoryBufferInputStream stream(bytes.data(), bytes.size());
    BinaryReader reader(&factory, &stream);
    reader.limitInflation(kMostInflated);
    result.object.reset(reader.readRootObject());
    result.fields = fieldsOfBody(bodyOf(bytes));
  } catch (const std::runtime_error& error) {
    result.problem = error.what();
  } catch (UnexpectedChar* thrown) {
    const std::unique_ptr<UnexpectedChar> error(thrown);
    result.problem = characterText(error->getChar()) + " where " +
                     characterText(error->getExpectedChar()) + " was expected";
  } catch (UnknownType* thrown) {
    const std::unique_ptr<UnknownType> error(thrown);
    result.problem = "there is no type " + std::to_string(error->getTypeCode());
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    result.problem = error->what();
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
    result.problem = "the frame ends early";
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
    result.problem = "the frame ends early";
  }
  return result;
}

/// ` name="..."`; bytes that XML cannot hold are ` base64="..."` instead.
std::string xmlAttribute(const char* name, std::string_view bytes) {
  const std::optional<std::string> text = xmlText(bytes);
  std::string attribute = " ";
  attribute.append(text ? name : "base64").append("=\"");
  return attribute.append(text ? *text : base64Of(bytes)).append("\"");
}

/// An element for something that is no object.
std::string xmlElement(const char* name, std::string_view value) {
  return std::string("<") + name + xmlAttribute("value", value) + "/>\n";
}

/// The elements of XMLObjectWriter, and one for blobs. That one asks the object for its fields and
/// leaves out what is neither a number nor a NOXPString.
class Xml {
public:
  explicit Xml(ObjectFactory& factory) : factory_(factory) {}

  std::string of(const ObjectFields& root) {
    object(root, "");
    return std::move(text_);
  }

private:
  void object(const ObjectFields& object, const std::string& name) {
    const char* const typeName = factory_.getTypeName(object.type);
    text_ += "<o" + xmlAttribute("type", std::to_string(object.type)) +
             xmlAttribute("typeName", typeName ? typeName : "") + xmlAttribute("name", name) +
             xmlAttribute("version", std::to_string(object.version)) + ">";
    for (const Field& field : object.fields) value(field);
    text_ += "</o>\n";
  }

  void value(const Field& field) {
    switch (field.kind) {
      case Field::Kind::Number:
        return element("int", field, std::to_string(field.number));
      case Field::Kind::Text:
        return element("var", field, field.bytes);
      case Field::Kind::Blob:
        return element("blob", field, field.bytes);
      case Field::Kind::Object:
        return object(*field.object, field.name);
      case Field::Kind::Null:
        text_ += "<nullobj" + xmlAttribute("name", field.name) + "/>";
    }
  }

  void element(const char* kind, const Field& field, const std::string& bytes) {
    text_.append("<").append(kind).append(xmlAttribute("name", field.name));
    text_.append(xmlAttribute("value", bytes)).append("/>");
  }

  ObjectFactory& factory_;
  std::string text_;
};

void hideSecrets(ObjectFields& object) {
  for (Field& field : object.fields) {
    if (field.secret && field.kind != Field::Kind::Null) field.bytes = kHidden;
    if (field.object) hideSecrets(*field.object);
  }
}

}  // namespace

std::optional<Rendering> parseRendering(std::string_view name) {
  if (name == "hex") return Rendering::Hex;
  if (name == "tree") return Rendering::Tree;
  if (name == "xml") return Rendering::Xml;
  if (name == "json") return Rendering::Json;
  return std::nullopt;
}

std::string renderOrigin(const std::string& origin, Rendering rendering) {
  if (origin.empty() || rendering == Rendering::Json) return "";
  return rendering == Rendering::Xml ? "<!-- " + origin + " -->\n" : "# " + origin + "\n";
}

std::string render(const CapturedFrame& frame, Rendering rendering, CatalogueFactory& factory,
                   const RenderOptions& options) {
  if (frame.http) {
    if (rendering == Rendering::Json) return jsonOfText("http", frame.bytes) + "\n";
    if (rendering == Rendering::Xml) return xmlElement("http", frame.bytes);
    return "HTTP " + quoted(frame.bytes, options.mostBytes) + "\n";
  }
  ReadFrame read = command::read(frame.bytes, factory);
  if (read.object) nameFields(read.fields, *read.object);
  if (rendering == Rendering::Hex || !read.problem.empty()) {
    std::vector<ValueName> names;
    collectNames(read.fields, names);
    std::string text = Hex(frame.bytes, names, factory, options).text();
    if (!read.problem.empty()) text += "! " + read.problem + "\n";
    if (rendering == Rendering::Json) return jsonOfText("broken", text) + "\n";
    return rendering == Rendering::Xml ? xmlElement("broken", text) : text;
  }
  if (!read.object) {
    if (rendering == Rendering::Json) return "null\n";
    return rendering == Rendering::Xml ? "<nullobj name=\"\"/>\n" : "the null object\n";
  }
  if (rendering != Rendering::Tree && !options.showPasswords) hideSecrets(read.fields);
  if (rendering == Rendering::Json) return jsonOf(read.fields, factory) + "\n";
  if (rendering == Rendering::Xml) return Xml(factory).of(read.fields);
  return Tree(factory, options).of(read.fields);
}

}  // namespace nox::command
