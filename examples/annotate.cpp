#include "annotate.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

constexpr std::size_t kBytesPerLine = 8;
constexpr std::size_t kMostShown = 48;  // of a string, a blob or compressed data

/// Walks the bytes with nothing but the format to go by: every value begins with a marker that says
/// what it is, and ';' ends an object.
class Annotator {
public:
  Annotator(std::string_view frame, nox::ObjectFactory& names, std::ostream& out)
      : frame_(frame), names_(names), out_(out) {}

  void root() {
    show(4, std::to_string(number(0, 4)) + " bytes follow");
    show(1, "[ a root object");
    ++depth_;
    if (frame_.substr(at_, 4) == "GZIP") {
      compressed();
    } else {
      value();
    }
    --depth_;
    show(1, "] its end");
    if (at_ != frame_.size()) throw std::runtime_error("bytes after the frame");
  }

private:
  void value() {
    switch (marker()) {
      case 'L':
        return object();
      case 'I':
        return show(5, "I " + std::to_string(static_cast<std::int32_t>(number(1, 4))));
      case 's':
        return text();
      case 'j':
        return blob();
      default:
        throw std::runtime_error("no marker: byte " + std::to_string(at_));
    }
  }

  void object() {
    show(1, "L object");
    ++depth_;
    const auto type = static_cast<int>(number(1, 4));
    constexpr int kNull = 1;
    if (type == kNull) {
      show(5, "I the null type: no object");
    } else {
      const char* const name = names_.getTypeName(type);
      show(5, "I type " + std::to_string(type) + ", " + (name ? name : "unknown"));
      show(5, "I class version " + std::to_string(number(1, 4)));
      while (marker() != ';') value();
    }
    --depth_;
    show(1, "; end of the object");
  }

  void text() {
    const std::size_t n = number(1, 2);
    show(3, "s string of " + std::to_string(n) + " bytes");
    content(n, true);
    show(1, "; end of the string");
  }

  void blob() {
    show(1, "j blob");
    const std::size_t n = number(1, 4);
    show(5, "b " + std::to_string(n) + " bytes");
    content(n, true);
    show(1, "; end of the bytes");
    show(1, "; end of the blob");
  }

  void compressed() {
    constexpr std::size_t kTrailer = 8;
    show(4, "compressed");
    show(10, "header of a gzip member");
    if (frame_.size() - at_ < kTrailer + 1) throw std::runtime_error("the frame ends early");
    content(frame_.size() - at_ - kTrailer - 1, false);
    show(4, "checksum");
    show(4, "size when inflated, lowest byte first");
  }

  void content(std::size_t n, bool readable) {
    const std::string_view all = take(n);
    for (std::size_t i = 0; i < std::min(n, kMostShown); i += kBytesPerLine) {
      const std::string_view piece = all.substr(i, std::min(kBytesPerLine, kMostShown - i));
      line(at_ - n + i, piece, readable ? quoted(piece) : "deflate data");
    }
    if (n > kMostShown)
      line(at_ - n + kMostShown, "", "... and " + std::to_string(n - kMostShown) + " more");
  }

  static std::string quoted(std::string_view bytes) {
    std::string shown = "\"";
    for (const char c : bytes) shown += c >= ' ' && c <= '~' ? c : '.';
    return shown + "\"";
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
    char text[8];
    std::snprintf(text, sizeof text, "%06zX", offset & 0xFFFFFF);
    std::string hex;
    for (const char c : bytes) {
      char pair[4];
      std::snprintf(pair, sizeof pair, "%02X ", static_cast<unsigned int>(c & 0xFF));
      hex += pair;
    }
    if (!meaning.empty()) hex.resize(kBytesPerLine * 3, ' ');
    out_ << "    " << text << "  " << hex;
    if (!meaning.empty()) out_ << ' ' << std::string(2 * depth_, ' ') << meaning;
    out_ << '\n';
  }

  std::string_view frame_;
  nox::ObjectFactory& names_;
  std::ostream& out_;
  std::size_t at_ = 0;
  std::size_t depth_ = 0;
};

}  // namespace

void annotate(std::string_view frame, nox::ObjectFactory& names, std::ostream& out) {
  Annotator(frame, names, out).root();
}
