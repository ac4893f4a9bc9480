#include "client/src/record_requests.h"

namespace nox::client::detail {

int readMode(Lock lock, Wait wait) {
  constexpr int kDoNotWait = 4;
  const int mode = lock == Lock::None ? 0 : lock == Lock::Shared ? 1 : 2;
  return lock != Lock::None && wait == Wait::No ? mode + kDoNotWait : mode;
}

void fill(noxp::remote::WriteRecordRequestProt& request, std::string_view file, std::string_view id,
          const Record& record) {
  fill<noxp::remote::WriteRecordRequestProt>(request, file, id);
  put(request.getRecord(), record.bytes());
}

std::optional<Status> statusOf(const noxp::remote::ToviResponseProt& answer) {
  switch (answer.getStatus()) {
    case 0:
      return Status::Done;
    case 1:
      return Status::NotDone;
    case 2:
      return Status::Locked;
    default:
      return std::nullopt;
  }
}

Record recordOf(const noxp::remote::ToviResponseProt& answer) {
  return Record(bytesOf(answer.getRecord()));
}

}  // namespace nox::client::detail
