// What clients read.
#include "fuzz/factory_fuzzer.h"
#include "nox/protocol/client_object_factory.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static ClientObjectFactory factory;
  return factory;
}
