#include "nox/io/socket_options.h"

#include <ace/Log_Msg.h>
#include <ace/SOCK_Stream.h>

#include <cerrno>

namespace nox {

void setSocketOption(ACE_HANDLE handle, int level, int name, const void* value, int size,
                     const char* failure, const char* file, int line) {
  const ACE_SOCK_Stream socket(handle);  // does not close the handle
  if (socket.set_option(level, name, const_cast<void*>(value), size) != -1) return;
  const int error = errno;
  ACE_Log_Msg& log = *ACE_Log_Msg::instance();
  log.conditional_set(file, line, 0, error);
  log.log(LM_ERROR, failure);
}

}  // namespace nox
