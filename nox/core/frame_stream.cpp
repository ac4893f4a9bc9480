#include "nox/core/frame_stream.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace nox {

namespace {

constexpr std::size_t kKeptBlock = std::size_t{1} << 20;

}  // namespace

FrameStream::~FrameStream() { std::free(block_); }

char* FrameStream::block(std::size_t n, std::size_t keep) {
  if (n <= capacity_ && block_) return block_;
  const std::size_t size = n < 256 ? 256 : n;
  char* const moved = static_cast<char*>(std::malloc(size));
  if (!moved) throw std::bad_alloc();
  if (keep > 0) std::memcpy(moved, block_, keep);
  std::free(std::exchange(block_, moved));
  capacity_ = size;
  return block_;
}

void FrameStream::aim(char* bytes, std::size_t n, bool borrowed) {
  position_ = 0;
  length_ = static_cast<std::uint32_t>(n);
  buffer_ = bytes;
  borrowed_ = borrowed;
}

void FrameStream::own() {
  if (!borrowed_) return;
  const char* const from = buffer_;
  char* const to = block(length_, 0);
  if (length_ > 0) std::memcpy(to, from, length_);
  buffer_ = to;
  borrowed_ = false;
}

void FrameStream::ownOrForget() noexcept {
  try {
    own();
  } catch (const std::bad_alloc&) {
    aim(nullptr, 0, false);
  }
}

void FrameStream::freeBlock() {
  std::free(std::exchange(block_, nullptr));
  capacity_ = 0;
}

void FrameStream::shrink() {
  aim(nullptr, 0, false);
  if (capacity_ > kKeptBlock) freeBlock();
  if (inflated_.capacity() > kKeptBlock) std::string().swap(inflated_);
}

}  // namespace nox
