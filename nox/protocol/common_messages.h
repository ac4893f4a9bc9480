// Messages that belong to no service: an echo, a line for the agent's log, and property sets.
// Echo and logging are in no factory of the library; whoever exchanges them registers them.
#pragma once

#include <cstdint>
#include <utility>

#include "nox/auth/properties.h"
#include "nox/protocol/message.h"

namespace nox::noxp::common {

/// Asks for an EchoResponseProt.
class NOX_EXPORT EchoRequestProt : public Request<EchoRequestProt, TypeCode::EchoRequest> {
public:
  EchoRequestProt() = default;
  /// Carries `size` zero bytes.
  explicit EchoRequestProt(std::uint64_t size);

  NOXPBlob* getBuffer() const { return buffer_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob buffer_;
};

/// The bytes that come back.
class NOX_EXPORT EchoResponseProt : public Response<EchoResponseProt, TypeCode::EchoResponse> {
public:
  /// Without a buffer, until one is read.
  EchoResponseProt() = default;
  /// Takes `buffer` over; null is written as a null blob.
  explicit EchoResponseProt(Adopted<NOXPBlob> buffer);

  NOXPBlob* getBuffer() const { return buffer_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob buffer_ = nullptr;
};

/// Asks the agent to log `info`; what the levels mean is the agent's to say.
class NOX_EXPORT LoggingRequestProt : public Request<LoggingRequestProt, TypeCode::LoggingRequest> {
public:
  LoggingRequestProt() = default;
  /// Copies `info`; null counts as empty.
  LoggingRequestProt(const NOXPString* info, int level);

  NOXPString* getInfo() const { return info_.get(); }
  int getLevel() const { return level_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString info_;
  int level_ = 0;
};

/// Hands the agent a set of properties; answered by SetPropertiesResponseProt. The set travels as
/// part of the request, without an object's head and without a field name. Reading adds to the
/// pairs that are there.
class NOX_EXPORT SetPropertiesRequestProt
    : public Request<SetPropertiesRequestProt, TypeCode::SetPropertiesRequest> {
public:
  SetPropertiesRequestProt() = default;
  /// Copies `properties` pair by pair.
  explicit SetPropertiesRequestProt(const Properties& properties);

  /// The property set. Deliberate: it hides Serializable's operation of this name, which tells how
  /// the message wishes to travel; ask a Serializable& for that one.
  Properties* getProperties() const { return set_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Owned<Properties> set_;
};

/// Says that the properties were taken. Carries the integer 0, which a reader drops.
class NOX_EXPORT SetPropertiesResponseProt
    : public Response<SetPropertiesResponseProt, TypeCode::SetPropertiesResponse> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

}  // namespace nox::noxp::common
