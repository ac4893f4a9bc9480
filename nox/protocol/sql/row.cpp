#include "nox/protocol/sql/row.h"

#include <typeinfo>
#include <utility>

#include "nox/core/archive.h"
#include "nox/core/big_endian.h"
#include "nox/core/binary_format.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/protocol/sql/result_set.h"

namespace nox::noxp::sql {

namespace {

// An encoded value: 'j', 'b', 4 bytes of length, the bytes, ';' twice.
constexpr std::size_t kValueHead = 6;
constexpr std::size_t kValueTail = 2;

std::string_view bytesOf(const NOXPBlob* blob) {
  return blob ? std::string_view(reinterpret_cast<const char*>(blob->getBuf()), blob->length())
              : std::string_view();
}

int countOf(NOXPBlob* const* blobs) {
  int count = 0;
  while (blobs[count]) ++count;
  return count;
}

}  // namespace

RowProt::RowProt(NOXPBlob* value) : blobs_(new NOXPBlob* [2] { value, nullptr }) {}

RowProt::RowProt(NOXPBlob** data, ResultSetProt* resultSet) : resultSet_(resultSet) {
  RsmdConstructor(data, nullptr);
}

RowProt::RowProt(NOXPBlob** data, ResultSetMetaDataProt* metaData) {
  RsmdConstructor(data, metaData);
}

void RowProt::RsmdConstructor(NOXPBlob** data, ResultSetMetaDataProt* metaData) {
  blobs_.reset(data);
  metaData_ = metaData;
}

RowProt::~RowProt() { clear(); }

void RowProt::clear() {
  if (blobs_) {
    for (NOXPBlob** blob = blobs_.get(); *blob; ++blob) delete *blob;
    blobs_.reset();
  }
  encoded_ = nullptr;
  encodedSize_ = 0;
  count_ = -1;
  cursor_ = 0;
  cursorOffset_ = 0;
  own_.clear();
  frame_.reset();
}

std::string_view RowProt::valueAt(std::size_t offset) const {
  const char* const head = encoded_ + offset;
  return {head + kValueHead, static_cast<std::uint32_t>(loadBigEndian32(head + 2))};
}

int RowProt::getNumberOfFields() const {
  if (blobs_) return countOf(blobs_.get());
  return count_ < 0 ? 0 : count_;
}

std::string_view RowProt::getColumnView(int i) const {
  if (i < 0 || i >= getNumberOfFields()) return {};
  if (blobs_) return bytesOf(blobs_[i]);
  if (i < cursor_) {
    cursor_ = 0;
    cursorOffset_ = 0;
  }
  std::string_view value = valueAt(cursorOffset_);
  for (; cursor_ < i; ++cursor_) {
    cursorOffset_ += kValueHead + value.size() + kValueTail;
    value = valueAt(cursorOffset_);
  }
  return value;
}

void RowProt::makeBlobs() const {
  std::unique_ptr<NOXPBlob*[]> blobs(new NOXPBlob*[static_cast<std::size_t>(count_) + 1]());
  try {
    for (int i = 0; i < count_; ++i) {
      const std::string_view value = getColumnView(i);
      blobs[i] = new NOXPBlob(value.data(), value.size());
    }
  } catch (...) {
    for (int i = 0; blobs[i]; ++i) delete blobs[i];
    throw;
  }
  blobs_ = std::move(blobs);
}

/// Back to the encoded form, which can grow.
void RowProt::encodeBlobs() {
  RowProt encoded;
  encoded.count_ = 0;
  for (NOXPBlob** blob = blobs_.get(); *blob; ++blob) encoded.addColumnValue(bytesOf(*blob));
  clear();
  own_ = std::move(encoded.own_);
  count_ = encoded.count_;
}

NOXPBlob** RowProt::getData() const {
  if (!blobs_ && count_ >= 0) makeBlobs();
  return blobs_.get();
}

NOXPBlob* RowProt::getColumnValue(int i) {
  return i >= 0 && i < getNumberOfFields() ? getData()[i] : nullptr;
}

NOXPBlob* RowProt::getColumnValue(const char* name) {
  const ResultSetMetaDataProt* metaData = metaData_;
  if (!metaData && resultSet_) metaData = resultSet_->getMetaData();
  return metaData ? getColumnValue(metaData->findColumnByName(name)) : nullptr;
}

void RowProt::addColumnValue(std::string_view value) {
  const char* const ownEnd = own_.data() + own_.size();
  if (value.data() >= own_.data() && value.data() < ownEnd) {
    return addColumnValue(std::string(value));  // about to move with the text it lies in
  }
  if (blobs_) {
    encodeBlobs();
  } else if (count_ < 0) {
    count_ = 0;
  } else if (encodedSize_ > 0 && encoded_ != own_.data()) {
    own_.assign(encoded_, encodedSize_);
  }
  const std::size_t begin = own_.size();
  own_.resize(begin + kValueHead);
  char* const head = own_.data() + begin;
  head[0] = kBlobPrefix;
  head[1] = kByteArrayPrefix;
  storeBigEndian32(head + 2, static_cast<std::uint32_t>(value.size()));
  own_.append(value);
  own_.append(kValueTail, kEndOfEntity);
  encoded_ = own_.data();
  encodedSize_ = own_.size();
  ++count_;
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
    Writer* const writer = ar.getWriter();
    if (writer && typeid(*writer) == typeid(BinaryWriter)) {
      static_cast<BinaryWriter*>(writer)->writeEncoded({encoded_, encodedSize_});
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
  if (!inSet) reader = dynamic_cast<BinaryReader*>(source);
  if (reader) {
    const std::string_view encoded = reader->takeBlobsInPlace(count, count_);
    encoded_ = encoded.data();
    encodedSize_ = encoded.size();
    if (!inSet && count_ > 0) frame_ = reader->shareFrame();
  }
  while (count_ < count) {
    NOXPBlob value;
    ar.process(&value, "ColumnData");
    addColumnValue(bytesOf(&value));
  }
}

}  // namespace nox::noxp::sql
