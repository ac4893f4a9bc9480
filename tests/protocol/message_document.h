// docs/messages.md, made from the table of messages and from what the messages themselves write.
#pragma once

#include <string>

namespace nox::test {

/// The whole document.
std::string messageDocument();

}  // namespace nox::test
