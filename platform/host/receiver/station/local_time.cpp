#include "receiver/station/local_time.h"

#include <iterator>

namespace atschost {
namespace {

constexpr int64_t kHour = 3600;
constexpr int64_t kDay = 24 * kHour;

struct Zone {
  int32_t offset;  // minutes, of standard time
  bool savesDaylight;
};

// In the order of AIST_ZONE_*.
constexpr Zone kZones[] = {
    {9 * 60, false},       // Korea
    {8 * 60, false},       // Taiwan
    {0, false},            // Greenwich
    {-3 * 60 - 30, true},  // Newfoundland
    {-4 * 60, true},       // Atlantic
    {-5 * 60, true},       // Eastern
    {-6 * 60, true},       // Central
    {-7 * 60, true},       // Mountain
    {-8 * 60, true},       // Pacific
    {-9 * 60, true},       // Alaska
    {-10 * 60, true},      // Hawaii-Aleutian
    {-10 * 60, false},     // Hawaii
};

struct Date {
  int64_t year;
  int64_t month;  // 1 to 12
  int64_t day;
};

// Dates count from 1 March of year 0, so that a leap day ends its year. `days` counts from
// 1970-01-01 and is not before 1 March of year 0.
constexpr int64_t kDaysToEpoch = 719468;

Date dateOf(int64_t days) {
  days += kDaysToEpoch;
  const int64_t era = days / 146097;  // of 400 years
  const int64_t dayOfEra = days % 146097;
  const int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const int64_t month = (5 * dayOfYear + 2) / 153;  // from March
  const int64_t day = dayOfYear - (153 * month + 2) / 5 + 1;
  return {era * 400 + yearOfEra + (month >= 10 ? 1 : 0), month < 10 ? month + 3 : month - 9, day};
}

int64_t daysTo(const Date& date) {
  const int64_t year = date.month <= 2 ? date.year - 1 : date.year;
  const int64_t dayOfYear = (153 * ((date.month + 9) % 12) + 2) / 5 + date.day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - kDaysToEpoch;
}

// Returns when daylight saving begins or ends as announced by the table, in seconds of local time
// before the change. A change is announced up to a month ahead, and until it has occurred in all
// zones that the network serves. The table only gives the day of the month. If two months are
// possible, returns the month in which all these zones change: March or November.
std::optional<int64_t> announcedChange(const SystemTime& table, int64_t localTimeOfTable) {
  if (table.daylightDayOfMonth == 0 || table.daylightHour > 23) return std::nullopt;
  const Date today = dateOf(localTimeOfTable / kDay);
  std::optional<int64_t> first;
  for (int64_t months = -1; months <= 1; ++months) {
    const int64_t month = today.year * 12 + today.month - 1 + months;
    const Date date{month / 12, month % 12 + 1, table.daylightDayOfMonth};
    const int64_t days = daysTo(date);
    if (dateOf(days).day != date.day) continue;  // the month is shorter
    const int64_t change = days * kDay + table.daylightHour * kHour;
    if (change <= localTimeOfTable - kDay) continue;
    if (change >= localTimeOfTable + 32 * kDay) break;
    if (date.month == (table.daylightStatus ? 11 : 3)) return change;
    if (!first) first = change;
  }
  return first;
}

bool savesDaylight(const Zone& zone, const SystemTime& table, uint32_t unixSeconds) {
  const int64_t before = zone.offset * 60 + (table.daylightStatus ? kHour : 0);
  const auto change = announcedChange(table, table.unixSeconds() + before);
  const bool hasChanged = change && unixSeconds + before >= *change;
  return table.daylightStatus != hasChanged;
}

}  // namespace

bool isZone(int32_t zone) { return zone >= 0 && static_cast<uint32_t>(zone) < std::size(kZones); }

int32_t utcOffset(int32_t zone, const std::optional<SystemTime>& table, uint32_t unixSeconds) {
  if (!isZone(zone)) return 0;
  const Zone& found = kZones[zone];
  const bool daylight = found.savesDaylight && table && savesDaylight(found, *table, unixSeconds);
  return found.offset + (daylight ? 60 : 0);
}

AIST_time_date dateAt(uint32_t unixSeconds, int32_t offset) {
  // Adds a day, which is subtracted again: the first hours are in 1969 in the west.
  const int64_t local = unixSeconds + int64_t{offset} * 60 + kDay;
  const Date date = dateOf(local / kDay - 1);
  const int64_t second = local % kDay;
  AIST_time_date filled{};
  filled.year = static_cast<uint16_t>(date.year);
  filled.month = static_cast<uint8_t>(date.month);
  filled.mday = static_cast<uint8_t>(date.day);
  filled.hour = static_cast<uint8_t>(second / kHour);
  filled.minute = static_cast<uint8_t>(second / 60 % 60);
  filled.second = static_cast<uint8_t>(second % 60);
  return filled;
}

}  // namespace atschost
