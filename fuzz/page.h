// An HTTP request that keeps its text, as an agent would define one.
#pragma once

#include <string>

#include "nox/core/archive.h"
#include "nox/protocol/http_request.h"

namespace nox::fuzz {

class Page : public noxp::HTTPRequestProt {
public:
  Serializable* create() override { return new Page; }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(text_, "text");
  }
  bool isServiceEnabled(int) override { return true; }
  int getMaxRequestSize() override { return maxSize; }
  void setError(int status, const char*) override { status_ = status; }

  static inline int maxSize = 0;
  std::string text_;
  int status_ = 0;
};

}  // namespace nox::fuzz
