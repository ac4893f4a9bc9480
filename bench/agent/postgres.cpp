// PostgreSQL through libpq, with prepared statements; rows in single-row mode.
#include <libpq-fe.h>

#include <array>
#include <atomic>
#include <stdexcept>

#include "bench/agent/operation.h"

namespace {

struct Free {
  void operator()(PGconn* connection) const { PQfinish(connection); }
  void operator()(PGresult* result) const { PQclear(result); }
};
using Result = std::unique_ptr<PGresult, Free>;

class Postgres : public Operation {
protected:
  explicit Postgres(const std::string& where) : connection_(PQconnectdb(where.c_str())) {
    if (PQstatus(connection_.get()) != CONNECTION_OK) throwError();
  }

  void prepare(const char* sql) {
    check(Result(PQprepare(connection_.get(), "bench", sql, 0, nullptr)), PGRES_COMMAND_OK);
  }
  template <std::size_t N>
  Result execute(const std::array<const char*, N>& values, ExecStatusType expected) {
    return check(Result(PQexecPrepared(connection_.get(), "bench", static_cast<int>(N),
                                       values.data(), nullptr, nullptr, 0)),
                 expected);
  }
  Result check(Result result, ExecStatusType expected) {
    if (PQresultStatus(result.get()) != expected) throwError();
    return result;
  }
  [[noreturn]] void throwError() {
    throw std::runtime_error(std::string("PostgreSQL: ") + PQerrorMessage(connection_.get()));
  }

  std::unique_ptr<PGconn, Free> connection_;
};

class Echo : public Postgres {
public:
  explicit Echo(const std::string& where) : Postgres(where), value_(kEchoBytes, 'x') {
    prepare("SELECT $1::text");
  }
  std::uint64_t run() override {
    const Result result = execute<1>({value_.c_str()}, PGRES_TUPLES_OK);
    if (PQgetlength(result.get(), 0, 0) != static_cast<int>(kEchoBytes)) throwError();
    return 1;
  }

private:
  std::string value_;
};

class Read : public Postgres {
public:
  explicit Read(const std::string& where) : Postgres(where) {
    prepare("SELECT body FROM records WHERE id = $1");
  }
  std::uint64_t run() override {
    const std::string id = recordId(next_++ % kRecords);
    const Result result = execute<1>({id.c_str()}, PGRES_TUPLES_OK);
    if (PQgetlength(result.get(), 0, 0) != static_cast<int>(kRecordBytes)) throwError();
    return 1;
  }

private:
  int next_ = 0;
};

class Write : public Postgres {
public:
  Write(const std::string& where, int writer)
      : Postgres(where), next_(writer * 1000), body_(kRecords + writer * kMostWrites) {
    prepare("INSERT INTO records VALUES ($1, $2) ON CONFLICT (id) DO UPDATE SET body = $2");
  }
  std::uint64_t run() override {
    const std::string id = recordId(next_++ % kRecords);
    const std::string body = recordBody(body_++);
    execute<2>({id.c_str(), body.c_str()}, PGRES_COMMAND_OK);
    return 1;
  }

private:
  int next_;
  int body_;
};

class Rows : public Postgres {
public:
  explicit Rows(const std::string& where) : Postgres(where) {}
  std::uint64_t run() override {
    if (PQsendQuery(connection_.get(), "SELECT * FROM many") != 1) throwError();
    PQsetSingleRowMode(connection_.get());
    std::uint64_t rows = 0;
    std::uint64_t bytes = 0;
    while (const Result result{PQgetResult(connection_.get())}) {
      if (PQresultStatus(result.get()) == PGRES_SINGLE_TUPLE) {
        ++rows;
        for (int i = 0; i < kRowColumns; ++i) {
          bytes += static_cast<std::uint64_t>(PQgetlength(result.get(), 0, i));
        }
      } else if (PQresultStatus(result.get()) != PGRES_TUPLES_OK) {
        throwError();
      }
    }
    if (rows != kRows || bytes == 0) throw std::runtime_error("PostgreSQL: rows are missing");
    return rows;
  }
};

class Script : public Postgres {
public:
  explicit Script(const std::string& where) : Postgres(where) {}
  void run(const std::string& sql) {
    check(Result(PQexec(connection_.get(), sql.c_str())), PGRES_COMMAND_OK);
  }
  std::uint64_t run() override { return 0; }
};

}  // namespace

Contender postgresEcho(const Servers& servers) {
  return {"PostgreSQL", [where = servers.postgres] { return std::make_unique<Echo>(where); }};
}

Contender postgresRead(const Servers& servers) {
  return {"PostgreSQL", [where = servers.postgres] { return std::make_unique<Read>(where); }};
}

Contender postgresWrite(const Servers& servers) {
  const auto writers = std::make_shared<std::atomic<int>>(0);
  return {"PostgreSQL", [where = servers.postgres, writers] {
            return std::make_unique<Write>(where, (*writers)++);
          }};
}

Contender postgresRows(const Servers& servers) {
  return {"PostgreSQL", [where = servers.postgres] { return std::make_unique<Rows>(where); }};
}

void fillPostgres(const Servers& servers) {
  Script script(servers.postgres);
  script.run("CREATE TABLE records (id text PRIMARY KEY, body text NOT NULL)");
  script.run("INSERT INTO records SELECT 'record-' || lpad(i::text, 6, '0'), repeat('x', " +
             std::to_string(kRecordBytes) + ") FROM generate_series(0, " +
             std::to_string(kRecords - 1) + ") i");
  script.run(
      "CREATE TABLE many AS SELECT i::text AS a, 'value ' || i AS b, 'c' AS c, 'dd' AS d, "
      "'eee' AS e, 'ffff' AS f, 'ggggg' AS g, (i * 7)::text AS h FROM generate_series(1, " +
      std::to_string(kRows) + ") i");
  script.run("ANALYZE");
}
