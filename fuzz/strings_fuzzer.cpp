// Strings and blobs under every sequence of operations: the input is a little program, an operation
// and its operands at a time, on three strings and a blob.
#include <algorithm>
#include <cstring>
#include <string>

#include "fuzz/fuzz_target.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace {

using nox::fuzz::require;

class Program {
public:
  Program(const std::uint8_t* data, std::size_t size) : at_(data), end_(data + size) {}
  bool ended() const { return at_ == end_; }
  std::uint8_t byte() { return ended() ? 0 : *at_++; }
  int small() { return static_cast<signed char>(byte()); }
  std::string text() {
    const std::size_t n = std::min<std::size_t>(byte(), static_cast<std::size_t>(end_ - at_));
    const std::string out(reinterpret_cast<const char*>(at_), n);
    at_ += n;
    return out;
  }
  std::wstring wideText() {
    std::wstring out;
    const std::string units = text();
    for (std::size_t i = 0; i + 1 < units.size(); i += 2) {
      out += static_cast<wchar_t>(static_cast<unsigned char>(units[i]) << 8 |
                                  static_cast<unsigned char>(units[i + 1]));
    }
    return out;
  }

private:
  const std::uint8_t* at_;
  const std::uint8_t* end_;
};

void changeCodePage(const char* name) {
  std::string page = name;
  NOXPString::changeCodePage(page);
}

// Whatever was done to it, a string answers.
void look(NOXPString& s) {
  const char* const text = s.c_str();
  if (text) require(std::strlen(text) < (std::size_t{1} << 40), "text ends");
  const bool isUtf8 = s.toUTF8();
  const unsigned char* const utf8 = s.getUTF8();
  require(utf8 != nullptr, "UTF-8 text is never null");
  if (isUtf8 && s.getType() == NOXPString::Utf8) {
    require(std::strlen(reinterpret_cast<const char*>(utf8)) == s.length(), "UTF-8 has no NUL");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Program program(data, size);
  NOXPString strings[3];
  NOXPBlob blob;
  constexpr int kMostSteps = 200;
  for (int step = 0; step < kMostSteps && !program.ended(); ++step) {
    const std::uint8_t operation = program.byte();
    NOXPString& s = strings[program.byte() % 3];
    NOXPString& other = strings[program.byte() % 3];
    std::string text;
    switch (operation % 24) {
      case 0:
        s = program.text().c_str();
        break;
      case 1:
        text = program.text();
        s.assign(text.data(), text.size(), false);
        break;
      case 2:
        text = program.text();
        s.assign(text.data(), text.size(), true);
        break;
      case 3:
        s = NOXPString(program.wideText());
        break;
      case 4:
        s = program.wideText().c_str();
        break;
      case 5:
        s = other;
        break;
      case 6:
        s = &other;
        break;
      case 7:
        s.append(program.text().c_str());
        break;
      case 8:
        text = program.text();
        s.append(text.data(), text.size());
        break;
      case 9:
        s.append(program.wideText().c_str());
        break;
      // Lengths may double each time.
      case 10:
        if (s.length() + other.length() < 100000) s.append(other);
        break;
      case 11:
        s.append(static_cast<int>(program.byte()) - 128);
        break;
      case 12:
        s.toString();
        break;
      case 13:
        s.toUTF8();
        break;
      case 14:
        s.toWString();
        break;
      case 15:
        s.getString();
        break;
      case 16:
        s.getWString();
        break;
      case 17: {
        const bool equal = s == other;
        require((s != other) == !equal, "unequal is not equal");
        static_cast<void>(s < other);
        static_cast<void>(s > other);
        break;
      }
      case 18:
      case 19:
      case 20: {
        const int attribute = program.small();
        const int value = program.small();
        const int subValue = program.small();
        if (operation % 24 == 18) s.ExtractFrom(&other, attribute, value, subValue);
        if (operation % 24 == 19) s.ExtractFrom(&blob, attribute, value, subValue);
        if (operation % 24 == 20) s.ExtractNumber(attribute, value, subValue);
        break;
      }
      case 21:
        require(s.DCount(program.byte()) >= 0, "counts are not negative");
        break;
      case 22: {
        text = program.text();
        blob.append(text.data(), text.size());
        if (blob.length() < 100000) {
          blob.append(reinterpret_cast<const char*>(blob.getBuf()), blob.length());
        }
        blob.setSize(blob.length() + program.byte());
        NOXPBlob copy(blob);
        require(copy.length() == blob.length(), "a copy is as long");
        if (program.byte() % 4 == 0) blob = NOXPBlob();
        break;
      }
      case 23: {
        static const char* const pages[] = {"UTF-8",     "ISO-8859-1", "windows-1252",
                                            "Shift_JIS", "UTF-16",     "no such page"};
        changeCodePage(pages[program.byte() % 6]);
        break;
      }
    }
    look(s);
  }
  changeCodePage("UTF-8");
  return 0;
}
