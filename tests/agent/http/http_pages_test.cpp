#include "agent/http/http_pages.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "agent/agent_object_factory.h"
#include "agent/http/http_request.h"

namespace nox::agent {
namespace {

HttpPages everything() {
  HttpPages pages;
  pages.allowed = true;
  pages.ready = true;
  pages.metrics = [] { return std::string("noxd_up 1\n"); };
  return pages;
}

/// What is answered to a request that the library has read.
std::string answerTo(const std::string& text, const HttpPages& pages = everything()) {
  LoginObjectFactory factory;
  MemoryBufferInputStream in(text.data(), text.size());
  BinaryReader reader(&factory, &in);
  const std::unique_ptr<Serializable> root(reader.readRootObject());
  return answerHttp(dynamic_cast<HttpRequest&>(*root), pages);
}

std::string get(const std::string& target) {
  return answerTo("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
}

std::string statusOf(const std::string& answer) { return answer.substr(0, answer.find('\r')); }

TEST(HttpPages, AnswerCompletely) {
  EXPECT_EQ(get("/healthz"),
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: text/plain; charset=utf-8\r\n"
            "Content-Length: 3\r\n"
            "Cache-Control: no-store\r\n"
            "Connection: close\r\n"
            "\r\n"
            "ok\n");
}

TEST(HttpPages, SayWhetherTheAgentIsReady) {
  EXPECT_EQ(statusOf(get("/readyz")), "HTTP/1.1 200 OK");
  HttpPages pages = everything();
  pages.ready = false;
  EXPECT_EQ(statusOf(answerTo("GET /readyz HTTP/1.1\r\n\r\n", pages)),
            "HTTP/1.1 503 Service Unavailable");
  EXPECT_EQ(statusOf(answerTo("GET /healthz HTTP/1.1\r\n\r\n", pages)), "HTTP/1.1 200 OK");
}

TEST(HttpPages, ShowMetricsInTheirOwnFormat) {
  const std::string answer = get("/metrics");
  EXPECT_EQ(statusOf(answer), "HTTP/1.1 200 OK");
  EXPECT_NE(answer.find("\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\n"),
            std::string::npos);
  EXPECT_EQ(answer.substr(answer.find("\r\n\r\n") + 4), "noxd_up 1\n");
}

TEST(HttpPages, SayWhenMetricsCannotBeGathered) {
  HttpPages pages = everything();
  pages.metrics = []() -> std::string { throw std::runtime_error("the reason"); };
  const std::string answer = answerTo("GET /metrics HTTP/1.1\r\n\r\n", pages);
  EXPECT_EQ(statusOf(answer), "HTTP/1.1 500 Internal Server Error");
  EXPECT_EQ(answer.find("the reason"), std::string::npos);
}

TEST(HttpPages, DoNotCareAboutQueries) {
  EXPECT_EQ(statusOf(get("/healthz?verbose=1")), "HTTP/1.1 200 OK");
}

TEST(HttpPages, UnderstandARequestWithoutVersion) {
  EXPECT_EQ(statusOf(answerTo("GET /healthz\r\n\r\n")), "HTTP/1.1 200 OK");
}

TEST(HttpPages, KnowNothingElse) {
  for (const char* target : {"/", "/health", "/healthz/", "//healthz", "/HEALTHZ", "*"}) {
    EXPECT_EQ(statusOf(get(target)), "HTTP/1.1 404 Not Found") << target;
  }
  for (const char* method : {"PUT", "POST", "DELETE", "HEAD", "OPTIONS"}) {
    EXPECT_EQ(statusOf(answerTo(std::string(method) + " /healthz HTTP/1.1\r\n\r\n")),
              "HTTP/1.1 404 Not Found")
        << method;
  }
}

TEST(HttpPages, RefuseABodyThatIsTooLarge) {
  EXPECT_EQ(statusOf(answerTo("POST /metrics HTTP/1.1\r\nContent-Length: 100000\r\n\r\n")),
            "HTTP/1.1 413 Content Too Large");
}

TEST(HttpPages, RefuseHeadersThatAreTooLong) {
  EXPECT_EQ(
      statusOf(answerTo("GET /healthz HTTP/1.1\r\nX: " + std::string(20'000, 'x') + "\r\n\r\n")),
      "HTTP/1.1 400 Bad Request");
}

TEST(HttpPages, ShowNothingWhereTheyAreNotAllowed) {
  HttpPages pages = everything();
  pages.allowed = false;
  for (const char* path : {"/healthz", "/readyz", "/metrics", "/other"}) {
    EXPECT_EQ(statusOf(answerTo(std::string("GET ") + path + " HTTP/1.1\r\n\r\n", pages)),
              "HTTP/1.1 403 Forbidden")
        << path;
  }
}

}  // namespace
}  // namespace nox::agent
