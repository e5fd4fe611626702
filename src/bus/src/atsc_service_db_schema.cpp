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

// A file whose row keys have run past this is emptied, so that they stay below the answer for "not
// found", 65535.
constexpr int kMaxChannelIndex = 60000;

constexpr int kInputs[] = {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE};

// Removes a database file for good, with what SQLite keeps beside it: a journal left behind would
// be played back into the next file of that name.
void removeDatabase(const std::string& path) {
  unlink(path.c_str());
  for (const char* suffix : {"-journal", "-wal", "-shm"}) unlink((path + suffix).c_str());
  sync();
}

// Empties the tables whose keys have run too high. Returns whether one was.
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
bool countsDiffer(SQLite::Database& database) {
  bool differ = false;
  for (const int input : kInputs) {
    const std::string table = atsc::channelTable(input);
    if (!database.tableExists(table)) continue;
    const int rows = database.execAndGet("SELECT COUNT(*) FROM " + table).getInt();
    const AISRV_query_filter filter{};
    uint32_t services = 0;
    const int status = AISRV_get_total_services(static_cast<uint32_t>(input), AISRV_SERVICE_MASK,
                                                &filter, 0, &services);
    if (status != 0) {
      ATSC_LOG_FAILED("AISRV_get_total_services", status);
    } else if (rows < 0 || static_cast<uint32_t>(rows) != services) {
      if (input == AI_INPUT_TERRESTRIAL) {
        ATSC_LOG(Error, "Channel number is not synced( service T(%d) , SQLDB T(%d)\n",
                 static_cast<int>(services), rows);
      } else {
        ATSC_LOG(Error, "Channel number is not synced( service C(%d), SQLDB C(%d)\n",
                 static_cast<int>(services), rows);
      }
      differ = true;
    }
  }
  return differ;
}

// Whether the file can stay: "ok" and of this schema's version.
bool fileIsSound(const std::string& path) {
  SQLite::Database database(path, SQLite::OPEN_READONLY, atsc::kBusyTimeoutMs);
  if (database.execAndGet("PRAGMA integrity_check").getString() != "ok") {
    ATSC_LOG(Error, " DB(%s) integrity check fail\n", path.c_str());
    return false;
  }
  return database.execAndGet("PRAGMA user_version").getInt() == kSchemaVersion;
}

// Whether the channel tables must be rebuilt; removes a file that cannot be kept.
bool checkFile(const std::string& path) {
  try {
    if (!fileIsSound(path)) {
      removeDatabase(path);
      return true;
    }
    SQLite::Database database(path, SQLite::OPEN_READWRITE, atsc::kBusyTimeoutMs);
    return emptyWornTables(database) || countsDiffer(database);
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, "_ATSC_Service_db_createChannelDB", __LINE__);
    // A missing, busy or read-only file stays; one that SQLite cannot make sense of does not.
    if (e.getErrorCode() == SQLITE_NOTADB || e.getErrorCode() == SQLITE_CORRUPT) {
      removeDatabase(path);
    }
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

void run(SQLite::Database& database, const std::string& command) {
  try {
    database.exec(command);
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, "_ATSC_Service_db_createChannelDB", __LINE__, command);
  }
}

// Adds a column that the table lacks. `selected` is the column as the probing statement names it.
void addMissingColumn(SQLite::Database& database, const std::string& table,
                      const ATSC_Service_db_layout& column, const std::string& selected) {
  try {
    SQLite::Statement(database, "SELECT " + selected + " FROM " + table).executeStep();
  } catch (const SQLite::Exception&) {
    const std::string command = "ALTER TABLE " + table + " ADD COLUMN " +
                                atsc::quotedIdentifier(column.name) + " " + sqlType(column) + " ";
    ATSC_LOG(Info, "add DB command: %s", command.c_str());
    run(database, command);
  }
}

void createOrMigrate(SQLite::Database& database, const std::string& table) {
  if (database.tableExists(table)) {
    for (const ATSC_Service_db_layout& column : atsc_service_db_layout) {
      addMissingColumn(database, table, column, column.name);
    }
  } else {
    const std::string command = createCommand(table);
    ATSC_LOG(Info, "create DB command: %s", command.c_str());
    run(database, command);
  }
  for (const ATSC_Service_db_layout& column : atsc_service_db_custom_column) {
    addMissingColumn(database, table, column, atsc::quotedIdentifier(column.name));
  }
  // The key of a synchronisation's updates.
  run(database, "CREATE INDEX IF NOT EXISTS " + table + "_number ON " + table +
                    " (major_no, minor_no, freq)");
}

}  // namespace

std::string _ATSC_Service_db_genBkupColumn() {
  std::string columns;
  for (const ATSC_Service_db_layout& column : atsc_service_db_layout) {
    if (strcmp(column.name, "update_time") == 0) continue;
    if (!columns.empty()) columns += ", ";
    columns += column.name;
  }
  return columns;
}

bool _ATSC_Service_db_createChannelDB() {
  ATSC_ENTER();
  if (gChannel_DB_path.empty()) gChannel_DB_path = atsc::channelDatabasePath();
  const bool rebuild = checkFile(gChannel_DB_path);
  try {
    SQLite::Database database(gChannel_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE,
                              atsc::kBusyTimeoutMs);
    for (const int input : kInputs) createOrMigrate(database, atsc::channelTable(input));
    // What a synchronisation leaves behind when the power fails in the middle.
    if (database.tableExists("tmp")) run(database, "DROP TABLE tmp");
    database.exec("PRAGMA user_version = " + std::to_string(kSchemaVersion));
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, __func__, __LINE__);
  }
  ATSC_LEAVE();
  return rebuild;
}
