// Entry points of libatscbusservice.
//
// The TV application's process sends commands with ATSC_TransmitServiceClientJSONCommand(); the
// service process is started with ATSC_Service_init(), then ATSC_Service_db_init(), and sends
// callbacks with ATSC_TransmitTVClientJSONCommand(). No function throws.
#ifndef ATSC_ATSC_SERVICE_H_
#define ATSC_ATSC_SERVICE_H_

#include <stdint.h>

#pragma GCC visibility push(default)

#ifdef __cplusplus
extern "C" {
#endif

struct AISRV_service_info;

// Input sources as numbers, the input types of the functions below.
enum {
  ATSC_INPUT_TERRESTRIAL = 2,  // 8-VSB from the antenna
  ATSC_INPUT_CABLE = 3,        // QAM from the cable
};

// Input sources as texts, in commands, replies and the column `tuner_type`.
#define ATSC_INPUT_TERRESTRIAL_NAME "VSB"
#define ATSC_INPUT_CABLE_NAME "QAM"

// Sends one JSON command to the service process and waits for its answer; any thread, one command
// at a time. Returns the command's result (0 success, -1 failure). When `result` is not null it
// receives the reply text, to be released with free(), or null when there is none; the service's
// death in the meantime gives null and 0.
int ATSC_TransmitServiceClientJSONCommand(const char* command, char** result);

// Sends one JSON callback message from the service process to the TV application; otherwise like
// ATSC_TransmitServiceClientJSONCommand().
int ATSC_TransmitTVClientJSONCommand(const char* command, char** result);

// What a model tunes of the service process. A field of 0 is not customised: the default holds.
typedef struct ATSCCustomizedParameter {
  uint32_t block_play_after_scan;       // 1: playing stays blocked after a channel scan
  uint32_t tuner_lock_wait_in_ms;       // time for the tuner to lock, milliseconds
  uint32_t tuner_cable_vsb_wait_in_ms;  // time to lock a cable VSB carrier, milliseconds
  uint32_t DBB_wait_time_in_ms;         // time to build the service list, milliseconds
  uint32_t customized_flow;             // product-specific flow
} ATSCCustomizedParameter;

// Starts the service process: the two callback queues with their threads and the timer that turns
// changes of the service list into one synchronisation. Then, unless `record` is null, fills it
// from the customization file (a JSON object with the field names as keys: environment variable
// ATSC_CUSTOM_FILE, else "qel.atsc.json" beside the executable, else
// "/system/com.qel.atsc/qel.atsc.json") and prints it to standard output. What the file lacks, or
// what cannot be converted to the field, is 0. `record` stays the caller's. Once, on the main
// thread, before ATSC_Service_db_init() and before any command is served.
void ATSC_Service_init(ATSCCustomizedParameter* record);

// Takes one event of the middleware: `event` is an AFW_event_t, `data` is read before the return.
// Registered with the middleware by the command "FW" "INIT"; any thread.
void ATSC_Service_event_cb(int32_t event, void* data);

// Sends the callback "SERVICE_BUILD_COMPLETED": the channel list is ready. Any thread.
void ATSC_Service_event_cb_Ex(void);

// Starts the databases of the service process: paths, customer columns, integrity and version
// checks, tables; rebuilds the channel tables from the middleware when a check failed and then
// announces them with ATSC_Service_event_cb_Ex(). Once, on the main thread, before any command is
// served. The result carries no meaning. The check compares numbers of channels: where the power
// can fail between the middleware's store and the tables', ATSC_Service_db_UpdateChannel() for each
// input finds out afterwards whether they are the same channels.
int32_t ATSC_Service_db_init(void);

// Brings the channel table of an input in line with the middleware's service list:
// ATSC_INPUT_TERRESTRIAL is `channel_data_t`, any other input type `channel_data_c`. Returns 1 when
// the table's content changed or the comparison could not be made, else 0. Any thread; concurrent
// calls wait for each other.
int ATSC_Service_db_UpdateChannel(int input_type);

// Rewrites the guide of an input from the middleware's events: ATSC_INPUT_TERRESTRIAL is `event_t`,
// any other input type `event_c`. Readers see the old or the new guide. A database failure is
// printed and leaves the old one, so does a service list that the middleware cannot give; events
// that it cannot give are missing. On the guide queue's thread: one call at a time.
void ATSC_Service_db_UpdateEvent(int input_type);

// Key of a channel lookup, passed by value.
typedef struct ATSC_Service_db_channelKey {
  uint32_t major;
  uint32_t minor;
  uint32_t source_id;
  uint32_t frequency;  // Hz
  char table[32];      // "channel_data_t" or "channel_data_c", NUL-terminated
} ATSC_Service_db_channelKey;

// Answer of a channel lookup that finds no row.
#define ATSC_CHANNEL_NOT_FOUND 65535

// Looks up the `ch_index` of the first row with this key, and with these PID texts where they are
// neither null nor empty, on a read-only connection of its own. Returns ATSC_CHANNEL_NOT_FOUND when
// there is none or the file cannot be read. Any thread.
int ATSC_Service_db_findChannelIndex(const char* db_path, ATSC_Service_db_channelKey key,
                                     const char* audio_pid_text, const char* video_pid_text);

// Writes one column of the rows whose `ch_id_pk` is given, in a transaction of its own. `table` and
// `column` are names of the schema; texts are given as they are to be stored, single quotes too.
// Failures are printed. Any thread.
void ATSC_Service_db_updateChannelEntryText(const char* ch_id_pk, const char* table,
                                            const char* column, const char* value);
void ATSC_Service_db_updateChannelEntryInterger(const char* ch_id_pk, const char* table,
                                                const char* column, uint32_t value);

// The stored audio index of a service's row, 65535 when there is none. Any thread.
uint32_t ATSC_Service_getAudioIndex_fromDB(const struct AISRV_service_info* record);

// Buffers of texts are void pointers, so that those of char and of unsigned char are given alike.

// Encodes one UTF-16 code unit (surrogates each on their own) into `out`, which has room for 3
// bytes. Returns the number of bytes written.
int Utili_UnicodeToUTF8(uint16_t unit, void* out);

// The number of UTF-8 bytes that Utili_ConvertUTF16BEToUTF8() makes of `length` bytes of UTF-16BE;
// a 0 unit ends the text. 0 when `bytes` is null or `length` odd.
uint32_t Utili_UTF16BEToUTF8Length(const void* bytes, uint32_t length);

// Converts `length` bytes of UTF-16BE. `capacity` holds the size of `out`, the exact one from
// Utili_UTF16BEToUTF8Length(), and becomes the number of bytes written; no terminator is written.
// The size is tested before a unit is encoded: a smaller `out` needs two bytes of slack. Returns 1,
// or -1 when a pointer is null or `length` odd.
int Utili_ConvertUTF16BEToUTF8(const void* bytes, uint32_t length, void* out, uint32_t* capacity);

// Lends name storage to `*count` records: 50 bytes each in `names`, 40 of them declared usable.
void Utili_allocSrvMem(struct AISRV_service_info* records, const uint32_t* count, void* names);

// Logs one service. Its name is read within the 50 bytes that Utili_allocSrvMem() lends: up to its
// NUL when it is not UTF-16BE, whatever its length says.
void Utili_printSrvInfo(const struct AISRV_service_info* record);

#ifdef __cplusplus
}

namespace ATSCBUS {
class ATSCTVServerBackend;
}

// Registers the TV application's backend and starts the server that receives callback messages.
// Returns 0, or -1 when `backend` is null or a TV application is registered already. `backend` must
// live until the process ends; its jsonCommand() is called on the BUS server thread.
extern "C" int ATSC_RegisterTVServerBackend(ATSCBUS::ATSCTVServerBackend* backend);
#endif

#pragma GCC visibility pop

#endif  // ATSC_ATSC_SERVICE_H_
