// noxd, spoken to with the library's own writer, reader and socket streams.
#include <ace/INET_Addr.h>
#include <ace/SOCK_Connector.h>
#include <ace/SSL/SSL_Context.h>
#include <ace/SSL/SSL_SOCK_Connector.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <type_traits>

#include <nox/nox.h>

#include "bench/agent/operation.h"

namespace {

using namespace nox;
using namespace nox::noxp;

/// Takes what the socket has instead of asking for a frame's length and its body one by one, as a
/// client that cares for its time does.
template <class Stream>
class BufferedStream : public InputStream {
public:
  explicit BufferedStream(Stream& stream) : stream_(stream) {}

  std::int64_t readMax(char* to, int n) override {
    const auto wanted = static_cast<std::size_t>(n);
    std::size_t have = 0;
    while (have < wanted) {
      if (begin_ == end_) {
        const ssize_t received = stream_.recv(buffer_.data(), buffer_.size());
        if (received <= 0) throw new LAST;
        begin_ = 0;
        end_ = static_cast<std::size_t>(received);
      }
      const std::size_t part = std::min(wanted - have, end_ - begin_);
      std::memcpy(to + have, buffer_.data() + begin_, part);
      begin_ += part;
      have += part;
    }
    return n;
  }
  std::int64_t readMax(char* to, int n, int /*timeout*/) override { return readMax(to, n); }

private:
  Stream& stream_;
  std::array<char, 64 * 1024> buffer_{};
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

template <class Connector, class Stream>
class Link {
public:
  Link(std::uint16_t port, const std::string& password) {
    if constexpr (std::is_same_v<Stream, ACE_SSL_SOCK_Stream>) {
      ACE_SSL_Context::instance()->set_mode(ACE_SSL_Context::SSLv23_client);
    }
    Connector connector;
    const ACE_INET_Addr address(port, "127.0.0.1");
    if (connector.connect(stream_, address) != 0) throw std::runtime_error("noxd: cannot connect");
    in_.emplace(stream_);
    out_.emplace(&stream_, true, 0);
    reader_.emplace(&factory_, &*in_);
    writer_.emplace(&*out_);
    AuthenticationRequestProt login(
        new AccountUserCredentialsProt("bench", "MAIN", password.c_str()));
    ask<OKResponseProt>(login);
  }
  ~Link() { stream_.close(); }
  Link(const Link&) = delete;
  Link& operator=(const Link&) = delete;

  template <class Expected>
  std::unique_ptr<Expected> ask(RequestProt& request) {
    writer_->writeRoot(request);
    std::unique_ptr<Serializable> reply(reader_->readRootObject());
    if (auto* const expected = dynamic_cast<Expected*>(reply.get())) {
      reply.release();
      return std::unique_ptr<Expected>(expected);
    }
    if (auto* const failed = dynamic_cast<ErrorResponseProt*>(reply.get())) {
      throw std::runtime_error("noxd: " + failed->getError()->getMsg());
    }
    if (auto* const failed = dynamic_cast<sql::SQLErrorResponseProt*>(reply.get())) {
      throw std::runtime_error("noxd: " + failed->getError()->getMsg());
    }
    throw std::runtime_error("noxd: another reply came");
  }

private:
  Stream stream_;
  ClientObjectFactory factory_;
  std::optional<BufferedStream<Stream>> in_;
  std::optional<ACEOutStream> out_;
  std::optional<BinaryReader> reader_;
  std::optional<BinaryWriter> writer_;
};

using PlainLink = Link<ACE_SOCK_Connector, ACE_SOCK_Stream>;
using TlsLink = Link<ACE_SSL_SOCK_Connector, ACE_SSL_SOCK_Stream>;

template <class AnyLink>
class Echo : public Operation {
public:
  Echo(std::uint16_t port, const std::string& password) : link_(port, password) {}
  std::uint64_t run() override {
    const auto reply = link_.template ask<common::EchoResponseProt>(request_);
    if (!reply->getBuffer() || reply->getBuffer()->length() != kEchoBytes) {
      throw std::runtime_error("noxd: other bytes came back");
    }
    return 1;
  }

private:
  AnyLink link_;
  common::EchoRequestProt request_{kEchoBytes};
};

class Read : public Operation {
public:
  Read(std::uint16_t port, const std::string& password) : link_(port, password) {}
  std::uint64_t run() override {
    remote::ReadRecordRequestProt request(0, "BENCH", recordId(next_++ % kRecords).c_str());
    const auto reply = link_.ask<remote::ToviResponseProt>(request);
    if (reply->getStatus() != 0 || reply->getRecord()->length() != kRecordBytes) {
      throw std::runtime_error("noxd: another record came");
    }
    return 1;
  }

private:
  PlainLink link_;
  int next_ = 0;
};

class Write : public Operation {
public:
  Write(std::uint16_t port, const std::string& password, int writer)
      : link_(port, password), next_(writer * 1000), body_(kRecords + writer * kMostWrites) {}
  std::uint64_t run() override {
    const std::string id = recordId(next_++ % kRecords);
    remote::WriteRecordRequestProt request(0, "BENCH", id.c_str(), recordBody(body_++).c_str());
    if (link_.ask<remote::ToviResponseProt>(request)->getStatus() != 0) {
      throw std::runtime_error("noxd: not written");
    }
    return 1;
  }

private:
  PlainLink link_;
  int next_;
  int body_;
};

class Rows : public Operation {
public:
  Rows(std::uint16_t port, const std::string& password) : link_(port, password) {}
  std::uint64_t run() override {
    sql::CompileAndExecuteRequestProt execute(new NOXPString("SELECT * FROM many"));
    auto reply = link_.ask<sql::SQLResultResponseProt>(execute);
    const int id = reply->getStatementId();
    std::uint64_t rows = 0;
    std::uint64_t bytes = 0;
    for (;;) {
      const std::uint64_t before = rows;
      while (sql::RowProt* const row = reply->getResultSet()->next()) {
        for (int i = 0; i < kRowColumns; ++i) bytes += row->getColumnView(i).size();
        ++rows;
      }
      if (rows == before) break;
      sql::FetchRequestProt fetch(id, 1000);
      reply = link_.ask<sql::SQLResultResponseProt>(fetch);
    }
    sql::ReleaseStatementRequestProt release(id);
    link_.ask<sql::SQLOKResponseProt>(release);
    if (rows != kRows || bytes == 0) throw std::runtime_error("noxd: rows are missing");
    return rows;
  }

private:
  PlainLink link_;
};

}  // namespace

Contender noxdEcho(const Servers& servers) {
  return {"noxd", [servers] {
            return std::make_unique<Echo<PlainLink>>(servers.noxdPort, servers.noxdPassword);
          }};
}

Contender noxdTlsEcho(const Servers& servers) {
  return {"noxd TLS", [servers] {
            return std::make_unique<Echo<TlsLink>>(servers.noxdTlsPort, servers.noxdPassword);
          }};
}

Contender noxdRead(const Servers& servers) {
  return {"noxd",
          [servers] { return std::make_unique<Read>(servers.noxdPort, servers.noxdPassword); }};
}

Contender noxdWrite(const Servers& servers) {
  const auto writers = std::make_shared<std::atomic<int>>(0);
  return {"noxd", [servers, writers] {
            return std::make_unique<Write>(servers.noxdPort, servers.noxdPassword, (*writers)++);
          }};
}

Contender noxdRows(const Servers& servers) {
  return {"noxd",
          [servers] { return std::make_unique<Rows>(servers.noxdPort, servers.noxdPassword); }};
}

void fillNoxd(const Servers& servers) {
  PlainLink link(servers.noxdPort, servers.noxdPassword);
  NOXPBlob command("CREATE-FILE BENCH");
  remote::RemoteExecuteRequestProt create{Borrowed<NOXPBlob>(&command)};
  link.ask<remote::ExecuteResponseProt>(create);
  remote::BeginTransactionRequestProt begin;
  link.ask<remote::TransactionResponseProt>(begin);
  for (int i = 0; i < kRecords; ++i) {
    remote::WriteRecordRequestProt write(0, "BENCH", recordId(i).c_str(), recordBody(i).c_str());
    link.ask<remote::ToviResponseProt>(write);
  }
  remote::CommitTransactionRequestProt commit;
  link.ask<remote::TransactionResponseProt>(commit);
  for (const std::string& text :
       {std::string("CREATE TABLE many (a TEXT, b TEXT, c TEXT, d TEXT, e TEXT, f TEXT, g TEXT, "
                    "h TEXT)"),
        "INSERT INTO many WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i "
        "< " +
            std::to_string(kRows) +
            ") SELECT i, 'value ' || i, 'c', 'dd', 'eee', 'ffff', 'ggggg', i * 7 FROM n"}) {
    sql::CompileAndExecuteRequestProt run(new NOXPString(text));
    link.ask<sql::SQLUpdateResponseProt>(run);
  }
}
