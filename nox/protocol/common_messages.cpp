#include "nox/protocol/common_messages.h"

#include "nox/core/archive.h"

namespace nox::noxp::common {

EchoRequestProt::EchoRequestProt(std::uint64_t size) {
  buffer_->setSize(static_cast<std::size_t>(size));
}

Archive& EchoRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(buffer_, "buffer");
}

EchoResponseProt::EchoResponseProt(Adopted<NOXPBlob> buffer) : buffer_(std::move(buffer)) {}

Archive& EchoResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(buffer_, "buffer");
}

LoggingRequestProt::LoggingRequestProt(const NOXPString* info, int level)
    : info_(CopiedString(info)), level_(level) {}

Archive& LoggingRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(info_, "info").process(level_, "level");
}

SetPropertiesRequestProt::SetPropertiesRequestProt(const Properties& properties)
    : set_(Copied<Properties>(&properties)) {}

Archive& SetPropertiesRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return set_->selfSerialize(ar);
}

Archive& SetPropertiesResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  int result = 0;
  return ar.process(result, "result");
}

}  // namespace nox::noxp::common
