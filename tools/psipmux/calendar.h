#pragma once

#include <cstdint>

#include "lineup.h"

namespace psipmux {

constexpr int64_t kGpsEpoch = 315964800;  ///< 1980-01-06T00:00:00Z in Unix time

/// Returns the number of days from 1970-01-01 to a date of the Gregorian calendar.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day);

/// Returns the daylight saving fields of the STT of a U.S. station (A/65 Annex A). Daylight saving
/// time lasts from the second Sunday of March to the first Sunday of November, 2 a.m. Eastern time
/// (the rule of 2007, applied to all years); each change is announced four weeks ahead.
/// `systemTime` is in GPS seconds.
DaylightSaving usDaylightSaving(uint32_t systemTime);

}  // namespace psipmux
