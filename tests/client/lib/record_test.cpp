// Records as a program changes and reads them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <iomanip>
#include <limits>
#include <list>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "nox/client/error.h"
#include "nox/client/record.h"

namespace nox::client {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The record's readable form: "A^B]C\D".
std::string shown(const Record& record) { return record.toString(); }

Record of(const char* readable) { return Record::parse(readable); }

template <class Whole>
std::vector<std::string> parts(const Whole& whole) {
  std::vector<std::string> all;
  for (const FieldView& part : whole) all.push_back(part.str());
  return all;
}

// --- what does not compile -----------------------------------------------------------------------

// Views of a temporary would dangle.
template <class R, class = void>
constexpr bool kHasBrackets = false;
template <class R>
constexpr bool kHasBrackets<R, std::void_t<decltype(std::declval<R>()[1])>> = true;
template <class R, class = void>
constexpr bool kHasValue = false;
template <class R>
constexpr bool kHasValue<R, std::void_t<decltype(std::declval<R>().value(1))>> = true;
template <class R, class = void>
constexpr bool kHasGet = false;
template <class R>
constexpr bool kHasGet<R, std::void_t<decltype(std::declval<R>().get(Position(1)))>> = true;
template <class R, class = void>
constexpr bool kHasView = false;
template <class R>
constexpr bool kHasView<R, std::void_t<decltype(std::declval<R>().view())>> = true;
template <class R, class = void>
constexpr bool kHasBegin = false;
template <class R>
constexpr bool kHasBegin<R, std::void_t<decltype(std::declval<R>().begin())>> = true;

static_assert(kHasBrackets<Record&> && kHasBrackets<const Record&>);
static_assert(kHasValue<Record&> && kHasValue<const Record&>);
static_assert(kHasGet<Record&> && kHasGet<const Record&>);
static_assert(kHasView<Record&> && kHasView<const Record&>);
static_assert(kHasBegin<Record&> && kHasBegin<const Record&>);
static_assert(!kHasBrackets<Record> && !kHasBrackets<const Record>);
static_assert(!kHasValue<Record> && !kHasValue<const Record>);
static_assert(!kHasGet<Record> && !kHasGet<const Record>);
static_assert(!kHasView<Record> && !kHasView<const Record>);
static_assert(!kHasBegin<Record> && !kHasBegin<const Record>);

// A null pointer is no text.
template <class T, class = void>
constexpr bool kBracedRecordTakes = false;
template <class T>
constexpr bool kBracedRecordTakes<T, std::void_t<decltype(Record{"a", std::declval<T>()})>> = true;
template <class T, class = void>
constexpr bool kSetTakes = false;
template <class T>
constexpr bool
    kSetTakes<T, std::void_t<decltype(std::declval<Record&>().set(1, std::declval<T>()))>> = true;
template <class T, class = void>
constexpr bool kComparesWith = false;
template <class T>
constexpr bool
    kComparesWith<T, std::void_t<decltype(std::declval<FieldView>() == std::declval<T>())>> = true;

static_assert(!std::is_constructible_v<Record, std::nullptr_t>);
static_assert(!std::is_assignable_v<FieldReference, std::nullptr_t>);
static_assert(kBracedRecordTakes<const char*> && !kBracedRecordTakes<std::nullptr_t>);
static_assert(kSetTakes<const char*> && !kSetTakes<std::nullptr_t>);
static_assert(kComparesWith<const char*> && !kComparesWith<std::nullptr_t>);

// Nor is a character that is no byte, and text is not compared with numbers.
static_assert(std::is_assignable_v<FieldReference, char>);
static_assert(!std::is_assignable_v<FieldReference, wchar_t>);
static_assert(!std::is_assignable_v<FieldReference, char32_t>);
static_assert(!kComparesWith<int>);

// A view becomes a std::string only where that is asked for.
static_assert(!std::is_convertible_v<FieldView, std::string>);
static_assert(!std::is_convertible_v<FieldReference, std::string>);
static_assert(std::is_constructible_v<std::string, FieldView>);
static_assert(std::is_constructible_v<std::string, FieldReference>);

// Ranges of bytes and of records are not ranges of texts.
static_assert(std::is_constructible_v<Record, std::vector<std::string>>);
static_assert(!std::is_convertible_v<std::vector<std::string>, Record>);
static_assert(!std::is_constructible_v<Record, std::vector<char>>);
static_assert(!std::is_constructible_v<Record, std::vector<Record>>);
static_assert(!std::is_constructible_v<Record, int>);

// --- reading -------------------------------------------------------------------------------------

TEST(Record, IsEmptyAtFirst) {
  const Record record;
  EXPECT_TRUE(record.empty());
  EXPECT_EQ(record.count(), 0u);
  EXPECT_EQ(record[1], "");
}

TEST(Record, IsMadeOfAttributes) {
  const Record record{"SMITH", "Oslo", ""};
  EXPECT_EQ(record.bytes(), "SMITH\xFEOslo\xFE");
  EXPECT_EQ(record.count(), 3u);
}

TEST(Record, CountsAttributesFromOne) {
  const Record record{"a", "b", "c"};
  EXPECT_EQ(record[1], "a");
  EXPECT_EQ(record[3], "c");
  EXPECT_EQ(record[4], "");
}

TEST(Record, HasNoAttributeZero) {
  const Record record{"a"};
  Record changed{"a"};
  EXPECT_THROW(static_cast<void>(record[0]), std::out_of_range);
  EXPECT_THROW(static_cast<void>(changed[0]), std::out_of_range);
  EXPECT_THROW(static_cast<void>(record[1][0]), std::out_of_range);
  EXPECT_THROW(changed.set(0, "x"), std::out_of_range);
}

TEST(Record, ReadsValuesAndSubvaluesByChainsOfBrackets) {
  const Record record = of("a^b]c\\d^e");
  EXPECT_EQ(record[2][1], "b");
  EXPECT_EQ(record[2][2][1], "c");
  EXPECT_EQ(record[2][2][2], "d");
  EXPECT_EQ(record[2][2],
            "c\xFC"
            "d");
  EXPECT_EQ(record[3][1][1], "e");
}

TEST(Record, ReadsTheSameByNumbers) {
  const Record record = of("a^b]c\\d^e");
  EXPECT_EQ(record.value(3), "e");
  EXPECT_EQ(record.value(2, 1), "b");
  EXPECT_EQ(record.value(2, 2, 2), "d");
  EXPECT_EQ(record.value(2, 3), "");
  EXPECT_EQ(record.value(9, 9, 9), "");
}

TEST(Record, HasEmptyFieldsWhereNoneAre) {
  const Record record{"a"};
  EXPECT_EQ(record[7][3][2], "");
  EXPECT_EQ(record[1][2], "");
  EXPECT_EQ(record[1][1][2], "");
}

TEST(Record, IsARangeOfAttributes) {
  EXPECT_THAT(parts(Record{"a", "", "c"}), ElementsAre("a", "", "c"));
  EXPECT_THAT(parts(of("a^")), ElementsAre("a", ""));
  EXPECT_THAT(parts(Record()), IsEmpty());
}

TEST(Record, HasRangesOfValuesAndSubvalues) {
  const Record record = of("x^a]b\\c]^y");
  EXPECT_THAT(parts(record[2]), ElementsAre("a",
                                            "b\xFC"
                                            "c",
                                            ""));
  EXPECT_THAT(parts(record[2][2]), ElementsAre("b", "c"));
  EXPECT_THAT(parts(record[2][2][1]), ElementsAre("b"));
  EXPECT_THAT(parts(record[2][3]), IsEmpty());
}

TEST(Record, CountsPartsAsItWalksThem) {
  const Record record = of("x^a]b\\c]^");
  EXPECT_EQ(record.count(), 3u);
  EXPECT_EQ(record[2].count(), 3u);
  EXPECT_EQ(record[2][2].count(), 2u);
  EXPECT_EQ(record[3].count(), 0u);
}

TEST(Record, FindsAPart) {
  const Record record = of("x^a]b]c");
  EXPECT_EQ(record[2].find("b"), 2u);
  EXPECT_EQ(record[2].find("d"), 0u);
  EXPECT_EQ(record.find("x"), 1u);
  Record changing = record;
  EXPECT_EQ(changing[2].find("b"), 2u);
  EXPECT_EQ(of("a^b").find("b"), 2u);
}

TEST(Record, ReadsNumbers) {
  const Record record{"42", "-1.5", "+7", "abc", "", "1e3"};
  EXPECT_EQ(record[1].toInt64(), 42);
  EXPECT_EQ(record[2].toDouble(), -1.5);
  EXPECT_EQ(record[3].toInt64(), 7);
  EXPECT_EQ(record[6].toDouble(), 1000.0);
  for (const std::size_t no : {2, 4, 5, 6}) {
    EXPECT_THROW(static_cast<void>(record[no].toInt64()), Error) << no;
  }
}

TEST(Record, SaysWhichTextIsNoNumber) {
  const Record record{"abc"};
  try {
    static_cast<void>(record[1].toInt64());
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kNotANumber);
    EXPECT_EQ(error.message(), "no number: \"abc\"");
  }
}

// --- changing ------------------------------------------------------------------------------------

TEST(Record, TakesAssignedAttributes) {
  Record record{"a", "b"};
  record[2] = "B";
  EXPECT_EQ(shown(record), "a^B");
}

TEST(Record, AddsWhatIsMissingInFrontOfAnAssignedField) {
  Record record{"a"};
  record[3][2][2] = "x";
  EXPECT_EQ(shown(record), "a^^]\\x");
}

TEST(Record, TakesNumbersInDecimal) {
  Record record;
  record[1] = 42;
  record[2] = -7L;
  EXPECT_EQ(shown(record), "42^-7");
}

TEST(Record, TakesOtherNumbersInTheirShortestForm) {
  Record record;
  record[1] = 1.5;
  record[2] = true;
  record[3] = std::int8_t{-1};
  record[4] = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(shown(record), "1.5^1^-1^18446744073709551615");
}

TEST(Record, TakesNoNumberThatIsNotFinite) {
  Record record{"a"};
  try {
    record[1] = std::numeric_limits<double>::infinity();
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.sqlState(), sqlstate::kBadArgument);
  }
  EXPECT_EQ(shown(record), "a");
}

TEST(Record, TakesACharacterAsText) {
  Record record;
  record[1] = 'c';
  record.append('d').insert(1, 'b').set(4, 'e');
  EXPECT_EQ(shown(record), "b^c^d^e");
}

TEST(Record, TakesNumbersWhereverItTakesText) {
  Record record{"a", 2, 'c', std::string("d"), std::string_view("e")};
  EXPECT_EQ(shown(record), "a^2^c^d^e");
  record.set(1, 1).insert(2, -5).append(6).append(1, 7).append({1, 2}, 8);
  EXPECT_EQ(shown(record), "1]7\\8^-5^2^c^d^e^6");
}

TEST(Record, TakesFieldsWhereverItTakesText) {
  Record from{"a", "b"};
  const Record& constant = from;
  Record record{from[1], constant[2]};
  record.append(from[1]).insert(1, constant[2]).set({2, 2}, from[2]).append(3, constant[1]);
  EXPECT_EQ(shown(record), "b^a]b^b]a^a");
}

TEST(Record, TakesOneFieldForAnother) {
  Record record = of("a]b^c");
  record[2] = record[1];
  EXPECT_EQ(shown(record), "a]b^a]b");
  const Record other{"z"};
  record[1] = other[1];
  EXPECT_EQ(shown(record), "z^a]b");
}

TEST(Record, ReadsThroughAssignablePlaces) {
  Record record = of("a^b]c");
  EXPECT_EQ(record[2][2], "c");
  EXPECT_EQ(record[2].count(), 2u);
  EXPECT_TRUE(record[3].empty());
  const std::string text = record[1].str();
  EXPECT_EQ(text, "a");
  std::vector<std::string> values;
  for (const std::string_view value : record[2]) values.emplace_back(value);
  EXPECT_THAT(values, ElementsAre("b", "c"));
}

TEST(Record, HasNothingBelowASubvalue) {
  Record record{"a"};
  EXPECT_THROW(static_cast<void>(record[1][1][1][1]), std::out_of_range);
  EXPECT_THROW(record.append({1, 1, 1}, "x"), std::out_of_range);
}

TEST(Record, SetsFieldsAtPositions) {
  Record record = of("a^b]c\\d^e");
  record.set(1, "A").set({2, 2}, "C").set({3, 1, 3}, "x");
  EXPECT_EQ(shown(record), "A^b]C^e\\\\x");
}

TEST(Record, SetsTextWithMarksAsSeveralFields) {
  Record record{"a", "b"};
  record.set(2, "x\xFDy");
  EXPECT_EQ(record[2].count(), 2u);
}

TEST(Record, InsertsInFrontOfAField) {
  Record record = of("a^b]c^d");
  record.insert(2, "X");
  EXPECT_EQ(shown(record), "a^X^b]c^d");
  record.insert({3, 2}, "Y");
  EXPECT_EQ(shown(record), "a^X^b]Y]c^d");
  record.insert({3, 2, 1}, "Z");
  EXPECT_EQ(shown(record), "a^X^b]Z\\Y]c^d");
}

TEST(Record, InsertsBehindTheEndAsItSets) {
  Record record{"a"};
  record.insert(3, "c");
  EXPECT_EQ(shown(record), "a^^c");
  Record empty;
  empty.insert(1, "x");
  EXPECT_EQ(shown(empty), "x");
}

TEST(Record, RemovesFields) {
  Record record = of("a^b]c]d^e");
  record.remove({2, 2});
  EXPECT_EQ(shown(record), "a^b]d^e");
  record.remove({2, 2});
  EXPECT_EQ(shown(record), "a^b^e");
  record.remove(1);
  EXPECT_EQ(shown(record), "b^e");
  record.remove(2);
  EXPECT_EQ(shown(record), "b");
  record.remove(1);
  EXPECT_TRUE(record.empty());
}

TEST(Record, RemovesNothingWhereNothingIs) {
  Record record = of("a]b");
  record.remove(5).remove({1, 3}).remove({1, 1, 2});
  EXPECT_EQ(shown(record), "a]b");
}

TEST(Record, AppendsAttributes) {
  Record record;
  record.append("a").append("b").append("");
  EXPECT_EQ(shown(record), "a^b^");
}

TEST(Record, HasNoAttributeToAppendAnEmptyOneTo) {
  Record record;
  record.append("").append("x");
  EXPECT_EQ(shown(record), "x");
  EXPECT_EQ(shown(Record{"", "x"}), "^x");
}

TEST(Record, IsMadeOfARangeOfTexts) {
  EXPECT_EQ(shown(Record(std::vector<std::string>{"", "a", "b"})), "^a^b");
  EXPECT_EQ(shown(Record(std::list<std::string_view>{"a", "b"})), "a^b");
  EXPECT_EQ(shown(Record(std::array<const char*, 2>{"a", "b"})), "a^b");
  EXPECT_EQ(shown(Record(std::vector<int>{7, -8})), "7^-8");
  const char* const texts[] = {"a", "b"};
  EXPECT_EQ(shown(Record(texts)), "a^b");
  const std::vector<std::string> braced{"a", "b"};
  EXPECT_EQ(shown(Record{braced}), "a^b");
  EXPECT_TRUE(Record(std::vector<std::string>()).empty());
}

TEST(Record, IsMadeOfTheFieldsOfAnother) {
  const Record record = of("a^b]c");
  EXPECT_EQ(shown(Record(std::vector<FieldView>(record.begin(), record.end()))), "a^b]c");
  EXPECT_EQ(shown(Record(record[2])), "b]c");
}

TEST(Record, AppendsValuesAndSubvalues) {
  Record record{"a", "b"};
  record.append(2, "c").append({2, 2}, "d").append(4, "e");
  EXPECT_EQ(shown(record), "a^b]c\\d^^e");
  record.append(3, "first");
  EXPECT_EQ(shown(record), "a^b]c\\d^first^e");
}

TEST(Record, TakesTextOfItsOwn) {
  Record record = of("first^second");
  record.append(record.bytes());
  EXPECT_EQ(shown(record), "first^second^first^second");
  record.append(1, record[2].view());
  EXPECT_EQ(shown(record), "first]second^second^first^second");
  record.set(4, record[1].view());
  EXPECT_EQ(shown(record), "first]second^second^first^first]second");
  record.insert(1, record[3].view());
  EXPECT_EQ(shown(record), "first^first]second^second^first^first]second");
}

TEST(Record, HoldsAnyBytes) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  Record record(all);
  EXPECT_EQ(record.bytes(), all);
  record[9] = std::string("\0x", 2);
  EXPECT_EQ(record[9], std::string_view("\0x", 2));
}

TEST(Record, GivesItsBytesAway) {
  Record record{"a long enough text that it lies on the heap"};
  const char* const where = record.bytes().data();
  const std::string bytes = std::move(record).bytes();
  EXPECT_EQ(bytes.data(), where);
}

TEST(Record, MovesWithoutCopying) {
  Record record{"a long enough text that it lies on the heap"};
  const char* const where = record.bytes().data();
  const Record moved = std::move(record);
  EXPECT_EQ(moved.bytes().data(), where);
}

TEST(Record, ComparesBytes) {
  EXPECT_EQ(Record({"a", "b"}), Record("a\xFE"
                                       "b"));
  EXPECT_NE((Record{"a"}), (Record{"a", ""}));
}

TEST(Record, ComparesFieldsWithFieldsAndText) {
  Record record{"a", "b", "a"};
  const Record constant{"a"};
  EXPECT_TRUE(record[1] == record[3]);
  EXPECT_FALSE(record[1] == record[2]);
  EXPECT_TRUE(record[1] != record[2]);
  EXPECT_TRUE(record[1] == constant[1]);
  EXPECT_TRUE(constant[1] == record[3]);
  EXPECT_TRUE(constant[1] == constant[1]);
  EXPECT_TRUE(constant[1] != record[2]);
  const std::string text = "b";
  EXPECT_TRUE(record[2] == text);
  EXPECT_TRUE(text == record[2]);
  EXPECT_TRUE(record[2] == "b");
  EXPECT_TRUE("b" == record[2]);
  EXPECT_TRUE(constant[1] != text);
  EXPECT_TRUE(std::string_view(text) != constant[1]);
}

TEST(Record, IsOrderedByItsBytes) {
  EXPECT_LT(Record{"a"}, (Record{"a", "b"}));
  EXPECT_GT(Record("\xFF"), Record("z"));
  EXPECT_LE(Record{"a"}, Record{"a"});
  EXPECT_GE(Record{"b"}, Record{"a"});
  const std::map<Record, int> byRecord{{{"b"}, 2}, {{"a", "x"}, 1}};
  EXPECT_EQ(byRecord.begin()->second, 1);
}

TEST(Record, IsAKeyOfUnorderedContainers) {
  std::unordered_map<Record, int> counts;
  ++counts[Record{"a", "b"}];
  ++counts[of("a^b")];
  ++counts[Record{"a"}];
  EXPECT_EQ(counts.size(), 2u);
  EXPECT_EQ(counts.at(Record{"a", "b"}), 2);
}

// --- against a simple model ----------------------------------------------------------------------

/// The same operations, done by taking the record apart and putting it together again.
class Model {
public:
  explicit Model(std::string bytes) : bytes_(std::move(bytes)) {}
  const std::string& bytes() const { return bytes_; }

  std::string get(Position at) const {
    std::string field = bytes_;
    for (const auto& [number, mark] : path(at)) {
      const std::vector<std::string> parts = split(field, mark);
      field = number <= parts.size() ? parts[number - 1] : "";
    }
    return field;
  }
  void set(Position at, const std::string& text) { change(bytes_, path(at), Set, text); }
  void insert(Position at, const std::string& text) { change(bytes_, path(at), Insert, text); }
  void remove(Position at) { change(bytes_, path(at), Remove, ""); }

private:
  enum What { Set, Insert, Remove };
  using Path = std::vector<std::pair<std::size_t, char>>;

  static Path path(Position at) {
    Path steps{{at.attribute, kAttributeMark}};
    if (at.value > 0) steps.emplace_back(at.value, kValueMark);
    if (at.subvalue > 0) steps.emplace_back(at.subvalue, kSubvalueMark);
    return steps;
  }
  static std::vector<std::string> split(const std::string& field, char mark) {
    std::vector<std::string> parts(1);
    for (const char c : field) {
      if (c == mark) {
        parts.emplace_back();
      } else {
        parts.back() += c;
      }
    }
    return parts;
  }
  static void change(std::string& field, const Path& steps, What what, const std::string& text) {
    const auto [number, mark] = steps.front();
    std::vector<std::string> parts = split(field, mark);
    const bool isThere = number <= parts.size();
    if (!isThere && what == Remove) return;
    if (!isThere) parts.resize(number);
    const auto part = parts.begin() + static_cast<std::ptrdiff_t>(number) - 1;
    if (steps.size() > 1) {
      change(*part, Path(steps.begin() + 1, steps.end()), what, text);
    } else if (what == Remove) {
      parts.erase(part);
    } else if (what == Insert && isThere && !field.empty()) {
      parts.insert(part, text);
    } else {
      *part = text;
    }
    field.clear();
    for (const std::string& one : parts) {
      if (&one != parts.data()) field += mark;
      field += one;
    }
  }

  std::string bytes_;
};

TEST(Record, ChangesAsASimpleModelDoes) {
  std::mt19937 random(4711);
  const auto upTo = [&random](std::size_t most) { return random() % (most + 1); };
  const char kAlphabet[] = {'a', 'b', '\0', '\xFF', kAttributeMark, kValueMark, kSubvalueMark};
  const auto text = [&](std::size_t most) {
    std::string bytes;
    for (std::size_t n = upTo(most); n > 0; --n) bytes += kAlphabet[upTo(sizeof kAlphabet - 1)];
    return bytes;
  };
  for (int round = 0; round < 20'000; ++round) {
    const std::string begin = text(12);
    const std::size_t value = upTo(3);
    const Position at(1 + upTo(4), value, value > 0 ? upTo(3) : 0);
    const std::string put = text(3);
    Record record(begin);
    Model model(begin);
    switch (upTo(2)) {
      case 0:
        record.set(at, put);
        model.set(at, put);
        break;
      case 1:
        record.insert(at, put);
        model.insert(at, put);
        break;
      default:
        record.remove(at);
        model.remove(at);
    }
    ASSERT_EQ(shown(record), shown(Record(model.bytes())))
        << "from " << shown(Record(begin)) << " at " << at.attribute << ' ' << at.value << ' '
        << at.subvalue << " with " << shown(Record(put));
    ASSERT_EQ(record.get(at).str(), model.get(at));
  }
}

// --- for people ----------------------------------------------------------------------------------

TEST(Record, ShowsMarksAsPrintableCharacters) {
  EXPECT_EQ(Record("a\xFE"
                   "b\xFD"
                   "c\xFC"
                   "d")
                .toString(),
            "a^b]c\\d");
}

TEST(Record, ShowsFieldsTheSameWay) {
  Record record = of("a^b]c\\d");
  const Record& constant = record;
  EXPECT_EQ(record[2].toString(), "b]c\\d");
  EXPECT_EQ(constant[2][2].toString(), "c\\d");
}

TEST(Record, IsPrintedAsItIsShown) {
  std::ostringstream out;
  out << of("a^b]~5E");
  EXPECT_EQ(out.str(), "a^b]~5E");
}

TEST(Record, HasFieldsThatArePrintedAsTheirText) {
  Record record{"a~b", "c"};
  const Record& constant = record;
  std::ostringstream out;
  out << record[1] << ' ' << constant[1] << std::setw(3) << record[2];
  EXPECT_EQ(out.str(), "a~b a~b  c");
}

TEST(Record, ShowsTextAsItIs) { EXPECT_EQ(Record("Żółć 漢 😀").toString(), "Żółć 漢 😀"); }

TEST(Record, EscapesWhatWouldBeReadAsSomethingElse) {
  EXPECT_EQ(Record("^]\\~").toString(), "~5E~5D~5C~7E");
}

TEST(Record, EscapesWhatATerminalWouldObey) {
  EXPECT_EQ(Record("\x1B[2J\x07\n\x7F\xC2\x9B").toString(), "~1B[2J~07~0A~7F~C2~9B");
}

TEST(Record, EscapesWhatIsNoUtf8) {
  EXPECT_EQ(Record("\xFF\xC0\xAF\xED\xA0\x80\xE2\x82").toString(), "~FF~C0~AF~ED~A0~80~E2~82");
}

TEST(Record, ParsesWhatItShows) {
  std::string all;
  for (int round = 0; round < 2; ++round) {
    for (int byte = 255; byte >= 0; --byte) all += static_cast<char>(byte);
  }
  EXPECT_EQ(Record::parse(Record(all).toString()).bytes(), all);
}

TEST(Record, ParsesHexadecimalDigitsInEitherCase) {
  EXPECT_EQ(Record::parse("~fF~Fe").bytes(), "\xFF\xFE");
}

TEST(Record, RefusesHalfAnEscape) {
  for (const char* const text : {"~", "~F", "~FG", "a~", "~ 41"}) {
    EXPECT_THROW(Record::parse(text), Error) << text;
  }
}

}  // namespace
}  // namespace nox::client
