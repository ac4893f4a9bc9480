// What strings, blobs and property sets hold, as values that compare and print.
#pragma once

#include <string>

#include "nox/auth/properties.h"
#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox::test {

/// "(null)" for null, which no test uses as a content. Leaves the string as it is.
inline std::string contentOf(const NOXPString* text) {
  return text ? NOXPString(*text).getString() : "(null)";
}

inline std::string contentOf(const NOXPBlob* blob) {
  if (!blob) return "(null)";
  return std::string(reinterpret_cast<const char*>(blob->getBuf()), blob->length());
}

inline Properties::Pairs contentOf(const Properties& set) {
  return Properties::Pairs(set.begin(), set.end());
}

}  // namespace nox::test
