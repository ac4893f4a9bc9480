// Catches what the library throws by pointer and owns it.
#pragma once

#include <gtest/gtest.h>

#include <memory>

namespace nox::test {

/// Runs `action` and returns the E it threw by pointer; null, with a failure, when it threw none.
/// Other exceptions pass. `auto e = caught<UnexpectedChar>([&] { reader.readRootObject(); });`
template <class E, class Action>
std::unique_ptr<E> caught(Action&& action) {
  try {
    action();
  } catch (E* thrown) {
    return std::unique_ptr<E>(thrown);
  }
  ADD_FAILURE() << "nothing was thrown";
  return nullptr;
}

}  // namespace nox::test
