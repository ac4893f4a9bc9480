// What every message has in common: its type code, its prototype operation and fields that own.
#pragma once

#include "nox/core/owned.h"
#include "nox/core/serializable.h"
#include "nox/protocol/request.h"
#include "nox/protocol/response.h"
#include "nox/protocol/type_codes.h"

namespace nox {

/// Gives a message its type code and prototype; fields and layout stay in the class.
template <class Self, int Code, class Base>
class NOX_EXPORT Message : public Base {
public:
  /// Null when memory ran out.
  Serializable* create() override { return Serializable::newOrNull<Self>(); }
  int getType() override { return Code; }

protected:
  using Base::Base;
};

template <class Self, int Code>
using Request = Message<Self, Code, noxp::RequestProt>;
template <class Self, int Code>
using Response = Message<Self, Code, noxp::ResponseProt>;
/// An object that travels inside messages.
template <class Self, int Code>
using Payload = Message<Self, Code, Serializable>;

}  // namespace nox
