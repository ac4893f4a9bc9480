#include "nox/protocol/remote/session_requests.h"

#include "nox/diag/file_loggers.h"
#include "nox/protocol/remote/trace.h"

namespace nox::noxp::remote {

ConvRequestProt::ConvRequestProt(int convType, CopiedString data, CopiedString conversion)
    : convType_(convType), data_(data), conversion_(conversion) {}

ConvRequestProt::ConvRequestProt(const ConvRequestProt* other) {
  if (other) *this = *other;
}

Archive& ConvRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(convType_, "_convType")
      .process(data_, "_data")
      .process(conversion_, "_conversion");
}

SwitchAccountRequestProt::SwitchAccountRequestProt(CopiedString user, CopiedString account,
                                                   CopiedString password)
    : user_(user), account_(account), password_(password) {}

SwitchAccountRequestProt::SwitchAccountRequestProt(const SwitchAccountRequestProt* other) {
  if (other) *this = *other;
}

SwitchAccountRequestProt::~SwitchAccountRequestProt() {
  NOX_LOG(filelog::debug) << "SwitchAccountRequestProt::~SwitchAccountRequestProt\n" << EndLog();
}

void SwitchAccountRequestProt::trace(const char* arrowAndClass) const {
  traceField(filelog::debug, arrowAndClass, this, "_user", user_.get());
  traceField(filelog::debug, arrowAndClass, this, "_account", account_.get());
  // Deliberate: in clear, as the others.
  traceField(filelog::debug, arrowAndClass, this, "_password", password_.get());
}

Archive& SwitchAccountRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  trace("=> SwitchAccountRequestProt");
  ar.process(user_, "_user").process(account_, "_account").process(password_, "_password");
  // Deliberate: the established closing lines, which name another class.
  trace("<= OpenFileRequestProt");
  return ar;
}

Archive& DateTimeRequestProt::serialize(Archive& ar, unsigned int /*version*/) { return ar; }

}  // namespace nox::noxp::remote
