// Where the configuration and the data are looked for.
#include "agent/admin/locations.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/agent/support/files.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {
namespace {

using test::TempDirectory;
using test::writeFile;

class LocationsTest : public testing::Test {
protected:
  TempDirectory directory;
};

TEST_F(LocationsTest, TheFileThatIsNamedGoesFirst) {
  writeFile(directory.file("noxd.toml"), "");
  EXPECT_EQ(configurationFile({"/other.toml", directory.path()}), "/other.toml");
}

TEST_F(LocationsTest, TheFileInTheDataDirectoryIsFound) {
  EXPECT_EQ(configurationFile({{}, directory.path()}), "");
  writeFile(directory.file("noxd.toml"), "");
  EXPECT_EQ(configurationFile({{}, directory.path()}), directory.file("noxd.toml"));
}

TEST_F(LocationsTest, TheDataDirectoryOfTheCommandLineGoesBeforeThatOfTheFile) {
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "[server]\ndata_directory = \"here\"\n");
  EXPECT_EQ(configurationOf({file, {}}, true).dataDirectory, directory.file("here"));
  EXPECT_EQ(configurationOf({file, "/there"}, true).dataDirectory, "/there");
  EXPECT_EQ(configurationOf({file, "there"}, true).dataDirectory,
            (std::filesystem::current_path() / "there").string());
}

TEST_F(LocationsTest, AMistakeInTheFileKeepsNobodyFromADirectoryThatIsNamed) {
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "a mistake");
  EXPECT_EQ(dataDirectoryOf({file, "/there"}), "/there");
  EXPECT_THROW(dataDirectoryOf({file, {}}), ConfigurationError);
}

TEST_F(LocationsTest, AMissingCertificateMattersOnlyToServing) {
  const std::string file = directory.file("noxd.toml");
  writeFile(file, "[tls]\nenabled = true\ncertificate = \"none\"\nkey = \"none\"\n");
  EXPECT_THROW(configurationOf({file, {}}, true), ConfigurationError);
  EXPECT_NO_THROW(dataDirectoryOf({file, {}}));
}

}  // namespace
}  // namespace nox::agent
