// A factory of the messages that belong to no service, for frames whose damage may turn one message
// into another.
#pragma once

#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/sql_ext_error.h"
#include "nox/protocol/status_replies.h"
#include "tests/support/frames.h"

namespace nox::test {

using ProtocolClasses =
    Classes<noxp::InternalErrorRequestProt, ErrorResponseProt,
            noxp::ACEBinaryFormatParameterListProt, noxp::common::SetPropertiesRequestProt,
            noxp::InputOutputResponseProt, noxp::common::SetPropertiesResponseProt, SQLExtError,
            noxp::common::LoggingRequestProt, OKResponseProt, noxp::common::EchoRequestProt,
            noxp::common::EchoResponseProt>;

/// Reads `frame` with all of these classes and expects a Message.
template <class Message>
std::unique_ptr<Message> readMessage(std::string_view frame) {
  ProtocolClasses factory;
  return readAs<Message>(frame, factory);
}

/// Damages `frame` in every way and reads it with all of these classes.
inline void expectSurvivesDamage(const std::string& frame) {
  ProtocolClasses factory;
  expectSurvivesDamage(frame, factory);
}

}  // namespace nox::test
