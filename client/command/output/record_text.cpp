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

std::string jsonOf(FieldView field) {
  const bool divided = field.level() != FieldView::Level::Subvalue && field.count() > 1;
  if (!divided) {
    // What holds a single part may still be divided below it.
    if (field.level() == FieldView::Level::Attribute && field.count() == 1 &&
        field[1].count() > 1) {
      return "[" + jsonOf(field[1]) + "]";
    }
    return jsonText(field.view());
  }
  std::string text = "[";
  bool first = true;
  for (const FieldView part : field) {
    if (!first) text += ',';
    first = false;
    text += jsonOf(part);
  }
  return text + "]";
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
  std::string text = "[";
  bool first = true;
  for (const FieldView attribute : record) {
    if (!first) text += ',';
    first = false;
    text += jsonOf(attribute);
  }
  return text + "]";
}

}  // namespace nox::command
