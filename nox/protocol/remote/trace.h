// The trace line that some requests write around their fields. Include it in .cpp files only.
#pragma once

#include "nox/diag/logger.h"
#include "nox/text/pstring.h"

namespace nox::noxp::remote {

/// Writes `arrow`, a class name, "::serialize(this = ", `request`, "): ", `field`, "='", `text`,
/// "'". `arrowAndClass` is the first two: "=> " for what is about to be processed, "<= " for what
/// came of it, then the name. A null `text` shows as ''. Without logger output the call is empty.
inline void traceField([[maybe_unused]] Logger& log, [[maybe_unused]] const char* arrowAndClass,
                       [[maybe_unused]] const void* request, [[maybe_unused]] const char* field,
                       [[maybe_unused]] NOXPString* text) {
  if constexpr (kLoggerOutput) {
    log << arrowAndClass << "::serialize(this = " << request << "): " << field << "='"
        << (text ? text->c_str() : "") << "'" << EndLog();
  }
}

}  // namespace nox::noxp::remote
