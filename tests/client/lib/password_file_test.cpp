// Which files a password is taken from.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "nox/client/connection.h"
#include "nox/client/error.h"
#include "tests/client/support/environment.h"
#include "tests/client/support/peer.h"
#include "tests/client/support/scratch.h"

namespace nox::client {
namespace {

using test::Environment;
using test::Peer;
using test::PeerConnection;
using test::Scratch;

/// Logs everybody in and keeps the password that came.
class PasswordFile : public testing::Test {
protected:
  std::string passwordFrom(const std::string& file) {
    std::string seen;
    {
      Peer peer([&seen](PeerConnection& client) {
        const auto login = client.receiveA<noxp::AuthenticationRequestProt>();
        if (!login) return;
        auto* const credentials = dynamic_cast<LocalUserCredentials*>(login->getCredentials());
        seen = credentials->getPassword()->getString();
        client.send(OKResponseProt());
        client.waitForClient();
      });
      Connection::open(peer.uri("password_file=" + file));
    }
    return seen;
  }

  static std::string refusalOf(const std::string& file) {
    try {
      Connection::open("nox://anna@127.0.0.1?tls=off&password_file=" + file);
    } catch (const Error& error) {
      EXPECT_EQ(error.sqlState(), sqlstate::kBadOption);
      EXPECT_EQ(error.outcome(), Outcome::NotSent);
      EXPECT_EQ(error.message().find("geheim"), std::string::npos) << error.message();
      return error.message();
    }
    ADD_FAILURE() << "taken: " << file;
    return {};
  }

  const Environment empty_;
  const Scratch scratch_;
};

TEST_F(PasswordFile, GivesItsFirstLine) {
  EXPECT_EQ(passwordFrom(scratch_.write("p", "geheim\nnot this\n")), "geheim");
  EXPECT_EQ(passwordFrom(scratch_.write("p", "geheim")), "geheim");
  EXPECT_EQ(passwordFrom(scratch_.write("p", "Ünï codé \r\n")), "Ünï codé ");
}

TEST_F(PasswordFile, MayBeReadOnly) {
  EXPECT_EQ(passwordFrom(scratch_.write("p", "geheim\n", 0400)), "geheim");
}

TEST_F(PasswordFile, IsRefusedWhereOthersMayUseIt) {
  for (const unsigned mode : {0640u, 0604u, 0620u, 0602u, 0644u, 0700u, 0610u, 0601u, 0777u}) {
    const std::string file = scratch_.write("p", "geheim\n", mode);
    char permissions[8];
    std::snprintf(permissions, sizeof permissions, "%04o", mode);
    EXPECT_EQ(refusalOf(file), "the password file " + file + " has the permissions " + permissions +
                                   "; they must be 0600");
  }
}

TEST_F(PasswordFile, IsRefusedWhereItBelongsToSomebodyElse) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can give a file away";
  const std::string file = scratch_.write("p", "geheim\n");
  ASSERT_EQ(::chown(file.c_str(), 12345, static_cast<gid_t>(-1)), 0);
  EXPECT_EQ(refusalOf(file), "the password file " + file + " belongs to somebody else");
}

TEST_F(PasswordFile, IsRefusedWhereItIsNoPlainFile) {
  const std::string directory = scratch_.file("d");
  ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
  EXPECT_EQ(refusalOf(directory), "the password file " + directory + " is no plain file");
  const std::string pipe = scratch_.file("f");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(refusalOf(pipe), "the password file " + pipe + " is no plain file");
}

TEST_F(PasswordFile, IsRefusedWhereItIsNot) {
  const std::string file = scratch_.file("none");
  EXPECT_EQ(refusalOf(file),
            "the password file " + file + " cannot be opened: No such file or directory");
}

TEST_F(PasswordFile, IsRefusedWithoutAPassword) {
  for (const std::string& content :
       {std::string(), std::string("\n"), std::string("\ngeheim\n"), std::string("\r\n")}) {
    const std::string file = scratch_.write("p", content);
    EXPECT_EQ(refusalOf(file), "the password file " + file + " has an empty first line");
  }
  const std::string nul = scratch_.write("p", std::string("ge\0heim\n", 8));
  EXPECT_EQ(refusalOf(nul), "the password file " + nul + " has a NUL in its first line");
  const std::string longOne = scratch_.write("p", std::string(4097, 'x'));
  EXPECT_EQ(refusalOf(longOne),
            "the password file " + longOne + " has a first line of more than 4096 bytes");
}

TEST_F(PasswordFile, IsNotReadWhereTheProgramGivesThePassword) {
  std::string seen;
  {
    Peer peer([&seen](PeerConnection& client) {
      const auto login = client.receiveA<noxp::AuthenticationRequestProt>();
      if (!login) return;
      auto* const credentials = dynamic_cast<AccountUserCredentialsProt*>(login->getCredentials());
      seen = credentials->getUserName()->getString() + "/" +
             credentials->getAccount()->getString() + "/" + credentials->getPassword()->getString();
      client.send(OKResponseProt());
      client.waitForClient();
    });
    Options options = Options::fromUri(peer.uri("password_file=/nowhere"));
    options.password = "from the program";
    Connection::open(options);
  }
  EXPECT_EQ(seen, "ann/MAIN/from the program");
}

}  // namespace
}  // namespace nox::client
