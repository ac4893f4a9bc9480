#include "client/command/output/record_text.h"

#include <vector>

#include "client/command/output/json_text.h"
#include "client/command/output/text.h"

namespace nox::command {

namespace {

using client::FieldView;

/// One field, and those below it where there are several.
void addBranch(std::string& text, FieldView field, const std::string& label,
               const std::string& number, const std::string& indent, bool last) {
  text += indent + (last ? "└─ " : "├─ ") + label;
  const bool divided = field.level() != FieldView::Level::Subvalue && field.count() > 1;
  if (!divided) {
    // One value of one subvalue reads as itself.
    const std::string shown = visible(field.view());
    if (!shown.empty()) text += "  " + shown;
    text += '\n';
    return;
  }
  text += '\n';
  const std::size_t count = field.count();
  std::size_t i = 0;
  for (const FieldView part : field) {
    const std::string below = number + "." + std::to_string(++i);
    addBranch(text, part, below, below, indent + (last ? "   " : "│  "), i == count);
  }
}

bool isDivided(FieldView field, char mark) {
  return field.view().find(mark) != std::string_view::npos;
}

template <class Add>
void addArray(std::string& json, FieldView field, Add addPart) {
  json += '[';
  bool first = true;
  for (const FieldView part : field) {
    if (!first) json += ',';
    first = false;
    addPart(json, part);
  }
  json += ']';
}

void addValue(std::string& json, FieldView value) {
  if (!isDivided(value, client::kSubvalueMark)) return addJsonText(json, value.view());
  addArray(json, value,
           [](std::string& text, FieldView subvalue) { addJsonText(text, subvalue.view()); });
}

void addAttribute(std::string& json, FieldView attribute) {
  // A single value is still an array where its subvalues are several.
  const bool isArray =
      isDivided(attribute, client::kValueMark) || isDivided(attribute, client::kSubvalueMark);
  if (!isArray) return addJsonText(json, attribute.view());
  addArray(json, attribute, addValue);
}

}  // namespace

std::string recordTree(std::string_view id, const client::Record& record,
                       const std::vector<std::string>& names) {
  std::string text = visible(id) + "\n";
  const std::size_t count = record.count();
  std::size_t i = 0;
  for (const FieldView attribute : record) {
    const std::string number = std::to_string(++i);
    const std::string label =
        i < names.size() && !names[i].empty() ? number + " " + visible(names[i]) : number;
    addBranch(text, attribute, label, number, "", i == count);
  }
  return text;
}

std::string recordJson(const client::Record& record) {
  std::string json;
  addRecordJson(json, record);
  return json;
}

void addRecordJson(std::string& json, const client::Record& record) {
  addArray(json, record.view(), addAttribute);
}

}  // namespace nox::command
