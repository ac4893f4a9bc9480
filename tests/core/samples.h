// Small message classes for the tests of the core: one per kind of field, and the awkward ones.
#pragma once

#include <string>

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/core/serializable.h"
#include "nox/protocol/request.h"

namespace nox::test {

/// A class without fields, of the type code `Code`.
template <int Code>
class Bare : public Serializable {
public:
  Serializable* create() override { return new Bare; }
  int getType() override { return Code; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar; }
};

/// Type 3: a number and a std::string, the worked example of docs/wire-format.md.
class Pair : public Serializable {
public:
  Pair() = default;
  Pair(int number, std::string text) : number_(number), text_(std::move(text)) {}
  Serializable* create() override { return new Pair; }
  int getType() override { return 3; }
  Archive& serialize(Archive& ar, unsigned int version) override {
    version_ = version;
    return ar & number_ & text_;
  }

  int number_ = 0;
  std::string text_;
  unsigned int version_ = 0;  // as `serialize` was last called
};

/// Type 4: one NOXPString.
class Text : public Serializable {
public:
  Text() = default;
  explicit Text(const NOXPString& text) : text_(text) {}
  Serializable* create() override { return new Text; }
  int getType() override { return 4; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & &text_; }

  NOXPString text_;
};

/// Type 5: one NOXPBlob.
class Bytes : public Serializable {
public:
  Bytes() = default;
  explicit Bytes(const std::string& data) : blob_(data.data(), data.size()) {}
  Serializable* create() override { return new Bytes; }
  int getType() override { return 5; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & &blob_; }
  std::string content() const {
    return {reinterpret_cast<const char*>(blob_.getBuf()), blob_.length()};
  }

  NOXPBlob blob_;
};

/// Type 6: fields that are null on both sides.
class Nulls : public Serializable {
public:
  Serializable* create() override { return new Nulls; }
  int getType() override { return 6; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar & static_cast<NOXPString*>(nullptr) & static_cast<NOXPBlob*>(nullptr) &
           static_cast<Serializable*>(nullptr) & last_;
  }

  int last_ = 0;
};

/// Type 7: holds an object of type 8.
class Holder : public Serializable {
public:
  Serializable* create() override { return new Holder; }
  int getType() override { return 7; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & &inner_; }

  class Inner : public Serializable {
  public:
    Serializable* create() override { return new Inner; }
    int getType() override { return 8; }
    Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar & number_; }
    int number_ = 0;
  };
  Inner inner_;
};

/// Type 15: reads whatever comes through a null pointer, itself included.
class Anything : public Serializable {
public:
  Serializable* create() override { return new Anything; }
  int getType() override { return 15; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar & static_cast<Serializable*>(nullptr);
  }
};

/// Type 16: every kind of field; strings and blobs the message owns.
class Everything : public Serializable {
public:
  Everything() = default;
  Everything(int number, std::string plain, CopiedString text, CopiedBlob blob)
      : number_(number), plain_(std::move(plain)), text_(text), blob_(blob) {}
  Serializable* create() override { return new Everything; }
  int getType() override { return 16; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(number_, "number")
        .process(plain_, "plain")
        .process(text_, "text")
        .process(blob_, "blob")
        .process(&inner_, "inner")
        .process(absent_, "absent");
  }

  int number_ = 0;
  std::string plain_;
  OwnedString text_;
  OwnedBlob blob_;
  Holder::Inner inner_;
  OwnedString absent_ = nullptr;
};

/// Type 17: a request without fields.
class Ask : public noxp::RequestProt {
public:
  Serializable* create() override { return new Ask; }
  int getType() override { return 17; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override { return ar; }
};

}  // namespace nox::test
