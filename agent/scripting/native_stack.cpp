#include "agent/scripting/native_stack.h"

#include <pthread.h>

#include <cstdint>
#include <limits>

namespace nox::agent {

namespace {

/// The lowest address of the thread's stack; 0 where it is not known.
std::uintptr_t stackBottom() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* bottom = nullptr;
  std::size_t size = 0;
  const bool known = pthread_attr_getstack(&attributes, &bottom, &size) == 0;
  pthread_attr_destroy(&attributes);
  return known ? reinterpret_cast<std::uintptr_t>(bottom) : 0;
}

}  // namespace

std::size_t nativeStackLeft() {
  thread_local const std::uintptr_t bottom = stackBottom();
  if (bottom == 0) return std::numeric_limits<std::size_t>::max();
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  return here > bottom ? here - bottom : 0;
}

}  // namespace nox::agent
