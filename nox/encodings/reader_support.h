// What the text readers share.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <new>

#include "nox/core/exceptions.h"
#include "nox/core/object_factory.h"
#include "nox/protocol/request.h"

namespace nox {

/// The number at the start of `text`, blanks before it allowed, 0 when there is none. Unlike atoi
/// it is defined for every text: numbers beyond an int become the nearest int.
inline int saturatedInt(const char* text) {
  if (!text) return 0;
  const long long number = std::strtoll(text, nullptr, 10);
  return static_cast<int>(std::clamp<long long>(number, std::numeric_limits<int>::min(),
                                                std::numeric_limits<int>::max()));
}

/// A new object of this type. Throws `new UnknownType` where there is none.
inline std::unique_ptr<Serializable> createObject(ObjectFactory* factory, int type) {
  if (!factory) throw new UnknownType(type);
  std::unique_ptr<Serializable> object(factory->createObject(type));
  if (!object) throw std::bad_alloc();
  return object;
}

/// Hands `root` on if it is a request; another object is deleted, and the result is null.
inline noxp::RequestProt* asRequest(std::unique_ptr<Serializable> root) {
  auto* request = dynamic_cast<noxp::RequestProt*>(root.get());
  if (request) root.release();
  return request;
}

}  // namespace nox
