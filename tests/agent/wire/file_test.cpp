// Requests about files as noxd answers them: 205 to 208.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/agent/wire/shared_noxd.h"
#include "tests/support/frames.h"

namespace nox::agent::test {
namespace {

class WireFiles : public SharedNoxd {
protected:
  void fill(std::initializer_list<const char*> ids) {
    for (const char* id : ids) ann().write(file(), id, id);
  }
  /// The id in front of the colon of a list's description.
  static std::string keysOf(const std::string& list) {
    const std::size_t colon = list.find(':');
    return colon == std::string::npos ? list : list.substr(colon + 1);
  }
};

TEST_F(WireFiles, AFileThatIsThereOpens) {
  EXPECT_EQ(ann().open(file()), "OK");
  EXPECT_EQ(ann().open(dict().c_str()), "OK");
}

TEST_F(WireFiles, OthersDoNot) {
  for (const char* name : {"NONE", "DICT NONE", "", "DICT ", "a b", "../x", "\xC3\xA4"}) {
    EXPECT_EQ(ann().open(name), "IE/005") << name;
  }
  EXPECT_EQ(ann().open(std::string(65, 'x').c_str()), "IE/005");
}

TEST_F(WireFiles, ClosingIsAlwaysFine) {
  EXPECT_EQ(ann().closeFile(file()), "OK");
  EXPECT_EQ(ann().closeFile("NONE"), "OK");
  EXPECT_EQ(ann().closeFile(""), "OK");
}

TEST_F(WireFiles, ClearingDeletesEveryRecordOfThePart) {
  fill({"A", "B"});
  ann().write(dict().c_str(), "NAME", "x");
  EXPECT_EQ(ann().clear(file()), "OK");
  EXPECT_EQ(keysOf(ann().select(file(), 0)), "");
  EXPECT_EQ(ann().exists(dict().c_str(), "NAME"), "0");
  EXPECT_EQ(ann().clear(dict().c_str()), "OK");
  EXPECT_EQ(ann().exists(dict().c_str(), "NAME"), "1");
}

TEST_F(WireFiles, AMissingFileCannotBeCleared) {
  EXPECT_EQ(ann().clear("NONE"), "IE/006");
  EXPECT_EQ(ann().clear("no name"), "IE/006");
}

TEST_F(WireFiles, AFileInWhichAnotherLocksARecordIsNotCleared) {
  fill({"A", "B"});
  for (const int mode : {kShared, kUpdate}) {
    bob().read(file(), "B", mode);
    EXPECT_EQ(ann().clear(file()), "IE/024");
    bob().release(2);
  }
  EXPECT_EQ(keysOf(ann().select(file(), 0)), " A B") << "all or none";
  EXPECT_EQ(ann().clear(file()), "OK");
}

TEST_F(WireFiles, OwnLocksDoNotKeepIt) {
  fill({"A"});
  ann().read(file(), "A", kUpdate);
  EXPECT_EQ(ann().clear(file()), "OK");
}

TEST_F(WireFiles, SelectingGivesAListAndItsFirstKeys) {
  fill({"B", "C", "A"});
  const auto client = newClient();
  EXPECT_EQ(client->select(file(), 1), "1: A B C") << "in order of their bytes";
  EXPECT_EQ(client->select(file(), 2), "2: A B C");
}

TEST_F(WireFiles, SelectingGivesAsManyKeysAsTheSessionFetches) {
  fill({"A", "B", "C"});
  const auto client = newClient();
  EXPECT_EQ(client->set("FETCH_SIZE", "2"), "OK");
  EXPECT_EQ(client->select(file()), "1: A B");
  EXPECT_EQ(client->fetch(1, 1, 2), "1: C");
}

TEST_F(WireFiles, ASelectionCarriesNeitherRecordNorData) {
  fill({"A"});
  const auto client = newClient();
  noxp::remote::SelectFileRequestProt request(file());
  request.setClassVersion(1);
  client->send(request);
  const NOXPBlob keys("A");
  auto list = std::make_unique<noxp::remote::SelectListProt>(&keys);
  list->setId(1);
  EXPECT_EQ(client->receiveFrame(),
            nox::test::frameOf(noxp::remote::ToviResponseProt(0, nullptr, list.release())));
}

TEST_F(WireFiles, AnOldClientIsGivenEveryKeyAtOnce) {
  std::string all;
  ann().begin();
  for (int i = 1000; i < 2500; ++i) {
    const std::string id = std::to_string(i);
    ASSERT_EQ(ann().write(file(), id.c_str(), ""), "0");
    all += " " + id;
  }
  ann().commit();
  EXPECT_EQ(ann().select(file(), 0), "0:" + all);
}

TEST_F(WireFiles, AnEmptyFileGivesAnEmptyList) {
  const auto client = newClient();
  EXPECT_EQ(client->select(file(), 0), "0:");
  EXPECT_EQ(client->select(file(), 1), "1:");
  EXPECT_EQ(client->fetch(1, 1, 10), "1:");
}

TEST_F(WireFiles, AMissingFileCannotBeSelected) {
  for (const int version : {0, 1}) {
    EXPECT_EQ(ann().select("NONE", version), "IE/007");
    EXPECT_EQ(ann().select("no name", version), "IE/007");
  }
}

TEST_F(WireFiles, ASessionHasAtMost64Lists) {
  fill({"A"});
  const auto client = newClient();
  for (int i = 1; i <= 64; ++i) EXPECT_EQ(client->select(file()), std::to_string(i) + ": A");
  EXPECT_EQ(client->select(file()), "IE/007");
  EXPECT_EQ(client->select(file(), 0), "0: A") << "a list that is not kept is none";
  EXPECT_EQ(client->closeList(1), "OK");
  EXPECT_EQ(client->select(file()), "65: A");
  EXPECT_EQ(ann().select(file(), 0), "0: A") << "each session has its own";
}

TEST_F(WireFiles, ASelectionSeesTheOwnTransactionAndNotThoseOfOthers) {
  fill({"A"});
  ann().begin();
  ann().write(file(), "B", "uncommitted");
  EXPECT_EQ(ann().select(file(), 0), "0: A B");
  EXPECT_EQ(bob().select(file(), 0), "0: A");
}

class WireFilesInSmallFrames : public ::testing::Test {};

TEST_F(WireFilesInSmallFrames, MoreKeysThanAFrameHoldsAreFetchedOrRefused) {
  NoxdProcess noxd;
  noxd.set("server.max_frame", "65536").start();
  Client client(noxd.plainPort());
  client.logIn();
  ASSERT_NE(client.run("CREATE-FILE F"), "IE/011");
  constexpr int kKeys = 300;  // of 255 bytes: more than 64 KiB
  client.begin();
  for (int i = 0; i < kKeys; ++i) {
    const std::string id = std::to_string(1000 + i) + std::string(251, 'k');
    ASSERT_EQ(client.write("F", id.c_str(), ""), "0");
  }
  client.commit();
  EXPECT_EQ(client.select("F", 0), "IE/007");
  noxp::remote::SelectFileRequestProt select("F");
  select.setClassVersion(1);
  client.send(select);
  const std::string first = client.receiveFrame();
  EXPECT_LE(first.size(), 65536u + 4);
  EXPECT_GT(first.size(), 60000u) << "as much as there is room for";
  std::size_t rest = 0;
  for (;;) {
    const auto chunk = client.fetchChunk(1, 1, 10'000);
    ASSERT_TRUE(chunk);
    if (chunk->getSelectList()->size() == 0) break;
    rest += chunk->getSelectList()->size();
  }
  EXPECT_GT(rest, 0u);
  EXPECT_LT(rest, static_cast<std::size_t>(kKeys));
}

}  // namespace
}  // namespace nox::agent::test
