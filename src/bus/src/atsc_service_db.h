// The channel database: internal interfaces of its source files.
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

// How long a connection waits for another one's lock.
constexpr int kBusyTimeoutMs = 500;

// The table of an input: `channel_data_t` for input type 2, else `channel_data_c`.
const char* channelTable(int input_type);

// The channel database's file: environment variable ATSC_CNAHHEL_DB or the default.
std::string channelDatabasePath();

// The guide's table of an input: `event_t` for input type 2, else `event_c`.
const char* eventTable(int input_type);

// The guide database's file: environment variable ATSC_EVENT_DB or the default.
std::string eventDatabasePath();

// A service list and the storage of its names.
struct ServiceList {
  std::vector<AISRV_service_info> records;
  std::vector<uint8_t> names;
};

// Counts the services of an input, and reads as many into an empty list. False when the middleware
// cannot give them; the log says so in lines of `place`.
bool countServices(uint32_t input, uint32_t& count, const LogPlace& place);
bool fetchServices(uint32_t input, uint32_t count, ServiceList& list, const LogPlace& place);

// The key by which rows of both databases name a channel: major "-" minor "-" frequency in Hz.
std::string channelKey(const AISRV_service_info& service);

// Prints a database failure: what, where, and the command where one was being run.
void printDatabaseError(const std::exception& error, const char* function, int line,
                        const std::string& command = {});

// Logs that a database could not be written, and why.
void logNotWritten(const LogPlace& place, const std::string& path, const std::exception& error);

// `name` as a quoted SQL identifier; a backtick in it is doubled and so cannot end it.
std::string quotedIdentifier(const std::string& name);

}  // namespace atsc

// Builds SQL texts.
class sqlString {
 public:
  sqlString() = default;

  sqlString& operator<<(std::string_view text);
  sqlString& operator<<(long long number);

  // Appends ",".
  void operator++(int);

  // Appends `text` as a string literal: between single quotes, each single quote in it doubled. The
  // one way for a text from the air into SQL. A NUL ends the text.
  void conStr(std::string_view text);

  const std::string& str() const { return text_; }

  // Becomes empty; what was reserved stays.
  void clear() { text_.clear(); }

 private:
  std::string text_;
};

namespace atsc {

// What a row of a table holds in one column.
using ColumnValue = std::variant<int64_t, std::string>;

// Appends a value as SQL has it; null stands for the "?" of a prepared statement.
void appendValue(sqlString& text, const ColumnValue* value);

// Binds a value to the `position`-th "?", from 1. A text is not copied: it must live until the
// statement has run.
void bindValue(SQLite::Statement& statement, size_t position, const ColumnValue& value);

}  // namespace atsc

// These outlive the threads that use them to the end of the process.

// Path of the channel database file, set by ATSC_Service_db_init().
extern atsc::Immortal<std::string> gChannel_DB_path;

// Path of the guide database file, set by _ATSC_Service_db_createEventDB().
extern atsc::Immortal<std::string> gEvent_DB_path;

// Serialises the writers of the channel tables.
extern std::mutex sql_db_update_lock;

// Customer columns of the channel tables: an allocated array, or null.
extern ATSC_Service_db_layout* atsc_service_db_custom_column;
extern uint8_t atsc_service_db_custom_column_count;

// Loads the customer columns. Returns 0 (also without any), -1 when the file cannot be read or
// parsed, where the previous columns stay, or when there is no memory for them.
int32_t _ATSC_Service_db_cus_init();

// Path of the customer-column file.
std::string _ATSC_Service_db_get_custom_column_file();

// Creates, checks and migrates both channel tables. Returns whether they must be rebuilt from the
// middleware: the file was missing, removed or emptied, or its row counts differ.
bool _ATSC_Service_db_createChannelDB();

// Opens, checks and creates the guide's table of an input; a file that fails the check is removed.
// Returns the file's path. One thread at a time.
std::string _ATSC_Service_db_createEventDB(int input_type);

// What follows "INSERT INTO table" and "UPDATE table SET " for a service: its values as they are
// now, with the stamp of the last synchronisation. `index` is the service's position in its list.
std::string _ATSC_Service_db_getChannelInsert_Command(AISRV_service_info* service, unsigned index);
std::string _ATSC_Service_db_getChannelUpdate_Command(AISRV_service_info* service, unsigned index);

// The channel columns whose change counts: all but `update_time`, joined by ", ".
std::string _ATSC_Service_db_genBkupColumn();

// Prints a channel table to standard output.
void _DBG_ATSC_Service_db_printChDb(bool terrestrial);

#endif  // ATSC_ATSC_SERVICE_DB_H_
