#include "client/command/dump/json.h"

#include <gtest/gtest.h>

#include <string>

#include "client/command/dump/render.h"
#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::command {
namespace {

using namespace noxp;
using test::bytes;
using test::frameOf;

std::string jsonOfFrame(const std::string& frame) {
  CatalogueFactory factory;
  RenderOptions options;
  options.showPasswords = true;
  return render({frame, "", 0, false}, Rendering::Json, factory, options);
}

std::string problemOf(const std::string& json) {
  CatalogueFactory factory;
  try {
    static_cast<void>(frameOfJson(json, factory));
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

TEST(Json, SpellsAMessageWithItsFieldsInOrder) {
  EXPECT_EQ(jsonOfFrame(frameOf(remote::ReadRecordRequestProt(2, "ORDERS", "10"))),
            R"({"type":"ReadRecordRequest","fields":[["readMode",2],["_fileName","ORDERS"],)"
            R"(["_recordId","10"]]})"
            "\n");
}

TEST(Json, CarriesBytesThatAreNoTextAsBase64) {
  EXPECT_EQ(jsonOfFrame(frameOf(common::EchoResponseProt(new NOXPBlob("a\xFE"
                                                                      "b")))),
            R"({"type":"EchoResponse","fields":[["buffer",{"blob":{"base64":"Yf5i"}}]]})"
            "\n");
}

TEST(Json, BecomesTheFrameThatItDescribes) {
  CatalogueFactory factory;
  EXPECT_BYTES(frameOfJson(R"({"type": "ReadRecordRequest",
                               "fields": [["readMode", 2], ["_fileName", "F"], ["_recordId", "R"]]})",
                           factory),
               bytes("00 00 00 1D  5B"
                     "4C  49 00 00 00 C9  49 00 00 00 00"
                     "49 00 00 00 02"
                     "73 00 01 46 3B"
                     "73 00 01 52 3B"
                     "3B  5D"));
}

TEST(Json, TypesAreNamedOrNumbered) {
  CatalogueFactory factory;
  EXPECT_BYTES(frameOfJson(R"({"type": 211})", factory),
               frameOf(remote::BeginTransactionRequestProt()));
}

TEST(Json, BringsMessagesOfAllKindsBack) {
  CatalogueFactory factory;
  AuthenticationRequestProt login(new AccountUserCredentialsProt("ann", "MAIN", "secret"));
  auto parameters = std::make_unique<ACEBinaryFormatParameterListProt>(2);
  parameters->setString(0, "x", 3);
  parameters->setNull(1, 4);
  sql::BindRequestProt bind(7, parameters.release());
  remote::SelectListProt changed(std::make_unique<NOXPBlob>("k1\xFEk2").get());
  changed.setHasRecordData(true);
  changed.goToPosition(2);
  changed.setRecord(new NOXPBlob("body"));
  remote::SelectListCommitRequestProt commit{Borrowed<remote::SelectListProt>(&changed)};
  sql::TransactionStartRequestProt start(8);
  start.setClassVersion(1);
  for (Serializable* message :
       std::initializer_list<Serializable*>{&login, &bind, &commit, &start}) {
    const std::string frame = frameOf(*message);
    EXPECT_BYTES(frameOfJson(jsonOfFrame(frame), factory), frame);
  }
}

TEST(Json, DeeperThanAnyMessageIsRefused) {
  constexpr int kLevels = 200'000;
  EXPECT_EQ(problemOf(R"({"type": "CloseFileRequest", "fields": )" + std::string(kLevels, '[') +
                      std::string(kLevels, ']') + "}"),
            "the JSON nests too deep");
}

TEST(Json, SaysWhatIsWrongWithIt) {
  EXPECT_NE(problemOf("{").find("no JSON"), std::string::npos);
  EXPECT_EQ(problemOf(R"({"type": "Nonsense"})"), "there is no message of type \"Nonsense\"");
  EXPECT_EQ(problemOf(R"([1])"), "an object with a \"type\" was expected, not [1]");
  EXPECT_EQ(problemOf(R"({"type": "CloseFileRequest", "fields": []})"),
            "field 0 of CloseFileRequest: \"_fileName\" is missing");
  EXPECT_EQ(problemOf(R"({"type": "CloseFileRequest", "fields": [["name", "F"]]})"),
            "field 0 of CloseFileRequest: \"_fileName\" was expected, not \"name\"");
  EXPECT_EQ(problemOf(R"({"type": "CloseFileRequest", "fields": [["", "F"], ["", 1]]})"),
            "field 1 of CloseFileRequest: there is no such field");
  EXPECT_EQ(problemOf(R"({"type": "SelectListCloseRequest", "fields": [["selectListId", 3e9]]})"),
            "field 1 of SelectListCloseRequest: a number was expected, not 3000000000.0");
  EXPECT_EQ(
      problemOf(R"({"type": "SelectListCloseRequest", "fields": [["selectListId", 3000000000]]})"),
      "field 1 of SelectListCloseRequest: 3000000000 has more than 32 bits");
}

TEST(Json, OfAnySillyShapeIsRefusedClearly) {
  for (const char* json :
       {"null", "1", "\"x\"", R"({"type": null})", R"({"type": 1.5})", R"({"type": 1})",
        R"({"type": "CloseFileRequest", "fields": {}})",
        R"({"type": "CloseFileRequest", "fields": [["_fileName"]]})",
        R"({"type": "CloseFileRequest", "fields": [["_fileName", {"base64": "?"}]]})",
        R"({"type": "CloseFileRequest", "version": "x", "fields": [["_fileName", "F"]]})",
        R"({"type": "AuthenticationRequest", "fields": [["", {"type": "Row", "fields": []}]]})"}) {
    EXPECT_NE(problemOf(json), "") << json;
  }
}

}  // namespace
}  // namespace nox::command
