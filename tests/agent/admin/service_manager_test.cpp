// What the service manager hears.
#include "agent/admin/service_manager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

#include "agent/descriptor.h"
#include "tests/agent/support/temp_directory.h"

namespace nox::agent {
namespace {

using test::TempDirectory;

class ServiceManagerTest : public testing::Test {
protected:
  ~ServiceManagerTest() override { unsetenv("NOTIFY_SOCKET"); }

  /// Listens at a path, or at a name that begins with '@'.
  void listenAt(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.data(), path.size());
    if (path[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    ASSERT_EQ(bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
  }

  std::string heard() const {
    std::array<char, 256> bytes{};
    const ssize_t got = recv(socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    return got < 0 ? "nothing" : std::string(bytes.data(), static_cast<std::size_t>(got));
  }

  TempDirectory directory;
  Descriptor socket{::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
};

TEST_F(ServiceManagerTest, HearsALineAtASocketInTheFileSystem) {
  listenAt(directory.file("notify"));
  notifyServiceManager("READY=1");
  EXPECT_EQ(heard(), "READY=1");
}

TEST_F(ServiceManagerTest, HearsALineAtASocketThatIsNoFile) {
  listenAt("@nox-test-" + std::to_string(getpid()));
  notifyServiceManager("STOPPING=1");
  EXPECT_EQ(heard(), "STOPPING=1");
}

TEST_F(ServiceManagerTest, HearsWhenAReloadBegan) {
  listenAt(directory.file("notify"));
  notifyServiceManager(reloadingNotice());
  EXPECT_THAT(heard(), testing::MatchesRegex("RELOADING=1\nMONOTONIC_USEC=[0-9]+"));
}

TEST_F(ServiceManagerTest, ThatIsNotThereIsNotMissed) {
  notifyServiceManager("READY=1");
  setenv("NOTIFY_SOCKET", directory.file("none").c_str(), 1);
  notifyServiceManager("READY=1");
  setenv("NOTIFY_SOCKET", std::string(500, 'x').c_str(), 1);
  notifyServiceManager("READY=1");
  setenv("NOTIFY_SOCKET", "", 1);
  notifyServiceManager("READY=1");
  EXPECT_EQ(heard(), "nothing");
}

}  // namespace
}  // namespace nox::agent
