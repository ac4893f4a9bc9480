// How fast noxd answers, beside raw sockets, Redis and PostgreSQL in one run.
//
//   nox_agent_bench NOXD_PORT NOXD_TLS_PORT PASSWORD_FILE NOXD_PID RAW_PORT RAW_TLS_PORT REDIS_PORT
//                   POSTGRES [LINE...]
//
// is what run.sh calls once the servers are there; it prints the tables as Markdown: those of the
// lines that are named, or all. Contenders take turns, round by round, and the medians of the
// rounds are what is compared.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "bench/agent/operation.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kRounds = 9;
constexpr int kTimes = 5000;  // operations in a round of latencies

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

/// The median time of one operation, in microseconds.
double latency(Operation& operation, int times) {
  std::vector<double> each;
  each.reserve(static_cast<std::size_t>(times));
  for (int i = 0; i < times; ++i) {
    const auto start = Clock::now();
    operation.run();
    each.push_back(secondsSince(start) * 1e6);
  }
  return median(std::move(each));
}

/// Units per second of all operations together, each in a thread of its own.
double throughput(const std::vector<std::unique_ptr<Operation>>& operations, double seconds) {
  std::vector<std::uint64_t> units(operations.size());
  std::vector<std::exception_ptr> failed(operations.size());
  std::vector<std::thread> threads;
  const auto start = Clock::now();
  for (std::size_t i = 0; i < operations.size(); ++i) {
    threads.emplace_back([&, i] {
      try {
        while (secondsSince(start) < seconds) units[i] += operations[i]->run();
      } catch (...) {
        failed[i] = std::current_exception();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double took = secondsSince(start);
  for (const std::exception_ptr& error : failed) {
    if (error) std::rethrow_exception(error);
  }
  double sum = 0;
  for (const std::uint64_t n : units) sum += static_cast<double>(n);
  return sum / took;
}

std::vector<std::unique_ptr<Operation>> connect(const Contender& contender) {
  std::vector<std::unique_ptr<Operation>> operations;
  for (int i = 0; i < contender.connections; ++i) operations.push_back(contender.connect());
  return operations;
}

/// The contender with so many connections.
Contender times(int connections, Contender contender) {
  contender.connections = connections;
  return contender;
}

/// What the host of a virtual machine gives to others instead is missing here, for some contenders
/// more than for others.
class StolenTime {
public:
  /// Under the table: of the processors' time since this was made.
  void print() const {
    const Ticks now = ticks();
    const double all = now.all - start_.all;
    std::printf("\nThe host took %.0f %% of the processors' time meanwhile.\n",
                all > 0 ? 100 * (now.stolen - start_.stolen) / all : 0.0);
    std::fflush(stdout);
  }

private:
  struct Ticks {
    double all = 0;
    double stolen = 0;
  };

  /// Of all processors: user, nice, system, idle, iowait, irq, softirq, steal.
  static Ticks ticks() {
    constexpr int kSteal = 7;
    std::ifstream in("/proc/stat");
    std::string name;
    in >> name;
    Ticks ticks;
    for (int i = 0; i <= kSteal; ++i) {
      double value = 0;
      if (!(in >> value)) throw std::runtime_error("/proc/stat is not as expected");
      ticks.all += value;
      if (i == kSteal) ticks.stolen = value;
    }
    return ticks;
  }

  const Ticks start_ = ticks();
};

/// One table: a row per contender, compared with the first.
void compareLatency(const char* title, const std::vector<Contender>& contenders, int times) {
  std::vector<std::unique_ptr<Operation>> operations;
  for (const Contender& contender : contenders) operations.push_back(contender.connect());
  std::vector<std::vector<double>> rounds(contenders.size());
  for (auto& operation : operations) latency(*operation, times / 4);  // warm
  const StolenTime stolen;
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < operations.size(); ++i) {
      rounds[i].push_back(latency(*operations[i], times));
    }
  }
  std::printf("\n### %s\n\n| | p50, us | times the first |\n|---|---|---|\n", title);
  const double first = median(rounds[0]);
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    const double p50 = median(rounds[i]);
    std::printf("| %s | %.1f | %.2f |\n", contenders[i].name.c_str(), p50, p50 / first);
  }
  stolen.print();
}

std::vector<double> compareThroughput(const char* title, const std::vector<Contender>& contenders,
                                      double seconds, int roundsOfEach = kRounds) {
  std::vector<std::vector<std::unique_ptr<Operation>>> operations;
  for (const Contender& contender : contenders) {
    operations.push_back(connect(contender));
  }
  std::vector<std::vector<double>> rounds(contenders.size());
  const StolenTime stolen;
  for (int round = 0; round < roundsOfEach; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      rounds[i].push_back(throughput(operations[i], seconds));
    }
  }
  std::printf("\n### %s\n\n| | per second | times the first |\n|---|---|---|\n", title);
  std::vector<double> medians;
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    medians.push_back(median(rounds[i]));
    std::printf("| %s | %.0f | %.2f |\n", contenders[i].name.c_str(), medians[i],
                medians[i] / medians[0]);
  }
  stolen.print();
  return medians;
}

/// A number of /proc/PID/status or smaps_rollup, in KiB.
double kibibytes(const std::string& file, const std::string& field) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(field + ":", 0) == 0) return std::atof(line.c_str() + field.size() + 1);
  }
  throw std::runtime_error("no " + field + " in " + file);
}

void restingConnections(const Servers& servers) {
  constexpr int kConnections = 400;
  const std::string file = "/proc/" + servers.noxdPid + "/smaps_rollup";
  // The first ones warm what is shared.
  const auto warm = connect(times(20, noxdRead(servers)));
  for (const auto& operation : warm) operation->run();
  const double before = kibibytes(file, "Pss");
  const auto operations = connect(times(kConnections, noxdRead(servers)));
  for (const auto& operation : operations) operation->run();
  const double after = kibibytes(file, "Pss");
  std::printf(
      "\n### Memory\n\n%d connections that have read a record and rest: %.1f KiB each, "
      "touched stack included\n",
      kConnections, (after - before) / kConnections);
  std::fflush(stdout);
}

std::string fileContent(const std::string& name) {
  std::ifstream in(name);
  std::string text;
  std::getline(in, text);
  return text;
}

void echoes(const Servers& servers) {
  compareLatency("Echo of 64 bytes, one connection",
                 {rawEcho(servers), noxdEcho(servers), redisGet(servers), postgresEcho(servers)},
                 kTimes);
  compareThroughput("Echo of 64 bytes, 8 connections",
                    {times(8, rawEcho(servers)), times(8, noxdEcho(servers)),
                     times(8, redisGet(servers)), times(8, postgresEcho(servers))},
                    0.5);
}

void tlsEchoes(const Servers& servers) {
  compareLatency("Echo of 64 bytes over TLS, one connection",
                 {rawTlsEcho(servers), noxdTlsEcho(servers)}, kTimes);
}

void reads(const Servers& servers) {
  auto echo = noxdEcho(servers);
  echo.name = "noxd, echo of 64 bytes";
  const auto perSecond = compareThroughput("A record of 200 bytes by its key, one connection",
                                           {postgresRead(servers), noxdRead(servers), echo}, 0.5);
  std::printf("\nnoxd reads at %.0f %% of its own echo rate.\n", 100 * perSecond[1] / perSecond[2]);
}

void writes(const Servers& servers) {
  std::vector<Contender> contenders;
  for (const int writers : {1, 8}) {
    for (Contender contender : {postgresWrite(servers), noxdWrite(servers)}) {
      contender.name += ", writers: " + std::to_string(writers);
      contenders.push_back(times(writers, std::move(contender)));
    }
  }
  // Few and many in the same rounds: the disk and the load of the machine are the same for both.
  const auto rates = compareThroughput("Writing a record of 200 bytes durably", contenders, 0.5);
  std::printf("\n8 writers reach %.1f times one writer (PostgreSQL: %.1f).\n", rates[3] / rates[1],
              rates[2] / rates[0]);
}

void rows(const Servers& servers) {
  const std::string status = "/proc/" + servers.noxdPid + "/status";
  const double before = kibibytes(status, "VmRSS");
  compareThroughput("Fetching 1,000,000 rows of 8 short columns",
                    {postgresRows(servers), noxdRows(servers)}, 0.1, 5);
  std::printf("\nThe agent grew by %.0f KiB while it sent them.\n",
              kibibytes(status, "VmRSS") - before);
}

/// What is measured, by the names that the command line takes.
constexpr std::array<std::pair<std::string_view, void (*)(const Servers&)>, 6> kLines{{
    {"echo", echoes},
    {"tls", tlsEchoes},
    {"read", reads},
    {"write", writes},
    {"rows", rows},
    {"memory", restingConnections},
}};

void requireLine(std::string_view name) {
  for (const auto& line : kLines) {
    if (line.first == name) return;
  }
  throw std::runtime_error("there is no line \"" + std::string(name) +
                           "\": echo, tls, read, write, rows or memory");
}

std::uint16_t port(const char* text) { return static_cast<std::uint16_t>(std::atoi(text)); }

}  // namespace

std::string recordId(int i) {
  std::string digits = std::to_string(i);
  return "record-" + std::string(6 - digits.size(), '0') + digits;
}

std::string recordBody(int i) {
  std::string body = std::to_string(i);
  body.resize(kRecordBytes, 'x');
  return body;
}

int main(int argc, char** argv) try {
  constexpr int kServerArguments = 8;
  if (argc <= kServerArguments) throw std::runtime_error("run me through run.sh");
  Servers servers;
  servers.noxdPort = port(argv[1]);
  servers.noxdTlsPort = port(argv[2]);
  servers.noxdPassword = fileContent(argv[3]);
  servers.noxdPid = argv[4];
  servers.rawPort = port(argv[5]);
  servers.rawTlsPort = port(argv[6]);
  servers.redisPort = port(argv[7]);
  servers.postgres = argv[8];
  const std::vector<std::string_view> wanted(argv + 1 + kServerArguments, argv + argc);
  for (const std::string_view name : wanted) requireLine(name);

  fillRedis(servers);
  fillPostgres(servers);
  fillNoxd(servers);

  for (const auto& [name, measure] : kLines) {
    if (wanted.empty() || std::find(wanted.begin(), wanted.end(), name) != wanted.end()) {
      measure(servers);
    }
  }
} catch (const std::exception& error) {
  std::cerr << "nox_agent_bench: " << error.what() << "\n";
  return 1;
}
