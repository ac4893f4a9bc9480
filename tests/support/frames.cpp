#include "tests/support/frames.h"

#include <gtest/gtest.h>

#include <new>

#include "nox/core/big_endian.h"
#include "nox/core/exceptions.h"
#include "tests/support/allocation_counter.h"

namespace nox::test {

std::string frameOf(Serializable& message) {
  MemoryBufferOutStream out;
  BinaryWriter writer(&out);
  writer.writeRoot(message);
  return out.str();
}

std::string framed(std::string_view body) {
  std::string frame(4, '\0');
  storeBigEndian32(frame.data(), static_cast<std::uint32_t>(body.size() + 2));
  frame += '[';
  frame += body;
  frame += ']';
  return frame;
}

std::unique_ptr<Serializable> readFrame(std::string_view frame, ObjectFactory& factory) {
  MemoryBufferInputStream in(frame.data(), frame.size());
  BinaryReader reader(&factory, &in);
  return std::unique_ptr<Serializable>(reader.readRootObject());
}

std::string outcomeOf(std::string_view frame, ObjectFactory& factory) {
  try {
    return readFrame(frame, factory) ? "object" : "null";
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    return error->what();
  } catch (const NOXException& error) {
    return error.what();
  } catch (NONE* thrown) {
    delete thrown;
    return "NONE";
  } catch (LAST* thrown) {
    delete thrown;
    return "LAST";
  } catch (const std::bad_alloc&) {
    return "bad_alloc";
  }
}

void expectSurvivesDamage(const std::string& frame, ObjectFactory& factory) {
  // What deflate could have made of the frame, and the fixed sizes of objects.
  const std::size_t ceiling = 1100 * frame.size() + (std::size_t{1} << 20);
  for (std::size_t n = 0; n < frame.size(); ++n) {
    // A block of exactly this size, so that a read behind it is seen by the sanitizer.
    const std::unique_ptr<char[]> cut(new char[n + 1]);
    frame.copy(cut.get(), n);
    const AllocationScope scope;
    const std::string outcome = outcomeOf(std::string_view(cut.get(), n), factory);
    EXPECT_LT(scope.bytes(), ceiling) << "cut to " << n << " bytes";
    EXPECT_NE(outcome, "object") << "cut to " << n << " bytes";
  }
  for (std::size_t bit = 0; bit < frame.size() * 8; ++bit) {
    std::string flipped = frame;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    const AllocationScope scope;
    EXPECT_NE(outcomeOf(flipped, factory), "") << "bit " << bit << " flipped";
    EXPECT_LT(scope.bytes(), ceiling) << "bit " << bit << " flipped";
  }
}

}  // namespace nox::test
