#include "agent/session/reply.h"

#include <stdexcept>

namespace nox::agent {

void Reply::send(noxp::ResponseProt& response) {
  if (sent_) throw std::logic_error("a request was answered twice");
  sent_ = true;
  if (properties_.compress) response.setProperties(&properties_);
  if (beforeSend_) beforeSend_();
  writer_.writeRoot(response);
}

void Reply::compressFrom(int threshold) {
  properties_.compress = threshold >= 0;
  properties_.compressThreshold = threshold;
}

}  // namespace nox::agent
