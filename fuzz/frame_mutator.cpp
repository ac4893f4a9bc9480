#include "fuzz/frame_mutator.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <random>
#include <utility>

#include "nox/core/big_endian.h"
#include "nox/core/binary_format.h"
#include "nox/core/gzip_compressor.h"
#include "nox/core/object_factory.h"

namespace nox::fuzz {

namespace {

// Deeper objects stay bytes. Readers stop at 512, so this much shows both sides of their limit.
constexpr int kDeepest = 700;
// A compressed body that is longer stays bytes: changing it would take too long.
constexpr std::size_t kLongestInflated = std::size_t{1} << 16;

std::string bigEndian32(std::uint32_t value) {
  std::string bytes(4, '\0');
  storeBigEndian32(bytes.data(), value);
  return bytes;
}

std::string bigEndian16(std::uint32_t value) {
  std::string bytes(2, '\0');
  storeBigEndian16(bytes.data(), value);
  return bytes;
}

/// An integer, string, blob or object as it stands on the wire, or bytes that are neither.
struct Entity {
  enum class Kind { Integer, Text, Blob, Object, Bytes };

  Kind kind = Kind::Bytes;
  std::int32_t number = 0;              // of an integer
  std::string content;                  // of a string, a blob, bytes
  std::optional<std::uint32_t> length;  // what a string or blob says, when that is not the truth
  int ends = 1;                         // end markers that stand behind it; a blob has two
  std::vector<Entity> fields;           // of an object, its type code and version among them

  bool isObject() const { return kind == Kind::Object; }
  bool isNull() const {
    return isObject() && fields.size() == 1 && fields[0].isInteger() &&
           fields[0].number == kNullType;
  }
  bool isInteger() const { return kind == Kind::Integer; }
  bool hasContent() const { return kind == Kind::Text || kind == Kind::Blob; }
};

using Kind = Entity::Kind;
using Entities = std::vector<Entity>;

Entity integer(std::int32_t number) {
  Entity entity;
  entity.kind = Kind::Integer;
  entity.number = number;
  return entity;
}

Entity object(int code, Entities fields) {
  Entity entity;
  entity.kind = Kind::Object;
  entity.fields.push_back(integer(code));
  if (code != kNullType) entity.fields.push_back(integer(0));
  std::move(fields.begin(), fields.end(), std::back_inserter(entity.fields));
  return entity;
}

struct Frame {
  Entities body;
  std::optional<std::uint32_t> length;  // what it says, when that is not the truth
  bool compressed = false;
  bool ended = true;
};

struct Input {
  std::vector<Frame> frames;
  std::string rest;  // what stands behind the last frame
};

/// Takes bytes apart. Whatever they are, they come back when the result is written.
class Parser {
public:
  static Input input(std::string_view bytes) {
    Input input;
    while (bytes.size() > 4 && bytes[4] == kStartOfRootObject) {
      input.frames.push_back(frame(bytes));
    }
    input.rest = bytes;
    return input;
  }

private:
  explicit Parser(std::string_view bytes) : rest_(bytes) {}

  /// Steps past the frame.
  static Frame frame(std::string_view& bytes) {
    Frame frame;
    const auto length = static_cast<std::uint32_t>(loadBigEndian32(bytes.data()));
    bytes.remove_prefix(4);
    std::string_view body = bytes.substr(0, length > 0 ? length : bytes.size());
    if (body.size() != length) frame.length = length;
    bytes.remove_prefix(body.size());
    body.remove_prefix(1);
    frame.ended = !body.empty() && body.back() == kEndOfRootObject;
    if (frame.ended) body.remove_suffix(1);

    const std::string_view marker(kCompressedMarker, sizeof kCompressedMarker);
    std::string inflated;
    if (body.substr(0, marker.size()) == marker) {
      const std::string_view member = body.substr(marker.size());
      try {
        GZipCompressor::uncompressTo(member.data(), member.size(), inflated);
        frame.compressed = inflated.size() <= kLongestInflated;
      } catch (const GZipCompressor::Error&) {
        // Not a member; its bytes are as good as any.
      }
      if (!frame.compressed) {
        Entity asItIs;
        asItIs.content = body;
        frame.body.push_back(std::move(asItIs));
        return frame;
      }
      body = inflated;
    }
    frame.body = Parser(body).entities(0);
    return frame;
  }

  Entities entities(int depth) {
    Entities all;
    while (!rest_.empty() && (depth == 0 || rest_[0] != kEndOfEntity)) {
      if (std::optional<Entity> next = entity(depth)) {
        all.push_back(std::move(*next));
        continue;
      }
      if (all.empty() || all.back().kind != Kind::Bytes) all.emplace_back();
      all.back().content += rest_[0];
      rest_.remove_prefix(1);
    }
    return all;
  }

  std::optional<Entity> entity(int depth) {
    Entity entity;
    switch (rest_[0]) {
      case kIntegerPrefix:
        if (rest_.size() < 5) return std::nullopt;
        entity = integer(loadBigEndian32(rest_.data() + 1));
        rest_.remove_prefix(5);
        return entity;
      case kStringPrefix:
        if (rest_.size() < 3) return std::nullopt;
        return content(Kind::Text, 3, loadBigEndian16(rest_.data() + 1), 1);
      case kBlobPrefix:
        if (rest_.size() < 6 || rest_[1] != kByteArrayPrefix) return std::nullopt;
        return content(Kind::Blob, 6, static_cast<std::uint32_t>(loadBigEndian32(rest_.data() + 2)),
                       2);
      case kObjectPrefix:
        if (depth >= kDeepest) return std::nullopt;
        rest_.remove_prefix(1);
        entity.kind = Kind::Object;
        entity.fields = entities(depth + 1);
        entity.ends = takeEnds(1);
        return entity;
      default:
        return std::nullopt;
    }
  }

  std::optional<Entity> content(Kind kind, std::size_t head, std::uint32_t length, int ends) {
    if (rest_.size() - head < length) return std::nullopt;
    Entity entity;
    entity.kind = kind;
    entity.content = rest_.substr(head, length);
    rest_.remove_prefix(head + length);
    entity.ends = takeEnds(ends);
    return entity;
  }

  int takeEnds(int most) {
    int ends = 0;
    while (ends < most && !rest_.empty() && rest_[0] == kEndOfEntity) {
      rest_.remove_prefix(1);
      ++ends;
    }
    return ends;
  }

  std::string_view rest_;
};

void write(const Entities& entities, std::string& to);

void write(const Entity& entity, std::string& to) {
  const auto size = static_cast<std::uint32_t>(entity.content.size());
  switch (entity.kind) {
    case Kind::Integer:
      to += kIntegerPrefix;
      to += bigEndian32(static_cast<std::uint32_t>(entity.number));
      return;
    case Kind::Bytes:
      to += entity.content;
      return;
    case Kind::Text:
      to += kStringPrefix;
      to += bigEndian16(entity.length.value_or(size));
      to += entity.content;
      break;
    case Kind::Blob:
      to += kBlobPrefix;
      to += kByteArrayPrefix;
      to += bigEndian32(entity.length.value_or(size));
      to += entity.content;
      break;
    case Kind::Object:
      to += kObjectPrefix;
      write(entity.fields, to);
      break;
  }
  to.append(static_cast<std::size_t>(entity.ends), kEndOfEntity);
}

void write(const Entities& entities, std::string& to) {
  for (const Entity& entity : entities) write(entity, to);
}

void write(const Frame& frame, std::string& to) {
  std::string body;
  write(frame.body, body);
  if (frame.compressed) {
    body =
        std::string(kCompressedMarker, sizeof kCompressedMarker) + GZipCompressor().compress(body);
  }
  const std::size_t truth = body.size() + (frame.ended ? 2 : 1);
  to += bigEndian32(frame.length.value_or(static_cast<std::uint32_t>(truth)));
  to += kStartOfRootObject;
  to += body;
  if (frame.ended) to += kEndOfRootObject;
}

std::string joined(const Input& input) {
  std::string bytes;
  for (const Frame& frame : input.frames) write(frame, bytes);
  return bytes + input.rest;
}

/// A sequence that is the same on every platform.
class Random {
public:
  explicit Random(std::uint32_t seed) : next_(seed) {}
  std::uint32_t number() { return static_cast<std::uint32_t>(next_()); }
  /// 0 to n - 1; n is not 0.
  std::size_t below(std::size_t n) { return number() % n; }
  bool oneIn(std::size_t n) { return below(n) == 0; }
  template <class Sequence>
  auto& oneOf(Sequence& sequence) {
    return *std::next(std::begin(sequence),
                      static_cast<std::ptrdiff_t>(below(std::size(sequence))));
  }

private:
  std::mt19937 next_;
};

constexpr std::int32_t kEdges[] = {0,
                                   1,
                                   2,
                                   3,
                                   4,
                                   5,
                                   -1,
                                   -2,
                                   15,
                                   16,
                                   100,
                                   127,
                                   128,
                                   255,
                                   256,
                                   499,
                                   500,
                                   501,
                                   512,
                                   999,
                                   1000,
                                   1001,
                                   1023,
                                   1024,
                                   1025,
                                   4096,
                                   4097,
                                   8192,
                                   32767,
                                   32768,
                                   65534,
                                   65535,
                                   65536,
                                   1048576,
                                   0x7FFFFFFF,
                                   0x7FFFFFFE,
                                   0x40000000,
                                   0x20000000,
                                   -65536,
                                   -32768,
                                   -0x7FFFFFFF - 1,
                                   0x10000000,
                                   0x5B4C4900};

// What texts are made of that somebody looks at: marks, NULs, bytes that are no UTF-8, a column.
constexpr std::string_view kTexts[] = {std::string_view("\0", 1),
                                       "\xFE",
                                       "\xFD\xFC",
                                       "a\xFE"
                                       "b\xFE",
                                       "\xFE\xFE",
                                       "\xC3\xA9",
                                       "\xE2\x82",
                                       "\xF0\x9F\x98\x80",
                                       "\xED\xA0\x80",
                                       "3:NAME,tableName:T,scale:2,hidden:1",
                                       ",",
                                       ":",
                                       "scale:",
                                       "1:",
                                       "GZIP",
                                       ";",
                                       ";;",
                                       "]",
                                       "IE",
                                       "000",
                                       "OK",
                                       "%n%s"};

}  // namespace

/// One change to an input that was taken apart.
class FrameMutator::Editor {
public:
  Editor(const FrameMutator& mutator, Input& input, Random& random)
      : mutator_(mutator), input_(input), random_(random) {}

  void apply(Change change) {
    switch (change) {
      case Change::TypeCode:
        return typeCode();
      case Change::Version:
        return version();
      case Change::Integer:
        return edgeOfInteger();
      case Change::Count:
        return count();
      case Change::Content:
        return content();
      case Change::Repeat:
        return repeat();
      case Change::Remove:
        return remove();
      case Change::Move:
        return move();
      case Change::Nest:
        return nest();
      case Change::Unwrap:
        return unwrap();
      case Change::Absent:
        return absent();
      case Change::Splice:
        return splice();
      case Change::Compression:
        return compression();
      case Change::Frames:
        return frames();
      case Change::ContentLength:
        return contentLength();
      case Change::FrameLength:
        return frameLength();
      case Change::EndMarker:
        return endMarker();
    }
  }

private:
  /// An entity by where it is, so that it can be taken away.
  struct Place {
    Entities* siblings;
    std::size_t index;
    Entity& operator*() const { return (*siblings)[index]; }
    Entity* operator->() const { return &**this; }
    Entities::iterator iterator() const {
      return siblings->begin() + static_cast<std::ptrdiff_t>(index);
    }
  };

  template <class Wanted>
  static void gather(Entities& entities, const Wanted& wanted, std::vector<Place>& places) {
    for (std::size_t i = 0; i < entities.size(); ++i) {
      if (wanted(entities[i])) places.push_back({&entities, i});
      gather(entities[i].fields, wanted, places);
    }
  }

  template <class Wanted>
  std::optional<Place> anyWhere(std::vector<Frame>& frames, const Wanted& wanted) {
    std::vector<Place> places;
    for (Frame& frame : frames) gather(frame.body, wanted, places);
    if (places.empty()) return std::nullopt;
    return random_.oneOf(places);
  }
  template <class Wanted>
  std::optional<Place> any(const Wanted& wanted) {
    return anyWhere(input_.frames, wanted);
  }
  std::optional<Place> any() {
    return any([](const Entity&) { return true; });
  }

  /// A place that an entity may be put in: among an object's fields, or a body's entities.
  void insert(Entity entity) {
    std::vector<Entities*> lists;
    for (Frame& frame : input_.frames) {
      lists.push_back(&frame.body);
      std::vector<Place> objects;
      gather(
          frame.body, [](const Entity& e) { return e.isObject(); }, objects);
      for (const Place& place : objects) lists.push_back(&place->fields);
    }
    if (lists.empty()) return;
    Entities& list = *random_.oneOf(lists);
    const std::size_t at = random_.below(list.size() + 1);
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), std::move(entity));
  }

  int knownCode() {
    if (mutator_.codes_.empty() || random_.oneIn(16)) {
      return random_.oneIn(2) ? kNullType : static_cast<int>(random_.below(1001));
    }
    return random_.oneOf(mutator_.codes_);
  }

  std::int32_t edge() { return random_.oneOf(kEdges); }

  void typeCode() {
    const auto place = any([](const Entity& e) { return e.isObject() && hasCode(e); });
    if (place) (*place)->fields[0].number = knownCode();
  }

  static bool hasCode(const Entity& e) { return !e.fields.empty() && e.fields[0].isInteger(); }

  void version() {
    const auto place = any([](const Entity& e) {
      return e.isObject() && hasCode(e) && e.fields.size() > 1 && e.fields[1].isInteger();
    });
    if (!place) return;
    (*place)->fields[1].number =
        random_.oneIn(4) ? edge() : static_cast<std::int32_t>(random_.below(4));
  }

  void edgeOfInteger() {
    const auto place = any([](const Entity& e) { return e.isInteger(); });
    if (!place) return;
    std::int32_t& number = (*place)->number;
    // Unsigned: the neighbours of the last number are numbers too.
    const auto bits = static_cast<std::uint32_t>(number);
    switch (random_.below(4)) {
      case 0:
        number = static_cast<std::int32_t>(bits + 1 - 2 * random_.number() % 2);
        break;
      case 1:
        number = static_cast<std::int32_t>(bits ^ std::uint32_t{1} << random_.below(32));
        break;
      default:
        number = edge();
    }
  }

  // A list that stays true: its count, and what follows it, grow or shrink together.
  void count() {
    const auto place = any([](const Entity& e) { return e.isInteger(); });
    if (!place) return;
    Entities& siblings = *place->siblings;
    const std::size_t first = place->index + 1;
    const std::size_t rest = siblings.size() - first;
    if (rest == 0) return;
    std::int32_t& number = (*place)->number;
    const auto at = siblings.begin() + static_cast<std::ptrdiff_t>(first);
    const std::size_t length = 1 + random_.below(std::min<std::size_t>(rest, 4));
    if (random_.oneIn(3)) {
      number = static_cast<std::int32_t>(static_cast<std::uint32_t>(number) - 1);
      siblings.erase(at, at + static_cast<std::ptrdiff_t>(length));
      return;
    }
    const std::size_t times = random_.oneIn(8) ? 1 + random_.below(64) : 1;
    number = static_cast<std::int32_t>(static_cast<std::uint32_t>(number) +
                                       static_cast<std::uint32_t>(times));
    const Entities element(at, at + static_cast<std::ptrdiff_t>(length));
    for (std::size_t i = 0; i < times; ++i) {
      siblings.insert(siblings.begin() + static_cast<std::ptrdiff_t>(first), element.begin(),
                      element.end());
    }
  }

  void content() {
    const auto place = any([](const Entity& e) { return e.hasContent(); });
    if (!place) return;
    std::string& content = (*place)->content;
    const std::size_t at = random_.below(content.size() + 1);
    switch (random_.below(6)) {
      case 0:
        content.erase(at);
        break;
      case 1:
        content.append(content);
        break;
      case 2:
        content.append(random_.oneOf(kSizes), 'x');
        break;
      case 3:
        content = mutator_.mutateBytes_(content, content.size() + 64);
        break;
      default:
        content.insert(at, random_.oneOf(kTexts));
    }
    // No longer than the longest length that its head can tell.
    if ((*place)->kind == Kind::Text) content.resize(std::min<std::size_t>(content.size(), 0xFFFF));
    (*place)->length.reset();
  }
  // Around the inline stores and blocks of strings and blobs.
  static constexpr std::size_t kSizes[] = {1, 15, 16, 64, 65, 499, 500, 501, 1000, 2000};

  void repeat() {
    const auto place = any();
    if (!place) return;
    const Entity entity = **place;
    const std::size_t times = random_.oneIn(8) ? 1 + random_.below(64) : 1;
    if (random_.oneIn(3)) {
      insert(entity);
    } else {
      place->siblings->insert(place->iterator(), times, entity);
    }
  }

  void remove() {
    if (const auto place = any()) place->siblings->erase(place->iterator());
  }

  void move() {
    const auto place = any();
    if (!place) return;
    Entity entity = std::move(**place);
    place->siblings->erase(place->iterator());
    insert(std::move(entity));
  }

  void nest() {
    const auto place = any();
    if (!place) return;
    const std::size_t depth = random_.oneIn(16) ? random_.below(kDeepest) : 1 + random_.below(3);
    const int code = knownCode();
    for (std::size_t i = 0; i < depth; ++i) {
      Entities inner;
      inner.push_back(std::move(**place));
      **place = object(code == kNullType ? 2 : code, std::move(inner));
    }
  }

  void unwrap() {
    const auto place = any([](const Entity& e) { return e.isObject(); });
    if (!place) return;
    const Entities fields = std::move((*place)->fields);
    const auto at = place->siblings->erase(place->iterator());
    const std::size_t head = random_.oneIn(2) ? std::min<std::size_t>(fields.size(), 2) : 0;
    place->siblings->insert(at, fields.begin() + static_cast<std::ptrdiff_t>(head), fields.end());
  }

  void absent() {
    // Strings and blobs may be null as well.
    const auto place = any([](const Entity& e) { return !e.isInteger() && !e.isNull(); });
    if (place) **place = object(kNullType, {});
  }

  void splice() {
    if (mutator_.seeds_.empty()) return;
    Input seed = Parser::input(random_.oneOf(mutator_.seeds_));
    const auto from = anyWhere(seed.frames, [](const Entity&) { return true; });
    if (!from) return;
    const Kind kind = (*from)->kind;
    const bool sameKind = !random_.oneIn(4);
    const auto to = any([&](const Entity& e) { return !sameKind || e.kind == kind; });
    if (to && !random_.oneIn(3)) {
      **to = std::move(**from);
    } else {
      insert(std::move(**from));
    }
  }

  void compression() {
    if (input_.frames.empty()) return;
    Frame& frame = random_.oneOf(input_.frames);
    frame.compressed = !frame.compressed;
    frame.length.reset();
  }

  void frames() {
    std::vector<Frame>& frames = input_.frames;
    if (frames.empty()) return;
    const std::size_t i = random_.below(frames.size());
    const std::size_t j = random_.below(frames.size());
    switch (random_.below(3)) {
      case 0:
        if (frames.size() > 1) frames.erase(frames.begin() + static_cast<std::ptrdiff_t>(i));
        break;
      case 1:
        std::swap(frames[i], frames[j]);
        break;
      default: {
        Frame again = mutator_.seeds_.empty() || random_.oneIn(2) ? frames[i] : seedFrame();
        frames.insert(frames.begin() + static_cast<std::ptrdiff_t>(j), std::move(again));
      }
    }
  }

  Frame seedFrame() {
    Input seed = Parser::input(random_.oneOf(mutator_.seeds_));
    return seed.frames.empty() ? Frame() : std::move(seed.frames[0]);
  }

  std::uint32_t falseLength(std::size_t truth) {
    const auto edges = static_cast<std::uint32_t>(edge());
    return random_.oneIn(2) ? edges : static_cast<std::uint32_t>(truth) + random_.number() % 9 - 4;
  }

  void contentLength() {
    const auto place = any([](const Entity& e) { return e.hasContent(); });
    if (place) (*place)->length = falseLength((*place)->content.size());
  }

  void frameLength() {
    if (input_.frames.empty()) return;
    Frame& frame = random_.oneOf(input_.frames);
    std::string bytes;
    frame.length.reset();
    write(frame, bytes);
    frame.length = falseLength(bytes.size() - 4);
  }

  void endMarker() {
    const auto place = any([](const Entity& e) { return e.hasContent() || e.isObject(); });
    if (place && !random_.oneIn(4)) {
      (*place)->ends = static_cast<int>(random_.below(2));
    } else if (!input_.frames.empty()) {
      random_.oneOf(input_.frames).ended = false;
    }
  }

  const FrameMutator& mutator_;
  Input& input_;
  Random& random_;
};

FrameMutator::FrameMutator(ObjectFactory& factory, std::vector<std::string> seeds,
                           ByteMutator mutateBytes)
    : seeds_(std::move(seeds)), mutateBytes_(std::move(mutateBytes)) {
  for (int code = 0; code < ObjectFactory::kCapacity; ++code) {
    if (factory.getTypeName(code)) codes_.push_back(code);
  }
}

std::string FrameMutator::mutate(std::string_view input, std::uint32_t random,
                                 std::size_t maxSize) const {
  Random numbers(random);
  const std::string bytes(input);
  if (numbers.oneIn(16)) return mutateBytes_(bytes, maxSize);
  Input taken = Parser::input(input);
  if (!seeds_.empty() && (taken.frames.empty() || numbers.oneIn(64))) {
    taken = Parser::input(numbers.oneOf(seeds_));
  }
  constexpr int kMostSteps = 4;
  int step = 0;
  do {
    const Change change = numbers.oneIn(6) ? numbers.oneOf(kBreaking) : numbers.oneOf(kWellFormed);
    Editor(*this, taken, numbers).apply(change);
  } while (++step < kMostSteps && numbers.oneIn(2));
  std::string changed = joined(taken);
  return changed.size() <= maxSize ? changed : mutateBytes_(bytes, maxSize);
}

std::string FrameMutator::change(std::string_view input, Change change,
                                 std::uint32_t random) const {
  Random numbers(random);
  Input taken = Parser::input(input);
  Editor(*this, taken, numbers).apply(change);
  return joined(taken);
}

}  // namespace nox::fuzz
