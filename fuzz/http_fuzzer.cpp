// The HTTP reader. Two bytes in front choose the limit and how much of the request is a prefix.
#include <algorithm>
#include <memory>
#include <string>

#include "fuzz/fuzz_target.h"
#include "fuzz/page.h"
#include "nox/core/memory_streams.h"
#include "nox/core/object_factory.h"
#include "nox/encodings/http_reader.h"
#include "tests/support/frames.h"

namespace {

using nox::fuzz::Page;

void readRequest(const std::string& prefix, const std::string& rest) {
  static nox::test::Classes<Page> factory;
  nox::MemoryBufferInputStream stream(rest.data(), rest.size());
  nox::httpReader reader(&factory, &stream);
  reader.setPrefix(prefix.c_str());
  try {
    const std::unique_ptr<nox::noxp::RequestProt> request(reader.readRequest());
    const auto* const page = dynamic_cast<const Page*>(request.get());
    nox::fuzz::require(page != nullptr, "a request is a page");
    // A body that came short keeps the size it claimed, which the limit bounds.
    const int limit = Page::maxSize > 0 ? Page::maxSize : nox::httpReader::kDefaultMaxRequestSize;
    nox::fuzz::require(page->text_.size() <= static_cast<std::size_t>(limit),
                       "a text stays below the limit");
  } catch (nox::NONE* thrown) {
    delete thrown;
  } catch (nox::LAST* thrown) {
    delete thrown;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  Page::maxSize = data[0] * 16;
  const std::string request(reinterpret_cast<const char*>(data) + 2, size - 2);
  const std::size_t split = std::min<std::size_t>(data[1] % 8, request.size());
  readRequest(request.substr(0, split), request.substr(split));
  return 0;
}
