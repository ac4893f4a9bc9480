#include "nox/encodings/http_reader.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "nox/core/input_stream.h"
#include "nox/diag/file_loggers.h"
#include "nox/encodings/reader_support.h"
#include "nox/protocol/http_request.h"
#include "nox/protocol/type_codes.h"

namespace nox {

namespace {

constexpr std::string_view kContentLength = "content-length:";

bool isContentLength(const std::string& line) {
  return line.size() >= kContentLength.size() &&
         std::equal(kContentLength.begin(), kContentLength.end(), line.begin(),
                    [](char expected, char c) {
                      return std::tolower(static_cast<unsigned char>(c)) == expected;
                    });
}

/// A new request object of the application's class, or null when it has none.
std::unique_ptr<noxp::HTTPRequestProt> createRequest(ObjectFactory* factory) {
  std::unique_ptr<Serializable> object;
  try {
    object = createObject(factory, TypeCode::HTTPRequest);
  } catch (UnknownType* thrown) {
    const std::unique_ptr<UnknownType> error(thrown);
    return nullptr;
  }
  auto* request = dynamic_cast<noxp::HTTPRequestProt*>(object.get());
  if (request) object.release();
  return std::unique_ptr<noxp::HTTPRequestProt>(request);
}

}  // namespace

httpReader::~httpReader() = default;

void httpReader::setPrefix(const char* prefix) { prefix_ = prefix ? prefix : ""; }

Archive& httpReader::process(std::string& value, const char* /*name*/) {
  readHTTPRequest(value);
  return *this;
}

Archive& httpReader::process(NOXPBlob* value, const char* name) {
  return ObjectReader::process(value, name);
}

Archive& httpReader::process(NOXPString* value, const char* name) {
  return ObjectReader::process(value, name);
}

Archive& httpReader::process(int& /*value*/, const char* /*name*/) { return *this; }

Archive& httpReader::process(Serializable* /*value*/, const char* /*name*/) { return *this; }

Serializable* httpReader::readRootObject() {
  setErrorStatus(0, nullptr);
  std::unique_ptr<noxp::HTTPRequestProt> request = createRequest(factory_);
  if (!request) return nullptr;
  request->setClassVersion(0);
  request->setPacketSize(0);
  if (!request->isServiceEnabled(0)) {
    request->setError(500, "Service Disabled");
    return request.release();
  }
  maxRequestSize_ = request->getMaxRequestSize();
  readObject(request.get());
  if (errorStatus_ != 0) request->setError(errorStatus_, errorMessage_);
  return request.release();
}

Serializable* httpReader::readObject(Serializable* object) {
  if (!object) return readRootObject();
  object->serialize(*this, static_cast<unsigned int>(object->getClassVersion()));
  return object;
}

noxp::RequestProt* httpReader::readRequest() {
  return asRequest(std::unique_ptr<Serializable>(readRootObject()));
}

void httpReader::setErrorStatus(int status, const char* message) {
  errorStatus_ = status;
  errorMessage_ = message;
}

std::string httpReader::readLine() {
  std::string line;
  while (line.size() < kLongestLine) {
    const int c = readChar();
    if (c == -1) throw new NONE;
    line.push_back(static_cast<char>(c));
    if (c == '\n') break;
  }
  return line;
}

void httpReader::readHTTPRequest(std::string& out) {
  const std::int64_t limit = maxRequestSize_ > 0 ? maxRequestSize_ : kDefaultMaxRequestSize;
  int contentLength = 0;
  std::string headers;
  // Deliberate: the prefix is part of the first line, also where that is tested for being blank.
  std::string line = prefix_ + readLine();
  for (;;) {
    NOX_LOG(filelog::debug) << "header line read from socket: " << line << EndLog();
    headers += line;
    if (static_cast<std::int64_t>(headers.size()) > limit) {
      return setErrorStatus(400, "headers exceed maximum request size");
    }
    if (line == "\n" || line == "\r\n") break;
    if (isContentLength(line)) contentLength = saturatedInt(line.c_str() + kContentLength.size());
    line = readLine();
  }
  if (contentLength < 1) {
    out = std::move(headers);
    return;
  }
  if (static_cast<std::int64_t>(headers.size()) + contentLength > limit) {
    return setErrorStatus(413, "Content exceeds maximum request size");
  }
  readBody(out, std::move(headers), contentLength);
}

void httpReader::readBody(std::string& out, std::string headers, int contentLength) {
  // The length is the peer's claim, up to the limit of the application. The block is left untouched
  // until bytes arrive, so that a claim alone takes no memory.
  const std::unique_ptr<char[]> body(new char[contentLength]);
  const std::int64_t received = stream_->readMax(body.get(), contentLength);
  const std::size_t total = headers.size() + static_cast<std::size_t>(contentLength);
  headers.reserve(total);
  headers.append(body.get(),
                 static_cast<std::size_t>(std::clamp<std::int64_t>(received, 0, contentLength)));
  headers.resize(total);
  out = std::move(headers);
  if (received != contentLength) {
    setErrorStatus(400, "Actual content size is different from content-length header");
  }
}

std::string* httpReader::readString() { return new std::string(readLine()); }

int httpReader::readChar() { return stream_->readChar(); }

int httpReader::readInt() {
  int value = 0;
  stream_->readInt(value);
  return value;
}

}  // namespace nox
