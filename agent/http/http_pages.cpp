#include "agent/http/http_pages.h"

#include <exception>
#include <string_view>

#include "agent/http/http_request.h"

namespace nox::agent {

namespace {

constexpr const char* kPlainText = "text/plain; charset=utf-8";
constexpr const char* kPrometheusText = "text/plain; version=0.0.4; charset=utf-8";

const char* phraseOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 400:
      return "Bad Request";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 413:
      return "Content Too Large";
    case 503:
      return "Service Unavailable";
    default:
      return "Internal Server Error";
  }
}

std::string answer(int status, const char* type, const std::string& body) {
  std::string text = "HTTP/1.1 " + std::to_string(status) + " " + phraseOf(status) + "\r\n";
  text += "Content-Type: " + std::string(type) + "\r\n";
  text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
  text += "Cache-Control: no-store\r\nConnection: close\r\n\r\n";
  return text + body;
}

std::string answer(int status, std::string_view line) {
  return answer(status, kPlainText, std::string(line) + "\n");
}

/// The path that is asked for with GET, without a query; empty for another request.
std::string_view pathOf(std::string_view request) {
  constexpr std::string_view kGet = "GET ";
  const std::string_view line = request.substr(0, request.find_first_of("\r\n"));
  if (line.substr(0, kGet.size()) != kGet) return {};
  const std::string_view target = line.substr(kGet.size());
  return target.substr(0, target.find_first_of(" ?"));
}

}  // namespace

std::string answerHttp(const HttpRequest& request, const HttpPages& pages) {
  if (!pages.allowed) return answer(403, "not allowed from here");
  if (request.errorStatus() != 0) return answer(request.errorStatus(), request.errorMessage());
  const std::string_view path = pathOf(request.text());
  if (path == "/healthz") return answer(200, "ok");
  if (path == "/readyz") return pages.ready ? answer(200, "ready") : answer(503, "draining");
  if (path == "/metrics") {
    try {
      return answer(200, kPrometheusText, pages.metrics());
    } catch (const std::exception&) {
      return answer(500, "the metrics cannot be gathered");
    }
  }
  return answer(404, "there is no such page");
}

}  // namespace nox::agent
