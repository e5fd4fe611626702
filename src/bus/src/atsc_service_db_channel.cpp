// Synchronisation of the channel tables with the middleware's service list.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aist.h>
#include <atsc/atsc_service.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace atsc {

bool countServices(uint32_t input, uint32_t& count, const LogPlace& place) {
  const AISRV_query_filter filter{};
  return ATSC_CALL_AT(place, AISRV_get_total_services, input, AISRV_SERVICE_MASK, &filter, 0,
                      &count) == 0;
}

bool fetchServices(uint32_t input, uint32_t count, ServiceList& list, const LogPlace& place) {
  // Name storage is linked by a 16-bit counter; no real list is that long.
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
  // A name that claims more than its slot ends with the slot, whoever reads it.
  for (AISRV_service_info& service : list.records) {
    service.name.length = std::min<uint16_t>(service.name.length, atsc::kNameSlot);
  }
  return true;
}

std::string channelKey(const AISRV_service_info& service) {
  sqlString key;
  key << service.major << "-" << service.minor << "-" << service.frequency;
  return key.str();
}

}  // namespace atsc

namespace {

// Stamp of the rows written by the running synchronisation; guarded by sql_db_update_lock.
uint32_t gCurTime = 0;

// The elementary streams of a service as the channel tables show them.
struct StreamTexts {
  std::string audio_pid;
  std::string video_pid;
  unsigned audio_count = 0;
  unsigned video_count = 0;
};

// "_AD" and what an audio description describes.
void appendDescription(sqlString& text, const AISRV_pid_info& pid) {
  text << "_AD";
  if (pid.description_mask != 0) text << __builtin_ctz(pid.description_mask);
  if (pid.full_mix != 0) text << "FULL";
  text << "_MAIN" << pid.main_audio_number;
}

bool isAudio(uint8_t streamType) {
  constexpr std::array<uint8_t, 6> types{0x03, 0x04, 0x0F, 0x11, 0x81, 0x87};
  return std::find(types.begin(), types.end(), streamType) != types.end();
}

bool isVideo(uint8_t streamType) {
  constexpr std::array<uint8_t, 4> types{0x01, 0x02, 0x24, 0x80};
  return std::find(types.begin(), types.end(), streamType) != types.end();
}

StreamTexts readStreams(const AISRV_service_info& service, const atsc::LogPlace& place) {
  AISRV_pid_details details{};
  if (ATSC_CALL_AT(place, AISRV_get_pid_details, &service, &details) != 0) return {};
  StreamTexts streams;
  sqlString audio;
  sqlString video;
  const uint32_t count = std::min<uint32_t>(details.count, AISRV_MAX_PIDS);
  for (uint32_t i = 0; i < count; ++i) {
    const AISRV_pid_info& pid = details.pids[i];
    if (isAudio(pid.stream_type)) {
      const char(&language)[3] = pid.language[0] != '\0' ? pid.language : pid.second_language;
      audio << pid.pid << "_" << std::string(language, strnlen(language, sizeof language)) << "_"
            << pid.stream_type;
      if (pid.audio_kind == AISRV_AUDIO_DESCRIPTION) appendDescription(audio, pid);
      audio++;
      ++streams.audio_count;
    } else if (isVideo(pid.stream_type)) {
      video << pid.pid << "_" << pid.stream_type;
      video++;
      ++streams.video_count;
    }
  }
  streams.audio_pid = audio.str();
  streams.video_pid = video.str();
  return streams;
}

const char* serviceTypeName(uint32_t type) {
  switch (type) {
    case AISRV_TYPE_RADIO:
      return "RADIO";
    case AISRV_TYPE_DATA:
      return "DATA";
    default:
      return "TV";
  }
}

std::string nameOf(const AISRV_service_info& service) {
  if (service.name.text == nullptr || service.name.length == 0) return "EMPTY";
  return atsc::textToUTF8(service.name, atsc::kNameSlot);
}

// What a synchronisation writes of a service, in the order of the insertion.
enum ChannelColumn {
  kName,
  kBuildFromPmt,
  kMajor,
  kMinor,
  kServiceRecord,
  kSourceId,
  kFrequency,
  kServiceType,
  kServiceFlag,
  kFavouriteGroup,
  kServiceDelete,
  kAudioPid,
  kVideoPid,
  kAudioCount,
  kVideoCount,
  kUpdateTime,
  kChannelKey,
  kTransportStreamId,
  kTunerType,
  kChannelColumns,
};

constexpr std::array<std::string_view, kChannelColumns> kColumnNames = {
    "name",           "build_from_pmt", "major_no",  "minor_no",    "service_record",
    "source_id",      "freq",           "srv_type",  "srv_flag",    "fav_group",
    "service_delete", "audio_pid",      "video_pid", "audio_count", "video_count",
    "update_time",    "ch_id_pk",       "tsid",      "tuner_type"};

constexpr std::array<ChannelColumn, kChannelColumns> kInsertOrder = {
    kName,      kBuildFromPmt, kMajor,       kMinor,          kServiceRecord, kSourceId,
    kFrequency, kServiceType,  kServiceFlag, kFavouriteGroup, kServiceDelete, kAudioPid,
    kVideoPid,  kAudioCount,   kVideoCount,  kUpdateTime,     kChannelKey,    kTransportStreamId,
    kTunerType};

constexpr std::array<ChannelColumn, kChannelColumns> kUpdateOrder = {
    kName,          kBuildFromPmt, kServiceRecord,     kMajor,       kMinor,
    kSourceId,      kFrequency,    kServiceType,       kServiceFlag, kFavouriteGroup,
    kServiceDelete, kUpdateTime,   kAudioPid,          kVideoPid,    kAudioCount,
    kVideoCount,    kTunerType,    kTransportStreamId, kChannelKey};

using ChannelRow = std::array<atsc::ColumnValue, kChannelColumns>;

ChannelRow channelRow(const AISRV_service_info& service, const StreamTexts& streams) {
  ChannelRow row;
  row[kName] = nameOf(service);
  row[kBuildFromPmt] = int64_t{service.build_from_pmt == 1};
  row[kMajor] = service.major;
  row[kMinor] = service.minor;
  row[kServiceRecord] = service.service_id.service_rec;
  row[kSourceId] = static_cast<uint16_t>(service.source_id);
  row[kFrequency] = service.frequency;
  row[kServiceType] = serviceTypeName(service.service_type);
  row[kServiceFlag] = service.AISRV_flags_;
  row[kFavouriteGroup] = service.AISRV_fav_group_;
  row[kServiceDelete] = service.service_delete;
  row[kAudioPid] = streams.audio_pid;
  row[kVideoPid] = streams.video_pid;
  row[kAudioCount] = streams.audio_count;
  row[kVideoCount] = streams.video_count;
  row[kUpdateTime] = gCurTime;
  row[kChannelKey] = atsc::channelKey(service);
  row[kTransportStreamId] = service.transport_stream_id;
  row[kTunerType] = service.modulation == AI_MODULATION_8VSB ? "VSB" : "QAM";
  return row;
}

// Appends a column's value; without a row, the "?" of a prepared statement.
void appendValue(sqlString& text, const ChannelRow* row, int column) {
  atsc::appendValue(text, row != nullptr ? &(*row)[static_cast<size_t>(column)] : nullptr);
}

// The text after "INSERT INTO table" for one row; without a row, with parameters for its values.
std::string insertText(const ChannelRow* row) {
  sqlString command;
  command << " ( ";
  for (int column = 0; column < kChannelColumns; ++column) {
    if (column > 0) command++;
    command << kColumnNames[column];
  }
  command << ")"
          << "VALUES (";
  for (int column = 0; column < kChannelColumns; ++column) {
    if (column > 0) command++;
    appendValue(command, row, column);
  }
  command << ")";
  return command.str();
}

// The text after "UPDATE table SET " for one row; without a row, with parameters for its values.
std::string updateText(const ChannelRow* row) {
  sqlString command;
  for (const ChannelColumn column : kUpdateOrder) {
    if (column != kUpdateOrder.front()) command++;
    command << " " << kColumnNames[column] << "=";
    appendValue(command, row, column);
  }
  return command.str();
}

std::string _ATSC_Service_db_getChannelInsert_Command(const ChannelRow& row) {
  ATSC_ENTER();
  std::string text = insertText(&row);
  ATSC_LEAVE();
  return text;
}

std::string _ATSC_Service_db_getChannelUpdate_Command(const ChannelRow& row) {
  ATSC_ENTER();
  std::string text = updateText(&row);
  ATSC_LEAVE();
  return text;
}

// The rows with one major number, minor number and frequency.
struct SameNumber {
  std::vector<int64_t> rows;          // their keys, those that were inserted in this run included
  bool stamped = false;               // one looks as if it had been written in this run
  std::optional<size_t> last_update;  // position of the service whose values they get
};

// The table as it was before the run: answers for each service what
// ATSC_Service_db_findChannelIndex() would on a connection of its own, and which rows an update
// changes, all at the cost of one pass over the table.
class CommittedRows {
 public:
  // What a lookup answers: a row's key, none before read() finds one.
  using Answer = std::optional<int>;

  // Adds a service. What is returned becomes its lookup's answer.
  const Answer* add(const AISRV_service_info& service, const StreamTexts& streams) {
    wanted_[!streams.audio_pid.empty()][!streams.video_pid.empty()] = true;
    same_number_[numberOf(service)];
    return &found_
                .emplace(lookup(numberOf(service), static_cast<uint16_t>(service.source_id),
                                streams.audio_pid, streams.video_pid),
                         Answer())
                .first->second;
  }

  void read(SQLite::Database& database, const std::string& table) {
    SQLite::Statement rows(
        database,
        "SELECT rowid, major_no, minor_no, freq, source_id, audio_pid, video_pid, ch_index, "
        "update_time FROM " +
            table);
    while (rows.executeStep()) {
      int64_t major = 0;
      int64_t minor = 0;
      int64_t frequency = 0;
      int64_t source_id = 0;
      int64_t stamp = 0;
      const SQLite::Column update_time = rows.getColumn(8);
      const bool stamped =
          update_time.isNull() || (readNumber(update_time, stamp) && stamp == gCurTime);
      const bool comparable = readNumber(rows.getColumn(1), major) &&
                              readNumber(rows.getColumn(2), minor) &&
                              readNumber(rows.getColumn(3), frequency);
      const std::string number = comparable ? numberText(major, minor, frequency) : "";
      const auto same = same_number_.find(number);
      if (same == same_number_.end()) {
        stamped_stray_ = stamped_stray_ || stamped;
        continue;
      }
      same->second.rows.push_back(rows.getColumn(0).getInt64());
      same->second.stamped = same->second.stamped || stamped;
      if (!readNumber(rows.getColumn(4), source_id)) continue;
      // A lookup without a PID text matches whatever the row has.
      for (const bool withAudio : {false, true}) {
        for (const bool withVideo : {false, true}) {
          if (!wanted_[withAudio][withVideo]) continue;
          const auto found =
              found_.find(lookup(number, source_id, withAudio ? pidText(rows.getColumn(5)) : "",
                                 withVideo ? pidText(rows.getColumn(6)) : ""));
          // The first row counts.
          if (found != found_.end() && !found->second) found->second = rows.getColumn(7).getInt();
        }
      }
    }
  }

  SameNumber& sameNumber(const AISRV_service_info& service) {
    return same_number_[numberOf(service)];
  }

  // Whether a row looks as if it had been written in this run, and no service is going to write it.
  bool hasStampedStray() const {
    return stamped_stray_ ||
           std::any_of(same_number_.begin(), same_number_.end(), [](const auto& same) {
             return same.second.stamped && !same.second.last_update;
           });
  }

 private:
  static std::string numberText(int64_t major, int64_t minor, int64_t frequency) {
    sqlString text;
    text << major << "-" << minor << "-" << frequency;
    return text.str();
  }

  static std::string numberOf(const AISRV_service_info& service) {
    return numberText(service.major, service.minor, service.frequency);
  }

  static std::string lookup(const std::string& number, int64_t source_id,
                            const std::string& audio_pid, const std::string& video_pid) {
    sqlString text;
    text << number << "-" << source_id << "-" << static_cast<long long>(audio_pid.size()) << "-"
         << audio_pid << video_pid;
    return text.str();
  }

  // False when the value equals no integer: NULL, a text, a fraction.
  static bool readNumber(const SQLite::Column& value, int64_t& number) {
    if (!value.isInteger() && !value.isFloat()) return false;
    number = value.getInt64();
    return value.isInteger() || static_cast<double>(number) == value.getDouble();
  }

  static std::string pidText(const SQLite::Column& value) {
    return value.isText() ? value.getString() : std::string();
  }

  std::unordered_map<std::string, Answer> found_;
  std::unordered_map<std::string, SameNumber> same_number_;
  bool stamped_stray_ = false;
  bool wanted_[2][2] = {};  // with an audio text, with a video text
};

// One synchronisation of a table.
class ChannelRewrite {
 public:
  ChannelRewrite(std::string table, const std::vector<AISRV_service_info>& services,
                 const atsc::LogPlace& place)
      : table_(std::move(table)),
        services_(services),
        place_(place),
        columns_(_ATSC_Service_db_genBkupColumn()) {}

  // Returns 1 when the content changed or could not be compared, else 0. Snapshot, rewrite and
  // comparison are one transaction: one commit to wait for, and a power cut leaves no snapshot.
  int run() {
    int result = 1;
    try {
      std::unique_ptr<SQLite::Database> database = open();
      std::optional<SQLite::Transaction> transaction;
      bool snapshot = false;
      // A table without a snapshot is rewritten all the same; only the comparison fails then.
      try {
        command_ = "CREATE TABLE tmp AS SELECT " + columns_ + " FROM " + table_;
        if (database->tableExists(table_)) {
          begin(*database, transaction);
          takeSnapshot(*database);
          snapshot = true;
        } else {
          // Creation may replace the file.
          database.reset();
          _ATSC_Service_db_createChannelDB();
        }
      } catch (const SQLite::Exception& e) {
        printError(e, __LINE__);
      }
      command_.clear();
      if (database == nullptr) database = open();
      begin(*database, transaction);
      rewrite(*database);
      const int compared = snapshot ? compare(*database) : 1;
      transaction->commit();
      result = compared;
    } catch (const std::exception& e) {
      atsc::logNotWritten(place_, *gChannel_DB_path, e);
      printError(e, __LINE__);
    }
    return result;
  }

 private:
  static std::unique_ptr<SQLite::Database> open() {
    if (gChannel_DB_path->empty()) *gChannel_DB_path = atsc::channelDatabasePath();
    return std::make_unique<SQLite::Database>(
        *gChannel_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX,
        atsc::kBusyTimeoutMs);
  }

  void printError(const std::exception& e, int line) const {
    atsc::printDatabaseError(e, place_.function, line, command_);
  }

  // Begins the transaction, unless it is running. Immediate: a read that becomes a write would not
  // wait for another writer.
  static void begin(SQLite::Database& database, std::optional<SQLite::Transaction>& transaction) {
    if (!transaction) {
      transaction.emplace(database, SQLite::TransactionBehavior::IMMEDIATE);
      // Pages written before the commit would lock the readers out.
      database.exec("PRAGMA cache_spill = OFF");
    } else if (sqlite3_get_autocommit(database.getHandle()) != 0) {
      database.exec("BEGIN IMMEDIATE");  // the worst failures have ended it
    }
  }

  void takeSnapshot(SQLite::Database& database) {
    const std::string snapshot = command_;
    dropSnapshot(database);
    exec(database, snapshot);
  }

  void dropSnapshot(SQLite::Database& database) {
    command_ = "DROP TABLE tmp";
    if (database.tableExists("tmp")) database.exec(command_);
  }

  // What is to be written of one service.
  struct Write {
    ChannelRow row;
    const CommittedRows::Answer* answer;
    SameNumber* same_number;

    // Whether the service has a row. One whose key means "not found" is replaced.
    bool isUpdate() const {
      return answer->value_or(ATSC_CHANNEL_NOT_FOUND) != ATSC_CHANNEL_NOT_FOUND;
    }
  };

  void rewrite(SQLite::Database& database) {
    CommittedRows committed;
    std::vector<Write> writes;
    writes.reserve(services_.size());
    for (const AISRV_service_info& service : services_) {
      const StreamTexts streams = readStreams(service, place_);
      const auto* const answer = committed.add(service, streams);
      writes.push_back({channelRow(service, streams), answer, &committed.sameNumber(service)});
    }
    const std::string stamp = std::to_string(gCurTime);
    if (!services_.empty()) committed.read(database, table_);
    // An update rewrites all rows of its number, so of many with one number the last one is enough.
    for (size_t i = 0; i < writes.size(); ++i) {
      if (writes[i].isUpdate()) writes[i].same_number->last_update = i;
    }
    // Rows of earlier runs must not look like this one's: the clock may stand still or be set back,
    // and a row without a stamp is unequal to none.
    if (services_.empty() || committed.hasStampedStray()) {
      exec(database, "UPDATE " + table_ + " SET update_time=-1 WHERE update_time=" + stamp +
                         " OR update_time IS NULL");
    }
    std::optional<SQLite::Statement> insertRow;
    std::optional<SQLite::Statement> updateRow;
    for (size_t i = 0; i < writes.size(); ++i) {
      const ChannelRow& row = writes[i].row;
      SameNumber& same = *writes[i].same_number;
      if (!writes[i].isUpdate()) {
        command_ = "INSERT INTO " + table_ + _ATSC_Service_db_getChannelInsert_Command(row);
        announce();
        if (!insertRow) insertRow.emplace(database, "INSERT INTO " + table_ + insertText(nullptr));
        write(*insertRow, row, kInsertOrder);
        same.rows.push_back(database.getLastInsertRowid());
        continue;
      }
      command_ = "UPDATE " + table_ + " SET " + _ATSC_Service_db_getChannelUpdate_Command(row) +
                 condition(row);
      announce();
      if (same.last_update != i) continue;
      if (!updateRow) {
        updateRow.emplace(database,
                          "UPDATE " + table_ + " SET " + updateText(nullptr) + " WHERE rowid=?");
      }
      for (const int64_t key : same.rows) {
        updateRow->bind(kChannelColumns + 1, key);
        write(*updateRow, row, kUpdateOrder);
      }
    }
    exec(database, "DELETE FROM " + table_ + " WHERE update_time!=" + stamp);
    command_.clear();
  }

  // Which rows an update addresses.
  static std::string condition(const ChannelRow& row) {
    sqlString text;
    const char* separator = " WHERE ";
    for (const ChannelColumn column : {kMajor, kMinor, kFrequency}) {
      text << separator << kColumnNames[column] << "=";
      appendValue(text, &row, column);
      separator = " AND ";
    }
    return text.str();
  }

  static void write(SQLite::Statement& statement, const ChannelRow& row,
                    const std::array<ChannelColumn, kChannelColumns>& order) {
    for (size_t i = 0; i < order.size(); ++i) atsc::bindValue(statement, i + 1, row[order[i]]);
    statement.exec();
    statement.reset();
  }

  // 1 when the table differs from the snapshot or cannot be compared with it, else 0.
  int compare(SQLite::Database& database) {
    int result = 1;
    try {
      int64_t differences = countMissing(database, "tmp", table_);
      // Where all of one table's rows are in the other and both have as many, none is missing in
      // the other direction; but only rows with a unique key can be counted so.
      if (differences == 0 && !(keyIsUnique(database) && sameRowCount(database))) {
        differences = countMissing(database, table_, "tmp");
      }
      dropSnapshot(database);
      result = differences != 0 ? 1 : 0;
    } catch (const SQLite::Exception& e) {
      printError(e, __LINE__);
    }
    command_.clear();
    return result;
  }

  // How many rows of a table the other one lacks.
  int64_t countMissing(SQLite::Database& database, const std::string& from,
                       const std::string& except) {
    return queryNumber(database, "SELECT count(*) FROM ( SELECT " + columns_ + " FROM " + from +
                                     " EXCEPT SELECT " + columns_ + " FROM " + except + " ) ");
  }

  bool keyIsUnique(SQLite::Database& database) {
    command_ = "SELECT group_concat(name || ' ' || type) FROM pragma_table_info('" + table_ +
               "') WHERE pk > 0";
    return database.execAndGet(command_).getString() == "ch_index INTEGER";
  }

  bool sameRowCount(SQLite::Database& database) {
    return queryNumber(database, "SELECT count(*) FROM tmp") ==
           queryNumber(database, "SELECT count(*) FROM " + table_);
  }

  int64_t queryNumber(SQLite::Database& database, const std::string& query) {
    command_ = query;
    return database.execAndGet(query).getInt64();
  }

  void exec(SQLite::Database& database, const std::string& command) {
    command_ = command;
    database.exec(command_);
  }

  void announce() { ATSC_LOG_AT(place_, Debug, "SQL Command %s\n", command_.c_str()); }

  const std::string table_;
  const std::vector<AISRV_service_info>& services_;
  const atsc::LogPlace place_;
  const std::string columns_;
  std::string command_;  // the one being run
};

}  // namespace

std::string _ATSC_Service_db_getChannelInsert_Command(AISRV_service_info* service,
                                                      unsigned /*index*/) {
  return _ATSC_Service_db_getChannelInsert_Command(
      channelRow(*service, readStreams(*service, ATSC_HERE())));
}

std::string _ATSC_Service_db_getChannelUpdate_Command(AISRV_service_info* service,
                                                      unsigned /*index*/) {
  return _ATSC_Service_db_getChannelUpdate_Command(
      channelRow(*service, readStreams(*service, ATSC_HERE())));
}

int ATSC_Service_db_UpdateChannel(int input_type) {
  ATSC_ENTER();
  int result = 1;
  try {
    uint32_t now = 0;
    ATSC_CALL(AIST_get_cur_time_secs, &now);
    const auto input = static_cast<uint32_t>(input_type);
    uint32_t count = 0;
    atsc::ServiceList list;
    // Without a list the table stays as it is: an empty one would delete every channel.
    if (atsc::countServices(input, count, ATSC_HERE())) {
      ATSC_LOG(Info, "channel count(%d)", static_cast<int>(count));
      if (atsc::fetchServices(input, count, list, ATSC_HERE())) {
        std::lock_guard<std::mutex> lock(sql_db_update_lock);
        gCurTime = now;
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
