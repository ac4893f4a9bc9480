#include "nox/client/conversation.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "client/src/conversation_state.h"
#include "client/src/select_list_state.h"
#include "client/src/wire_text.h"

namespace nox::client {

namespace {

using detail::Link;

// Requests of this layout hand their select list over.
constexpr int kCommandWithSelectList = 1;

// Commands of InputOutputResponseProt.
constexpr int kHiddenInput = 2;

/// Whether the command may run a program, which may leave what the session's next user would see:
/// all may but those that are known to run none.
bool mayRunProgram(std::string_view command) {
  constexpr std::string_view kWithout[] = {
      "CLEAR-FILE",  "CLEARSELECT", "COUNT", "CREATE-FILE", "DATE",      "DELETE-FILE",
      "DELETE-LIST", "GET-LIST",    "LIST",  "LISTF",       "SAVE-LIST", "SELECT",
      "SORT",        "SSELECT",     "TIME",  "WHO"};
  command.remove_prefix(std::min(command.find_first_not_of(' '), command.size()));
  std::string verb(command.substr(0, command.find(' ')));
  for (char& c : verb) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return std::find(std::begin(kWithout), std::end(kWithout), verb) == std::end(kWithout);
}

std::int64_t numberAt(const Record& setting, std::size_t attribute) {
  const FieldView field = setting.value(attribute);
  return field.empty() ? 0 : field.toInt64();
}

}  // namespace

std::string CommandResult::text() const {
  std::string lines;
  lines.reserve(output.bytes().size() + 1);
  for (const FieldView& line : output) {
    lines += line.view();
    lines += '\n';
  }
  return lines;
}

std::int64_t CommandResult::code() const { return numberAt(setting, 1); }

std::int64_t CommandResult::items() const { return numberAt(setting, 2); }

std::unique_ptr<Conversation::State> Conversation::State::ofCommand(
    const std::shared_ptr<Link>& link, std::string_view command,
    noxp::remote::SelectListProt* list) {
  NOXPBlob text;
  detail::put(&text, command);
  noxp::remote::RemoteExecuteRequestProt request(&text, list);
  if (list) request.setClassVersion(kCommandWithSelectList);
  if (mayRunProgram(command)) link->isChanged = true;
  auto state = std::make_unique<State>();
  state->link = link;
  state->run(request, false);
  return state;
}

void Conversation::State::run(Serializable& request, bool isSecret) {
  link->mayHoldLocks = true;
  link->mayHaveActiveList = true;
  isWaiting = false;
  number = ++link->programs;
  const std::unique_ptr<Serializable> answer = link->exchange(request, isSecret);
  if (auto* const prompt = dynamic_cast<noxp::InputOutputResponseProt*>(answer.get())) {
    isWaiting = true;
    isHidden = prompt->getCommand() == kHiddenInput;
    output = Record(detail::bytesOf(prompt->getOutput()));
  } else if (auto* const done = dynamic_cast<noxp::remote::ExecuteResponseProt*>(answer.get())) {
    command.emplace();
    command->output = output = Record(detail::bytesOf(done->getCapturingVariable()));
    command->setting = Record(detail::bytesOf(done->getSettingVariable()));
    auto* const list = dynamic_cast<noxp::remote::SelectListProt*>(done->getSelectList());
    if (list && list->getId() >= 0) {
      command->list = SelectList(SelectList::State::from(link, list));
    }
  } else if (auto* const returned =
                 dynamic_cast<noxp::remote::SubroutineResponseProt*>(answer.get())) {
    constexpr int kAborted = 1;
    call.emplace();
    call->aborted = returned->getStatus() == kAborted;
    call->parameters = detail::valuesOf(returned->getParameters());
    output = Record();
  } else {
    link->channel().failAnswer(request.getType(), answer->getType());
  }
}

void Conversation::State::abandon() {
  if (!std::exchange(isWaiting, false)) return;
  // Any request does that; this one does nothing else.
  noxp::remote::DateTimeRequestProt request;
  link->ask<noxp::remote::DateTimeResponseProt>(request);
}

/// For callers that cannot answer: a program that asks is abandoned.
CommandResult Conversation::State::finish() {
  if (isWaiting) {
    const std::string question = prompt();
    abandon();
    throw Error(sqlstate::kPrompts, "the command asks for input: " + question, Outcome::Rejected);
  }
  if (!command) {
    link->channel().failAnswer(TypeCode::RemoteExecuteRequest, TypeCode::SubroutineResponse);
  }
  return std::move(*command);
}

std::string Conversation::State::prompt() const {
  const std::string& bytes = output.bytes();
  const std::size_t mark = bytes.rfind(kAttributeMark);
  return mark == std::string::npos ? bytes : bytes.substr(mark + 1);
}

Conversation::Conversation(std::unique_ptr<State> state) : state_(std::move(state)) {}

Conversation::Conversation(Conversation&& other) noexcept = default;

Conversation& Conversation::operator=(Conversation&& other) noexcept {
  Conversation taken(std::move(other));
  std::swap(state_, taken.state_);
  return *this;
}

Conversation::~Conversation() {
  // One that was started since has ended this one; the request would end that one, too.
  if (!state_ || !state_->isWaiting || state_->number != state_->link->programs) return;
  noxp::remote::DateTimeRequestProt request;
  state_->link->post(request);
}

bool Conversation::isWaiting() const { return state_->isWaiting; }

const Record& Conversation::output() const { return state_->output; }

std::string Conversation::prompt() const { return state_->prompt(); }

bool Conversation::hidden() const { return state_->isWaiting && state_->isHidden; }

void Conversation::answer(std::string_view text) {
  if (!state_->isWaiting) throw std::logic_error("nothing is asked");
  noxp::remote::RemoteInputRequestProt request;
  detail::put(request.getInputData(), text, "the answer");
  state_->run(request, state_->isHidden);
}

CommandResult& Conversation::command() {
  if (!state_->command) throw std::logic_error("no command has ended");
  return *state_->command;
}

CallResult& Conversation::call() {
  if (!state_->call) throw std::logic_error("no subroutine has ended");
  return *state_->call;
}

Subroutine::Subroutine(std::shared_ptr<Link> link, std::string name)
    : link_(std::move(link)), name_(std::move(name)) {}

Subroutine::Subroutine(Subroutine&& other) noexcept = default;
Subroutine& Subroutine::operator=(Subroutine&& other) noexcept = default;
Subroutine::~Subroutine() = default;

Conversation Subroutine::start(const std::vector<Value>& parameters) {
  noxp::remote::RemoteSubroutineRequestProt request(nullptr,
                                                    detail::parametersOf(parameters).release());
  detail::put(request.getSubroutineName(), name_, "the subroutine's name");
  link_->isChanged = true;  // what it leaves in named commons cannot be taken away
  auto state = std::make_unique<Conversation::State>();
  state->link = link_;
  state->run(request, false);
  return Conversation(std::move(state));
}

CallResult Subroutine::call(const std::vector<Value>& parameters) {
  Conversation talk = start(parameters);
  if (talk.isWaiting()) {
    const std::string prompt = talk.prompt();
    talk.state_->abandon();
    throw Error(sqlstate::kPrompts, "the subroutine " + name_ + " asks for input: " + prompt,
                Outcome::Rejected);
  }
  return std::move(talk.call());
}

}  // namespace nox::client
