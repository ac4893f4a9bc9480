// bench: how many operations per second, and how long they take.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <thread>

#include "client/command/context.h"
#include "client/command/interrupt.h"

namespace nox::command {

namespace {

using Clock = std::chrono::steady_clock;

struct Plan {
  std::string operation;
  std::string file;
  std::string body;
  Clock::time_point end;
};

/// The times that one connection's operations took, in microseconds.
std::vector<float> measure(client::Connection& connection, const Plan& plan, std::size_t number) {
  constexpr int kRecords = 1000;
  std::vector<float> times;
  std::optional<client::File> file;
  if (plan.operation != "ping") file = connection.file(plan.file);
  const client::Record record(plan.body);
  for (int i = 0; Clock::now() < plan.end && !Interrupt::pressed(); ++i) {
    const std::string id = std::to_string(number) + "-" + std::to_string(i % kRecords);
    const auto start = Clock::now();
    if (plan.operation == "ping") {
      static_cast<void>(connection.echo(plan.body));
    } else if (plan.operation == "write") {
      file->write(id, record);
    } else {
      static_cast<void>(file->read(id));
    }
    times.push_back(std::chrono::duration<float, std::micro>(Clock::now() - start).count());
  }
  return times;
}

std::string microseconds(const std::vector<float>& sorted, double part) {
  if (sorted.empty()) return "";
  const auto at = static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1));
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", static_cast<double>(sorted[at]));
  return text;
}

}  // namespace

int runBench(Context& context, const Arguments& arguments) {
  Plan plan;
  plan.operation = arguments.get("OPERATION", "ping");
  plan.file = arguments.get("--file", "NOX.BENCH");
  plan.body.assign(numberOf(arguments.get("--size", "64"), "--size", 1u << 20), 'x');
  const auto connections =
      static_cast<std::size_t>(numberOf(arguments.get("--connections", "1"), "--connections", 256));
  const std::uint64_t seconds = numberOf(arguments.get("--seconds", "5"), "--seconds", 3600);

  std::vector<client::Connection> opened;
  for (std::size_t i = 0; i < connections; ++i) opened.push_back(context.openAnother());
  const bool usesFile = plan.operation != "ping";
  if (usesFile) opened[0].execute("CREATE-FILE " + plan.file);

  std::vector<std::vector<float>> times(connections);
  std::vector<std::exception_ptr> failures(connections);
  const auto start = Clock::now();
  plan.end = start + std::chrono::seconds(seconds);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < connections; ++i) {
    threads.emplace_back([&, i] {
      try {
        times[i] = measure(opened[i], plan, i);
      } catch (...) {
        failures[i] = std::current_exception();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  const double took = std::chrono::duration<double>(Clock::now() - start).count();
  if (usesFile && opened[0].isUsable()) opened[0].execute("DELETE-FILE " + plan.file + " (Y");
  for (const std::exception_ptr& failure : failures) {
    if (failure) std::rethrow_exception(failure);
  }
  context.checkInterrupt();

  std::vector<float> all;
  for (const auto& each : times) all.insert(all.end(), each.begin(), each.end());
  std::sort(all.begin(), all.end());
  const auto perSecond = static_cast<std::uint64_t>(static_cast<double>(all.size()) / took);
  const auto rows = context.rows(std::vector<OutputColumn>{{"OPERATION"},
                                                           {"CONNECTIONS", true},
                                                           {"PER_SECOND", true},
                                                           {"MEDIAN_US", true},
                                                           {"P99_US", true}});
  constexpr double kMedian = 0.5;
  constexpr double kP99 = 0.99;
  rows->row({plan.operation, std::to_string(connections), std::to_string(perSecond),
             microseconds(all, kMedian), microseconds(all, kP99)});
  rows->end();
  return kDone;
}

}  // namespace nox::command
