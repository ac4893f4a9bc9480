// Does with an object that was read what applications do.
#pragma once

#include <string>

namespace nox {

class Serializable;

namespace fuzz {

/// The frame of `root`. Result sets in it have no rows afterwards.
std::string written(Serializable& root);

/// Copies `root` and every object in it where a copy is possible, walks lists, rows and
/// descriptions, and looks at every text and blob. What does not hold ends the process.
void useObject(Serializable& root);

}  // namespace fuzz
}  // namespace nox
