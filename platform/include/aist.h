// AIST: the middleware's system time.
#ifndef ATSC_PLATFORM_AIST_H_
#define ATSC_PLATFORM_AIST_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

// The receiver's clock: seconds since 1970-01-01 00:00:00 UTC, leap seconds not counted. It may
// stand still or jump. Any thread. Returns 0 on success.
int AIST_get_cur_time_secs(uint32_t* seconds);

// Time zones, from east to west. All but Korea, Taiwan, Greenwich and Hawaii have daylight saving
// time, in force when the system time table (A/65 Annex A) says so.
enum {
  AIST_ZONE_KOREA = 0,             // "SKST", UTC+9
  AIST_ZONE_TAIWAN = 1,            // "TST", UTC+8
  AIST_ZONE_GREENWICH = 2,         // "GMT"
  AIST_ZONE_NEWFOUNDLAND = 3,      // "NST", UTC-3:30
  AIST_ZONE_ATLANTIC = 4,          // "AST", UTC-4
  AIST_ZONE_EASTERN = 5,           // "EST", UTC-5; the setting of a new set
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
  int32_t offset;     // of local time to UTC, east positive, daylight saving included; minutes
  int32_t mode;       // AIST_MODE_*
  uint32_t room[13];  // a size of ours
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
  uint32_t room[14];  // a size of ours
} AIST_time_date;
ATSC_LAYOUT_OFFSET(AIST_time_date, month, 2);
ATSC_LAYOUT_OFFSET(AIST_time_date, mday, 3);
ATSC_LAYOUT_OFFSET(AIST_time_date, hour, 4);
ATSC_LAYOUT_OFFSET(AIST_time_date, minute, 5);
ATSC_LAYOUT_OFFSET(AIST_time_date, second, 6);

// 1: the clock runs on by itself from where it is; 0: it follows the broadcast's system time.
// Stored at once; fails when that cannot be done, with the mode in force all the same. Any thread.
int AIST_manual_mode_enable(int manual);

// Sets the time zone, AIST_ZONE_*; stored like the mode. Fails, with nothing changed, on an unknown
// zone. Any thread.
int AIST_set_current_time_zone(int32_t zone);

// Fills `info`, or `date`. Any thread. Returns 0 on success.
int AIST_get_system_time_info(AIST_system_time_info* info);
int AIST_get_cur_time_date(AIST_time_date* date);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIST_H_
