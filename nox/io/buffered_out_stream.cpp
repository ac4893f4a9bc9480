#include "nox/io/buffered_out_stream.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <utility>

#include "nox/core/big_endian.h"
#include "nox/core/memory_streams.h"
#include "nox/diag/file_loggers.h"

namespace nox {

namespace {

[[noreturn]] void failToGrow(std::size_t size) {
  NOX_LOG(filelog::error) << "BufferedOutStream could not resize buffer (size="
                          << static_cast<long>(size) << ")" << EndLog();
  throw std::bad_alloc();
}

}  // namespace

BufferedOutStream::BufferedOutStream(OutStream* os, bool owner)
    : target_(os), data_(inline_ + kLengthSize), end_(data_), limit_(inline_ + kInlineSize) {
  NOX_LOG(filelog::debug) << "BufferedOutStream (OutStream *os, bool owner)" << EndLog();
  if (!target_) {
    ownedTarget_ = std::make_shared<NullOutStream>();
    target_ = ownedTarget_.get();
  } else if (owner) {
    ownedTarget_.reset(target_);
  }
}

BufferedOutStream::BufferedOutStream(const BufferedOutStream& other) : OutStream(other) {
  copyFrom(other);
}

BufferedOutStream& BufferedOutStream::operator=(const BufferedOutStream& other) {
  if (this != &other) copyFrom(other);
  return *this;
}

BufferedOutStream::~BufferedOutStream() = default;

void BufferedOutStream::copyFrom(const BufferedOutStream& other) {
  ownedTarget_ = other.ownedTarget_;
  target_ = other.target_;
  block_ = other.block_;
  capacity_ = other.capacity_;
  resizeStep_ = other.resizeStep_;
  const std::size_t length = other.getLength();
  if (block_) {
    data_ = other.data_;
    end_ = data_ + length;
    limit_ = end_;
    other.limit_ = other.end_;
  } else {
    data_ = inline_ + kLengthSize;
    std::memcpy(data_, other.data_, length);
    end_ = data_ + length;
    limit_ = inline_ + kInlineSize;
  }
}

void BufferedOutStream::send(const char* data, std::size_t n) {
  if (n == 0) return;
  const bool inside = data >= data_ && data < end_;
  const std::size_t offset = inside ? static_cast<std::size_t>(data - data_) : 0;
  char* const to = reserve(n);
  std::memmove(to, inside ? data_ + offset : data, n);
  commit(n);
}

void BufferedOutStream::growFor(std::size_t n) {
  const std::size_t length = getLength();
  const std::size_t needed = length + n + kLengthSize;
  const std::size_t newSize = needed + static_cast<std::size_t>(resizeStep_);
  if (n > kMaxContent || length > kMaxContent - n) failToGrow(newSize);
  if (capacity_ >= needed) {
    // The block is large enough but shared, or was until now.
    if (shared()) moveTo(capacity_);
    limit_ = data_ + std::min(capacity_ - kLengthSize, kMaxContent);
    return;
  }
  moveTo(newSize);
  // The slack doubles with each growth, so that repeated large messages settle on one block.
  constexpr int kLargestStep = std::numeric_limits<int>::max();
  resizeStep_ = resizeStep_ > kLargestStep / 2 ? kLargestStep : resizeStep_ * 2;
}

void BufferedOutStream::moveTo(std::size_t blockSize) {
  char* const begin = static_cast<char*>(std::malloc(blockSize));
  if (!begin) failToGrow(blockSize);
  std::shared_ptr<char> block(begin, [](char* old) { std::free(old); });
  const std::size_t length = getLength();
  std::memcpy(begin + kLengthSize, data_, length);
  block_ = std::move(block);
  capacity_ = blockSize;
  data_ = begin + kLengthSize;
  end_ = data_ + length;
  // The slack of a huge block is no room for content.
  limit_ = data_ + std::min(blockSize - kLengthSize, kMaxContent);
}

void BufferedOutStream::discard() {
  end_ = data_;
  if (shared()) limit_ = end_;
}

void BufferedOutStream::flush() { flushSz(); }

std::size_t BufferedOutStream::flushSz() {
  if (shared()) moveTo(capacity_);  // the length is written in front of the content
  const std::size_t length = getLength();
  storeBigEndian32(data_ - kLengthSize, static_cast<std::uint32_t>(length));
  target_->send(data_ - kLengthSize, length + kLengthSize);
  target_->flush();
  discard();
  return length + kLengthSize;
}

}  // namespace nox
