// Parameter lists: typed, nullable values that travel with statements and subroutine calls.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "nox/protocol/message.h"

namespace nox {
namespace noxp {

/// An ordered list of values. Each is a blob, a type code and a null flag; what the codes mean is
/// the client's and the server's to agree on. Indexes run from 0 to count() - 1.
class NOX_EXPORT ParameterListProt : public Serializable {
public:
  int getType() override;
  virtual unsigned int count() = 0;
  /// A copy of the value, the caller's.
  virtual NOXPBlob* get(unsigned int i) = 0;
  /// The value itself, which stays the list's; may be null.
  virtual NOXPBlob* getPtr(unsigned int i) = 0;
  virtual int getParameterType(int i) = 0;
  /// The null flag: 1 null, 0 not null, -1 never set.
  virtual int isNull(int i) = 0;

  NOXPBlob* operator[](unsigned int i) { return getPtr(i); }
};

/// The list that is sent: a fixed number of slots, type code 103. A null slot travels as a null
/// blob and is an empty blob when it is read, so the null flag tells what it was.
class NOX_EXPORT ACEBinaryFormatParameterListProt
    : public Message<ACEBinaryFormatParameterListProt, TypeCode::ParameterList, ParameterListProt> {
public:
  ACEBinaryFormatParameterListProt() = default;
  /// `n` slots without a value, of type and null flag -1. A negative `n` gives an empty list.
  explicit ACEBinaryFormatParameterListProt(int n);
  ACEBinaryFormatParameterListProt(const ACEBinaryFormatParameterListProt& other);
  /// Null gives an empty list.
  explicit ACEBinaryFormatParameterListProt(const ACEBinaryFormatParameterListProt* other);
  /// Copies deeply, in every form; blobs obtained from `getPtr` before end with the assignment.
  ACEBinaryFormatParameterListProt& operator=(const ACEBinaryFormatParameterListProt& other);
  ACEBinaryFormatParameterListProt& operator=(const ACEBinaryFormatParameterListProt* other);
  ~ACEBinaryFormatParameterListProt() override;

  /// A deep copy of any list, made through its public operations. The caller's.
  static std::unique_ptr<ACEBinaryFormatParameterListProt> copyOf(ParameterListProt& list);

  // Outside the list the getters give null and -1, the setters throw IndexOutOfBound, by value.
  unsigned int count() override;
  /// Null for a slot without a value.
  NOXPBlob* get(unsigned int i) override;
  NOXPBlob* getPtr(unsigned int i) override;
  int getParameterType(int i) override;
  int isNull(int i) override;

  /// Stores all bytes of `s`, NULs included.
  void setString(int i, std::string s, int type);
  /// Stores `s` in the process code page, up to its first NUL.
  void setStringW(int i, std::wstring s, int type);
  /// Takes `value` over, unless it throws; null makes the slot null. One blob belongs to one slot.
  void setBlob(int i, NOXPBlob* value, int type);
  void setNull(int i, int type);

  /// All fields are unnamed: the count, then per slot type, null flag and value.
  Archive& serialize(Archive& ar, unsigned int version) override;

protected:
  /// What every setter ends in: replaces the slot's value by `value` and sets the null flag.
  void setValue(int i, NOXPBlob* value, int type);

private:
  struct Slot {
    std::unique_ptr<NOXPBlob> value;
    int type = -1;
    int null = -1;
  };

  /// Whether a rendering of the list would quote this value: a non-null one of six types.
  bool needsQuoting(int i);
  /// Null outside the list.
  Slot* slotAt(std::size_t i);

  bool quoting_ = true;
  std::vector<Slot> slots_;
};

}  // namespace noxp

/// A field that owns a list starts out as an empty one of the kind that is sent; a copy is of that
/// kind too, whatever it was made from.
template <>
struct NOX_EXPORT FieldTraits<noxp::ParameterListProt> {
  static noxp::ParameterListProt* makeEmpty();
  static noxp::ParameterListProt* clone(const noxp::ParameterListProt& other);
};

}  // namespace nox
