#include "nox/protocol/remote/select_list_requests.h"

#include <utility>

#include "nox/core/archive.h"

namespace nox::noxp::remote {

SelectListFetchRequestProt::SelectListFetchRequestProt() {
  modified_.emplaceEmpty();
  serverSide = true;
}

SelectListFetchRequestProt::SelectListFetchRequestProt(int selectListId, int fetchDirection,
                                                       unsigned long fetchSize, bool fetchData,
                                                       Borrowed<SelectListProt> modified)
    : selectListId_(selectListId),
      fetchDirection_(fetchDirection),
      fetchSize_(static_cast<unsigned int>(fetchSize)),
      fetchData_(fetchData),
      modified_(modified) {}

SelectListFetchRequestProt::SelectListFetchRequestProt(const SelectListFetchRequestProt& other)
    : Request<SelectListFetchRequestProt, TypeCode::SelectListFetchRequest>(other),
      selectListId_(other.selectListId_),
      fetchDirection_(other.fetchDirection_),
      fetchSize_(other.fetchSize_),
      fetchData_(other.fetchData_),
      modified_(other.modified_) {
  serverSide = true;
}

SelectListFetchRequestProt& SelectListFetchRequestProt::operator=(
    const SelectListFetchRequestProt& other) {
  if (this == &other) return *this;
  MaybeOwned<SelectListProt> modified(other.modified_);
  RequestProt::operator=(other);
  selectListId_ = other.selectListId_;
  fetchDirection_ = other.fetchDirection_;
  fetchSize_ = other.fetchSize_;
  fetchData_ = other.fetchData_;
  modified_ = std::move(modified);
  serverSide = true;
  return *this;
}

Archive& SelectListFetchRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  int fetchSize = static_cast<int>(fetchSize_);
  int fetchData = fetchData_ ? 1 : 0;
  ar.process(selectListId_, "selectListId")
      .process(fetchDirection_, "fetchDirection")
      .process(fetchSize, "fetchSize")
      .process(fetchData, "fetchData");
  fetchSize_ = static_cast<unsigned int>(fetchSize);
  fetchData_ = fetchData == 1;
  return ar.process(modified_, "modifiedSelectList");
}

SelectListCommitRequestProt::SelectListCommitRequestProt() {
  modified_.emplaceEmpty();
  serverSide = true;
}

SelectListCommitRequestProt::SelectListCommitRequestProt(Borrowed<SelectListProt> modified)
    : modified_(modified) {}

SelectListCommitRequestProt::SelectListCommitRequestProt(const SelectListCommitRequestProt& other)
    : Request<SelectListCommitRequestProt, TypeCode::SelectListCommitRequest>(other),
      modified_(other.modified_) {
  serverSide = true;
}

SelectListCommitRequestProt& SelectListCommitRequestProt::operator=(
    const SelectListCommitRequestProt& other) {
  if (this == &other) return *this;
  MaybeOwned<SelectListProt> modified(other.modified_);
  RequestProt::operator=(other);
  modified_ = std::move(modified);
  serverSide = true;
  return *this;
}

Archive& SelectListCommitRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(modified_, "modifiedSelectList");
}

SelectListCloseRequestProt::SelectListCloseRequestProt() { serverSide = true; }

SelectListCloseRequestProt::SelectListCloseRequestProt(int selectListId)
    : selectListId_(selectListId) {}

Archive& SelectListCloseRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(selectListId_, "selectListId");
}

SelectListFetchResponseProt::SelectListFetchResponseProt(Adopted<SelectListProt> list)
    : list_(std::move(list)) {}

Archive& SelectListFetchResponseProt::serialize(Archive& ar, unsigned int /*version*/) {
  return ar.process(list_, "selectList");
}

}  // namespace nox::noxp::remote
