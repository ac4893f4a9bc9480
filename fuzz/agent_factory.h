// The factory of an agent that offers every service of the library.
#pragma once

#include <memory>

#include "fuzz/page.h"
#include "nox/auth/authentication.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/common_messages.h"
#include "nox/protocol/remote/remote_object_factory.h"
#include "nox/protocol/remote/select_list_requests.h"
#include "nox/protocol/sql/sql_object_factory.h"
#include "nox/protocol/status_replies.h"

namespace nox::fuzz {

class AgentFactory : public ObjectFactory {
public:
  AgentFactory() {
    noxp::auth::AuthObjectFactory auth;
    noxp::sql::SQLObjectFactory sql;
    noxp::remote::RemoteObjectFactory remote;
    for (ObjectFactory* service :
         {static_cast<ObjectFactory*>(&auth), static_cast<ObjectFactory*>(&sql),
          static_cast<ObjectFactory*>(&remote)}) {
      addAll(*service);
    }
    // What an agent registers itself.
    add<noxp::UnrecognizedRequestProt>("UnrecognizedRequest");
    add<noxp::common::EchoRequestProt>("EchoRequest");
    add<noxp::common::LoggingRequestProt>("LoggingRequest");
    add<noxp::remote::SelectListCommitRequestProt>("SelectListCommitRequest");
    add<noxp::remote::SelectListCloseRequestProt>("SelectListCloseRequest");
    add<Page>("HTTPRequest");
  }
  Serializable* create() override { return new AgentFactory; }

private:
  // Services share a few classes.
  void addAll(ObjectFactory& service) {
    for (int code = 0; code < kCapacity; ++code) {
      const char* const name = service.getTypeName(code);
      if (!name || getTypeName(code)) continue;
      std::unique_ptr<Serializable> prototype(service.createObject(code));
      registerType(prototype.get(), name);
      prototype.release();
    }
  }
};

}  // namespace nox::fuzz
