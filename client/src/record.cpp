#include "nox/client/record.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <ostream>
#include <stdexcept>

#include "client/src/numbers.h"
#include "client/src/utf8.h"
#include "nox/client/error.h"

namespace nox::client {

namespace {

using Level = FieldView::Level;

constexpr std::size_t kNone = std::string_view::npos;

/// The mark between the parts of a field of this level; a subvalue has none.
char markBelow(Level level) {
  switch (level) {
    case Level::Record:
      return kAttributeMark;
    case Level::Attribute:
      return kValueMark;
    default:
      return kSubvalueMark;
  }
}

Level below(Level level) {
  return level == Level::Record      ? Level::Attribute
         : level == Level::Attribute ? Level::Value
                                     : Level::Subvalue;
}

[[noreturn]] void throwNoNumber() {
  throw std::out_of_range("the parts of a record are numbered from 1");
}

/// The bytes of a field, and of the field that holds it.
struct Place {
  std::size_t begin = 0;
  std::size_t end = 0;
  std::size_t parentBegin = 0;
  std::size_t parentEnd = 0;
  char mark = kAttributeMark;  // between the parts of the parent
  std::string missing;         // the marks that are needed in front of it where it is not there
};

Place placeOf(std::string_view bytes, Position at) {
  if (at.attribute == 0 || (at.value == 0 && at.subvalue != 0)) throwNoNumber();
  Place place;
  place.end = bytes.size();
  Level level = Level::Record;
  for (const std::size_t number : {at.attribute, at.value, at.subvalue}) {
    if (number == 0) break;
    place.mark = markBelow(level);
    level = below(level);
    place.parentBegin = place.begin;
    place.parentEnd = place.end;
    if (!place.missing.empty()) {
      place.missing.append(number - 1, place.mark);
      continue;
    }
    const std::string_view parent = bytes.substr(0, place.end);
    for (std::size_t n = 1; n < number; ++n) {
      const std::size_t mark = parent.find(place.mark, place.begin);
      if (mark == kNone) {
        place.begin = place.end;
        place.missing.assign(number - n, place.mark);
        break;
      }
      place.begin = mark + 1;
    }
    if (place.missing.empty()) {
      place.end = std::min(parent.find(place.mark, place.begin), place.end);
    }
  }
  return place;
}

bool liesIn(std::string_view text, const std::string& bytes) {
  const std::less_equal<> notBehind;
  return notBehind(bytes.data(), text.data()) &&
         notBehind(text.data(), bytes.data() + bytes.size());
}

/// Both `mark` and `text` at `at`; the text may lie in `bytes`.
void insertPart(std::string& bytes, std::size_t at, std::string_view text, char mark,
                bool markFirst) {
  std::string part;
  part.reserve(text.size() + 1);
  if (markFirst) part += mark;
  part += text;
  if (!markFirst) part += mark;
  bytes.insert(at, part);
}

constexpr char kShownMarks[] = {'^', ']', '\\'};
constexpr char kMarks[] = {kAttributeMark, kValueMark, kSubvalueMark};
constexpr char kEscape = '~';
constexpr char kHexDigits[] = "0123456789ABCDEF";

void showEscaped(std::string& shown, char c) {
  const auto byte = static_cast<unsigned char>(c);
  shown += kEscape;
  shown += kHexDigits[byte >> 4];
  shown += kHexDigits[byte & 0x0F];
}

/// ASCII that is no control character and stands for nothing else.
bool isPlain(char c) {
  return c >= ' ' && c < 0x7F && c != kEscape && c != '^' && c != ']' && c != '\\';
}

/// A control character of Latin-1, in UTF-8.
bool isLatinControl(std::string_view character) {
  return character.size() == 2 && character[0] == '\xC2' &&
         static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace

std::string FieldText::writtenReal(double number) {
  std::string text = detail::shortestText(number);
  if (!std::isfinite(number)) {
    throw Error(sqlstate::kBadArgument, text + " is no number that a field can hold",
                Outcome::NotSent);
  }
  return text;
}

FieldView FieldView::operator[](std::size_t n) const {
  if (n == 0) throwNoNumber();
  if (level_ == Level::Subvalue) return {n == 1 ? bytes_ : std::string_view(), Level::Subvalue};
  const char mark = markBelow(level_);
  std::size_t begin = 0;
  for (; n > 1; --n) {
    const std::size_t at = bytes_.find(mark, begin);
    if (at == kNone) return {std::string_view(), below(level_)};
    begin = at + 1;
  }
  return {bytes_.substr(begin, bytes_.find(mark, begin) - begin), below(level_)};
}

std::size_t FieldView::count() const {
  if (bytes_.empty()) return 0;
  if (level_ == Level::Subvalue) return 1;
  return 1 + static_cast<std::size_t>(std::count(bytes_.begin(), bytes_.end(), markBelow(level_)));
}

std::size_t FieldView::find(std::string_view text) const {
  std::size_t n = 0;
  for (const FieldView& part : *this) {
    ++n;
    if (part == text) return n;
  }
  return 0;
}

std::int64_t FieldView::toInt64() const { return detail::requireInt64(bytes_); }

double FieldView::toDouble() const { return detail::requireDouble(bytes_); }

FieldView::Iterator::Iterator(FieldView whole) : rest_(whole.bytes_), level_(whole.level_) {
  if (!rest_.empty()) cut();
}

FieldView::Iterator& FieldView::Iterator::operator++() {
  if (rest_.empty()) {
    at_ = nullptr;
  } else {
    rest_.remove_prefix(1);  // the mark
    cut();
  }
  return *this;
}

/// The part that `rest_` begins with becomes the current one.
void FieldView::Iterator::cut() {
  at_ = rest_.data();
  const std::size_t end = level_ == Level::Subvalue
                              ? rest_.size()
                              : std::min(rest_.find(markBelow(level_)), rest_.size());
  part_ = FieldView(rest_.substr(0, end), below(level_));
  rest_.remove_prefix(end);
}

FieldView FieldReference::get() const { return record_->get(at_); }

FieldReference FieldReference::operator[](std::size_t n) const {
  if (n == 0) throwNoNumber();
  Position deeper = at_;
  if (at_.value == 0) {
    deeper.value = n;
  } else if (at_.subvalue == 0) {
    deeper.subvalue = n;
  } else {
    throw std::out_of_range("a subvalue has no parts");
  }
  return FieldReference(*record_, deeper);
}

const FieldReference& FieldReference::operator=(const FieldText& text) const {
  record_->set(at_, text);
  return *this;
}

FieldReference& FieldReference::operator=(const FieldReference& other) {
  record_->set(at_, other.view());
  return *this;
}

std::ostream& operator<<(std::ostream& out, FieldView field) { return out << field.view(); }

std::ostream& operator<<(std::ostream& out, const Record& record) {
  return out << record.toString();
}

Record::Record(std::initializer_list<FieldText> attributes) {
  for (const FieldText& attribute : attributes) {
    if (&attribute != attributes.begin()) bytes_ += kAttributeMark;
    bytes_ += attribute.view();
  }
}

std::size_t Record::checked(std::size_t n) {
  if (n == 0) throwNoNumber();
  return n;
}

FieldView Record::get(Position at) const& {
  FieldView field = view()[at.attribute];
  if (at.value == 0 && at.subvalue == 0) return field;
  field = field[at.value];
  return at.subvalue == 0 ? field : field[at.subvalue];
}

Record& Record::set(Position at, const FieldText& given) {
  const std::string_view text = given.view();
  const Place place = placeOf(bytes_, at);
  const std::size_t size = place.end - place.begin;
  if (place.missing.empty()) {
    bytes_.replace(place.begin, size, text);
  } else {
    bytes_.replace(place.begin, size, place.missing + std::string(text));
  }
  return *this;
}

Record& Record::insert(Position at, const FieldText& given) {
  const Place place = placeOf(bytes_, at);
  if (!place.missing.empty() || place.parentBegin == place.parentEnd) return set(at, given);
  insertPart(bytes_, place.begin, given.view(), place.mark, false);
  return *this;
}

Record& Record::remove(Position at) {
  const Place place = placeOf(bytes_, at);
  if (!place.missing.empty()) return *this;
  std::size_t begin = place.begin;
  std::size_t end = place.end;
  // One of the marks beside it goes, too.
  if (end < place.parentEnd) {
    ++end;
  } else if (begin > place.parentBegin) {
    --begin;
  }
  bytes_.erase(begin, end - begin);
  return *this;
}

Record& Record::append(const FieldText& given) {
  const std::string_view text = given.view();
  if (bytes_.empty()) {
    bytes_.assign(text);
  } else if (liesIn(text, bytes_)) {
    insertPart(bytes_, bytes_.size(), text, kAttributeMark, true);
  } else {
    bytes_ += kAttributeMark;
    bytes_ += text;
  }
  return *this;
}

Record& Record::append(Position of, const FieldText& given) {
  if (of.subvalue != 0) throw std::out_of_range("a subvalue has no parts");
  const Place place = placeOf(bytes_, of);
  if (!place.missing.empty() || place.begin == place.end) return set(of, given);
  insertPart(bytes_, place.end, given.view(), of.value == 0 ? kValueMark : kSubvalueMark, true);
  return *this;
}

std::string FieldView::toString() const {
  std::string shown;
  shown.reserve(bytes_.size());
  for (std::string_view rest = bytes_;;) {
    // Nearly everything, at one go.
    const char* const begin = rest.data();
    const char* const end = std::find_if_not(begin, begin + rest.size(), isPlain);
    const auto plain = static_cast<std::size_t>(end - begin);
    shown += rest.substr(0, plain);
    rest.remove_prefix(plain);
    if (rest.empty()) return shown;

    const std::size_t length = detail::utf8CharacterLength(rest);
    const std::string_view character = rest.substr(0, std::max<std::size_t>(length, 1));
    const auto* const mark = std::find(std::begin(kMarks), std::end(kMarks), rest.front());
    if (mark != std::end(kMarks)) {
      shown += kShownMarks[mark - kMarks];
    } else if (length <= 1 || isLatinControl(character)) {
      for (const char byte : character) showEscaped(shown, byte);
    } else {
      shown += character;
    }
    rest.remove_prefix(character.size());
  }
}

Record Record::parse(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const auto* const shown = std::find(std::begin(kShownMarks), std::end(kShownMarks), c);
    if (shown != std::end(kShownMarks)) {
      bytes += kMarks[shown - kShownMarks];
    } else if (c == kEscape) {
      const int high = i + 1 < text.size() ? detail::hexDigit(text[i + 1]) : -1;
      const int low = i + 2 < text.size() ? detail::hexDigit(text[i + 2]) : -1;
      if (high < 0 || low < 0) {
        throw Error(
            sqlstate::kNotANumber,
            "two hexadecimal digits are missing behind the \"~\" at byte " + std::to_string(i + 1),
            Outcome::NotSent);
      }
      bytes += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      bytes += c;
    }
  }
  return Record(std::move(bytes));
}

}  // namespace nox::client
