// What an application does with the library: messages and archives of its own, written and read
// through memory, with what goes wrong caught by class.
#include <nox/nox.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

// A message of the application, with its own type code.
class Greeting : public nox::Request<Greeting, 900> {
public:
  Greeting() = default;
  Greeting(int number, nox::CopiedString text) : number_(number), text_(text) {}
  int getNumber() const { return number_; }
  NOXPString* getText() const { return text_.get(); }
  nox::Archive& serialize(nox::Archive& ar, unsigned int /*version*/) override {
    return ar.process(number_, "number").process(text_, "text");
  }

private:
  int number_ = 0;
  nox::OwnedString text_;
};

class Greetings : public nox::ObjectFactory {
public:
  Greetings() { add<Greeting>("Greeting"); }
  nox::Serializable* create() override { return new Greetings; }
};

// An archive of the application, with just the five operations.
class FieldCounter : public nox::Archive {
public:
  using nox::Archive::process;
  nox::Archive& process(NOXPBlob*, const char*) override { return count(); }
  nox::Archive& process(NOXPString*, const char*) override { return count(); }
  nox::Archive& process(std::string&, const char*) override { return count(); }
  nox::Archive& process(int&, const char*) override { return count(); }
  nox::Archive& process(nox::Serializable*, const char*) override { return count(); }
  bool isWriting() override { return true; }
  int fields() const { return fields_; }

private:
  nox::Archive& count() {
    ++fields_;
    return *this;
  }
  int fields_ = 0;
};

bool check(bool holds, const char* what) {
  if (!holds) std::fprintf(stderr, "consumer: %s\n", what);
  return holds;
}

std::unique_ptr<nox::Serializable> read(nox::ObjectFactory& factory, const std::string& frame) {
  nox::MemoryBufferInputStream in(frame.data(), frame.size());
  return std::unique_ptr<nox::Serializable>(nox::BinaryReader(&factory, &in).readRootObject());
}

bool travels() {
  Greeting greeting(7, "hello");
  nox::MemoryBufferOutStream out;
  nox::BinaryWriter(&out).writeRoot(greeting);
  Greetings factory;
  const std::unique_ptr<nox::Serializable> root = read(factory, out.str());
  const auto* back = dynamic_cast<const Greeting*>(root.get());
  return check(back && back->getNumber() == 7, "the number does not come back") &&
         check(back->getText()->getString() == "hello", "the text does not come back");
}

bool caughtByClass() {
  const std::string unknown("\0\0\0\x0E[LI\0\0\0\x05I\0\0\0\0;]", 18);
  Greetings factory;
  try {
    read(factory, unknown);
  } catch (nox::NOXException* thrown) {
    const std::unique_ptr<nox::NOXException> error(thrown);
    return check(dynamic_cast<nox::UnknownType*>(thrown), "another error than UnknownType");
  }
  return check(false, "an unknown type passes");
}

bool endCaught() {
  Greetings factory;
  try {
    read(factory, "");
  } catch (nox::LAST* thrown) {
    delete thrown;
    return true;
  }
  return check(false, "the end of the stream passes");
}

bool ownArchive() {
  Greeting greeting(7, "hello");
  FieldCounter counter;
  greeting.serialize(counter, 0);
  return check(counter.fields() == 2, "another number of fields than two");
}

}  // namespace

int main() {
  const bool ok = travels() && caughtByClass() && endCaught() && ownArchive();
  return ok ? 0 : 1;
}
