#include "client/command/load/loader.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "client/command/context.h"
#include "client/command/load/record_reader.h"
#include "client/command/output/json_text.h"

namespace nox::command {

namespace {

std::string formatOf(const LoadOptions& options) {
  if (!options.format.empty()) return options.format;
  const std::size_t dot = options.path.rfind('.');
  std::string ending = dot == std::string::npos ? "" : options.path.substr(dot + 1);
  if (ending == "csv" || ending == "tsv" || ending == "jsonl") return ending;
  throw UsageError("what kind of input is this? Use --from-format csv, tsv or jsonl");
}

/// Keeps how many records are done, so that a load can go on after it was broken off: a line with
/// their number and, in hexadecimal, the digest of the input up to there. By the digest another
/// input is refused, while one whose rest was mended is not. The number alone is taken as well.
class Checkpoint {
public:
  explicit Checkpoint(std::string path) : path_(std::move(path)) {
    if (path_.empty()) return;
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path_.c_str(), "rbe"),
                                                               std::fclose);
    if (!file) {
      if (errno == ENOENT) return;
      throw Refused("cannot read " + path_ + ": " + std::strerror(errno));
    }
    char text[64];
    const char* const end = text + std::fread(text, 1, sizeof text, file.get());
    auto [at, error] = std::from_chars(text, end, done_);
    if (error == std::errc() && at != end && *at == ' ') {
      std::uint64_t digest = 0;
      const auto second = std::from_chars(at + 1, end, digest, 16);
      at = second.ptr;
      error = second.ec;
      digest_ = digest;
    }
    if (error != std::errc() || (at != end && *at != '\n')) {
      throw Refused(path_ + " is no file of --resume");
    }
  }

  std::uint64_t done() const { return done_; }

  /// When as many records as were done have been read. Throws Refused where they are others.
  void compare(std::uint64_t digest) const {
    if (digest_ && *digest_ != digest) {
      throw Refused(path_ + " belongs to another input: its first " + std::to_string(done_) +
                    " records are not those that were done before");
    }
  }
  /// At the end of the input. Throws Refused where less was read than was done.
  void expectNoMoreThan(std::uint64_t seen) const {
    if (seen < done_) {
      throw Refused(path_ + " belongs to another input: " + std::to_string(done_) +
                    " records were done before, and this has " + std::to_string(seen));
    }
  }

  /// Durable when it returns, and never half written.
  void save(std::uint64_t done, std::uint64_t digest) {
    if (path_.empty()) return;
    const std::string next = path_ + ".new";
    char text[64];
    const int length =
        std::snprintf(text, sizeof text, "%llu %016llx\n", static_cast<unsigned long long>(done),
                      static_cast<unsigned long long>(digest));
    const int file = open(next.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool written = file >= 0 &&
                         ::write(file, text, static_cast<std::size_t>(length)) == length &&
                         fsync(file) == 0;
    const int error = errno;
    if (file >= 0) close(file);
    if (!written || std::rename(next.c_str(), path_.c_str()) != 0) {
      throw Refused("cannot write " + path_ + ": " + std::strerror(written ? errno : error));
    }
  }

  void remove() const {
    if (!path_.empty()) std::remove(path_.c_str());
  }

private:
  const std::string path_;
  std::uint64_t done_ = 0;
  std::optional<std::uint64_t> digest_;  // of the input up to the last that is done
};

/// What cannot be loaded: written to a file with the reason, or the end of the load.
class Rejects {
public:
  explicit Rejects(std::string path) : path_(std::move(path)), file_(nullptr, std::fclose) {}

  /// Takes the place of those of a load before, unless this one goes on with it.
  void open(bool resumed) {
    if (path_.empty()) return;
    file_.reset(std::fopen(path_.c_str(), resumed ? "abe" : "wbe"));
    if (!file_) throw Refused("cannot write " + path_ + ": " + std::strerror(errno));
  }

  void add(std::uint64_t line, const std::string& why, const std::string& source) {
    if (!file_) throw Refused("line " + std::to_string(line) + ": " + why);
    std::fprintf(file_.get(), "{\"line\":%llu,\"error\":%s,\"input\":%s}\n",
                 static_cast<unsigned long long>(line), jsonText(why).c_str(),
                 jsonText(source).c_str());
    ++count_;
  }
  void flush() {
    if (!file_) return;
    const bool flushed = std::fflush(file_.get()) == 0;
    // A line that found the buffer full may have failed before.
    if (!flushed || std::ferror(file_.get()) != 0) {
      throw Refused("cannot write " + path_ + ": " + std::strerror(errno));
    }
  }
  std::uint64_t count() const { return count_; }

private:
  const std::string path_;
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file_;
  std::uint64_t count_ = 0;
};

struct Pending {
  std::uint64_t line = 0;
  std::string source;
};

class Load {
public:
  Load(Context& context, const LoadOptions& options)
      : context_(context),
        options_(options),
        format_(formatOf(options)),
        lines_(options.path),
        checkpoint_(checked(options.resumePath, "--resume")),
        rejects_(checked(options.rejectPath, "--reject")),
        connection_(context.connection()),
        batch_(connection_) {}

  LoadResult run() {
    prepareFile();
    const std::unique_ptr<RecordReader> reader = makeReader();
    // Only now: the rejects of another load are not given up for one that cannot begin.
    rejects_.open(checkpoint_.done() > 0);
    try {
      writeAll(*reader);
    } catch (...) {
      // Why it ended follows, from whoever catches it.
      say();
      throw;
    }
    checkpoint_.remove();
    say();
    return result_;
  }

private:
  // A batch is held in memory until the server has answered.
  static constexpr std::size_t kMostBytes = 16u * 1024u * 1024u;

  /// A path that is written to. Throws UsageError for the input.
  const std::string& checked(const std::string& path, const char* option) const {
    if (!path.empty() && lines_.input().is(path)) {
      throw UsageError(std::string(option) + ": " + path + " is what is to be loaded");
    }
    return path;
  }

  /// Throws client::Error where there is no such file: not each record shall find that out.
  void prepareFile() {
    if (options_.create) {
      const std::vector<std::string> files = filesOf(connection_);
      if (std::find(files.begin(), files.end(), options_.file) == files.end()) {
        connection_.execute("CREATE-FILE " + options_.file);
      }
    }
    connection_.file(options_.file).close();
  }

  std::unique_ptr<RecordReader> makeReader() {
    if (format_ == "jsonl") return makeJsonReader(lines_);
    const ColumnMapping mapping{options_.idColumn, dictionaryOf(connection_, options_.file)};
    return format_ == "csv" ? makeCsvReader(lines_, mapping) : makeTsvReader(lines_, mapping);
  }

  void writeAll(RecordReader& reader) {
    const std::uint64_t size = lines_.size();
    const auto progress =
        context_.progress("records", size > 0 ? std::optional(size) : std::nullopt, false);
    InputRecord record;
    while (read(reader, record)) {
      context_.checkInterrupt();
      if (seen_ <= checkpoint_.done()) {
        ++result_.skipped;
        continue;
      }
      try {
        batch_.write(options_.file, record.id, record.record);
        pending_.push_back({record.line, std::move(record.source)});
      } catch (const client::Error& error) {
        if (error.outcome() != client::Outcome::NotSent) throw;
        rejects_.add(record.line, error.message(), record.source);
      }
      if (pending_.size() == options_.batch || batch_.bytes() >= kMostBytes) {
        flush();
        progress->show(lines_.bytes(), result_.loaded);
      }
    }
    checkpoint_.expectNoMoreThan(seen_);
    flush();
  }

  void say() {
    result_.rejected = rejects_.count();
    std::string text = std::to_string(result_.loaded) + " loaded";
    if (result_.skipped > 0) text += ", " + std::to_string(result_.skipped) + " were done before";
    if (result_.rejected > 0) text += ", " + std::to_string(result_.rejected) + " rejected";
    context_.say(text);
  }

  /// The next record that can be read.
  bool read(RecordReader& reader, InputRecord& record) {
    for (;;) {
      try {
        if (!reader.next(record)) return false;
        count();
        return true;
      } catch (const BadRecord& bad) {
        count();
        if (seen_ > checkpoint_.done()) rejects_.add(bad.line(), bad.what(), bad.source());
      }
    }
  }

  void count() {
    ++seen_;
    digest_ = lines_.digest();
    if (seen_ == checkpoint_.done()) checkpoint_.compare(digest_);
  }

  void flush() {
    if (!pending_.empty()) {
      client::Transaction work = connection_.begin();
      const std::vector<client::Batch::Result> results = batch_.run();
      std::uint64_t written = 0;
      for (std::size_t i = 0; i < results.size(); ++i) {
        if (results[i].ok()) {
          ++written;
          continue;
        }
        if (results[i].error) {
          const client::Error& error = *results[i].error;
          // A record that is refused leaves the others alone; a lost transaction takes them along.
          if (error.outcome() != client::Outcome::Rejected || error.sqlClass() == "40") {
            throw client::Error(error);
          }
          rejects_.add(pending_[i].line, error.message(), pending_[i].source);
        } else {
          rejects_.add(pending_[i].line, "the record is locked by another session",
                       pending_[i].source);
        }
      }
      work.commit();
      result_.loaded += written;
      pending_.clear();
    }
    rejects_.flush();
    checkpoint_.save(seen_, digest_);
  }

  Context& context_;
  const LoadOptions& options_;
  const std::string format_;
  LineReader lines_;
  Checkpoint checkpoint_;
  Rejects rejects_;
  client::Connection& connection_;
  client::Batch batch_;
  std::vector<Pending> pending_;
  std::uint64_t seen_ = 0;    // good and bad
  std::uint64_t digest_ = 0;  // of the input up to the last of them
  LoadResult result_;
};

}  // namespace

LoadResult load(Context& context, const LoadOptions& options) {
  return Load(context, options).run();
}

}  // namespace nox::command
