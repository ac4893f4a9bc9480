#include "client/src/login.h"

#include <utility>

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

void check(const Options& options) {
  if (options.hosts.empty()) throwBadOption("there is no host to connect to");
  if (options.user.empty()) throwBadOption("there is no user to log in as");
  constexpr std::size_t kSmallestFrame = 1024;
  if (options.maxFrame < kSmallestFrame) throwBadOption("max_frame is at least 1K");
  if (options.fetchSize < 1) throwBadOption("fetch_size is at least 1");
  if (options.clientName.size() > kLongestText) throwBadOption("client_name is too long");
}

}  // namespace

std::shared_ptr<Link> openLink(const Options& asked) {
  check(asked);
  const Deadline deadline = Deadline::in(asked.connectTimeout);
  Options options = asked;
  if (options.password.empty() && !options.passwordFile.empty()) {
    options.password = readPasswordFile(options.passwordFile);
  }
  std::unique_ptr<TlsContext> tls;
  if (options.tls != Tls::Off) tls = makeTlsContext(options);

  std::string failures;
  bool ranOutOfTime = false;
  const auto note = [&](const Host& host, const std::string& why) {
    failures += (failures.empty() ? "" : "; ") + show(host) + ": " + why;
  };
  for (std::size_t i = 0; i < options.hosts.size(); ++i) {
    Host host = options.hosts[i];
    if (host.port == 0) host.port = tls ? kTlsPort : kPort;
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
      ranOutOfTime |= failure.sqlState == std::string_view(sqlstate::kConnectTimeout);
      note(host, failure.message);
    } catch (const Error& error) {
      // What the server refused, and what cannot be right, is no better elsewhere.
      if (error.outcome() == Outcome::Rejected || error.sqlState() == sqlstate::kBadOption ||
          error.sqlState() == sqlstate::kBadArgument) {
        throw;
      }
      ranOutOfTime |= error.sqlState() == sqlstate::kTimeout;
      note(host, error.message());
    }
  }
  throw Error(ranOutOfTime ? sqlstate::kConnectTimeout : sqlstate::kCannotConnect,
              "cannot connect to " + failures, Outcome::NotSent);
}

}  // namespace nox::client::detail
