// ResponseProt, the root of everything the agent answers.
#pragma once

#include "nox/core/serializable.h"

namespace nox {
namespace noxp {

/// No fields; each reply's `serialize` writes that reply's own.
class NOX_EXPORT ResponseProt : public Serializable {
public:
  ResponseProt(const ResponseProt&) = default;
  ResponseProt& operator=(const ResponseProt&) = default;
  ~ResponseProt() override;

protected:
  ResponseProt() = default;
};

}  // namespace noxp
}  // namespace nox
