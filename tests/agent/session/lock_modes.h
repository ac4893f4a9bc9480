// What a read asks for, as the tests of sessions name it.
#pragma once

namespace nox::agent::test {

constexpr int kShared = 1;
constexpr int kUpdate = 2;
constexpr int kDoNotWait = 4;  // added to one of the others

}  // namespace nox::agent::test
