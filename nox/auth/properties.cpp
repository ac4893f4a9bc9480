#include "nox/auth/properties.h"

#include <utility>

#include "nox/core/archive.h"

namespace nox {

namespace {

std::string orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

Properties::Properties() : pairs_(std::make_shared<Pairs>()) {}
Properties::Properties(const Properties& other) : pairs_(std::make_shared<Pairs>(*other.pairs_)) {}
Properties& Properties::operator=(const Properties& other) = default;
Properties::~Properties() = default;

void Properties::setProperty(const std::string& key, const std::string& value) {
  (*pairs_)[key] = value;
}

void Properties::setProperty(const char* key, const char* value) {
  setProperty(orEmpty(key), orEmpty(value));
}

Archive& Properties::selfSerialize(Archive& ar) {
  if (ar.isWriting()) {
    int count = static_cast<int>(pairs_->size());
    ar.process(count, "length");
    for (const auto& [key, value] : *pairs_) {
      std::string keyCopy = key;
      std::string valueCopy = value;
      ar.process(keyCopy, "key").process(valueCopy, "value");
    }
    return ar;
  }
  // The count is only a claim: pairs are kept as they come, so a false one ends in the reader's
  // exception at the first that is missing.
  int count = 0;
  ar.process(count, "length");
  for (int i = 0; i < count; ++i) {
    std::string key;
    std::string value;
    ar.process(key, "key").process(value, "value");
    (*pairs_)[std::move(key)] = std::move(value);
  }
  return ar;
}

}  // namespace nox
