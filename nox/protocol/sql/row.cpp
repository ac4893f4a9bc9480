#include "nox/protocol/sql/row.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <string>
#include <typeinfo>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/binary_format.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/copy_bytes.h"
#include "nox/protocol/sql/result_set.h"

namespace nox::noxp::sql {

namespace {

std::string_view bytesOf(const NOXPBlob* blob) {
  return blob ? std::string_view(reinterpret_cast<const char*>(blob->getBuf()), blob->length())
              : std::string_view();
}

int countOf(NOXPBlob* const* blobs) {
  int count = 0;
  while (blobs[count]) ++count;
  return count;
}

/// The blobs in the block that an array of `count` entries and its null begin.
NOXPBlob* behind(NOXPBlob** array, int count) {
  return reinterpret_cast<NOXPBlob*>(array + count + 1);
}

}  // namespace

RowProt::RowProt(NOXPBlob* value) {
  RsmdConstructor(
      new NOXPBlob* [2] { value, nullptr }, nullptr);
}

RowProt::RowProt(NOXPBlob** data, ResultSetProt* resultSet) : resultSet_(resultSet) {
  RsmdConstructor(data, nullptr);
}

RowProt::RowProt(NOXPBlob** data, ResultSetMetaDataProt* metaData) {
  RsmdConstructor(data, metaData);
}

void RowProt::RsmdConstructor(NOXPBlob** data, ResultSetMetaDataProt* metaData) {
  blobs_.adopt(data);
  metaData_ = metaData;
}

RowProt::~RowProt() = default;

void RowProt::Blobs::adopt(NOXPBlob** array) {
  reset();
  array_ = array;
  handOut();
}

void RowProt::Blobs::make(const RowProt& row) {
  const auto count = static_cast<std::size_t>(row.count_);
  const std::size_t arraySize = (count + 1) * sizeof(NOXPBlob*);
  static_assert(alignof(NOXPBlob) <= alignof(NOXPBlob*));
  const std::size_t size = arraySize + count * sizeof(NOXPBlob);
  // A row whose values lie in its set lives no longer than that: its blobs may lie there, too.
  void* const inSet =
      row.resultSet_ && row.valuesAreElsewhere() ? row.resultSet_->blobRoom(size) : nullptr;
  auto** const array = static_cast<NOXPBlob**>(inSet ? inSet : ::operator new(size));
  auto* blob = behind(array, row.count_);
  for (std::size_t i = 0; i < count; ++i) {
    const std::string_view value = row.getColumnView(static_cast<int>(i));
    array[i] = new (blob++) NOXPBlob(value.data(), value.size());
  }
  array[count] = nullptr;
  array_ = array;
  inBlock_ = row.count_;
  blockIsTheSets_ = inSet != nullptr;
}

void RowProt::Blobs::reset() {
  if (!array_) return;
  if (inBlock_ >= 0) {
    // Whatever became of the array's entries outside.
    NOXPBlob* const blobs = behind(array_, inBlock_);
    for (int i = 0; i < inBlock_; ++i) blobs[i].~NOXPBlob();
    if (!blockIsTheSets_) ::operator delete(array_);
  } else {
    for (NOXPBlob** blob = array_; *blob; ++blob) delete *blob;
    delete[] array_;
  }
  array_ = nullptr;
  inBlock_ = -1;
  blockIsTheSets_ = false;
  handedOut_ = false;
}

void RowProt::clear() {
  blobs_.reset();
  encoded_ = nullptr;
  encodedSize_ = 0;
  count_ = -1;
  nextColumn_ = 0;
  nextOffset_ = 0;
  frame_.reset();
}

int RowProt::getNumberOfFields() const {
  if (blobs_.handedOut()) return countOf(blobs_.get());
  return count_ < 0 ? 0 : count_;
}

std::string_view RowProt::lookUp(int i) const {
  if (i < 0 || i >= getNumberOfFields()) return {};
  if (blobs_) return bytesOf(blobs_.get()[i]);
  if (i < nextColumn_) {
    nextColumn_ = 0;
    nextOffset_ = 0;
  }
  while (nextColumn_ < i) getColumnView(nextColumn_);
  return getColumnView(i);
}

NOXPBlob** RowProt::getData() const {
  if (!blobs_ && count_ >= 0) blobs_.make(*this);
  return blobs_.handOut();
}

NOXPBlob* RowProt::getColumnValue(int i) {
  if (i < 0 || i >= getNumberOfFields()) return nullptr;
  if (!blobs_) blobs_.make(*this);
  return blobs_.get()[i];
}

NOXPBlob* RowProt::getColumnValue(const char* name) {
  const ResultSetMetaDataProt* metaData = metaData_;
  if (!metaData && resultSet_) metaData = resultSet_->getMetaData();
  return metaData ? getColumnValue(metaData->findColumnByName(name)) : nullptr;
}

/// Back to the encoded form, which can grow.
void RowProt::encodeBlobs() {
  RowProt encoded;
  encoded.count_ = 0;
  for (NOXPBlob** blob = blobs_.get(); *blob; ++blob) encoded.addColumnValue(bytesOf(*blob));
  clear();
  own_ = std::move(encoded.own_);
  ownSize_ = encoded.ownSize_;
  encoded_ = encoded.encoded_;
  encodedSize_ = encoded.encodedSize_;
  count_ = encoded.count_;
}

/// Room for `n` more encoded bytes, in the row's own block.
char* RowProt::room(std::size_t n) {
  constexpr std::size_t kSmallestBlock = 112;
  const std::size_t needed = encodedSize_ + n;
  if (needed > std::numeric_limits<std::uint32_t>::max()) throw std::bad_alloc();
  const bool atHome = encodedSize_ == 0 || encoded_ == own_.get();  // not in a frame or a set
  if (!atHome || needed > ownSize_) {
    const std::size_t size =
        std::min<std::size_t>(std::max({needed, 2 * std::size_t{ownSize_}, kSmallestBlock}),
                              std::numeric_limits<std::uint32_t>::max());
    std::unique_ptr<char, Free> block(static_cast<char*>(std::malloc(size)));
    if (!block) throw std::bad_alloc();
    if (encodedSize_ > 0) std::memcpy(block.get(), encoded_, encodedSize_);
    own_ = std::move(block);
    ownSize_ = static_cast<std::uint32_t>(size);
  }
  encoded_ = own_.get();
  return own_.get() + encodedSize_;
}

bool RowProt::copyTo(BinaryWriter& writer) {
  if (blobs_ || count_ < 0 || typeid(*this) != typeid(RowProt)) return false;
  writer.writeObject(TypeCode::Row, getClassVersion(), count_, {encoded_, encodedSize_});
  return true;
}

void RowProt::moveValuesTo(char* place) {
  std::memcpy(place, encoded_, encodedSize_);
  encoded_ = place;
  own_.reset();
  ownSize_ = 0;
}

void RowProt::addColumnValue(std::string_view value) {
  const std::less<const char*> before;
  if (own_ && !before(value.data(), own_.get()) && before(value.data(), own_.get() + ownSize_)) {
    return addColumnValue(std::string(value));  // about to move with the block it lies in
  }
  if (blobs_) {
    const std::string kept(value);  // it may lie in one of the blobs
    encodeBlobs();
    return addColumnValue(kept);
  }
  const std::size_t size = kValueHead + value.size() + kValueTail;
  char* const to = room(size);
  to[0] = kBlobPrefix;
  to[1] = kByteArrayPrefix;
  storeBigEndian32(to + 2, static_cast<std::uint32_t>(value.size()));
  copyBytes(to + kValueHead, value.data(), value.size());
  to[kValueHead + value.size()] = kEndOfEntity;
  to[kValueHead + value.size() + 1] = kEndOfEntity;
  encodedSize_ += static_cast<std::uint32_t>(size);
  count_ = count_ < 0 ? 1 : count_ + 1;
}

// Deliberate: values are written without a name and read under one.
Archive& RowProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting()) {
    clear();
    int count = 0;
    ar.process(count, "numberOfFields");
    count_ = 0;
    readFields(ar, count);
    return ar;
  }
  if (blobs_) {
    int count = countOf(blobs_.get());
    ar.process(count, "numberOfFields");
    for (NOXPBlob** blob = blobs_.get(); *blob; ++blob) ar&* blob;
  } else if (count_ >= 0) {
    ar.process(count_, "numberOfFields");
    if (BinaryWriter* const writer = BinaryWriter::behind(ar)) {
      writer->writeEncoded({encoded_, encodedSize_});
      return ar;
    }
    for (int i = 0; i < count_; ++i) {
      const std::string_view value = getColumnView(i);
      NOXPBlob blob(value.data(), value.size());
      ar.process(&blob, nullptr);
    }
  }
  return ar;
}

/// The count is only a claim: values are kept as they come, where they came if that is a frame.
void RowProt::readFields(Archive& ar, int count) {
  Reader* const source = ar.getReader();
  BinaryReader* reader = resultSet_ ? resultSet_->frameReader() : nullptr;
  const bool inSet = reader && reader == source;
  if (!inSet) reader = BinaryReader::behind(ar);
  if (reader) {
    const std::string_view encoded = reader->takeBlobsInPlace(count, count_);
    encoded_ = encoded.data();
    encodedSize_ = static_cast<std::uint32_t>(encoded.size());
    if (!inSet && count_ > 0) frame_ = reader->shareFrame();
  }
  while (count_ < count) {
    NOXPBlob value;
    ar.process(&value, "ColumnData");
    addColumnValue(bytesOf(&value));
  }
}

}  // namespace nox::noxp::sql
