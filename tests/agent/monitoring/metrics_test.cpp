// The metrics: what is counted where, and the page in Prometheus' text format.
#include "agent/monitoring/metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace nox::agent {
namespace {

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using namespace std::chrono_literals;

class MetricsTest : public testing::Test {
protected:
  std::string page() const { return metrics.page({}); }

  /// The value of a line that begins with this name and these labels.
  std::string value(const std::string& name) const {
    std::istringstream stream(page());
    for (std::string line; std::getline(stream, line);) {
      if (line.rfind(name + " ", 0) == 0) return line.substr(name.size() + 1);
    }
    return "none";
  }

  Metrics metrics{{"ReadRecord", "WriteRecord"}};
};

TEST_F(MetricsTest, ConnectionsAreCountedByTransport) {
  metrics.connectionOpened(false);
  metrics.connectionOpened(true);
  metrics.connectionOpened(true);
  metrics.connectionClosed(true);
  EXPECT_EQ(value("noxd_connections_total{transport=\"plain\"}"), "1");
  EXPECT_EQ(value("noxd_connections_total{transport=\"tls\"}"), "2");
  EXPECT_EQ(value("noxd_connections{transport=\"plain\"}"), "1");
  EXPECT_EQ(value("noxd_connections{transport=\"tls\"}"), "1");
  EXPECT_EQ(metrics.connections(), 3U);
}

TEST_F(MetricsTest, RefusedClientsAndFailedLoginsAreCounted) {
  metrics.connectionRefused();
  metrics.loginFailed();
  metrics.loginFailed();
  EXPECT_EQ(value("noxd_connections_refused_total"), "1");
  EXPECT_EQ(value("noxd_failed_logins_total"), "2");
}

TEST_F(MetricsTest, RequestsAndTheirBytesAreCountedByClass) {
  metrics.request(0, 10, 100, 1us);
  metrics.request(0, 20, 200, 1us);
  metrics.request(1, 5, 6, 1us);
  EXPECT_EQ(value("noxd_requests_total{request=\"ReadRecord\"}"), "2");
  EXPECT_EQ(value("noxd_requests_total{request=\"WriteRecord\"}"), "1");
  EXPECT_EQ(value("noxd_received_bytes_total{request=\"ReadRecord\"}"), "30");
  EXPECT_EQ(value("noxd_sent_bytes_total{request=\"ReadRecord\"}"), "300");
  EXPECT_EQ(metrics.requests(), 3U);
}

TEST_F(MetricsTest, AClassThatNobodyUsedHasACountAndNoHistogram) {
  metrics.request(0, 1, 1, 1us);
  EXPECT_EQ(value("noxd_requests_total{request=\"WriteRecord\"}"), "0");
  EXPECT_THAT(page(),
              Not(HasSubstr("noxd_request_duration_seconds_count{request=\"WriteRecord\"}")));
}

TEST_F(MetricsTest, DurationsFallIntoTheBucketsThatReachThem) {
  metrics.request(0, 1, 1, 25us);        // the first bucket's bound belongs to it
  metrics.request(0, 1, 1, 25us + 1ns);  // the second bucket
  metrics.request(0, 1, 1, 700ms);
  metrics.request(0, 1, 1, 31s);  // beyond all bounds
  const std::string bucket = "noxd_request_duration_seconds_bucket{request=\"ReadRecord\",le=\"";
  EXPECT_EQ(value(bucket + "2.5e-05\"}"), "1");
  EXPECT_EQ(value(bucket + "5e-05\"}"), "2");
  EXPECT_EQ(value(bucket + "0.25\"}"), "2");
  EXPECT_EQ(value(bucket + "1\"}"), "3");
  EXPECT_EQ(value(bucket + "30\"}"), "3");
  EXPECT_EQ(value(bucket + "+Inf\"}"), "4");
  EXPECT_EQ(value("noxd_request_duration_seconds_count{request=\"ReadRecord\"}"), "4");
  EXPECT_NEAR(std::stod(value("noxd_request_duration_seconds_sum{request=\"ReadRecord\"}")),
              31.70005, 1e-6);
}

TEST_F(MetricsTest, AClassThatIsNotThereIsNotCounted) {
  metrics.request(2, 1, 1, 1us);
  EXPECT_EQ(metrics.requests(), 0U);
}

TEST_F(MetricsTest, ErrorsAreCountedByTheirState) {
  metrics.error("IE024");
  metrics.error("IE024");
  metrics.error("42000");
  EXPECT_EQ(value("noxd_errors_total{sqlstate=\"IE024\"}"), "2");
  EXPECT_EQ(value("noxd_errors_total{sqlstate=\"42000\"}"), "1");
}

TEST_F(MetricsTest, ThePageShowsWhatIsAskedForWhenItIsMade) {
  Metrics::Gauges gauges;
  gauges.sessions = 3;
  gauges.locks = 4;
  gauges.storeBusySeconds = 1.5;
  gauges.storeCommits = 5;
  gauges.storeWrites = 6;
  const std::string text = metrics.page(gauges);
  EXPECT_THAT(text, HasSubstr("\nnoxd_sessions 3\n"));
  EXPECT_THAT(text, HasSubstr("\nnoxd_locks 4\n"));
  EXPECT_THAT(text, HasSubstr("\nnoxd_store_busy_seconds_total 1.5\n"));
  EXPECT_THAT(text, HasSubstr("\nnoxd_store_commits_total 5\n"));
  EXPECT_THAT(text, HasSubstr("\nnoxd_store_writes_total 6\n"));
}

TEST_F(MetricsTest, EveryLineOfThePageIsACommentOrASample) {
  metrics.connectionOpened(false);
  metrics.request(0, 1, 2, 3us);
  metrics.error("42000");
  std::istringstream stream(page());
  std::set<std::string> described;
  for (std::string line; std::getline(stream, line);) {
    if (line.rfind("# TYPE ", 0) == 0) {
      EXPECT_THAT(line, MatchesRegex("# TYPE noxd_[a-z_]+ (counter|gauge|histogram)"));
      EXPECT_TRUE(described.insert(line).second) << line;
    } else if (line.rfind("# HELP ", 0) != 0) {
      EXPECT_THAT(line, MatchesRegex("noxd_[a-z_]+(\\{[a-z]+=\"[^\"]*\"(,le=\"[^\"]*\")?\\})? "
                                     "[0-9.e+-]+"));
    }
  }
  EXPECT_GE(described.size(), 12U);
}

TEST_F(MetricsTest, ThreadsLoseNoCount) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 1000;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([this] {
      for (int n = 0; n < kRounds; ++n) {
        metrics.connectionOpened(true);
        metrics.request(static_cast<std::size_t>(n % 2), 1, 2, 10us);
        metrics.error("42000");
        metrics.connectionClosed(true);
        if (n % 250 == 0) page();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(metrics.requests(), static_cast<std::uint64_t>(kThreads * kRounds));
  EXPECT_EQ(value("noxd_sent_bytes_total{request=\"ReadRecord\"}"), "4000");
  EXPECT_EQ(value("noxd_errors_total{sqlstate=\"42000\"}"), "4000");
  EXPECT_EQ(value("noxd_connections{transport=\"tls\"}"), "0");
}

}  // namespace
}  // namespace nox::agent
