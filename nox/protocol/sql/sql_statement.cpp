#include "nox/protocol/sql/sql_statement.h"

namespace nox {

SQLStatementProt::SQLStatementProt() = default;
SQLStatementProt::~SQLStatementProt() = default;

int SQLStatementProt::getCursorType() { return cursorType_; }

void SQLStatementProt::setCursorType(int cursorType) { cursorType_ = cursorType; }

}  // namespace nox
