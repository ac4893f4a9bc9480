#include "nox/protocol/remote/remote_responses.h"

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"

namespace nox {

namespace {

/// Carries an object inside, where its own properties and packet size count for nothing.
class Parcel : public Serializable {
public:
  explicit Parcel(Serializable* content) : content_(content) {}
  Serializable* create() override { return nullptr; }  // nobody registers a parcel
  int getType() override { return TypeCode::DummyRequest; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & content_; }

private:
  Serializable* content_;
};

/// Writes `object` to memory and reads it into an object of its own making. The original is as
/// before, but that its strings may have changed their form.
std::unique_ptr<Serializable> copyThroughTheWire(Serializable& object) {
  std::unique_ptr<Serializable> copy(object.create());
  if (!copy) throw std::bad_alloc();
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  Parcel original(&object);
  writer.writeRoot(original);

  constexpr std::size_t kFrameHead = 5;  // the length and '['
  const std::string& frame = out.str();
  MemoryBufferInputStream body(frame.data() + kFrameHead, frame.size() - kFrameHead);
  BinaryReader reader(nullptr, &body);
  Parcel duplicate(copy.get());
  reader.readObject(&duplicate);
  copy->setProperties(object.getProperties());
  copy->setPacketSize(object.getPacketSize());
  return copy;
}

}  // namespace

Serializable* FieldTraits<Serializable>::makeEmpty() { return new noxp::remote::SelectListProt; }

Serializable* FieldTraits<Serializable>::clone(const Serializable& other) {
  using noxp::remote::SelectListProt;
  using noxp::remote::SelectListProt5;
  if (const auto* list = dynamic_cast<const SelectListProt*>(&other)) {
    return new SelectListProt(*list);
  }
  if (const auto* list = dynamic_cast<const SelectListProt5*>(&other)) {
    return new SelectListProt5(*list);
  }
  return copyThroughTheWire(const_cast<Serializable&>(other)).release();
}

namespace noxp::remote {

ToviResponseProt::ToviResponseProt(int status, Adopted<NOXPBlob> record, Adopted<Serializable> list)
    : status_(status), record_(std::move(record)), selectList_(std::move(list)) {}

Archive& ToviResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(status_, "_status")
      .process(record_, "_data")
      .process(selectList_, "_selectList");
}

ExecuteResponseProt::ExecuteResponseProt(CopiedBlob capturing, CopiedBlob setting,
                                         Adopted<Serializable> list)
    : capturingVariable_(capturing), settingVariable_(setting), selectList_(std::move(list)) {}

Archive& ExecuteResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  // The list travels first, although it is the last of the fields.
  return ar.process(selectList_, "selectList")
      .process(capturingVariable_, "capturingVar")
      .process(settingVariable_, "settingVar");
}

Archive& TransactionResponseProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

SubroutineResponseProt::SubroutineResponseProt(int status, Copied<ParameterListProt> parameters)
    : status_(status), parameters_(parameters) {}

Archive& SubroutineResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(status_, "_status").process(parameters_, "_parameters");
}

DateTimeResponseProt::DateTimeResponseProt(int date, int time) : date_(date), time_(time) {}

Archive& DateTimeResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(date_, "date").process(time_, "time");
}

ReadCommonResponseProt::ReadCommonResponseProt(CopiedBlob value) : value_(value) {}

Archive& ReadCommonResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(value_, "_value");
}

ConvResponseProt::ConvResponseProt(NOXPString* result) {
  const char* const text = result ? result->c_str() : nullptr;
  if (text) result_->assign(text, result->length());
}

ConvResponseProt::ConvResponseProt(const NOXPBlob* result) : result_(CopiedBlob(result)) {}

Archive& ConvResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(result_, "_result");
}

SwitchAccountResponseProt::SwitchAccountResponseProt(int status) : status_(status) {}

Archive& SwitchAccountResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(status_, "_status");
}

StatementFetchResponseProt::StatementFetchResponseProt(int status, Adopted<ParameterListProt> rows)
    : status_(status), rows_(std::move(rows)) {}

Archive& StatementFetchResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(status_, "_status").process(rows_, "_rows");
}

}  // namespace noxp::remote
}  // namespace nox
