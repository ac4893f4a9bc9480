#include "agent/monitoring/metrics.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <sstream>
#include <utility>

namespace nox::agent {

namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

/// Upper bounds of the buckets, in microseconds: from a read in memory to the longest statement.
constexpr std::array<std::uint64_t, 16> kBounds{
    25,     50,     100,    250,     500,     1'000,     2'500,     5'000,
    10'000, 25'000, 50'000, 100'000, 250'000, 1'000'000, 5'000'000, 30'000'000};
constexpr double kMicrosecond = 1e-6;
constexpr double kNanosecond = 1e-9;

class Count {
public:
  void add(std::uint64_t n) { value_.fetch_add(n, std::memory_order_relaxed); }
  void subtract(std::uint64_t n) { value_.fetch_sub(n, std::memory_order_relaxed); }
  std::uint64_t get() const { return value_.load(std::memory_order_relaxed); }

private:
  std::atomic<std::uint64_t> value_{0};
};

/// What is counted for one class of requests; on cache lines of its own.
struct alignas(64) RequestCounts {
  Count bytesIn;
  Count bytesOut;
  Count nanoseconds;
  std::array<Count, kBounds.size() + 1> buckets;  // not cumulated; the last has no bound
};

ClientMetric labelled(const char* name, std::string value) {
  ClientMetric metric;
  metric.label.push_back({name, std::move(value)});
  return metric;
}

ClientMetric counter(ClientMetric metric, double value) {
  metric.counter.value = value;
  return metric;
}

ClientMetric gauge(ClientMetric metric, double value) {
  metric.gauge.value = value;
  return metric;
}

MetricFamily family(const char* name, const char* help, MetricType type,
                    std::vector<ClientMetric> metrics) {
  return MetricFamily{name, help, type, std::move(metrics)};
}

double number(std::uint64_t value) { return static_cast<double>(value); }

}  // namespace

struct Metrics::Impl {
  explicit Impl(const std::vector<const char*>& names)
      : requestNames(names), requests(names.size()) {}

  ClientMetric histogram(std::size_t index) const {
    const RequestCounts& counts = requests[index];
    ClientMetric metric = labelled("request", requestNames[index]);
    std::uint64_t sum = 0;
    for (std::size_t i = 0; i < kBounds.size(); ++i) {
      sum += counts.buckets[i].get();
      metric.histogram.bucket.push_back({sum, static_cast<double>(kBounds[i]) * kMicrosecond});
    }
    // The count comes from the same loads as the buckets, so that the page agrees with itself.
    metric.histogram.sample_count = sum + counts.buckets.back().get();
    metric.histogram.sample_sum = number(counts.nanoseconds.get()) * kNanosecond;
    return metric;
  }

  static std::uint64_t answered(const RequestCounts& counts) {
    std::uint64_t sum = 0;
    for (const Count& bucket : counts.buckets) sum += bucket.get();
    return sum;
  }

  const std::vector<const char*> requestNames;
  std::vector<RequestCounts> requests;
  std::array<Count, 2> connections;  // plain, TLS
  std::array<Count, 2> connected;
  Count refused;
  Count failedLogins;

  mutable std::mutex errorsMutex;
  std::map<std::string, std::uint64_t, std::less<>> errors;
};

Metrics::Metrics(const std::vector<const char*>& requestNames)
    : impl_(std::make_unique<Impl>(requestNames)) {}

Metrics::~Metrics() = default;

void Metrics::connectionOpened(bool tls) {
  impl_->connections[tls ? 1 : 0].add(1);
  impl_->connected[tls ? 1 : 0].add(1);
}

void Metrics::connectionClosed(bool tls) { impl_->connected[tls ? 1 : 0].subtract(1); }

void Metrics::connectionRefused() { impl_->refused.add(1); }

void Metrics::loginFailed() { impl_->failedLogins.add(1); }

void Metrics::request(std::size_t index, std::uint64_t bytesIn, std::uint64_t bytesOut,
                      std::chrono::nanoseconds duration) {
  if (index >= impl_->requests.size()) return;
  RequestCounts& counts = impl_->requests[index];
  const auto nanoseconds = static_cast<std::uint64_t>(std::max<std::int64_t>(duration.count(), 0));
  constexpr std::uint64_t kPerMicrosecond = 1000;
  const auto bucket = std::lower_bound(kBounds.begin(), kBounds.end(), nanoseconds,
                                       [](std::uint64_t bound, std::uint64_t took) {
                                         return bound * kPerMicrosecond < took;
                                       }) -
                      kBounds.begin();
  counts.bytesIn.add(bytesIn);
  counts.bytesOut.add(bytesOut);
  counts.nanoseconds.add(nanoseconds);
  counts.buckets[static_cast<std::size_t>(bucket)].add(1);
}

void Metrics::error(std::string_view sqlState) {
  const std::lock_guard<std::mutex> lock(impl_->errorsMutex);
  const auto found = impl_->errors.find(sqlState);
  if (found != impl_->errors.end()) {
    ++found->second;
  } else {
    impl_->errors.emplace(sqlState, 1);
  }
}

std::string Metrics::page(const Gauges& gauges) const {
  std::vector<ClientMetric> connections;
  std::vector<ClientMetric> connected;
  for (const bool tls : {false, true}) {
    const char* transport = tls ? "tls" : "plain";
    connections.push_back(
        counter(labelled("transport", transport), number(impl_->connections[tls ? 1 : 0].get())));
    connected.push_back(
        gauge(labelled("transport", transport), number(impl_->connected[tls ? 1 : 0].get())));
  }

  std::vector<ClientMetric> requests;
  std::vector<ClientMetric> durations;
  std::vector<ClientMetric> received;
  std::vector<ClientMetric> sent;
  for (std::size_t i = 0; i < impl_->requests.size(); ++i) {
    const RequestCounts& counts = impl_->requests[i];
    const char* name = impl_->requestNames[i];
    ClientMetric histogram = impl_->histogram(i);
    const std::uint64_t count = histogram.histogram.sample_count;
    requests.push_back(counter(labelled("request", name), number(count)));
    // Classes that nobody uses show that they are there with their zero; their buckets would be
    // most of the page.
    if (count == 0) continue;
    durations.push_back(std::move(histogram));
    received.push_back(counter(labelled("request", name), number(counts.bytesIn.get())));
    sent.push_back(counter(labelled("request", name), number(counts.bytesOut.get())));
  }

  std::vector<ClientMetric> errors;
  {
    const std::lock_guard<std::mutex> lock(impl_->errorsMutex);
    for (const auto& [state, count] : impl_->errors) {
      errors.push_back(counter(labelled("sqlstate", state), number(count)));
    }
  }

  const auto single = [](auto make, double value) {
    return std::vector<ClientMetric>{make(ClientMetric{}, value)};
  };
  const std::vector<MetricFamily> families{
      family("noxd_connections_total", "Clients that connected.", MetricType::Counter,
             std::move(connections)),
      family("noxd_connections", "Clients that are connected.", MetricType::Gauge,
             std::move(connected)),
      family("noxd_connections_refused_total", "Clients that were one too many.",
             MetricType::Counter, single(counter, number(impl_->refused.get()))),
      family("noxd_failed_logins_total", "Logins with a wrong user or password.",
             MetricType::Counter, single(counter, number(impl_->failedLogins.get()))),
      family("noxd_sessions", "Clients that are logged in.", MetricType::Gauge,
             single(gauge, static_cast<double>(gauges.sessions))),
      family("noxd_requests_total", "Requests that were answered, by class.", MetricType::Counter,
             std::move(requests)),
      family("noxd_request_duration_seconds",
             "From the last byte of a request to the last of its reply, by class.",
             MetricType::Histogram, std::move(durations)),
      family("noxd_received_bytes_total", "Bytes of requests, by class.", MetricType::Counter,
             std::move(received)),
      family("noxd_sent_bytes_total", "Bytes of replies, by class of the request.",
             MetricType::Counter, std::move(sent)),
      family("noxd_errors_total", "Replies that were errors, by SQLSTATE.", MetricType::Counter,
             std::move(errors)),
      family("noxd_locks", "Record locks that are held.", MetricType::Gauge,
             single(gauge, static_cast<double>(gauges.locks))),
      family("noxd_store_busy_seconds_total", "Time that sessions waited to write.",
             MetricType::Counter, single(counter, gauges.storeBusySeconds)),
      family("noxd_store_commits_total", "Synchronisations of the store with the disk.",
             MetricType::Counter, single(counter, number(gauges.storeCommits))),
      family("noxd_store_writes_total", "Changes that they made durable.", MetricType::Counter,
             single(counter, number(gauges.storeWrites))),
  };
  std::ostringstream page;
  prometheus::TextSerializer().Serialize(page, families);
  return page.str();
}

std::uint64_t Metrics::requests() const {
  std::uint64_t sum = 0;
  for (const RequestCounts& counts : impl_->requests) sum += Impl::answered(counts);
  return sum;
}

std::uint64_t Metrics::connections() const {
  return impl_->connections[0].get() + impl_->connections[1].get();
}

}  // namespace nox::agent
