// How commands fail, and what ends those that run for too long.
#pragma once

#include <utility>

#include "agent/failure.h"
#include "agent/store/store.h"

namespace nox::agent {

class Session;

/// What a file or the store refused, as a command's failure: IE/011 with the same reason. Failures
/// of other classes mean the same to every request and stay.
[[noreturn]] void throwAsCommandFailure(const Failure& failure);
[[noreturn]] void throwAsCommandFailure(const StoreError& error);
/// Throws Failure IE/011 where the session was interrupted or the request's deadline has passed.
void checkDeadline(Session& session);

/// Runs `work`, and turns what it throws into a command's failure.
template <class Work>
auto asCommandFailure(Work&& work) -> decltype(std::forward<Work>(work)()) {
  try {
    return std::forward<Work>(work)();
  } catch (const Failure& failure) {
    throwAsCommandFailure(failure);
  } catch (const StoreError& error) {
    throwAsCommandFailure(error);
  }
}

}  // namespace nox::agent
