// What the server answers to remote requests. All but the status is the server's to interpret, and
// so is the status beyond its default.
//
// Owned fields that are absent are written as the null object. A reply that is read always has
// them: a null object then leaves an empty one, for a select list the one with id -1.
#pragma once

#include "nox/core/owned.h"
#include "nox/protocol/message.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/select_list.h"

namespace nox {

/// Replies declare their select list as any object, but what they read is a SelectListProt. A list
/// is copied as lists are; another object by writing it and reading it back.
template <>
struct NOX_EXPORT FieldTraits<Serializable> {
  static Serializable* makeEmpty();
  static Serializable* clone(const Serializable& other);
};

namespace noxp::remote {

/// A record, a select list, or both: the answer to most file and record requests.
class NOX_EXPORT ToviResponseProt : public Response<ToviResponseProt, TypeCode::ToviResponse> {
public:
  ToviResponseProt() = default;
  /// Takes `record` and `list` over; both may be null.
  ToviResponseProt(int status, Adopted<NOXPBlob> record, Adopted<Serializable> list = nullptr);

  int getStatus() const { return status_; }
  NOXPBlob* getRecord() const { return record_.get(); }
  Serializable* getSelectList() const { return selectList_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int status_ = 1;
  OwnedBlob record_ = nullptr;
  Owned<Serializable> selectList_ = nullptr;
};

/// What a command printed, what it set, and the list it left.
class NOX_EXPORT ExecuteResponseProt
    : public Response<ExecuteResponseProt, TypeCode::ExecuteResponse> {
public:
  ExecuteResponseProt() = default;
  /// Copies the blobs and takes `list`, which may be null, over.
  ExecuteResponseProt(CopiedBlob capturing, CopiedBlob setting, Adopted<Serializable> list);

  NOXPBlob* getCapturingVariable() const { return capturingVariable_.get(); }
  NOXPBlob* getSettingVariable() const { return settingVariable_.get(); }
  Serializable* getSelectList() const { return selectList_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob capturingVariable_;
  OwnedBlob settingVariable_;
  Owned<Serializable> selectList_ = nullptr;
};

/// A transaction request was carried out. Carries nothing.
class NOX_EXPORT TransactionResponseProt
    : public Response<TransactionResponseProt, TypeCode::TransactionResponse> {
public:
  Archive& serialize(Archive& ar, unsigned int version) override;
};

/// The parameters as a subroutine left them.
class NOX_EXPORT SubroutineResponseProt
    : public Response<SubroutineResponseProt, TypeCode::SubroutineResponse> {
public:
  SubroutineResponseProt() = default;
  /// Copies `parameters`; null leaves them absent.
  SubroutineResponseProt(int status, Copied<ParameterListProt> parameters = nullptr);

  int getStatus() const { return status_; }
  ParameterListProt* getParameters() const { return parameters_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int status_ = 0;
  Owned<ParameterListProt> parameters_ = nullptr;
};

/// The server's date and time, in units of its own choice.
class NOX_EXPORT DateTimeResponseProt
    : public Response<DateTimeResponseProt, TypeCode::DateTimeResponse> {
public:
  DateTimeResponseProt() = default;
  DateTimeResponseProt(int date, int time);

  int getDate() const { return date_; }
  int getTime() const { return time_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int date_ = 0;
  int time_ = 0;
};

/// The value of a named common.
class NOX_EXPORT ReadCommonResponseProt
    : public Response<ReadCommonResponseProt, TypeCode::ReadCommonResponse> {
public:
  ReadCommonResponseProt() = default;
  /// Copies a blob or the bytes of a C string.
  ReadCommonResponseProt(CopiedBlob value);

  NOXPBlob* getValue() const { return value_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob value_;
};

/// The converted data.
class NOX_EXPORT ConvResponseProt : public Response<ConvResponseProt, TypeCode::ConvResponse> {
public:
  ConvResponseProt() = default;
  /// Copies the bytes of the string's text, which becomes Narrow where it is Wide.
  ConvResponseProt(NOXPString* result);
  ConvResponseProt(const NOXPBlob* result);

  NOXPBlob* getResult() const { return result_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedBlob result_;
};

/// Whether the session now works in the account asked for.
class NOX_EXPORT SwitchAccountResponseProt
    : public Response<SwitchAccountResponseProt, TypeCode::SwitchAccountResponse> {
public:
  SwitchAccountResponseProt() = default;
  SwitchAccountResponseProt(int status);

  int getStatus() const { return status_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int status_ = 1;
};

/// The rows of a statement, one value each.
class NOX_EXPORT StatementFetchResponseProt
    : public Response<StatementFetchResponseProt, TypeCode::StatementFetchResponse> {
public:
  StatementFetchResponseProt() = default;
  /// Takes `rows` over; null leaves them absent.
  StatementFetchResponseProt(int status, Adopted<ParameterListProt> rows);

  int getStatus() const { return status_; }
  ParameterListProt* getParameterList() const { return rows_.get(); }
  ParameterListProt* getRows() const { return rows_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int status_ = 0;
  Owned<ParameterListProt> rows_ = nullptr;
};

}  // namespace noxp::remote
}  // namespace nox
