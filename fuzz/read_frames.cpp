#include "fuzz/read_frames.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "fuzz/fuzz_target.h"
#include "fuzz/use_object.h"
#include "nox/core/binary_reader.h"
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

/// What is done with an object that was read, and what came of it.
using Action = std::function<std::string(Serializable&)>;

// One line per root object or error, with what came of the object.
std::string outcomes(InputStream& stream, ObjectFactory& factory, const Action& action,
                     int mostRoots = kMostRoots) {
  BinaryReader reader(&factory, &stream);
  std::string log;
  for (int i = 0; i < mostRoots; ++i) {
    try {
      const std::unique_ptr<Serializable> root(reader.readRootObject());
      log += root ? action(*root) : "null";
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

std::string xml(ObjectFactory& factory, Serializable& root) {
  BufferedOutStream text(nullptr, true);
  XMLObjectWriter(&factory, &text).writeRoot(root);
  return {reinterpret_cast<const char*>(text.getBuffer()), text.getLength()};
}

/// The frame that the next reader of `frame` would write; empty where it reads no object.
std::string passedOn(const std::string& frame, ObjectFactory& factory) {
  MemoryBufferInputStream memory(frame.data(), frame.size());
  std::string next;
  const auto keep = [&next](Serializable& root) {
    next = written(root);
    return std::string();
  };
  outcomes(memory, factory, keep, 1);
  return next;
}

/// From the second time on an object is passed on as it came, where it can be read: a row without
/// values is written without their count, and texts that are longer in UTF-8 may become too long.
/// The first time may cut a text at its NUL, which shortens the description of a column.
void sendOn(ObjectFactory& factory, Serializable& root) {
  const std::string once = passedOn(written(root), factory);
  if (once.empty()) return;
  const std::string twice = passedOn(once, factory);
  require(twice.empty() || twice == once, "an object that is passed on stays the same");
}

}  // namespace

void readFrames(const std::uint8_t* data, std::size_t size, ObjectFactory& factory) {
  const char* const bytes = reinterpret_cast<const char*>(data);
  MemoryBufferInputStream memory(bytes, size);
  Connection connection(bytes, size);
  require(outcomes(memory, factory, written) == outcomes(connection, factory, written),
          "memory and connections are read alike");

  // Again for each use: rows that went out are gone.
  MemoryBufferInputStream toUse(bytes, size);
  outcomes(toUse, factory, [](Serializable& root) {
    useObject(root);
    return "used";
  });
  Connection toShow(bytes, size);
  outcomes(toShow, factory, [&](Serializable& root) { return xml(factory, root); });
  MemoryBufferInputStream toSendOn(bytes, size);
  outcomes(toSendOn, factory, [&](Serializable& root) {
    sendOn(factory, root);
    return "sent on";
  });
}

}  // namespace nox::fuzz
