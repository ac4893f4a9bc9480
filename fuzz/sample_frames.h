// Valid frames to start from.
#pragma once

#include <string>
#include <vector>

namespace nox {

class ObjectFactory;

namespace fuzz {

/// Frames of every class that `factory` knows, in each layout version, with the same small contents
/// in all their fields and lists; none of them twice.
std::vector<std::string> sampleFrames(ObjectFactory& factory);

}  // namespace fuzz
}  // namespace nox
