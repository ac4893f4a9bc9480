#include "nox/protocol/remote/remote_responses.h"

#include <memory>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"

namespace nox {

namespace {

/// Knows the class of one object, to read a copy of it.
class FactoryOf : public ObjectFactory {
public:
  explicit FactoryOf(Serializable& object) {
    std::unique_ptr<Serializable> prototype(object.create());
    registerType(prototype.get(), "copy");
    prototype.release();
  }
  Serializable* create() override { return nullptr; }  // nobody writes this factory
};

/// Writes `object` as a plain frame and reads it back. The object is as before, but that its
/// strings may have changed their form.
std::unique_ptr<Serializable> copyThroughTheWire(Serializable& object) {
  MemoryBufferOutStream frame;
  BinaryWriter writer(&frame);
  const std::uint64_t packetSize = object.getPacketSize();
  Serializable::properties_t* const properties = object.getProperties();
  object.setProperties(nullptr);
  writer.writeRoot(object);
  object.setProperties(properties);
  object.setPacketSize(packetSize);

  FactoryOf factory(object);
  MemoryBufferInputStream bytes(frame.str().data(), frame.str().size());
  BinaryReader reader(&factory, &bytes);
  std::unique_ptr<Serializable> copy(reader.readRootObject());
  copy->setProperties(properties);
  copy->setPacketSize(packetSize);
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

ConvResponseProt::ConvResponseProt(NOXPString* result)
    : result_(CopiedBlob(result ? result->c_str() : nullptr)) {}

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
