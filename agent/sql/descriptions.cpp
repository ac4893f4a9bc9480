#include "agent/sql/descriptions.h"

#include <algorithm>
#include <string>

namespace nox::agent {

namespace {

using noxp::sql::ColumnMetaDataProt;
using noxp::sql::ColumnMetaDataPtr;

NOXPString textOf(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == ',' || c == ':'; }, '_');
  return NOXPString(text.data(), text.size(), true);
}

NOXPString numberOf(int number) { return NOXPString(std::to_string(number)); }

NOXPString flagOf(bool flag) { return NOXPString(flag ? "1" : "0"); }

ColumnMetaDataPtr describe(const SqlColumn& column, std::size_t number) {
  ColumnMetaDataPtr description(new ColumnMetaDataProt);
  description->setColumnNumber(numberOf(static_cast<int>(number)));
  description->setColumnName(textOf(column.name));
  description->setTableName(textOf(column.table));
  description->setScale(numberOf(column.scale));
  description->setPrecision(numberOf(column.precision));
  description->setDisplayWidth(numberOf(column.displayWidth));
  description->setIndexable(flagOf(!column.blob));
  description->setDatatype(numberOf(column.dataType));
  description->setIsNullable(flagOf(column.nullable));
  description->setIsReadOnly(flagOf(column.readOnly));
  description->setIsBlob(flagOf(column.blob));
  description->setIsAutoIncrement(flagOf(column.autoIncrement));
  description->setIsExplicitSelect(flagOf(false));
  description->setIsNullFldDesc(flagOf(false));
  description->setIsChapter(flagOf(false));
  description->setIsHidden(flagOf(false));
  return description;
}

}  // namespace

std::unique_ptr<noxp::sql::ResultSetMetaDataProt> describe(
    const std::vector<SqlColumn>& columns, const std::vector<SqlColumn>& parameters) {
  constexpr int kVersionWithParameters = 2;
  auto description = std::make_unique<noxp::sql::ResultSetMetaDataProt>();
  description->setClassVersion(kVersionWithParameters);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    description->addColumn(describe(columns[i], i + 1).release());
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    description->addParameter(describe(parameters[i], i + 1).release());
  }
  return description;
}

}  // namespace nox::agent
