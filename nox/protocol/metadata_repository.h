// The keyed store from which a server answers what data system stands behind it.
#pragma once

#include <cstddef>
#include <map>
#include <string>

#include "nox/core/owned.h"

namespace nox {

/// Facts as blobs under text keys, in byte-wise key order. Not a message of its own. Copies deeply.
class NOX_EXPORT MetaDataRepositoryProt {
public:
  MetaDataRepositoryProt() = default;
  MetaDataRepositoryProt(const MetaDataRepositoryProt&) = default;
  MetaDataRepositoryProt& operator=(const MetaDataRepositoryProt&) = default;
  virtual ~MetaDataRepositoryProt();

  /// The value, which stays the repository's; null when there is none.
  NOXPBlob* getRepositoryEntry(const std::string& key) const;
  /// Takes `value` over and deletes the value it replaces.
  void setRepositoryEntry(const std::string& key, NOXPBlob* value);
  /// Stores the text up to its first NUL.
  void setRepositoryEntry(const std::string& key, const std::string& value);
  /// Whether the key is absent or its value has no bytes.
  bool isEmptyValue(std::string key) const;
  std::size_t getRepositorySize() const { return entries_.size(); }

private:
  void setRepositoryEntry(const std::string& key, NOXPBlob& value);

  std::map<std::string, OwnedBlob> entries_;
};

}  // namespace nox
