// AIST: the middleware's system time.
//
// Rules and terms: middleware_types.h.
#ifndef ATSC_PLATFORM_AIST_H_
#define ATSC_PLATFORM_AIST_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Returns the receiver's clock: seconds since 1970-01-01 00:00:00 UTC, without leap seconds. The
// clock may stand still or jump.
int AIST_get_cur_time_secs(uint32_t* seconds);

// Time zones, from east to west. All zones but Korea, Taiwan, Greenwich and Hawaii have daylight
// saving time. The system time table (A/65 Annex A) says when it is in force.
enum {
  AIST_ZONE_KOREA = 0,             // "SKST", UTC+9
  AIST_ZONE_TAIWAN = 1,            // "TST", UTC+8
  AIST_ZONE_GREENWICH = 2,         // "GMT"
  AIST_ZONE_NEWFOUNDLAND = 3,      // "NST", UTC-3:30
  AIST_ZONE_ATLANTIC = 4,          // "AST", UTC-4
  AIST_ZONE_EASTERN = 5,           // "EST", UTC-5; default of a new set
  AIST_ZONE_CENTRAL = 6,           // "CST", UTC-6
  AIST_ZONE_MOUNTAIN = 7,          // "MST", UTC-7
  AIST_ZONE_PACIFIC = 8,           // "PST", UTC-8
  AIST_ZONE_ALASKA = 9,            // "AKST", UTC-9
  AIST_ZONE_HAWAII_ALEUTIAN = 10,  // "HAST", UTC-10
  AIST_ZONE_HAWAII = 11,           // "HST", UTC-10
};

enum { AIST_MODE_MANUAL = 0, AIST_MODE_AUTOMATIC = 1 };

typedef struct AIST_system_time_info {
  int32_t zone;       // AIST_ZONE_*
  int32_t offset;     // minutes from UTC to local time, east positive, daylight saving included
  int32_t mode;       // AIST_MODE_*
  uint32_t room[13];  // space for further fields
} AIST_system_time_info;
ATSC_LAYOUT_OFFSET(AIST_system_time_info, offset, 4);
ATSC_LAYOUT_OFFSET(AIST_system_time_info, mode, 8);

// Local time.
typedef struct AIST_time_date {
  uint16_t year;
  uint8_t month;  // 1 to 12
  uint8_t mday;   // day of the month, 1 to 31
  uint8_t hour;   // 0 to 23
  uint8_t minute;
  uint8_t second;
  uint32_t room[14];  // space for further fields
} AIST_time_date;
ATSC_LAYOUT_OFFSET(AIST_time_date, month, 2);
ATSC_LAYOUT_OFFSET(AIST_time_date, mday, 3);
ATSC_LAYOUT_OFFSET(AIST_time_date, hour, 4);
ATSC_LAYOUT_OFFSET(AIST_time_date, minute, 5);
ATSC_LAYOUT_OFFSET(AIST_time_date, second, 6);

// Sets the clock mode. `manual` 1: the clock continues on its own from the current time. 0: the
// clock follows the system time of the broadcast. Applied and stored.
int AIST_manual_mode_enable(int manual);

// Sets the time zone, AIST_ZONE_*. Applied and stored. Fails for an unknown zone, and changes
// nothing then.
int AIST_set_current_time_zone(int32_t zone);

// Return the zone, offset and mode, and the local time.
int AIST_get_system_time_info(AIST_system_time_info* info);
int AIST_get_cur_time_date(AIST_time_date* date);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIST_H_
