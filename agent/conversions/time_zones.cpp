// Dates and times of the tz database's zones, through ICU: its own data, no environment, and safe
// for threads.
#include <unicode/ucal.h>

#include <chrono>
#include <memory>
#include <optional>

#include "agent/conversions/calendar.h"
#include "agent/conversions/conversions.h"

namespace nox::agent {

namespace {

constexpr std::int64_t kUnixEpoch = 732;  // 1 January 1970 as a day number
constexpr std::size_t kLongestZone = 64;

/// ICU's form of a zone's name; nothing for one that cannot be a name.
std::optional<std::u16string> zoneName(const std::string& name) {
  if (name.empty() || name.size() > kLongestZone) return {};
  std::u16string units;
  for (const char c : name) {
    if (c <= ' ' || c > '~') return {};
    units += static_cast<char16_t>(c);
  }
  return units;
}

/// What the zone's clocks show beyond UTC at this moment, in seconds; 0 where ICU does not know.
std::int64_t offsetOf(const std::string& timezone, std::chrono::milliseconds sinceEpoch) {
  if (timezone == "UTC" || !isTimezone(timezone)) return 0;
  const std::optional<std::u16string> zone = zoneName(timezone);
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UCalendar, decltype(&ucal_close)> calendar(
      ucal_open(zone->data(), static_cast<std::int32_t>(zone->size()), "en", UCAL_GREGORIAN,
                &status),
      ucal_close);
  ucal_setMillis(calendar.get(), static_cast<UDate>(sinceEpoch.count()), &status);
  const std::int64_t offset = std::int64_t{ucal_get(calendar.get(), UCAL_ZONE_OFFSET, &status)} +
                              ucal_get(calendar.get(), UCAL_DST_OFFSET, &status);
  return U_SUCCESS(status) ? offset / 1000 : 0;
}

}  // namespace

DayAndSecond now(const std::string& timezone) {
  const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::system_clock::now().time_since_epoch());
  const std::int64_t seconds =
      std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch).count() +
      offsetOf(timezone, sinceEpoch);
  std::int64_t day = seconds / kSecondsPerDay;
  std::int64_t second = seconds % kSecondsPerDay;
  if (second < 0) {
    --day;
    second += kSecondsPerDay;
  }
  return {static_cast<std::int32_t>(day + kUnixEpoch), static_cast<std::int32_t>(second)};
}

bool isTimezone(const std::string& name) {
  const std::optional<std::u16string> zone = zoneName(name);
  if (!zone) return false;
  UErrorCode status = U_ZERO_ERROR;
  UBool known = 0;
  char16_t canonical[kLongestZone * 2];
  ucal_getCanonicalTimeZoneID(zone->data(), static_cast<std::int32_t>(zone->size()), canonical,
                              static_cast<std::int32_t>(std::size(canonical)), &known, &status);
  return U_SUCCESS(status) && known;
}

}  // namespace nox::agent
