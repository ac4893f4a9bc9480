// Conversions, asked of noxd itself.
#include <gmock/gmock.h>

#include <memory>
#include <string>

#include "tests/agent/support/client.h"
#include "tests/agent/support/command_calls.h"
#include "tests/agent/support/noxd_process.h"

namespace nox::agent::test {
namespace {

using ::testing::StartsWith;

class WireConversions : public testing::Test {
protected:
  static void SetUpTestSuite() {
    noxd = std::make_unique<NoxdProcess>();
    noxd->start();
  }
  static void TearDownTestSuite() { noxd.reset(); }

  WireConversions() : ann(noxd->plainPort()) { ann.logIn(); }

  /// Texts are typed with "^", "]" and "\" for their marks.
  std::string out(const std::string& data, const std::string& codes) {
    return unmarked(convertAt(ann, 0, marked(data), marked(codes)));
  }
  std::string in(const std::string& data, const std::string& codes) {
    return unmarked(convertAt(ann, 1, marked(data), marked(codes)));
  }

  static std::unique_ptr<NoxdProcess> noxd;
  Client ann;
};
std::unique_ptr<NoxdProcess> WireConversions::noxd;

TEST_F(WireConversions, ConvertForOutput) {
  EXPECT_EQ(out("21550", "D"), "31 DEC 2026");
  EXPECT_EQ(out("21550", "D2/"), "12/31/26");
  EXPECT_EQ(out("21550", "DI"), "2026-12-31");
  EXPECT_EQ(out("34200", "MTH"), "09:30AM");
  EXPECT_EQ(out("1234567", "MD2,$"), "$12,345.67");
  EXPECT_EQ(out("tromsø", "MCU"), "TROMSØ");
  EXPECT_EQ(out("255", "MX"), "FF");
  EXPECT_EQ(out("a*b*c", "G1*1"), "b");
}

TEST_F(WireConversions, ConvertForInput) {
  EXPECT_EQ(in("31 DEC 2026", "D"), "21550");
  EXPECT_EQ(in("9:30AM", "MTH"), "34200");
  EXPECT_EQ(in("$12,345.67", "MD2,$"), "1234567");
  EXPECT_EQ(in("FF", "MCX"), "255");
}

TEST_F(WireConversions, ConvertValuesOneByOne) {
  EXPECT_EQ(out("0]1\\2^", "DI"), "1967-12-31]1968-01-01\\1968-01-02^");
}

TEST_F(WireConversions, ApplyCodesFromLeftToRight) {
  EXPECT_EQ(out("A*1234*C", "G1*1]MD2"), "12.34");
}

TEST_F(WireConversions, RefuseWhatTheyCannotTake) {
  EXPECT_EQ(out("1", "Q"), "42/S72: \"Q\"");
  EXPECT_EQ(out("soon", "D"), "22/007: \"soon\" is no day number");
  EXPECT_EQ(in("31 FEB 2026", "D"), "22/007: \"31 FEB 2026\" is no date");
  EXPECT_EQ(in("25:00", "MT"), "22/007: \"25:00\" is no time");
  EXPECT_EQ(in("much", "MD2"), "22/018: \"much\" is no number");
  EXPECT_THAT(convertAt(ann, 2, "1", "D"), StartsWith("22/003: "));
  EXPECT_THAT(convertAt(ann, -1, "1", "D"), StartsWith("22/003: "));
}

TEST_F(WireConversions, WithoutACodeOrWithoutDataChangeNothing) {
  EXPECT_EQ(out("as it is", ""), "as it is");
  EXPECT_EQ(out("", "D"), "");
}

TEST_F(WireConversions, TakeTextsAsLongAsTheyTravel) {
  std::string data = "1";
  while (data.size() < 60'000) data += "]1";
  const std::string result = out(data, "DI");
  EXPECT_EQ(result.size(), (data.size() + 1) / 2 * 11 - 1);
  EXPECT_EQ(result.substr(0, 21), "1968-01-01]1968-01-01");
}

}  // namespace
}  // namespace nox::agent::test
