#include "fuzz/read_frames.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "fuzz/fuzz_target.h"
#include "nox/core/binary_reader.h"
#include "nox/core/binary_writer.h"
#include "nox/core/exceptions.h"
#include "nox/core/memory_streams.h"
#include "nox/encodings/xml_object_writer.h"
#include "nox/io/buffered_out_stream.h"

namespace nox::fuzz {

namespace {

// A stream that the reader does not know to be memory.
class Connection : public InputStream {
public:
  Connection(const char* data, std::size_t size) : data_(data), left_(size) {}
  std::int64_t readMax(char* buf, int max) override {
    const std::size_t n = std::min(left_, static_cast<std::size_t>(std::max(max, 0)));
    if (n > 0) std::memcpy(buf, data_, n);
    data_ += n;
    left_ -= n;
    return static_cast<std::int64_t>(n);
  }
  std::int64_t readMax(char* buf, int max, int /*timeout*/) override { return readMax(buf, max); }

private:
  const char* data_;
  std::size_t left_;
};

// Enough for the errors within left-over frames; every round takes at least a byte.
constexpr int kMostRoots = 64;

std::string written(Serializable& root) {
  MemoryBufferOutStream out;
  BinaryWriter(&out).writeRoot(root);
  return out.str();
}

void writeXml(ObjectFactory& factory, Serializable& root) {
  BufferedOutStream text(nullptr, true);
  XMLObjectWriter(&factory, &text).writeRoot(root);
}

// One line per root object or error, with the object as it is written again.
std::string outcomes(InputStream& stream, ObjectFactory& factory) {
  BinaryReader reader(&factory, &stream);
  std::string log;
  for (int i = 0; i < kMostRoots; ++i) {
    try {
      const std::unique_ptr<Serializable> root(reader.readRootObject());
      log += root ? written(*root) : "null";
      if (root) writeXml(factory, *root);
    } catch (NOXException* thrown) {
      const std::unique_ptr<NOXException> error(thrown);
      log += error->what();
    } catch (const NOXException& error) {
      log += error.what();
    } catch (NONE* thrown) {
      delete thrown;
      log += "NONE";
    } catch (LAST* thrown) {
      delete thrown;
      return log + "LAST";
    }
    log += '\n';
  }
  return log;
}

}  // namespace

void readFrames(const std::uint8_t* data, std::size_t size, ObjectFactory& factory) {
  const char* const bytes = reinterpret_cast<const char*>(data);
  MemoryBufferInputStream memory(bytes, size);
  Connection connection(bytes, size);
  const std::string fromMemory = outcomes(memory, factory);
  const std::string fromConnection = outcomes(connection, factory);
  require(fromMemory == fromConnection, "memory and connections are read alike");
}

}  // namespace nox::fuzz
