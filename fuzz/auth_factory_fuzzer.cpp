// The first message of every connection, read before anybody is known.
#include "fuzz/factory_fuzzer.h"
#include "nox/auth/authentication.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static noxp::auth::AuthObjectFactory factory;
  return factory;
}
