// gzip members for whole message bodies; the only user of zlib.
#pragma once

#include <cstddef>
#include <exception>
#include <limits>
#include <string>

#include "nox/core/export.h"

namespace nox {

class BufferedOutStream;

class NOX_EXPORT Compressor {
public:
  virtual ~Compressor();
  virtual std::string compress(const std::string& in) = 0;
  virtual std::string uncompress(const std::string& in) = 0;
};

/// Makes and checks members with a fixed 10-byte header. Holds no state and may be shared between
/// threads; zlib's working memory stays with each thread that used it, until `releaseMemory`.
class NOX_EXPORT GZipCompressor : public Compressor {
public:
  static constexpr unsigned char GZ_MAGIC_0 = 0x1F;
  static constexpr unsigned char GZ_MAGIC_1 = 0x8B;
  static constexpr unsigned char OS_CODE = 0x03;  // Unix
  static constexpr int GZIP_HEADER_LENGTH = 10;
  static constexpr int GZIP_FOOTER_LENGTH = 8;  // CRC-32, then the uncompressed length
  static constexpr int ZLIB_MODIFIER = 100;     // output bound: n + n / 100 + 16

  /// Root of the compressor's errors, thrown by value. Deliberate: the text of `what()` is shared
  /// by all errors of a thread, so asking one error changes what another one's pointer shows.
  class NOX_EXPORT Error : public std::exception {
  public:
    ~Error() override;
    const char* what() const noexcept override;

  protected:
    virtual std::string text() const = 0;
  };

  /// Not a gzip member of the one kind that is understood.
  class NOX_EXPORT BadHeader : public Error {
  public:
    ~BadHeader() override;

  protected:
    std::string text() const override;
  };

  /// zlib refused; the code is its result (-5 when the output room ran out).
  class NOX_EXPORT ZLibError : public Error {
  public:
    explicit ZLibError(int code) : code_(code) {}
    ~ZLibError() override;
    int getCode() const { return code_; }

  protected:
    std::string text() const override;

  private:
    int code_;
  };

  /// The content does not match its checksum.
  class NOX_EXPORT CrcError : public Error {
  public:
    CrcError(unsigned int expected, unsigned int actual) : expected_(expected), actual_(actual) {}
    ~CrcError() override;
    unsigned int getExpected() const { return expected_; }
    unsigned int getActual() const { return actual_; }

  protected:
    std::string text() const override;

  private:
    unsigned int expected_;
    unsigned int actual_;
  };

  ~GZipCompressor() override;

  /// The member holding `in`. Throws ZLibError, with the code -5 for 4 GiB and more.
  std::string compress(const std::string& in) override;
  /// The content of the member `in`. Throws BadHeader, ZLibError or CrcError. The content may be
  /// shorter than the size the member claims, not longer (code -5); memory is taken for what the
  /// data inflate to, whatever size they claim. A genuine member inflates to up to 1032 times its
  /// length.
  std::string uncompress(const std::string& in) override;

  /// The same for bytes in memory: appends the member to `out`, a stream under construction that
  /// does not hold `data`. After an error `out` is as before.
  static void compressTo(const char* data, std::size_t n, BufferedOutStream& out);
  /// The same into a string whose content is replaced, and unspecified after an error. Content of
  /// more than `most` bytes is an error, ZLibError with the code -5, and takes no memory beyond.
  static void uncompressTo(const char* member, std::size_t n, std::string& out,
                           std::size_t most = std::numeric_limits<std::size_t>::max());

  /// Gives zlib's working memory of this thread back; the next call takes it again. For threads
  /// that live long and compress now and then.
  static void releaseMemory();
};

}  // namespace nox
