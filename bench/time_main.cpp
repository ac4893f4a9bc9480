// nox_bench: how long every participant takes, and a table of it.
//
// Repetitions of all cases are interleaved and the process stays on one processor, so that what
// disturbs the machine disturbs every participant alike. Any flag of Google Benchmark can be given;
// those below stand in for what is not.
#if defined(__linux__)
#include <sched.h>
#endif

#include <iomanip>
#include <limits>
#include <map>

#include "bench/harness.h"

namespace {

constexpr const char* kDefaults[] = {"--benchmark_enable_random_interleaving=true",
                                     "--benchmark_repetitions=15", "--benchmark_min_time=0.02"};

void pinToOneProcessor() {
#if defined(__linux__)
  // The last one it may run on: the first serves most interrupts.
  cpu_set_t allowed;
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0) return;
  for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu) {
    if (!CPU_ISSET(cpu, &allowed)) continue;
    CPU_ZERO(&allowed);
    CPU_SET(cpu, &allowed);
    sched_setaffinity(0, sizeof allowed, &allowed);
    return;
  }
#endif
}

/// Keeps the medians and prints them side by side once all is run.
class TableReporter : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      if (!median && run.repetitions > 1) continue;
      const std::string name = run.run_name.function_name;
      const std::size_t slash = name.rfind('/');
      const std::string row = name.substr(0, slash);
      medians_[row][name.substr(slash + 1)] = run.GetAdjustedCPUTime();
    }
  }

  void Finalize() override {
    std::ostream& out = GetOutputStream();
    out << std::left << std::setw(12) << "ns" << std::right << std::setw(10) << "limit"
        << std::setw(10) << "nox" << std::setw(10) << "stream" << std::setw(9) << "x limit"
        << std::setw(9) << "x best"
        << "  best peer\n"
        << std::fixed;
    for (const auto& [name, row] : medians_) print(out, name, row);
  }

private:
  using Row = std::map<std::string, double>;

  static void print(std::ostream& out, const std::string& name, const Row& row) {
    constexpr double kNever = std::numeric_limits<double>::infinity();
    std::string best;
    double bestTime = kNever;
    for (const auto& [participant, time] : row) {
      const bool peer =
          participant.rfind("nox", 0) != 0 && participant != "limit" && participant != "flat";
      if (peer && time < bestTime) {
        best = participant;
        bestTime = time;
      }
    }
    const auto number = [&](double value, int width, int digits, bool known) {
      out << std::right << std::setw(width);
      if (known) {
        out << std::setprecision(digits) << value;
      } else {
        out << "-";
      }
    };
    const auto timeOf = [&](const char* participant) {
      const auto found = row.find(participant);
      return found == row.end() ? kNever : found->second;
    };
    const double limit = timeOf("limit");
    const double nox = timeOf("nox");
    const double stream = timeOf("nox-stream");
    out << std::left << std::setw(12) << name;
    number(limit, 10, 1, limit != kNever);
    number(nox, 10, 1, nox != kNever);
    number(stream, 10, 1, stream != kNever);
    number(nox / limit, 9, 2, nox != kNever && limit != kNever);
    number(nox / bestTime, 9, 2, nox != kNever && bestTime != kNever);
    out << "  " << best;
    if (bestTime != kNever) out << " " << std::setprecision(1) << bestTime;
    out << "\n";
  }

  std::map<std::string, Row> medians_;
};

}  // namespace

int main(int argc, char** argv) {
  pinToOneProcessor();
  std::vector<char*> arguments{argv[0]};
  for (const char* argument : kDefaults) arguments.push_back(const_cast<char*>(argument));
  arguments.insert(arguments.end(), argv + 1, argv + argc);  // the later one of two holds
  int count = static_cast<int>(arguments.size());
  arguments.push_back(nullptr);
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return 1;

  const nox::bench::Workloads data = nox::bench::makeWorkloads();
  const nox::bench::Suite suite = nox::bench::makeSuite(data);
  for (const nox::bench::Case& each : suite.cases()) {
    benchmark::RegisterBenchmark(each.name().c_str(), each.loop);
  }
  TableReporter table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return 0;
}
