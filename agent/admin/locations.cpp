#include "agent/admin/locations.h"

#include <filesystem>
#include <initializer_list>

namespace nox::agent {

namespace {

constexpr const char* kSystemConfiguration = "/etc/noxd/noxd.toml";
constexpr const char* kFileName = "/noxd.toml";

bool isThere(const std::string& file) {
  std::error_code error;
  // A file that may not be looked at is there: reading it says why it cannot be used.
  return std::filesystem::exists(file, error) || error;
}

}  // namespace

std::string configurationFile(const Locations& locations) {
  if (!locations.configuration.empty()) return locations.configuration;
  if (!locations.dataDirectory.empty()) {
    const std::string file = locations.dataDirectory + kFileName;
    return isThere(file) ? file : std::string();
  }
  for (const std::string& file :
       {std::string(kSystemConfiguration), ConfigurationValues{}.dataDirectory + kFileName}) {
    if (isThere(file)) return file;
  }
  return {};
}

ConfigurationValues configurationOf(const Locations& locations, bool forServing) {
  const std::string file = configurationFile(locations);
  ConfigurationValues values =
      file.empty() ? ConfigurationValues{} : readConfiguration(file, forServing);
  if (!locations.dataDirectory.empty()) {
    values.dataDirectory = std::filesystem::absolute(locations.dataDirectory).string();
  }
  return values;
}

std::string dataDirectoryOf(const Locations& locations) {
  // A mistake in the file must not keep anybody from the data directory that he names.
  if (!locations.dataDirectory.empty()) return locations.dataDirectory;
  return configurationOf(locations, false).dataDirectory;
}

}  // namespace nox::agent
