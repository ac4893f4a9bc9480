#include "client/command/dump/json.h"

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

#include "client/command/base64.h"

namespace nox::command {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kDeepest = 64;  // messages nest up to 5
constexpr int kDeepestJson = 256;     // each of them takes three levels

/// Throws Json::parse_error, and std::runtime_error for what is deeper than any message: what shows
/// a value in a sentence goes down into it as deep as it is.
Json parse(std::string_view text) {
  return Json::parse(text, [](int depth, Json::parse_event_t, const Json&) {
    if (depth > kDeepestJson) throw std::runtime_error("the JSON nests too deep");
    return true;
  });
}

bool isText(const std::string& bytes) {
  try {
    static_cast<void>(Json(bytes).dump());
    return true;
  } catch (const Json::type_error&) {  // no UTF-8
    return false;
  }
}

Json jsonOfBytes(const std::string& bytes) {
  if (isText(bytes)) return bytes;
  return Json{{"base64", base64Of(bytes)}};
}

std::string bytesOf(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_object() && value.size() == 1 && value.contains("base64") &&
      value["base64"].is_string()) {
    return bytesOfBase64(value["base64"].get<std::string>());
  }
  throw std::runtime_error("a text or {\"base64\": ...} was expected, not " + value.dump());
}

Json toJson(const ObjectFields& object, ObjectFactory& factory) {
  Json fields = Json::array();
  for (const Field& field : object.fields) {
    Json value;
    switch (field.kind) {
      case Field::Kind::Number:
        value = field.number;
        break;
      case Field::Kind::Text:
        value = jsonOfBytes(field.bytes);
        break;
      case Field::Kind::Blob:
        value = Json{{"blob", jsonOfBytes(field.bytes)}};
        break;
      case Field::Kind::Object:
        value = toJson(*field.object, factory);
        break;
      case Field::Kind::Null:
        break;
    }
    fields.push_back(Json::array({field.name, std::move(value)}));
  }
  const char* const name = factory.getTypeName(object.type);
  Json json;
  json["type"] = name ? Json(name) : Json(object.type);
  if (object.version != 0) json["version"] = object.version;
  json["fields"] = std::move(fields);
  return json;
}

/// Fills objects from JSON through their own description of themselves.
class JsonReader : public Reader {
public:
  using Reader::process;

  explicit JsonReader(CatalogueFactory& factory) : factory_(factory) {}

  std::unique_ptr<Serializable> read(const Json& json) {
    const int type = typeOf(json);
    std::unique_ptr<Serializable> object(factory_.createObject(type));
    fill(*object, json);
    return object;
  }

  Archive& process(int& value, const char* name) override {
    const Json& json = next(name);
    if (!json.is_number_integer()) fail("a number was expected, not " + json.dump());
    const auto number = json.get<std::int64_t>();
    if (number < INT32_MIN || number > INT32_MAX) fail(json.dump() + " has more than 32 bits");
    value = static_cast<int>(number);
    return *this;
  }
  Archive& process(std::string& value, const char* name) override {
    value = bytesOf(next(name));
    return *this;
  }
  Archive& process(NOXPString* value, const char* name) override {
    const Json& json = next(name);
    if (json.is_null()) {
      if (value) *value = NOXPString("");
      return *this;
    }
    const std::string text = bytesOf(json);
    if (value) value->assign(text.data(), text.size(), true);
    return *this;
  }
  Archive& process(NOXPBlob* value, const char* name) override {
    const Json& json = next(name);
    if (json.is_null()) {
      if (value) value->clear();
      return *this;
    }
    if (!json.is_object() || json.size() != 1 || !json.contains("blob")) {
      fail("{\"blob\": ...} was expected, not " + json.dump());
    }
    const std::string bytes = bytesOf(json["blob"]);
    if (value) value->assign(bytes.data(), bytes.size());
    return *this;
  }
  Archive& process(Serializable* value, const char* name) override {
    const Json& json = next(name);
    if (json.is_null()) return *this;
    if (!value) {
      // Only credentials come without an object to fill; they are made by frameOfJson.
      fail("an object has no place here");
    }
    const int type = typeOf(json);
    if (type != value->getType()) {
      fail("type " + std::to_string(value->getType()) + " was expected, not " +
           std::to_string(type));
    }
    fill(*value, json);
    return *this;
  }

private:
  struct Level {
    const Json* fields;
    std::size_t next = 0;
  };

  [[noreturn]] void fail(const std::string& why) const {
    throw std::runtime_error("field " + std::to_string(levels_.empty() ? 0 : levels_.back().next) +
                             " of " + path_ + ": " + why);
  }

  int typeOf(const Json& json) const {
    if (!json.is_object() || !json.contains("type")) {
      throw std::runtime_error("an object with a \"type\" was expected, not " + json.dump());
    }
    const Json& type = json["type"];
    const int code = type.is_number_integer() ? type.get<int>()
                     : type.is_string()       ? factory_.findType(type.get<std::string>())
                                              : -1;
    if (code < 0 || !factory_.getTypeName(code)) {
      throw std::runtime_error("there is no message of type " + type.dump());
    }
    return code;
  }

  void fill(Serializable& object, const Json& json) {
    if (levels_.size() >= kDeepest) fail("objects nest too deep");
    static const Json kNoFields = Json::array();
    const Json& fields = json.contains("fields") ? json["fields"] : kNoFields;
    if (!fields.is_array()) throw std::runtime_error("\"fields\" is no array");
    const int version = json.value("version", 0);
    object.setClassVersion(version);
    const std::string outer = std::exchange(path_, factory_.getTypeName(object.getType()));
    levels_.push_back({&fields});
    object.serialize(*this, static_cast<unsigned int>(version));
    if (levels_.back().next != fields.size()) fail("there is no such field");
    levels_.pop_back();
    path_ = outer;
  }

  const Json& next(const char* name) {
    Level& level = levels_.back();
    if (level.next == level.fields->size()) {
      fail(std::string("\"") + (name ? name : "") + "\" is missing");
    }
    const Json& field = (*level.fields)[level.next];
    if (!field.is_array() || field.size() != 2 || !field[0].is_string()) {
      fail("[name, value] was expected, not " + field.dump());
    }
    const auto given = field[0].get<std::string>();
    const std::string wanted = name ? name : "";
    // A list of changed positions is written under one name and read under another.
    const bool same = given == wanted || given.empty() || wanted.empty() ||
                      (given == "updatedPos" && wanted == "updatedRecord");
    if (!same) fail("\"" + wanted + "\" was expected, not \"" + given + "\"");
    ++level.next;
    return field[1];
  }

  CatalogueFactory& factory_;
  std::vector<Level> levels_;
  std::string path_;
};

/// Writes what the JSON says, as it stands: an object that is filled with it could not tell a null
/// blob from an empty one.
class JsonMessage : public Serializable {
public:
  JsonMessage(const Json& json, CatalogueFactory& factory) : json_(json), factory_(factory) {
    setClassVersion(json.value("version", 0));
  }

  Serializable* create() override { return nullptr; }
  int getType() override {
    const Json& type = json_["type"];
    return type.is_string() ? factory_.findType(type.get<std::string>()) : type.get<int>();
  }
  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    if (!json_.contains("fields")) return ar;
    for (const Json& field : json_["fields"]) write(ar, field[1]);
    return ar;
  }

private:
  void write(Archive& ar, const Json& value) const {
    if (value.is_null()) {
      ar.process(static_cast<Serializable*>(nullptr), nullptr);
    } else if (value.is_number()) {
      int number = value.get<int>();
      ar.process(number, nullptr);
    } else if (value.is_object() && value.contains("type")) {
      JsonMessage object(value, factory_);
      ar.process(static_cast<Serializable*>(&object), nullptr);
    } else if (value.is_object() && value.contains("blob")) {
      const std::string bytes = bytesOf(value["blob"]);
      NOXPBlob blob(bytes.data(), bytes.size());
      ar.process(&blob, nullptr);
    } else {
      const std::string bytes = bytesOf(value);
      NOXPString text(bytes.data(), bytes.size(), true);
      ar.process(&text, nullptr);
    }
  }

  const Json& json_;
  CatalogueFactory& factory_;
};

/// Credentials are of two classes, so a request that is to be filled cannot make them by itself.
std::unique_ptr<Serializable> readMessage(const Json& json, CatalogueFactory& factory) {
  JsonReader reader(factory);
  if (json.is_object() && json.contains("type") &&
      (json["type"] == "AuthenticationRequest" ||
       json["type"] == TypeCode::AuthenticationRequest) &&
      json.contains("fields") && json["fields"].is_array() && json["fields"].size() == 1) {
    const Json& field = json["fields"][0];
    if (field.is_array() && field.size() == 2 && field[1].is_object()) {
      std::unique_ptr<Serializable> object = reader.read(field[1]);
      auto* const credentials = dynamic_cast<UserCredentials*>(object.get());
      if (!credentials) throw std::runtime_error("an AuthenticationRequest carries credentials");
      object.release();
      auto request =
          std::make_unique<noxp::AuthenticationRequestProt>(Adopted<UserCredentials>(credentials));
      request->setClassVersion(json.value("version", 0));
      return request;
    }
  }
  return reader.read(json);
}

}  // namespace

std::string jsonOf(const ObjectFields& object, ObjectFactory& factory) {
  return toJson(object, factory).dump();
}

std::string jsonOfText(const char* key, std::string_view text) {
  return Json{{key, jsonOfBytes(std::string(text))}}.dump();
}

std::string frameOfJson(std::string_view json, CatalogueFactory& factory) {
  Json parsed;
  try {
    parsed = parse(json);
  } catch (const Json::parse_error& error) {
    throw std::runtime_error(std::string("no JSON: ") + error.what());
  }
  try {
    static_cast<void>(readMessage(parsed, factory));  // finds what is wrong with it
    JsonMessage message(parsed, factory);
    MemoryBufferOutStream frame;
    BinaryWriter(&frame).writeRoot(message);
    return std::move(frame.str());
  } catch (const Json::exception& error) {
    throw std::runtime_error(error.what());
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    throw std::runtime_error(error->what());
  }
}

}  // namespace nox::command
