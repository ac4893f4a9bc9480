// Requests that belong to no family: echo, a line for the log, properties, the clock, and what
// administrators ask.
#include <charconv>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include <nox/nox.h>

#include "agent/config/configuration.h"
#include "agent/conversions/conversions.h"
#include "agent/failure.h"
#include "agent/log/log.h"
#include "agent/monitoring/monitor.h"
#include "agent/names.h"
#include "agent/requests/fields.h"
#include "agent/session/agent.h"
#include "agent/session/dispatcher.h"
#include "agent/session/reply.h"
#include "agent/session/session.h"
#include "agent/store/store.h"
#include "agent/version.h"

namespace nox::agent {

using noxp::common::EchoRequestProt;
using noxp::common::LoggingRequestProt;
using noxp::common::SetPropertiesRequestProt;
using noxp::common::SetPropertiesResponseProt;
using noxp::remote::DateTimeRequestProt;
using noxp::remote::DateTimeResponseProt;
using noxp::remote::EISMetaDataRequestProt;
using noxp::remote::EISMetaDataResponseProt;
using noxp::remote::MonitoringRequestProt;
using noxp::remote::MonitoringResponseProt;

namespace {

/// An EchoResponseProt that sends the bytes where they are, in the request.
class EchoReply final : public Response<EchoReply, TypeCode::EchoResponse> {
public:
  EchoReply() = default;
  explicit EchoReply(NOXPBlob* bytes) : bytes_(bytes) {}

  Archive& serialize(Archive& ar, unsigned int /*version*/) override {
    return ar.process(bytes_, "buffer");
  }

private:
  NOXPBlob* bytes_ = nullptr;
};

void echo(Session& /*session*/, EchoRequestProt& request, Reply& reply) {
  reply.send(EchoReply(request.getBuffer()));
}

// --- logging ------------------------------------------------------------------------------------

constexpr std::size_t kLongestLogText = 4096;  // bytes of a client's line

/// Clients use the library's priorities.
LogLevel levelOf(int priority) {
  if (priority <= debug) return LogLevel::Debug;
  if (priority <= notice) return LogLevel::Info;
  if (priority < error) return LogLevel::Warning;
  return LogLevel::Error;
}

void log(Session& session, LoggingRequestProt& request, Reply& reply) {
  Log& to = session.agent().log;
  const std::string who = "client of session " + std::to_string(session.id()) + ", user " +
                          session.user() + ", account " + session.account();
  const LineRate::Verdict verdict = session.clientLines().count(Session::Clock::now());
  if (verdict.leftOut > 0) {
    to.warning(who + ": " + std::to_string(verdict.leftOut) + " lines left out");
  }
  if (verdict.allowed) {
    std::string_view text = textOf(request.getInfo());
    const bool whole = text.size() <= kLongestLogText;
    if (!whole) text = text.substr(0, kLongestLogText);
    to.write(levelOf(request.getLevel()), who + ": " + std::string(text) + (whole ? "" : "..."));
  }
  reply.send(OKResponseProt());
}

// --- properties ---------------------------------------------------------------------------------

[[noreturn]] void failProperty(const std::string& key, const std::string& allowed) {
  throw Failure("22", "003", key + " takes " + allowed);
}

int numberOf(const std::string& key, const std::string& value, int least, int most) {
  int number = 0;
  const char* const end = value.data() + value.size();
  const auto [rest, error] = std::from_chars(value.data(), end, number);
  if (value.empty() || error != std::errc() || rest != end || number < least || number > most) {
    failProperty(key,
                 "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
  }
  return number;
}

void setProperty(Settings& settings, const std::string& key, const std::string& value) {
  constexpr int kHour = 60 * 60;
  constexpr int kDay = 24 * kHour;
  constexpr std::size_t kLongestName = 255;
  if (key == "LOCK_WAIT") {
    settings.lockWait = std::chrono::seconds(numberOf(key, value, 0, kHour));
  } else if (key == "FETCH_SIZE") {
    settings.fetchSize = numberOf(key, value, 1, 100'000);
  } else if (key == "STATEMENT_TIMEOUT") {
    settings.statementTimeout = std::chrono::seconds(numberOf(key, value, 0, kDay));
  } else if (key == "COMPRESS_THRESHOLD") {
    settings.compressThreshold = numberOf(key, value, -1, std::numeric_limits<int>::max());
  } else if (key == "TIMEZONE") {
    if (!isTimezone(value)) failProperty(key, "the name of a time zone");
    settings.timezone = value;
  } else if (key == "CLIENT_NAME") {
    if (value.size() > kLongestName || !isUtf8(value)) {
      failProperty(key, "UTF-8 text of up to 255 bytes");
    }
    settings.clientName = value;
  } else if (key == "EMPTY_NULL") {
    settings.emptyNull = numberOf(key, value, 0, 1) == 1;
  } else {
    throw Failure("0A", "000", "there is no property \"" + Log::escaped(key) + "\"");
  }
}

void setProperties(Session& session, SetPropertiesRequestProt& request, Reply& reply) {
  Settings settings = session.settings();
  for (const auto& [key, value] : *request.getProperties()) setProperty(settings, key, value);
  session.settings() = settings;
  session.store().setWait(settings.lockWait);
  reply.send(SetPropertiesResponseProt());
}

// --- the agent ----------------------------------------------------------------------------------

void describe(Session& session, EISMetaDataRequestProt& /*request*/, Reply& reply) {
  MetaDataRepositoryProt facts;
  facts.setRepositoryEntry("EIS_PRODUCT_NAME", std::string("noxd"));
  facts.setRepositoryEntry("EIS_PRODUCT_VERSION", std::string(version()));
  facts.setRepositoryEntry("EIS_MAX_CONNECTIONS",
                           std::to_string(session.agent().configuration.values()->maxConnections));
  facts.setRepositoryEntry("EIS_USER_NAME", session.user());
  reply.send(EISMetaDataResponseProt(&facts));
}

void answerMonitoring(Session& session, MonitoringRequestProt& request, Reply& reply) {
  reply.send(MonitoringResponseProt(monitor(session, request.getCommand())));
}

void tellTime(Session& session, DateTimeRequestProt& /*request*/, Reply& reply) {
  const DayAndSecond time = now(session.settings().timezone);
  reply.send(DateTimeResponseProt(time.day, time.second));
}

}  // namespace

void registerCommonRequests(Dispatcher& dispatcher) {
  dispatcher.on<LoggingRequestProt>("Logging", log).keepsPrompt = true;
  dispatcher.on<EchoRequestProt>("Echo", echo).keepsPrompt = true;
  dispatcher.on<SetPropertiesRequestProt>("SetProperties", setProperties);
  dispatcher.on<EISMetaDataRequestProt>("EISMetaData", describe);
  dispatcher.on<MonitoringRequestProt>("Monitoring", answerMonitoring).keepsPrompt = true;
  dispatcher.on<DateTimeRequestProt>("DateTime", tellTime);
}

}  // namespace nox::agent
