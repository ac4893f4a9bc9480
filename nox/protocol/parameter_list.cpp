#include "nox/protocol/parameter_list.h"

#include <algorithm>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/exceptions.h"
#include "nox/diag/file_loggers.h"

namespace nox {
namespace noxp {

namespace {

std::unique_ptr<NOXPBlob> copyOfBlob(const NOXPBlob* blob) {
  return blob ? std::make_unique<NOXPBlob>(*blob) : nullptr;
}

}  // namespace

int ParameterListProt::getType() { return TypeCode::ParameterList; }

ACEBinaryFormatParameterListProt::ACEBinaryFormatParameterListProt(int n)
    : slots_(static_cast<std::size_t>(std::max(n, 0))) {}

ACEBinaryFormatParameterListProt::ACEBinaryFormatParameterListProt(
    const ACEBinaryFormatParameterListProt& other)
    : Message(other) {
  slots_.reserve(other.slots_.size());
  for (const Slot& slot : other.slots_) {
    slots_.push_back({copyOfBlob(slot.value.get()), slot.type, slot.null});
  }
}

ACEBinaryFormatParameterListProt::ACEBinaryFormatParameterListProt(
    const ACEBinaryFormatParameterListProt* other) {
  if (other) *this = *other;
}

ACEBinaryFormatParameterListProt& ACEBinaryFormatParameterListProt::operator=(
    const ACEBinaryFormatParameterListProt& other) {
  if (this == &other) return *this;
  ACEBinaryFormatParameterListProt copy(other);  // first: a failure leaves this list as it was
  Serializable::operator=(other);
  slots_.swap(copy.slots_);
  return *this;
}

ACEBinaryFormatParameterListProt& ACEBinaryFormatParameterListProt::operator=(
    const ACEBinaryFormatParameterListProt* other) {
  if (other) return *this = *other;
  slots_.clear();
  return *this;
}

ACEBinaryFormatParameterListProt::~ACEBinaryFormatParameterListProt() = default;

std::unique_ptr<ACEBinaryFormatParameterListProt> ACEBinaryFormatParameterListProt::copyOf(
    ParameterListProt& list) {
  auto copy = std::make_unique<ACEBinaryFormatParameterListProt>();
  static_cast<Serializable&>(*copy) = list;
  const unsigned int count = list.count();
  for (unsigned int i = 0; i < count; ++i) {
    const int index = static_cast<int>(i);
    copy->slots_.push_back(
        {copyOfBlob(list.getPtr(i)), list.getParameterType(index), list.isNull(index)});
  }
  return copy;
}

ACEBinaryFormatParameterListProt::Slot* ACEBinaryFormatParameterListProt::slotAt(std::size_t i) {
  return i < slots_.size() ? &slots_[i] : nullptr;
}

unsigned int ACEBinaryFormatParameterListProt::count() {
  return static_cast<unsigned int>(slots_.size());
}

NOXPBlob* ACEBinaryFormatParameterListProt::get(unsigned int i) {
  return copyOfBlob(getPtr(i)).release();
}

NOXPBlob* ACEBinaryFormatParameterListProt::getPtr(unsigned int i) {
  const Slot* slot = slotAt(i);
  return slot ? slot->value.get() : nullptr;
}

int ACEBinaryFormatParameterListProt::getParameterType(int i) {
  const Slot* slot = slotAt(static_cast<std::size_t>(i));
  return slot ? slot->type : -1;
}

int ACEBinaryFormatParameterListProt::isNull(int i) {
  const Slot* slot = slotAt(static_cast<std::size_t>(i));
  return slot ? slot->null : -1;
}

void ACEBinaryFormatParameterListProt::setString(int i, std::string s, int type) {
  auto value = std::make_unique<NOXPBlob>(s.data(), s.size());
  setValue(i, value.get(), type);
  value.release();
}

void ACEBinaryFormatParameterListProt::setStringW(int i, std::wstring s, int type) {
  NOXPString text(s);
  auto value = std::make_unique<NOXPBlob>(text.c_str());
  setValue(i, value.get(), type);
  value.release();
}

void ACEBinaryFormatParameterListProt::setBlob(int i, NOXPBlob* value, int type) {
  setValue(i, value, type);
}

void ACEBinaryFormatParameterListProt::setNull(int i, int type) { setValue(i, nullptr, type); }

void ACEBinaryFormatParameterListProt::setValue(int i, NOXPBlob* value, int type) {
  Slot* slot = slotAt(static_cast<std::size_t>(i));
  if (!slot) throw IndexOutOfBound("Parameter index out of bounds.");
  if (value != slot->value.get()) slot->value.reset(value);
  slot->null = value ? 0 : 1;
  slot->type = type;
}

bool ACEBinaryFormatParameterListProt::needsQuoting(int i) {
  if (!quoting_ || isNull(i) != 0) return false;
  switch (getParameterType(i)) {
    case 108:
    case 191:
    case 184:
    case 123:
    case 124:
    case 125:
      return true;
    default:
      return false;
  }
}

Archive& ACEBinaryFormatParameterListProt::serialize(Archive& ar, unsigned int /*version*/) {
  int numberOfParameters = static_cast<int>(slots_.size());
  ar& numberOfParameters;
  if (numberOfParameters < 1) {
    NOX_LOG(filelog::debug) << "ACEBinaryFormatParameterListProt::serialize: _numberOfParameters ="
                            << static_cast<long>(numberOfParameters) << EndLog();
  }
  const bool reading = !ar.isWriting();
  if (reading) slots_.clear();
  for (int i = 0; i < numberOfParameters; ++i) {
    // The count that was read is only a claim: slots are added as they come, so a false one ends in
    // the reader's exception at the first that is missing.
    if (reading) slots_.push_back({std::make_unique<NOXPBlob>(), -1, -1});
    Slot& slot = slots_[static_cast<std::size_t>(i)];
    ar& slot.type& slot.null& slot.value.get();
    NOX_LOG(filelog::debug) << "ACEBinaryFormatParameterListProt::serialize: parameters["
                            << static_cast<long>(i) << "]" << EndLog();
  }
  return ar;
}

}  // namespace noxp

noxp::ParameterListProt* FieldTraits<noxp::ParameterListProt>::makeEmpty() {
  return new noxp::ACEBinaryFormatParameterListProt;
}

noxp::ParameterListProt* FieldTraits<noxp::ParameterListProt>::clone(
    const noxp::ParameterListProt& other) {
  // The list's operations are not const, but those that are called here only look.
  auto& list = const_cast<noxp::ParameterListProt&>(other);
  return noxp::ACEBinaryFormatParameterListProt::copyOf(list).release();
}

}  // namespace nox
