#include "agent/sql/encoded_rows.h"

#include <cstdint>
#include <cstring>
#include <optional>

namespace nox::agent {

namespace {

// A value travels as a blob that holds an array of bytes: 'j', 'b', 4 bytes of length, the bytes,
// an end for each.
constexpr std::size_t kValueHead = 6;
constexpr std::size_t kValueTail = 2;

template <std::size_t N>
void copyExactly(char* to, const char* from) {
  std::memcpy(to, from, N);
}

/// Most values are short, and a call for each would cost more than the copy. What lies in the
/// middle is copied twice.
void copy(char* to, const char* from, std::size_t size) {
  if (size > 16) {
    std::memcpy(to, from, size);
  } else if (size >= 8) {
    copyExactly<8>(to, from);
    copyExactly<8>(to + size - 8, from + size - 8);
  } else if (size >= 4) {
    copyExactly<4>(to, from);
    copyExactly<4>(to + size - 4, from + size - 4);
  } else if (size > 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

char* putValue(char* to, std::string_view value) {
  copyExactly<2>(to, "jb");
  storeBigEndian32(to + 2, static_cast<std::uint32_t>(value.size()));
  copy(to + kValueHead, value.data(), value.size());
  to += kValueHead + value.size();
  copyExactly<2>(to, ";;");
  return to + kValueTail;
}

}  // namespace

std::size_t EncodedRows::sizeOf(const SqlRow& row, std::string_view null) {
  std::size_t size = kRowOverhead + row.size() * (kValueHead + kValueTail);
  for (const std::optional<std::string_view>& value : row) size += (value ? *value : null).size();
  return size;
}

void EncodedRows::reserve(std::size_t bytes) {
  if (bytes > encoded_.size()) encoded_.resize(bytes);
}

char* EncodedRows::makeRoom(std::size_t bytes) {
  const std::size_t begin = end_;
  end_ += bytes;
  if (end_ > encoded_.size()) encoded_.resize(end_ + end_ / 2);
  return encoded_.data() + begin;
}

void EncodedRows::add(const SqlRow& row, std::string_view null, std::size_t size) {
  char* to = makeRoom(size - kRowOverhead);
  for (const std::optional<std::string_view>& value : row) {
    to = putValue(to, value ? *value : null);
  }
  rows_.push_back({end_, static_cast<int>(row.size())});
}

void EncodedRows::moveTo(EncodedRows& other, std::size_t count) {
  if (count == 0) return;
  const std::size_t end = rows_[first_ + count - 1].end;
  std::memcpy(other.makeRoom(end - begin_), encoded_.data() + begin_, end - begin_);
  for (; count > 0; --count) {
    const Row& row = rows_[first_++];
    other.rows_.push_back({row.end - end + other.end_, row.values});
  }
  begin_ = end;
}

Archive& EncodedRows::serialize(Archive& ar, unsigned int version) {
  BinaryWriter* const writer = BinaryWriter::behind(ar);
  if (!writer) return ResultSetProt::serialize(ar, version);  // which has no rows
  int rows = static_cast<int>(count());
  ar.process(rows, "numberOfRows");
  std::size_t begin = begin_;
  for (std::size_t i = first_; i < rows_.size(); ++i) {
    const Row& row = rows_[i];
    writer->writeObject(TypeCode::Row, 0, row.values,
                        std::string_view(encoded_).substr(begin, row.end - begin));
    begin = row.end;
  }
  return ar;
}

}  // namespace nox::agent
