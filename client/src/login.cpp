#include "client/src/login.h"

#include <optional>
#include <utility>

#include "client/src/defaults.h"
#include "client/src/password_file.h"
#include "client/src/resolver.h"
#include "client/src/socket.h"
#include "client/src/transport_failure.h"
#include "client/src/uri.h"
#include "client/src/wire_text.h"

namespace nox::client::detail {

namespace {

constexpr std::uint16_t kPort = 7433;
constexpr std::uint16_t kTlsPort = 7434;

// The server has no place, or is about to end.
constexpr const char* kTurnedAway = "08004";

std::string show(const Host& host) {
  const bool isIpv6 = host.name.find(':') != std::string::npos;
  return (isIpv6 ? '[' + host.name + ']' : host.name) + ':' + std::to_string(host.port);
}

/// The first address of the host that takes a connection; each may use its share of the time.
Descriptor connectToAny(const Host& host, const Deadline& deadline) {
  const std::vector<Address> addresses = resolve(host.name, host.port, deadline);
  for (std::size_t i = 0;; ++i) {
    try {
      return connectTo(addresses[i], deadline.share(addresses.size() - i));
    } catch (const TransportFailure&) {
      if (i + 1 == addresses.size()) throw;
    }
  }
}

void logIn(Channel& channel, const Options& options, const Deadline& deadline) {
  auto credentials = std::make_unique<AccountUserCredentialsProt>();
  put(credentials->getUserName(), options.user, "the user's name");
  put(credentials->getAccount(), options.account, "the account's name");
  put(credentials->getPassword(), options.password, "the password");
  noxp::AuthenticationRequestProt request(credentials.release());
  const std::unique_ptr<Serializable> answer = channel.exchange(request, deadline, true);
  if (!dynamic_cast<OKResponseProt*>(answer.get())) {
    channel.failAnswer(request.getType(), answer->getType());
  }

  Properties properties;
  if (!options.clientName.empty()) properties.setProperty("CLIENT_NAME", options.clientName);
  if (options.fetchSize != Options().fetchSize) {
    properties.setProperty("FETCH_SIZE", std::to_string(options.fetchSize));
  }
  if (properties.begin() == properties.end()) return;
  noxp::common::SetPropertiesRequestProt naming(properties);
  static_cast<void>(channel.exchange(naming, deadline));
}

/// Whether the server said it. One that turns clients away may say so before any byte of the login
/// has left.
bool isSaidByServer(const Error& error) {
  return error.outcome() == Outcome::Rejected || error.sqlState() == kTurnedAway;
}

/// Whether another host may let in whom this one did not: what the server refused about the login,
/// and what cannot be right, is no better elsewhere. A server that is full or about to end says so
/// with a state of class 08.
bool mayBeBetterElsewhere(const Error& error) {
  if (error.sqlClass() == "28" || error.sqlState() == sqlstate::kBadOption ||
      error.sqlState() == sqlstate::kBadArgument) {
    return false;
  }
  return error.outcome() != Outcome::Rejected || error.sqlClass() == "08";
}

/// As it is reported by whoever wanted a connection, and no request.
Error asConnecting(const Error& error) {
  if (isSaidByServer(error)) return error;
  const bool isTimeout =
      error.sqlState() == sqlstate::kTimeout || error.sqlState() == sqlstate::kConnectTimeout;
  return Error(isTimeout ? sqlstate::kConnectTimeout : sqlstate::kCannotConnect, error.message(),
               Outcome::NotSent);
}

/// What goes to the system as a C string would be cut at a NUL: the rest would not be looked at.
void checkText(const std::string& text, const char* what) {
  if (text.find('\0') != std::string::npos) throwBadOption(std::string(what) + " has a NUL");
}

/// A port that speaks TLS makes nothing of a login in plain text: it closes, or answers with what
/// is no frame.
Error withHint(const Error& error) {
  if (error.sqlState() != sqlstate::kConnectionLost && error.sqlState() != sqlstate::kOutOfStep) {
    return error;
  }
  return Error(error.sqlState(), error.message() + " (does this port speak TLS? tls is off)",
               error.outcome(), error.status());
}

void check(const Options& options) {
  for (const Host& host : options.hosts) {
    if (host.name.empty()) throwBadOption("a host has no name");
    checkText(host.name, "the name of a host");
  }
  checkText(options.tlsName, "tls_name");
  checkText(options.ca, "ca");
  checkText(options.certificate, "cert");
  checkText(options.key, "key");
  checkText(options.passwordFile, "password_file");
  checkText(options.traceFile, "the trace file's name");
  if (options.user.empty()) throwBadOption("there is no user to log in as");
  if (options.connectTimeout.count() < 0) throwBadOption("connect_timeout is negative");
  if (options.requestTimeout.count() < 0) throwBadOption("request_timeout is negative");
  constexpr std::size_t kSmallestFrame = 1024;
  if (options.maxFrame < kSmallestFrame) throwBadOption("max_frame is at least 1K");
  if (options.fetchSize < 1) throwBadOption("fetch_size is at least 1");
  if (options.clientName.size() > kLongestText) throwBadOption("client_name is too long");
}

}  // namespace

std::shared_ptr<Link> openLink(const Options& asked) {
  Options options = asked;
  if (options.hosts.empty()) options.hosts = {{kDefaultHost, 0}};
  if (options.user.empty()) options.user = loginName();
  check(options);
  const Deadline deadline = Deadline::in(options.connectTimeout);
  if (options.password.empty() && !options.passwordFile.empty()) {
    options.password = readPasswordFile(options.passwordFile);
  }
  std::unique_ptr<TlsContext> tls;
  if (options.tls != Tls::Off) tls = makeTlsContext(options);

  // The last host's failure decides what kind of failure it is; the message has them all.
  std::string failures;
  std::optional<Error> last;
  const auto note = [&](const Host& host, const Error& error, bool isLast) {
    failures += (failures.empty() ? "" : "; ") + show(host) + ": " + error.message();
    last = asConnecting(error);
    if (!isLast && last->sqlState() == sqlstate::kConnectTimeout) {
      failures += ", which was its share of the time";
    }
  };
  for (std::size_t i = 0; i < options.hosts.size(); ++i) {
    Host host = options.hosts[i];
    if (host.port == 0) host.port = tls ? kTlsPort : kPort;
    const bool isLast = i + 1 == options.hosts.size();
    const Deadline share = deadline.share(options.hosts.size() - i);
    try {
      Descriptor descriptor = connectToAny(host, share);
      std::unique_ptr<Transport> transport =
          tls ? tls->connect(std::move(descriptor), host.name, share)
              : makePlainTransport(std::move(descriptor));
      Channel::Settings settings;
      settings.maxFrame = options.maxFrame;
      settings.observer = options.observer;
      if (!options.traceFile.empty()) {
        settings.trace = Trace(options.traceFile, options.tracePayload);
      }
      auto channel = std::make_unique<Channel>(std::move(transport), std::move(settings));
      logIn(*channel, options, share);
      return std::make_shared<Link>(std::move(channel), options, std::move(host));
    } catch (const TransportFailure& failure) {
      note(host, Error(failure.sqlState, failure.message, Outcome::NotSent), isLast);
    } catch (const Error& error) {
      if (!mayBeBetterElsewhere(error)) throw;
      // What the only server says needs no more words.
      if (options.hosts.size() == 1 && isSaidByServer(error)) throw;
      note(host, tls ? error : withHint(error), isLast);
    }
  }
  throw Error(last->sqlState(), "cannot connect to " + failures, last->outcome(), last->status());
}

}  // namespace nox::client::detail
