#include "calendar.h"

#include "sections.h"

namespace psipmux {
namespace {

constexpr int64_t kDay = 86400;

/// The n-th Sunday of a month, in days from 1970-01-01, a Thursday.
int64_t Sunday(int64_t year, int64_t month, int64_t n) {
  const int64_t first = DaysFromCivil(year, month, 1);
  return first + (10 - first % 7) % 7 + 7 * (n - 1);
}

}  // namespace

// Years are counted from March so that the leap day is the last of its year.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day) {
  if (month <= 2) --year;
  const int64_t month_from_march = (month + 9) % 12;
  const int64_t day_of_year = (153 * month_from_march + 2) / 5 + day - 1;
  return year * 365 + year / 4 - year / 100 + year / 400 + day_of_year - 719468;
}

DaylightSaving UsDaylightSaving(uint32_t system_time) {
  constexpr int64_t kHourOfChange = 2;
  constexpr int64_t kNotice = 28 * kDay;
  const int64_t now = kGpsEpoch + system_time - kGpsUtcOffset;
  int64_t year = 1970 + now / (366 * kDay);
  while (DaysFromCivil(year + 1, 1, 1) * kDay <= now) ++year;
  const struct { int64_t month, sunday, hours_behind_utc; } kChanges[] = {{3, 2, 5}, {11, 1, 4}};
  DaylightSaving saving;
  for (const auto& change : kChanges) {
    const int64_t day = Sunday(year, change.month, change.sunday);
    const int64_t time = day * kDay + (kHourOfChange + change.hours_behind_utc) * 3600;
    if (now >= time) {
      saving.status = !saving.status;
    } else if (time - now < kNotice) {
      saving.day_of_month = static_cast<uint8_t>(day - DaysFromCivil(year, change.month, 1) + 1);
      saving.hour = kHourOfChange;
    }
  }
  return saving;
}

}  // namespace psipmux
