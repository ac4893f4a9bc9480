#include "fuzz/use_object.h"

#include <map>
#include <memory>
#include <numeric>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "fuzz/fuzz_target.h"
#include "nox/auth/authentication.h"
#include "nox/core/archive.h"
#include "nox/core/binary_writer.h"
#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/parameter_list.h"
#include "nox/protocol/remote/execution_requests.h"
#include "nox/protocol/remote/file_requests.h"
#include "nox/protocol/remote/metadata_messages.h"
#include "nox/protocol/remote/monitoring.h"
#include "nox/protocol/remote/record_requests.h"
#include "nox/protocol/remote/remote_responses.h"
#include "nox/protocol/remote/select_list.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/remote/session_requests.h"
#include "nox/protocol/remote/statement_requests.h"
#include "nox/protocol/remote/transactions.h"
#include "nox/protocol/sql/result_set.h"
#include "nox/protocol/sql/sql_requests.h"
#include "nox/protocol/sql/sql_responses.h"
#include "nox/protocol/sql/transaction_requests.h"
#include "nox/protocol/status_replies.h"

namespace nox::fuzz {

namespace {

using namespace noxp;
using namespace noxp::common;
using namespace noxp::remote;
using namespace noxp::sql;

std::string_view bytesOf(const NOXPBlob& blob) {
  return {reinterpret_cast<const char*>(blob.getBuf()), blob.length()};
}

// So that every byte is read, and none of it optimised away.
unsigned int sumOf(std::string_view bytes) {
  return std::accumulate(bytes.begin(), bytes.end(), 0U, [](unsigned int sum, char c) {
    return sum + static_cast<unsigned char>(c);
  });
}

void look(std::string_view bytes) {
  [[maybe_unused]] static volatile unsigned int seen;
  seen = sumOf(bytes);
}

void useBlob(const NOXPBlob& blob) {
  look(bytesOf(blob));
  NOXPBlob copy(blob);
  copy.append(reinterpret_cast<const char*>(copy.getBuf()), copy.length());
  require(copy.length() == 2 * blob.length(), "a blob takes its own bytes");
  NOXPString field;
  static_cast<void>(field.ExtractFrom(&copy, 1, 1, 0));
}

void useText(const NOXPString& text) {
  NOXPString copy(text);
  if (const char* const shown = copy.c_str()) look(shown);
  static_cast<void>(copy == text);
  if (copy.toUTF8() && copy.getType() == NOXPString::Utf8) {
    require(copy.DCount(0xFE) >= 0, "counts are not negative");
    NOXPString field;
    static_cast<void>(field.ExtractFrom(&copy, 2, 0, 0));
  }
  copy.toWString();
  copy.toString();
}

/// The SQLSTATE class of the cursor error that `access` throws; "" when it throws none.
template <class Access>
std::string cursorErrorOf(const Access& access) {
  try {
    access();
    return "";
  } catch (const SQLExtError& error) {
    return error.getSqlState().sqlClass;
  }
}

void useSelectList(SelectListProt& list) {
  const std::string frame = written(list);
  SelectListProt copy(list);
  require(written(copy) == frame, "a copied list goes out alike");
  {
    // Deliberate: assigning makes a list and leaves its target alone.
    const std::unique_ptr<SelectListProt> assigned(&(copy = list));
    require(assigned->size() == list.size(), "assigning gives a list of the same keys");
  }
  require(cursorErrorOf([&] { look(copy.getKey()); }) == "IE", "there is no key at 0");
  unsigned int keys = 0;
  std::vector<std::unique_ptr<NOXPBlob>> extracted;
  while (copy.next()) {
    ++keys;
    look(copy.getKey());
    static_cast<void>(copy.isModified());
    cursorErrorOf([&] {
      if (const NOXPBlob* const record = copy.getRecord()) useBlob(*record);
    });
    cursorErrorOf([&] {
      switch (keys % 4) {
        case 0:
          copy.setRecord(copy.getRecord());
          break;
        case 1:
          extracted.emplace_back(copy.extractRecord());
          break;
        case 2: {
          auto record = std::make_unique<NOXPBlob>("another record");
          copy.setRecord(record.get());
          record.release();
          break;
        }
      }
    });
  }
  require(keys == list.size(), "next() comes by every key");
  require(cursorErrorOf([&] { copy.goToPosition(keys + 1UL); }) == "IE", "the last key is last");
  copy.goToPosition(keys);
  while (copy.previous()) look(copy.getKey());
  require(copy.getPosition() == (keys ? 1 : 0), "previous() stops at the first key");

  if (keys > 0) {
    SelectListProt touched(list);
    touched.next();
    cursorErrorOf([&] { touched.setRecord(touched.getRecord()); });
    require(written(list) == frame, "a record that stays is not deleted");
  }

  copy.goToPosition(0);
  const SelectListProt chunk(copy, keys / 2, true);
  SelectListProt rest(copy, 0xFFFFFFFF, false);
  require(chunk.size() + rest.size() == keys, "two chunks are the list");
  std::string joined;
  rest.keysToString(&joined);
  look(joined);
  copy.setHasRecordData(true);
  look(written(copy));
  require(written(list) == frame, "copies leave their list alone");
}

void useFlatList(SelectListProt5& list) {
  const int count = list.count();
  require(count >= 0, "counts are not negative");
  for (int i = 0; i <= count; ++i) {
    const std::unique_ptr<NOXPString> key(list.get(static_cast<unsigned int>(i)));
    require(key != nullptr, "keys are never null");
    useText(*key);
  }
}

void useParameters(ParameterListProt& list) {
  const unsigned int count = list.count();
  const auto copy = ACEBinaryFormatParameterListProt::copyOf(list);
  require(copy->count() == count, "a copy is as long");
  for (unsigned int i = 0; i < count; ++i) {
    const int index = static_cast<int>(i);
    require(copy->getParameterType(index) == list.getParameterType(index), "types are copied");
    require(copy->isNull(index) == list.isNull(index), "null flags are copied");
    const std::unique_ptr<NOXPBlob> value(list.get(i));
    require(!value == !list[i], "null copies as null");
    if (value) {
      require(bytesOf(*value) == bytesOf(*copy->getPtr(i)), "values are copied");
      useBlob(*value);
    }
    if (i % 4 == 0) copy->setNull(index, 1);
    if (i % 4 == 1) copy->setString(index, std::string("a\0b", 3), 2);
    if (i % 4 == 2) copy->setStringW(index, L"wide \u00E9", 3);
    if (i % 4 == 3) copy->setBlob(index, copy->getPtr(i), 4);
  }
  require(list.getPtr(count) == nullptr, "there is no value behind the last");
  require(list.getParameterType(-1) == -1 && list.isNull(-1) == -1, "nor one before the first");
  look(written(*copy));
}

void useRow(RowProt& row) {
  const int count = row.getNumberOfFields();
  std::vector<std::string> values;
  for (int i = 0; i < count; ++i) values.emplace_back(row.getColumnView(i));
  if (count > 0) require(row.getColumnView(0) == values[0], "a row can be read again");
  require(row.getColumnView(count).empty() && row.getColumnView(-1).empty(), "rows have an end");

  const std::string frame = written(row);
  NOXPBlob* const* const data = row.getData();
  require(count == 0 || data != nullptr, "values are there as blobs");
  for (int i = 0; i < count; ++i) {
    require(row.getColumnValue(i) == data[i], "a value has one blob");
    require(bytesOf(*data[i]) == values[static_cast<std::size_t>(i)], "blobs hold the values");
  }
  if (data) require(data[count] == nullptr, "a null blob ends the row");
  require(written(row) == frame, "blobs go out as the values did");
  look(row.getColumnValue("NAME") ? "found" : "");
  row.addColumnValue("one more");
  require(row.getColumnView(row.getNumberOfFields() - 1) == "one more", "a value can be added");
}

void useResultSet(ResultSetProt& set) {
  require(set.getMetaData() == nullptr, "a set that was read has no description");
  const unsigned long total = set.getNumTotalRows();
  unsigned long rows = 0;
  // Every other set keeps its second half, which then goes out.
  while (total % 2 == 0 || rows < total / 2) {
    RowProt* const row = set.next();
    if (!row) break;
    require(set.getCurrentRow() == ++rows, "rows are counted");
    require(row->getResultSet() == &set, "a row belongs to its set");
    useRow(*row);
  }
  if (total % 2 == 0) require(rows == total, "next() comes by every row");
}

void useDescription(ResultSetMetaDataProt& description) {
  const int columns = description.getNumberOfColumns();
  for (int i = 0; i < columns; ++i) {
    ColumnMetaDataProt* const column = description.getColumnMetaDataProt(i);
    require(column != nullptr, "columns are never null");
    NOXPString name(*column->getColumnName());
    require(description.findColumnByName(name.c_str()) <= i, "the first of a name is found");
  }
  require(!description.getColumnMetaDataProt(columns), "there is no column behind the last");
  const int parameters = description.getNumberOfParameters();
  for (int i = 0; i < parameters; ++i) {
    require(description.getParameterMetaDataProt(i) != nullptr, "parameters are never null");
  }
  require(!description.getParameterMetaDataProt(-1), "there is no parameter before the first");
  ResultSetMetaDataProt copy(description);
  copy.addColumn(new ColumnMetaDataProt);
  require(copy.getNumberOfColumns() == columns + 1, "a column can be added");
}

void useColumn(ColumnMetaDataProt& column) {
  NOXPString text = column.toString();
  const ColumnMetaDataPtr again(new ColumnMetaDataProt);
  again->fromString(text);
  for (NOXPString* attribute :
       {column.getColumnNumber(), column.isHidden(), column.getDatatype()}) {
    useText(*attribute);
  }
}

void useError(SQLExtError& error) {
  look(error.getMsg());
  require(!error.getMsg().empty(), "errors have a text");
  SQLExtError copy(error.getSqlState(), error.getMsg());
  look(copy.getMsg());
}

void useProperties(SetPropertiesRequestProt& request) {
  for (const auto& [key, value] : *request.getProperties()) {
    look(key);
    look(value);
  }
}

/// Copies an object of just this class, with every way of copying; false for another one.
template <class T>
bool copyAs(Serializable& object) {
  if (typeid(object) != typeid(T)) return false;
  const T& original = static_cast<const T&>(object);
  const std::unique_ptr<Serializable> constructed(new T(original));
  const std::unique_ptr<Serializable> assigned(new T);
  T& target = static_cast<T&>(*assigned);
  target = original;
  const T& itself = target;
  target = itself;
  if constexpr (std::is_same_v<T, SQLResultResponseProt>) {
    // A copy borrows the rows, which go out once.
    require(target.getResultSet() == original.getResultSet(), "a copied reply has the same rows");
  } else if constexpr (std::is_base_of_v<XARequestProt, T> || std::is_same_v<T, XAXidProt>) {
    // Deliberate: what is copied has the format 0, whatever the original's is.
    require(written(*constructed) == written(*assigned), "copies go out alike");
  } else {
    const std::string frame = written(object);
    require(written(*constructed) == frame, "a constructed copy goes out like the original");
    require(written(*assigned) == frame, "an assigned copy goes out like the original");
  }
  return true;
}

/// Ways of copying by type code, which is all that most objects need to be asked.
class Copiers {
public:
  template <class... T>
  static Copiers of() {
    Copiers copiers;
    (copiers.add<T>(), ...);
    return copiers;
  }
  void copy(Serializable& object) const {
    const auto [first, last] = byCode_.equal_range(object.getType());
    for (auto copier = first; copier != last && !copier->second(object); ++copier) {
    }
  }

private:
  template <class T>
  void add() {
    const std::unique_ptr<Serializable> prototype(new T);
    byCode_.emplace(prototype->getType(), copyAs<T>);
  }
  std::multimap<int, bool (*)(Serializable&)> byCode_;
};

/// All classes that have copies, but select lists, whose assignment is another one.
void copy(Serializable& object) {
  static const Copiers copiers = Copiers::of<
      AccountUserCredentialsProt, ACEBinaryFormatParameterListProt, AuthenticationRequestProt,
      BeginTransactionRequestProt, BindRequestProt, CallSubroutineRequestProt, ClearFileRequestProt,
      CloseFileRequestProt, ColumnMetaDataProt, CommitTransactionRequestProt,
      CompileAndExecuteRequestProt, CompileRequestProt, ConvRequestProt, ConvResponseProt,
      DatabaseMetaDataRequestProt, DateTimeRequestProt, DateTimeResponseProt,
      DeleteRecordRequestProt, DummyRequestProt, EchoRequestProt, EchoResponseProt,
      EISMetaDataReplyProt, EISMetaDataRequestProt, ErrorResponseProt, ExecuteRequestProt,
      ExecuteResponseProt, ExistsRecordRequestProt, FetchRequestProt, InputOutputResponseProt,
      InternalErrorRequestProt, LegacySQLResponseProt, LoadSubroutineRequestProt,
      LocalUserCredentials, LoggingRequestProt, MetaDataRequestProt, MonitoringRequestProt,
      MonitoringResponseProt, OKResponseProt, OpenFileRequestProt, PrecompileRequestProt,
      ReadCommonRequestProt, ReadCommonResponseProt, ReadRecordRequestProt,
      ReleaseRecordLockRequestProt, ReleaseStatementRequestProt, RemoteExecuteRequestProt,
      RemoteInputRequestProt, RemoteSubroutineRequestProt, ResultSetMetaDataProt,
      RollbackTransactionRequestProt, SelectFileRequestProt, SelectListCloseRequestProt,
      SelectListCommitRequestProt, SelectListFetchRequestProt, SelectListFetchResponseProt,
      SelectListProt5, SetPropertiesRequestProt, SetPropertiesResponseProt, SQLErrorResponseProt,
      SQLExtError, SQLOKResponseProt, SQLParamsResponseProt, SQLResponseProt, SQLResultResponseProt,
      SQLRSMDResponseProt, SQLUpdateResponseProt, StatementExecuteQueryRequestProt,
      StatementFetchRequestProt, StatementFetchResponseProt, SubroutineResponseProt,
      SwitchAccountRequestProt, SwitchAccountResponseProt, ToviResponseProt,
      TransactionCommitRequestProt, TransactionResponseProt, TransactionRollbackRequestProt,
      TransactionStartRequestProt, XACommitTransactionRequestProt, XAEndTransactionRequestProt,
      XAPrepareTransactionRequestProt, XARollbackTransactionRequestProt,
      XAStartTransactionRequestProt, XAXidProt>();
  copiers.copy(object);
}

/// The type code says which class to look for, unless it is one of the tests' own.
template <class T>
void useAs(Serializable& object, void (*use)(T&)) {
  if (auto* const t = dynamic_cast<T*>(&object)) use(*t);
}

void useAlone(Serializable& object) {
  copy(object);
  switch (object.getType()) {
    case TypeCode::SelectList:
      return useAs(object, useSelectList);
    case TypeCode::SelectList5:
      return useAs(object, useFlatList);
    case TypeCode::ParameterList:
      return useAs(object, useParameters);
    case TypeCode::ResultSet:
      return useAs(object, useResultSet);
    case TypeCode::Row:
      return useAs(object, useRow);
    case TypeCode::ResultSetMetaData:
      return useAs(object, useDescription);
    case TypeCode::ColumnMetaData:
      return useAs(object, useColumn);
    case TypeCode::SQLExtError:
      return useAs(object, useError);
    case TypeCode::SetPropertiesRequest:
      return useAs(object, useProperties);
    default:
      return;
  }
}

/// Comes by everything that an object would write.
class Visitor : public Writer {
public:
  using Writer::process;

  Archive& process(NOXPBlob* value, const char* /*name*/) override {
    if (value) useBlob(*value);
    return *this;
  }
  Archive& process(NOXPString* value, const char* /*name*/) override {
    if (value) useText(*value);
    return *this;
  }
  Archive& process(std::string& value, const char* /*name*/) override {
    look(value);
    return *this;
  }
  Archive& process(int& /*value*/, const char* /*name*/) override { return *this; }
  Archive& process(Serializable* value, const char* /*name*/) override {
    if (!value) return *this;
    useAlone(*value);
    return value->serialize(*this, static_cast<unsigned int>(value->getClassVersion()));
  }
};

}  // namespace

std::string written(Serializable& root) {
  MemoryBufferOutStream out;
  BinaryWriter(&out).writeRoot(root);
  require(root.getPacketSize() == out.str().size(), "the packet size is that of the frame");
  return out.str();
}

void useObject(Serializable& root) {
  Visitor visitor;
  visitor.process(&root, nullptr);
}

}  // namespace nox::fuzz
