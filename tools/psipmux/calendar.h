#pragma once

#include <cstdint>

#include "lineup.h"

namespace psipmux {

constexpr int64_t kGpsEpoch = 315964800;  ///< 1980-01-06T00:00:00Z in Unix time

/// Days from 1970-01-01 to a date of the Gregorian calendar.
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day);

/// What the STT of a U.S. station says (A/65 Annex A): daylight saving time is from the second
/// Sunday of March to the first Sunday of November, 2 a.m. Eastern time (the rule of 2007, here of
/// every year), and each change is announced four weeks ahead. `systemTime` is in GPS seconds.
DaylightSaving usDaylightSaving(uint32_t systemTime);

}  // namespace psipmux
