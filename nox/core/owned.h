// Fields that own what they hold, and the argument types that say what becomes of a raw pointer.
//
//   in a signature   what happens to the pointer                               held in
//   Copied<T>        copied; the caller keeps its own                          Owned<T>
//   Adopted<T>       taken over and deleted by the message; null allowed       Owned, MaybeOwned
//   Borrowed<T>      stays the caller's and must outlive the message           MaybeOwned<T>
//
// Strings and blobs lie inside the field itself, so that a message that is read costs one
// allocation. Other types live on the heap. A getter's pointer is valid while the message lives.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "nox/text/blob.h"
#include "nox/text/pstring.h"

namespace nox {

/// How an empty T is made and how one is copied; abstract field types specialise it.
template <class T>
struct FieldTraits {
  static T* makeEmpty() { return new T; }
  static T* clone(const T& other) { return new T(other); }
};

template <class T>
class Owned;

/// An argument that is copied. Null gives an absent field.
template <class T>
class Copied {
public:
  Copied(const T* value) : value_(value) {}
  std::unique_ptr<T> make() const {
    return std::unique_ptr<T>(value_ ? FieldTraits<T>::clone(*value_) : nullptr);
  }

private:
  const T* value_;
};

/// Text that is copied: a C string or a protocol string. Null gives an empty string.
template <>
class Copied<NOXPString> {
public:
  Copied(std::nullptr_t) {}
  Copied(const char* text) : text_(text) {}
  Copied(const NOXPString* value) : value_(value) {}
  NOXPString make() const { return value_ ? NOXPString(*value_) : NOXPString(text_); }

private:
  const char* text_ = nullptr;
  const NOXPString* value_ = nullptr;
};

/// Bytes that are copied: a C string without its terminator, or a blob. Null gives an empty blob.
template <>
class Copied<NOXPBlob> {
public:
  Copied(std::nullptr_t) {}
  Copied(const char* text) : text_(text) {}
  Copied(const NOXPBlob* value) : value_(value) {}
  NOXPBlob make() const {
    return value_ ? NOXPBlob(*value_) : text_ ? NOXPBlob(text_) : NOXPBlob();
  }

private:
  const char* text_ = nullptr;
  const NOXPBlob* value_ = nullptr;
};

using CopiedString = Copied<NOXPString>;
using CopiedBlob = Copied<NOXPBlob>;

/// An argument whose object the message takes over, from the moment the constructor is entered.
template <class T>
class Adopted {
public:
  Adopted(T* value) : value_(value) {}
  T* release() { return value_.release(); }

private:
  std::unique_ptr<T> value_;
};

/// An argument that stays the caller's.
template <class T>
class Borrowed {
public:
  Borrowed(T* value) : value_(value) {}
  T* get() const { return value_; }

private:
  T* value_;
};

namespace detail {

/// Keeps its object on the heap.
template <class T>
class HeapField {
public:
  T* get() const { return value_.get(); }
  void emplaceEmpty() { value_.reset(FieldTraits<T>::makeEmpty()); }
  void copy(const T& other) { value_.reset(FieldTraits<T>::clone(other)); }
  void construct(const Copied<T>& argument) { value_ = argument.make(); }
  void adopt(T* value) { value_.reset(value); }
  void reset() { value_.reset(); }

private:
  std::unique_ptr<T> value_;
};

/// Keeps its object inside the field; an adopted one stays where it is, on the heap.
template <class T>
class InlineField {
public:
  InlineField() = default;
  InlineField(const InlineField&) = delete;
  InlineField& operator=(const InlineField&) = delete;
  ~InlineField() { reset(); }

  T* get() const { return value_; }
  void emplaceEmpty() {
    reset();
    value_ = new (store_) T;
  }
  /// For a field that is being made.
  void emplace(const char* text) { value_ = new (store_) T(text); }
  void copy(const T& other) {
    reset();
    value_ = new (store_) T(other);
  }
  void construct(const Copied<T>& argument) {
    if (value_) {
      T copy(argument.make());  // first: the argument may be the object that is replaced
      reset();
      value_ = new (store_) T(std::move(copy));
    } else {
      value_ = new (store_) T(argument.make());
    }
  }
  void adopt(T* value) {
    if (value == value_) return;
    reset();
    value_ = value;
  }
  void reset() {
    if (!value_) return;
    if (static_cast<void*>(value_) == static_cast<void*>(store_)) {
      value_->~T();
    } else {
      delete value_;
    }
    value_ = nullptr;
  }

private:
  T* value_ = nullptr;
  alignas(T) unsigned char store_[sizeof(T)];  // left as it is until an object lives there
};

template <class T>
using FieldStorage =
    std::conditional_t<std::is_same_v<T, NOXPString> || std::is_same_v<T, NOXPBlob>, InlineField<T>,
                       HeapField<T>>;

}  // namespace detail

/// A field that owns its object, or is absent. Copies deeply.
template <class T>
class Owned {
public:
  Owned() { field_.emplaceEmpty(); }  // empty, ready to be read into
  Owned(std::nullptr_t) {}            // absent: `OwnedBlob record_ = nullptr;`
  Owned(const Copied<T>& argument) { field_.construct(argument); }
  Owned(const char* text) { field_.emplace(text); }  // as Copied<T>(text), made in place
  Owned(Adopted<T> argument) { field_.adopt(argument.release()); }
  Owned(const Owned& other) {
    if (other.get()) field_.copy(*other.get());
  }
  Owned& operator=(const Owned& other) {
    if (this == &other) return *this;
    if (other.get()) {
      field_.copy(*other.get());
    } else {
      field_.reset();
    }
    return *this;
  }
  ~Owned() = default;

  T* get() const { return field_.get(); }
  T* operator->() const { return field_.get(); }
  T& operator*() const { return *field_.get(); }
  explicit operator bool() const { return field_.get() != nullptr; }

  /// Replaces the object by an empty one.
  void emplaceEmpty() { field_.emplaceEmpty(); }
  /// Replaces the object by a copy of the argument, which may be the object itself.
  void assign(const Copied<T>& argument) { *this = Owned(argument); }
  /// Takes `value` over; the object held before is deleted. Null makes the field absent.
  void adopt(T* value) { field_.adopt(value); }
  void reset() { field_.reset(); }

private:
  detail::FieldStorage<T> field_;
};

using OwnedString = Owned<NOXPString>;
using OwnedBlob = Owned<NOXPBlob>;

/// A field whose object may be the message's or the caller's. A copy is deep and owns.
template <class T>
class MaybeOwned {
public:
  MaybeOwned() = default;
  MaybeOwned(std::nullptr_t) {}
  MaybeOwned(Adopted<T> argument) : owned_(argument.release()), value_(owned_.get()) {}
  MaybeOwned(Borrowed<T> argument) : value_(argument.get()) {}
  MaybeOwned(const MaybeOwned& other)
      : owned_(other.value_ ? FieldTraits<T>::clone(*other.value_) : nullptr),
        value_(owned_.get()) {}
  MaybeOwned(MaybeOwned&& other) noexcept
      : owned_(std::move(other.owned_)), value_(std::exchange(other.value_, nullptr)) {}
  MaybeOwned& operator=(const MaybeOwned& other) {
    if (this != &other) *this = MaybeOwned(other);
    return *this;
  }
  MaybeOwned& operator=(MaybeOwned&& other) noexcept {
    owned_.swap(other.owned_);
    std::swap(value_, other.value_);
    return *this;
  }

  T* get() const { return value_; }
  T* operator->() const { return value_; }
  T& operator*() const { return *value_; }
  explicit operator bool() const { return value_ != nullptr; }
  bool owns() const { return owned_ != nullptr; }

  void emplaceEmpty() { *this = MaybeOwned(Adopted<T>(FieldTraits<T>::makeEmpty())); }
  /// Hands the object over when the field owns it; the field becomes absent either way.
  T* release() {
    T* value = owned_ ? owned_.release() : value_;
    value_ = nullptr;
    return value;
  }

private:
  std::unique_ptr<T> owned_;
  T* value_ = nullptr;
};

}  // namespace nox
