// Entry points of libatscbusservice.
//
// A TV application sends commands with ATSC_TransmitServiceClientJSONCommand(). The service process
// calls ATSC_Service_init() and then ATSC_Service_db_init(), and sends callbacks with
// ATSC_TransmitTVClientJSONCommand(). No function throws.
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

// Sends one JSON command to the service process and waits for the reply. Any thread, one command at
// a time. Returns the result of the command (0 success, -1 failure). If `result` is not null,
// `*result` is set to the reply text, which the caller releases with free(), or to null when there
// is no reply. When the service process dies during the call, `*result` is null and 0 is returned.
int ATSC_TransmitServiceClientJSONCommand(const char* command, char** result);

// Sends one JSON callback message from the service process to the TV application, in the same way
// as ATSC_TransmitServiceClientJSONCommand().
int ATSC_TransmitTVClientJSONCommand(const char* command, char** result);

// Settings of the service process that depend on the model. 0 selects the default.
typedef struct ATSCCustomizedParameter {
  uint32_t block_play_after_scan;       // 1: playing stays blocked after a channel scan
  uint32_t tuner_lock_wait_in_ms;       // time for the tuner to lock, milliseconds
  uint32_t tuner_cable_vsb_wait_in_ms;  // time to lock a cable VSB carrier, milliseconds
  uint32_t DBB_wait_time_in_ms;         // time to build the service list, milliseconds
  uint32_t customized_flow;             // product-specific flow
} ATSCCustomizedParameter;

// Starts the service process: the two callback queues with their threads, and the timer that
// combines changes of the service list into one synchronisation. Then, unless `record` is null,
// fills the record from the customization file and prints it to standard output. The file is a JSON
// object with the field names as keys: environment variable ATSC_CUSTOM_FILE, else "qel.atsc.json"
// in the folder of the executable, else "/system/com.qel.atsc/qel.atsc.json". A field is 0 when its
// key is missing or its value cannot be converted. The caller owns `record`. Call once, on the main
// thread, before ATSC_Service_db_init() and before any command is served.
void ATSC_Service_init(ATSCCustomizedParameter* record);

// Handles one event of the middleware. `event` is an AFW_event_t; `data` is not used after the
// return. The command "FW" "INIT" registers this function with the middleware. Any thread.
void ATSC_Service_event_cb(int32_t event, void* data);

// Sends the callback "SERVICE_BUILD_COMPLETED": the channel list is ready. Any thread.
void ATSC_Service_event_cb_Ex(void);

// Starts the databases of the service process: paths, customer columns, integrity and version
// checks, tables. When a check fails, rebuilds the channel tables from the middleware and calls
// ATSC_Service_event_cb_Ex(). Call once, on the main thread, before any command is served. The
// result has no meaning. The check only compares the numbers of channels. If a power cut can leave
// different channels in the middleware's list and in the tables, call
// ATSC_Service_db_UpdateChannel() for each input afterwards.
int32_t ATSC_Service_db_init(void);

// Synchronises the channel table of an input with the middleware's service list:
// ATSC_INPUT_TERRESTRIAL selects `channel_data_t`, any other input type `channel_data_c`. Returns 1
// when the content of the table changed or could not be compared, else 0. Any thread; concurrent
// calls wait for each other.
int ATSC_Service_db_UpdateChannel(int input_type);

// Rewrites the guide of an input from the middleware's events: ATSC_INPUT_TERRESTRIAL selects
// `event_t`, any other input type `event_c`. Readers see the old guide or the new guide. The old
// guide stays when the database fails, which is printed, or when the middleware returns no service
// list. Events that the middleware does not return are missing. Called on the thread of the guide
// queue: one call at a time.
void ATSC_Service_db_UpdateEvent(int input_type);

// Key of a channel lookup. Passed by value.
typedef struct ATSC_Service_db_channelKey {
  uint32_t major;
  uint32_t minor;
  uint32_t source_id;
  uint32_t frequency;  // Hz
  char table[32];      // "channel_data_t" or "channel_data_c", NUL-terminated
} ATSC_Service_db_channelKey;

// Result of a channel lookup that finds no row.
#define ATSC_CHANNEL_NOT_FOUND 65535

// Returns the `ch_index` of the first row with this key and with these PID texts; a PID text that
// is null or empty matches any row. Opens its own read-only connection. Returns
// ATSC_CHANNEL_NOT_FOUND when there is no such row or the file cannot be read. Any thread.
int ATSC_Service_db_findChannelIndex(const char* db_path, ATSC_Service_db_channelKey key,
                                     const char* audio_pid_text, const char* video_pid_text);

// Write one column of the rows with this `ch_id_pk`, in a separate transaction. `table` and
// `column` are names of the schema. Pass texts unescaped, including single quotes. Failures are
// printed. Any thread.
void ATSC_Service_db_updateChannelEntryText(const char* ch_id_pk, const char* table,
                                            const char* column, const char* value);
void ATSC_Service_db_updateChannelEntryInterger(const char* ch_id_pk, const char* table,
                                                const char* column, uint32_t value);

// Returns the stored audio index of a service's row, 65535 when there is no such row. Any thread.
uint32_t ATSC_Service_getAudioIndex_fromDB(const struct AISRV_service_info* record);

// Text buffers are void pointers: buffers of char and of unsigned char need no cast.

// Encodes one UTF-16 code unit into `out`, which has space for 3 bytes. Encodes each surrogate
// separately. Returns the number of bytes written.
int Utili_UnicodeToUTF8(uint16_t unit, void* out);

// Returns the number of UTF-8 bytes that Utili_ConvertUTF16BEToUTF8() writes for `length` bytes of
// UTF-16BE. A unit of 0 ends the text. Returns 0 when `bytes` is null or `length` is odd.
uint32_t Utili_UTF16BEToUTF8Length(const void* bytes, uint32_t length);

// Converts `length` bytes of UTF-16BE. `capacity` holds the size of `out`, as returned by
// Utili_UTF16BEToUTF8Length(), and is set to the number of bytes written. Writes no terminator. The
// function compares the size before it encodes a unit: with a smaller `capacity`, `out` needs two
// bytes more than that. Returns 1, or -1 when a pointer is null or `length` is odd.
int Utili_ConvertUTF16BEToUTF8(const void* bytes, uint32_t length, void* out, uint32_t* capacity);

// Links `*count` records to name buffers: 50 bytes for each record in `names`, of which
// `name.length` declares 40 as usable.
void Utili_allocSrvMem(struct AISRV_service_info* records, const uint32_t* count, void* names);

// Logs one service. Reads at most the 50 bytes of the name buffer of Utili_allocSrvMem(). Reads a
// name that is not UTF-16BE up to its NUL and ignores `name.length`.
void Utili_printSrvInfo(const struct AISRV_service_info* record);

#ifdef __cplusplus
}

namespace ATSCBUS {
class ATSCTVServerBackend;
}

// Registers the backend of the TV application and starts the server that receives callback
// messages. Returns 0, or -1 when `backend` is null or a TV application is already registered.
// `backend` must exist until the process ends. The BUS server thread calls its jsonCommand().
extern "C" int ATSC_RegisterTVServerBackend(ATSCBUS::ATSCTVServerBackend* backend);
#endif

#pragma GCC visibility pop

#endif  // ATSC_ATSC_SERVICE_H_
