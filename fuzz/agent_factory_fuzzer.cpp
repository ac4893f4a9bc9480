// What an agent of every service reads, HTTP included.
#include "fuzz/agent_factory.h"
#include "fuzz/factory_fuzzer.h"

nox::ObjectFactory& nox::fuzz::factoryUnderTest() {
  static AgentFactory factory;
  return factory;
}
