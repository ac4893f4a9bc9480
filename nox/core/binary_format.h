// The marker bytes of the binary object format; docs/wire-format.md shows them at work.
#pragma once

#include <cstddef>

namespace nox {

constexpr char kStartOfRootObject = '[';
constexpr char kEndOfRootObject = ']';
constexpr char kObjectPrefix = 'L';
constexpr char kEndOfEntity = ';';
constexpr char kIntegerPrefix = 'I';
constexpr char kStringPrefix = 's';
constexpr char kBlobPrefix = 'j';
constexpr char kByteArrayPrefix = 'b';

constexpr std::size_t kMarkedInt = 5;  // marker, 4 bytes

/// The type code that stands for "no object"; such an object has no version and no fields.
constexpr int kNullType = 1;

/// What a compressed body starts with. A plain body starts with 'L', so the two never collide.
constexpr char kCompressedMarker[] = {'G', 'Z', 'I', 'P'};

}  // namespace nox
