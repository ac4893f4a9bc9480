// Options: where a connection goes, as whom, and how long anything may take.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nox/client/export.h"
#include "nox/client/observer.h"

namespace nox::client {

enum class Tls {
  VerifyFull,        ///< chain and host name are verified
  InsecureNoVerify,  ///< encrypted, to whoever answers
  Off                ///< nothing is encrypted, the password neither
};

struct Host {
  std::string name;        ///< a name or an address, without brackets
  std::uint16_t port = 0;  ///< 0: 7433, or 7434 with TLS
};

/// A plain value: threads may use different ones freely.
///
/// A setting is, in this order: what the program assigns, what the URI says, what the environment
/// says, the default. The URI:
///
///   nox://[user@]host[:port][,host[:port]...][/account][?key=value[&key=value...]]
///
/// IPv6 addresses stand in brackets; every part but the ports may be percent-encoded. A password in
/// a URI, a key that is unknown or given twice, and a value that cannot be are errors (HY024).
///
///   key               environment             default
///   (user)            NOX_USER                the user's login name
///   (host:port)       NOX_HOST, NOX_PORT      localhost; NOX_HOST may be a list as in the URI
///   (account)         NOX_ACCOUNT             the server's default account
///   tls               NOX_TLS                 verify-full; or insecure-no-verify, off
///   tls_name          NOX_TLS_NAME            the name to verify; the host's
///   ca                NOX_CA                  the system's certificates; a PEM file
///   cert, key         NOX_CERT, NOX_KEY       none; a client certificate, PEM files
///   password_file     NOX_PASSWORD_FILE       none
///   connect_timeout   NOX_CONNECT_TIMEOUT     10s; 500ms, 5s, 2m; 0s: none
///   request_timeout   NOX_REQUEST_TIMEOUT     90s
///   max_frame         NOX_MAX_FRAME           64M; bytes, or with K or M
///   fetch_size        NOX_FETCH_SIZE          1000; rows or keys per page
///   client_name       NOX_CLIENT_NAME         none; shown by the server's monitoring
///   (whole URI)       NOX_URI                 what an empty URI stands for
///   (traceFile)       NOX_TRACE               none; a line per frame is appended
///   (tracePayload)    NOX_TRACE_PAYLOAD       0; 1 shows what frames say, logins excepted
struct NOX_CLIENT_EXPORT Options {
  std::vector<Host> hosts;  ///< tried in order, all of their addresses too; none: localhost
  std::string user;         ///< empty: the user's login name
  std::string account;
  std::string password;
  /// Its first line is the password, where `password` is empty. Refused unless it is a plain file
  /// of the user who runs this process, with no permission for anybody else (0600).
  std::string passwordFile;

  Tls tls = Tls::VerifyFull;
  std::string tlsName;
  std::string ca;
  std::string certificate;
  std::string key;

  /// For everything up to the end of the login, on all hosts together. Zero: none.
  std::chrono::milliseconds connectTimeout{10'000};
  /// For one request, from its first byte to the last of its answer. Zero: none.
  std::chrono::milliseconds requestTimeout{90'000};
  std::size_t maxFrame = 64u * 1024u * 1024u;  ///< the longest answer that is taken, in bytes
  int fetchSize = 1000;
  std::string clientName;

  std::string traceFile;
  bool tracePayload = false;
  Observer observer;

  /// What the environment says, defaults where it is silent.
  static Options fromEnvironment();
  /// What the URI says, over what the environment says. An empty one stands for NOX_URI, if any.
  static Options fromUri(std::string_view uri = {});
  /// As a URI, without the password; what is as by default is left out, but for `tls`.
  std::string toUri() const;
};

}  // namespace nox::client
