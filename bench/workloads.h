// The data that every participant encodes and decodes, as plain owning objects.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nox::bench {

/// W1: a request with a number and two short texts (9 and 12 bytes).
struct ReadRecord {
  int mode = 0;
  std::string fileName;
  std::string recordId;
};

/// W2 and W2b: the same with a record of 200 bytes and of 64 KiB.
struct WriteRecord {
  int mode = 0;
  std::string fileName;
  std::string recordId;
  std::string record;
};

/// W4: 10,000 keys of 8 bytes.
struct KeyList {
  std::vector<std::string> keys;
};

/// W3 and W3x: 1,000 rows of 8 columns of 12 and of 24 bytes.
struct RowSet {
  std::vector<std::vector<std::string>> rows;
};

struct Workloads {
  ReadRecord w1;
  WriteRecord w2;
  WriteRecord w2b;
  KeyList w4;
  RowSet w3;
  RowSet w3x;
};

Workloads makeWorkloads();

// Hands every value to `visit`, in order.

template <class Visitor>
void visitAll(const ReadRecord& object, Visitor& visit) {
  visit(object.mode);
  visit(std::string_view(object.fileName));
  visit(std::string_view(object.recordId));
}

template <class Visitor>
void visitAll(const WriteRecord& object, Visitor& visit) {
  visit(object.mode);
  visit(std::string_view(object.fileName));
  visit(std::string_view(object.recordId));
  visit(std::string_view(object.record));
}

template <class Visitor>
void visitAll(const KeyList& object, Visitor& visit) {
  for (const std::string& key : object.keys) visit(std::string_view(key));
}

template <class Visitor>
void visitAll(const RowSet& object, Visitor& visit) {
  for (const auto& row : object.rows) {
    for (const std::string& value : row) visit(std::string_view(value));
  }
}

}  // namespace nox::bench
