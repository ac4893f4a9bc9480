// Archives that show what a `serialize` body passes, with its names.
#pragma once

#include <string>
#include <vector>

#include "nox/core/archive.h"

namespace nox::test {

/// A writing archive that notes one line per field: `int name=5`, `text name=abc` (std::string),
/// `string name=abc` (NOXPString), `blob name=41 42`, `object name=type 404 version 0` followed by
/// the object's own fields and `end`. A null pointer shows as `null`, a null name as `-`.
class RecordingWriter : public Writer {
public:
  using Writer::process;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(std::string& value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(Serializable* value, const char* name) override;

  const std::vector<std::string>& lines() const { return lines_; }

private:
  void note(const char* kind, const char* name, const std::string& value);
  std::vector<std::string> lines_;
};

/// A reading archive that leaves every field as it is and notes `int name`, `text name`,
/// `string name`, `blob name` and `object name`, with ` null` behind a null pointer.
class RecordingReader : public Reader {
public:
  using Reader::process;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(std::string& value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(Serializable* value, const char* name) override;

  /// What every int field is set to when it is not negative; for counts.
  void setInt(int value) { int_ = value; }
  const std::vector<std::string>& lines() const { return lines_; }

private:
  void note(const char* kind, const char* name, bool null);
  int int_ = -1;
  std::vector<std::string> lines_;
};

/// The fields of `object` as it writes itself with `version`.
std::vector<std::string> fieldsOf(Serializable& object, unsigned int version = 0);

}  // namespace nox::test
