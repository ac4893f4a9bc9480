// The registry that turns a type code into an empty object.
#pragma once

#include <array>
#include <memory>

#include "nox/core/serializable.h"

namespace nox {

/// Holds one prototype per type code. A service's factory registers its classes in its constructor
/// and overrides `create`; afterwards the factory is read-only and may be shared between threads.
class NOX_EXPORT ObjectFactory : public Serializable {
public:
  /// Type codes run from 0 to kCapacity - 1.
  static constexpr int kCapacity = 1000;

  ObjectFactory();
  /// A copy holds new prototypes of the same classes under the same names.
  ObjectFactory(const ObjectFactory& other);
  ObjectFactory& operator=(const ObjectFactory& other);
  /// Leaves the source empty.
  ObjectFactory(ObjectFactory&& other) noexcept;
  ObjectFactory& operator=(ObjectFactory&& other) noexcept;
  ~ObjectFactory() override;

  int getType() override;
  /// Writes every prototype in code order under its name. Reads nothing: a stream never changes a
  /// factory.
  Archive& serialize(Archive& ar, unsigned int version) override;
  unsigned int getVersion() override;

  /// A new default instance of the class registered for `type`, owned by the caller. Throws
  /// `new UnknownType(type)` when there is none, or when the class makes none.
  virtual Serializable* createObject(int type);
  /// Registers `prototype` under its own type code and takes it over; `name` must be a literal, it
  /// is kept by address. Throws `new DuplicateType` when the code is taken and `new UnknownType`
  /// for a null prototype (-1) or a code outside the range; the prototype then stays the caller's.
  virtual void registerType(Serializable* prototype, const char* name);

  /// The registered name, or null.
  const char* getTypeName(int type);
  /// Prints all prototypes as XML to the standard error stream.
  void dump();

protected:
  /// Registers a new T: one line per class in a service factory's constructor.
  template <class T>
  void add(const char* name) {
    std::unique_ptr<Serializable> prototype(new T);
    registerType(prototype.get(), name);
    prototype.release();
  }

private:
  std::array<std::unique_ptr<Serializable>, kCapacity> prototypes_;
  std::array<const char*, kCapacity> typeNames_{};
};

}  // namespace nox
