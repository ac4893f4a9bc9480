// Objects whose fields each test says for itself.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/request.h"

namespace nox::test {

/// An object of any type and version. A new one made by `create` is of the same kind and shares
/// the count of living objects.
template <class Base>
class Sample : public Base {
public:
  using Body = std::function<void(Sample&, Archive&, unsigned int version)>;

  Sample(int type, Body body) : type_(type), body_(std::move(body)) { ++*alive_; }
  Sample(const Sample& other)
      : Base(other),
        text(other.text),
        version(other.version),
        type_(other.type_),
        body_(other.body_),
        alive_(other.alive_) {
    ++*alive_;
  }
  ~Sample() override { --*alive_; }

  Serializable* create() override { return new Sample(*this); }
  int getType() override { return type_; }
  unsigned int getVersion() override { return version; }
  Archive& serialize(Archive& ar, unsigned int serializedVersion) override {
    if (body_) body_(*this, ar, serializedVersion);
    return ar;
  }

  /// How many objects of this kind live, itself included.
  std::shared_ptr<int> alive() const { return alive_; }

  std::string text;  // for the body
  unsigned int version = 0;

private:
  int type_;
  Body body_;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);
};

using Object = Sample<Serializable>;
using Request = Sample<noxp::RequestProt>;

/// A factory that the test fills.
class Factory : public ObjectFactory {
public:
  Serializable* create() override { return new Factory; }

  /// Registers a copy of `prototype`.
  void know(Serializable& prototype, const char* name = "Sample") {
    std::unique_ptr<Serializable> copy(prototype.create());
    registerType(copy.get(), name);
    copy.release();
  }
};

}  // namespace nox::test
