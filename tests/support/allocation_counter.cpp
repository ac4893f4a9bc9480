#include "tests/support/allocation_counter.h"

#include <cstdlib>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define NOX_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define NOX_TEST_SANITIZED 1
#endif
#endif

namespace {

thread_local std::size_t allocations = 0;
thread_local std::size_t allocatedBytes = 0;

void note(std::size_t n) {
  ++allocations;
  allocatedBytes += n;
}

}  // namespace

#ifdef NOX_TEST_SANITIZED

// The sanitizers bring their own allocator, and a hook into it, which g++ installs no header for.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*mallocHook)(const volatile void*,
                                                                            std::size_t),
                                                         void (*freeHook)(const volatile void*));

namespace {

const int kHooked = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t n) { note(n); }, [](const volatile void*) {});

}  // namespace

#else

// Takes the place of the C library's functions, which operator new rests upon too.
#define NOX_TEST_VISIBLE __attribute__((visibility("default")))
extern "C" {
void* __libc_malloc(std::size_t n);
void* __libc_calloc(std::size_t count, std::size_t n);
void* __libc_realloc(void* block, std::size_t n);

NOX_TEST_VISIBLE void* malloc(std::size_t n) noexcept {
  note(n);
  return __libc_malloc(n);
}

NOX_TEST_VISIBLE void* calloc(std::size_t count, std::size_t n) noexcept {
  note(count * n);
  return __libc_calloc(count, n);
}

NOX_TEST_VISIBLE void* realloc(void* block, std::size_t n) noexcept {
  note(n);
  return __libc_realloc(block, n);
}
}

#endif

namespace nox::test {

AllocationScope::AllocationScope() : countBefore_(allocations), bytesBefore_(allocatedBytes) {}

std::size_t AllocationScope::count() const { return allocations - countBefore_; }

std::size_t AllocationScope::bytes() const { return allocatedBytes - bytesBefore_; }

}  // namespace nox::test
