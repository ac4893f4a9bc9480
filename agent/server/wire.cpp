#include "agent/server/wire.h"

#include <new>
#include <utility>

#include "agent/http/http_request.h"

namespace nox::agent {

namespace {

// What a client sent may be part of the text; no one reads more than this of it.
constexpr std::size_t kLongestErrorText = 4000;  // bytes

SQLExtError errorOf(const Failure& failure) {
  SQLExtError error = failure.error();
  std::string& text = error.getMsg();
  if (text.size() <= kLongestErrorText) return error;
  std::size_t end = kLongestErrorText;
  const auto continues = [&] { return (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80; };
  while (end > 0 && continues()) --end;
  return SQLExtError(failure.state(), text.substr(0, end) + "...");
}

}  // namespace

Wire::Wire(Transport& transport) : in_(transport), out_(transport) { writer_.emplace(&out_); }

void Wire::expect(ObjectFactory& factory, const Limits& limits) {
  factory_ = &factory;
  limits_ = limits;
  out_.setLimits(limits.reply, limits.sendTime);
  renewReader();
}

void Wire::renewReader() {
  reader_.emplace(factory_, &in_.frame());
  reader_->limitInflation(limits_.frame);
}

Wire::Event Wire::next() {
  if (!in_.hasNextFrame()) out_.sendGathered();
  switch (in_.nextFrame(limits_.frame, limits_.frameTime)) {
    case DeadlineInputStream::Arrival::Frame:
      return read();
    case DeadlineInputStream::Arrival::Http:
      return Event::Http;
    case DeadlineInputStream::Arrival::Broken:
      return Event::Broken;
    case DeadlineInputStream::Arrival::Nothing:
      return Event::Nothing;
    case DeadlineInputStream::Arrival::Late:
    case DeadlineInputStream::Arrival::Ended:
      break;
  }
  return Event::Ended;
}

Wire::Event Wire::read() {
  unknownType_.reset();
  try {
    request_.reset(reader_->readRequest());
    return request_ ? Event::Request : unreadable("0A", "this is no request");
  } catch (UnknownType* thrown) {
    const std::unique_ptr<UnknownType> error(thrown);
    unknownType_ = error->getTypeCode();
    return unreadable("0A", "unknown type code " + std::to_string(error->getTypeCode()));
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
    return unreadable("IE", std::string("malformed frame: ") + error->what());
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
    return unreadable("IE", "malformed frame: its object does not end");
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
    return unreadable("IE", "malformed frame: its object does not end");
  } catch (const NOXException& error) {
    return unreadable("IE", std::string("malformed frame: ") + error.what());
  } catch (const std::bad_alloc&) {
    return unreadable("IE", "no memory for this frame");
  } catch (const std::exception&) {
    return unreadable("IE", "malformed frame");
  }
}

/// The reader is spent then: the next frame gets a new one.
Wire::Event Wire::unreadable(const char* sqlClass, const std::string& reason) {
  problem_.emplace(sqlClass, "000", reason);
  renewReader();
  return Event::Unreadable;
}

std::unique_ptr<HttpRequest> Wire::readHttp() {
  BinaryReader reader(factory_, &in_);
  try {
    std::unique_ptr<Serializable> root(reader.readRootObject());
    auto* const request = dynamic_cast<HttpRequest*>(root.get());
    if (request) root.release();
    return std::unique_ptr<HttpRequest>(request);
  } catch (NOXException* thrown) {
    const std::unique_ptr<NOXException> error(thrown);
  } catch (LAST* thrown) {
    const std::unique_ptr<LAST> marker(thrown);
  } catch (NONE* thrown) {
    const std::unique_ptr<NONE> marker(thrown);
  }
  return nullptr;
}

void Wire::dropReply() { writer_.emplace(&out_); }

void Wire::sendError(const Failure& failure) {
  ErrorResponseProt reply(errorOf(failure));
  writer_->writeRoot(reply);
}

void Wire::sendSqlError(int statementId, const Failure& failure) {
  noxp::sql::SQLErrorResponseProt reply(statementId, errorOf(failure));
  writer_->writeRoot(reply);
}

void Wire::sendRaw(const std::string& bytes) { out_.send(bytes.data(), bytes.size()); }

void Wire::rest() {
  in_.shrink();
  out_.shrink();
  renewReader();
  writer_.emplace(&out_);
  GZipCompressor::releaseMemory();
}

}  // namespace nox::agent
