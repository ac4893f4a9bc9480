#include "nox/protocol/sql/result_set_metadata.h"

#include <utility>

#include "nox/core/archive.h"

namespace nox::noxp::sql {

namespace {

constexpr unsigned int kVersionWithParameters = 2;  // and every later one

using Descriptions = std::vector<ColumnMetaDataPtr>;

Descriptions copyOf(const Descriptions& from) {
  Descriptions copy;
  copy.reserve(from.size());
  for (const ColumnMetaDataPtr& description : from) {
    copy.emplace_back(description ? new ColumnMetaDataProt(*description) : nullptr);
  }
  return copy;
}

ColumnMetaDataProt* at(const Descriptions& descriptions, int i) {
  return i >= 0 && static_cast<std::size_t>(i) < descriptions.size() ? descriptions[i].get()
                                                                     : nullptr;
}

void add(Descriptions& descriptions, ColumnMetaDataProt* description) {
  ColumnMetaDataPtr taken(description);
  descriptions.push_back(std::move(taken));
}

// Deliberate: written without a name, read under one.
void exchange(Archive& ar, Descriptions& descriptions, const char* countName) {
  int count = static_cast<int>(descriptions.size());
  ar.process(count, countName);
  if (ar.isWriting()) {
    for (const ColumnMetaDataPtr& description : descriptions) {
      ar& static_cast<Serializable*>(description.get());
    }
    return;
  }
  // The count is only a claim: descriptions are kept as they come.
  descriptions.clear();
  for (int i = 0; i < count; ++i) {
    descriptions.emplace_back(new ColumnMetaDataProt);
    ar.process(static_cast<Serializable*>(descriptions.back().get()), "colMD");
  }
}

}  // namespace

ResultSetMetaDataProt::ResultSetMetaDataProt(const ResultSetMetaDataProt& other)
    : Payload<ResultSetMetaDataProt, TypeCode::ResultSetMetaData>(other),
      columns_(copyOf(other.columns_)),
      parameters_(copyOf(other.parameters_)) {}

ResultSetMetaDataProt& ResultSetMetaDataProt::operator=(const ResultSetMetaDataProt& other) {
  Descriptions columns = copyOf(other.columns_);
  Descriptions parameters = copyOf(other.parameters_);
  Serializable::operator=(other);
  columns_ = std::move(columns);
  parameters_ = std::move(parameters);
  return *this;
}

ColumnMetaDataProt* ResultSetMetaDataProt::getColumnMetaDataProt(int i) const {
  return at(columns_, i);
}

ColumnMetaDataProt* ResultSetMetaDataProt::getParameterMetaDataProt(int i) const {
  return at(parameters_, i);
}

int ResultSetMetaDataProt::findColumnByName(const char* name) const {
  if (!name) return -1;
  // The name stands on the right: a Narrow right side compares whole texts.
  const NOXPString wanted(name);
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    if (columns_[i] && *columns_[i]->getColumnName() == wanted) return static_cast<int>(i);
  }
  return -1;
}

void ResultSetMetaDataProt::addColumn(ColumnMetaDataProt* column) { add(columns_, column); }

void ResultSetMetaDataProt::addParameter(ColumnMetaDataProt* parameter) {
  add(parameters_, parameter);
}

Archive& ResultSetMetaDataProt::serialize(Archive& ar, unsigned int version) {
  exchange(ar, columns_, "numberOfColumns");
  if (version >= kVersionWithParameters) {
    exchange(ar, parameters_, "numberOfParameters");
  } else if (!ar.isWriting()) {
    parameters_.clear();
  }
  return ar;
}

}  // namespace nox::noxp::sql
