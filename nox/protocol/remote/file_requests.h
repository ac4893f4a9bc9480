// Requests about whole files: open, close, clear, select.
//
// Names are copied by every constructor; a null pointer gives an empty name. Nothing is checked
// here: the server decides what a name means. A selection is answered with a ToviResponseProt,
// whose list holds the keys.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::noxp::remote {

class NOX_EXPORT OpenFileRequestProt
    : public Request<OpenFileRequestProt, TypeCode::OpenFileRequest> {
public:
  OpenFileRequestProt() = default;
  OpenFileRequestProt(CopiedString fileName);
  OpenFileRequestProt(const OpenFileRequestProt& other) = default;
  /// A deep copy; of null, a default request.
  explicit OpenFileRequestProt(const OpenFileRequestProt* other);
  OpenFileRequestProt& operator=(const OpenFileRequestProt& other) = default;
  ~OpenFileRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }

  /// Shows the name in the debug log before and after it is processed.
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
};

class NOX_EXPORT CloseFileRequestProt
    : public Request<CloseFileRequestProt, TypeCode::CloseFileRequest> {
public:
  CloseFileRequestProt() = default;
  CloseFileRequestProt(CopiedString fileName);
  ~CloseFileRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
};

/// Deletes all records of a file.
class NOX_EXPORT ClearFileRequestProt
    : public Request<ClearFileRequestProt, TypeCode::ClearFileRequest> {
public:
  ClearFileRequestProt() = default;
  ClearFileRequestProt(CopiedString fileName);
  ~ClearFileRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
};

/// Asks for the keys of a file.
class NOX_EXPORT SelectFileRequestProt
    : public Request<SelectFileRequestProt, TypeCode::SelectFileRequest> {
public:
  SelectFileRequestProt() = default;
  SelectFileRequestProt(const char* fileName);
  ~SelectFileRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }

  /// Keeps `version` for getSerializedVersion(), when writing as well as when reading.
  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
};

}  // namespace nox::noxp::remote
