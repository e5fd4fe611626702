// AICS: the middleware's channel scan.
//
// Rules and terms: middleware_types.h.
#ifndef ATSC_PLATFORM_AICS_H_
#define ATSC_PLATFORM_AICS_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { AICS_SEARCH_MANUAL = 0, AICS_SEARCH_AUTOMATIC = 1 };

typedef struct AICS_search_request {
  uint32_t search_type;  // AICS_SEARCH_*
  uint32_t always_2;     // constant 2
  uint32_t frequency;    // Hz; frequency of a manual search
  uint32_t reserved_12;
  uint8_t source;  // AI_INPUT_*
} AICS_search_request;
ATSC_LAYOUT_OFFSET(AICS_search_request, always_2, 4);
ATSC_LAYOUT_OFFSET(AICS_search_request, frequency, 8);
ATSC_LAYOUT_OFFSET(AICS_search_request, source, 16);

// States of a scan in calls of the callback.
enum {
  AICS_STATE_START = 0,
  AICS_STATE_PROGRESS = 1,
  AICS_STATE_OVER = 2,
  AICS_STATE_PAUSE = 3,
  AICS_STATE_RESUME = 4,
};

typedef struct AICS_scan_progress {
  uint8_t progress;        // percent
  uint8_t channel_number;  // RF channel being scanned
  uint32_t services_found;
  uint32_t current_frequency;  // Hz
  uint32_t lock_frequency;     // Hz; frequency of the last lock, 0 before the first
  int32_t carrier_type;        // AI_MODULATION_* of the current carrier, 0 without lock
  uint32_t tv_services;
  uint32_t radio_services;
  uint32_t data_services;
  int32_t band_mask;  // AI_MODULATION_8VSB or AI_MODULATION_QAM
} AICS_scan_progress;
ATSC_LAYOUT_OFFSET(AICS_scan_progress, channel_number, 1);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, services_found, 4);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, current_frequency, 8);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, lock_frequency, 12);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, carrier_type, 16);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, tv_services, 20);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, radio_services, 24);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, data_services, 28);
ATSC_LAYOUT_OFFSET(AICS_scan_progress, band_mask, 32);
ATSC_LAYOUT_SIZE(AICS_scan_progress, 36);

// Receives the progress of a search on the middleware's scan thread, one call at a time, also from
// one search to the next. At every state `progress` points to an AICS_scan_progress that is valid
// during the call. The callback calls the middleware: at AICS_STATE_OVER it reads the service list
// and calls AIFW_play_first_service() with the input source that `band_mask` gives and, after a
// manual search, with `current_frequency`. It also waits for the TV application, without a time
// limit.
typedef void (*AICS_scan_callback)(void* progress, int state);

// Starts a search. Deferred; `callback` reports the progress. Fails while another search runs, and
// for a source or frequency that cannot be tuned. The search replaces the listed services of every
// frequency that it visits; the list has the new services before AICS_STATE_OVER is reported.
int AICS_start_search(const AICS_search_request* request, AICS_scan_callback callback);

// Stops the running search. The services found so far are in the list when the call returns.
// Returns while a callback may still run or be about to start, since the callback may wait for this
// caller. After that callback there is no other. The next search waits for its end before it
// reports anything. Fails when no search runs.
int AICS_stop_scan(void);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AICS_H_
