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
  int records = 0;  // that are read or written, in turn
  Clock::time_point end;
};

/// Writes what is read afterwards.
void fill(client::Connection& connection, const Plan& plan) {
  constexpr std::size_t kMostGathered = 4u << 20;
  client::Transaction work = connection.begin();
  client::Batch batch(connection);
  const client::Record record(plan.body);
  for (int i = 0; i < plan.records; ++i) {
    batch.write(plan.file, std::to_string(i), record);
    if (i + 1 < plan.records && batch.bytes() < kMostGathered) continue;
    for (const client::Batch::Result& result : batch.run()) {
      if (result.error) throw client::Error(*result.error);
    }
  }
  work.commit();
}

/// The times that one connection's operations took, in microseconds.
std::vector<float> measure(client::Connection& connection, const Plan& plan, std::size_t number) {
  std::vector<float> times;
  std::optional<client::File> file;
  if (plan.operation != "ping") file = connection.file(plan.file);
  const client::Record record(plan.body);
  for (int i = 0; Clock::now() < plan.end && !Interrupt::pressed(); ++i) {
    std::string id = std::to_string(i % plan.records);
    // Who writes the same record waits for the other's lock.
    if (plan.operation == "write") id.append("-").append(std::to_string(number));
    bool found = true;
    const auto start = Clock::now();
    if (plan.operation == "ping") {
      static_cast<void>(connection.echo(plan.body));
    } else if (plan.operation == "write") {
      file->write(id, record);
    } else {
      found = file->read(id).has_value();
    }
    if (!found) throw Refused("somebody has deleted the record \"" + id + "\" of " + plan.file);
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

  // No more than the agent's memory bears, whatever their size.
  constexpr std::size_t kMostBytes = 64u << 20;
  constexpr std::size_t kMostRecords = 1000;
  plan.records =
      static_cast<int>(std::clamp<std::size_t>(kMostBytes / plan.body.size(), 1, kMostRecords));

  std::vector<client::Connection> opened;
  for (std::size_t i = 0; i < connections; ++i) opened.push_back(context.openAnother());
  const bool usesFile = plan.operation != "ping";
  if (usesFile) opened[0].execute("CREATE-FILE " + plan.file);

  std::vector<std::vector<float>> times(connections);
  std::vector<std::exception_ptr> failures(connections);
  try {
    if (plan.operation == "read") fill(opened[0], plan);
  } catch (...) {
    if (opened[0].isUsable()) opened[0].execute("DELETE-FILE " + plan.file + " (Y");
    throw;
  }
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
