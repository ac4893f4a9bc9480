// nox_bench_memory: how often every participant allocates for one message, and how much it holds at
// most while it works on it. Prints JSON to the standard output.
//
// A program of its own, because counting takes time. malloc and its siblings of the C library are
// replaced for the whole process, so that the peers' libraries are counted too; operator new ends
// there as well.
#include <malloc.h>

#include <cerrno>
#include <cstdlib>

#include "bench/harness.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace {

struct {
  std::uint64_t allocations = 0;
  std::int64_t held = 0;  // against the start of the message; freed blocks of before count down
  std::int64_t peak = 0;
} counted;

void* taken(void* block) {
  if (!block) return block;
  ++counted.allocations;
  counted.held += static_cast<std::int64_t>(malloc_usable_size(block));
  if (counted.held > counted.peak) counted.peak = counted.held;
  return block;
}

void given(void* block) {
  if (block) counted.held -= static_cast<std::int64_t>(malloc_usable_size(block));
}

}  // namespace

extern "C" {

void* malloc(std::size_t size) { return taken(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) { return taken(__libc_calloc(count, size)); }
void* realloc(void* block, std::size_t size) {
  given(block);
  return taken(__libc_realloc(block, size));
}
void* memalign(std::size_t alignment, std::size_t size) {
  return taken(__libc_memalign(alignment, size));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }
int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
  *block = memalign(alignment, size);
  return *block ? 0 : ENOMEM;
}
void free(void* block) {
  given(block);
  __libc_free(block);
}

}  // extern "C"

int main() {
  const nox::bench::Workloads data = nox::bench::makeWorkloads();
  const nox::bench::Suite suite = nox::bench::makeSuite(data);
  std::cout << "{";
  const char* separator = "\n";
  for (const nox::bench::Case& each : suite.cases()) {
    // What is kept from message to message exists by the third.
    for (int i = 0; i < 2; ++i) {
      if (each.prepare) each.prepare();
      each.once();
    }
    if (each.prepare) each.prepare();
    counted = {};
    each.once();
    const auto found = counted;
    std::cout << separator << "  \"" << each.name() << "\": {\"allocations\": " << found.allocations
              << ", \"peak_bytes\": " << found.peak << ", \"message_bytes\": " << each.messageSize
              << "}";
    separator = ",\n";
  }
  std::cout << "\n}\n";
}
