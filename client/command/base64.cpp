#include "client/command/base64.h"

#include <sodium.h>

#include <stdexcept>

namespace nox::command {

namespace {

constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;

}  // namespace

std::string base64Of(std::string_view bytes) {
  std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                    bytes.size(), kVariant);
  text.pop_back();  // the terminator
  return text;
}

std::string bytesOfBase64(std::string_view text) {
  std::string bytes(text.size(), '\0');
  std::size_t size = 0;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.data(),
                        text.size(), nullptr, &size, nullptr, kVariant) != 0) {
    throw std::runtime_error("this is no base64: " + std::string(text));
  }
  bytes.resize(size);
  return bytes;
}

}  // namespace nox::command
