// What nests deeply fits into the stack of a connection's thread, or is refused.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

class Depth : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->start();
    Client client(noxd->plainPort());
    client.logIn();
    ASSERT_EQ(client.run("CREATE-FILE NOX.SUBS"), "File NOX.SUBS created");
  }
  static void TearDownTestSuite() { noxd.reset(); }

  Depth() : client(noxd->plainPort()) { client.logIn(); }

  void define(const char* name, const std::string& text) {
    ASSERT_EQ(client.write("NOX.SUBS", name, text), "0");
  }
  void expectGoesOn() {
    EXPECT_TRUE(client.echoes());
    EXPECT_TRUE(noxd->isRunning()) << noxd->log();
  }

  static std::unique_ptr<NoxdProcess> noxd;
  Client client;
};
std::unique_ptr<NoxdProcess> Depth::noxd;

TEST_F(Depth, OfSubroutinesHasAnEnd) {
  define("DEEP", "nox.execute('RUN DEEP')");
  EXPECT_EQ(client.run("RUN DEEP").substr(0, 3), "IE/");
  expectGoesOn();
}

TEST_F(Depth, OfCallbacksHasAnEnd) {
  define("CALLBACKS",
         "local function f() return (string.gsub('x', 'x', f)) end\n"
         "f()");
  EXPECT_EQ(client.run("RUN CALLBACKS"), "IE/003");
  expectGoesOn();
}

TEST_F(Depth, OfCallbacksInSubroutinesHasAnEnd) {
  // Each subroutine nests its callbacks before it calls the next.
  define("BOTH",
         "local function f(n)\n"
         "  if n == 0 then nox.execute('RUN BOTH') return 'x' end\n"
         "  return (string.gsub('x', 'x', function() return f(n - 1) end))\n"
         "end\n"
         "for _, n in ipairs{190, 180, 150, 100, 50} do\n"
         "  if pcall(f, n) then break end\n"
         "end");
  client.run("RUN BOTH");
  expectGoesOn();
}

TEST_F(Depth, OfSortingAndProtectedCallsHasAnEnd) {
  define("SORTS",
         "local function f(n)\n"
         "  if n == 0 then nox.execute('RUN SORTS') return end\n"
         "  pcall(table.sort, {2, 1}, function() f(n - 1) return false end)\n"
         "end\n"
         "f(60)");
  client.run("RUN SORTS");
  expectGoesOn();
}

TEST_F(Depth, OfExpressionsInSqlHasAnEnd) {
  std::string sum = "SELECT 1";
  for (int i = 0; i < 5000; ++i) sum += "+1";
  std::string parentheses = "SELECT " + std::string(5000, '(') + "1" + std::string(5000, ')');
  std::string unions = "SELECT 1";
  for (int i = 0; i < 450; ++i) unions += " UNION SELECT " + std::to_string(i);
  std::string subqueries = "1";
  for (int i = 0; i < 90; ++i) subqueries = "(SELECT " + subqueries + ")";
  std::string nested = "1";
  for (int i = 0; i < 900; ++i) nested = "abs(" + nested + ")";
  for (const std::string& sql :
       {sum, parentheses, unions, "SELECT " + subqueries, "SELECT " + nested}) {
    noxp::sql::CompileAndExecuteRequestProt request(new NOXPString(sql.c_str()));
    client.ask(request);
    expectGoesOn();
  }
}

TEST_F(Depth, OfLuaSourceHasAnEnd) {
  std::string deep = "local x = " + std::string(1000, '(') + "1" + std::string(1000, ')');
  define("SOURCE", deep);
  EXPECT_EQ(client.run("RUN SOURCE").substr(0, 3), "IE/");
  std::string tables = "local x = " + std::string(190, '{') + std::string(190, '}');
  define("TABLES", tables);
  client.run("RUN TABLES");
  expectGoesOn();
}

}  // namespace
}  // namespace nox::agent::test
