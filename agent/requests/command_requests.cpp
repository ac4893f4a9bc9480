// Commands, input for what they ask, subroutines and conversions: 220, 210, 209 and 223.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <nox/nox.h>

#include "agent/commands/commands.h"
#include "agent/conversions/conversions.h"
#include "agent/failure.h"
#include "agent/lists/select_lists.h"
#include "agent/requests/fields.h"
#include "agent/scripting/subroutine.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace {

using noxp::remote::ConvRequestProt;
using noxp::remote::ConvResponseProt;
using noxp::remote::RemoteExecuteRequestProt;
using noxp::remote::RemoteInputRequestProt;
using noxp::remote::RemoteSubroutineRequestProt;
using noxp::remote::SubroutineResponseProt;

/// What the rest of a reply's frame takes at most, and each parameter besides its bytes.
constexpr std::size_t kFrameOverhead = 1024;
constexpr std::size_t kParameterOverhead = 24;

/// The layout of the request in which the list travels.
constexpr unsigned int kVersionWithList = 1;

void execute(Session& session, RemoteExecuteRequestProt& request, Reply& reply) {
  if (request.getSerializedVersion() == kVersionWithList) {
    session.lists().activate(request.getSelectList());
  }
  session.start(makeCommand(session, bytesOf(request.getCommand())), reply);
}

void input(Session& session, RemoteInputRequestProt& request, Reply& reply) {
  session.resume(textOf(request.getInputData()), reply);
}

/// A subroutine that was called for its parameters: they go back with the types that came.
class SubroutineCall : public Program {
public:
  SubroutineCall(Session& session, std::unique_ptr<Subroutine> subroutine, std::vector<int> types)
      : session_(session), subroutine_(std::move(subroutine)), types_(std::move(types)) {}

  State run(std::optional<std::string_view> input) override { return subroutine_->run(input); }
  std::string takeOutput() override { return subroutine_->takeOutput(); }

  void finish(Reply& reply) override {
    const std::vector<Argument>& arguments = subroutine_->arguments();
    noxp::ACEBinaryFormatParameterListProt parameters(static_cast<int>(types_.size()));
    std::size_t size = kFrameOverhead;
    for (std::size_t i = 0; i < types_.size(); ++i) {
      const int index = static_cast<int>(i);
      const bool isNull = i >= arguments.size() || !arguments[i];
      size += kParameterOverhead + (isNull ? 0 : arguments[i]->size());
      if (size > session_.frameCap()) {
        throw Failure("IE", "003", "the parameters that it left are longer than a frame may be");
      }
      if (isNull) {
        parameters.setNull(index, types_[i]);
      } else {
        parameters.setString(index, *arguments[i], types_[i]);
      }
    }
    constexpr int kDone = 0;
    constexpr int kAborted = 1;
    reply.send(SubroutineResponseProt(subroutine_->aborted() ? kAborted : kDone, &parameters));
  }

private:
  Session& session_;
  std::unique_ptr<Subroutine> subroutine_;
  std::vector<int> types_;
};

void callSubroutine(Session& session, RemoteSubroutineRequestProt& request, Reply& reply) {
  std::vector<Argument> arguments;
  std::vector<int> types;
  if (noxp::ParameterListProt* const parameters = request.getParameters()) {
    for (unsigned int i = 0; i < parameters->count(); ++i) {
      const int index = static_cast<int>(i);
      types.push_back(parameters->getParameterType(index));
      if (parameters->isNull(index) == 1) {
        arguments.emplace_back(std::nullopt);
      } else {
        arguments.emplace_back(std::string(bytesOf(parameters->getPtr(i))));
      }
    }
  }
  std::unique_ptr<Subroutine> subroutine = makeSubroutine(
      session, textOf(request.getSubroutineName()), std::move(arguments), /*mayPrompt=*/true);
  session.start(std::make_unique<SubroutineCall>(session, std::move(subroutine), std::move(types)),
                reply);
}

void applyConversion(Session& session, ConvRequestProt& request, Reply& reply) {
  const int direction = request.getConvType();
  if (direction != static_cast<int>(Direction::Output) &&
      direction != static_cast<int>(Direction::Input)) {
    throw Failure("22", "003", "the type of a conversion is 0, output, or 1, input");
  }
  const std::string result = convert(textOf(request.getData()), textOf(request.getConversion()),
                                     static_cast<Direction>(direction));
  if (result.size() + kFrameOverhead > session.frameCap()) {
    throw Failure("22", "001", "the result is longer than a frame may be");
  }
  const NOXPBlob blob(result.data(), result.size());
  reply.send(ConvResponseProt(&blob));
}

}  // namespace

void registerCommandRequests(Dispatcher& dispatcher) {
  dispatcher.on<RemoteExecuteRequestProt>("Execute", execute);
  dispatcher.on<RemoteInputRequestProt>("Input", input).keepsPrompt = true;
  dispatcher.on<RemoteSubroutineRequestProt>("Subroutine", callSubroutine);
  dispatcher.on<ConvRequestProt>("Conversion", applyConversion);
}

}  // namespace nox::agent
