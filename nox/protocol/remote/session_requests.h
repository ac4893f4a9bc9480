// Requests about the session with the server: conversions, the account, date and time.
//
// Every constructor copies its arguments; a null pointer gives an empty field. They are answered
// with a ConvResponseProt, a SwitchAccountResponseProt and a DateTimeResponseProt.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::noxp::remote {

/// Converts data by one of the server's conversion codes; the types and codes are the server's.
class NOX_EXPORT ConvRequestProt : public Request<ConvRequestProt, TypeCode::ConvRequest> {
public:
  ConvRequestProt() = default;
  ConvRequestProt(int convType, CopiedString data, CopiedString conversion);
  ConvRequestProt(const ConvRequestProt& other) = default;
  /// A deep copy; of null, a default request.
  explicit ConvRequestProt(const ConvRequestProt* other);
  ConvRequestProt& operator=(const ConvRequestProt& other) = default;

  int getConvType() const { return convType_; }
  NOXPString* getData() const { return data_.get(); }
  NOXPString* getConversion() const { return conversion_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int convType_ = -1;
  OwnedString data_;
  OwnedString conversion_;
};

/// Moves the session to another account.
///
/// With logger output, the debug log shows the password in clear: keep such logs as secret as the
/// passwords, or build without output.
class NOX_EXPORT SwitchAccountRequestProt
    : public Request<SwitchAccountRequestProt, TypeCode::SwitchAccountRequest> {
public:
  SwitchAccountRequestProt() = default;
  SwitchAccountRequestProt(CopiedString user, CopiedString account, CopiedString password);
  SwitchAccountRequestProt(const SwitchAccountRequestProt& other) = default;
  /// A deep copy; of null, a default request.
  explicit SwitchAccountRequestProt(const SwitchAccountRequestProt* other);
  SwitchAccountRequestProt& operator=(const SwitchAccountRequestProt& other) = default;
  ~SwitchAccountRequestProt() override;

  NOXPString* getUser() const { return user_.get(); }
  NOXPString* getAccount() const { return account_.get(); }
  NOXPString* getPassword() const { return password_.get(); }

  /// Shows each field in the debug log before and after all are processed.
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  void trace(const char* arrowAndClass) const;

  OwnedString user_;
  OwnedString account_;
  OwnedString password_;
};

/// Asks for the server's date and time. Carries nothing.
class NOX_EXPORT DateTimeRequestProt
    : public Request<DateTimeRequestProt, TypeCode::DateTimeRequest> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

}  // namespace nox::noxp::remote
