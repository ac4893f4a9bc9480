// The description of one column or parameter.
#pragma once

#include <array>
#include <memory>

#include "nox/protocol/message.h"

namespace nox::noxp::sql {

/// Eighteen attributes, all of them text, the flags too; what the texts mean is the server's. They
/// travel in one string, in the native code page: values must hold no "," and no ":".
///
/// Getters return this object's own strings, all Empty at first; the setters copy. The destructor
/// is protected: delete through Serializable*.
class NOX_EXPORT ColumnMetaDataProt : public Payload<ColumnMetaDataProt, TypeCode::ColumnMetaData> {
public:
  ColumnMetaDataProt() = default;
  ColumnMetaDataProt(const ColumnMetaDataProt& other) = default;
  ColumnMetaDataProt& operator=(const ColumnMetaDataProt& other) = default;

  NOXPString* getColumnNumber() { return &attributes_[0]; }
  NOXPString* getColumnName() { return &attributes_[1]; }
  NOXPString* getTableName() { return &attributes_[2]; }
  NOXPString* getScale() { return &attributes_[3]; }
  NOXPString* getPrecision() { return &attributes_[4]; }
  NOXPString* getDisplayWidth() { return &attributes_[5]; }
  NOXPString* getIndexable() { return &attributes_[6]; }
  NOXPString* getInputConversion() { return &attributes_[7]; }
  NOXPString* getOutputConversion() { return &attributes_[8]; }
  NOXPString* getDatatype() { return &attributes_[9]; }
  NOXPString* isNullable() { return &attributes_[10]; }
  NOXPString* isReadOnly() { return &attributes_[11]; }
  NOXPString* isBlob() { return &attributes_[12]; }
  NOXPString* isAutoIncrement() { return &attributes_[13]; }
  NOXPString* isExplicitSelect() { return &attributes_[14]; }
  NOXPString* isNullFldDesc() { return &attributes_[15]; }
  NOXPString* isChapter() { return &attributes_[16]; }
  NOXPString* isHidden() { return &attributes_[17]; }

  void setColumnNumber(const NOXPString& value) { attributes_[0] = value; }
  void setColumnName(const NOXPString& value) { attributes_[1] = value; }
  void setTableName(const NOXPString& value) { attributes_[2] = value; }
  void setScale(const NOXPString& value) { attributes_[3] = value; }
  void setPrecision(const NOXPString& value) { attributes_[4] = value; }
  void setDisplayWidth(const NOXPString& value) { attributes_[5] = value; }
  void setIndexable(const NOXPString& value) { attributes_[6] = value; }
  void setInputConversion(const NOXPString& value) { attributes_[7] = value; }
  void setOutputConversion(const NOXPString& value) { attributes_[8] = value; }
  void setDatatype(const NOXPString& value) { attributes_[9] = value; }
  void setIsNullable(const NOXPString& value) { attributes_[10] = value; }
  void setIsReadOnly(const NOXPString& value) { attributes_[11] = value; }
  void setIsBlob(const NOXPString& value) { attributes_[12] = value; }
  void setIsAutoIncrement(const NOXPString& value) { attributes_[13] = value; }
  void setIsExplicitSelect(const NOXPString& value) { attributes_[14] = value; }
  void setIsNullFldDesc(const NOXPString& value) { attributes_[15] = value; }
  void setIsChapter(const NOXPString& value) { attributes_[16] = value; }
  void setIsHidden(const NOXPString& value) { attributes_[17] = value; }

  Archive& serialize(Archive& ar, unsigned int version) override;

  /// The column string: "3:NAME,tableName:T,scale:...,hidden:". Attributes become Narrow.
  NOXPString toString();
  /// Takes the attributes from a column string, as Narrow text; missing ones become empty.
  void fromString(NOXPString& text);

protected:
  ~ColumnMetaDataProt() override;

private:
  std::array<NOXPString, 18> attributes_;
};

/// Deletes what only its root may delete.
struct NOX_EXPORT ThroughSerializable {
  void operator()(Serializable* object) const { delete object; }
};

using ColumnMetaDataPtr = std::unique_ptr<ColumnMetaDataProt, ThroughSerializable>;

}  // namespace nox::noxp::sql
