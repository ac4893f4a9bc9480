// Requests about whole files: open, close, clear, select.
#include <memory>
#include <string>
#include <utility>

#include <nox/nox.h>

#include "agent/failure.h"
#include "agent/lists/select_lists.h"
#include "agent/names.h"
#include "agent/requests/fields.h"
#include "agent/session/data_access.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace remote = noxp::remote;

namespace {

void openFile(Session& session, remote::OpenFileRequestProt& request, Reply& reply) {
  session.data().open(textOf(request.getFileName()));
  reply.send(OKResponseProt());
}

/// The agent keeps nothing for an open file.
void closeFile(Session& /*session*/, remote::CloseFileRequestProt& /*request*/, Reply& reply) {
  reply.send(OKResponseProt());
}

void clearFile(Session& session, remote::ClearFileRequestProt& request, Reply& reply) {
  session.data().clear(textOf(request.getFileName()));
  reply.send(OKResponseProt());
}

/// All keys of a file at once, for a client that does not know how to fetch more.
std::unique_ptr<remote::SelectListProt> wholeList(RecordCursor& cursor, std::size_t frame) {
  // What a key costs on the wire besides its text, and what is around the list, at most.
  constexpr std::size_t kKeyBytes = 4;
  constexpr std::size_t kFrameBytes = 512;
  std::string keys;
  std::size_t bytes = kFrameBytes;
  while (cursor.next()) {
    bytes += kKeyBytes + cursor.key().size();
    if (bytes > frame) {
      throw Failure("IE", "007", "the file has more keys than one reply may hold");
    }
    keys += cursor.key();
    keys += static_cast<char>(remote::kAttributeMark);
  }
  const NOXPBlob joined(keys.data(), keys.size());
  return std::make_unique<remote::SelectListProt>(&joined);
}

SelectedKeys selectedKeys(RecordCursor& cursor, FilePart file) {
  SelectedKeys selected;
  selected.file = std::move(file);
  while (cursor.next()) selected.keys.add(cursor.key());
  return selected;
}

void selectFile(Session& session, remote::SelectFileRequestProt& request, Reply& reply) {
  // Later ones know lists that stay open on the server.
  constexpr unsigned int kVersionWithoutFetch = 0;
  FilePart file = parseFilePart(textOf(request.getFileName()), "IE", "007");
  const bool fetches = request.getSerializedVersion() != kVersionWithoutFetch;
  if (fetches) session.lists().requireRoom();
  std::unique_ptr<remote::SelectListProt> list;
  try {
    const std::unique_ptr<RecordCursor> cursor = session.data().scan(file, false);
    list = fetches ? session.lists().firstChunk(
                         session.lists().open(selectedKeys(*cursor, std::move(file))))
                   : wholeList(*cursor, session.frameCap());
  } catch (const StoreError& error) {
    throwAsFailure(error, "IE", "007");
  }
  reply.send(remote::ToviResponseProt(DataAccess::Done, nullptr, list.release()));
}

}  // namespace

void registerFileRequests(Dispatcher& dispatcher) {
  dispatcher.on<remote::OpenFileRequestProt>("OpenFile", openFile);
  dispatcher.on<remote::CloseFileRequestProt>("CloseFile", closeFile);
  dispatcher.on<remote::ClearFileRequestProt>("ClearFile", clearFile);
  dispatcher.on<remote::SelectFileRequestProt>("SelectFile", selectFile);
}

}  // namespace nox::agent
