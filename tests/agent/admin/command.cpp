#include "command.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sched.h>
#include <sodium.h>
#include <sqlite3.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "agent/descriptor.h"
#include "agent/store/sqlite/sqlite_engine.h"
#include "agent/users/users.h"
#include "tests/agent/support/files.h"

namespace nox::agent::test {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{60};
constexpr int kNoProgram = 127;

std::vector<char*> argumentsOf(std::vector<std::string>& words) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 1);
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  return argv;
}

/// Waits for the end of a child, which is killed when it takes too long.
int statusOf(pid_t child) {
  const Clock::time_point deadline = Clock::now() + kPatience;
  int status = 0;
  while (waitpid(child, &status, WNOHANG) == 0) {
    if (Clock::now() >= deadline) {
      ADD_FAILURE() << "noxd does not end";
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  constexpr int kBySignal = 128;
  return WIFSIGNALED(status) ? kBySignal + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Makes mounts of this process its own; where it is nobody, in a world where it is somebody.
bool leaveTheOthers() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(user == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER) != 0) return false;
  if (user != 0) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
  }
  return mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

}  // namespace

Result runNoxd(const std::vector<std::string>& arguments, const std::string& input,
               const std::function<bool()>& prepare) {
  const TempDirectory files;
  writeFile(files.file("in"), input);
  std::vector<std::string> words{NOXD_BINARY};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const std::vector<char*> argv = argumentsOf(words);
  const Descriptor in(open(files.file("in").c_str(), O_RDONLY | O_CLOEXEC));
  const Descriptor out(open(files.file("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const Descriptor err(open(files.file("err").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));

  const pid_t child = fork();
  if (child == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (prepare && !prepare()) _exit(kNotPrepared);
    dup2(in.get(), STDIN_FILENO);
    dup2(out.get(), STDOUT_FILENO);
    dup2(err.get(), STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(kNoProgram);
  }
  Result result;
  result.status = statusOf(child);
  result.out = contentOfFile(files.file("out"));
  result.err = contentOfFile(files.file("err"));
  return result;
}

Result runNoxdOnTerminal(const std::vector<std::string>& arguments,
                         const std::vector<Answer>& answers) {
  std::vector<std::string> words{NOXD_BINARY};
  words.insert(words.end(), arguments.begin(), arguments.end());
  const std::vector<char*> argv = argumentsOf(words);
  int opened = -1;
  const pid_t child = forkpty(&opened, nullptr, nullptr, nullptr);
  if (child == 0) {
    execv(argv[0], argv.data());
    _exit(kNoProgram);
  }
  const Descriptor terminal(opened);

  Result result;
  auto next = answers.begin();
  std::size_t answered = 0;  // what was shown before the last answer
  const Clock::time_point deadline = Clock::now() + kPatience;
  while (Clock::now() < deadline) {
    pollfd waited{terminal.get(), POLLIN, 0};
    constexpr int kLook = 100;
    if (poll(&waited, 1, kLook) <= 0) continue;
    std::array<char, 4096> bytes{};
    const ssize_t got = read(terminal.get(), bytes.data(), bytes.size());
    if (got <= 0) break;  // the other end is closed
    result.out.append(bytes.data(), static_cast<std::size_t>(got));
    if (next == answers.end()) continue;
    const std::size_t question = result.out.find(next->question, answered);
    if (question == std::string::npos) continue;
    answered = question + next->question.size();
    EXPECT_EQ(write(terminal.get(), next->typed.data(), next->typed.size()),
              static_cast<ssize_t>(next->typed.size()));
    ++next;
  }
  EXPECT_EQ(next, answers.end()) << "not every question was asked";
  result.status = statusOf(child);
  return result;
}

void makeDataDirectory(const std::string& path) {
  mkdir(path.c_str(), 0700);
  const mode_t before = umask(077);
  mkdir((path + "/accounts").c_str(), 0700);
  makeSqliteEngine(path + "/accounts", {})->createAccount("MAIN");
  { const Users users(path + "/users.db", true); }
  umask(before);

  // Hashed with the least effort: nobody guesses it here.
  std::array<char, crypto_pwhash_STRBYTES> hash{};
  if (sodium_init() < 0 || crypto_pwhash_str(hash.data(), "one", 3, crypto_pwhash_OPSLIMIT_MIN,
                                             crypto_pwhash_MEMLIMIT_MIN) != 0) {
    throw std::runtime_error("no hash");
  }
  const std::string sql = std::string("INSERT INTO users VALUES('ann', '") + hash.data() +
                          "'); INSERT INTO grants VALUES('ann', 'MAIN', 3)";
  sqlite3* database = nullptr;
  const bool done = sqlite3_open((path + "/users.db").c_str(), &database) == SQLITE_OK &&
                    sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
  sqlite3_close(database);
  if (!done) throw std::runtime_error("no user");
}

bool mountSmallDisk(const std::string& folder, const std::string& size) {
  return leaveTheOthers() &&
         mount("none", folder.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
}

bool mountReadOnly(const std::string& folder) {
  const char* const at = folder.c_str();
  return leaveTheOthers() && mount(at, at, nullptr, MS_BIND, nullptr) == 0 &&
         mount(nullptr, at, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) == 0;
}

}  // namespace nox::agent::test
