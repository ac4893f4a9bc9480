#include "nox/core/object_factory.h"

#include <cstdio>

#include "nox/core/archive.h"
#include "nox/core/exceptions.h"
#include "nox/diag/file_loggers.h"
#include "nox/encodings/xml_object_writer.h"
#include "nox/io/buffered_out_stream.h"

namespace nox {

namespace {

bool inRange(int type) { return type >= 0 && type < ObjectFactory::kCapacity; }

[[noreturn]] void throwNotRegistered(int type) {
  NOX_LOG(filelog::error) << "ObjectFactory::createObject: type " << static_cast<long>(type)
                          << " not registered." << EndLog();
  throw new UnknownType(type);
}

}  // namespace

ObjectFactory::ObjectFactory() = default;

ObjectFactory::ObjectFactory(const ObjectFactory& other)
    : Serializable(other), typeNames_(other.typeNames_) {
  for (int type = 0; type < kCapacity; ++type) {
    if (other.prototypes_[type]) prototypes_[type].reset(other.prototypes_[type]->create());
  }
}

ObjectFactory& ObjectFactory::operator=(const ObjectFactory& other) {
  if (this == &other) return *this;
  // Copies first: an allocation that fails leaves this factory as it was.
  std::array<std::unique_ptr<Serializable>, kCapacity> prototypes;
  for (int type = 0; type < kCapacity; ++type) {
    if (other.prototypes_[type]) prototypes[type].reset(other.prototypes_[type]->create());
  }
  Serializable::operator=(other);
  prototypes_ = std::move(prototypes);
  typeNames_ = other.typeNames_;
  return *this;
}

ObjectFactory::ObjectFactory(ObjectFactory&& other) noexcept
    : Serializable(other), prototypes_(std::move(other.prototypes_)), typeNames_(other.typeNames_) {
  other.typeNames_.fill(nullptr);
}

ObjectFactory& ObjectFactory::operator=(ObjectFactory&& other) noexcept {
  if (this == &other) return *this;
  Serializable::operator=(other);
  prototypes_ = std::move(other.prototypes_);
  typeNames_ = other.typeNames_;
  other.typeNames_.fill(nullptr);
  return *this;
}

ObjectFactory::~ObjectFactory() = default;

int ObjectFactory::getType() { return 0; }

Archive& ObjectFactory::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) return ar;
  for (int type = 0; type < kCapacity; ++type) {
    if (!prototypes_[type]) continue;
    // A fresh object in the prototype's place: writing converts strings in place, and the
    // prototypes are shared by all threads that read.
    const std::unique_ptr<Serializable> sample(prototypes_[type]->create());
    ar.process(sample.get(), typeNames_[type]);
  }
  return ar;
}

unsigned int ObjectFactory::getVersion() { return 0; }

Serializable* ObjectFactory::createObject(int type) {
  if (!inRange(type)) {
    NOX_LOG(filelog::error) << "ObjectFactory::createObject: invalid value: type = "
                            << static_cast<long>(type) << EndLog();
    throw new UnknownType(type);
  }
  Serializable* prototype = prototypes_[type].get();
  if (!prototype) throwNotRegistered(type);
  NOX_LOG(filelog::debug) << "ObjectFactory::createObject: creating " << typeNames_[type] << "("
                          << static_cast<long>(type)
                          << "), version: " << static_cast<long>(prototype->getVersion())
                          << EndLog();
  Serializable* object = prototype->create();
  if (!object) throwNotRegistered(type);
  return object;
}

void ObjectFactory::registerType(Serializable* prototype, const char* name) {
  const int type = prototype ? prototype->getType() : -1;
  NOX_LOG(filelog::debug) << "ObjectFactory::registerType: (" << static_cast<long>(type) << ") "
                          << name << EndLog();
  if (!inRange(type)) {
    NOX_LOG(filelog::error) << "ObjectFactory::registerType: invalid value: type = "
                            << static_cast<long>(type) << EndLog();
    throw new UnknownType(type);
  }
  if (prototypes_[type]) {
    NOX_LOG(filelog::error) << "ObjectFactory::registerType duplicate type "
                            << static_cast<long>(type) << EndLog();
    throw new DuplicateType(type);
  }
  prototypes_[type].reset(prototype);
  typeNames_[type] = name;
}

const char* ObjectFactory::getTypeName(int type) {
  if (!inRange(type)) {
    NOX_LOG(filelog::error) << "ObjectFactory::getTypeName: invalid value: type = "
                            << static_cast<long>(type) << EndLog();
    return nullptr;
  }
  return typeNames_[type];
}

void ObjectFactory::dump() {
  BufferedOutStream text(nullptr, true);
  XMLObjectWriter writer(this, &text);
  writer.writeRoot(*this);
  std::fwrite(text.getBuffer(), 1, text.getLength(), stderr);
  std::fputc('\n', stderr);
}

}  // namespace nox
