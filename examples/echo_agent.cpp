// The echo agent: listens on two free ports of this machine, one plain and one TLS, and gives every
// client a thread that reads its requests and lets them answer themselves.
//
//   echo_agent CERTIFICATE_FILE
//
// writes its TLS certificate to that file, then prints its ports as "plain PORT tls PORT". It ends
// with status 0 on SIGTERM or SIGINT, and when a client asks it to.
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <exception>
#include <iostream>
#include <iterator>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "agent_requests.h"
#include "certificate.h"
#include "connection.h"

namespace {

// A byte in this pipe ends the agent. A pipe, since a signal handler may write to one, and since
// poll() can wait for it and for clients at once.
int stopPipe[2] = {-1, -1};

extern "C" void askToStop(int /*signal*/) {
  [[maybe_unused]] const ssize_t ignored = write(stopPipe[1], "", 1);  // full: asked already
}

void catchSignals() {
  if (pipe2(stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe");
  std::signal(SIGTERM, askToStop);
  std::signal(SIGINT, askToStop);
  // Saying goodbye over TLS writes to a client that may have gone.
  std::signal(SIGPIPE, SIG_IGN);
}

/// A conversation with one client, in a thread of its own. The destructor waits for that to end.
class Session {
public:
  Session(std::unique_ptr<Connection> connection, AgentFactory& factory)
      : connection_(std::move(connection)), factory_(factory), thread_([this] { run(); }) {}
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { thread_.join(); }

  bool over() const { return over_; }
  void interrupt() { connection_->interrupt(); }

private:
  void run() {
    try {
      converse();
    } catch (const std::exception& error) {  // no memory, above all
      say(std::string("connection ended: ") + error.what());
    }
    connection_->end();
    over_ = true;
  }

  /// Until one of the two has had enough. Whatever the client sends ends in one of the handlers.
  void converse() {
    nox::BinaryReader reader(&factory_, &connection_->in());
    nox::BinaryWriter writer(&connection_->out());
    Then then = Then::ReadOn;
    while (then == Then::ReadOn) {
      try {
        then = answerOne(reader, writer);
      } catch (nox::NOXException* thrown) {
        // Malformed, or of a type that the factory does not know. The place in the stream may be
        // lost with it, so this was the last frame.
        const std::unique_ptr<nox::NOXException> error(thrown);
        then = refuse(writer, error->what(), Then::HangUp);
      } catch (const nox::NOXException& error) {
        // A body that cannot be inflated: its frame was read whole, so the next one may be good.
        then = refuse(writer, error.what(), Then::ReadOn);
      } catch (nox::NONE* thrown) {
        const std::unique_ptr<nox::NONE> marker(thrown);  // nothing has come yet: wait again
      } catch (nox::LAST* thrown) {
        const std::unique_ptr<nox::LAST> marker(thrown);  // the client has hung up
        then = Then::HangUp;
      }
    }
    if (then == Then::StopAgent) askToStop(0);
  }

  static Then answerOne(nox::BinaryReader& reader, nox::BinaryWriter& writer) {
    const std::unique_ptr<nox::noxp::RequestProt> request(reader.readRequest());
    auto* const answerable = dynamic_cast<Answerable*>(request.get());
    return answerable ? answerable->answer(writer)
                      : refuse(writer, "This is no request", Then::ReadOn);
  }

  static Then refuse(nox::BinaryWriter& writer, const std::string& why, Then then) {
    say("refused: " + why);
    nox::ErrorResponseProt reply(nox::SQLExtError("IE", "000", why));
    writer.writeRoot(reply);
    return then;
  }

  std::unique_ptr<Connection> connection_;
  AgentFactory& factory_;
  std::atomic<bool> over_{false};
  std::thread thread_;  // last: it uses all of the above
};

class Agent {
public:
  explicit Agent(ACE_SSL_Context& tls) : tls_(&tls) {
    say("plain " + std::to_string(plain_.port()) + " tls " + std::to_string(tls_.port()));
  }
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;
  ~Agent() {
    for (Session& session : sessions_) session.interrupt();
  }

  void run() {
    pollfd waited[] = {
        {stopPipe[0], POLLIN, 0}, {plain_.handle(), POLLIN, 0}, {tls_.handle(), POLLIN, 0}};
    while (waited[0].revents == 0) {
      // A signal interrupts poll(); the byte it left in the pipe is seen the next time.
      if (poll(waited, std::size(waited), -1) < 0) {
        if (errno != EINTR) throw std::runtime_error("cannot wait for clients");
        continue;
      }
      if (waited[1].revents != 0) admit(plain_);
      if (waited[2].revents != 0) admit(tls_);
    }
  }

private:
  /// Each client costs a thread, so there is an end to them; one too many is hung up on.
  void admit(Listener& listener) {
    constexpr std::size_t kMostClients = 64;
    sessions_.remove_if([](const Session& session) { return session.over(); });
    auto connection = listener.accept();
    if (!connection || sessions_.size() == kMostClients) return;
    try {
      sessions_.emplace_back(std::move(connection), factory_);
    } catch (const std::exception& error) {
      say(std::string("no thread for a client: ") + error.what());
    }
  }

  AgentFactory factory_;
  Listener plain_;
  Listener tls_;
  std::list<Session> sessions_;
};

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) throw std::invalid_argument("usage: echo_agent CERTIFICATE_FILE");
  catchSignals();
  ACE_SSL_Context tls;
  showNewCertificate(tls, argv[1]);
  Agent(tls).run();
  say("agent ended");
} catch (const std::exception& error) {
  std::cerr << "echo_agent: " << error.what() << "\n";
  return 1;
}
