#include "calendar.h"

#include "sections.h"

namespace psipmux {
namespace {

constexpr int64_t kDay = 86400;

/// Returns the n-th Sunday of a month in days from 1970-01-01, which was a Thursday.
int64_t sunday(int64_t year, int64_t month, int64_t n) {
  const int64_t first = daysFromCivil(year, month, 1);
  return first + (10 - first % 7) % 7 + 7 * (n - 1);
}

}  // namespace

// Counts years from March, so that the leap day is the last day of a year.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
  if (month <= 2) --year;
  const int64_t monthFromMarch = (month + 9) % 12;
  const int64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - 719468;
}

DaylightSaving usDaylightSaving(uint32_t systemTime) {
  constexpr int64_t kHourOfChange = 2;
  constexpr int64_t kNotice = 28 * kDay;
  const int64_t now = kGpsEpoch + systemTime - kGpsUtcOffset;
  int64_t year = 1970 + now / (366 * kDay);
  while (daysFromCivil(year + 1, 1, 1) * kDay <= now) ++year;
  const struct { int64_t month, sunday, hoursBehindUtc; } kChanges[] = {{3, 2, 5}, {11, 1, 4}};
  DaylightSaving saving;
  for (const auto& change : kChanges) {
    const int64_t day = sunday(year, change.month, change.sunday);
    const int64_t time = day * kDay + (kHourOfChange + change.hoursBehindUtc) * 3600;
    if (now >= time) {
      saving.status = !saving.status;
    } else if (time - now < kNotice) {
      saving.dayOfMonth = static_cast<uint8_t>(day - daysFromCivil(year, change.month, 1) + 1);
      saving.hour = kHourOfChange;
    }
  }
  return saving;
}

}  // namespace psipmux
