// Runs the tests that are linked with it as an application does that follows its user's locale.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <locale>
#include <stdexcept>

namespace {

/// Before the first test.
class UsersLocale : public ::testing::Environment {
public:
  void SetUp() override {
    std::setlocale(LC_ALL, "");
    try {
      std::locale::global(std::locale(""));
    } catch (const std::runtime_error&) {  // there is none of this name
    }
    // What the system says about its errors, tests know in English.
    std::setlocale(LC_MESSAGES, "C");
  }
};

const ::testing::Environment* const kUsersLocale =
    ::testing::AddGlobalTestEnvironment(new UsersLocale);

TEST(Locale, IsTheOneOfTheEnvironment) {
  ASSERT_NE(kUsersLocale, nullptr);
  const char* const wanted = std::getenv("LC_ALL");
  if (!wanted || *wanted == '\0') GTEST_SKIP() << "LC_ALL is not set";
  EXPECT_STREQ(std::setlocale(LC_NUMERIC, nullptr), wanted);
}

}  // namespace
