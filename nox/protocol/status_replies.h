// The replies that every service shares, and the requests that carry nothing.
#pragma once

#include <string>

#include "nox/protocol/message.h"
#include "nox/protocol/sql_ext_error.h"

namespace nox {

/// "Done", without a result. Carries the text "OK", which nobody checks.
class NOX_EXPORT OKResponseProt : public Response<OKResponseProt, TypeCode::OKResponse> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// "Failed", with the error. Each constructor that is given an error copies it and writes one line
/// to the error log, which the reply does not depend on.
class NOX_EXPORT ErrorResponseProt : public Response<ErrorResponseProt, TypeCode::ErrorResponse> {
public:
  /// Without an error: what is read into. Written, it carries a null object.
  ErrorResponseProt() = default;
  /// Logs " " and the message.
  explicit ErrorResponseProt(const SQLExtError& e);
  /// Logs the message, `file` and `line`. Deliberate: with nothing between them.
  ErrorResponseProt(const SQLExtError& e, const char* file, int line);

  /// Null only in a reply that was neither given an error nor read. A null object on the wire reads
  /// as the default error, "00"/"000".
  SQLExtError* getError() const { return err_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Owned<SQLExtError> err_ = nullptr;
};

namespace noxp {

/// Stands for a request that failed before it could be read. Deliberate: the error stays here and
/// never crosses the wire; a receiver sees the type code alone.
class NOX_EXPORT InternalErrorRequestProt
    : public Request<InternalErrorRequestProt, TypeCode::InternalErrorRequest> {
public:
  InternalErrorRequestProt() = default;
  /// An internal error, IE/000.
  explicit InternalErrorRequestProt(const std::string& msg);

  SQLExtError* getError() const { return err_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Owned<SQLExtError> err_;
};

/// A request that carries nothing.
class NOX_EXPORT DummyRequestProt : public Request<DummyRequestProt, TypeCode::DummyRequest> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// Stands for a request of an unknown kind; carries nothing.
class NOX_EXPORT UnrecognizedRequestProt
    : public Request<UnrecognizedRequestProt, TypeCode::UnrecognizedRequest> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// What a command that ran on the agent printed.
class NOX_EXPORT InputOutputResponseProt
    : public Response<InputOutputResponseProt, TypeCode::InputOutputResponse> {
public:
  InputOutputResponseProt() = default;
  /// Without output, which travels as a null blob.
  explicit InputOutputResponseProt(int command);
  /// Copies `data`; null gives a reply without output.
  InputOutputResponseProt(int command, const NOXPBlob* data);

  int getCommand() const { return command_; }
  NOXPBlob* getOutput() const { return output_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int command_ = 0;
  OwnedBlob output_;
};

}  // namespace noxp
}  // namespace nox
