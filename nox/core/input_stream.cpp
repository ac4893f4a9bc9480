#include "nox/core/input_stream.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "nox/core/big_endian.h"
#include "nox/core/serializable.h"
#include "nox/diag/file_loggers.h"

namespace nox {

namespace {

bool wouldBlock(int error) {
  return error == kErrnoWouldBlock || error == EWOULDBLOCK || error == EAGAIN;
}

}  // namespace

InputStream::~InputStream() = default;

int InputStream::readChar() {
  char c = 0;
  // Compared as 32 bits, as every stream's -1 has always been.
  const int count = static_cast<int>(readMax(&c, 1));
  if (count == 0) {
    NOX_LOG(filelog::error) << "InputStream::readChar(): readMax => 0 (EOF)" << EndLog();
    throw new LAST;
  }
  if (count == -1) {
    const int error = errno;
    if (wouldBlock(error)) {
      NOX_LOG(filelog::debug) << "InputStream::readChar(): readMax => -1 (EWOULDBLOCK)" << EndLog();
      return -1;
    }
    if (error == kErrnoTimeout) {
      NOX_LOG(filelog::debug) << "InputStream::readChar(): readMax => -1 (ETIME)" << EndLog();
      return -1;
    }
    NOX_LOG(filelog::error) << "InputStream::readChar(): readMax => -1:" << EndLog();
    errno = error;
    std::perror("InputStream::readChar(): readMax => -1");
    throw new LAST;
  }
  return static_cast<unsigned char>(c);
}

std::int64_t InputStream::readInt(int& value) {
  char bytes[4] = {};
  const std::int64_t count = readMax(bytes, 4);
  if (count == 4) {
    value = loadBigEndian32(bytes);
  } else {
    NOX_LOG(filelog::error) << "Could not read 32 bit int, only " << static_cast<long>(count)
                            << " byte(s) read." << EndLog();
  }
  return count;
}

}  // namespace nox
