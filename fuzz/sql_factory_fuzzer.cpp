// What the SQL service reads, and the replies of its own that its factory knows.
#include "fuzz/factory_fuzzer.h"
#include "nox/protocol/sql/sql_object_factory.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static noxp::sql::SQLObjectFactory factory;
  return factory;
}
