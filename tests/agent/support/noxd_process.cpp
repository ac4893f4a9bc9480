#include "tests/agent/support/noxd_process.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/agent/support/certificates.h"

namespace nox::agent::test {

namespace {

using Clock = std::chrono::steady_clock;

// Sanitizers and a busy machine make everything slower; this is only the end of patience.
constexpr std::chrono::seconds kPatience{60};
constexpr std::chrono::milliseconds kLook{5};

std::string contentOf(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

void writeSecret(const std::string& file, const std::string& secret) {
  std::ofstream(file, std::ios::trunc) << secret << "\n";
  chmod(file.c_str(), S_IRUSR | S_IWUSR);
}

int statusOf(int waited) {
  constexpr int kBySignal = 128;
  return WIFSIGNALED(waited) ? kBySignal + WTERMSIG(waited) : WEXITSTATUS(waited);
}

/// The exit status of a child once it has ended; below 0 after the deadline.
int waitUntil(pid_t child, Clock::time_point deadline) {
  for (;;) {
    int status = 0;
    if (waitpid(child, &status, WNOHANG) == child) return statusOf(status);
    if (Clock::now() >= deadline) return -1;
    std::this_thread::sleep_for(kLook);
  }
}

Descriptor opened(const std::string& file, int flags) {
  return Descriptor(open(file.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR));
}

}  // namespace

NoxdProcess::NoxdProcess() {
  settings_["server.data_directory"] = quoted(dataDirectory());
  settings_["server.listen"] = "\"127.0.0.1:0\"";
  settings_["log.level"] = "\"debug\"";

  notices_ = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string path = file("notices");
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  timeval look{0, std::chrono::microseconds(kLook).count()};
  if (bind(notices_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      setsockopt(notices_.get(), SOL_SOCKET, SO_RCVTIMEO, &look, sizeof look) != 0) {
    throw std::runtime_error("no socket for notices: " + path);
  }

  writeSecret(file("password"), kPassword);
  const Finished made = run({"init", "--config", file("first.toml"), "--data-dir", dataDirectory(),
                             "--user", kUser, "--password-file", file("password")});
  if (made.status != 0) throw std::runtime_error("noxd init: " + made.output);
}

NoxdProcess::~NoxdProcess() { kill(); }

NoxdProcess& NoxdProcess::set(const std::string& key, const std::string& value) {
  settings_[key] = value;
  return *this;
}

NoxdProcess& NoxdProcess::withTls() {
  const Certificate authority = Certificate::authority("Tests");
  authority.write(tlsAuthority(), file("authority-key.pem"));
  authority.issue("localhost").write(tlsCertificate(), tlsKey());
  set("tls.enabled", "true");
  set("tls.listen", "\"127.0.0.1:0\"");
  set("tls.certificate", quoted(tlsCertificate()));
  return set("tls.key", quoted(tlsKey()));
}

NoxdProcess& NoxdProcess::withDescriptors(unsigned int most) {
  descriptors_ = most;
  return *this;
}

void NoxdProcess::addUser(const std::string& name, const std::string& password,
                          const std::vector<std::string>& grants) {
  writeSecret(file("password"), password);
  std::vector<std::string> arguments{
      "user", "add", name, "--data-dir", dataDirectory(), "--password-file", file("password")};
  for (const std::string& grant : grants) {
    arguments.emplace_back("--grant");
    arguments.push_back(grant);
  }
  const Finished added = run(arguments);
  if (added.status != 0) fail("noxd user add: " + added.output);
}

void NoxdProcess::writeConfiguration() const {
  std::ofstream out(file("noxd.toml"), std::ios::trunc);
  for (const auto& [key, value] : settings_) out << key << " = " << value << "\n";
}

pid_t NoxdProcess::launch(const std::vector<std::string>& arguments, const std::string& output,
                          const std::string& input) const {
  std::vector<std::string> words{NOXD_BINARY};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  // All that a child may do is done with what was made before it.
  const std::string notify = "NOTIFY_SOCKET=" + file("notices");
  std::vector<char*> environment;
  for (char** variable = environ; *variable; ++variable) environment.push_back(*variable);
  environment.push_back(const_cast<char*>(notify.c_str()));
  environment.push_back(nullptr);
  const Descriptor out = opened(output, O_WRONLY | O_CREAT | O_APPEND);
  const Descriptor in = opened(input.empty() ? "/dev/null" : input, O_RDONLY);
  const rlimit descriptors{descriptors_, descriptors_};
  const pid_t parent = getpid();

  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child > 0) return child;
  // A test that crashes takes its agent along.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent) _exit(1);
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  dup2(in.get(), STDIN_FILENO);
  dup2(out.get(), STDOUT_FILENO);
  dup2(out.get(), STDERR_FILENO);
  if (descriptors_ != 0) setrlimit(RLIMIT_NOFILE, &descriptors);
  execve(argv[0], argv.data(), environment.data());
  constexpr int kNotFound = 127;
  _exit(kNotFound);
}

void NoxdProcess::start() {
  writeConfiguration();
  unlink(file("ports").c_str());
  pid_ = launch({"--config", file("noxd.toml"), "--ports-file", file("ports")}, file("log"), {});
  waitForNotice("READY=1");
  readPorts();
}

Finished NoxdProcess::startToFail() {
  writeConfiguration();
  return run({"--config", file("noxd.toml"), "--ports-file", file("ports")});
}

void NoxdProcess::waitForNotice(const std::string& notice) {
  const Clock::time_point deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline) {
    std::array<char, 4096> bytes;
    const ssize_t n = recv(notices_.get(), bytes.data(), bytes.size(), 0);
    if (n > 0 && std::string(bytes.data(), static_cast<std::size_t>(n)) == notice) return;
    if (n < 0 && !isRunning()) fail("noxd ended instead of saying " + notice);
  }
  fail("noxd did not say " + notice);
}

void NoxdProcess::readPorts() {
  plainPort_ = tlsPort_ = 0;
  std::ifstream in(file("ports"));
  std::string kind;
  int port = 0;
  while (in >> kind >> port) (kind == "tls" ? tlsPort_ : plainPort_) = port;
}

void NoxdProcess::signal(int signal) const {
  if (pid_ != 0) ::kill(pid_, signal);
}

void NoxdProcess::reload() {
  writeConfiguration();
  signal(SIGHUP);
  waitForNotice("READY=1");
}

bool NoxdProcess::isRunning() {
  if (pid_ == 0) return false;
  siginfo_t info{};
  // Looks without taking the status away from wait().
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == 0;
}

int NoxdProcess::wait() {
  const int status = waitUntil(pid_, Clock::now() + kPatience);
  if (status < 0) fail("noxd did not end");
  pid_ = 0;
  return status;
}

void NoxdProcess::kill() {
  if (pid_ == 0) return;
  ::kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = 0;
}

int NoxdProcess::stop() {
  signal(SIGTERM);
  return wait();
}

Finished NoxdProcess::run(const std::vector<std::string>& arguments,
                          const std::string& input) const {
  const std::string inputFile = input.empty() ? std::string() : file("input");
  if (!input.empty()) std::ofstream(inputFile, std::ios::trunc) << input;
  const std::string outputFile = file("output");
  unlink(outputFile.c_str());
  const pid_t child = launch(arguments, outputFile, inputFile);
  Finished finished;
  finished.status = waitUntil(child, Clock::now() + kPatience);
  if (finished.status < 0) {
    ::kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    fail("a command of noxd did not end");
  }
  finished.output = contentOf(outputFile);
  return finished;
}

std::string NoxdProcess::log() const { return contentOf(file("log")); }

void NoxdProcess::waitForLog(const std::string& text) {
  const Clock::time_point deadline = Clock::now() + kPatience;
  for (;;) {
    const bool ended = !isRunning();  // asked first: it may log and then end
    if (log().find(text) != std::string::npos) return;
    if (ended || Clock::now() >= deadline) fail("the log does not say: " + text);
    std::this_thread::sleep_for(kLook);
  }
}

void NoxdProcess::fail(const std::string& what) const {
  throw std::runtime_error(what + "\n--- log ---\n" + log());
}

namespace {

/// A number from /proc/PID/status.
long statusLine(pid_t pid, const std::string& name) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(in, line)) {
    if (line.compare(0, name.size() + 1, name + ":") == 0) {
      return std::stol(line.substr(name.size() + 1));
    }
  }
  return -1;
}

}  // namespace

long NoxdProcess::memoryKiB() const { return statusLine(pid_, "VmRSS"); }

int NoxdProcess::threads() const { return static_cast<int>(statusLine(pid_, "Threads")); }

int NoxdProcess::descriptors(const std::string& without) const {
  std::error_code gone;  // what was closed meanwhile is not counted
  int count = 0;
  for (const auto& open :
       std::filesystem::directory_iterator("/proc/" + std::to_string(pid_) + "/fd")) {
    const std::filesystem::path target = std::filesystem::read_symlink(open.path(), gone);
    if (!gone && (without.empty() || target.filename() != without)) ++count;
  }
  return count;
}

}  // namespace nox::agent::test
