// Requests that run something on the server: a command, a subroutine, and input for what it asks.
//
// What becomes of a constructor's arguments differs from class to class and stands at each one.
// A command is answered with an ExecuteResponseProt, or with an InputOutputResponseProt when it
// waits for input; a subroutine with a SubroutineResponseProt.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/select_list.h"

namespace nox::noxp::remote {

/// Runs a command line, with the select list that is to be active meanwhile.
///
/// The list travels in version 1 of the layout only, so a client that has one must call
/// `setClassVersion(1)` before it writes the request.
class NOX_EXPORT RemoteExecuteRequestProt
    : public Request<RemoteExecuteRequestProt, TypeCode::RemoteExecuteRequest> {
public:
  /// A server-side request with an empty command and an empty list of its own.
  RemoteExecuteRequestProt();
  /// Borrows the command, and has no list. A null command is an empty one.
  RemoteExecuteRequestProt(Borrowed<NOXPBlob> command);
  /// Borrows both; a null list is written as the null object.
  RemoteExecuteRequestProt(Borrowed<NOXPBlob> command, Borrowed<SelectListProt> selectList);
  /// A copy is deep, owns what it holds, and therefore is a server-side request.
  RemoteExecuteRequestProt(const RemoteExecuteRequestProt& other);
  RemoteExecuteRequestProt& operator=(const RemoteExecuteRequestProt& other);
  ~RemoteExecuteRequestProt() override;

  NOXPBlob* getCommand() const { return command_.get(); }
  SelectListProt* getSelectList() const { return selectList_.get(); }

  /// Keeps `version` for getSerializedVersion().
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  MaybeOwned<NOXPBlob> command_;  // never absent
  MaybeOwned<SelectListProt> selectList_;
};

/// Calls a cataloged subroutine.
class NOX_EXPORT RemoteSubroutineRequestProt
    : public Request<RemoteSubroutineRequestProt, TypeCode::RemoteSubroutineRequest> {
public:
  RemoteSubroutineRequestProt() = default;
  /// Copies the name and takes the parameters over; null parameters travel as the null object.
  RemoteSubroutineRequestProt(const NOXPString* subroutineName,
                              Adopted<ParameterListProt> parameters);
  /// The same. The number is not kept: that this constructor was used is all that is noted.
  RemoteSubroutineRequestProt(const NOXPString* subroutineName, int number,
                              Adopted<ParameterListProt> parameters);
  ~RemoteSubroutineRequestProt() override;

  NOXPString* getSubroutineName() const { return subroutineName_.get(); }
  ParameterListProt* getParameters() const { return parameters_.get(); }
  /// 1 when the request was made by the constructor of three arguments, else 0. Does not travel.
  int getThreeArguments() const { return threeArguments_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString subroutineName_;
  Owned<ParameterListProt> parameters_;
  int threeArguments_ = 0;
};

/// Gives a running program the input that it asked for.
class NOX_EXPORT RemoteInputRequestProt
    : public Request<RemoteInputRequestProt, TypeCode::RemoteInputRequest> {
public:
  RemoteInputRequestProt() = default;
  /// Copies the input.
  RemoteInputRequestProt(const NOXPString* inputData);
  /// Copies `length` bytes of text in the process code page; a negative length gives none.
  RemoteInputRequestProt(const char* inputData, int length);

  NOXPString* getInputData() const { return inputData_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString inputData_;
};

}  // namespace nox::noxp::remote
