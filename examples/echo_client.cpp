// The echo agent's client: shows what travels, checks every answer, and provokes some errors.
//
//   echo_client PLAIN_PORT TLS_PORT CERTIFICATE_FILE
//   echo_client --stop PLAIN_PORT
//
// Ends with status 0 when every answer was as expected.
#include <csignal>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "annotate.h"
#include "certificate.h"
#include "connection.h"
#include "echo_protocol.h"
#include "recording_streams.h"

using nox::noxp::common::EchoRequestProt;
using nox::noxp::common::EchoResponseProt;
using nox::noxp::common::LoggingRequestProt;
using nox::noxp::remote::DateTimeRequestProt;

namespace {

void check(bool holds, const std::string& what) {
  if (!holds) throw std::runtime_error("not as expected: " + what);
}

/// One connection, as a client uses it: a request out, a reply in.
class Client {
public:
  explicit Client(std::unique_ptr<Connection> connection)
      : connection_(std::move(connection)), in_(connection_->in()), out_(connection_->out()) {}
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { connection_->end(); }

  /// The reply, which must be a Reply.
  template <class Reply>
  std::unique_ptr<Reply> ask(nox::Serializable& request) {
    forgetBytes();
    writer_.writeRoot(request);
    return read<Reply>();
  }

  /// The same for bytes that no writer would produce.
  template <class Reply>
  std::unique_ptr<Reply> askWithBytes(const std::string& bytes) {
    forgetBytes();
    out_.send(bytes.data(), bytes.size());
    return read<Reply>();
  }

  /// Whether the agent has hung up: the next read ends.
  bool hungUp() {
    try {
      const std::unique_ptr<nox::Serializable> more(reader_.readRootObject());
      return false;
    } catch (nox::LAST* thrown) {
      const std::unique_ptr<nox::LAST> marker(thrown);
      return true;
    }
  }

  /// Both directions since the last request.
  const std::string& sent() const { return out_.bytes; }
  const std::string& received() const { return in_.bytes; }
  EchoProtocol& protocol() { return protocol_; }

private:
  template <class Reply>
  std::unique_ptr<Reply> read() {
    std::unique_ptr<nox::Serializable> root(reader_.readRootObject());
    auto* const reply = dynamic_cast<Reply*>(root.get());
    check(reply != nullptr, "the type of the reply");
    root.release();
    return std::unique_ptr<Reply>(reply);
  }

  void forgetBytes() {
    in_.bytes.clear();
    out_.bytes.clear();
  }

  std::unique_ptr<Connection> connection_;
  RecordingInputStream in_;
  RecordingOutStream out_;
  EchoProtocol protocol_;
  nox::BinaryReader reader_{&protocol_, &in_};
  nox::BinaryWriter writer_{&out_};
};

/// Where the agent is.
struct Ports {
  int plain;
  int tls;
  ACE_SSL_Context* trust;

  std::unique_ptr<Connection> connect(bool overTls) const {
    return overTls ? connectTo(tls, trust) : connectTo(plain);
  }
};

void title(const std::string& text) { std::cout << "\n" << text << "\n"; }

std::string contentOf(const NOXPBlob& blob) {
  return std::string(reinterpret_cast<const char*>(blob.getBuf()), blob.length());
}

// ---- What travels ----

void showMessage(const char* who, nox::Serializable& message, const std::string& frame,
                 EchoProtocol& protocol) {
  nox::MemoryBufferOutStream xml;
  nox::XMLObjectWriter(&protocol, &xml).writeRoot(message);
  std::cout << "  " << who << ", as XML:\n    " << xml.str() << "  " << who << ", on the wire:\n";
  annotate(frame, protocol, std::cout);
}

template <class Reply>
void showExchange(const Ports& ports, const std::string& name, nox::Serializable& request) {
  title(name);
  Client client(ports.connect(false));
  const auto reply = client.ask<Reply>(request);
  showMessage("request", request, client.sent(), client.protocol());
  showMessage("reply", *reply, client.received(), client.protocol());
}

void showWhatTravels(const Ports& ports) {
  NOXPString text("Hello from the client");
  LoggingRequestProt log(&text, 8);
  showExchange<nox::OKResponseProt>(ports, "A line for the agent's log, answered OK", log);

  EchoRequestProt echo;
  echo.getBuffer()->append("hello");
  showExchange<EchoResponseProt>(ports, "An echo (XML leaves blobs out)", echo);

  EchoRequestProt compressed;
  compressed.getBuffer()->append(std::string(300, 'x').c_str());
  nox::Serializable::properties_t always{true, 0};
  compressed.setProperties(&always);
  showExchange<EchoResponseProt>(ports, "An echo of 300 letters, compressed", compressed);

  DateTimeRequestProt clock;
  showExchange<nox::ErrorResponseProt>(ports, "A request that the agent does not serve", clock);
}

// ---- Echoes of all sizes ----

/// Text-like bytes: they compress, but not to nothing.
std::string sample(std::size_t n) {
  std::string bytes(n, '\0');
  unsigned int state = 1;
  for (char& c : bytes) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>('a' + (state >> 16) % 8);
  }
  return bytes;
}

void echo(Client& client, std::size_t n, bool compress) {
  // Around the content: the length (4), '[', an object's head (11), a blob's marks and count (6),
  // ";;" behind its bytes, ";" behind the object, ']'.
  constexpr std::size_t kAround = 26;
  constexpr int kThreshold = 1000;
  const std::string content = sample(n);
  EchoRequestProt request;
  request.getBuffer()->assign(content.data(), n);
  nox::Serializable::properties_t properties{compress, kThreshold};
  request.setProperties(&properties);

  const auto reply = client.ask<EchoResponseProt>(request);
  check(contentOf(*reply->getBuffer()) == content, "the bytes of the echo");
  const bool smaller = compress && n >= static_cast<std::size_t>(kThreshold);
  for (const std::string& frame : {client.sent(), client.received()}) {
    check(smaller ? frame.size() < n : frame.size() == n + kAround, "the size of the frame");
  }
  std::cout << std::setw(12) << n << std::setw(14) << client.sent().size() << std::setw(14)
            << client.received().size() << "  same bytes\n";
}

void exchangeAllSizes(const Ports& ports, bool overTls, bool compress) {
  title(std::string("Echoes over ") + (overTls ? "TLS" : "TCP") +
        (compress ? ", compressed from 1000 bytes on" : ", not compressed"));
  std::cout << "       bytes  request frame  reply frame\n";
  Client client(ports.connect(overTls));
  constexpr std::size_t kSizes[] = {0, 1, 100, 10'000, 65'536, 1 << 20, 4 << 20};
  for (const std::size_t n : kSizes) echo(client, n, compress);
}

// ---- What an agent must bear ----

/// A compressed frame with one bit of its checksum flipped.
std::string damagedFrame() {
  EchoRequestProt request;
  request.getBuffer()->append("not for long");
  nox::Serializable::properties_t always{true, 0};
  request.setProperties(&always);
  nox::MemoryBufferOutStream frame;
  nox::BinaryWriter(&frame).writeRoot(request);
  constexpr std::size_t kChecksumFromTheEnd = 9;  // 8 bytes of trailer, ']'
  std::string bytes = frame.str();
  bytes[bytes.size() - kChecksumFromTheEnd] ^= 1;
  return bytes;
}

std::string messageOf(nox::ErrorResponseProt& reply) {
  nox::SQLExtError& error = *reply.getError();
  return error.getSqlState().getSQLClass() + "/" + error.getSqlState().getSQLSubClass() + " " +
         error.getMsg();
}

void provokeErrors(const Ports& ports) {
  title("Errors, and what becomes of the connection");
  Client client(ports.connect(false));

  DateTimeRequestProt clock;
  auto refused = client.ask<nox::ErrorResponseProt>(clock);
  std::cout << "  a request that is not served:  " << messageOf(*refused) << "\n";
  check(messageOf(*refused) == "IE/000 This agent keeps no clock (Status = 0x26)", "the refusal");

  refused = client.askWithBytes<nox::ErrorResponseProt>(damagedFrame());
  std::cout << "  a frame damaged on its way:    " << messageOf(*refused) << "\n";
  check(messageOf(*refused).find("CRC error") != std::string::npos, "the reason");

  EchoRequestProt again;
  client.ask<EchoResponseProt>(again);
  std::cout << "  the same connection goes on:   an echo came back\n";

  refused = client.askWithBytes<nox::ErrorResponseProt>(std::string("\0\0\0\5x", 5));
  std::cout << "  bytes that are no frame:       " << messageOf(*refused) << "\n";
  check(client.hungUp(), "the agent hangs up");
  std::cout << "                                 and the agent hung up\n";
}

// ---- HTTP on the same port ----

/// Everything up to the end of the connection.
std::string readAll(nox::InputStream& in) {
  std::string text;
  try {
    for (int c = in.readChar(); c != -1; c = in.readChar()) text += static_cast<char>(c);
  } catch (nox::LAST* thrown) {
    const std::unique_ptr<nox::LAST> marker(thrown);
  }
  return text;
}

void askOverHttp(const Ports& ports, bool overTls) {
  title(overTls ? "HTTP to the TLS port" : "HTTP to the same port");
  const std::string request = "GET /how/are/you HTTP/1.0\r\nHost: localhost\r\n\r\n";
  const auto connection = ports.connect(overTls);
  connection->out().send(request.data(), request.size());
  const std::string response = readAll(connection->in());
  connection->end();
  std::cout << request << response;
  check(response.rfind("HTTP/1.0 200 OK\r\n", 0) == 0 &&
            response.find("You asked: GET /how/are/you HTTP/1.0\n") != std::string::npos,
        "the response");
}

// ----

void exchangeEverything(const Ports& ports) {
  showWhatTravels(ports);
  for (const bool overTls : {false, true}) {
    for (const bool compress : {false, true}) exchangeAllSizes(ports, overTls, compress);
  }
  provokeErrors(ports);
  for (const bool overTls : {false, true}) askOverHttp(ports, overTls);
  title("Every answer was as expected.");
}

void stopAgent(int port) {
  Client client(connectTo(port));
  StopRequest stop;
  client.ask<nox::OKResponseProt>(stop);
  std::cout << "The agent said OK.\n";
}

int run(int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  if (argc == 3 && first == "--stop") {
    stopAgent(std::stoi(argv[2]));
  } else if (argc == 4) {
    ACE_SSL_Context trust;
    trustOnly(trust, argv[3]);
    exchangeEverything({std::stoi(first), std::stoi(argv[2]), &trust});
  } else {
    throw std::invalid_argument("usage: echo_client PLAIN TLS CERTIFICATE, or --stop PLAIN");
  }
  return 0;
}

int fail(const std::string& why) {
  std::cerr << "echo_client: " << why << "\n";
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // saying goodbye over TLS writes to an agent that may have gone
  try {
    return run(argc, argv);
  } catch (nox::NOXException* thrown) {
    const std::unique_ptr<nox::NOXException> error(thrown);
    return fail(error->what());
  } catch (nox::NONE* thrown) {
    const std::unique_ptr<nox::NONE> marker(thrown);
    return fail("the agent is silent");
  } catch (nox::LAST* thrown) {
    const std::unique_ptr<nox::LAST> marker(thrown);
    return fail("the agent has hung up");
  } catch (const std::exception& error) {  // a NOXException thrown by value, too
    return fail(error.what());
  }
}
