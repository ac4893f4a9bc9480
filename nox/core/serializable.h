// The root of every message and payload, and the two markers a stream of objects can end in.
#pragma once

#include <cstdint>
#include <new>

#include "nox/core/export.h"

namespace nox {

class Archive;

/// An object that describes its own content to an Archive. One `serialize` body serves both
/// directions; it is given the class version that stands (or will stand) on the wire.
class NOX_EXPORT Serializable {
public:
  /// Thrown as `new NONE`: nothing arrived within the stream's time-out. The catcher deletes it.
  class NOX_EXPORT NONE {};
  /// Thrown as `new LAST`: the stream ended or failed. The catcher deletes it.
  class NOX_EXPORT LAST {};

  /// How a root object wishes to travel. The sender sets it before writing and keeps it alive until
  /// `writeRoot` has returned; the library only reads it and never frees it.
  struct properties_t {
    bool compress = false;
    /// Shortest encoded body, in bytes, that is compressed. Compared as an unsigned 64-bit number
    /// after sign extension: 0 compresses always, a negative value never.
    int compressThreshold = 0;
  };

  Serializable() = default;
  /// Copies all three fields; the properties stay shared.
  Serializable(const Serializable&) = default;
  Serializable& operator=(const Serializable&) = default;

  virtual ~Serializable();
  /// A new default instance of the same class, owned by the caller; null when memory ran out.
  virtual Serializable* create() = 0;
  /// The class's type code, 0 to 999.
  virtual int getType() = 0;
  /// Passes every field to `ar` in wire order and returns `ar`.
  virtual Archive& serialize(Archive& ar, unsigned int version) = 0;
  /// The newest layout this class knows. It is not what travels: the binary form sends
  /// `getClassVersion()`, which is 0 until somebody sets it.
  virtual unsigned int getVersion();

  /// The layout this instance is written with, or was read with.
  int getClassVersion() const { return classVersion_; }
  void setClassVersion(int version) { classVersion_ = version; }

  /// Bytes of the root frame in which this object last travelled: with its 4-byte length after
  /// writing, without it after reading.
  std::uint64_t getPacketSize() const { return packetSize_; }
  void setPacketSize(std::uint64_t size) { packetSize_ = size; }

  properties_t* getProperties() const { return properties_; }
  void setProperties(properties_t* properties) { properties_ = properties; }

protected:
  /// What `create` answers: a new T, or null when memory ran out.
  template <class T>
  static T* newOrNull() {
    try {
      return new T;
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

private:
  int classVersion_ = 0;
  properties_t* properties_ = nullptr;
  std::uint64_t packetSize_ = 0;
};

using NONE = Serializable::NONE;
using LAST = Serializable::LAST;

}  // namespace nox
