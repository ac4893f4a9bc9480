// What the contenders have in common: one operation on one connection, done over and over.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A connection with one thing to do on it. For one thread at a time.
class Operation {
public:
  virtual ~Operation() = default;
  /// Does it once and checks the answer. Returns how many units that were: 1, or rows. Throws
  /// std::runtime_error when the answer is wrong.
  virtual std::uint64_t run() = 0;
};

struct Contender {
  std::string name;
  std::function<std::unique_ptr<Operation>()> connect;
  int connections = 1;  // at work at the same time, where throughput is measured
};

/// Where the servers are that bench/agent/run.sh has started.
struct Servers {
  std::uint16_t noxdPort = 0;
  std::uint16_t noxdTlsPort = 0;
  std::string noxdPassword;
  std::string noxdPid;
  std::uint16_t redisPort = 0;
  std::string postgres;  // a libpq connection string
  std::uint16_t rawPort = 0;
  std::uint16_t rawTlsPort = 0;
};

constexpr std::size_t kEchoBytes = 64;
constexpr std::size_t kRecordBytes = 200;
constexpr int kRecords = 10'000;
// Of one writer. No two write the same body, nor one that was there before: what is there already
// needs not be written.
constexpr int kMostWrites = 10'000'000;
constexpr int kRows = 1'000'000;
constexpr int kRowColumns = 8;

/// The id of record `i`, the same for everybody.
std::string recordId(int i);
/// A record of kRecordBytes.
std::string recordBody(int i);

// The contenders of each line, in the file of their name.
Contender rawEcho(const Servers& servers);
Contender rawTlsEcho(const Servers& servers);
Contender noxdEcho(const Servers& servers);
Contender noxdTlsEcho(const Servers& servers);
Contender noxdRead(const Servers& servers);
Contender noxdWrite(const Servers& servers);
Contender noxdRows(const Servers& servers);
Contender redisGet(const Servers& servers);
Contender postgresEcho(const Servers& servers);
Contender postgresRead(const Servers& servers);
Contender postgresWrite(const Servers& servers);
Contender postgresRows(const Servers& servers);

// What they read, put there once.
void fillNoxd(const Servers& servers);
void fillRedis(const Servers& servers);
void fillPostgres(const Servers& servers);
