#include "nox/protocol/remote/monitoring.h"

#include "nox/core/archive.h"

namespace nox::noxp::remote {

Archive& MonitoringRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(command_, nullptr);
}

Archive& MonitoringResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(response_, nullptr);
}

}  // namespace nox::noxp::remote
