#include "client/command/load/record_reader.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "client/command/base64.h"

namespace nox::command {

namespace {

// FNV-1a, of 64 bits.
constexpr std::uint64_t kDigestBasis = 0xCBF29CE484222325u;
constexpr std::uint64_t kDigestPrime = 0x100000001B3u;

std::uint64_t digestWith(std::uint64_t digest, std::string_view bytes) {
  for (const char c : bytes) digest = (digest ^ static_cast<unsigned char>(c)) * kDigestPrime;
  return digest;
}

}  // namespace

LineReader::LineReader(const std::string& path)
    : input_(path), block_(kBlock, '\0'), digest_(kDigestBasis) {}

bool LineReader::next(std::string& line) {
  line.clear();
  bool any = false;
  for (;;) {
    if (rest_.empty()) {
      rest_ = std::string_view(block_).substr(0, input_.read(block_.data(), block_.size()));
      if (rest_.empty()) break;
    }
    if (!any) ++number_;
    any = true;
    const std::size_t feed = rest_.find('\n');
    const std::string_view piece = rest_.substr(0, feed);
    if (line.size() + piece.size() > kLongestLine) {
      throw Refused("line " + std::to_string(number_) + " of " + input_.name() + " is too long");
    }
    line += piece;
    const std::size_t taken = std::min(piece.size() + 1, rest_.size());
    bytes_ += taken;
    rest_.remove_prefix(taken);
    if (feed != std::string_view::npos) break;
  }
  // What spreadsheets put in front of UTF-8.
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (number_ == 1 && line.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    line.erase(0, kByteOrderMark.size());
  }
  // As if each had its line feed: a last line may get one later.
  if (any) digest_ = digestWith(digestWith(digest_, line), "\n");
  return any;
}

namespace {

using client::Record;

/// Where a column's value goes.
struct Target {
  bool isId = false;
  std::size_t attribute = 0;  // 0: nowhere, for another column has the id
};

/// Makes records of rows of texts, by the names in their heading.
class Columns {
public:
  Columns(const std::vector<std::string>& heading, const ColumnMapping& mapping) {
    bool hasId = false;
    std::map<std::size_t, std::string> nameOf;
    for (const std::string& name : heading) {
      const std::optional<std::size_t> item = itemOf(name, mapping);
      bool isId =
          mapping.idColumn.empty() ? name == "ID" || name == "@ID" : name == mapping.idColumn;
      if (isId && hasId) {
        if (!item) throw Refused("two columns are the id");
        isId = false;
      }
      hasId = hasId || isId;
      const std::size_t attribute = isId ? 0 : item ? *item : numberIn(name);
      targets_.push_back({isId, attribute});
      if (attribute == 0) continue;
      const auto [other, isNew] = nameOf.emplace(attribute, name);
      if (!isNew) {
        throw Refused("the columns \"" + other->second + "\" and \"" + name +
                      "\" are both attribute " + std::to_string(attribute));
      }
    }
    if (!hasId) {
      throw Refused(mapping.idColumn.empty() ? "no column is called ID; name it with --id"
                                             : "no column is called " + mapping.idColumn);
    }
  }

  /// Nothing for null. Throws std::runtime_error, also for a row without an id.
  void fill(InputRecord& record, const std::vector<std::optional<std::string>>& values) const {
    if (values.size() != targets_.size()) {
      throw std::runtime_error(std::to_string(values.size()) + " values under " +
                               std::to_string(targets_.size()) + " columns");
    }
    // What the row before has left there must not become this row's.
    record.id.clear();
    record.record = Record();
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (!values[i]) continue;
      if (targets_[i].isId) {
        record.id = *values[i];
      } else if (targets_[i].attribute > 0 && !values[i]->empty()) {
        record.record.set(client::Position(targets_[i].attribute),
                          Record::parse(*values[i]).bytes());
      }
    }
    if (record.id.empty()) throw std::runtime_error("the id is empty");
  }

private:
  static std::optional<std::size_t> itemOf(const std::string& name, const ColumnMapping& mapping) {
    for (const DictionaryItem& item : mapping.items) {
      if (item.name == name) return item.attribute;
    }
    return std::nullopt;
  }

  static std::size_t numberIn(const std::string& name) {
    std::size_t number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error == std::errc() && end == name.data() + name.size() && number >= 1 &&
        number <= kMostAttributes) {
      return number;
    }
    throw Refused("the column \"" + name +
                  "\" is neither a D item of the dictionary nor the number of an attribute");
  }

  std::vector<Target> targets_;
};

class CsvReader : public RecordReader {
public:
  CsvReader(LineReader& lines, const ColumnMapping& mapping) : lines_(lines) {
    InputRecord heading;
    std::vector<std::optional<std::string>> values;
    if (!readRow(heading, values)) throw Refused("there is no line with the names of the columns");
    columns_.emplace(namesOf(values), mapping);
  }

  bool next(InputRecord& record) override {
    std::vector<std::optional<std::string>> values;
    if (!readRow(record, values)) return false;
    try {
      columns_->fill(record, values);
    } catch (const std::runtime_error& error) {
      throw BadRecord(record.line, error.what(), record.source);
    }
    return true;
  }

private:
  static std::vector<std::string> namesOf(const std::vector<std::optional<std::string>>& values) {
    std::vector<std::string> names;
    names.reserve(values.size());
    for (const auto& value : values) names.push_back(value.value_or(""));
    return names;
  }

  /// Takes further lines while a quotation is open.
  bool readRow(InputRecord& record, std::vector<std::optional<std::string>>& values) {
    std::string line;
    do {
      if (!lines_.next(line)) return false;
    } while (line.empty() || line == "\r");
    record.line = lines_.number();
    record.source = line;
    std::string value;
    bool quoted = false;     // inside a quotation
    bool wasQuoted = false;  // this value has one
    std::size_t i = 0;
    for (;;) {
      if (i == line.size()) {
        if (!quoted) break;
        value += '\n';
        if (!lines_.next(line)) {
          throw BadRecord(record.line, "a quotation does not end", record.source);
        }
        if (record.source.size() + line.size() >= LineReader::kLongestLine) {
          throw Refused("the quotation that begins in line " + std::to_string(record.line) +
                        " is too long: is its end missing?");
        }
        record.source += "\n" + line;
        i = 0;
        continue;
      }
      const char c = line[i++];
      if (quoted) {
        if (c != '"') {
          value += c;
        } else if (i < line.size() && line[i] == '"') {
          value += '"';
          ++i;
        } else {
          quoted = false;
        }
      } else if (c == '"' && value.empty() && !wasQuoted) {
        quoted = true;
        wasQuoted = true;
      } else if (c == ',') {
        add(values, value, wasQuoted);
      } else if (c == '\r' && i == line.size()) {
        break;
      } else {
        value += c;
      }
    }
    add(values, value, wasQuoted);
    return true;
  }

  static void add(std::vector<std::optional<std::string>>& values, std::string& value,
                  bool& wasQuoted) {
    values.emplace_back(value.empty() && !wasQuoted ? std::nullopt : std::optional(value));
    value.clear();
    wasQuoted = false;
  }

  LineReader& lines_;
  std::optional<Columns> columns_;
};

class TsvReader : public RecordReader {
public:
  TsvReader(LineReader& lines, const ColumnMapping& mapping) : lines_(lines) {
    std::string line;
    if (!lines_.next(line)) throw Refused("there is no line with the names of the columns");
    std::vector<std::string> names;
    for (const auto& value : split(line)) names.push_back(value.value_or(""));
    columns_.emplace(names, mapping);
  }

  bool next(InputRecord& record) override {
    do {
      if (!lines_.next(record.source)) return false;
    } while (record.source.empty());
    record.line = lines_.number();
    try {
      columns_->fill(record, split(record.source));
    } catch (const std::runtime_error& error) {
      throw BadRecord(record.line, error.what(), record.source);
    }
    return true;
  }

private:
  static std::vector<std::optional<std::string>> split(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    std::vector<std::optional<std::string>> values;
    for (std::size_t at = 0; at <= line.size();) {
      const std::size_t tab = std::min(line.find('\t', at), line.size());
      const std::string_view value = line.substr(at, tab - at);
      values.push_back(value == "\\N" ? std::nullopt : std::optional(unescaped(value)));
      at = tab + 1;
    }
    return values;
  }

  static std::string unescaped(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\\' || i + 1 == text.size()) {
        value += text[i];
        continue;
      }
      switch (text[++i]) {
        case 't':
          value += '\t';
          break;
        case 'n':
          value += '\n';
          break;
        case 'r':
          value += '\r';
          break;
        case '\\':
          value += '\\';
          break;
        default:  // not of this form's making: as it stands
          value += '\\';
          value += text[i];
      }
    }
    return value;
  }

  LineReader& lines_;
  std::optional<Columns> columns_;
};

/// What {"id": ..., "record": ...} holds, taken while it is parsed; other keys are passed over. The
/// id is a text, or {"base64": "..."} for any bytes; the record is one of them, or an array of
/// them, or of arrays, with a mark between two parts. Numbers are texts, as they were written: no
/// digit of 1.10, or of an id of thirty digits, is lost on the way through a number of this
/// machine.
class RecordOfJson : public nlohmann::json_sax<nlohmann::json> {
public:
  /// Throws std::runtime_error.
  explicit RecordOfJson(const std::string& text) {
    nlohmann::json::sax_parse(text, this);
    if (!id_ || !record_) {
      throw std::runtime_error("{\"id\": ..., \"record\": [...]} was expected");
    }
  }
  std::string takeId() { return std::move(*id_); }
  std::string takeRecord() { return std::move(*record_); }

  bool null() override {
    if (isBytes_) refuse("object");
    if (target_ == &id_) refuse("null");
    beginPart();
    return true;
  }
  bool boolean(bool value) override {
    if (isBytes_) refuse("object");
    return add(value ? "true" : "false");
  }
  // Zero comes with a sign only where it was written with one.
  bool number_integer(number_integer_t value) override {
    return add(value == 0 ? "-0" : std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override { return add(std::to_string(value)); }
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    // Its point is the locale's by now.
    string_t number = text;
    const std::size_t point = number.find_first_not_of("+-0123456789eE");
    if (point != string_t::npos) number[point] = '.';
    return add(number);
  }
  bool string(string_t& value) override { return add(value); }
  bool binary(binary_t& /*value*/) override { return false; }  // JSON's text has none

  bool start_object(std::size_t /*elements*/) override {
    if (target_ != nullptr) {
      if (isBytes_) refuse("object");
      isBytes_ = true;
      isEmpty_ = true;
    }
    isInObject_ = isInObject_ || depth_ == 0;
    ++depth_;
    return true;
  }
  bool key(string_t& value) override {
    if (isBytes_) {
      if (!isEmpty_ || value != "base64") refuse("object");
    } else if (isInObject_ && depth_ == 1) {
      target_ = value == "id" ? &id_ : value == "record" ? &record_ : nullptr;
      if (target_ != nullptr) target_->emplace();
    }
    return true;
  }
  bool end_object() override {
    if (isBytes_ && isEmpty_) refuse("object");
    isBytes_ = false;
    --depth_;
    return true;
  }
  bool start_array(std::size_t /*elements*/) override {
    ++depth_;
    if (target_ == nullptr) return true;
    if (isBytes_) refuse("object");
    if (target_ == &id_) refuse("array");
    beginPart();
    if (level_ == sizeof kMarks) throw std::runtime_error("arrays nest three deep at most");
    hasParts_[level_++] = false;
    return true;
  }
  bool end_array() override {
    --depth_;
    if (target_ != nullptr) --level_;
    return true;
  }

  bool parse_error(std::size_t position, const std::string& /*token*/,
                   const nlohmann::detail::exception& error) override {
    // Without what it is called in a program, and the line, which is always the first.
    std::string why = error.what();
    why.erase(0, why.find("] ") + 2);
    if (why.compare(0, 11, "parse error") == 0) why.erase(0, why.find(": ") + 2);
    throw std::runtime_error("byte " + std::to_string(position) + ": " + why);
  }

private:
  static constexpr char kMarks[] = {client::kAttributeMark, client::kValueMark,
                                    client::kSubvalueMark};

  /// Not with the value itself, which may be long, and deeper than the stack.
  [[noreturn]] static void refuse(const char* kind) {
    throw std::runtime_error(std::string("a text was expected; this is of the kind ") + kind);
  }
  /// A mark, unless it is the first of its array.
  void beginPart() {
    if (target_ == nullptr || level_ == 0) return;
    if (std::exchange(hasParts_[level_ - 1], true)) **target_ += kMarks[level_ - 1];
  }
  bool add(const std::string& text) {
    if (target_ == nullptr) return true;
    beginPart();
    if (isBytes_) {
      **target_ += bytesOfBase64(text);
      isEmpty_ = false;
    } else {
      **target_ += text;
    }
    return true;
  }

  std::optional<std::string> id_;
  std::optional<std::string> record_;
  std::optional<std::string>* target_ = nullptr;  // whose value comes; null: nobody wants it
  std::size_t depth_ = 0;                         // of what is open
  bool isInObject_ = false;                       // the outermost is one
  std::size_t level_ = 0;                         // arrays of the record that are open
  bool hasParts_[sizeof kMarks] = {};             // which of them are not empty
  bool isBytes_ = false;                          // {"base64": ...} is open
  bool isEmpty_ = false;                          // without its text so far
};

class JsonReader : public RecordReader {
public:
  explicit JsonReader(LineReader& lines) : lines_(lines) {}

  bool next(InputRecord& record) override {
    do {
      if (!lines_.next(record.source)) return false;
    } while (record.source.find_first_not_of(" \t\r") == std::string::npos);
    record.line = lines_.number();
    try {
      RecordOfJson read(record.source);
      record.id = read.takeId();
      record.record = Record(read.takeRecord());
    } catch (const std::exception& error) {
      throw BadRecord(record.line, error.what(), record.source);
    }
    return true;
  }

private:
  LineReader& lines_;
};

}  // namespace

std::unique_ptr<RecordReader> makeCsvReader(LineReader& lines, const ColumnMapping& mapping) {
  return std::make_unique<CsvReader>(lines, mapping);
}

std::unique_ptr<RecordReader> makeTsvReader(LineReader& lines, const ColumnMapping& mapping) {
  return std::make_unique<TsvReader>(lines, mapping);
}

std::unique_ptr<RecordReader> makeJsonReader(LineReader& lines) {
  return std::make_unique<JsonReader>(lines);
}

}  // namespace nox::command
