#include "nox/core/exceptions.h"

namespace nox {

NOXException::NOXException(const std::string& message) : std::runtime_error(message) {}
NOXException::~NOXException() = default;

UnexpectedChar::UnexpectedChar(int c, int expected)
    : NOXException("UnexpectedChar"), c_(c), expected_(expected) {}
UnexpectedChar::~UnexpectedChar() = default;
const char* UnexpectedChar::what() const noexcept { return "UnexpectedChar"; }

UnexpectedType::UnexpectedType(int actual, int expected)
    : NOXException("UnexpectedType"), actual_(actual), expected_(expected) {}
UnexpectedType::~UnexpectedType() = default;
const char* UnexpectedType::what() const noexcept { return "UnexpectedType"; }

UnknownType::UnknownType(int typeCode) : NOXException("UnknownType"), typeCode_(typeCode) {}
UnknownType::~UnknownType() = default;
const char* UnknownType::what() const noexcept { return "UnknownType"; }

DuplicateType::DuplicateType(int typeCode) : NOXException("DuplicateType"), typeCode_(typeCode) {}
DuplicateType::~DuplicateType() = default;
const char* DuplicateType::what() const noexcept { return "DuplicateType"; }

AssertionFailure::AssertionFailure(const std::string& condition) : NOXException(condition) {}
AssertionFailure::~AssertionFailure() = default;

// The type's own name, as the others that carry no text of their own.
BadType::BadType() : NOXException("BadType") {}
BadType::~BadType() = default;

OpenFileError::OpenFileError(const std::string& message) : NOXException(message) {}
OpenFileError::~OpenFileError() = default;

CompressionError::CompressionError(const std::string& message) : NOXException(message) {}
CompressionError::~CompressionError() = default;

IndexOutOfBound::IndexOutOfBound(const std::string& message) : NOXException(message) {}
IndexOutOfBound::~IndexOutOfBound() = default;

}  // namespace nox
