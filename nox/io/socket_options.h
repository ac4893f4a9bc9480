// Options of sockets that belong to somebody else.
#pragma once

#include <ace/Basic_Types.h>

namespace nox {

/// Sets an option of `handle`, which stays open. A failure is written to the log back end as
/// `failure`, with the source position given, and otherwise ignored: the socket stays usable.
void setSocketOption(ACE_HANDLE handle, int level, int name, const void* value, int size,
                     const char* failure, const char* file, int line);

}  // namespace nox
