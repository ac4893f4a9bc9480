#include "client/command/dump/render.h"

#include <gtest/gtest.h>

#include "tests/support/bytes.h"
#include "tests/support/frames.h"

namespace nox::command {
namespace {

using namespace noxp;
using test::bytes;
using test::frameOf;

std::string rendered(const std::string& frame, Rendering rendering,
                     const RenderOptions& options = {}) {
  CatalogueFactory factory;
  return render({frame, "", 0, false}, rendering, factory, options);
}

TEST(Tree, ShowsAMessageWithItsFields) {
  EXPECT_EQ(rendered(frameOf(remote::ReadRecordRequestProt(2, "ORDERS", "10")), Rendering::Tree),
            "ReadRecordRequest (201)\n"
            "  readMode: 2\n"
            "  _fileName: \"ORDERS\"\n"
            "  _recordId: \"10\"\n");
}

TEST(Tree, ShowsNestedObjectsBlobsAndNull) {
  remote::ToviResponseProt reply(0, new NOXPBlob("a\xFE"
                                                 "b"));
  EXPECT_EQ(rendered(frameOf(reply), Rendering::Tree),
            "ToviResponse (301)\n"
            "  _status: 0\n"
            "  _data: \"a\\xFEb\" (3 bytes)\n"
            "  _selectList: null\n");
  remote::SelectListFetchResponseProt chunk(new remote::SelectListProt);
  EXPECT_EQ(rendered(frameOf(chunk), Rendering::Tree),
            "SelectListFetchResponse (314)\n"
            "  selectList: SelectListProt (404)\n"
            "    id: -1\n");
}

TEST(Tree, HidesPasswordsUnlessAsked) {
  AuthenticationRequestProt login(new AccountUserCredentialsProt("ann", "MAIN", "secret"));
  const std::string frame = frameOf(login);
  EXPECT_EQ(rendered(frame, Rendering::Tree),
            "AuthenticationRequest (15)\n"
            "  AccountUserCredentials (112)\n"
            "    userName: \"ann\"\n"
            "    account: \"MAIN\"\n"
            "    password: ********\n");
  RenderOptions all;
  all.showPasswords = true;
  EXPECT_NE(rendered(frame, Rendering::Tree, all).find("password: \"secret\""), std::string::npos);
}

TEST(Renderings, NeverShowAPasswordUnasked) {
  AuthenticationRequestProt login(new AccountUserCredentialsProt("ann", "MAIN", "secret"));
  const std::string frame = frameOf(login);
  for (const auto rendering : {Rendering::Hex, Rendering::Tree, Rendering::Xml, Rendering::Json}) {
    const std::string text = rendered(frame, rendering);
    EXPECT_EQ(text.find("secret"), std::string::npos);
    EXPECT_EQ(text.find("73 65 63 72"), std::string::npos);  // "secr" in hexadecimal
    EXPECT_NE(text.find("ann"), std::string::npos);
  }
}

TEST(Hex, NamesEveryByte) {
  EXPECT_EQ(rendered(frameOf(remote::ReadRecordRequestProt(2, "F", "R")), Rendering::Hex),
            "000000  00 00 00 1D              29 bytes follow\n"
            "000004  5B                       [ a root object\n"
            "000005  4C                         object\n"
            "000006  49 00 00 00 C9               ReadRecordRequest (201)\n"
            "00000B  49 00 00 00 00               class version 0\n"
            "000010  49 00 00 00 02               readMode: 2\n"
            "000015  73 00 01                     _fileName: string of 1 byte\n"
            "000018  46                           \"F\"\n"
            "000019  3B                           ; end of the string\n"
            "00001A  73 00 01                     _recordId: string of 1 byte\n"
            "00001D  52                           \"R\"\n"
            "00001E  3B                           ; end of the string\n"
            "00001F  3B                         ; end of the object\n"
            "000020  5D                       ] its end\n");
}

TEST(Hex, GoesOnAsFarAsABrokenFrameFollowsTheFormat) {
  EXPECT_EQ(rendered(bytes("00 00 00 04  5B 4C 58 5D"), Rendering::Tree),
            "000000  00 00 00 04              4 bytes follow\n"
            "000004  5B                       [ a root object\n"
            "000005  4C                         object\n"
            "000006  58 5D\n"
            "! the frame ends early\n"
            "! \"X\" where \"I\" was expected\n")
      << "the last line is the reader's own";
}

TEST(Hex, ShowsACompressedFrameAsSuch) {
  remote::WriteRecordRequestProt request(0, "F", "R", std::string(1000, 'x').c_str());
  Serializable::properties_t compress;
  compress.compress = true;
  request.setProperties(&compress);
  const std::string text = rendered(frameOf(request), Rendering::Hex);
  EXPECT_NE(text.find("compressed\n"), std::string::npos);
  EXPECT_NE(rendered(frameOf(request), Rendering::Tree).find("_fileName: \"F\""),
            std::string::npos);
}

TEST(Xml, ShowsEveryField) {
  Properties properties;
  properties.setProperty("TIMEZONE", "a<b & \"c\"\n");
  EXPECT_EQ(rendered(frameOf(common::SetPropertiesRequestProt(properties)), Rendering::Xml),
            "<o type=\"229\" typeName=\"SetPropertiesRequestProt\" name=\"\" version=\"0\">"
            "<int name=\"length\" value=\"1\"/><var name=\"key\" value=\"TIMEZONE\"/>"
            "<var name=\"value\" value=\"a&lt;b &amp; &quot;c&quot;&#10;\"/></o>\n");
  remote::ToviResponseProt reply(0, new NOXPBlob("a\xFE"
                                                 "b"));
  EXPECT_EQ(rendered(frameOf(reply), Rendering::Xml),
            "<o type=\"301\" typeName=\"ToviResponse\" name=\"\" version=\"0\">"
            "<int name=\"_status\" value=\"0\"/><blob name=\"_data\" base64=\"Yf5i\"/>"
            "<nullobj name=\"_selectList\"/></o>\n");
}

TEST(Xml, HidesPasswordsUnlessAsked) {
  AuthenticationRequestProt login(new AccountUserCredentialsProt("ann", "MAIN", "secret"));
  EXPECT_EQ(rendered(frameOf(login), Rendering::Xml),
            "<o type=\"15\" typeName=\"AuthenticationRequest\" name=\"\" version=\"0\">"
            "<o type=\"112\" typeName=\"AccountUserCredentials\" name=\"\" version=\"0\">"
            "<var name=\"userName\" value=\"ann\"/><var name=\"account\" value=\"MAIN\"/>"
            "<var name=\"password\" value=\"********\"/></o>\n</o>\n");
  RenderOptions all;
  all.showPasswords = true;
  EXPECT_NE(rendered(frameOf(login), Rendering::Xml, all).find("value=\"secret\""),
            std::string::npos);
}

TEST(Xml, HasElementsForWhatIsNoObject) {
  CatalogueFactory factory;
  EXPECT_EQ(render({"GET / HTTP/1.0\r\n\r\n", "", 0, true}, Rendering::Xml, factory),
            "<http value=\"GET / HTTP/1.0&#13;&#10;&#13;&#10;\"/>\n");
  EXPECT_EQ(rendered(bytes("00 00 00 09  5B  4C 49 00 00 00 01 3B  5D"), Rendering::Xml),
            "<nullobj name=\"\"/>\n");
  EXPECT_EQ(rendered(bytes("00 00 00 04  5B 4C 58 5D"), Rendering::Xml).substr(0, 25),
            "<broken value=\"000000  00");
}

TEST(Xml, IsTheLibrarysRendering) {
  EXPECT_EQ(rendered(frameOf(remote::CloseFileRequestProt("F")), Rendering::Xml),
            "<o type=\"206\" typeName=\"CloseFileRequest\" name=\"\" version=\"0\">"
            "<var name=\"_fileName\" value=\"F\"/></o>\n");
}

TEST(Renderings, SurviveDamagedFrames) {
  CatalogueFactory factory;
  remote::SelectListProt list(std::make_unique<NOXPBlob>("a\xFE"
                                                         "b")
                                  .get());
  const std::string whole = frameOf(list);
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (const char flip : {'\x01', '\x80', '\xFF'}) {
      std::string damaged = whole;
      damaged[i] = static_cast<char>(damaged[i] ^ flip);
      for (const auto rendering :
           {Rendering::Hex, Rendering::Tree, Rendering::Xml, Rendering::Json}) {
        EXPECT_FALSE(render({damaged, "", 0, false}, rendering, factory).empty());
      }
    }
  }
}

TEST(Renderings, NameAStreamInTheirOwnWay) {
  EXPECT_EQ(renderOrigin("10.0.0.1:5000 > 10.0.0.2:7433", Rendering::Tree),
            "# 10.0.0.1:5000 > 10.0.0.2:7433\n");
  EXPECT_EQ(renderOrigin("10.0.0.1:5000 > 10.0.0.2:7433", Rendering::Xml),
            "<!-- 10.0.0.1:5000 > 10.0.0.2:7433 -->\n");
  EXPECT_EQ(renderOrigin("10.0.0.1:5000 > 10.0.0.2:7433", Rendering::Json), "");
  EXPECT_EQ(renderOrigin("", Rendering::Tree), "");
}

TEST(Renderings, ShowHttpAsText) {
  CatalogueFactory factory;
  const CapturedFrame request{"GET / HTTP/1.0\r\n\r\n", "", 0, true};
  EXPECT_EQ(render(request, Rendering::Tree, factory),
            "HTTP \"GET / HTTP/1.0\\x0D\\x0A\\x0D\\x0A\"\n");
  EXPECT_EQ(render(request, Rendering::Json, factory),
            "{\"http\":\"GET / HTTP/1.0\\r\\n\\r\\n\"}\n");
}

TEST(Renderings, AreFoundByTheirNames) {
  EXPECT_EQ(parseRendering("hex"), Rendering::Hex);
  EXPECT_EQ(parseRendering("tree"), Rendering::Tree);
  EXPECT_EQ(parseRendering("xml"), Rendering::Xml);
  EXPECT_EQ(parseRendering("json"), Rendering::Json);
  EXPECT_FALSE(parseRendering("html"));
}

}  // namespace
}  // namespace nox::command
