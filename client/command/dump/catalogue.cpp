#include "client/command/dump/catalogue.h"

#include <memory>

namespace nox::command {

CatalogueFactory::CatalogueFactory() {
  addAll(noxp::auth::AuthObjectFactory());
  addAll(noxp::sql::SQLObjectFactory());
  addAll(noxp::remote::RemoteObjectFactory());
  add<noxp::DummyRequestProt>("DummyRequest");
  add<noxp::remote::SelectListCommitRequestProt>("SelectListCommitRequest");
  add<noxp::remote::SelectListCloseRequestProt>("SelectListCloseRequest");
  add<noxp::common::LoggingRequestProt>("LoggingRequest");
  add<noxp::common::EchoRequestProt>("EchoRequest");
}

void CatalogueFactory::addAll(ObjectFactory&& other) {
  for (int type = 0; type < kCapacity; ++type) {
    const char* const name = other.getTypeName(type);
    if (!name || getTypeName(type)) continue;
    std::unique_ptr<Serializable> prototype(other.createObject(type));
    registerType(prototype.get(), name);
    prototype.release();
  }
}

int CatalogueFactory::findType(std::string_view name) {
  for (int type = 0; type < kCapacity; ++type) {
    const char* const registered = getTypeName(type);
    if (registered && name == registered) return type;
  }
  return -1;
}

}  // namespace nox::command
