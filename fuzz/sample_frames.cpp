#include "fuzz/sample_frames.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_writer.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox::fuzz {

namespace {

/// Fills an object as if it were read: every integer, and so every count, is the same small number.
class SampleReader : public Reader {
public:
  using Reader::process;

  SampleReader(int number, std::string text) : number_(number), text_(std::move(text)) {}

  Archive& process(NOXPBlob* value, const char* /*name*/) override {
    if (value) value->assign(text_.data(), text_.size());
    return *this;
  }
  Archive& process(NOXPString* value, const char* /*name*/) override {
    if (value) value->assign(text_.data(), text_.size(), true);
    return *this;
  }
  Archive& process(std::string& value, const char* /*name*/) override {
    value = text_;
    return *this;
  }
  Archive& process(int& value, const char* /*name*/) override {
    value = number_;
    return *this;
  }
  Archive& process(Serializable* value, const char* /*name*/) override {
    if (value) fill(*value);
    return *this;
  }

  void fill(Serializable& object) {
    object.setClassVersion(version);
    object.serialize(*this, static_cast<unsigned int>(version));
  }

  int version = 0;

private:
  int number_;
  std::string text_;
};

std::string frameOf(Serializable& root) {
  MemoryBufferOutStream out;
  BinaryWriter(&out).writeRoot(root);
  return out.str();
}

}  // namespace

std::vector<std::string> sampleFrames(ObjectFactory& factory) {
  // Layouts go up to version 2. A list of 1 has room for "there are records: 1" of select lists.
  constexpr int kVersions = 3;
  SampleReader readers[] = {{0, ""}, {1, "a text"}, {2, "1:ID,tableName:T,scale:2,hidden:0"}};
  std::vector<std::string> frames;
  for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
    if (!factory.getTypeName(code)) continue;
    for (int version = 0; version < kVersions; ++version) {
      for (SampleReader& reader : readers) {
        reader.version = version;
        const std::unique_ptr<Serializable> object(factory.createObject(code));
        reader.fill(*object);
        frames.push_back(frameOf(*object));
      }
    }
  }
  std::sort(frames.begin(), frames.end());
  frames.erase(std::unique(frames.begin(), frames.end()), frames.end());
  return frames;
}

}  // namespace nox::fuzz
