// AISRV: the middleware's service list.
//
// Rules and terms: middleware_types.h.
#ifndef ATSC_PLATFORM_AISRV_H_
#define ATSC_PLATFORM_AISRV_H_

#include <middleware_types.h>

#ifdef __cplusplus
extern "C" {
#endif

// Service mask of list queries. Selects every service that a viewer can choose, including skipped
// and deleted services, but not hidden services.
enum { AISRV_SERVICE_MASK = 0x1007 };

// Service types. The service types of A/65 table 6.7 map to these three.
enum { AISRV_TYPE_TV = 1, AISRV_TYPE_RADIO = 2, AISRV_TYPE_DATA = 3 };

// Attribute flags (AISRV_flags_).
enum {
  AISRV_FLAG_VISIBLE = 0x1,
  AISRV_FLAG_LOCKED = 0x4,
  AISRV_FLAG_SKIPPED = 0x8,
  AISRV_FLAG_DELETED = 0x20,
};

// Identifies a service in the middleware.
typedef struct AISRV_service_id {
  uint32_t service_rec;   // service record number; unique, and constant while the service is listed
  uint32_t input_source;  // 0 or 2 terrestrial, 1 or 3 cable
} AISRV_service_id;

// One service (virtual channel).
typedef struct AISRV_service_info {
  AISRV_service_id service_id;
  uint32_t reserved_8;
  uint32_t reserved_12;
  uint32_t service_type;  // AISRV_TYPE_*; any other value counts as TV
  uint16_t major;         // major channel number; a one-part number has minor 0
  uint16_t minor;         // minor channel number
  uint32_t frequency;     // carrier centre frequency, Hz
  uint32_t reserved_28;
  uint32_t reserved_32;
  uint32_t reserved_36;
  uint32_t source_id;         // A/65 source_id, 16 bits wide
  uint32_t modulation;        // AI_MODULATION_*
  uint32_t AISRV_fav_group_;  // favourite-group mask: group 1 is bit 0x10, group 2 bit 0x20, ...
  uint32_t AISRV_flags_;      // AISRV_FLAG_*
  // 1: the service was built without a virtual channel table (from PAT and PMT, or by hand).
  uint32_t build_from_pmt;
  multiple_lang_t name;  // short name
  uint16_t transport_stream_id;
  uint16_t program_number;
  uint32_t service_delete;  // delete mark: 1 when the service is due for removal
  uint32_t reserved_80;
  uint32_t reserved_84;
  uint32_t reserved_88;
} AISRV_service_info;
ATSC_LAYOUT_OFFSET(AISRV_service_info, service_id.service_rec, 0);
ATSC_LAYOUT_OFFSET(AISRV_service_info, service_id.input_source, 4);
ATSC_LAYOUT_OFFSET(AISRV_service_info, service_type, 16);
ATSC_LAYOUT_OFFSET(AISRV_service_info, major, 20);
ATSC_LAYOUT_OFFSET(AISRV_service_info, minor, 22);
ATSC_LAYOUT_OFFSET(AISRV_service_info, frequency, 24);
ATSC_LAYOUT_OFFSET(AISRV_service_info, source_id, 40);
ATSC_LAYOUT_OFFSET(AISRV_service_info, modulation, 44);
ATSC_LAYOUT_OFFSET(AISRV_service_info, AISRV_fav_group_, 48);
ATSC_LAYOUT_OFFSET(AISRV_service_info, AISRV_flags_, 52);
ATSC_LAYOUT_OFFSET(AISRV_service_info, build_from_pmt, 56);
ATSC_LAYOUT_OFFSET(AISRV_service_info, name.text, 60);
ATSC_LAYOUT_OFFSET(AISRV_service_info, name.length, 64);
ATSC_LAYOUT_OFFSET(AISRV_service_info, name.encoding, 68);
ATSC_LAYOUT_SIZE(AISRV_service_info, 92);

// Further conditions of a list query; all zero: no condition.
typedef struct AISRV_query_filter {
  uint32_t words[2];
} AISRV_query_filter;
ATSC_LAYOUT_SIZE(AISRV_query_filter, 8);

enum { AISRV_MAX_PIDS = 30 };

// Audio kinds of an elementary stream.
enum {
  AISRV_AUDIO_MAIN = 1,
  AISRV_AUDIO_HEARING_IMPAIRED = 2,
  AISRV_AUDIO_DESCRIPTION = 3,
  AISRV_AUDIO_OTHER = 4,  // other incomplete audio: music and effects, commentary, ...
};

// One elementary stream of a service.
typedef struct AISRV_pid_info {
  uint8_t stream_type;        // ISO/IEC 13818-1 stream_type, 0x81 AC-3, 0x87 E-AC-3
  uint8_t audio_kind;         // AISRV_AUDIO_*; 0 when not known
  uint16_t pid;               // 13 bits
  char language[3];           // ISO 639-2 code; the first byte is 0 when absent
  char second_language[3];    // used when `language` is absent
  uint8_t main_audio_number;  // A/52 mainid: number of this main service, 0 to 7
  uint8_t description_mask;   // A/52 asvcflags: bit n set: describes main service n
  uint8_t full_mix;           // A/52 full_svc: 1 when the description is mixed with main audio
  uint8_t reserved;
} AISRV_pid_info;

// The elementary streams of a service, in broadcast order.
typedef struct AISRV_pid_details {
  uint32_t count;  // at most AISRV_MAX_PIDS
  AISRV_pid_info pids[AISRV_MAX_PIDS];
  uint32_t room[150];  // space for further fields
} AISRV_pid_details;

// Counts the services of `input_source` that `service_mask` and `filter` select.
int AISRV_get_total_services(uint32_t input_source, uint32_t service_mask,
                             const AISRV_query_filter* filter, uint32_t reserved, uint32_t* count);

// Copies services in the order of major and minor number, beginning with position `first` of the
// list. `count` holds the capacity of `records` and is set to the number of services copied. Each
// record has a name buffer with `name.length` usable bytes. For an empty list the library calls
// with a capacity of 0 and null `records`; that call succeeds.
int AISRV_get_n_services(uint32_t input_source, uint32_t service_mask, uint32_t first,
                         const AISRV_query_filter* filter, uint32_t reserved1, uint32_t reserved2,
                         uint32_t* count, AISRV_service_info* records);

// Copies the elementary streams of the service that `service->service_id` names.
int AISRV_get_pid_details(const AISRV_service_info* service, AISRV_pid_details* details);

enum { AISRV_MAX_ADVISORIES = 8 };

// Returns the rating regions of the content advisories in the streams of a service (its PMT) for
// the current programme, in broadcast order; no region when only the guide rates the programme.
// `count` holds the capacity of `regions` and is set to the number of regions, at most
// AISRV_MAX_ADVISORIES.
int AISRV_get_CAD_list(const AISRV_service_info* service, uint8_t* count, uint8_t* regions);

// Sets `status` to 1 when the current programme is blocked under the parental settings and is rated
// only in the streams of the service, or not rated (see AIPC_BLOCKED_BY_STATUS, AIPC_UNRATED); else
// to 0.
int AISRV_get_rating_status(const AISRV_service_info* service, uint32_t* status);

// Stores the service list so that the list survives a power cut.
int AISRV_sync_to_database(void);

// Removes all services of an input source from the list, with flags, favourites and names. Atomic
// and stored. Stops playing when a service of this input source plays.
int AISRV_reset_db(uint32_t input_source);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AISRV_H_
