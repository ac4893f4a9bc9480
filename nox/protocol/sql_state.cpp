#include "nox/protocol/sql_state.h"

namespace {

struct Row {
  std::string sqlClass;
  std::string sqlSubClass;
  std::string msg;
};

// "IE" are internal errors of the agent's services, "QX" errors of the database beneath it; the
// rest are standard classes. The first row of a code wins, so the second "IE"/"020" and the second
// "02"/"000" are never found: deliberate, as is every wording, "optput" included.
//
// Built on first use: errors are also made while other files' static objects are built.
Row* findRow(const std::string& sqlClass, const std::string& sqlSubClass) {
  static Row catalogue[] = {
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
      {"IE", "020", "Unable to create procedure, unable build shared object"},
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
      {"02", "000", "Dynamic SQL error"},
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
  for (Row& row : catalogue) {
    if (row.sqlClass == sqlClass && row.sqlSubClass == sqlSubClass) return &row;
  }
  return nullptr;
}

std::string orEmpty(const char* text) { return text ? text : ""; }

}  // namespace

SQLSTATE::SQLSTATE(const char* cls, const char* subClass)
    : AG_SQLSTATE{orEmpty(cls), orEmpty(subClass)} {}

SQLSTATE::SQLSTATE(const std::string& cls, const std::string& subClass)
    : AG_SQLSTATE{cls, subClass} {}

std::string& SQLSTATE::getMsg() const {
  static std::string unknown = "Unknown SQLSTATE";
  Row* row = findRow(sqlClass, sqlSubClass);
  return row ? row->msg : unknown;
}
