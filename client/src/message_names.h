// What messages are called in traces and by observers.
#pragma once

namespace nox::client::detail {

/// The class of a request without what all have in common: "ReadRecord" for 201. "Unknown" for a
/// code that no request has.
const char* requestName(int type);
/// The same for an answer: "Tovi" for 301.
const char* replyName(int type);
/// Whether frames of this type hold a secret.
bool isSecret(int type);

}  // namespace nox::client::detail
