// load and export.
#include <algorithm>
#include <optional>

#include "client/command/context.h"
#include "client/command/dictionary.h"
#include "client/command/load/loader.h"
#include "client/command/output/json_text.h"
#include "client/command/output/record_text.h"
#include "client/command/run/page_reader.h"

namespace nox::command {

namespace {

/// The columns of an export of everything: each attribute that has a D item once, so that load
/// takes them; the id has a column of its own. A dictionary's items have attributes, and no items.
std::vector<DictionaryItem> allItemsOf(client::Connection& connection, const std::string& file) {
  std::vector<DictionaryItem> items;
  if (isDictionary(file)) {
    constexpr std::size_t kAttributesOfAnItem = 6;
    for (std::size_t number = 1; number <= kAttributesOfAnItem; ++number) {
      items.push_back({std::to_string(number), number});
    }
    return items;
  }
  for (DictionaryItem& item : dictionaryOf(connection, file)) {
    const std::size_t last = items.empty() ? 0 : items.back().attribute;
    if (item.attribute > last) items.push_back(std::move(item));
  }
  return items;
}

/// The columns that were named.
std::vector<DictionaryItem> namedItemsOf(client::Connection& connection, const std::string& file,
                                         const std::string& named) {
  const std::vector<DictionaryItem> items = dictionaryOf(connection, file);
  std::vector<DictionaryItem> chosen;
  std::size_t begin = 0;
  while (begin <= named.size()) {
    const std::size_t end = std::min(named.find(',', begin), named.size());
    const std::string name = named.substr(begin, end - begin);
    begin = end + 1;
    bool found = false;
    for (const DictionaryItem& item : items) {
      if (item.name != name) continue;
      chosen.push_back(item);
      found = true;
    }
    if (!found) {
      std::string why = "there is no D item \"";
      why.append(name).append("\" in the dictionary of ").append(file);
      throw Refused(why);
    }
  }
  return chosen;
}

/// Whether an attribute is there that is none of the columns.
bool holdsMore(const std::vector<client::FieldView>& attributes, const std::vector<bool>& shown) {
  for (std::size_t i = 0; i < attributes.size(); ++i) {
    const std::size_t number = i + 1;
    if (!attributes[i].empty() && (number >= shown.size() || !shown[number])) return true;
  }
  return false;
}

}  // namespace

int runLoad(Context& context, const Arguments& arguments) {
  LoadOptions options;
  options.file = arguments.get("FILE");
  options.path = arguments.get("PATH");
  options.format = arguments.get("--from-format");
  options.idColumn = arguments.get("--id");
  options.batch = numberOf(arguments.get("--batch", "1000"), "--batch", 100'000);
  options.rejectPath = arguments.get("--reject");
  options.resumePath = arguments.get("--resume");
  options.create = arguments.has("--create");
  if (!options.rejectPath.empty() && options.rejectPath == options.resumePath) {
    throw UsageError("--reject and --resume name the same file");
  }
  if (context.transaction()) throw UsageError("load has transactions of its own; end yours first");
  return load(context, options).rejected == 0 ? kDone : kRefused;
}

int runExport(Context& context, const Arguments& arguments) {
  client::Connection& connection = context.connection();
  const std::string name = arguments.get("FILE");
  const auto format = context.chosenFormat();
  const bool lines = !format || *format == Format::Jsonl;
  if (lines && arguments.has("--items")) {
    throw UsageError("--items needs a format with columns, as csv");
  }
  const std::string named = arguments.get("--items");
  std::vector<DictionaryItem> items;
  std::vector<bool> shown;  // by attribute
  std::vector<OutputColumn> columns = {{"ID"}};
  if (!lines) {
    items = named.empty() ? allItemsOf(connection, name) : namedItemsOf(connection, name, named);
    for (const DictionaryItem& item : items) {
      if (item.attribute >= shown.size()) shown.resize(item.attribute + 1);
      shown[item.attribute] = true;
    }
    for (const DictionaryItem& item : items) columns.push_back({item.name});
  }

  client::SelectList list = [&] {
    if (!arguments.has("CLAUSE")) return connection.file(name).select();
    std::string command = "SELECT " + name;
    for (const std::string& word : arguments.all("CLAUSE")) command += " " + word;
    return connection.select(command);
  }();
  list.withRecords();
  if (arguments.has("--page-size")) {
    list.pageSize(numberOf(arguments.get("--page-size"), "--page-size", 10'000));
  }
  auto progress = context.progress("records", std::nullopt);
  std::uint64_t done = 0;
  std::uint64_t withMore = 0;
  std::string line;
  std::vector<std::string> texts(items.size());
  std::vector<OutputValue> values;
  std::vector<client::FieldView> attributes;
  PageReader pages(std::move(list));
  auto page = pages.next();
  // The heading is written only now: a selection that is refused leaves nothing behind.
  std::unique_ptr<RowWriter> rows;
  if (!lines) rows = context.rows(*format, std::move(columns));
  for (; !page.empty(); page = pages.next()) {
    for (const client::SelectList::Entry& entry : page) {
      context.checkInterrupt();
      if (!entry.hasRecord()) continue;  // deleted since
      if (lines) {
        line = "{\"id\":";
        addJsonText(line, entry.id());
        line += ",\"record\":";
        addRecordJson(line, entry.record());
        line += "}\n";
        context.out().write(line);
      } else {
        attributes.assign(entry.record().begin(), entry.record().end());
        values.assign({OutputValue(entry.id())});
        for (std::size_t i = 0; i < items.size(); ++i) {
          const std::size_t number = items[i].attribute;
          if (number == 0) {
            values.emplace_back(entry.id());
            continue;
          }
          texts[i] = number <= attributes.size() ? attributes[number - 1].toString() : "";
          values.emplace_back(texts[i]);
        }
        rows->row(values);
        if (named.empty() && holdsMore(attributes, shown)) ++withMore;
      }
      progress->show(++done);
    }
  }
  if (rows) rows->end();
  context.out().flush();
  progress.reset();
  if (withMore > 0) {
    context.say(std::to_string(withMore) + (withMore == 1 ? " record holds" : " records hold") +
                " attributes that no column shows; with -f jsonl none is lost");
  }
  return kDone;
}

}  // namespace nox::command
