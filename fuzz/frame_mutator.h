// Changes frames entity by entity, the way a peer might get them wrong. Random bytes hardly get
// past the first marker.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace nox {

class ObjectFactory;

namespace fuzz {

/// What one step changes. Up to Frames the steps keep an input well-formed: lengths fit, every
/// entity is ended, although its objects may be none that a factory can read.
enum class Change {
  TypeCode,     // of an object, to one that the factory knows
  Version,      // of an object
  Integer,      // to one at the edge of something
  Count,        // an integer and as many of the entities behind it
  Content,      // of a string or blob
  Repeat,       // an entity, in its place or elsewhere
  Remove,       // an entity
  Move,         // an entity to another place
  Nest,         // an entity into new objects, one in the other
  Unwrap,       // an object into its fields
  Absent,       // an object becomes the null object
  Splice,       // an entity of a seed in the place of another
  Compression,  // of a body: on or off
  Frames,       // their order and number

  ContentLength,  // what a string or blob says about its length
  FrameLength,    // what a frame says
  EndMarker,      // one is left out
};

constexpr Change kWellFormed[] = {
    Change::TypeCode, Change::Version, Change::Integer, Change::Count,      Change::Content,
    Change::Repeat,   Change::Remove,  Change::Move,    Change::Nest,       Change::Unwrap,
    Change::Absent,   Change::Splice,  Change::Frames,  Change::Compression};
constexpr Change kBreaking[] = {Change::ContentLength, Change::FrameLength, Change::EndMarker};

class FrameMutator {
public:
  /// Changes bytes that have no structure; gives at most as many as its second argument.
  using ByteMutator = std::function<std::string(std::string bytes, std::size_t maxSize)>;

  /// Takes type codes from what `factory` knows, and entities from `seeds`, which are valid frames.
  FrameMutator(ObjectFactory& factory, std::vector<std::string> seeds, ByteMutator mutateBytes);

  /// A few changes to `input`, or to a seed where there is nothing to change. What is changed where
  /// follows from `random`; a result longer than `maxSize` is dropped for changed bytes.
  std::string mutate(std::string_view input, std::uint32_t random, std::size_t maxSize) const;
  /// One change. Without anything to apply it to, the input itself.
  std::string change(std::string_view input, Change change, std::uint32_t random) const;

private:
  class Editor;

  std::vector<int> codes_;
  std::vector<std::string> seeds_;
  ByteMutator mutateBytes_;
};

}  // namespace fuzz
}  // namespace nox
