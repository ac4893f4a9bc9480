// The fuzz target of a factory: frames that are read with it.
#pragma once

namespace nox {

class ObjectFactory;

namespace fuzz {

/// Defined by each target in its own source; the rest is the same for all of them.
ObjectFactory& factoryUnderTest();

}  // namespace fuzz
}  // namespace nox
