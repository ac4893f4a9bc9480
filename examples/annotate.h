// Shows a frame byte by byte, for people.
#pragma once

#include <ostream>
#include <string_view>

#include <nox/nox.h>

/// Prints one frame, its length included: a line per marker or value with its offset, its bytes and
/// what they mean. Types are named after `names`. Throws std::runtime_error where the bytes follow
/// the format no longer.
void annotate(std::string_view frame, nox::ObjectFactory& names, std::ostream& out);
