// Properties: named text settings that travel inside messages.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "nox/core/export.h"

namespace nox {

class Archive;

/// Pairs of key and value in byte-wise order of the keys. No message of its own: the message that
/// holds a set calls `selfSerialize` from its `serialize`.
class NOX_EXPORT Properties {
public:
  using Pairs = std::map<std::string, std::string>;

  Properties();
  /// Copies every pair.
  Properties(const Properties& other);
  /// Deliberate: shares the pairs instead of copying them. What either set changes afterwards both
  /// show; the pairs end with the last set that holds them.
  Properties& operator=(const Properties& other);
  ~Properties();

  void setProperty(const std::string& key, const std::string& value);
  /// Null counts as empty.
  void setProperty(const char* key, const char* value);

  Pairs::iterator begin() { return pairs_->begin(); }
  Pairs::iterator end() { return pairs_->end(); }
  Pairs::const_iterator begin() const { return pairs_->begin(); }
  Pairs::const_iterator end() const { return pairs_->end(); }

  /// Writes the set, or reads pairs into it: those already there stay, a later duplicate of a key
  /// wins. A negative count reads no pairs.
  Archive& selfSerialize(Archive& ar);

private:
  std::shared_ptr<Pairs> pairs_;
};

}  // namespace nox
