// HTTP on noxd's ports.
#include <gtest/gtest.h>

#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"
#include "tests/agent/wire/waiting.h"

namespace nox::agent::test {
namespace {

class Http : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->withTls().start();
  }
  static void TearDownTestSuite() { noxd.reset(); }

  static std::string answerTo(Client& client, const std::string& request) {
    client.sendBytes(request);
    return client.receiveAll();
  }
  static std::string answerTo(const std::string& request) {
    Client client(noxd->plainPort());
    return answerTo(client, request);
  }
  static std::string statusOf(const std::string& answer) { return answer.substr(0, 12); }

  static std::unique_ptr<NoxdProcess> noxd;
};
std::unique_ptr<NoxdProcess> Http::noxd;

TEST_F(Http, IsAnsweredAndClosed) {
  EXPECT_EQ(answerTo("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n"),
            "HTTP/1.1 200 OK\r\n"
            "Content-Type: text/plain; charset=utf-8\r\n"
            "Content-Length: 3\r\n"
            "Cache-Control: no-store\r\n"
            "Connection: close\r\n"
            "\r\n"
            "ok\n");
  EXPECT_EQ(statusOf(answerTo("GET /readyz HTTP/1.1\r\n\r\n")), "HTTP/1.1 200");
}

TEST_F(Http, IsAnsweredOverTls) {
  Client client(noxd->tlsPort(), ClientTls{});
  EXPECT_EQ(statusOf(answerTo(client, "GET /healthz HTTP/1.1\r\n\r\n")), "HTTP/1.1 200");
}

TEST_F(Http, IsAnsweredAfterLogin) {
  Client client(noxd->plainPort());
  client.logIn();
  EXPECT_EQ(statusOf(answerTo(client, "GET /healthz HTTP/1.1\r\n\r\n")), "HTTP/1.1 200");
}

TEST_F(Http, MayComeByteByByte) {
  Client client(noxd->plainPort());
  for (const char byte : std::string("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n")) {
    client.sendBytes(std::string(1, byte));
  }
  EXPECT_EQ(statusOf(client.receiveAll()), "HTTP/1.1 200");
}

TEST_F(Http, ShowsWhatWasCounted) {
  Client client(noxd->plainPort());
  EXPECT_TRUE(client.logIn().echoes());
  EXPECT_EQ(client.read("NO.SUCH.FILE", "1"), "IE/008");
  // A request is counted when its reply has been sent, which may be a moment after it is read.
  EXPECT_TRUE(comesTrue([] {
    const std::string page = answerTo("GET /metrics HTTP/1.1\r\n\r\n");
    return statusOf(page) == "HTTP/1.1 200" &&
           page.find("noxd_requests_total{request=\"Echo\"} 1\n") != std::string::npos &&
           page.find("noxd_requests_total{request=\"ReadRecord\"} 1\n") != std::string::npos &&
           page.find("noxd_errors_total{sqlstate=\"IE008\"} 1\n") != std::string::npos;
  }));
}

TEST_F(Http, KnowsNoOtherPageAndNoOtherMethod) {
  EXPECT_EQ(statusOf(answerTo("GET / HTTP/1.1\r\n\r\n")), "HTTP/1.1 404");
  EXPECT_EQ(statusOf(answerTo("GET /healthz/../metrics HTTP/1.1\r\n\r\n")), "HTTP/1.1 404");
  EXPECT_EQ(statusOf(answerTo("POST /healthz HTTP/1.1\r\nContent-Length: 2\r\n\r\nhi")),
            "HTTP/1.1 404");
  EXPECT_EQ(statusOf(answerTo("HEAD /healthz HTTP/1.1\r\n\r\n")), "HTTP/1.1 404");
}

TEST_F(Http, RefusesWhatIsTooLarge) {
  EXPECT_EQ(statusOf(answerTo("POST / HTTP/1.1\r\nContent-Length: 1000000\r\n\r\n" +
                              std::string(1'000'000, 'x'))),
            "HTTP/1.1 413");
  EXPECT_EQ(statusOf(answerTo("GET /" + std::string(100'000, 'x') + " HTTP/1.1\r\n\r\n")),
            "HTTP/1.1 400");
}

TEST_F(Http, ThatDoesNotEndIsCut) {
  Client client(noxd->plainPort());
  client.sendBytes("GET /healthz HTTP/1.1\r\nHost:");
  client.endWriting();
  EXPECT_TRUE(client.isClosed());
}

TEST(HttpDeadline, CutsARequestThatTrickles) {
  NoxdProcess noxd;
  noxd.set("server.login_timeout", "1").start();
  Client client(noxd.plainPort());
  client.sendBytes("GET /healthz HTTP/1.1\r\n");
  int sent = 0;
  while (sent < 100 && !client.hasInput(std::chrono::milliseconds(100))) {
    if (!client.sendBytes("x")) break;
    ++sent;
  }
  EXPECT_LT(sent, 100);
  EXPECT_TRUE(client.isClosed());
}

TEST(HttpSwitch, TurnsItOff) {
  NoxdProcess noxd;
  noxd.set("server.http", "false").start();
  Client client(noxd.plainPort());
  client.sendBytes("GET /metrics HTTP/1.1\r\n\r\n");
  EXPECT_EQ(client.receiveAll().substr(0, 12), "HTTP/1.1 403");
}

}  // namespace
}  // namespace nox::agent::test
