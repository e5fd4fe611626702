// AIEC: the middleware's event cache (the programme guide as received).
//
// The events of a service are those of its table as broadcast, past events included, in the order
// of their start times.
#ifndef ATSC_PLATFORM_AIEC_H_
#define ATSC_PLATFORM_AIEC_H_

#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Sizes of the buffers that the caller provides for one event.
enum {
  AIEC_NAME_SIZE = 256,
  AIEC_RATING_SIZE = 80,
  AIEC_DESCRIPTION_SIZE = 8000,
  AIEC_MAX_GENRES = 32,
};

// Identifies an event. Valid until the guide of its service changes.
typedef struct AIEC_event_key {
  uint32_t service_rec;   // of AISRV_service_id
  uint32_t input_source;  // of AISRV_service_id
  uint32_t event_index;   // position among the service's events, from 0
} AIEC_event_key;
ATSC_LAYOUT_OFFSET(AIEC_event_key, event_index, 8);
ATSC_LAYOUT_SIZE(AIEC_event_key, 12);

// One event (programme).
typedef struct AIEC_event_info {
  AIEC_event_key key;
  uint16_t event_id;        // A/65 event_id, 14 bits
  uint8_t genre_count;      // at most AIEC_MAX_GENRES
  uint8_t multi_rating;     // 0: see `rating`; else AIEC_get_multiple_event_rating_string()
  uint32_t start_time;      // Unix time in seconds, as AIST_get_cur_time_secs()
  uint32_t duration;        // seconds
  multiple_lang_t name;     // buffer of AIEC_NAME_SIZE bytes
  multiple_lang_t rating;   // buffer of AIEC_RATING_SIZE bytes; length 0: the event is not rated
  uint8_t parental_status;  // 1: blocked under the current parental settings, else 0
  uint8_t captions;         // 1: closed captions are announced, else 0
  uint8_t genres[AIEC_MAX_GENRES];  // A/65 table 6.20 (genre descriptor)
  uint8_t reserved[2];
  uint32_t room[16];  // space for further fields; small, as it is cleared for each event
} AIEC_event_info;
ATSC_LAYOUT_OFFSET(AIEC_event_info, event_id, 12);
ATSC_LAYOUT_OFFSET(AIEC_event_info, start_time, 16);
ATSC_LAYOUT_OFFSET(AIEC_event_info, duration, 20);
ATSC_LAYOUT_OFFSET(AIEC_event_info, name, 24);
ATSC_LAYOUT_OFFSET(AIEC_event_info, rating, 36);
ATSC_LAYOUT_OFFSET(AIEC_event_info, parental_status, 48);
ATSC_LAYOUT_OFFSET(AIEC_event_info, captions, 49);
ATSC_LAYOUT_OFFSET(AIEC_event_info, genres, 50);

// Counts the events of the service that `service->service_id` names.
int AIEC_get_total_events(const AISRV_service_info* service, uint16_t* count);

// Copies up to `count` events, beginning with the first, into records with text buffers. Sets
// `copied` to the number of events copied.
int AIEC_get_first_n_events(const AISRV_service_info* service, AIEC_event_info* events,
                            uint16_t count, uint16_t* copied);

// Copies events as AIEC_get_first_n_events(), beginning with the event after `previous`.
// `direction` is 1. Copies no event after the last one. Fails when the service is no longer listed.
int AIEC_get_next_n_events(const AIEC_event_key* previous, AIEC_event_info* events, uint16_t count,
                           uint16_t* copied, uint32_t direction);

// Writes the ratings of an event that is rated in several systems as one text into a buffer of
// AIEC_RATING_SIZE bytes.
int AIEC_get_multiple_event_rating_string(const AIEC_event_key* event, multiple_lang_t* text);

// Checks the current programme of a service against the parental settings. Of these, the first that
// the programme has counts:
//   1. a rating in the streams of the service (PMT),
//   2. a rating in the guide,
//   3. no rating.
// Returns
//   AIPC_BLOCKED: the rating in the guide is blocked;
//   AIPC_BLOCKED_BY_STATUS (aipc.h): the streams rate the programme;
//   AIPC_UNRATED (aipc.h): no rating;
//   0: allowed, also while parental control is off, and for a programme that was unlocked
//      (AIFW_pwd_unlocked_no_checking_status);
//   -1: the service is neither listed nor playing.
int AIEC_check_rating(const AISRV_service_info* service);

// Writes the description (extended text) of an event into a buffer of AIEC_DESCRIPTION_SIZE bytes;
// length 0 when the event has no description.
int AIEC_get_event_description(const AIEC_event_key* event, multiple_lang_t* text);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIEC_H_
