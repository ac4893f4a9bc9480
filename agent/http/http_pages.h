// What the agent answers to HTTP: three pages for those who watch over it.
#pragma once

#include <functional>
#include <string>

namespace nox::agent {

class HttpRequest;

/// What the pages show.
struct HttpPages {
  bool allowed = false;                  // where the peer may see them at all
  bool ready = false;                    // takes new sessions
  std::function<std::string()> metrics;  // in Prometheus text format; asked when its page is
};

/// The whole answer, after which the connection is closed: GET of /healthz, /readyz and /metrics,
/// 403 for everything where it is not allowed, 404 for anything else, and the reader's own status
/// for a request that it could not take.
std::string answerHttp(const HttpRequest& request, const HttpPages& pages);

}  // namespace nox::agent
