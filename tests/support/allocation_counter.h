// Counts what this test program allocates, through operator new and through malloc alike.
#pragma once

#include <cstddef>

namespace nox::test {

/// What the current thread allocated since this object was made. Growing a block by realloc counts
/// as one allocation of its new size; freeing takes nothing back.
class AllocationScope {
public:
  AllocationScope();
  std::size_t count() const;
  std::size_t bytes() const;

private:
  std::size_t countBefore_;
  std::size_t bytesBefore_;
};

}  // namespace nox::test
