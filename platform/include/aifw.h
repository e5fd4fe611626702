// AIFW: the middleware's framework module (initialisation, events, playing, channel changes).
//
// All functions may be called from any thread, those that ask also from within the event callback,
// and return 0, or another value on failure.
#ifndef ATSC_PLATFORM_AIFW_H_
#define ATSC_PLATFORM_AIFW_H_

#include <aipc.h>
#include <aisrv.h>

#ifdef __cplusplus
extern "C" {
#endif

// Initialises the middleware. `mode` is 0. A second call succeeds and changes nothing. Service list
// and settings of the last run are there before this call: the start-up of the databases reads the
// list, and an empty one empties the channel tables. The receiver of events is registered after
// this call.
int AIFW_init(int mode);

// What the middleware reports: 0 to 70. Those without a comment say all by their number. The
// library rewrites the guide table of the current input source at AFW_EPG_UPDATE and
// AFW_EPG_COMPLETE only, and compares its channel table with the list two seconds after the last of
// AFW_SERVICE_ADDED, AFW_SERVICE_DELETED and AFW_SERVICE_BUILD_COMPLETED; it ignores
// AFW_SERVICE_UPDATE, so that a changed service is to be told with the last of these. All others
// are passed on to the TV application, or ignored.
typedef int32_t AFW_event_t;
enum {
  AFW_EPG_UPDATE =
      0,  // events or descriptions of the guide changed, or another source
          // that has a guide became the current one; AIFW_get_event_update_data() tells whose
  AFW_EPG_COMPLETE = 1,      // every guide table that is announced was received, or is not sent: of
                             // the tuned stream; or of all streams that a scan, or the guide tuner
                             // in one go, has read
  AFW_EVENT_TRANSITION = 2,  // the next programme of the current service begins
  AFW_SERVICE_DELETED = 3,
  AFW_SERVICE_UPDATE = 4,  // a listed service changed (its name, its streams)
  AFW_SERVICE_UPDATE_TIMER = 5,
  AFW_RRT_UPDATE = 6,           // a rating region table of region 1 or 2 was received
  AFW_RRT_DOWNLOAD_UPDATE = 7,  // one of another region
  AFW_TUNER_LOCKED = 8,
  AFW_TUNER_UNLOCKED = 9,
  AFW_PARENTAL_UPDATE = 11,     // parental settings changed
  AFW_PARENTAL_BLOCKED = 12,    // what plays is blocked: another programme than before, or other
                                // settings
  AFW_PARENTAL_UNBLOCKED = 13,  // what plays is blocked no longer
  AFW_CHANNEL_LOCKED = 14,      // the channel that plays is locked
  AFW_CHANNEL_UNLOCKED = 15,    // the channel that plays is locked no longer
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
  AFW_SERVICE_BUILD_COMPLETED = 45,  // the service list has its final content again
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

// Told of each event, on the middleware's event thread, one at a time and in order. `data` is the
// middleware's and valid during the call. The callback may take its time only at the cost of the
// events that follow; it must not throw.
typedef void (*AIFW_app_callback)(AFW_event_t event, void* data);

// Registers the one receiver of events; null ends it. Events before the first registration are
// lost: what the middleware has to tell when it starts, above all that a guide is there, it tells
// afterwards.
int AIFW_register_frmwrk_app_cb(AIFW_app_callback callback);

enum { AIFW_MAX_UPDATED_SOURCES = 1000 };

// Whose guide data changed.
typedef struct AIFW_event_update_data {
  uint32_t count;  // at most AIFW_MAX_UPDATED_SOURCES
  uint32_t source_ids[AIFW_MAX_UPDATED_SOURCES];
} AIFW_event_update_data;
ATSC_LAYOUT_SIZE(AIFW_event_update_data, 4004);

// Fills a zeroed record for the AFW_EPG_UPDATE being reported, outside the callback the last one.
int AIFW_get_event_update_data(AIFW_event_update_data* data);

// alert_priority (SCTE 18) of the alert being reported, outside the callback the last one; 0 before
// any.
int AIFW_get_EAS_priority(uint8_t* priority);

// 1: goes to standby: playing ends, settings and service list are stored, requests to play fail
// until standby ends. 0: leaves standby and plays again what played before; without standby it
// changes nothing. Fails when the state could not be stored, which does not keep the set awake.
int AIFW_powerTransition_request(int powerdown);

// Makes `input_source` the current one and plays the service that played on it last, without one
// its first. Play path `path` is 0. Returns when the tuner has been given its order:
// AFW_TUNER_LOCKED, where the carrier was not tuned already, and AFW_CHANNEL_PLAY_SUCCESS or
// AFW_CHANNEL_PLAY_FAILURE follow. Fails when there is nothing to play, with nothing changed.
int AIFW_play_src(uint32_t path, uint32_t input_source);

// The same for the current input source.
int AIFW_play_curr_src(void);

// Plays the first service of `input_source`, deleted ones left out, whose frequency is `frequency`
// (Hz); 0 stands for any. Fails when there is none.
int AIFW_play_first_service(uint32_t input_source, uint32_t frequency);

// Stops playing. The current service stays the current one. Every channel change calls this before
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

// Follows the tuner into a mode, AI_INPUT_*: that input source becomes the current one. In the
// current mode it changes nothing. Fails on an unknown mode.
int AIFW_handle_tuner_mode_change(int mode);

// Changes the channel: the next or previous service in number order that is visible, not skipped
// and not deleted (wrapping; one whose carrier is known to be gone may be passed over), or the one
// with the given number that is not deleted. As AIFW_play_src() otherwise; after a failure the
// current service is the one that it was.
int AIFW_channel_change(const AIFW_channel_change_request* request);

enum { AIFW_SERVICE_ADD = 6, AIFW_SERVICE_MODIFY = 8 };

// Changes the service list and stores it. AIFW_SERVICE_ADD adds a service by hand: input source,
// type, number, frequency, modulation, attribute flags and name of the record count; a service of
// that number, source and frequency that is listed takes over flags and name. It stays listed, with
// its name, when a scan does not find it. AIFW_SERVICE_MODIFY: the service that
// `record->service_id` names takes over AISRV_flags_ and AISRV_fav_group_. Single-byte names are
// UTF-8 where they are valid UTF-8, else Latin-1. The record stays the caller's. Fails, with
// nothing changed, on a record that names no service or cannot be tuned, and when the list cannot
// be stored.
int AIFW_modify_service(uint32_t operation, const AISRV_service_info* record);

// Plays audio stream `track` of the current service, from 1 in broadcast order. It holds for this
// service until another one is chosen, also when it plays again. Fails when there is no such stream
// or the choice cannot be stored.
int AIFW_change_audio(uint8_t track);

// Locked channels. One that begins to play stays closed, without picture and sound, and
// AFW_CHANNEL_LOCKED is reported; AFW_CHANNEL_UNLOCKED follows when it opens. It is not opened by a
// free programme, nor does its opening free a blocked one.

// 1: a locked channel that is not playing needs the password before it plays; 0: it does not.
// 1 unless set.
int AIFW_passwd_reqd_non_play_src(int required);

// 1: the password was given for the channel that plays, or, when nothing plays, for the next one:
// it opens. 0: it was not; the channel is as AIFW_passwd_reqd_non_play_src() made it.
int AIFW_pwd_unlocked_no_playing(int unlocked);

// 1: the password was given for what plays: it is unlocked, a locked channel as well as a blocked
// programme and those that follow, until a channel begins to play, be it the same one, playing
// stops or standby begins.
// 0: takes that back. Fails when nothing plays.
int AIFW_pwd_unlocked_no_checking_status(int unlocked);

// The rating region in force, that of AIPC_get_parental_details(). Setting fails on a number that
// no region can have (1 to 255).
int AIFW_get_curr_region(AIPC_region_list_t* region);
int AIFW_set_curr_region(int32_t region);

// Settings of the emergency alerts: AIFW_EAS_READ fills `value`, AIFW_EAS_WRITE takes it over. They
// are in force at once, also for an alert that is being shown, and kept without further calls.
// Writing fails on a value that is not known, and, with the value in force, when it cannot be
// stored.
enum { AIFW_EAS_READ = 0, AIFW_EAS_WRITE = 1 };

// The alerts that the user wants, by alert_priority (SCTE 18).
enum {
  AIFW_EAS_ALL = 0,      // all but tests
  AIFW_EAS_MEDIUM = 1,   // medium priority (7) and above
  AIFW_EAS_HIGH = 2,     // high priority (11) and above: those that interrupt viewing
  AIFW_EAS_MAXIMUM = 3,  // maximum priority (15)
};
int AIFW_user_eas_setting(int32_t* value, int direction);

// 1: an alert is reported whenever its sequence_number changes; 0: not again when an alert of its
// EAS_event_ID, originator and event code was reported already while this carrier is tuned.
int AIFW_disable_optional_eas_event_id_check(int32_t* value, int direction);

// 1: alerts are taken from cable only; 0: from terrestrial streams too.
int AIFW_enable_eas_cable_only(int32_t* value, int direction);

#ifdef __cplusplus
}
#endif

#endif  // ATSC_PLATFORM_AIFW_H_
