#include "client/command/output/rows.h"

#include <algorithm>
#include <array>
#include <utility>

#include "client/command/output/json_text.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

constexpr std::array<std::pair<std::string_view, Format>, 7> kFormats = {{
    {"table", Format::Table},
    {"expanded", Format::Expanded},
    {"csv", Format::Csv},
    {"tsv", Format::Tsv},
    {"json", Format::Json},
    {"jsonl", Format::Jsonl},
    {"raw", Format::Raw},
}};

class Rows : public RowWriter {
public:
  Rows(Output& output, const OutputStyle& style) : output_(output), style_(style) {}
  void begin(std::vector<OutputColumn> columns) override { columns_ = std::move(columns); }
  void end() override { output_.flush(); }

protected:
  Output& output_;
  const OutputStyle style_;
  std::vector<OutputColumn> columns_;
};

class Table : public Rows {
public:
  using Rows::Rows;

  void row(const std::vector<OutputValue>& values) override {
    std::vector<std::string> shown;
    shown.reserve(values.size());
    for (const OutputValue& value : values) shown.push_back(value ? visible(*value) : "");
    if (headed_) return write(shown);
    first_.push_back(std::move(shown));
    if (first_.size() == kRowsForWidths) head();
  }
  void end() override {
    head();
    Rows::end();
  }

private:
  static constexpr std::size_t kRowsForWidths = 1000;
  static constexpr std::size_t kWidest = 60;  // wider values do not widen their column

  void head() {
    if (headed_) return;
    headed_ = true;
    std::vector<std::string> names;
    for (const OutputColumn& column : columns_) {
      names.push_back(visible(column.name));
      widths_.push_back(displayWidth(names.back()));
    }
    for (const auto& row : first_) {
      for (std::size_t i = 0; i < std::min(row.size(), widths_.size()); ++i) {
        widths_[i] = std::max(widths_[i], std::min(displayWidth(row[i]), kWidest));
      }
    }
    if (style_.header && !columns_.empty()) {
      if (style_.colour) output_.write("\x1b[1m");
      write(names);
      if (style_.colour) output_.write("\x1b[0m");
      std::string line;
      for (std::size_t i = 0; i < widths_.size(); ++i) {
        if (i > 0) line += "  ";
        line.append(widths_[i], '-');
      }
      output_.write(line + "\n");
    }
    for (const auto& row : first_) write(row);
    first_.clear();
    first_.shrink_to_fit();
  }

  void write(const std::vector<std::string>& values) {
    std::string line;
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i > 0) line += "  ";
      const std::size_t wanted = i < widths_.size() ? widths_[i] : 0;
      const std::size_t width = displayWidth(values[i]);
      const std::size_t padding = wanted > width ? wanted - width : 0;
      const bool right = i < columns_.size() && columns_[i].right;
      if (right) line.append(padding, ' ');
      line += values[i];
      if (!right) line.append(padding, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    output_.write(line + "\n");
  }

  bool headed_ = false;
  std::vector<std::size_t> widths_;
  std::vector<std::vector<std::string>> first_;
};

class Expanded : public Rows {
public:
  using Rows::Rows;

  void begin(std::vector<OutputColumn> columns) override {
    Rows::begin(std::move(columns));
    for (const OutputColumn& column : columns_) {
      names_.push_back(visible(column.name));
      width_ = std::max(width_, displayWidth(names_.back()));
    }
  }
  void row(const std::vector<OutputValue>& values) override {
    output_.write("-- " + std::to_string(++number_) + "\n");
    for (std::size_t i = 0; i < values.size(); ++i) {
      std::string line = i < names_.size() ? names_[i] : "";
      const std::size_t width = displayWidth(line);
      line.append(width_ > width ? width_ - width : 0, ' ');
      if (values[i]) line += "  " + visible(*values[i]);
      line.erase(line.find_last_not_of(' ') + 1);
      output_.write(line + "\n");
    }
  }

private:
  std::vector<std::string> names_;
  std::size_t width_ = 0;
  std::uint64_t number_ = 0;
};

/// A line per row, and one for the heading; how values stand in it is the subclass's.
class Lines : public Rows {
public:
  using Rows::Rows;

  void begin(std::vector<OutputColumn> columns) override {
    Rows::begin(std::move(columns));
    if (!style_.header || columns_.empty()) return;
    for (std::size_t i = 0; i < columns_.size(); ++i) add(i, columns_[i].name);
    endLine();
  }
  void row(const std::vector<OutputValue>& values) override {
    for (std::size_t i = 0; i < values.size(); ++i) add(i, values[i]);
    endLine();
  }

protected:
  /// Adds value `i` to the line, with what stands in front of it.
  virtual void add(std::size_t i, OutputValue value) = 0;

  std::string line_;

private:
  void endLine() {
    output_.write(line_ += '\n');
    line_.clear();
  }
};

class Csv : public Lines {
public:
  using Lines::Lines;

protected:
  void add(std::size_t i, OutputValue value) override {
    if (i > 0) line_ += ',';
    if (!value) return;
    // An empty text is told from null, and a row of one empty text from no row.
    const bool quote = value->empty() || std::any_of(value->begin(), value->end(), isQuoted);
    if (!quote) {
      line_ += *value;
      return;
    }
    line_ += '"';
    for (const char c : *value) {
      if (c == '"') line_ += '"';
      line_ += c;
    }
    line_ += '"';
  }

private:
  static bool isQuoted(char c) { return c == '"' || c == ',' || c == '\r' || c == '\n'; }
};

class Tsv : public Lines {
public:
  using Lines::Lines;

protected:
  void add(std::size_t i, OutputValue value) override {
    if (i > 0) line_ += '\t';
    if (!value) {
      line_ += "\\N";
      return;
    }
    for (const char c : *value) {
      switch (c) {
        case '\t':
          line_ += "\\t";
          break;
        case '\n':
          line_ += "\\n";
          break;
        case '\r':
          line_ += "\\r";
          break;
        case '\\':
          line_ += "\\\\";
          break;
        default:
          line_ += c;
      }
    }
  }
};

/// Objects, each on a line of its own; as one array, or one after the other.
class Json : public Rows {
public:
  Json(Output& output, const OutputStyle& style, bool array) : Rows(output, style), array_(array) {}

  void begin(std::vector<OutputColumn> columns) override {
    Rows::begin(std::move(columns));
    for (const OutputColumn& column : columns_) names_.push_back(jsonText(column.name) + ":");
    if (array_) output_.write("[");
  }
  void row(const std::vector<OutputValue>& values) override {
    std::string line = array_ ? (any_ ? ",\n{" : "\n{") : "{";
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i > 0) line += ',';
      line += i < names_.size() ? names_[i] : "\"\":";
      if (!values[i]) {
        line += "null";
      } else if (i < columns_.size() && columns_[i].number && isJsonNumber(*values[i])) {
        line += *values[i];
      } else {
        addJsonText(line, *values[i]);
      }
    }
    line += array_ ? "}" : "}\n";
    output_.write(line);
    any_ = true;
  }
  void end() override {
    if (array_) output_.write(any_ ? "\n]\n" : "]\n");
    Rows::end();
  }

private:
  const bool array_;
  bool any_ = false;
  std::vector<std::string> names_;
};

class Raw : public Rows {
public:
  using Rows::Rows;

  void row(const std::vector<OutputValue>& values) override {
    for (std::size_t i = 0; i < values.size(); ++i) {
      if (i > 0) output_.write("\xFE");
      if (values[i]) output_.write(*values[i]);
    }
    output_.write("\n");
  }
};

}  // namespace

std::optional<Format> parseFormat(std::string_view name) {
  for (const auto& [known, format] : kFormats) {
    if (name == known) return format;
  }
  return std::nullopt;
}

const char* nameOf(Format format) {
  for (const auto& [name, known] : kFormats) {
    if (known == format) return name.data();
  }
  return "";
}

std::vector<std::string> formatNames() {
  std::vector<std::string> names;
  names.reserve(kFormats.size());
  for (const auto& [name, format] : kFormats) names.emplace_back(name);
  return names;
}

std::unique_ptr<RowWriter> makeRowWriter(Format format, Output& output, const OutputStyle& style) {
  switch (format) {
    case Format::Table:
      return std::make_unique<Table>(output, style);
    case Format::Expanded:
      return std::make_unique<Expanded>(output, style);
    case Format::Csv:
      return std::make_unique<Csv>(output, style);
    case Format::Tsv:
      return std::make_unique<Tsv>(output, style);
    case Format::Json:
      return std::make_unique<Json>(output, style, true);
    case Format::Jsonl:
      return std::make_unique<Json>(output, style, false);
    case Format::Raw:
      return std::make_unique<Raw>(output, style);
  }
  return nullptr;
}

}  // namespace nox::command
