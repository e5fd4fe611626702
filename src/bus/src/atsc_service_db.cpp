// Start-up of the databases.
#include "atsc_service_db.h"

#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>
#include <unistd.h>

#include <cstdio>

#include "atsc_log.h"

ATSC_LOGGER("atsc/service/db")

static_assert(int{ATSC_INPUT_TERRESTRIAL} == AI_INPUT_TERRESTRIAL &&
                  int{ATSC_INPUT_CABLE} == AI_INPUT_CABLE,
              "the input sources have the middleware's numbers");

atsc::Immortal<std::string> gChannel_DB_path;
atsc::Immortal<std::string> gEvent_DB_path;
std::mutex sql_db_update_lock;

int32_t ATSC_Service_db_init() {
  ATSC_ENTER();
  int32_t result = -1;
  try {
    *gChannel_DB_path = atsc::channelDatabasePath();
    result = _ATSC_Service_db_cus_init();
    const bool integrity_check_fail = _ATSC_Service_db_createChannelDB();
    _DBG_ATSC_Service_db_printChDb(true);
    if (integrity_check_fail) {
      ATSC_LOG(Error, " DB integrity check fail. Rebuild channel DB");
      ATSC_Service_db_UpdateChannel(AI_INPUT_TERRESTRIAL);
      result = ATSC_Service_db_UpdateChannel(AI_INPUT_CABLE);
      ATSC_Service_event_cb_Ex();
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "database start-up: %s", e.what());
  }
  ATSC_LEAVE();
  return result;
}

void _DBG_ATSC_Service_db_printChDb(bool terrestrial) {
  ATSC_ENTER();
  const std::string table = atsc::channelTable(terrestrial ? AI_INPUT_TERRESTRIAL : AI_INPUT_CABLE);
  printf("[_DBG_ATSC_Service_db_printChDb]:\n");
  std::string command;
  try {
    if (access(gChannel_DB_path->c_str(), F_OK) == 0) {
      SQLite::Database database(*gChannel_DB_path, SQLite::OPEN_READONLY, atsc::kBusyTimeoutMs);
      if (database.tableExists(table)) {
        command = "SELECT COUNT(*) FROM " + table + " where major_no >= 0";
        database.execAndGet(command);
        command = "SELECT * FROM " + table;
        SQLite::Statement rows(database, command);
        while (rows.executeStep()) {
          printf("    Channel[%d] [%d-%d],name[%s], ch_id[%s]\n",
                 rows.getColumn("ch_index").getInt(), rows.getColumn("major_no").getInt(),
                 rows.getColumn("minor_no").getInt(), rows.getColumn("name").getText(),
                 rows.getColumn("ch_id_pk").getText());
        }
      }
    }
  } catch (const SQLite::Exception& e) {
    atsc::printDatabaseError(e, __func__, __LINE__, command);
  }
  printf("[_DBG_ATSC_Service_db_printChDb]:END\n");
  fflush(stdout);
  ATSC_LEAVE();
}
