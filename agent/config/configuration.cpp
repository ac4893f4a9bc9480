#include "agent/config/configuration.h"

#include <fcntl.h>
#include <toml++/toml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string_view>
#include <utility>

#include "agent/config/configuration_keys.h"

namespace nox::agent {

namespace {

namespace fs = std::filesystem;

std::string describe(const std::string& file, const std::vector<ConfigurationMistake>& mistakes) {
  std::string text;
  for (const ConfigurationMistake& mistake : mistakes) {
    if (!text.empty()) text += '\n';
    text += file;
    if (mistake.line != 0) text += ':' + std::to_string(mistake.line);
    text += ": " + mistake.text;
  }
  return text;
}

/// How many letters must be put in, taken out, changed or swapped with their neighbour to turn one
/// name into the other.
std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast(b.size() + 1);
  std::vector<std::size_t> last(b.size() + 1);
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (a[i - 1] != b[j - 1])});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], beforeLast[j - 2] + 1);
      }
    }
    std::swap(beforeLast, last);
    std::swap(last, row);
  }
  return last[b.size()];
}

/// The name that was probably meant; null where none is near.
const char* nearest(std::string_view name, const std::vector<const char*>& known) {
  constexpr std::size_t kLongestName = 64;  // of which anything can be meant
  if (name.size() > kLongestName) return nullptr;
  const char* best = nullptr;
  std::size_t least = std::max<std::size_t>(2, name.size() / 3) + 1;
  for (const char* candidate : known) {
    const std::size_t steps = distance(name, candidate);
    if (steps < least) {
      least = steps;
      best = candidate;
    }
  }
  return best;
}

bool hasControlCharacters(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

/// Texts for messages: what a file says is shown in part and without what a terminal would obey.
std::string shown(std::string_view text, std::size_t longest = 80) {
  std::string result;
  for (const char c : text.substr(0, longest)) result += hasControlCharacters({&c, 1}) ? '?' : c;
  return text.size() > longest ? result + "..." : result;
}

/// Takes "host:port" apart; `mistake` says what is wrong where nothing comes back.
std::optional<ListenAddress> parseAddress(const std::string& text, std::string& mistake) {
  const bool bracketed = !text.empty() && text.front() == '[';
  const std::size_t close = bracketed ? text.find(']') : 0;
  const std::size_t colon = close == std::string::npos ? close : text.find(':', close);
  if (close == std::string::npos || colon == std::string::npos ||
      (bracketed && colon != close + 1)) {
    mistake = "\"" + shown(text) + "\" is no address with a port, like \"127.0.0.1:7433\"";
    return std::nullopt;
  }
  if (!bracketed && text.find(':', colon + 1) != std::string::npos) {
    mistake = "an IPv6 address stands in brackets, like \"[::1]:7433\"";
    return std::nullopt;
  }
  ListenAddress address;
  address.host = bracketed ? text.substr(1, close - 1) : text.substr(0, colon);
  const char* allowed = bracketed
                            ? "0123456789abcdefABCDEF:.%_-ghijklmnopqrstuvwxyz"
                            : "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ.-_";
  if (address.host.empty() || address.host.find_first_not_of(allowed) != std::string::npos) {
    mistake =
        "\"" + shown(address.host) + "\" is no host; 0.0.0.0 and [::] stand for all addresses";
    return std::nullopt;
  }
  const std::string port = text.substr(colon + 1);
  constexpr std::size_t kMostDigits = 5;
  constexpr int kLastPort = 65535;
  const bool digits = !port.empty() && port.size() <= kMostDigits &&
                      port.find_first_not_of("0123456789") == std::string::npos;
  const int value = digits ? std::stoi(port) : -1;
  if (value < 0 || value > kLastPort) {
    mistake = "\"" + shown(port) + "\" is no port, which is a number from 0 to 65535";
    return std::nullopt;
  }
  address.port = static_cast<std::uint16_t>(value);
  return address;
}

/// Reads one file: gathers the values, the mistakes, and where each setting stands.
class FileParser {
public:
  FileParser(const std::string& file) : file_(file), folder_(fs::absolute(file).parent_path()) {}

  void parse(const std::string& text) {
    try {
      const toml::table root = toml::parse(text, file_);
      for (const auto& [name, node] : root) readSection(name.str(), node, lineOf(name, node));
    } catch (const toml::parse_error& error) {
      // It may quote what the file says.
      constexpr std::size_t kLongest = 400;
      mistake(error.source().begin.line, shown(error.description(), kLongest));
      return;
    }
    checkTogether();
  }

  void checkFiles() {
    for (const Key& key : allKeys()) {
      const auto* path = std::get_if<PathKey>(&key.kind);
      if (!path || !path->isRead || !values_.tls.enabled) continue;
      const std::string& name = path->value(values_);
      if (name.empty()) continue;
      const int descriptor = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
      if (descriptor < 0) {
        mistake(line(key.fullName()),
                key.fullName() + ": " + name + " cannot be read: " + std::strerror(errno));
      } else {
        ::close(descriptor);
      }
    }
  }

  ConfigurationValues result() {
    if (mistakes_.empty()) return std::move(values_);
    std::stable_sort(mistakes_.begin(), mistakes_.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
    throw ConfigurationError(file_, std::move(mistakes_));
  }

private:
  // A key is where its name stands; a table that several headers make up is where it begins.
  static unsigned int lineOf(const toml::key& name, const toml::node& node) {
    const auto line = name.source().begin.line;
    return line != 0 ? line : node.source().begin.line;
  }

  void mistake(unsigned int line, std::string text) {
    mistakes_.push_back(ConfigurationMistake{line, std::move(text)});
  }

  void readSection(std::string_view section, const toml::node& node, unsigned int line) {
    std::vector<const char*> sections;
    std::vector<const char*> names;
    for (const Key& key : allKeys()) {
      if (sections.empty() || sections.back() != std::string_view(key.section)) {
        sections.push_back(key.section);
      }
      if (key.section == section) names.push_back(key.name);
    }
    const toml::table* table = node.as_table();
    if (!table && names.empty()) {
      mistake(line, "\"" + shown(section) + "\" stands in no section" + belongsTo(section));
      return;
    }
    if (names.empty()) {
      const char* meant = nearest(section, sections);
      mistake(line, "there is no section [" + shown(section) + "]" +
                        (meant ? std::string("; [") + meant + "] is one" : ""));
      return;
    }
    if (!table) {
      mistake(line, "[" + std::string(section) + "] is a section, not a value");
      return;
    }
    for (const auto& [name, value] : *table) {
      readKey(section, names, name.str(), value, lineOf(name, value));
    }
  }

  static std::string belongsTo(std::string_view name) {
    for (const Key& key : allKeys()) {
      if (key.name == name) return std::string("; it belongs to [") + key.section + "]";
    }
    return {};
  }

  void readKey(std::string_view section, const std::vector<const char*>& names,
               std::string_view name, const toml::node& node, unsigned int line) {
    const std::vector<Key>& keys = allKeys();
    const auto key = std::find_if(keys.begin(), keys.end(), [&](const Key& candidate) {
      return candidate.section == section && candidate.name == name;
    });
    if (key == keys.end()) {
      std::string hint = belongsTo(name);
      const char* meant = hint.empty() ? nearest(name, names) : nullptr;
      if (meant) hint = "; \"" + std::string(meant) + "\" is one";
      mistake(line, "there is no setting \"" + shown(name) + "\" in [" + std::string(section) +
                        "]" + hint);
      return;
    }
    lines_[key->fullName()] = line;
    const std::string wrong =
        std::visit([&](const auto& kind) { return read(kind, node); }, key->kind);
    if (!wrong.empty()) mistake(line, key->fullName() + ": " + wrong);
  }

  // Each returns what is wrong, or an empty text.

  std::string read(const FlagKey& key, const toml::node& node) {
    const auto value = node.value_exact<bool>();
    if (!value) return "it is true or false";
    key.value(values_) = *value;
    return {};
  }

  std::string read(const NumberKey& key, const toml::node& node) {
    const auto value = node.value_exact<std::int64_t>();
    if (!value || *value < key.least || *value > key.most) {
      return "it is a whole number from " + std::to_string(key.least) + " to " +
             std::to_string(key.most);
    }
    key.set(values_, *value);
    return {};
  }

  std::string read(const TextKey& key, const toml::node& node) {
    std::string value;
    std::string wrong = readText(node, value);
    if (wrong.empty()) wrong = key.mistakeIn(value);
    if (wrong.empty()) key.set(values_, std::move(value));
    return wrong;
  }

  std::string read(const PathKey& key, const toml::node& node) {
    std::string value;
    std::string wrong = readText(node, value);
    if (wrong.empty()) key.value(values_) = value.empty() ? value : whole(value);
    return wrong;
  }

  std::string read(const AddressKey& key, const toml::node& node) {
    std::string value;
    std::string wrong = readText(node, value);
    if (!wrong.empty()) return wrong;
    if (auto address = parseAddress(value, wrong)) key.value(values_) = std::move(*address);
    return wrong;
  }

  /// The path as it is without the folder of the file, and without what means nothing.
  std::string whole(const std::string& path) const {
    std::string text = (folder_ / fs::path(path)).lexically_normal().string();
    if (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
  }

  static std::string readText(const toml::node& node, std::string& value) {
    const auto text = node.value_exact<std::string>();
    if (!text) return "it is a text in quotes";
    if (hasControlCharacters(*text)) return "it has a control character in it";
    value = *text;
    return {};
  }

  /// What only several settings together can be wrong about.
  void checkTogether() {
    const TlsSettings& tls = values_.tls;
    if (values_.dataDirectory.empty()) {
      mistake(line("server.data_directory"), "server.data_directory: it must name a folder");
    }
    if (!values_.plainListener && !tls.enabled) {
      mistake(line("server.plain_listener"),
              "server.plain_listener: without it and without tls.enabled nobody can connect");
    }
    if (tls.enabled && tls.certificate.empty()) {
      mistake(line("tls.enabled"), "tls.enabled: tls.certificate must name a certificate then");
    }
    if (tls.enabled && tls.key.empty()) {
      mistake(line("tls.enabled"), "tls.enabled: tls.key must name the certificate's key then");
    }
    if (tls.requireClientCertificate && tls.clientCa.empty()) {
      mistake(line("tls.require_client_certificate"),
              "tls.require_client_certificate: tls.client_ca must name the authorities then");
    }
    if (tls.enabled && values_.plainListener && values_.listen.port != 0 &&
        values_.listen.port == tls.listen.port && values_.listen.host == tls.listen.host) {
      mistake(line("tls.listen"), "tls.listen: server.listen is the same address");
    }
  }

  unsigned int line(const std::string& key) const {
    const auto found = lines_.find(key);
    return found == lines_.end() ? 0 : found->second;
  }

  const std::string& file_;
  const fs::path folder_;
  ConfigurationValues values_;
  std::vector<ConfigurationMistake> mistakes_;
  std::map<std::string, unsigned int> lines_;
};

}  // namespace

ConfigurationError::ConfigurationError(const std::string& file,
                                       std::vector<ConfigurationMistake> mistakes)
    : std::runtime_error(describe(file, mistakes)), mistakes_(std::move(mistakes)) {}

ConfigurationValues parseConfiguration(const std::string& text, const std::string& file) {
  FileParser parser(file);
  parser.parse(text);
  return parser.result();
}

ConfigurationValues readConfiguration(const std::string& file, bool checkFiles) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  // A folder opens like a file, and fails when it is read.
  if (!stream || (text << stream.rdbuf(), stream.bad()) || fs::is_directory(file)) {
    const std::string reason = fs::is_directory(file) ? "it is a folder" : std::strerror(errno);
    throw ConfigurationError(file, {ConfigurationMistake{0, "cannot be read: " + reason}});
  }
  FileParser parser(file);
  parser.parse(text.str());
  if (checkFiles) parser.checkFiles();
  return parser.result();
}

std::string configurationText(const ConfigurationValues& values) {
  std::ostringstream text;
  text << "# The configuration of noxd. What is commented out is at its default. Paths that are "
          "not\n"
          "# absolute start at this file's folder. noxd --check-config names mistakes; SIGHUP "
          "makes a\n"
          "# running agent read the file again.\n";
  const char* section = "";
  for (const Key& key : allKeys()) {
    if (section != std::string_view(key.section)) {
      section = key.section;
      text << "\n[" << section << "]\n";
    }
    text << '\n';
    std::istringstream comment(key.comment);
    for (std::string line; std::getline(comment, line);) text << "# " << line << '\n';
    if (key.needsRestart) text << "# A change needs a restart.\n";
    const std::string value = valueText(key, values);
    if (value == valueText(key, ConfigurationValues{})) text << '#';
    text << key.name << " = " << value << '\n';
  }
  return text.str();
}

std::vector<ConfigurationKey> configurationKeys() {
  std::vector<ConfigurationKey> keys;
  for (const Key& key : allKeys()) {
    keys.push_back(ConfigurationKey{key.fullName(), key.needsRestart});
  }
  return keys;
}

std::vector<std::string> keepWhatNeedsRestart(const ConfigurationValues& running,
                                              ConfigurationValues& next) {
  std::vector<std::string> kept;
  for (const Key& key : allKeys()) {
    if (!key.needsRestart || valueText(key, running) == valueText(key, next)) continue;
    copyValue(key, running, next);
    kept.push_back(key.fullName());
  }
  return kept;
}

std::string textOf(const ListenAddress& address) {
  const bool bracketed = address.host.find(':') != std::string::npos;
  return (bracketed ? "[" + address.host + "]" : address.host) + ":" + std::to_string(address.port);
}

Configuration::Configuration(ConfigurationValues values)
    : values_(std::make_shared<const ConfigurationValues>(std::move(values))) {}

std::shared_ptr<const ConfigurationValues> Configuration::values() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return values_;
}

void Configuration::replace(ConfigurationValues values) {
  auto next = std::make_shared<const ConfigurationValues>(std::move(values));
  // The old values end outside of the lock.
  const std::lock_guard<std::mutex> lock(mutex_);
  values_.swap(next);
}

}  // namespace nox::agent
