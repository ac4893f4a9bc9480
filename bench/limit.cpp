// The limit: our own wire format encoded and decoded by hand, without archive, stream, factory or
// virtual call. Nothing that speaks this format to owning objects can be expected to be faster.
//
// "limit" decodes into a heap object with std::strings. "flat" exists for the row sets alone: it
// copies the frame once and keeps views into the copy.
#include <cstring>
#include <stdexcept>

#include "bench/harness.h"
#include "nox/core/big_endian.h"
#include "nox/core/binary_format.h"
#include "nox/protocol/type_codes.h"

namespace nox::bench {

namespace {

// Copies of up to 16 bytes as two overlapping moves: a call of memcpy costs more than they do.
inline void copyBytes(char* to, const char* from, std::size_t n) {
  if (n > 16) {
    std::memcpy(to, from, n);
  } else if (n >= 8) {
    std::uint64_t head;
    std::uint64_t tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + n - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + n - 8, &tail, 8);
  } else if (n >= 4) {
    std::uint32_t head;
    std::uint32_t tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + n - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + n - 4, &tail, 4);
  } else {
    for (std::size_t i = 0; i < n; ++i) to[i] = from[i];
  }
}

constexpr std::size_t kIntSize = 5;
constexpr std::size_t kHeadSize = 1 + 2 * kIntSize;
constexpr std::size_t kFrameSize = 4 + 1 + kHeadSize + 1 + 1;  // length, '[', head, ';', ']'

std::size_t sizeOfText(const std::string& text) { return 4 + text.size(); }
std::size_t sizeOfBlob(const std::string& blob) { return 8 + blob.size(); }

/// Stores fields one behind the other; the caller has measured them.
class Encoder {
public:
  explicit Encoder(char* at) : at_(at) {}

  void number(int value) {
    *at_ = kIntegerPrefix;
    storeBigEndian32(at_ + 1, static_cast<std::uint32_t>(value));
    at_ += kIntSize;
  }
  void text(const std::string& value) {
    *at_ = kStringPrefix;
    storeBigEndian16(at_ + 1, static_cast<unsigned int>(value.size()));
    copyBytes(at_ + 3, value.data(), value.size());
    at_ += 3 + value.size();
    *at_++ = kEndOfEntity;
  }
  void blob(const std::string& value) {
    at_[0] = kBlobPrefix;
    at_[1] = kByteArrayPrefix;
    storeBigEndian32(at_ + 2, static_cast<std::uint32_t>(value.size()));
    copyBytes(at_ + 6, value.data(), value.size());
    at_ += 6 + value.size();
    at_[0] = kEndOfEntity;
    at_[1] = kEndOfEntity;
    at_ += 2;
  }
  void head(int type) {
    *at_++ = kObjectPrefix;
    number(type);
    number(0);
  }
  void end() { *at_++ = kEndOfEntity; }
  void openFrame(std::size_t size) {
    storeBigEndian32(at_, static_cast<std::uint32_t>(size - 4));
    at_[4] = kStartOfRootObject;
    at_ += 5;
  }
  void closeFrame() { *at_++ = kEndOfRootObject; }

private:
  char* at_;
};

[[noreturn]] void malformed() { throw std::runtime_error("malformed"); }

/// Reads fields with every check that a peer's bytes need.
class Decoder {
public:
  Decoder(const char* data, std::size_t n) : at_(data), end_(data + n) {}

  int number() {
    need(kIntSize);
    expect(*at_ == kIntegerPrefix);
    const int value = loadBigEndian32(at_ + 1);
    at_ += kIntSize;
    return value;
  }
  /// A count of entries that take at least `size` bytes each.
  std::size_t count(std::size_t size) {
    const int value = number();
    if (value < 0 || static_cast<std::size_t>(value) > left() / size) malformed();
    return static_cast<std::size_t>(value);
  }
  std::string_view text() {
    need(4);
    expect(*at_ == kStringPrefix);
    const std::size_t n = loadBigEndian16(at_ + 1);
    at_ += 3;
    return bytes(n, 1);
  }
  std::string_view blob() {
    need(8);
    expect(at_[0] == kBlobPrefix && at_[1] == kByteArrayPrefix);
    const std::size_t n = static_cast<std::uint32_t>(loadBigEndian32(at_ + 2));
    at_ += 6;
    return bytes(n, 2);
  }
  void head(int type) {
    need(kHeadSize);
    expect(*at_++ == kObjectPrefix);
    expect(number() == type);
    number();
  }
  void end() { marker(kEndOfEntity); }
  void openFrame() {
    need(5);
    expect(static_cast<std::uint32_t>(loadBigEndian32(at_)) == left() - 4);
    at_ += 4;
    marker(kStartOfRootObject);
  }
  void closeFrame() { marker(kEndOfRootObject); }

  std::string string(std::string_view value) const {
    return isShort(value) ? shortString(value) : std::string(value);
  }
  void append(std::vector<std::string>& to, std::string_view value) const {
    if (isShort(value)) {
      to.emplace_back(value.data(), kShort);
      to.back().erase(value.size());
    } else {
      to.emplace_back(value);
    }
  }

private:
  // A short string is made by a copy of constant length, which needs no call, and then cut.
  static constexpr std::size_t kShort = 15;

  bool isShort(std::string_view value) const {
    return value.size() <= kShort && static_cast<std::size_t>(end_ - value.data()) >= kShort;
  }
  static std::string shortString(std::string_view value) {
    std::string result(value.data(), kShort);
    result.erase(value.size());
    return result;
  }

  static void expect(bool holds) {
    if (!holds) malformed();
  }
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  void need(std::size_t n) const { expect(n <= left()); }
  void marker(char c) {
    need(1);
    expect(*at_++ == c);
  }
  std::string_view bytes(std::size_t n, std::size_t ends) {
    need(n + ends);
    const std::string_view value(at_, n);
    at_ += n;
    for (std::size_t i = 0; i < ends; ++i) expect(*at_++ == kEndOfEntity);
    return value;
  }

  const char* at_;
  const char* end_;
};

std::size_t measure(const ReadRecord& object) {
  return kFrameSize + kIntSize + sizeOfText(object.fileName) + sizeOfText(object.recordId);
}
void encodeFields(Encoder& out, const ReadRecord& object) {
  out.head(TypeCode::ReadRecordRequest);
  out.number(object.mode);
  out.text(object.fileName);
  out.text(object.recordId);
}
ReadRecord* decodeObject(Decoder& in, const ReadRecord& /*kind*/) {
  in.head(TypeCode::ReadRecordRequest);
  return new ReadRecord{in.number(), in.string(in.text()), in.string(in.text())};
}

std::size_t measure(const WriteRecord& object) {
  return kFrameSize + kIntSize + sizeOfText(object.fileName) + sizeOfText(object.recordId) +
         sizeOfBlob(object.record);
}
void encodeFields(Encoder& out, const WriteRecord& object) {
  out.head(TypeCode::WriteRecordRequest);
  out.number(object.mode);
  out.text(object.fileName);
  out.text(object.recordId);
  out.blob(object.record);
}
WriteRecord* decodeObject(Decoder& in, const WriteRecord& /*kind*/) {
  in.head(TypeCode::WriteRecordRequest);
  return new WriteRecord{in.number(), in.string(in.text()), in.string(in.text()),
                         in.string(in.blob())};
}

// A select list: its id, the keys, and that no records follow.
std::size_t measure(const KeyList& object) {
  std::size_t size = kFrameSize + 3 * kIntSize;
  for (const std::string& key : object.keys) size += sizeOfText(key);
  return size;
}
void encodeFields(Encoder& out, const KeyList& object) {
  out.head(TypeCode::SelectList);
  out.number(0);
  out.number(static_cast<int>(object.keys.size()));
  for (const std::string& key : object.keys) out.text(key);
  out.number(0);
}
KeyList* decodeObject(Decoder& in, const KeyList& /*kind*/) {
  in.head(TypeCode::SelectList);
  in.number();
  const std::size_t count = in.count(4);
  auto object = std::make_unique<KeyList>();
  object->keys.reserve(count);
  for (std::size_t i = 0; i < count; ++i) in.append(object->keys, in.text());
  in.number();
  return object.release();
}

std::size_t measure(const RowSet& object) {
  std::size_t size = kFrameSize + kIntSize;
  for (const auto& row : object.rows) {
    size += kHeadSize + kIntSize + 1;
    for (const std::string& value : row) size += sizeOfBlob(value);
  }
  return size;
}
void encodeFields(Encoder& out, const RowSet& object) {
  out.head(TypeCode::ResultSet);
  out.number(static_cast<int>(object.rows.size()));
  for (const auto& row : object.rows) {
    out.head(TypeCode::Row);
    out.number(static_cast<int>(row.size()));
    for (const std::string& value : row) out.blob(value);
    out.end();
  }
}
RowSet* decodeObject(Decoder& in, const RowSet& /*kind*/) {
  auto object = std::make_unique<RowSet>();
  in.head(TypeCode::ResultSet);
  const std::size_t numRows = in.count(kHeadSize + kIntSize + 1);
  object->rows.reserve(numRows);
  for (std::size_t i = 0; i < numRows; ++i) {
    in.head(TypeCode::Row);
    const std::size_t numValues = in.count(8);
    std::vector<std::string>& row = object->rows.emplace_back();
    row.reserve(numValues);
    for (std::size_t k = 0; k < numValues; ++k) in.append(row, in.blob());
    in.end();
  }
  return object.release();
}

template <class Object>
class LimitCodec {
public:
  explicit LimitCodec(const Object& source) : source_(source) {}

  std::size_t encode() {
    const std::size_t size = measure(source_);
    if (size > capacity_) {
      bytes_.reset(new char[size]);
      capacity_ = size;
    }
    Encoder out(bytes_.get());
    out.openFrame(size);
    encodeFields(out, source_);
    out.end();
    out.closeFrame();
    return size_ = size;
  }

  template <class Visitor>
  void decode(Visitor& visit) {
    Decoder in(bytes_.get(), size_);
    in.openFrame();
    const std::unique_ptr<const Object> object(decodeObject(in, source_));
    in.end();
    in.closeFrame();
    benchmark::DoNotOptimize(object.get());
    visitAll(*object, visit);
  }

protected:
  const Object& source_;
  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

/// Values in one vector, views into one copy of the frame.
struct FlatRows {
  std::unique_ptr<char[]> bytes;
  std::vector<std::string_view> values;
};

class FlatCodec : public LimitCodec<RowSet> {
public:
  using LimitCodec::LimitCodec;

  template <class Visitor>
  void decode(Visitor& visit) {
    const auto object = std::make_unique<FlatRows>();
    object->bytes.reset(new char[size_]);
    std::memcpy(object->bytes.get(), bytes_.get(), size_);
    Decoder in(object->bytes.get(), size_);
    in.openFrame();
    in.head(TypeCode::ResultSet);
    const std::size_t numRows = in.count(kHeadSize + kIntSize + 1);
    for (std::size_t i = 0; i < numRows; ++i) {
      in.head(TypeCode::Row);
      const std::size_t numValues = in.count(8);
      if (i == 0) object->values.reserve(numRows * numValues);
      for (std::size_t k = 0; k < numValues; ++k) object->values.push_back(in.blob());
      in.end();
    }
    in.end();
    in.closeFrame();
    benchmark::DoNotOptimize(object.get());
    for (const std::string_view value : object->values) visit(value);
  }
};

}  // namespace

void addLimit(Suite& suite) {
  suite.addAll<LimitCodec<ReadRecord>, LimitCodec<WriteRecord>, LimitCodec<KeyList>,
               LimitCodec<RowSet>>("limit");
  suite.add<FlatCodec>("W3", "flat", suite.data().w3);
  suite.add<FlatCodec>("W3x", "flat", suite.data().w3x);
}

}  // namespace nox::bench
