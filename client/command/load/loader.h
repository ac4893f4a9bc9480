// Loading: records from a file go to the server in batches, each of which is a transaction.
#pragma once

#include <cstdint>
#include <string>

namespace nox::command {

class Context;

struct LoadOptions {
  std::string file;
  std::string path;    // "" or "-": standard input
  std::string format;  // "": by the path's ending
  std::string idColumn;
  std::uint64_t batch = 1000;
  std::string rejectPath;  // "": what cannot be loaded ends the load
  std::string resumePath;  // "": nothing is kept
  bool create = false;     // the file, where there is none
};

struct LoadResult {
  std::uint64_t loaded = 0;
  std::uint64_t rejected = 0;
  std::uint64_t skipped = 0;  // done by the load that is resumed
};

/// Throws UsageError, Refused, Interrupted and client::Error; what the batches before have written
/// stays. Once it has begun it says on standard error how many were loaded, whether it throws or
/// not.
LoadResult load(Context& context, const LoadOptions& options);

}  // namespace nox::command
