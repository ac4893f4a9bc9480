#include "nox/auth/authentication.h"

#include "nox/core/binary_reader.h"
#include "nox/core/exceptions.h"
#include "nox/diag/file_loggers.h"
#include "nox/protocol/parameter_list.h"

namespace nox {
namespace noxp {

namespace {

[[noreturn]] void throwNoCredentials(int actual) {
  NOX_LOG(filelog::error) << "AuthenticationRequestProt::serialize(): expected type "
                          << static_cast<long>(TypeCode::LocalUserCredentials) << ", got "
                          << static_cast<long>(actual) << " throwing UnexpectedType" << EndLog();
  throw new UnexpectedType(actual, TypeCode::LocalUserCredentials);
}

/// The next object, which must be credentials; null for the null object.
std::unique_ptr<UserCredentials> readCredentials(BinaryReader& reader) {
  std::unique_ptr<Serializable> object(reader.readObject(nullptr));
  if (!object) return nullptr;
  auto* credentials = dynamic_cast<UserCredentials*>(object.get());
  if (!credentials) throwNoCredentials(object->getType());
  object.release();
  return std::unique_ptr<UserCredentials>(credentials);
}

}  // namespace

AuthenticationRequestProt::AuthenticationRequestProt(Adopted<UserCredentials> credentials)
    : credentials_(credentials.release()) {}

unsigned int AuthenticationRequestProt::getVersion() { return 1; }

Archive& AuthenticationRequestProt::serialize(Archive& ar, unsigned int /*version*/) {
  if (!ar.isWriting() && !credentials_) {
    if (auto* reader = dynamic_cast<BinaryReader*>(&ar)) {
      credentials_ = readCredentials(*reader);
      return ar;
    }
  }
  return ar & credentials_.get();
}

namespace auth {

AuthObjectFactory::AuthObjectFactory() {
  add<AuthenticationRequestProt>("AuthenticationRequest");
  // Deliberate: the name says less than the class.
  add<LocalUserCredentials>("UserCredentials");
  add<AccountUserCredentialsProt>("AccountUserCredentials");
  add<ACEBinaryFormatParameterListProt>("ACEBinaryFormatParameterListProt");
}

Serializable* AuthObjectFactory::create() {
  NOX_LOG(filelog::debug) << "AuthObjectFactory::create()" << EndLog();
  return newOrNull<AuthObjectFactory>();
}

}  // namespace auth
}  // namespace noxp
}  // namespace nox
