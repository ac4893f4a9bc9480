#include "nox/protocol/sql/column_metadata.h"

#include <string>
#include <string_view>

#include "nox/core/archive.h"
#include "nox/diag/file_loggers.h"

namespace nox::noxp::sql {

namespace {

constexpr std::size_t kFirstWithKey = 2;  // number and name come first and have no key

constexpr const char* kKeys[] = {nullptr,
                                 nullptr,
                                 "tableName:",
                                 "scale:",
                                 "precision:",
                                 "displayWidth:",
                                 "indexable:",
                                 "inputConversion:",
                                 "outputConversion:",
                                 "datatype:",
                                 "nullable:",
                                 "readOnly:",
                                 "blob:",
                                 "autoIncrement:",
                                 "explicitSelect:",
                                 "nullFldDesc:",
                                 "chapter:",
                                 "hidden:"};

/// Splits `rest` at the first `mark`: returns what stands before it and leaves what follows it.
/// Without a mark all of `rest` is taken.
std::string_view takeUpTo(std::string_view& rest, char mark) {
  const std::size_t at = rest.find(mark);
  const std::string_view taken = rest.substr(0, at);
  rest = at == std::string_view::npos ? std::string_view() : rest.substr(at + 1);
  return taken;
}

}  // namespace

ColumnMetaDataProt::~ColumnMetaDataProt() = default;

// Deliberate: written without a name, read under one.
Archive& ColumnMetaDataProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (ar.isWriting()) {
    NOXPString text = toString();
    ar.process(&text, nullptr);
    NOX_LOG(filelog::info) << "ColumnMetaDataProt::serialize: " << text.c_str() << EndLog();
  } else {
    NOXPString text("");
    ar.process(&text, "ColumnData");
    fromString(text);
  }
  return ar;
}

NOXPString ColumnMetaDataProt::toString() {
  std::string text = attributes_[0].getString();
  text += ':';
  text += attributes_[1].getString();
  for (std::size_t i = kFirstWithKey; i < attributes_.size(); ++i) {
    text += ',';
    text += kKeys[i];
    text += attributes_[i].getString();
  }
  return NOXPString(text);
}

void ColumnMetaDataProt::fromString(NOXPString& text) {
  std::string_view rest = text.getString();
  const auto store = [this](std::size_t i, std::string_view value) {
    attributes_[i].assign(value.data(), value.size(), false);
  };
  store(0, takeUpTo(rest, ':'));
  store(1, takeUpTo(rest, ','));
  for (std::size_t i = kFirstWithKey; i < attributes_.size(); ++i) {
    takeUpTo(rest, ':');  // the key, which is not looked at
    store(i, takeUpTo(rest, ','));
  }
}

}  // namespace nox::noxp::sql
