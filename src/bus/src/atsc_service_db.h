// The two databases, channels and guide: internal interfaces of their source files.
#ifndef ATSC_ATSC_SERVICE_DB_H_
#define ATSC_ATSC_SERVICE_DB_H_

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <aisrv.h>
#include <atsc/atsc_tables.h>

#include <exception>
#include <mutex>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "atsc_immortal.h"
#include "atsc_log.h"

namespace atsc {

// Time for which a connection waits for the lock of another connection.
constexpr int kBusyTimeoutMs = 500;

// Returns the channel table of an input: `channel_data_t` for input type 2, else `channel_data_c`.
const char* channelTable(int input_type);

// Returns the path of the channel database: environment variable ATSC_CNAHHEL_DB or the default.
std::string channelDatabasePath();

// Returns the guide table of an input: `event_t` for input type 2, else `event_c`.
const char* eventTable(int input_type);

// Returns the path of the guide database: environment variable ATSC_EVENT_DB or the default.
std::string eventDatabasePath();

// Services that the middleware has copied, and their name buffers.
struct FetchedServices {
  std::vector<AISRV_service_info> records;
  std::vector<uint8_t> names;
};

// Count the services of an input, and read that many services into an empty list. Return false when
// the middleware fails, which is logged with the origin `place`.
bool countServices(uint32_t input, uint32_t& count, const LogPlace& place);
bool fetchServices(uint32_t input, uint32_t count, FetchedServices& list, const LogPlace& place);

// Returns the key of a channel in both databases: major "-" minor "-" frequency in Hz.
std::string channelKey(const AISRV_service_info& service);

// Prints a database failure with its place and, unless it is empty, the command.
void printDatabaseError(const std::exception& error, const char* function, int line,
                        const std::string& command = {});

// Logs that a database could not be written, with the reason.
void logNotWritten(const LogPlace& place, const std::string& path, const std::exception& error);

// Returns `name` as a quoted SQL identifier. Backticks in the name are doubled.
std::string quotedIdentifier(const std::string& name);

}  // namespace atsc

// Builds SQL texts.
class sqlString {
 public:
  sqlString() = default;

  sqlString& operator<<(std::string_view text) {
    text_.append(text.data(), text.size());
    return *this;
  }
  sqlString& operator<<(long long number);

  // Appends ",".
  void operator++(int);

  // Appends `text` as a string literal: between single quotes, with its single quotes doubled. Use
  // it for every text that was broadcast. A NUL ends the text.
  void conStr(std::string_view text);

  const std::string& str() const { return text_; }

  // Removes the text and keeps the reserved memory.
  void clear() { text_.clear(); }

 private:
  std::string text_;
};

namespace atsc {

// The value of one column of a row.
using ColumnValue = std::variant<int64_t, std::string>;

// The same; a text is elsewhere, with a NUL at its end.
using ColumnView = std::variant<int64_t, std::string_view>;

ColumnView view(const ColumnValue& value);

// Appends a value in SQL notation.
void appendValue(sqlString& text, const ColumnView& value);

// Binds a value to the `position`-th "?", counted from 1. Does not copy a text: the text must exist
// until the statement has run.
void bindValue(SQLite::Statement& statement, size_t position, const ColumnView& value);

}  // namespace atsc

// Globals that threads use until the process has ended.

// Path of the channel database file, set by ATSC_Service_db_init().
extern atsc::Immortal<std::string> gChannel_DB_path;

// Path of the guide database file, set by _ATSC_Service_db_createEventDB().
extern atsc::Immortal<std::string> gEvent_DB_path;

// Whether the last ATSC_Service_db_UpdateEvent() of the thread left the guide as the middleware has
// it.
extern thread_local bool gEvent_DB_written;

// Serialises the writers of the channel tables.
extern std::mutex sql_db_update_lock;

// Customer columns of the channel tables: an allocated array, or null.
extern ATSC_Service_db_layout* atsc_service_db_custom_column;
extern uint8_t atsc_service_db_custom_column_count;

// Loads the customer columns. Returns 0, also when there are no columns; -1 when the file cannot be
// read or parsed (the previous columns stay) or when memory is exhausted.
int32_t _ATSC_Service_db_cus_init();

// Returns the path of the customer-column file.
std::string _ATSC_Service_db_get_custom_column_file();

// Creates, checks and migrates both channel tables. Returns true when the tables must be rebuilt
// from the middleware: the file was missing, removed or emptied, or its row counts differ.
bool _ATSC_Service_db_createChannelDB();

// Opens, checks and creates the guide table of an input. Removes a file that fails the check.
// Returns the path of the file. One thread at a time.
std::string _ATSC_Service_db_createEventDB(int input_type);

// Return the text after "INSERT INTO table" and after "UPDATE table SET " for a service: its
// current values, with the stamp of the last synchronisation. `index` is the service's position in
// its list.
std::string _ATSC_Service_db_getChannelInsert_Command(AISRV_service_info* service, unsigned index);
std::string _ATSC_Service_db_getChannelUpdate_Command(AISRV_service_info* service, unsigned index);

// Returns the channel columns that a comparison of tables reads: all but `update_time`, joined by
// ", ".
std::string _ATSC_Service_db_genBkupColumn();

// Prints a channel table to standard output.
void _DBG_ATSC_Service_db_printChDb(bool terrestrial);

#endif  // ATSC_ATSC_SERVICE_DB_H_
