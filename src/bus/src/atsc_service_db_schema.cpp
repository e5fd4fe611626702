// Creation, check and migration of the channel tables.
#include <SQLiteCpp/SQLiteCpp.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>

#include "atsc_log.h"
#include "atsc_service_db.h"

ATSC_LOGGER("atsc/service/db")

namespace {

// "PRAGMA user_version" of a file with this schema.
constexpr int kSchemaVersion = 1;

// Highest row key. A table with higher keys is emptied, so that keys stay below 65535, the result
// for "not found".
constexpr int kMaxChannelIndex = 60000;

constexpr int kInputs[] = {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE};

// Removes a database file and SQLite's auxiliary files: SQLite would apply a remaining journal to
// the next file of that name.
void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  for (const char* suffix : {"-journal", "-wal", "-shm"}) unlink((path + suffix).c_str());
  sync();
}

// Empties the tables whose keys are too high. Returns whether a table was emptied.
bool emptyWornTables(SQLite::Database& database) {
  bool emptied = false;
  for (const int input : kInputs) {
    const std::string table = atsc::channelTable(input);
    const int64_t highest = database.execAndGet("SELECT MAX(ch_index) FROM " + table).getInt64();
    if (highest <= kMaxChannelIndex) continue;
    database.exec("DELETE FROM " + table);
    database.exec("UPDATE sqlite_sequence SET seq = 0 WHERE name=\"" + table + "\"");
    emptied = true;
  }
  return emptied;
}

// Compares the tables' row counts with the middleware's service counts.
bool countsDiffer(SQLite::Database& database, const atsc::LogPlace& place) {
  bool differ = false;
  for (const int input : kInputs) {
    const std::string table = atsc::channelTable(input);
    if (!database.tableExists(table)) continue;
    const int rows = database.execAndGet("SELECT COUNT(*) FROM " + table).getInt();
    uint32_t services = 0;
    if (!atsc::countServices(static_cast<uint32_t>(input), services, place)) continue;
    if (rows < 0 || static_cast<uint32_t>(rows) != services) {
      if (input == AI_INPUT_TERRESTRIAL) {
        ATSC_LOG_AT(place, Error, "Channel number is not synced( service T(%d) , SQLDB T(%d)\n",
                    static_cast<int>(services), rows);
      } else {
        ATSC_LOG_AT(place, Error, "Channel number is not synced( service C(%d), SQLDB C(%d)\n",
                    static_cast<int>(services), rows);
      }
      differ = true;
    }
  }
  return differ;
}

// Returns whether SQLite's integrity check of the file returns "ok".
bool integrityIsOk(SQLite::Database& database, const std::string& path,
                   const atsc::LogPlace& place) {
  if (database.execAndGet("PRAGMA integrity_check").getString() == "ok") return true;
  ATSC_LOG_AT(place, Error, " DB(%s) integrity check fail\n", path.c_str());
  return false;
}

// Returns whether a failure means that the content of the file is unusable, and not that the file
// is missing, busy, read-only or inaccessible. SQLITE_ERROR: a file format that SQLite does not
// know.
bool contentIsUnusable(const SQLite::Exception& e) {
  return e.getErrorCode() == SQLITE_NOTADB || e.getErrorCode() == SQLITE_CORRUPT ||
         e.getErrorCode() == SQLITE_ERROR;
}

// Returns whether the file is intact and has the version of this schema.
bool fileIsUsable(const std::string& path, const atsc::LogPlace& place) {
  try {
    SQLite::Database database(path, SQLite::OPEN_READONLY, atsc::kBusyTimeoutMs);
    return integrityIsOk(database, path, place) &&
           database.execAndGet("PRAGMA user_version").getInt() == kSchemaVersion;
  } catch (const SQLite::Exception& e) {
    if (!contentIsUnusable(e)) throw;
    atsc::printDatabaseError(e, place.function, __LINE__);
    return false;
  }
}

// Returns whether the channel tables must be rebuilt. Removes a file that cannot be kept.
bool checkFile(const std::string& path, const atsc::LogPlace& place) {
  try {
    if (!fileIsUsable(path, place)) {
      removeDatabase(path);
      return true;
    }
    SQLite::Database database(path, SQLite::OPEN_READWRITE, atsc::kBusyTimeoutMs);
    return emptyWornTables(database) || countsDiffer(database, place);
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, place.function, __LINE__);
    // A missing table is created later. A fault that the checks did not find may appear here.
    if (contentIsUnusable(e) && e.getErrorCode() != SQLITE_ERROR) removeDatabase(path);
    return true;
  }
}

const char* sqlType(const ATSC_Service_db_layout& column) {
  return column.type == 1 ? "INTEGER" : "TEXT";
}

std::string createCommand(const std::string& table) {
  std::string command = "CREATE TABLE \"" + table + "\" ( ";
  for (const ATSC_Service_db_layout& column : atsc_service_db_layout) {
    command += "`" + std::string(column.name) + "` ";
    if (strncmp(column.name, "ch_index", 8) == 0) {
      command += " INTEGER NOT NULL PRIMARY KEY AUTOINCREMENT, ";
    } else {
      command += std::string(sqlType(column)) + ", ";
    }
  }
  return command + "END  )";
}

std::string eventCreateCommand(const std::string& table) {
  std::string columns;
  for (const ATSC_Service_db_layout& column : atsc_event_db_layout) {
    columns += (columns.empty() ? "`" : ", `") + std::string(column.name) + "` " + sqlType(column);
  }
  return "CREATE TABLE \"" + table + "\" ( " + columns + " )";
}

void run(SQLite::Database& database, const std::string& command, const char* function) {
  try {
    database.exec(command);
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, function, __LINE__, command);
  }
}

bool hasColumns(SQLite::Database& database, const std::string& table, const std::string& names) {
  try {
    SQLite::Statement(database, "SELECT " + names + " FROM " + table);
    return true;
  } catch (const SQLite::Exception&) {
    return false;
  }
}

// Adds those of `count` columns that the table lacks.
void addMissingColumns(SQLite::Database& database, const std::string& table,
                       const ATSC_Service_db_layout* columns, size_t count,
                       const atsc::LogPlace& place) {
  // Quoted: a customer column may have any name, and "desc" is an SQL keyword.
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    all += (i > 0 ? ", " : "") + atsc::quotedIdentifier(columns[i].name);
  }
  // Most often none is missing: one question is enough.
  if (count == 0 || hasColumns(database, table, all)) return;
  for (size_t i = 0; i < count; ++i) {
    const std::string name = atsc::quotedIdentifier(columns[i].name);
    if (hasColumns(database, table, name)) continue;
    const std::string command =
        "ALTER TABLE " + table + " ADD COLUMN " + name + " " + sqlType(columns[i]) + " ";
    ATSC_LOG_AT(place, Info, "add DB command: %s", command.c_str());
    run(database, command, place.function);
  }
}

// Creates a table, or adds the missing columns of its layout.
template <size_t N>
void createOrMigrate(SQLite::Database& database, const std::string& table,
                     const ATSC_Service_db_layout (&columns)[N], const std::string& command,
                     const atsc::LogPlace& place) {
  if (database.tableExists(table)) {
    addMissingColumns(database, table, columns, N, place);
  } else {
    ATSC_LOG_AT(place, Info, "create DB command: %s", command.c_str());
    run(database, command, place.function);
  }
}

}  // namespace

std::string _ATSC_Service_db_genBkupColumn() {
  ATSC_ENTER();
  std::string columns;
  for (const ATSC_Service_db_layout& column : atsc_service_db_layout) {
    if (strcmp(column.name, "update_time") == 0) continue;
    if (!columns.empty()) columns += ", ";
    columns += column.name;
  }
  ATSC_LEAVE();
  return columns;
}

bool _ATSC_Service_db_createChannelDB() {
  ATSC_ENTER();
  if (gChannel_DB_path->empty()) *gChannel_DB_path = atsc::channelDatabasePath();
  const bool rebuild = checkFile(*gChannel_DB_path, ATSC_HERE());
  try {
    SQLite::Database database(*gChannel_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                              atsc::kBusyTimeoutMs);
    for (const int input : kInputs) {
      const std::string table = atsc::channelTable(input);
      createOrMigrate(database, table, atsc_service_db_layout, createCommand(table), ATSC_HERE());
      addMissingColumns(database, table, atsc_service_db_custom_column,
                        atsc_service_db_custom_column_count, ATSC_HERE());
      // An index of an older version; it changes the order in which readers get the rows.
      run(database, "DROP INDEX IF EXISTS " + table + "_number", __func__);
    }
    // Remains of an interrupted synchronisation of an older version.
    if (database.tableExists("tmp")) run(database, "DROP TABLE tmp", __func__);
    if (database.execAndGet("PRAGMA user_version").getInt() != kSchemaVersion) {
      run(database, "PRAGMA user_version = " + std::to_string(kSchemaVersion), __func__);
    }
  } catch (const SQLite::Exception& e) {
    atsc::logNotWritten(ATSC_HERE(), *gChannel_DB_path, e);
    atsc::printDatabaseError(e, __func__, __LINE__);
  }
  ATSC_LEAVE();
  return rebuild;
}

std::string _ATSC_Service_db_createEventDB(int input_type) {
  ATSC_ENTER();
  const std::string table = atsc::eventTable(input_type);
  *gEvent_DB_path = atsc::eventDatabasePath();
  bool usable = false;
  try {
    SQLite::Database database(*gEvent_DB_path, SQLite::OPEN_READONLY, atsc::kBusyTimeoutMs);
    usable = integrityIsOk(database, *gEvent_DB_path, ATSC_HERE());
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, __func__, __LINE__);
  }
  // The guide is rewritten in any case.
  if (!usable) removeDatabase(*gEvent_DB_path);
  try {
    SQLite::Database database(*gEvent_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                              atsc::kBusyTimeoutMs);
    createOrMigrate(database, table, atsc_event_db_layout, eventCreateCommand(table), ATSC_HERE());
  } catch (const SQLite::Exception& e) {
    atsc::logNotWritten(ATSC_HERE(), *gEvent_DB_path, e);
    atsc::printDatabaseError(e, __func__, __LINE__);
  }
  ATSC_LEAVE();
  return *gEvent_DB_path;
}
