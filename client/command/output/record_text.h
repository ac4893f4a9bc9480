// Records as people read them.
#pragma once

#include <string>
#include <string_view>

#include <nox/client/client.h>

namespace nox::command {

/// A line per attribute, with its values below it where there are several:
///
///   bash
///   ├─ 1  5.2.15
///   └─ 2
///      ├─ 2.1  libc6
///      └─ 2.2  libtinfo6
///
/// An attribute without a name is its number; `names` gives those of the dictionary, by number.
std::string recordTree(std::string_view id, const client::Record& record,
                       const std::vector<std::string>& names = {});

/// An array of attributes, each a text or an array of values, each a text or an array of subvalues.
std::string recordJson(const client::Record& record);
/// The same at the end of `json`.
void addRecordJson(std::string& json, const client::Record& record);

}  // namespace nox::command
