#include "tests/protocol/message_document.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <map>
#include <sstream>
#include <string_view>
#include <vector>

#include "nox/core/archive.h"
#include "nox/core/big_endian.h"
#include "tests/protocol/message_table.h"
#include "tests/support/bytes.h"
#include "tests/support/contents.h"
#include "tests/support/frames.h"

namespace nox::test {

namespace {

constexpr char kIntroduction[] = R"(# Messages

<!-- Made by `cmake --build build/dev --target messages_doc`; a test compares it with the code. -->

Every message and every object inside one: its type code, its class, the names under which the factories
of the library know it, its fields in the order in which they travel, and one frame. The bytes of
integers, strings, blobs and objects are described in [wire-format.md](wire-format.md).

Kinds of fields:

- `int`: a signed 32-bit number. Flags and counts are numbers too.
- `string`: text in a `NOXPString`; absent, it travels as the null object.
- `text`: text in a `std::string`, which is never absent.
- `blob`: bytes in a `NOXPBlob`; absent, it travels as the null object.
- `object`: an object of the class named; absent, it travels as the null object.

The name of a field is not on the wire; the XML form shows it. Where it is read under another name than it
is written, both are given. The default is what a new object holds; a dash means that a new object does not
write the field at all. All classes stand in `nox` or below it, `nox::noxp::sql` being the SQL service and
`nox::noxp::remote` the remote one.

Code 1 is the null object and belongs to no class. Code 506 is an HTTP request, whose class is the
application's (`nox::noxp::HTTPRequestProt` is its base); it has no frame.
)";

/// One field as an object passes it to an archive.
struct Field {
  int depth;  // 0 for the message's own
  std::string kind;
  std::string name;  // empty for none
  std::string value;
  int number;  // of an int its value, of an object its type code
};

constexpr char kEnd[] = "end";

std::string inQuotes(const std::string& text) { return "\"" + text + "\""; }

/// Notes what is written, with the fields of nested objects.
class FieldList : public Writer {
public:
  using Writer::process;

  Archive& process(NOXPBlob* value, const char* name) override {
    note("blob", name, value ? shown(contentOf(value)) : "null");
    return *this;
  }
  Archive& process(NOXPString* value, const char* name) override {
    note("string", name, value ? inQuotes(contentOf(value)) : "null");
    return *this;
  }
  Archive& process(std::string& value, const char* name) override {
    note("text", name, inQuotes(value));
    return *this;
  }
  Archive& process(int& value, const char* name) override {
    note("int", name, std::to_string(value), value);
    return *this;
  }
  Archive& process(Serializable* value, const char* name) override {
    if (!value) {
      note("object", name, "null");
      return *this;
    }
    note("object", name, "object", value->getType());
    ++depth_;
    value->serialize(*this, static_cast<unsigned int>(value->getClassVersion()));
    --depth_;
    note(kEnd, nullptr, "");
    return *this;
  }

  const std::vector<Field>& fields() const { return fields_; }
  /// The message's own fields alone.
  std::vector<Field> ownFields() const {
    std::vector<Field> own;
    for (const Field& field : fields_) {
      if (field.depth == 0 && field.kind != kEnd) own.push_back(field);
    }
    return own;
  }

private:
  static std::string shown(const std::string& bytes) {
    if (bytes.empty()) return "empty";
    const bool printable = std::all_of(bytes.begin(), bytes.end(),
                                       [](unsigned char c) { return std::isprint(c) != 0; });
    return printable ? inQuotes(bytes) : hex(bytes);
  }
  void note(const char* kind, const char* name, const std::string& value, int number = 0) {
    fields_.push_back({depth_, kind, name ? name : "", value, number});
  }

  int depth_ = 0;
  std::vector<Field> fields_;
};

/// Notes under which names fields are read. Numbers are those that were written, so that counts
/// lead to as many fields.
class NameList : public Reader {
public:
  using Reader::process;
  explicit NameList(const std::vector<Field>& written) : written_(written) {}

  Archive& process(NOXPBlob*, const char* name) override { return note("blob", name); }
  Archive& process(NOXPString*, const char* name) override { return note("string", name); }
  Archive& process(std::string&, const char* name) override { return note("text", name); }
  Archive& process(int& value, const char* name) override {
    if (fields_.size() < written_.size()) value = written_[fields_.size()].number;
    return note("int", name);
  }
  Archive& process(Serializable*, const char* name) override { return note("object", name); }

  const std::vector<Field>& fields() const { return fields_; }

private:
  Archive& note(const char* kind, const char* name) {
    fields_.push_back({0, kind, name ? name : "", "", 0});
    return *this;
  }

  const std::vector<Field>& written_;
  std::vector<Field> fields_;
};

FieldList fieldsWrittenBy(Serializable& object, int version) {
  FieldList list;
  object.serialize(list, static_cast<unsigned int>(version));
  return list;
}

const MessageRow* rowOf(int code) {
  for (const MessageRow* row : allRows()) {
    if (row->code == code) return row;
  }
  return nullptr;
}

std::string headingOf(const MessageRow& row) {
  return std::to_string(row.code) + " " + row.shortName();
}

std::string linkTo(const MessageRow& row, const std::string& text) {
  std::string anchor = headingOf(row);
  for (char& c : anchor) c = c == ' ' ? '-' : static_cast<char>(std::tolower(c));
  return "[" + text + "](#" + anchor + ")";
}

/// `text` in lines of up to 100 columns, without a line break at the end.
std::string wrapped(const std::string& text) {
  constexpr std::size_t kColumns = 100;
  std::string result;
  std::size_t column = 0;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (column > 0 && column + 1 + word.size() > kColumns) {
      result += '\n';
      column = 0;
    } else if (column > 0) {
      result += ' ';
      ++column;
    }
    result += word;
    column += word.size();
  }
  return result;
}

std::string shownName(const Field& field) {
  return field.name.empty() ? "none" : "`" + field.name + "`";
}

/// The name as written and, where it differs, as read; `read` is null for what is not read.
std::string nameCell(const Field& written, const Field* read) {
  const std::string name = shownName(written);
  if (!read) return name + ", not read";
  if (read->kind != written.kind) return name + ", read as " + read->kind + " " + shownName(*read);
  return read->name == written.name ? name : name + ", read as " + shownName(*read);
}

std::string kindCell(const Field& field) {
  const MessageRow* const nested =
      field.kind == "object" && field.number != 0 ? rowOf(field.number) : nullptr;
  return nested ? field.kind + " " + linkTo(*nested, std::to_string(nested->code)) : field.kind;
}

std::string defaultCell(const std::vector<Field>& defaults, std::size_t i, const Field& field) {
  // A new object may write fewer fields, but those it does write come in the same places.
  if (i >= defaults.size() || defaults[i].kind != field.kind || defaults[i].name != field.name) {
    return "-";
  }
  return defaults[i].value == "object" ? "default" : defaults[i].value;
}

void writeFields(std::ostream& out, const MessageRow& row, int version) {
  const std::vector<Field> written =
      fieldsWrittenBy(*row.example(version).message, version).ownFields();
  if (written.empty()) {
    out << "No fields.\n\n";
    return;
  }
  const std::vector<Field> defaults = fieldsWrittenBy(*row.makeDefault(), version).ownFields();
  NameList names(written);
  if (row.defaultReads != DefaultReads::never) {
    row.makeDefault()->serialize(names, static_cast<unsigned int>(version));
  }
  out << "| | Kind | Name | Default |\n|---|---|---|---|\n";
  for (std::size_t i = 0; i < written.size(); ++i) {
    const Field* const read = i < names.fields().size() ? &names.fields()[i] : nullptr;
    out << "| " << i + 1 << " | " << kindCell(written[i]) << " | " << nameCell(written[i], read)
        << " | " << defaultCell(defaults, i, written[i]) << " |\n";
  }
  out << "\n";
}

/// A frame in hexadecimal, a line per field, with comments.
class FrameText {
public:
  explicit FrameText(std::string frame) : frame_(std::move(frame)) {}

  std::string of(const std::vector<Field>& fields) {
    twoParts(4, 1, "length, [");
    head(0, "");
    for (const Field& field : fields) {
      const int depth = field.depth + 1;
      if (field.kind == kEnd) {
        line(depth, take(1), "");
      } else if (field.kind == "object" && field.value != "null") {
        head(depth, field.name);
      } else {
        line(depth, take(sizeOfValue()), withName(field.name, field.value));
      }
    }
    twoParts(1, 1, "");
    return out_.str();
  }

private:
  static std::string withName(const std::string& name, const std::string& what) {
    constexpr std::size_t kLongest = 40;
    const std::string cut = what.size() > kLongest ? what.substr(0, kLongest) + "..." : what;
    return name.empty() ? cut : name + ": " + cut;
  }

  std::string take(std::size_t n) {
    const std::string taken = hex(std::string_view(frame_).substr(at_, n));
    at_ += n;
    return taken;
  }

  void twoParts(std::size_t first, std::size_t second, const std::string& comment) {
    const std::string begin = take(first);
    line(0, begin + "  " + take(second), comment);
  }

  /// Bytes of the int, string, blob or null object that comes next.
  std::size_t sizeOfValue() const {
    const char* const value = frame_.data() + at_;
    switch (*value) {
      case 's':
        return 4 + loadBigEndian16(value + 1);
      case 'j':
        return 8 + static_cast<std::size_t>(loadBigEndian32(value + 2));
      case 'L':
        return 7;
      default:
        return 5;
    }
  }

  void head(int depth, const std::string& name) {
    const char* const object = frame_.data() + at_;
    const std::string what = "type " + std::to_string(loadBigEndian32(object + 2)) + ", version " +
                             std::to_string(loadBigEndian32(object + 7));
    const std::string mark = take(1);
    const std::string type = take(5);
    line(depth, mark + "  " + type + "  " + take(5), withName(name, what));
  }

  void line(int depth, const std::string& bytes, const std::string& comment) {
    constexpr std::size_t kBytes = 16 * 3;  // columns of a line's bytes
    constexpr std::size_t kCommentColumn = 54;
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    for (std::size_t at = 0; at < bytes.size(); at += kBytes) {
      std::string text = indent + bytes.substr(at, kBytes);
      text.erase(text.find_last_not_of(' ') + 1);
      if (at == 0 && !comment.empty()) {
        text.resize(std::max(text.size() + 2, kCommentColumn), ' ');
        text += "# " + comment;
      }
      out_ << text << "\n";
    }
  }

  std::string frame_;
  std::size_t at_ = 0;
  std::ostringstream out_;
};

std::string factoriesOf(const MessageRow& row) {
  std::string list;
  for (const auto& [catalogue, name] : row.names) {
    list += std::string(list.empty() ? "" : ", ") + nameOf(catalogue) + " as `" + name + "`";
  }
  return list.empty() ? "In no factory of the library." : "In the factories: " + list + ".";
}

void writeEntry(std::ostream& out, const MessageRow& row) {
  out << "### " << headingOf(row) << "\n\n"
      << wrapped(row.summary + " Class `" + row.className + "`. " + factoriesOf(row)) << "\n\n";
  if (!row.note.empty()) out << wrapped(row.note) << "\n\n";
  for (const int version : row.versions) {
    if (row.versions.size() > 1) out << "Version " << version << ":\n\n";
    writeFields(out, row, version);
  }
  const int last = row.versions.back();
  const std::string frame = frameOf(*row.example().message);
  out << "```hex\n"
      << FrameText(frame).of(fieldsWrittenBy(*row.example().message, last).fields()) << "```\n\n";
}

void writeIndex(std::ostream& out) {
  std::vector<const MessageRow*> rows = allRows();
  std::stable_sort(rows.begin(), rows.end(), [](const MessageRow* left, const MessageRow* right) {
    return left->code < right->code;
  });
  out << "## All codes\n\n"
         "With the name that each factory has for the class: the agent's for login "
         "(`AuthObjectFactory`), SQL\n(`SQLObjectFactory`) and remote requests "
         "(`RemoteObjectFactory`), and the client's\n(`ClientObjectFactory`).\n\n"
         "| Code | Class |";
  for (const Catalogue catalogue : kCatalogues) out << " " << nameOf(catalogue) << " |";
  out << "\n|---|---|---|---|---|---|\n";
  for (const MessageRow* row : rows) {
    out << "| " << row->code << " | " << linkTo(*row, row->shortName()) << " |";
    for (const Catalogue catalogue : kCatalogues) {
      const std::string* const name = row->nameIn(catalogue);
      out << (name ? " `" + *name + "` |" : " |");
    }
    out << "\n";
  }
  out << "\n";
}

}  // namespace

std::string messageDocument() {
  std::ostringstream out;
  out << kIntroduction << "\n";
  writeIndex(out);
  for (const Family& family : families()) {
    out << "## " << family.title << "\n\n" << wrapped(family.introduction) << "\n\n";
    for (const MessageRow& row : family.rows) writeEntry(out, row);
  }
  std::string text = out.str();
  text.pop_back();  // one line break at the end, not two
  return text;
}

}  // namespace nox::test
