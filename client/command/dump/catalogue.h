// The factory that knows every message of the protocol, whoever sends it.
#pragma once

#include <nox/nox.h>

namespace nox::command {

/// Replies, requests of all three families, and the objects inside them. Code 0, which several
/// classes share, is DummyRequest here.
class CatalogueFactory : public ClientObjectFactory {
public:
  CatalogueFactory();
  Serializable* create() override { return newOrNull<CatalogueFactory>(); }

  /// The code of the class registered under `name`; -1 where there is none.
  int findType(std::string_view name);

private:
  void addAll(ObjectFactory&& other);
};

}  // namespace nox::command
