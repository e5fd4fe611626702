// Synchronisation of the channel tables with the middleware's service list.
#include <SQLiteCpp/SQLiteCpp.h>
#include <aist.h>
#include <atsc/atsc_service.h>
#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <variant>

#include "atsc_log.h"
#include "atsc_service_db.h"
#include "atsc_text.h"

ATSC_LOGGER("atsc/service/db")

namespace atsc {

bool readServices(uint32_t input, ServiceList& list) {
  const AISRV_query_filter filter{};
  uint32_t count = 0;
  if (ATSC_CALL(AISRV_get_total_services, input, AISRV_SERVICE_MASK, &filter, 0, &count) != 0) {
    return false;
  }
  ATSC_LOG(Info, "channel count(%d)", static_cast<int>(count));
  // Name storage is linked by a 16-bit counter; no real list is that long.
  const uint32_t capacity = std::min<uint32_t>(count, UINT16_MAX);
  list.records.resize(capacity);
  list.names.resize(size_t{capacity} * atsc::kNameSlot);
  Utili_allocSrvMem(list.records.data(), &capacity, list.names.data());
  count = capacity;
  if (ATSC_CALL(AISRV_get_n_services, input, AISRV_SERVICE_MASK, 0, &filter, 0, 0, &count,
                list.records.data()) != 0) {
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

StreamTexts readStreams(const AISRV_service_info& service) {
  AISRV_pid_details details{};
  if (ATSC_CALL(AISRV_get_pid_details, &service, &details) != 0) return {};
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

constexpr std::array<ChannelColumn, kChannelColumns> kUpdateOrder = {
    kName,          kBuildFromPmt, kServiceRecord,     kMajor,       kMinor,
    kSourceId,      kFrequency,    kServiceType,       kServiceFlag, kFavouriteGroup,
    kServiceDelete, kUpdateTime,   kAudioPid,          kVideoPid,    kAudioCount,
    kVideoCount,    kTunerType,    kTransportStreamId, kChannelKey};

// The key by which an update addresses its rows.
constexpr std::array<ChannelColumn, 3> kUpdateKey = {kMajor, kMinor, kFrequency};

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

// Whether an update's condition says what the column holds: setting it again changes nothing and
// would rewrite the index.
bool isUpdateKey(ChannelColumn column) {
  return std::find(kUpdateKey.begin(), kUpdateKey.end(), column) != kUpdateKey.end();
}

}  // namespace

// Appends the text after "INSERT INTO table" for one row; without a row, with parameters for its
// values.
void _ATSC_Service_db_getChannelInsert_Command(sqlString& command, const ChannelRow* row) {
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
}

// Appends the text after "UPDATE table SET " for one row; without a row, with parameters for the
// values other than the key's.
void _ATSC_Service_db_getChannelUpdate_Command(sqlString& command, const ChannelRow* row) {
  for (const ChannelColumn column : kUpdateOrder) {
    if (row == nullptr && isUpdateKey(column)) continue;
    if (column != kUpdateOrder.front()) command++;
    command << " " << kColumnNames[column] << "=";
    appendValue(command, row, column);
  }
}

namespace {

// Appends which rows an update addresses.
void appendUpdateCondition(sqlString& command, const ChannelRow* row) {
  const char* separator = " WHERE ";
  for (const ChannelColumn column : kUpdateKey) {
    command << separator << kColumnNames[column] << "=";
    appendValue(command, row, column);
    separator = " AND ";
  }
}

// The lookups of a run: answers each as ATSC_Service_db_findChannelIndex() on a connection of its
// own would, all together at the cost of one pass over the table's committed rows.
class Lookups {
 public:
  explicit Lookups(size_t count) { found_.reserve(count); }

  // Adds a service's lookup. What is returned says, after run(), whether it finds a row.
  const bool* add(const AISRV_service_info& service, const StreamTexts& streams) {
    sqlString key;
    key << service.major << "-" << service.minor << "-" << static_cast<uint16_t>(service.source_id)
        << "-" << service.frequency << "-" << streams.audio_pid << "\n"
        << streams.video_pid;
    wanted_[!streams.audio_pid.empty()][!streams.video_pid.empty()] = true;
    return &found_.emplace(key.str(), false).first->second;
  }

  void run(SQLite::Database& database, const std::string& table) {
    SQLite::Statement rows(
        database, "SELECT major_no, minor_no, source_id, freq, audio_pid, video_pid FROM " + table);
    sqlString key;
    while (rows.executeStep()) {
      // A number equals neither NULL nor a text.
      key.clear();
      bool comparable = true;
      for (int i = 0; i < 4; ++i) {
        const SQLite::Column value = rows.getColumn(i);
        comparable = comparable && value.isInteger();
        key << value.getInt64() << "-";
      }
      if (!comparable) continue;
      const std::string number = key.str();
      // A lookup without a PID text matches whatever the row has.
      for (const bool withAudio : {false, true}) {
        for (const bool withVideo : {false, true}) {
          if (!wanted_[withAudio][withVideo]) continue;
          key.clear();
          key << number << (withAudio ? rows.getColumn(4).getText() : "") << "\n"
              << (withVideo ? rows.getColumn(5).getText() : "");
          const auto lookup = found_.find(key.str());
          if (lookup != found_.end()) lookup->second = true;
        }
      }
    }
  }

 private:
  std::unordered_map<std::string, bool> found_;
  bool wanted_[2][2] = {};  // with an audio text, with a video text
};

// The stamp of this run: the receiver's time, moved on while a row carries it. The clock may stand
// still or be set back, and rows of an earlier run must not look like this one's.
uint32_t unusedStamp(SQLite::Database& database, const std::string& table, uint32_t now) {
  std::set<int64_t> used;
  SQLite::Statement stamps(database, "SELECT DISTINCT update_time FROM " + table);
  while (stamps.executeStep()) used.insert(stamps.getColumn(0).getInt64());
  while (used.count(now) != 0) ++now;
  return now;
}

// One synchronisation of a table.
class ChannelRewrite {
 public:
  ChannelRewrite(std::string table, const std::vector<AISRV_service_info>& services)
      : table_(std::move(table)), services_(services), columns_(_ATSC_Service_db_genBkupColumn()) {}

  // Returns 1 when the content changed or could not be compared, else 0. Snapshot, rewrite and
  // comparison are one transaction: one commit to wait for, and a power cut leaves no snapshot.
  int run(uint32_t now) {
    int result = 1;
    try {
      std::unique_ptr<SQLite::Database> database = open();
      const bool existed = database->tableExists(table_);
      if (!existed) {
        // Creation may replace the file.
        database.reset();
        _ATSC_Service_db_createChannelDB();
        database = open();
      }
      // Immediate: a read that becomes a write would not wait for another writer.
      // Pages written before the commit would lock the readers out.
      database->exec("PRAGMA cache_spill = OFF");
      SQLite::Transaction transaction(*database, SQLite::TransactionBehavior::IMMEDIATE);
      if (existed) takeSnapshot(*database);
      rewrite(*database, now);
      const int compared = existed ? compare(*database) : 1;
      transaction.commit();
      result = compared;
    } catch (const std::exception& e) {
      atsc::logNotWritten(gChannel_DB_path, e);
      atsc::printDatabaseError(e, "ATSC_Service_db_UpdateChannel", __LINE__, command_.str());
    }
    return result;
  }

 private:
  static std::unique_ptr<SQLite::Database> open() {
    if (gChannel_DB_path.empty()) gChannel_DB_path = atsc::channelDatabasePath();
    return std::make_unique<SQLite::Database>(
        gChannel_DB_path, SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE | SQLite::OPEN_NOMUTEX,
        atsc::kBusyTimeoutMs);
  }

  // A table without a snapshot is rewritten all the same; only the comparison fails then.
  void takeSnapshot(SQLite::Database& database) {
    try {
      dropSnapshot(database);
      note("CREATE TABLE tmp AS SELECT " + columns_ + " FROM " + table_);
      database.exec(command_.str());
    } catch (const SQLite::Exception& e) {
      atsc::printDatabaseError(e, "ATSC_Service_db_UpdateChannel", __LINE__, command_.str());
      // The worst failures end the transaction; the rewrite needs one.
      if (sqlite3_get_autocommit(database.getHandle()) != 0) database.exec("BEGIN IMMEDIATE");
    }
    command_.clear();
  }

  void dropSnapshot(SQLite::Database& database) {
    note("DROP TABLE tmp");
    if (database.tableExists("tmp")) database.exec(command_.str());
  }

  // What is to be written of one service.
  struct Write {
    ChannelRow row;
    const bool* update;  // the service has a row
  };

  void rewrite(SQLite::Database& database, uint32_t now) {
    gCurTime = unusedStamp(database, table_, now);
    Lookups lookups(services_.size());
    std::vector<Write> writes;
    writes.reserve(services_.size());
    for (const AISRV_service_info& service : services_) {
      const StreamTexts streams = readStreams(service);
      writes.push_back({channelRow(service, streams), lookups.add(service, streams)});
    }
    lookups.run(database, table_);
    // An update rewrites all rows of its key, so of many with one key the last one is enough.
    std::unordered_map<std::string_view, size_t> lastUpdate(writes.size());
    for (size_t i = 0; i < writes.size(); ++i) {
      if (*writes[i].update) lastUpdate[keyOf(writes[i])] = i;
    }
    buildInsert(nullptr);
    SQLite::Statement insertRow(database, command_.str());
    buildUpdate(nullptr);
    SQLite::Statement updateRows(database, command_.str());
    for (size_t i = 0; i < writes.size(); ++i) {
      const ChannelRow& row = writes[i].row;
      if (!*writes[i].update) {
        buildInsert(&row);
        announce();
        for (int column = 0; column < kChannelColumns; ++column) {
          atsc::bindValue(insertRow, static_cast<size_t>(column) + 1, row[column]);
        }
        insertRow.exec();
        insertRow.reset();
        continue;
      }
      buildUpdate(&row);
      announce();
      if (lastUpdate[keyOf(writes[i])] != i) continue;
      size_t position = 0;
      for (const ChannelColumn column : kUpdateOrder) {
        if (!isUpdateKey(column)) atsc::bindValue(updateRows, ++position, row[column]);
      }
      for (const ChannelColumn column : kUpdateKey)
        atsc::bindValue(updateRows, ++position, row[column]);
      updateRows.exec();
      updateRows.reset();
    }
    sqlString stale;
    stale << "DELETE FROM " << table_ << " WHERE update_time!=" << gCurTime;
    // A row without any stamp is unequal to no number.
    for (const std::string& command :
         {stale.str(), "DELETE FROM " + table_ + " WHERE update_time IS NULL"}) {
      note(command);
      announce();
      database.exec(command);
    }
    command_.clear();
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
      atsc::printDatabaseError(e, "ATSC_Service_db_UpdateChannel", __LINE__, command_.str());
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
    note("SELECT group_concat(name || ' ' || type) FROM pragma_table_info('" + table_ +
         "') WHERE pk > 0");
    return database.execAndGet(command_.str()).getString() == "ch_index INTEGER";
  }

  bool sameRowCount(SQLite::Database& database) {
    return queryNumber(database, "SELECT count(*) FROM tmp") ==
           queryNumber(database, "SELECT count(*) FROM " + table_);
  }

  int64_t queryNumber(SQLite::Database& database, const std::string& query) {
    note(query);
    return database.execAndGet(query).getInt64();
  }

  static std::string_view keyOf(const Write& write) {
    return std::get<std::string>(write.row[kChannelKey]);
  }

  // The command for one row; without a row, the text of the prepared statement.
  void buildInsert(const ChannelRow* row) {
    command_.clear();
    command_ << "INSERT INTO " << table_;
    _ATSC_Service_db_getChannelInsert_Command(command_, row);
  }

  void buildUpdate(const ChannelRow* row) {
    command_.clear();
    command_ << "UPDATE " << table_ << " SET ";
    _ATSC_Service_db_getChannelUpdate_Command(command_, row);
    appendUpdateCondition(command_, row);
  }

  // Notes the command that runs next.
  void note(const std::string& command) {
    command_.clear();
    command_ << command;
  }

  void announce() { ATSC_LOG(Debug, "SQL Command %s\n", command_.str().c_str()); }

  const std::string table_;
  const std::vector<AISRV_service_info>& services_;
  const std::string columns_;
  sqlString command_;  // the one being run
};

}  // namespace

int ATSC_Service_db_UpdateChannel(int input_type) {
  ATSC_ENTER();
  int result = 1;
  try {
    uint32_t now = 0;
    ATSC_CALL(AIST_get_cur_time_secs, &now);
    atsc::ServiceList list;
    // Without a list the table stays as it is: an empty one would delete every channel.
    if (atsc::readServices(static_cast<uint32_t>(input_type), list)) {
      std::lock_guard<std::mutex> lock(sql_db_update_lock);
      for (size_t i = 0; i < list.records.size(); ++i) {
        ATSC_LOG(Info, "Service[%d]", static_cast<int>(i));
        Utili_printSrvInfo(&list.records[i]);
      }
      result = ChannelRewrite(atsc::channelTable(input_type), list.records).run(now);
    }
    ATSC_CALL(AISRV_sync_to_database);
  } catch (const std::exception& e) {
    ATSC_LOG(Error, "channel table of input %d: %s", input_type, e.what());
  }
  ATSC_LEAVE();
  return result;
}
