// What the remote service reads.
#include "fuzz/factory_fuzzer.h"
#include "nox/protocol/remote/remote_object_factory.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static noxp::remote::RemoteObjectFactory factory;
  return factory;
}
