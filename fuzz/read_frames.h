// Reads an input as what a peer sends on a connection.
#pragma once

#include <cstddef>
#include <cstdint>

namespace nox {

class ObjectFactory;

namespace fuzz {

/// Reads frame after frame of the input, through memory and through a connection; both must come to
/// the same objects and errors. Every object that was read is also used, shown as XML, and sent on.
void readFrames(const std::uint8_t* data, std::size_t size, ObjectFactory& factory);

}  // namespace fuzz
}  // namespace nox
