// The exceptions of the library. Those that report malformed input and unknown types are thrown as
// pointers to new objects, which the catcher deletes; the others are thrown by value. A caller that
// wants all of them writes four handlers:
//
//   catch (nox::NOXException* thrown) {
//     const std::unique_ptr<nox::NOXException> error(thrown);
//   } catch (const nox::NOXException& error) {
//   } catch (nox::NONE* thrown) {
//     const std::unique_ptr<nox::NONE> marker(thrown);
//   } catch (nox::LAST* thrown) {
//     const std::unique_ptr<nox::LAST> marker(thrown);
//   }
#pragma once

#include <stdexcept>
#include <string>

#include "nox/core/export.h"

namespace nox {

class NOX_EXPORT NOXException : public std::runtime_error {
public:
  explicit NOXException(const std::string& message);
  NOXException(const NOXException&) = default;
  NOXException& operator=(const NOXException&) = default;
  ~NOXException() override;
};

/// A reader met another byte than the format asks for. Thrown by pointer.
class NOX_EXPORT UnexpectedChar : public NOXException {
public:
  /// `c` is 0 to 255, or -1 where nothing had arrived.
  UnexpectedChar(int c, int expected);
  UnexpectedChar(const UnexpectedChar&) = default;
  UnexpectedChar& operator=(const UnexpectedChar&) = default;
  ~UnexpectedChar() override;
  const char* what() const noexcept override;
  int getChar() const { return c_; }
  int getExpectedChar() const { return expected_; }

private:
  int c_;
  int expected_;
};

/// A nested object is of another class than its holder expects. Thrown by pointer.
class NOX_EXPORT UnexpectedType : public NOXException {
public:
  UnexpectedType(int actual, int expected);
  UnexpectedType(const UnexpectedType&) = default;
  UnexpectedType& operator=(const UnexpectedType&) = default;
  ~UnexpectedType() override;
  const char* what() const noexcept override;
  int getActualType() const { return actual_; }
  int getExpectedType() const { return expected_; }

private:
  int actual_;
  int expected_;
};

/// A factory knows no class of this code. Thrown by pointer.
class NOX_EXPORT UnknownType : public NOXException {
public:
  explicit UnknownType(int typeCode);
  UnknownType(const UnknownType&) = default;
  UnknownType& operator=(const UnknownType&) = default;
  ~UnknownType() override;
  const char* what() const noexcept override;
  int getTypeCode() const { return typeCode_; }

private:
  int typeCode_;
};

/// A factory already knows a class of this code. Thrown by pointer.
class NOX_EXPORT DuplicateType : public NOXException {
public:
  explicit DuplicateType(int typeCode);
  DuplicateType(const DuplicateType&) = default;
  DuplicateType& operator=(const DuplicateType&) = default;
  ~DuplicateType() override;
  const char* what() const noexcept override;
  int getTypeCode() const { return typeCode_; }

private:
  int typeCode_;
};

/// A condition the reader relies on does not hold for what the peer sent; the text is the
/// condition. Thrown by pointer.
class NOX_EXPORT AssertionFailure : public NOXException {
public:
  explicit AssertionFailure(const std::string& condition);
  AssertionFailure(const AssertionFailure&) = default;
  AssertionFailure& operator=(const AssertionFailure&) = default;
  ~AssertionFailure() override;
};

/// For applications; the library never throws it.
class NOX_EXPORT BadType : public NOXException {
public:
  BadType();
  BadType(const BadType&) = default;
  BadType& operator=(const BadType&) = default;
  ~BadType() override;
};

/// For applications; the library never throws it.
class NOX_EXPORT OpenFileError : public NOXException {
public:
  explicit OpenFileError(const std::string& message);
  OpenFileError(const OpenFileError&) = default;
  OpenFileError& operator=(const OpenFileError&) = default;
  ~OpenFileError() override;
};

/// A compressed root object cannot be inflated. Thrown by value.
class NOX_EXPORT CompressionError : public NOXException {
public:
  explicit CompressionError(const std::string& message);
  CompressionError(const CompressionError&) = default;
  CompressionError& operator=(const CompressionError&) = default;
  ~CompressionError() override;
};

/// An index lies outside a parameter list. Thrown by value.
class NOX_EXPORT IndexOutOfBound : public NOXException {
public:
  explicit IndexOutOfBound(const std::string& message);
  IndexOutOfBound(const IndexOutOfBound&) = default;
  IndexOutOfBound& operator=(const IndexOutOfBound&) = default;
  ~IndexOutOfBound() override;
};

}  // namespace nox
