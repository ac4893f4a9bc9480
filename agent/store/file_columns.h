// The columns under which SQL sees a file, as its dictionary defines them.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace nox::agent {

/// An item of a dictionary that names an attribute of the record.
struct FileColumn {
  std::string name;
  std::size_t attribute = 0;  // 0: the id
  std::string conversion;     // for what SQL shows; empty: the value as it is stored
  bool numeric = false;       // compared as a number
  std::size_t width = 0;      // as it is listed; 0: not said

  bool operator==(const FileColumn& other) const {
    return name == other.name && attribute == other.attribute && conversion == other.conversion &&
           numeric == other.numeric && width == other.width;
  }
  bool operator!=(const FileColumn& other) const { return !(*this == other); }
};

struct FileColumns {
  /// The columns of the file's own view, besides the first, ID: by attribute, then by name. Names
  /// differ, also without regard to case.
  std::vector<FileColumn> single;
  /// Each has a view of its own.
  std::vector<FileColumn> multivalued;
};

/// Gathers the records of a dictionary, in the order of their ids; what defines no attribute is
/// passed over.
class FileColumnsReader {
public:
  void add(std::string_view id, std::string_view record);
  FileColumns finish();

private:
  FileColumns columns_;
};

/// Whether two names are the same to SQL, which takes ASCII letters without regard to case.
bool isSameSqlName(std::string_view a, std::string_view b);

}  // namespace nox::agent
