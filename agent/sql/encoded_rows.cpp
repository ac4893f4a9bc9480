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

char* putValue(char* to, std::string_view value) {
  to[0] = 'j';
  to[1] = 'b';
  storeBigEndian32(to + 2, static_cast<std::uint32_t>(value.size()));
  to += kValueHead;
  if (!value.empty()) std::memcpy(to, value.data(), value.size());
  to += value.size();
  to[0] = ';';
  to[1] = ';';
  return to + kValueTail;
}

std::size_t sizeOfValues(const SqlRow& row, std::string_view null) {
  std::size_t size = row.size() * (kValueHead + kValueTail);
  for (const std::optional<std::string_view>& value : row) size += (value ? *value : null).size();
  return size;
}

}  // namespace

std::size_t EncodedRows::sizeOf(const SqlRow& row, std::string_view null) {
  return kRowOverhead + sizeOfValues(row, null);
}

void EncodedRows::add(const SqlRow& row, std::string_view null) {
  const std::size_t size = encoded_.size();
  encoded_.resize(size + sizeOfValues(row, null));
  char* to = encoded_.data() + size;
  for (const std::optional<std::string_view>& value : row) {
    to = putValue(to, value ? *value : null);
  }
  rows_.push_back({encoded_.size(), static_cast<int>(row.size())});
}

void EncodedRows::moveTo(EncodedRows& other, std::size_t count) {
  for (; count > 0; --count) {
    const Row& row = rows_[first_++];
    other.encoded_.append(encoded_, begin_, row.end - begin_);
    other.rows_.push_back({other.encoded_.size(), row.values});
    begin_ = row.end;
  }
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
