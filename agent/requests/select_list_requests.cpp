// Requests about select lists that are open on the server: fetch, commit, close.
#include <memory>

#include <nox/nox.h>

#include "agent/lists/select_lists.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"

namespace nox::agent {

namespace remote = noxp::remote;

namespace {

void fetch(Session& session, remote::SelectListFetchRequestProt& request, Reply& reply) {
  SelectLists& lists = session.lists();
  // Before the commit: a request that is refused changes nothing.
  lists.checkFetch(request.getSelectListId(), request.getFetchDirection());
  if (remote::SelectListProt* const modified = request.getModifiedSelectList())
    lists.commit(*modified);
  reply.send(remote::SelectListFetchResponseProt(
      lists
          .fetch(request.getSelectListId(), request.getFetchDirection(), request.getFetchSize(),
                 request.getFetchData())
          .release()));
}

void commit(Session& session, remote::SelectListCommitRequestProt& request, Reply& reply) {
  if (remote::SelectListProt* const modified = request.getModifiedSelectList()) {
    session.lists().commit(*modified);
  }
  reply.send(OKResponseProt());
}

void close(Session& session, remote::SelectListCloseRequestProt& request, Reply& reply) {
  session.lists().close(request.getSelectListId());
  reply.send(OKResponseProt());
}

}  // namespace

void registerSelectListRequests(Dispatcher& dispatcher) {
  dispatcher.on<remote::SelectListFetchRequestProt>("SelectListFetch", fetch);
  dispatcher.on<remote::SelectListCommitRequestProt>("SelectListCommit", commit);
  dispatcher.on<remote::SelectListCloseRequestProt>("SelectListClose", close);
}

}  // namespace nox::agent
