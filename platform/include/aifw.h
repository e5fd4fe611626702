// AIFW: the middleware's framework module (initialisation, events, playing, channel changes).
// Rules and terms: middleware_types.h. Functions that only read may be called from within the event
// callback.
#ifndef ATSC_PLATFORM_AIFW_H_
#define ATSC_PLATFORM_AIFW_H_

#include <aipc.h>
#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Initialises the middleware. `mode` is 0. A second call succeeds and changes nothing. The service
// list and the settings of the last run are available before this call: the start-up of the
// databases reads the list, and an empty list empties the channel tables. The library registers its
// event callback after this call.
int AIFW_init(int mode);

// Events of the middleware, 0 to 70. The library rewrites the guide table of the current input
// source only at AFW_EPG_UPDATE and AFW_EPG_COMPLETE. It synchronises its channel table two seconds
// after the last AFW_SERVICE_ADDED, AFW_SERVICE_DELETED or AFW_SERVICE_BUILD_COMPLETED; it ignores
// AFW_SERVICE_UPDATE, so report a changed service with AFW_SERVICE_BUILD_COMPLETED. It passes all
// other events on to the TV application or ignores them. Events have no data unless noted.
typedef int32_t AFW_event_t;
enum {
  // Events or descriptions of the guide changed, or another input source that has a guide became
  // the current one. AIFW_get_event_update_data() returns the affected A/65 source ids.
  AFW_EPG_UPDATE = 0,
  // Each announced guide table was received or is not broadcast: of the tuned stream, or of all
  // streams that a scan, or one pass of the guide tuner, has read.
  AFW_EPG_COMPLETE = 1,
  AFW_EVENT_TRANSITION = 2,  // the next programme of the current service begins
  AFW_SERVICE_DELETED = 3,
  AFW_SERVICE_UPDATE = 4,  // a listed service changed (its name, its streams)
  AFW_SERVICE_UPDATE_TIMER = 5,
  AFW_RRT_UPDATE = 6,           // the rating region table of region 1 or 2 was received
  AFW_RRT_DOWNLOAD_UPDATE = 7,  // the rating region table of another region was received
  AFW_TUNER_LOCKED = 8,
  AFW_TUNER_UNLOCKED = 9,
  AFW_PARENTAL_UPDATE = 11,     // parental settings changed
  AFW_PARENTAL_BLOCKED = 12,    // the playing service is blocked; new programme or settings
  AFW_PARENTAL_UNBLOCKED = 13,  // the playing service is no longer blocked
  AFW_CHANNEL_LOCKED = 14,      // the playing channel is locked
  AFW_CHANNEL_UNLOCKED = 15,    // the playing channel is no longer locked
  AFW_CHANNEL_PLAY_SUCCESS = 16,
  AFW_CHANNEL_PLAY_FAILURE = 17,
  AFW_DCCM_TEMP_TUNE_START = 23,
  AFW_DCCM_TEMP_TUNE_END = 24,
  AFW_DCCM_REDIRECT_CHANNEL = 25,
  AFW_DCCM_VDS_OPTIONS_AVAILABLE = 26,
  AFW_DCCM_UPDATE_DATA_AVAILABLE = 27,
  AFW_EAS_START_BLOCKING = 28,      // an alert that interrupts viewing; data: multiple_lang_t
  AFW_EAS_START_NON_BLOCKING = 29,  // any other alert; data: multiple_lang_t
  AFW_EAS_STOP = 30,
  AFW_EIT_UPDATE = 38,
  AFW_STT_UPDATE = 39,   // the system time was received; data: AIFW_time_data, never null
  AFW_TIME_CHANGE = 40,  // the receiver's clock was set; data: AIFW_time_data or null
  AFW_ETT_UPDATE = 43,
  AFW_SERVICE_BUILD_COMPLETED = 45,  // the service list is complete again after changes
  AFW_SERVICE_ADDED = 51,
  AFW_DCCM_DEPARTING_DESC_AVAILABLE = 57,
  AFW_VIEWING_DELAY = 69,
  AFW_INVALID = 70,
};

// Data of AFW_STT_UPDATE and AFW_TIME_CHANGE: the system time table (A/65 6.1).
typedef struct AIFW_time_data {
  uint32_t system_time;      // seconds of GPS time, since 1980-01-06 00:00:00 UTC
  uint8_t gps_utc_offset;    // leap seconds by which GPS time is ahead of UTC
  uint8_t daylight_savings;  // bit 0: DS_status; bits 1 to 5: DS_day_of_month
  uint8_t daylight_hour;     // DS_hour
  uint8_t reserved;
} AIFW_time_data;
ATSC_LAYOUT_OFFSET(AIFW_time_data, gps_utc_offset, 4);
ATSC_LAYOUT_OFFSET(AIFW_time_data, daylight_savings, 5);
ATSC_LAYOUT_OFFSET(AIFW_time_data, daylight_hour, 6);
ATSC_LAYOUT_SIZE(AIFW_time_data, 8);

// Receives the events on the middleware's event thread, one at a time and in order. The middleware
// owns `data`, which is valid during the call. A slow callback delays the events that follow. The
// callback must not throw.
typedef void (*AIFW_app_callback)(AFW_event_t event, void* data);

// Registers the only event callback. Null removes it. Events before the first registration
// are lost: the middleware reports its state at start, above all a guide that is available, after
// the registration.
int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback);

enum { AIFW_MAX_UPDATED_SOURCES = 1000 };

// The A/65 source ids whose guide data changed.
typedef struct AIFW_event_update_data {
  uint32_t count;  // at most AIFW_MAX_UPDATED_SOURCES
  uint32_t source_ids[AIFW_MAX_UPDATED_SOURCES];
} AIFW_event_update_data;
ATSC_LAYOUT_SIZE(AIFW_event_update_data, 4004);

// Returns the source ids of the AFW_EPG_UPDATE that is being reported; outside the callback, those
// of the last one. The caller provides a zeroed record.
int AIFW_get_event_update_data(AIFW_event_update_data* data);

// Returns the alert_priority (SCTE 18) of the alert that is being reported; outside the callback,
// that of the last alert; 0 before the first alert.
int AIFW_get_EAS_priority(uint8_t* priority);

// Enters (1) or leaves (0) standby. Entering stops playing and stores settings and service list;
// requests to play fail during standby. Fails when storing fails, but the set is in standby then.
// Leaving plays the previous service again; outside standby it changes nothing.
int AIFW_powerTransition_request(int powerdown);

// Makes `input_source` the current input source and plays its last played service, else its first.
// Play path `path` is 0. Deferred: returns when the tuner has its order. AFW_TUNER_LOCKED, unless
// the carrier is already tuned, and AFW_CHANNEL_PLAY_SUCCESS or AFW_CHANNEL_PLAY_FAILURE follow.
// Fails, and changes nothing, when there is nothing to play.
int AIFW_play_src(uint32_t path, uint32_t input_source);

// Plays the current input source, as AIFW_play_src().
int AIFW_play_curr_src(void);

// Plays the first service of `input_source` that is not deleted and has the frequency `frequency`
// (Hz; 0: any frequency). Fails when there is no such service.
int AIFW_play_first_service(uint32_t input_source, uint32_t frequency);

// Stops playing. The current service does not change. The library calls this function before each
// AIFW_channel_change().
int AIFW_stop_curr_src(void);

enum { AIFW_CHANGE_UP = 0, AIFW_CHANGE_DOWN = 1, AIFW_CHANGE_DIRECT = 5 };

typedef struct AIFW_channel_change_request {
  uint32_t mode;          // AIFW_CHANGE_*
  uint32_t input_source;  // AI_INPUT_*
  uint32_t service_mask;  // AISRV_SERVICE_MASK
  uint16_t major;         // direct mode only
  uint16_t minor;         // direct mode only
  uint32_t reserved;
  uint32_t service_rec;  // 0xFFFF when not known
  uint32_t input_source_again;
} AIFW_channel_change_request;
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, major, 12);
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, minor, 14);
ATSC_LAYOUT_OFFSET(AIFW_channel_change_request, service_rec, 20);
ATSC_LAYOUT_SIZE(AIFW_channel_change_request, 28);

// Makes the input source of a tuner mode, AI_INPUT_*, the current input source. Changes nothing
// when it is the current one. Fails for an unknown mode.
int AIFW_handle_tuner_mode_change(int mode);

// Changes the channel. AIFW_CHANGE_UP and AIFW_CHANGE_DOWN play the next or previous service in
// number order that is visible, not skipped and not deleted; they wrap around, and may pass over a
// service whose carrier is known to be gone. AIFW_CHANGE_DIRECT plays the service with the given
// number that is not deleted. Otherwise as AIFW_play_src(). A failure keeps the current service.
int AIFW_channel_change(const AIFW_channel_change_request* request);

enum { AIFW_SERVICE_ADD = 6, AIFW_SERVICE_MODIFY = 8 };

// Changes the service list. Atomic and stored. AIFW_SERVICE_ADD adds a service by hand, with the
// input source, type, number, frequency, modulation, attribute flags and name of the record; a
// listed service with this number, input source and frequency gets the flags and the name instead.
// The service stays in the list, with its name, when a scan does not find it.
// AIFW_SERVICE_MODIFY sets AISRV_flags_ and AISRV_fav_group_ of the service that
// `record->service_id` names. A single-byte name is UTF-8 if it is valid UTF-8, else Latin-1. The
// caller owns the record. Fails for a record that names no service or cannot be tuned.
int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record);

// Plays audio stream `track` of the current service, from 1 in broadcast order, also when the
// service plays again, until another stream is chosen. Fails when there is no such stream and when
// the choice cannot be stored.
int AIFW_change_audio(uint8_t track);

// A locked channel that begins to play stays closed, without picture and sound:
// AFW_CHANNEL_LOCKED. AFW_CHANNEL_UNLOCKED reports that it opens. An unblocked programme does not
// open a locked channel, and opening the channel does not unblock a blocked programme.

// Sets whether a locked channel that is not playing needs the password to play: 1 (default) or 0.
int AIFW_passwd_reqd_non_play_src(int required);

// Sets whether the password was given for the playing channel or, when nothing plays, for the next
// channel. 1: the channel opens. 0: AIFW_passwd_reqd_non_play_src() decides.
int AIFW_pwd_unlocked_no_playing(int unlocked);

// Unlocks (1) the playing service after the password was given: the locked channel, the blocked
// programme and the programmes that follow. The unlocking ends when a channel begins to play (also
// the same channel), when playing stops and when standby begins; 0 ends it too. Fails when nothing
// plays.
int AIFW_pwd_unlocked_no_checking_status(int unlocked);

// Return and set the rating region in force, the region of AIPC_get_parental_details(). Setting
// fails for a number that no region can have (regions are 1 to 255).
int AIFW_get_curr_region(AIPC_region_list_t* region);
int AIFW_set_curr_region(int32_t region);

// Settings of the emergency alerts. AIFW_EAS_READ reads the setting into `value`, AIFW_EAS_WRITE
// sets it from `value`: applied, also to an alert that is being shown, and stored. Writing fails
// for an unknown value.
enum { AIFW_EAS_READ = 0, AIFW_EAS_WRITE = 1 };

// Alerts to report, by alert_priority (SCTE 18).
enum {
  AIFW_EAS_ALL = 0,      // all alerts but tests
  AIFW_EAS_MEDIUM = 1,   // medium priority (7) and above
  AIFW_EAS_HIGH = 2,     // high priority (11) and above; 11 and 15 interrupt viewing
  AIFW_EAS_MAXIMUM = 3,  // maximum priority (15)
};
int AIFW_user_eas_setting(int32_t* value, int direction);

// 1: report an alert whenever its sequence_number changes. 0: report an alert with the same
// EAS_event_ID, originator and event code only once until a channel change, or until the carrier is
// tuned anew.
int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction);

// 1: report alerts from cable only. 0: report alerts from terrestrial streams too.
int AIFW_enable_eas_cable_only(int32_t* value, int direction);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIFW_H_
