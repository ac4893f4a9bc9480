#include "nox/protocol/sql_state.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Row {
  const char* sqlClass;
  const char* sqlSubClass;
  const char* msg;
};

// Every code of the catalogue, with the message that is found for it.
constexpr Row kFound[] = {
    {"QX", "000", "Qorda internal error"},
    {"IE", "000", "Server internal error"},
    {"IE", "001", "Unknown internal qSQL error"},
    {"IE", "002", "Releasing statement failed"},
    {"IE", "003", "Error calling subroutine"},
    {"IE", "004", "Error loading subroutine"},
    {"IE", "005", "An error occurred while opening the file"},
    {"IE", "006", "An error occurred while clearing file"},
    {"IE", "007", "An error occurred while selecting file"},
    {"IE", "008", "An error occurred while reading file"},
    {"IE", "009", "An error occurred while writing file"},
    {"IE", "010", "An error occurred while deleting record"},
    {"IE", "011", "Failed to execute command"},
    {"IE", "012", "Failed to start transaction"},
    {"IE", "013", "XA Transaction prepare failed"},
    {"IE", "015", "no alias given and more than one table specified"},
    {"IE", "016", "unrecognized alias"},
    {"IE", "017", "Unable to create procedure, failed to create optput dir"},
    {"IE", "018", "Unable to create procedure, unable to open output file"},
    {"IE", "019", "Unable to create procedure, procedure name does not match subroutine name"},
    {"IE", "020", "Unable to create procedure, unable compile subroutine"},
    {"IE", "022", "Can't delete DICT file"},
    {"IE", "023", "Can't delete DATA file"},
    {"IE", "024", "A timeout occurred while serializing access to resource"},
    {"01", "000", "Success with warning"},
    {"01", "002", "Disconnect error"},
    {"01", "003", "Null value eliminated in set function"},
    {"01", "004", "String data, right truncation"},
    {"01", "005", "Insufficient item descriptor areas"},
    {"01", "006", "Privilege not revoked"},
    {"01", "007", "Privilege not granted"},
    {"01", "00B", "Default value too long for system view"},
    {"02", "000", "No data"},
    {"02", "001", "using-clause does not match dynamic parameters"},
    {"02", "002", "using-clause does not match target specifications"},
    {"02", "003", "Cursor specification cannot be executed"},
    {"02", "004", "using-clause is required for dynamic parameters"},
    {"02", "005", "Prepared statement is not a cursor specification"},
    {"02", "006", "Restricted data type attribute violation"},
    {"02", "008", "Invalid descriptor count"},
    {"02", "009", "Invalid descriptor index"},
    {"08", "000", "Connection exception"},
    {"08", "001", "Client unable to establish connection"},
    {"08", "002", "Connection name in use"},
    {"08", "003", "Connection does not exist"},
    {"08", "004", "Server rejected the connection"},
    {"08", "006", "Connection failure"},
    {"08", "007", "Transaction resolution unknown"},
    {"0A", "000", "Feature not supported"},
    {"0A", "001", "Multiple-server transaction"},
    {"21", "000", "Cardinality violation"},
    {"21", "S01", "Insert value list does not match column list"},
    {"21", "S02", "Degree of derived table does not match column list"},
    {"22", "000", "Data exception"},
    {"22", "001", "String data, right truncation"},
    {"22", "002", "Null value, no indicator parameter"},
    {"22", "003", "Numeric value out of range."},
    {"22", "005", "Error in assignment"},
    {"22", "006", "Invalid interval format"},
    {"22", "007", "Invalid date/time format"},
    {"22", "008", "Date/time field overflow"},
    {"22", "011", "Substring error"},
    {"22", "012", "Division by zero"},
    {"22", "015", "Interval field overflow"},
    {"22", "018", "Invalid character value for CAST"},
    {"22", "019", "Invalid escape character"},
    {"22", "021", "Translation result not in target repertoire"},
    {"22", "024", "Unterminated string"},
    {"22", "025", "Invalid escape sequence"},
    {"22", "027", "Trim error."},
    {"23", "000", "Integrity constraint violation"},
    {"24", "000", "Invalid cursor state"},
    {"25", "000", "Invalid transaction state"},
    {"26", "000", "Invalid SQL statement identifier"},
    {"28", "000", "Invalid authorisation specification"},
    {"2C", "000", "Invalid character set name"},
    {"2D", "000", "Transaction commit error"},
    {"2E", "000", "Invalid connection name"},
    {"33", "000", "Invalid SQL descriptor name"},
    {"35", "000", "Invalid exception number"},
    {"3D", "000", "Invalid catalog name"},
    {"3F", "000", "Invalid schema name."},
    {"40", "000", "Transaction rollback error"},
    {"40", "003", "Statement completion unknown"},
    {"42", "000", "Syntax error or access violation"},
    {"42", "S01", "Base table or viewed table already exists"},
    {"42", "S02", "Base table not found"},
    {"42", "S11", "Index already exists"},
    {"42", "S12", "Index not found"},
    {"42", "S21", "Column already exists"},
    {"42", "S22", "Column not found"},
    {"42", "S31", "Schema already exists"},
    {"42", "S32", "Schema not found"},
    {"42", "S42", "Catalog not found"},
    {"42", "S51", "Character set already exists"},
    {"42", "S52", "Character set not found"},
    {"42", "S61", "Collation already exists"},
    {"42", "S62", "Collation not found"},
    {"42", "S72", "Conversion not found"},
    {"42", "S81", "Translation already exists"},
    {"42", "S82", "Translation not found"},
    {"44", "000", "WITH CHECK OPTION violation"},
};

TEST(SqlState, FindsTheMessageOfEveryCode) {
  EXPECT_EQ(std::size(kFound), 102U);
  for (const Row& row : kFound) {
    EXPECT_EQ(SQLSTATE(row.sqlClass, row.sqlSubClass).getMsg(), row.msg)
        << row.sqlClass << "/" << row.sqlSubClass;
  }
}

TEST(SqlState, FindsTheFirstOfTwoRowsWithOneCode) {
  EXPECT_EQ(SQLSTATE("IE", "020").getMsg(),
            "Unable to create procedure, unable compile subroutine");
  EXPECT_EQ(SQLSTATE("02", "000").getMsg(), "No data");
}

TEST(SqlState, HasNoMessageForOtherCodes) {
  EXPECT_EQ(SQLSTATE("99", "999").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("IE", "014").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("IE", "021").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("00", "000").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE().getMsg(), "Unknown SQLSTATE");
}

TEST(SqlState, ComparesWholeCodesAndTheirCase) {
  EXPECT_EQ(SQLSTATE("ie", "000").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("22", "01").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("22", "0122").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("2", "2012").getMsg(), "Unknown SQLSTATE");
  EXPECT_EQ(SQLSTATE("", "000").getMsg(), "Unknown SQLSTATE");
}

TEST(SqlState, KeepsClassAndSubclassOfAnyLength) {
  SQLSTATE state(std::string(65535, 'c'), std::string(65535, 's'));
  EXPECT_EQ(state.getSQLClass().size(), 65535U);
  EXPECT_EQ(state.getSQLSubClass().size(), 65535U);
  EXPECT_EQ(state.sqlClass, state.getSQLClass());
  EXPECT_EQ(state.sqlSubClass, state.getSQLSubClass());
  EXPECT_EQ(state.getMsg(), "Unknown SQLSTATE");
}

TEST(SqlState, TakesNullAsEmpty) {
  const SQLSTATE state(nullptr, nullptr);
  EXPECT_EQ(state.sqlClass, "");
  EXPECT_EQ(state.sqlSubClass, "");
}

TEST(SqlState, CopiesAndMovesBothParts) {
  SQLSTATE state("22", "012");
  SQLSTATE copy(state);
  SQLSTATE moved(std::move(copy));
  SQLSTATE assigned;
  assigned = moved;
  EXPECT_EQ(assigned.getSQLClass(), "22");
  EXPECT_EQ(assigned.getSQLSubClass(), "012");
  EXPECT_EQ(state.getMsg(), "Division by zero");
}

}  // namespace
