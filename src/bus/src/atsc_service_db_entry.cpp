// Lookup of channel rows and changes of single columns.
#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>

#include <cstring>

#include "atsc_log.h"
#include "atsc_service_db.h"

ATSC_LOGGER("atsc/service/db")

namespace {

// Sets a column of the rows with a channel key; `appendValue` appends the value to the command.
template <typename AppendValue>
void updateEntry(const atsc::LogPlace& place, const char* ch_id_pk, const char* table,
                 const char* column, AppendValue appendValue) {
  sqlString command;
  try {
    command << "UPDATE " << table << " SET " << column << "=";
    appendValue(command);
    command << " WHERE ch_id_pk=";
    command.conStr(ch_id_pk);
    ATSC_LOG_AT(place, Debug, " update command: %s", command.str().c_str());
    SQLite::Database database(
        gChannel_DB_path->empty() ? atsc::channelDatabasePath() : *gChannel_DB_path,
        SQLite::OPEN_READWRITE, atsc::kBusyTimeoutMs);
    if (!database.tableExists(table)) {
      ATSC_LOG_AT(place, Error, "table(%s) does not exist", table);
      return;
    }
    // Immediate: a read transaction that becomes a write transaction does not wait for a writer.
    SQLite::Transaction transaction(database, SQLite::TransactionBehavior::IMMEDIATE);
    database.exec(command.str());
    transaction.commit();
  } catch (const std::exception& e) {
    atsc::logNotWritten(place, *gChannel_DB_path, e);
    atsc::printDatabaseError(e, place.function, __LINE__, command.str());
  }
}

bool anyNull(std::initializer_list<const char*> texts) {
  for (const char* text : texts) {
    if (text == nullptr) return true;
  }
  return false;
}

}  // namespace

int ATSC_Service_db_findChannelIndex(const char* db_path, ATSC_Service_db_channelKey key,
                                     const char* audio_pid_text, const char* video_pid_text) {
  ATSC_ENTER();
  int index = ATSC_CHANNEL_NOT_FOUND;
  sqlString command;
  try {
    command << "SELECT ch_index from "
            << std::string(key.table, strnlen(key.table, sizeof key.table))
            << " where major_no=" << key.major << " and minor_no=" << key.minor
            << " and source_id=" << key.source_id << " and freq=" << key.frequency;
    if (audio_pid_text != nullptr && *audio_pid_text != '\0') {
      command << " and audio_pid=";
      command.conStr(audio_pid_text);
    }
    if (video_pid_text != nullptr && *video_pid_text != '\0') {
      command << " and video_pid=";
      command.conStr(video_pid_text);
    }
    SQLite::Database database(db_path != nullptr ? db_path : "", SQLite::OPEN_READONLY,
                              atsc::kBusyTimeoutMs);
    SQLite::Statement row(database, command.str());
    if (row.executeStep()) index = row.getColumn(0).getInt();
  } catch (const std::exception& e) {
    atsc::printDatabaseError(e, __func__, __LINE__, command.str());
  }
  ATSC_LEAVE();
  return index;
}

void ATSC_Service_db_updateChannelEntryText(const char* ch_id_pk, const char* table,
                                            const char* column, const char* value) {
  ATSC_ENTER();
  if (anyNull({ch_id_pk, table, column, value})) {
    ATSC_LOG(Error, "input parameter is null.");
    ATSC_LEAVE();
    return;
  }
  updateEntry(ATSC_HERE(), ch_id_pk, table, column,
              [&](sqlString& command) { command.conStr(value); });
  ATSC_LEAVE();
}

void ATSC_Service_db_updateChannelEntryInterger(const char* ch_id_pk, const char* table,
                                                const char* column, uint32_t value) {
  ATSC_ENTER();
  if (anyNull({ch_id_pk, table, column})) {
    ATSC_LOG(Error, "input parameter is null.");
    ATSC_LEAVE();
    return;
  }
  updateEntry(ATSC_HERE(), ch_id_pk, table, column, [&](sqlString& command) { command << value; });
  ATSC_LEAVE();
}
