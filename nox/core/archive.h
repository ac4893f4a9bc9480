// The field-by-field channel between an object and whatever reads or writes it.
#pragma once

#include <string>

#include "nox/core/export.h"
#include "nox/core/owned.h"
#include "nox/core/serializable.h"

namespace nox {

class Reader;
class Writer;

/// Takes an object's fields one by one, in wire order. The binary forms ignore the names, the XML
/// form shows them; null counts as an empty name. A subclass needs just the five `process` of
/// pointers and references; it adds `using Archive::process;` to keep the ones for owned fields.
class NOX_EXPORT Archive {
public:
  Archive() = default;
  Archive(const Archive&) = default;
  Archive& operator=(const Archive&) = default;

  virtual ~Archive();
  virtual Archive& process(NOXPBlob* value, const char* name) = 0;
  virtual Archive& process(NOXPString* value, const char* name) = 0;
  virtual Archive& process(std::string& value, const char* name) = 0;
  virtual Archive& process(int& value, const char* name) = 0;
  virtual Archive& process(Serializable* value, const char* name) = 0;
  virtual bool isWriting();
  virtual Writer* getWriter();
  virtual Reader* getReader();

  /// A field that owns its object. An absent one is filled with an empty object before it is read,
  /// here and nowhere else, so that no reader meets a null to write through.
  template <class T>
  Archive& process(Owned<T>& field, const char* name) {
    if (!field && !isWriting()) field.emplaceEmpty();
    return process(field.get(), name);
  }
  template <class T>
  Archive& process(MaybeOwned<T>& field, const char* name) {
    if (!field && !isWriting()) field.emplaceEmpty();
    return process(static_cast<Serializable*>(field.get()), name);
  }

  // Fields without a name.
  Archive& operator&(int& value) { return process(value, nullptr); }
  Archive& operator&(std::string& value) { return process(value, nullptr); }
  Archive& operator&(Serializable* value) { return process(value, nullptr); }
  Archive& operator&(NOXPString* value) { return process(value, nullptr); }
  Archive& operator&(NOXPBlob* value) { return process(value, nullptr); }
};

/// An archive that fills fields. Texts and blobs it does not support stay as they are, with one log
/// line each.
class NOX_EXPORT Reader : public Archive {
public:
  using Archive::process;
  ~Reader() override;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(std::string& value, const char* name) override;
  Archive& process(int& value, const char* name) override = 0;
  Archive& process(Serializable* value, const char* name) override = 0;
  bool isWriting() override;
  Writer* getWriter() override;
  Reader* getReader() override;
};

/// An archive that emits fields. Texts and blobs it does not support are left out, with one log
/// line each.
class NOX_EXPORT Writer : public Archive {
public:
  using Archive::process;
  ~Writer() override;
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(std::string& value, const char* name) override;
  Archive& process(int& value, const char* name) override = 0;
  Archive& process(Serializable* value, const char* name) override = 0;
  bool isWriting() override;
  Writer* getWriter() override;
  Reader* getReader() override;
};

}  // namespace nox
