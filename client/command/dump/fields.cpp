#include "client/command/dump/fields.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace nox::command {

namespace {

/// A writer that keeps the names of what it is given, and which of it is a password.
class Recorder : public Writer {
public:
  using Writer::process;

  explicit Recorder(ObjectFields& root) : object_(&root) {}

  void record(Serializable& object) {
    object.serialize(*this, static_cast<unsigned int>(object.getClassVersion()));
  }

  Archive& process(int& /*value*/, const char* name) override { return add(name); }
  Archive& process(std::string& /*value*/, const char* name) override { return add(name); }
  Archive& process(NOXPString* /*value*/, const char* name) override { return add(name); }
  Archive& process(NOXPBlob* /*value*/, const char* name) override { return add(name); }
  Archive& process(Serializable* value, const char* name) override {
    add(name);
    if (!value) return *this;
    auto& child = object_->fields.back().object;
    child = std::make_unique<ObjectFields>();
    ObjectFields* const outer = std::exchange(object_, child.get());
    record(*value);
    object_ = outer;
    return *this;
  }

private:
  Archive& add(const char* name) {
    Field field;
    field.name = name ? name : "";
    field.secret = field.name.find("assword") != std::string::npos;
    object_->fields.push_back(std::move(field));
    return *this;
  }

  ObjectFields* object_;
};

/// Walks a body with nothing but the format to go by: every value begins with a marker that says
/// what it is, and ';' ends an object.
class Parser {
public:
  explicit Parser(std::string_view body) : rest_(body) {}

  ObjectFields root() {
    expect('L');
    ObjectFields object = this->object(0);
    if (!rest_.empty()) throw std::runtime_error("bytes behind the object");
    return object;
  }

private:
  static constexpr int kDeepest = 512;  // as readers allow

  /// Behind its marker.
  ObjectFields object(int depth) {
    if (depth == kDeepest) throw std::runtime_error("objects nest too deep");
    ObjectFields object;
    object.type = number();
    if (object.type != kNullType) {
      object.version = number();
      while (peek() != ';') object.fields.push_back(field(depth));
    }
    expect(';');
    return object;
  }

  Field field(int depth) {
    Field field;
    switch (peek()) {
      case 'I':
        field.kind = Field::Kind::Number;
        field.number = number();
        return field;
      case 's':
        rest_.remove_prefix(1);
        field.kind = Field::Kind::Text;
        field.bytes = take(bigEndian(2));
        break;
      case 'j':
        rest_.remove_prefix(1);
        expect('b');
        field.kind = Field::Kind::Blob;
        field.bytes = take(bigEndian(4));
        expect(';');
        break;
      case 'L':
        rest_.remove_prefix(1);
        field.object = std::make_unique<ObjectFields>(object(depth + 1));
        field.kind = Field::Kind::Object;
        if (field.object->type == kNullType) {
          field.kind = Field::Kind::Null;
          field.object.reset();
        }
        return field;
      default:
        throw std::runtime_error("no marker of a value where one must stand");
    }
    expect(';');
    return field;
  }

  char peek() const {
    if (rest_.empty()) throw std::runtime_error("the frame ends early");
    return rest_.front();
  }
  void expect(char marker) {
    if (peek() != marker)
      throw std::runtime_error(std::string("no '") + marker + "' where it must stand");
    rest_.remove_prefix(1);
  }
  int number() {
    expect('I');
    return static_cast<std::int32_t>(bigEndian(4));
  }
  std::uint32_t bigEndian(std::size_t size) {
    std::uint32_t value = 0;
    for (const char c : take(size)) value = value << 8 | static_cast<unsigned char>(c);
    return value;
  }
  std::string_view take(std::size_t n) {
    if (rest_.size() < n) throw std::runtime_error("the frame ends early");
    const std::string_view taken = rest_.substr(0, n);
    rest_.remove_prefix(n);
    return taken;
  }

  std::string_view rest_;
};

void takeNames(ObjectFields& fields, const ObjectFields& named) {
  for (std::size_t i = 0; i < std::min(fields.fields.size(), named.fields.size()); ++i) {
    Field& field = fields.fields[i];
    field.name = named.fields[i].name;
    field.secret = named.fields[i].secret;
    if (field.object && named.fields[i].object) takeNames(*field.object, *named.fields[i].object);
  }
}

}  // namespace

ObjectFields fieldsOfBody(std::string_view body) { return Parser(body).root(); }

void nameFields(ObjectFields& fields, Serializable& object) {
  ObjectFields named;
  Recorder(named).record(object);
  takeNames(fields, named);
}

}  // namespace nox::command
