// Requests about single records: read, write, delete, test, unlock, and the named common values.
//
// Every constructor copies its arguments; a null pointer gives an empty field. The mode integers
// are the server's to interpret, and nothing is checked here. Reading is answered with a
// ToviResponseProt, a common value with a ReadCommonResponseProt.
#pragma once

#include "nox/core/archive.h"
#include "nox/core/owned.h"
#include "nox/protocol/message.h"

namespace nox::noxp::remote {

class NOX_EXPORT ReadRecordRequestProt
    : public Request<ReadRecordRequestProt, TypeCode::ReadRecordRequest> {
public:
  ReadRecordRequestProt() = default;
  ReadRecordRequestProt(int readMode, CopiedString fileName, CopiedString recordId);
  ~ReadRecordRequestProt() override;

  int getReadMode() const { return readMode_; }
  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int readMode_ = 0;
  OwnedString fileName_{""};
  OwnedString recordId_{""};
};

/// Stores a record. The body travels as raw bytes; given as a C string it ends at its first NUL.
class NOX_EXPORT WriteRecordRequestProt
    : public Request<WriteRecordRequestProt, TypeCode::WriteRecordRequest> {
public:
  WriteRecordRequestProt() = default;
  WriteRecordRequestProt(int writeMode, CopiedString fileName, CopiedString recordId,
                         CopiedBlob record);
  WriteRecordRequestProt(const WriteRecordRequestProt&) = delete;
  WriteRecordRequestProt& operator=(const WriteRecordRequestProt&) = delete;
  ~WriteRecordRequestProt() override;

  int getWriteMode() const { return writeMode_; }
  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }
  NOXPBlob* getRecord() const { return record_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int writeMode_ = 0;
  OwnedString fileName_{""};
  OwnedString recordId_{""};
  OwnedBlob record_{""};
};

class NOX_EXPORT DeleteRecordRequestProt
    : public Request<DeleteRecordRequestProt, TypeCode::DeleteRecordRequest> {
public:
  DeleteRecordRequestProt() = default;
  DeleteRecordRequestProt(CopiedString fileName, CopiedString recordId);
  ~DeleteRecordRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
  OwnedString recordId_{""};
};

class NOX_EXPORT ExistsRecordRequestProt
    : public Request<ExistsRecordRequestProt, TypeCode::ExistsRecordRequest> {
public:
  ExistsRecordRequestProt() = default;
  ExistsRecordRequestProt(CopiedString fileName, CopiedString recordId);
  ~ExistsRecordRequestProt() override;

  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString fileName_{""};
  OwnedString recordId_{""};
};

class NOX_EXPORT ReleaseRecordLockRequestProt
    : public Request<ReleaseRecordLockRequestProt, TypeCode::ReleaseRecordLockRequest> {
public:
  ReleaseRecordLockRequestProt() = default;
  ReleaseRecordLockRequestProt(int lockMode, CopiedString fileName, CopiedString recordId);
  ~ReleaseRecordLockRequestProt() override;

  int getLockMode() const { return lockMode_; }
  NOXPString* getFileName() const { return fileName_.get(); }
  NOXPString* getRecordId() const { return recordId_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int lockMode_ = 0;
  OwnedString fileName_{""};
  OwnedString recordId_{""};
};

/// Asks for a value that the server's programs share under a name.
class NOX_EXPORT ReadCommonRequestProt
    : public Request<ReadCommonRequestProt, TypeCode::ReadCommonRequest> {
public:
  ReadCommonRequestProt() = default;
  ReadCommonRequestProt(CopiedString name);
  ReadCommonRequestProt(const ReadCommonRequestProt& other) = default;
  /// A deep copy; of null, a default request.
  explicit ReadCommonRequestProt(const ReadCommonRequestProt* other);
  ReadCommonRequestProt& operator=(const ReadCommonRequestProt& other) = default;

  NOXPString* getName() const { return name_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  OwnedString name_{""};
};

}  // namespace nox::noxp::remote
