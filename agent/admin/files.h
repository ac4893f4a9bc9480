// Files that are there whole, and still there after a loss of power.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/descriptor.h"

namespace nox::agent {

// All of them throw AdminError, which names the file and what the system said.

[[noreturn]] void failWithErrno(const std::string& what);

/// The folder must not be there. Durable when its parent is synchronised.
void makeFolder(const std::string& folder);
/// Makes names in a folder durable.
void syncFolder(const std::string& folder);
void syncFile(const std::string& file);

/// Makes a file with these bytes, readable to its owner alone: whole and durable, or not at all.
/// Refuses where there is one already.
void writeNewFile(const std::string& file, std::string_view content);
/// Copies a file in the same way and returns what `sha256OfFile` would say of the copy.
std::string copyToNewFile(const std::string& from, const std::string& to);

std::string readSmallFile(const std::string& file, std::size_t mostBytes);
std::uint64_t sizeOfFile(const std::string& file);
/// In hexadecimal.
std::string sha256OfFile(const std::string& file);

}  // namespace nox::agent
