#include "nox/protocol/metadata_repository.h"

#include <memory>

namespace nox {

MetaDataRepositoryProt::~MetaDataRepositoryProt() = default;

NOXPBlob* MetaDataRepositoryProt::getRepositoryEntry(const std::string& key) const {
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? nullptr : entry->second.get();
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, NOXPBlob* value) {
  std::unique_ptr<NOXPBlob> taken(value);
  OwnedBlob& entry = entries_.try_emplace(key, nullptr).first->second;
  entry.adopt(taken.release());
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, const std::string& value) {
  NOXPBlob text(value.c_str());
  setRepositoryEntry(key, text);
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, NOXPBlob& value) {
  entries_.try_emplace(key, nullptr).first->second.assign(CopiedBlob(&value));
}

bool MetaDataRepositoryProt::isEmptyValue(std::string key) const {
  const NOXPBlob* const value = getRepositoryEntry(key);
  return !value || value->length() == 0;
}

}  // namespace nox
