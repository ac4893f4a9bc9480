// The messages that move select lists: fetch a chunk, commit changed records, close.
//
// A client's fetch and commit borrow the list that they are given; one that is read into owns its
// list. A copy of either owns a copy of the list.
#pragma once

#include "nox/core/owned.h"
#include "nox/protocol/message.h"
#include "nox/protocol/remote/select_list.h"

namespace nox::noxp::remote {

/// Asks for the next chunk of a list; answered by SelectListFetchResponseProt. `fetchDirection` is
/// the server's to interpret.
class NOX_EXPORT SelectListFetchRequestProt
    : public Request<SelectListFetchRequestProt, TypeCode::SelectListFetchRequest> {
public:
  SelectListFetchRequestProt();
  /// `fetchSize` is cut to 32 bits. `modified`, whose changed records are committed first, may be
  /// null.
  SelectListFetchRequestProt(int selectListId, int fetchDirection, unsigned long fetchSize,
                             bool fetchData, Borrowed<SelectListProt> modified);
  SelectListFetchRequestProt(const SelectListFetchRequestProt& other);
  SelectListFetchRequestProt& operator=(const SelectListFetchRequestProt& other);

  int getSelectListId() const { return selectListId_; }
  int getFetchDirection() const { return fetchDirection_; }
  unsigned long getFetchSize() const { return fetchSize_; }
  bool getFetchData() const { return fetchData_; }
  SelectListProt* getModifiedSelectList() const { return modified_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int selectListId_ = -1;
  int fetchDirection_ = 1;
  unsigned int fetchSize_ = 1000;
  bool fetchData_ = false;
  MaybeOwned<SelectListProt> modified_;
};

/// Writes the changed records of a list back; in no factory of the library.
class NOX_EXPORT SelectListCommitRequestProt
    : public Request<SelectListCommitRequestProt, TypeCode::SelectListCommitRequest> {
public:
  SelectListCommitRequestProt();
  SelectListCommitRequestProt(Borrowed<SelectListProt> modified);
  SelectListCommitRequestProt(const SelectListCommitRequestProt& other);
  SelectListCommitRequestProt& operator=(const SelectListCommitRequestProt& other);

  SelectListProt* getModifiedSelectList() const { return modified_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  MaybeOwned<SelectListProt> modified_;
};

/// Lets go of a list on the server; in no factory of the library.
class NOX_EXPORT SelectListCloseRequestProt
    : public Request<SelectListCloseRequestProt, TypeCode::SelectListCloseRequest> {
public:
  SelectListCloseRequestProt();
  SelectListCloseRequestProt(int selectListId);

  int getSelectListId() const { return selectListId_; }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  int selectListId_ = -1;
};

/// The chunk that was asked for.
class NOX_EXPORT SelectListFetchResponseProt
    : public Response<SelectListFetchResponseProt, TypeCode::SelectListFetchResponse> {
public:
  SelectListFetchResponseProt() = default;
  SelectListFetchResponseProt(Adopted<SelectListProt> list);

  SelectListProt* getSelectList() const { return list_.get(); }

  Archive& serialize(Archive& ar, unsigned int version) override;

private:
  Owned<SelectListProt> list_ = nullptr;
};

}  // namespace nox::noxp::remote
