#include "nox/protocol/metadata_repository.h"

namespace nox {

MetaDataRepositoryProt::~MetaDataRepositoryProt() = default;

NOXPBlob* MetaDataRepositoryProt::getRepositoryEntry(const std::string& key) const {
  const auto entry = entries_.find(key);
  return entry == entries_.end() ? nullptr : entry->second.get();
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, NOXPBlob* value) {
  entries_.try_emplace(key, nullptr).first->second.adopt(value);
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, const std::string& value) {
  entries_.try_emplace(key, nullptr).first->second.assign(CopiedBlob(value.c_str()));
}

void MetaDataRepositoryProt::setRepositoryEntry(const std::string& key, NOXPBlob& value) {
  entries_.try_emplace(key, nullptr).first->second.assign(CopiedBlob(&value));
}

bool MetaDataRepositoryProt::isEmptyValue(std::string key) const {
  const NOXPBlob* const value = getRepositoryEntry(key);
  return !value || value->length() == 0;
}

}  // namespace nox
