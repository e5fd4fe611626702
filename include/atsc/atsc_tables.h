// Constant tables of the library: database columns and frequency plans.
#ifndef ATSC_ATSC_TABLES_H_
#define ATSC_ATSC_TABLES_H_

#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

// One column of a database table.
typedef struct ATSC_Service_db_layout {
  char name[128];  // NUL-terminated
  int32_t type;    // 1: INTEGER, otherwise TEXT
  int32_t flag;    // 0
} ATSC_Service_db_layout;

// Columns of `channel_data_t` and `channel_data_c`, in table order.
#define ATSC_CHANNEL_COLUMNS 21
extern const ATSC_Service_db_layout atsc_service_db_layout[ATSC_CHANNEL_COLUMNS];

// Columns of `event_t` and `event_c`, in table order.
#define ATSC_EVENT_COLUMNS 13
extern const ATSC_Service_db_layout atsc_event_db_layout[ATSC_EVENT_COLUMNS];

// Centre frequencies in Hz; -1 ends the table.
// Terrestrial channels 2 to 69 (47 CFR 73.603): index = channel number - 2.
#define ATSC_FREQ_ENTRIES 69
extern const int32_t atsc_freq[ATSC_FREQ_ENTRIES];
// Cable channels 1 to 135 of the standard plan of CEA-542: index = channel number - 1.
#define CABLE_DIGITAL_STD_ENTRIES 136
extern const int32_t cable_digital_std[CABLE_DIGITAL_STD_ENTRIES];

#ifdef __cplusplus
}
#endif

#pragma GCC visibility pop

#endif  // ATSC_ATSC_TABLES_H_
