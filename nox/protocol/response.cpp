#include "nox/protocol/response.h"

namespace nox::noxp {

ResponseProt::~ResponseProt() = default;

}  // namespace nox::noxp
