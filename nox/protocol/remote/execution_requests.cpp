#include "nox/protocol/remote/execution_requests.h"

#include <cstddef>
#include <utility>

#include "nox/diag/file_loggers.h"

namespace nox::noxp::remote {

namespace {

// Deliberate: this version only. Version 2 leaves the list out again.
constexpr unsigned int kVersionWithSelectList = 1;

}  // namespace

RemoteExecuteRequestProt::RemoteExecuteRequestProt() {
  command_.emplaceEmpty();
  selectList_.emplaceEmpty();
  serverSide = true;
}

RemoteExecuteRequestProt::RemoteExecuteRequestProt(Borrowed<NOXPBlob> command)
    : RemoteExecuteRequestProt(command, nullptr) {}

RemoteExecuteRequestProt::RemoteExecuteRequestProt(Borrowed<NOXPBlob> command,
                                                   Borrowed<SelectListProt> selectList)
    : command_(command), selectList_(selectList) {
  if (!command_) command_.emplaceEmpty();
}

RemoteExecuteRequestProt::RemoteExecuteRequestProt(const RemoteExecuteRequestProt& other)
    : Message(other), command_(other.command_), selectList_(other.selectList_) {
  serverSide = true;
}

RemoteExecuteRequestProt& RemoteExecuteRequestProt::operator=(
    const RemoteExecuteRequestProt& other) {
  if (this == &other) return *this;
  Message::operator=(other);
  command_ = other.command_;
  selectList_ = other.selectList_;
  serverSide = true;
  return *this;
}

RemoteExecuteRequestProt::~RemoteExecuteRequestProt() {
  NOX_LOG(filelog::debug) << "RemoteExecuteRequestProt::~RemoteExecuteRequestProt()" << EndLog();
}

Archive& RemoteExecuteRequestProt::serialize(Archive& ar, unsigned int version) {
  serializedVersion = version;
  ar.process(command_.get(), "command");
  if (version == kVersionWithSelectList) ar.process(selectList_, "selectList");
  return ar;
}

RemoteSubroutineRequestProt::RemoteSubroutineRequestProt(const NOXPString* subroutineName,
                                                         Adopted<ParameterListProt> parameters)
    : subroutineName_(CopiedString(subroutineName)), parameters_(std::move(parameters)) {}

RemoteSubroutineRequestProt::RemoteSubroutineRequestProt(const NOXPString* subroutineName,
                                                         int /*number*/,
                                                         Adopted<ParameterListProt> parameters)
    : subroutineName_(CopiedString(subroutineName)),
      parameters_(std::move(parameters)),
      threeArguments_(1) {}

RemoteSubroutineRequestProt::~RemoteSubroutineRequestProt() {
  NOX_LOG(filelog::debug) << "RemoteSubroutineRequestProt::~RemoteSubroutineRequestProt\n"
                          << EndLog();
}

Archive& RemoteSubroutineRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(subroutineName_, "_subroutineName").process(parameters_, "_parameters");
}

RemoteInputRequestProt::RemoteInputRequestProt(const NOXPString* inputData)
    : inputData_(CopiedString(inputData)) {}

RemoteInputRequestProt::RemoteInputRequestProt(const char* inputData, int length) {
  if (inputData) {
    inputData_->assign(inputData, length > 0 ? static_cast<std::size_t>(length) : 0, false);
  }
}

Archive& RemoteInputRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(inputData_, "_inputData");
}

}  // namespace nox::noxp::remote
