// The requests about single records, as files and batches make them.
#pragma once

#include <optional>
#include <string_view>

#include <nox/nox.h>

#include "client/src/wire_text.h"
#include "nox/client/file.h"
#include "nox/client/record.h"

namespace nox::client::detail {

constexpr const char* kFileName = "the file's name";
constexpr const char* kRecordId = "the record's id";

// Modes as they travel.
constexpr int kWriteAndRelease = 0;
constexpr int kWriteAndKeep = 1;
constexpr int kWriteNew = 2;
constexpr int kReleaseRecord = 0;
constexpr int kReleaseFile = 1;
constexpr int kReleaseAll = 2;
int readMode(Lock lock, Wait wait);

/// Puts the names into a request. Error 22023 for one that cannot travel.
template <class Request>
void fill(Request& request, std::string_view file, std::string_view id) {
  put(request.getFileName(), file, kFileName);
  put(request.getRecordId(), id, kRecordId);
}
void fill(noxp::remote::WriteRecordRequestProt& request, std::string_view file, std::string_view id,
          const Record& record);

/// The status of an answer; nothing for a number that has no meaning.
std::optional<Status> statusOf(const noxp::remote::ToviResponseProt& answer);
/// The record of an answer; an empty one where there is none.
Record recordOf(const noxp::remote::ToviResponseProt& answer);

}  // namespace nox::client::detail
