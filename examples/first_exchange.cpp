// A client asks, an agent answers; the connection between the two is memory.
#include <iostream>
#include <memory>
#include <string>

#include <nox/nox.h>

using nox::noxp::common::EchoRequestProt;
using nox::noxp::common::EchoResponseProt;

// A factory makes the objects that its owner understands. The library has one for each of its
// services; echo messages belong to no service, so whoever exchanges them registers them.
class EchoFactory : public nox::ObjectFactory {
public:
  EchoFactory() {
    add<EchoRequestProt>("EchoRequest");
    add<EchoResponseProt>("EchoResponse");
  }
  nox::Serializable* create() override { return new EchoFactory; }
};

// The agent: takes a request off the connection and writes one answer.
void serve(nox::InputStream& in, nox::OutStream& out) {
  EchoFactory factory;
  nox::BinaryReader reader(&factory, &in);
  const std::unique_ptr<nox::noxp::RequestProt> request(reader.readRequest());
  if (auto* echo = dynamic_cast<EchoRequestProt*>(request.get())) {
    EchoResponseProt response(new NOXPBlob(*echo->getBuffer()));  // owned by the response
    nox::BinaryWriter(&out).writeRoot(response);
  }
}

int main() try {
  EchoRequestProt request;
  request.getBuffer()->append("hello");
  nox::MemoryBufferOutStream toAgent;
  nox::BinaryWriter(&toAgent).writeRoot(request);

  nox::MemoryBufferInputStream atAgent(toAgent.str().data(), toAgent.str().size());
  nox::MemoryBufferOutStream toClient;
  serve(atAgent, toClient);

  EchoFactory factory;
  nox::MemoryBufferInputStream atClient(toClient.str().data(), toClient.str().size());
  const std::unique_ptr<nox::Serializable> root(
      nox::BinaryReader(&factory, &atClient).readRootObject());
  const auto& response = dynamic_cast<const EchoResponseProt&>(*root);
  const auto* text = reinterpret_cast<const char*>(response.getBuffer()->getBuf());
  std::cout << "request of " << toAgent.str().size() << " bytes, answer of "
            << toClient.str().size()
            << " bytes: " << std::string(text, response.getBuffer()->length()) << "\n";
} catch (
    nox::NOXException* thrown) {  // what is malformed is thrown by pointer: the catcher owns it
  const std::unique_ptr<nox::NOXException> error(thrown);
  std::cerr << error->what() << "\n";
  return 1;
}
