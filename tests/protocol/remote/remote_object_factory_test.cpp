#include "nox/protocol/remote/remote_object_factory.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <typeinfo>
#include <vector>

#include "nox/core/binary_reader.h"
#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/execution_requests.h"
#include "nox/protocol/remote/file_requests.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/record_requests.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/remote/session_requests.h"
#include "nox/protocol/remote/statement_requests.h"
#include "nox/protocol/remote/transactions.h"
#include "tests/support/bytes.h"
#include "tests/support/caught.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_archive.h"

namespace nox::noxp::remote {
namespace {

using test::bytes;
using test::framed;

/// What stands behind a code: the class and the name it is registered under.
struct Row {
  const std::type_info& type;
  const char* name;
};

const std::map<int, Row>& catalogue() {
  static const std::map<int, Row> rows = {
      {103, {typeid(ACEBinaryFormatParameterListProt), "ACEBinaryFormatParameterListProt"}},
      {201, {typeid(ReadRecordRequestProt), "ReadRecordRequest"}},
      {202, {typeid(WriteRecordRequestProt), "WriteRecordRequest"}},
      {203, {typeid(DeleteRecordRequestProt), "DeleteRecordRequest"}},
      {204, {typeid(ExistsRecordRequestProt), "ExistsRecordRequest"}},
      {205, {typeid(OpenFileRequestProt), "OpenFileRequest"}},
      {206, {typeid(CloseFileRequestProt), "CloseFileRequest"}},
      {207, {typeid(ClearFileRequestProt), "ClearFileRequest"}},
      {208, {typeid(SelectFileRequestProt), "SelectFileRequest"}},
      {209, {typeid(RemoteSubroutineRequestProt), "RemoteSubroutineRequest"}},
      {210, {typeid(RemoteInputRequestProt), "RemoteInputRequest"}},
      {211, {typeid(BeginTransactionRequestProt), "BeginTransactionRequest"}},
      {212, {typeid(CommitTransactionRequestProt), "CommitTransactionRequest"}},
      {213, {typeid(RollbackTransactionRequestProt), "RollbackTransactionRequest"}},
      {214, {typeid(XAStartTransactionRequestProt), "XAStartTransactionRequest"}},
      {215, {typeid(XAEndTransactionRequestProt), "XAEndTransactionRequest"}},
      {216, {typeid(XAPrepareTransactionRequestProt), "XAPrepareTransactionRequest"}},
      {217, {typeid(XACommitTransactionRequestProt), "XACommitTransactionRequest"}},
      {218, {typeid(XARollbackTransactionRequestProt), "XARollbackTransactionRequest"}},
      {219, {typeid(DateTimeRequestProt), "DateTimeRequest"}},
      {220, {typeid(RemoteExecuteRequestProt), "RemoteExecuteRequest"}},
      {221, {typeid(ReadCommonRequestProt), "ReadCommonRequest"}},
      {222, {typeid(EISMetaDataRequestProt), "EISMetaDataRequest"}},
      {223, {typeid(ConvRequestProt), "ConvRequest"}},
      {224, {typeid(SwitchAccountRequestProt), "SwitchAccountRequest"}},
      {225, {typeid(ReleaseRecordLockRequestProt), "ReleaseRecordLockRequest"}},
      {226, {typeid(StatementExecuteQueryRequestProt), "StatementExecuteQueryRequest"}},
      {227, {typeid(StatementFetchRequestProt), "StatementFetchRequest"}},
      {228, {typeid(MonitoringRequestProt), "MonitoringRequest"}},
      {229, {typeid(common::SetPropertiesRequestProt), "SetPropertiesRequest"}},
      {230, {typeid(SelectListFetchRequestProt), "SelectListFetchRequestProt"}},
      {402, {typeid(XAXidProt), "XAXid"}},
      {404, {typeid(SelectListProt), "SelectListProt"}},
  };
  return rows;
}

const std::type_info& typeOf(const Serializable& object) { return typeid(object); }

TEST(RemoteObjectFactory, CreatesTheClassesOfItsCatalogueUnderTheirNames) {
  RemoteObjectFactory factory;
  ASSERT_EQ(catalogue().size(), 33u);
  for (const auto& [code, row] : catalogue()) {
    SCOPED_TRACE(code);
    const std::unique_ptr<Serializable> object(factory.createObject(code));
    ASSERT_NE(object, nullptr);
    EXPECT_TRUE(typeOf(*object) == row.type) << row.type.name();
    EXPECT_EQ(object->getType(), code);
    EXPECT_EQ(object->getVersion(), 0u);
    EXPECT_STREQ(factory.getTypeName(code), row.name);

    const std::unique_ptr<Serializable> another(object->create());
    ASSERT_NE(another, nullptr);
    EXPECT_NE(another.get(), object.get());
    EXPECT_TRUE(typeOf(*another) == row.type);
  }
}

TEST(RemoteObjectFactory, KnowsNothingElse) {
  RemoteObjectFactory factory;
  for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
    if (catalogue().count(code)) continue;
    SCOPED_TRACE(code);
    EXPECT_NE(test::caught<UnknownType>([&] { factory.createObject(code); }), nullptr);
    EXPECT_EQ(factory.getTypeName(code), nullptr);
  }
}

TEST(RemoteObjectFactory, LeavesCommitCloseAndTheOlderListToTheAgent) {
  RemoteObjectFactory factory;
  EXPECT_EQ(catalogue().count(231) + catalogue().count(232) + catalogue().count(401), 0u);

  class AgentFactory : public RemoteObjectFactory {
  public:
    AgentFactory() {
      add<SelectListCommitRequestProt>("SelectListCommitRequest");
      add<SelectListCloseRequestProt>("SelectListCloseRequest");
    }
  };
  AgentFactory agent;
  const std::unique_ptr<Serializable> close(agent.createObject(232));
  EXPECT_NE(dynamic_cast<SelectListCloseRequestProt*>(close.get()), nullptr);
}

TEST(RemoteObjectFactory, MarksTheRequestsThatOwnTheirListsAsServerSide) {
  RemoteObjectFactory factory;
  for (const auto& [code, row] : catalogue()) {
    SCOPED_TRACE(row.name);
    const std::unique_ptr<Serializable> object(factory.createObject(code));
    const auto* request = dynamic_cast<RequestProt*>(object.get());
    if (!request) continue;
    EXPECT_EQ(request->isServerSide(), code == 220 || code == 226 || code == 230);
    EXPECT_EQ(request->getSerializedVersion(), 0u);
  }
}

TEST(RemoteObjectFactory, WritesItsPrototypesUnderTheirNames) {
  RemoteObjectFactory factory;
  std::vector<std::string> heads;
  for (const std::string& line : test::fieldsOf(factory)) {
    for (const auto& [code, row] : catalogue()) {
      if (line ==
          std::string("object ") + row.name + "=type " + std::to_string(code) + " version 0")
        heads.push_back(row.name);
    }
  }
  std::vector<std::string> names;
  for (const auto& [code, row] : catalogue()) names.emplace_back(row.name);
  EXPECT_EQ(heads, names);
}

TEST(RemoteObjectFactory, CreatesAnotherOfItsKind) {
  RemoteObjectFactory factory;
  const std::unique_ptr<Serializable> another(factory.create());
  auto* created = dynamic_cast<RemoteObjectFactory*>(another.get());
  ASSERT_NE(created, nullptr);
  EXPECT_STREQ(created->getTypeName(201), "ReadRecordRequest");
}

TEST(RemoteObjectFactory, CopiesWithItsPrototypes) {
  auto original = std::make_unique<RemoteObjectFactory>();
  RemoteObjectFactory copy(*original);
  original.reset();
  const std::unique_ptr<Serializable> object(copy.createObject(201));
  EXPECT_NE(dynamic_cast<ReadRecordRequestProt*>(object.get()), nullptr);
}

TEST(RemoteObjectFactory, SaysThatItIsAskedForAnotherAndRegistersInOrder) {
  if (!kLoggerOutput) GTEST_SKIP() << "this build writes no log lines";
  std::vector<std::string> expected = {"RemoteObjectFactory::create()"};
  for (const int code :
       {103, 223, 224, 201, 202, 203, 204, 205, 206, 207, 208, 209, 210, 211, 212, 213, 214,
        215, 216, 217, 218, 220, 219, 221, 222, 404, 402, 225, 226, 227, 228, 229, 230}) {
    expected.push_back("ObjectFactory::registerType: (" + std::to_string(code) + ") " +
                       catalogue().at(code).name);
  }
  RemoteObjectFactory factory;
  const test::LogCapture log;
  const std::unique_ptr<Serializable> another(factory.create());
  EXPECT_EQ(log.texts(), expected);
}

TEST(RemoteObjectFactory, ReadsTheRequestsOfAConnectionOneByOne) {
  const std::string stream = framed(bytes("4C  49 00 00 00 DB  49 00 00 00 00  3B")) +
                             framed(bytes("4C  49 00 00 00 D3  49 00 00 00 00  3B"));
  MemoryBufferInputStream input(stream.data(), stream.size());
  RemoteObjectFactory factory;
  BinaryReader reader(&factory, &input);
  const std::unique_ptr<RequestProt> first(reader.readRequest());
  const std::unique_ptr<RequestProt> second(reader.readRequest());
  EXPECT_NE(dynamic_cast<DateTimeRequestProt*>(first.get()), nullptr);
  EXPECT_NE(dynamic_cast<BeginTransactionRequestProt*>(second.get()), nullptr);
}

TEST(RemoteObjectFactory, HandsOutAnXidAsTheRequestItIs) {
  const std::string frame =
      framed(bytes("4C  49 00 00 01 92  49 00 00 00 00  73 00 00 3B  49 00 00 00 00  3B"));
  MemoryBufferInputStream input(frame.data(), frame.size());
  RemoteObjectFactory factory;
  BinaryReader reader(&factory, &input);
  const std::unique_ptr<RequestProt> request(reader.readRequest());
  ASSERT_NE(request, nullptr);
  EXPECT_EQ(request->getType(), 402);
}

TEST(RemoteObjectFactory, GivesNoRequestForARootThatIsNone) {
  RemoteObjectFactory factory;
  for (const char* body : {"4C  49 00 00 00 67  49 00 00 00 00  49 00 00 00 00  3B",     // 103
                           "4C  49 00 00 01 94  49 00 00 00 00  49 FF FF FF FF  3B"}) {  // 404
    const std::string frame = framed(bytes(body));
    MemoryBufferInputStream input(frame.data(), frame.size());
    BinaryReader reader(&factory, &input);
    EXPECT_EQ(reader.readRequest(), nullptr);
  }
}

TEST(RemoteObjectFactory, SurvivesEveryPrototypesFrameDamaged) {
  RemoteObjectFactory factory;
  for (const auto& [code, row] : catalogue()) {
    SCOPED_TRACE(row.name);
    const std::unique_ptr<Serializable> object(factory.createObject(code));
    for (const int version : {0, 1}) {
      object->setClassVersion(version);
      test::expectSurvivesDamage(test::frameOf(*object), factory);
    }
  }
}

}  // namespace
}  // namespace nox::noxp::remote
