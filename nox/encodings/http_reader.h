// Frames one HTTP request and hands it to a request object of the application.
#pragma once

#include <string>

#include "nox/core/input_reader.h"
#include "nox/core/object_reader.h"

namespace nox {

/// Reads a request line, header lines and a body into one text, prefix in front, and looks at no
/// more of it than it takes to find its end: of all headers only "content-length:" at the start of
/// a line counts, and the last one wins.
///
/// A request that cannot be framed is no exception: its object is told 400 or 413. The body of a
/// request that is too large stays unread, so the caller closes the connection. A silent peer is
/// waited for as long as the stream waits.
class NOX_EXPORT httpReader : public input_reader, public ObjectReader {
public:
  using ObjectReader::process;

  /// The longest line, line feed included; what is longer counts as several lines.
  static constexpr int kLongestLine = 10240;
  /// The limit for headers and body together where the request object names none.
  static constexpr int kDefaultMaxRequestSize = 100000;

  /// Neither argument is owned, unless it is replaced by `setInputStream`.
  httpReader(ObjectFactory* factory, InputStream* in) : ObjectReader(factory, in) {}
  ~httpReader() override;

  /// Text that was taken off the stream already: it is put in front of every request line and
  /// counts as part of it. Copied; null is empty.
  void setPrefix(const char* prefix);

  /// The text of one request: headers, the blank line, the body. Throws what the stream throws,
  /// and `new NONE` when a line does not come within its time-out.
  Archive& process(std::string& value, const char* name) override;
  // Requests have no other fields.
  Archive& process(NOXPBlob* value, const char* name) override;
  Archive& process(NOXPString* value, const char* name) override;
  Archive& process(int& value, const char* name) override;
  Archive& process(Serializable* value, const char* name) override;

  /// An object of type 506 that has read one request, or was told why not; the caller's. Null, with
  /// nothing read, when the factory knows no such object or it is no HTTPRequestProt.
  Serializable* readRootObject() override;
  /// The same when `object` is null; otherwise `object` reads itself and is returned.
  Serializable* readObject(Serializable* object);
  noxp::RequestProt* readRequest() override;

protected:
  /// There are no markers in HTTP.
  void checkEndOfObjectMarker() override {}

private:
  std::string readLine();
  void readHTTPRequest(std::string& out);
  void readBody(std::string& out, std::string headers, int contentLength);
  void setErrorStatus(int status, const char* message);

  void readNOXPString(NOXPString* /*value*/) override {}
  void readNOXPBlob(NOXPBlob* /*value*/) override {}
  std::string* readString() override;
  int readChar() override;
  int readInt() override;

  std::string prefix_;
  int maxRequestSize_ = 0;
  int errorStatus_ = 0;
  const char* errorMessage_ = nullptr;
};

}  // namespace nox
