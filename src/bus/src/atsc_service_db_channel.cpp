// Synchronisation of a channel table with the middleware's service list.
//
// The functions stand in the order in which a synchronisation needs them: clock and service list,
// opening of the database, snapshot, one row for each service, deletion of all other rows,
// comparison with the snapshot.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aist.h>
#include <atsc/atsc_service.h>
#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_service_db_channel_lookup.h"
#include "atsc_service_db_channel_row.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace {

// Stamp of the rows that the running synchronisation writes; guarded by sql_db_update_lock.
uint32_t gCurTime = 0;

// Rewrites one table from a service list, once.
class ChannelRewrite {
 public:
  ChannelRewrite(std::string table, const std::vector<AISRV_service_info>& services,
                 const atsc::LogPlace& place)
      : table_(std::move(table)),
        services_(services),
        place_(place),
        columns_(_ATSC_Service_db_genBkupColumn()) {}

  // Returns 1 when the content changed or could not be compared, else 0.
  int run();

 private:
  int rewrite();

  static std::unique_ptr<SQLite::Database> open();

  std::optional<SQLite::Statement> prepareSnapshot(std::unique_ptr<SQLite::Database>& database,
                                                   std::optional<SQLite::Transaction>& transaction);
  bool takeSnapshot(SQLite::Statement& snapshot);
  void dropSnapshot(SQLite::Database& database);

  static void begin(SQLite::Database& database, std::optional<SQLite::Transaction>& transaction);

  void buildTexts();
  void lookUpRows(SQLite::Database& database, bool compared);
  void stampRows(SQLite::Database& database);
  void writeRows(SQLite::Database& database);
  void insertRow(SQLite::Database& database, const atsc::ListedService& service,
                 std::optional<SQLite::Statement>& statement);
  void updateRows(SQLite::Database& database, const atsc::ListedService& service,
                  std::optional<SQLite::Statement>& statement);

  void deleteOtherRows(SQLite::Database& database);

  bool compare(SQLite::Database& database);
  int64_t countMissing(SQLite::Database& database, const std::string& from,
                       const std::string& except);
  bool keyIsUnique(SQLite::Database& database);
  bool sameRowCount(SQLite::Database& database);
  bool hasTrigger(SQLite::Database& database) const;

  int64_t queryNumber(SQLite::Database& database, const std::string& query);
  void announce();
  void printError(const std::exception& e, int line) const;

  const std::string table_;
  const std::vector<AISRV_service_info>& services_;
  const atsc::LogPlace place_;
  const std::string columns_;  // the columns that are compared
  const std::string insertPattern_ = "INSERT INTO " + table_ + atsc::insertPattern();
  const std::string updatePattern_ = "UPDATE " + table_ + " SET " + atsc::updatePattern();
  std::string command_;  // the command that is being run
  sqlString text_;       // of the next command
  // Whether rows that do not differ are only stamped, and have not been stamped yet.
  bool stamping_ = false;
  std::vector<atsc::ListedService> listed_;
  atsc::CommittedRows committed_;
};

}  // namespace

int ATSC_Service_db_UpdateChannel(int input_type) {
  ATSC_ENTER();
  int result = 1;
  try {
    uint32_t now = 0;
    const int status = ATSC_CALL(AIST_get_cur_time_secs, &now);
    const auto input = static_cast<uint32_t>(input_type);
    uint32_t count = 0;
    atsc::FetchedServices list;
    // Without a list the table stays unchanged: an empty list would delete all channels.
    if (atsc::countServices(input, count, ATSC_HERE())) {
      ATSC_LOG(Info, "channel count(%d)", static_cast<int>(count));
      if (atsc::fetchServices(input, count, list, ATSC_HERE())) {
        std::lock_guard<std::mutex> lock(sql_db_update_lock);
        if (status == 0 || now != 0) gCurTime = now;
        for (size_t i = 0; i < list.records.size(); ++i) {
          ATSC_LOG(Info, "Service[%d]", static_cast<int>(i));
          Utili_printSrvInfo(&list.records[i]);
        }
        result = ChannelRewrite(atsc::channelTable(input_type), list.records, ATSC_HERE()).run();
      }
    }
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "channel table of input %d: %s", input_type, e.what());
  }
  ATSC_CALL(AISRV_sync_to_database);
  ATSC_LEAVE();
  return result;
}

namespace atsc {

bool countServices(uint32_t input, uint32_t& count, const LogPlace& place) {
  const AISRV_query_filter filter{};
  return ATSC_CALL_AT(place, AISRV_get_total_services, input, AISRV_SERVICE_MASK, &filter, 0,
                      &count) == 0;
}

bool fetchServices(uint32_t input, uint32_t count, FetchedServices& list, const LogPlace& place) {
  // A 16-bit counter links the name buffers; no real list is that long.
  const uint32_t capacity = std::min<uint32_t>(count, UINT16_MAX);
  list.records.resize(capacity);
  list.names.resize(size_t{capacity} * atsc::kNameSlot);
  Utili_allocSrvMem(list.records.data(), &capacity, list.names.data());
  count = capacity;
  const AISRV_query_filter filter{};
  if (ATSC_CALL_AT(place, AISRV_get_n_services, input, AISRV_SERVICE_MASK, 0, &filter, 0, 0, &count,
                   list.records.data()) != 0) {
    list.records.clear();
    return false;
  }
  list.records.resize(std::min(count, capacity));
  // Limits the length of each name to its buffer.
  for (AISRV_service_info& service : list.records) {
    service.name.length = std::min<uint16_t>(service.name.length, atsc::kNameSlot);
  }
  return true;
}

}  // namespace atsc

namespace {

int ChannelRewrite::run() {
  try {
    return rewrite();
  } catch (const std::exception& e) {
    atsc::logNotWritten(place_, *gChannel_DB_path, e);
    printError(e, __LINE__);
    return 1;
  }
}

// Snapshot, rewrite and comparison are one transaction: one commit to wait for, and a power cut
// leaves no snapshot. A run that changes nothing but the stamps needs no snapshot.
int ChannelRewrite::rewrite() {
  std::unique_ptr<SQLite::Database> database = open();
  std::optional<SQLite::Transaction> transaction;
  std::optional<SQLite::Statement> snapshot = prepareSnapshot(database, transaction);
  if (database == nullptr) database = open();
  begin(*database, transaction);
  buildTexts();
  stamping_ = snapshot && !hasTrigger(*database);
  lookUpRows(*database, stamping_);
  const bool differ = services_.empty() || committed_.differ();
  if (snapshot && differ && !takeSnapshot(*snapshot)) {
    snapshot.reset();
    begin(*database, transaction);
    stamping_ = false;
    lookUpRows(*database, false);  // again: others may have written between two transactions
  }
  writeRows(*database);
  deleteOtherRows(*database);
  const int result = !snapshot || (differ && compare(*database)) ? 1 : 0;
  transaction->commit();
  return result;
}

std::unique_ptr<SQLite::Database> ChannelRewrite::open() {
  if (gChannel_DB_path->empty()) *gChannel_DB_path = atsc::channelDatabasePath();
  return std::make_unique<SQLite::Database>(
      *gChannel_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX,
      atsc::kBusyTimeoutMs);
}

// Returns the command that takes the snapshot. A table without a snapshot is rewritten all the
// same; only the comparison fails then. Creates the tables where this one is missing, and closes
// the database for that.
std::optional<SQLite::Statement> ChannelRewrite::prepareSnapshot(
    std::unique_ptr<SQLite::Database>& database, std::optional<SQLite::Transaction>& transaction) {
  std::optional<SQLite::Statement> prepared;
  const std::string snapshot = "CREATE TABLE tmp AS SELECT " + columns_ + " FROM " + table_;
  try {
    command_ = snapshot;
    if (database->tableExists(table_)) {
      begin(*database, transaction);
      dropSnapshot(*database);
      command_ = snapshot;
      prepared.emplace(*database, snapshot);
    } else {
      // Creation may replace the file.
      database.reset();
      _ATSC_Service_db_createChannelDB();
    }
  } catch (const SQLite::Exception& e) {
    printError(e, __LINE__);
  }
  command_.clear();
  return prepared;
}

// Returns whether there is a snapshot.
bool ChannelRewrite::takeSnapshot(SQLite::Statement& snapshot) {
  bool taken = false;
  command_ = snapshot.getQuery();
  try {
    snapshot.exec();
    taken = true;
  } catch (const SQLite::Exception& e) {
    printError(e, __LINE__);
  }
  command_.clear();
  return taken;
}

void ChannelRewrite::dropSnapshot(SQLite::Database& database) {
  command_ = "DROP TABLE tmp";
  if (database.tableExists("tmp")) database.exec(command_);
}

// Begins the transaction unless it is running. Immediate: a read transaction that becomes a write
// transaction does not wait for a writer.
void ChannelRewrite::begin(SQLite::Database& database,
                           std::optional<SQLite::Transaction>& transaction) {
  if (!transaction) {
    transaction.emplace(database, SQLite::TransactionBehavior::IMMEDIATE);
    // Pages written before the commit would block readers.
    database.exec("PRAGMA cache_spill = OFF");
  } else if (sqlite3_get_autocommit(database.getHandle()) != 0) {
    database.exec("BEGIN IMMEDIATE");  // a severe failure has ended the transaction
  }
}

void ChannelRewrite::buildTexts() {
  listed_.reserve(services_.size());
  for (const AISRV_service_info& service : services_) {
    listed_.push_back({&service, atsc::readTexts(service, place_), {}, nullptr, nullptr});
  }
}

// Looks up the row of each service, among the rows that were there before the transaction.
void ChannelRewrite::lookUpRows(SQLite::Database& database, bool compared) {
  if (!services_.empty()) committed_.read(database, table_, listed_, compared);
}

// Returns whether the table has triggers of the product, which must see each update.
bool ChannelRewrite::hasTrigger(SQLite::Database& database) const {
  return database
             .execAndGet(
                 "SELECT EXISTS (SELECT * FROM sqlite_master WHERE type = 'trigger' AND "
                 "tbl_name = '" +
                 table_ + "')")
             .getInt() != 0;
}

// Stamps all rows, also those that are written or deleted next. The command that is being run is
// the first update.
void ChannelRewrite::stampRows(SQLite::Database& database) {
  const std::string now = std::to_string(gCurTime);
  database.exec("UPDATE " + table_ + " SET update_time=" + now + " WHERE update_time IS NOT " +
                now);
}

void ChannelRewrite::writeRows(SQLite::Database& database) {
  std::optional<SQLite::Statement> insertion;
  std::optional<SQLite::Statement> update;
  for (const atsc::ListedService& service : listed_) {
    if (service.isUpdate()) {
      updateRows(database, service, update);
    } else {
      insertRow(database, service, insertion);
    }
  }
}

// Returns the number of changed rows.
int execute(SQLite::Statement& statement, const atsc::ChannelRow& row,
            const atsc::ColumnOrder& order) {
  for (size_t i = 0; i < order.size(); ++i) atsc::bindValue(statement, i + 1, row[order[i]]);
  const int changed = statement.exec();
  statement.reset();
  return changed;
}

void _ATSC_Service_db_getChannelInsert_Command(sqlString& text, std::string_view pattern,
                                               const atsc::ChannelRow& row) {
  ATSC_ENTER();
  atsc::appendFilled(text, pattern, atsc::kInsertOrder, row);
  ATSC_LEAVE();
}

void ChannelRewrite::insertRow(SQLite::Database& database, const atsc::ListedService& service,
                               std::optional<SQLite::Statement>& statement) {
  const atsc::ChannelRow row = atsc::channelRow(*service.info, service.texts, gCurTime);
  text_.clear();
  _ATSC_Service_db_getChannelInsert_Command(text_, insertPattern_, row);
  announce();
  if (!statement) statement.emplace(database, insertPattern_);
  if (execute(*statement, row, atsc::kInsertOrder) == 0) return;  // a trigger may ignore it
  service.sameNumber->rows.push_back(database.getLastInsertRowid());
}

void _ATSC_Service_db_getChannelUpdate_Command(sqlString& text, std::string_view pattern,
                                               const atsc::ChannelRow& row) {
  ATSC_ENTER();
  atsc::appendFilled(text, pattern, atsc::kUpdateOrder, row);
  ATSC_LEAVE();
}

// Updates the rows of a service's number that differ, unless a later service rewrites them. All of
// them are announced.
void ChannelRewrite::updateRows(SQLite::Database& database, const atsc::ListedService& service,
                                std::optional<SQLite::Statement>& statement) {
  const AISRV_service_info& info = *service.info;
  const atsc::SameNumber& same = *service.sameNumber;
  const atsc::ChannelRow row = atsc::channelRow(info, service.texts, gCurTime);
  text_.clear();
  _ATSC_Service_db_getChannelUpdate_Command(text_, updatePattern_, row);
  text_ << " WHERE major_no=" << info.major << " AND minor_no=" << info.minor
        << " AND freq=" << info.frequency;
  announce();
  if (std::exchange(stamping_, false)) stampRows(database);
  if (same.lastUpdate != &service) return;
  for (const int64_t key : same.rows) {
    if (!statement) statement.emplace(database, updatePattern_ + " WHERE rowid=?");
    statement->bind(atsc::kChannelColumns + 1, key);
    execute(*statement, row, atsc::kUpdateOrder);
  }
}

// Deletes the rows that are no service's.
void ChannelRewrite::deleteOtherRows(SQLite::Database& database) {
  const std::string command = "DELETE FROM " + table_;
  command_ = command + " WHERE update_time!=" + std::to_string(gCurTime);
  if (services_.empty()) database.exec(command_ + " OR 1");  // also rows with the time of this run
  if (!committed_.strays().empty()) {
    SQLite::Statement statement(database, command + " WHERE rowid=?");
    for (const int64_t key : committed_.strays()) {
      statement.bind(1, key);
      statement.exec();
      statement.reset();
    }
  }
  command_.clear();
}

// Returns whether the table differs from the snapshot or cannot be compared with it.
bool ChannelRewrite::compare(SQLite::Database& database) {
  bool result = true;
  try {
    int64_t differences = countMissing(database, "tmp", table_);
    // If all rows of the snapshot are in the table and both have the same number of rows, no row is
    // missing in the other direction. This holds only for rows with a unique key.
    if (differences == 0 && !(keyIsUnique(database) && sameRowCount(database))) {
      differences = countMissing(database, table_, "tmp");
    }
    dropSnapshot(database);
    result = differences != 0;
  } catch (const SQLite::Exception& e) {
    printError(e, __LINE__);
  }
  command_.clear();
  return result;
}

// Counts the rows of a table that the other table lacks.
int64_t ChannelRewrite::countMissing(SQLite::Database& database, const std::string& from,
                                     const std::string& except) {
  return queryNumber(database, "SELECT count(*) FROM ( SELECT " + columns_ + " FROM " + from +
                                   " EXCEPT SELECT " + columns_ + " FROM " + except + " ) ");
}

bool ChannelRewrite::keyIsUnique(SQLite::Database& database) {
  command_ = "SELECT group_concat(name || ' ' || type) FROM pragma_table_info('" + table_ +
             "') WHERE pk > 0";
  return database.execAndGet(command_).getString() == "ch_index INTEGER";
}

bool ChannelRewrite::sameRowCount(SQLite::Database& database) {
  return queryNumber(database, "SELECT count(*) FROM tmp") ==
         queryNumber(database, "SELECT count(*) FROM " + table_);
}

int64_t ChannelRewrite::queryNumber(SQLite::Database& database, const std::string& query) {
  command_ = query;
  return database.execAndGet(query).getInt64();
}

void ChannelRewrite::announce() {
  command_ = text_.str();
  ATSC_LOG_AT(place_, Debug, "SQL Command %s\n", command_.c_str());
}

void ChannelRewrite::printError(const std::exception& e, int line) const {
  atsc::printDatabaseError(e, place_.function, line, command_);
}

}  // namespace

std::string _ATSC_Service_db_getChannelInsert_Command(AISRV_service_info* service,
                                                      unsigned /*index*/) {
  const atsc::ServiceTexts texts = atsc::readTexts(*service, ATSC_HERE());
  sqlString text;
  _ATSC_Service_db_getChannelInsert_Command(text, atsc::insertPattern(),
                                            atsc::channelRow(*service, texts, gCurTime));
  return text.str();
}

std::string _ATSC_Service_db_getChannelUpdate_Command(AISRV_service_info* service,
                                                      unsigned /*index*/) {
  const atsc::ServiceTexts texts = atsc::readTexts(*service, ATSC_HERE());
  sqlString text;
  _ATSC_Service_db_getChannelUpdate_Command(text, atsc::updatePattern(),
                                            atsc::channelRow(*service, texts, gCurTime));
  return text.str();
}
