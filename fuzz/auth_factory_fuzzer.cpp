// The first message of every connection, read before anybody is known.
#include "fuzz/fuzz_target.h"
#include "fuzz/read_frames.h"
#include "nox/auth/authentication.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static nox::noxp::auth::AuthObjectFactory factory;
  nox::fuzz::readFrames(data, size, factory);
  return 0;
}
