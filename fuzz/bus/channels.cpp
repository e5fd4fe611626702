// Compares synchronisations of a channel table with a model that applies the rules command by
// command to a copy of the file. An input is a list of runs: changes of the table by others, the
// time, the service list.
#include <sqlite3.h>

#include <tuple>
#include <utility>

#include "atsc_service_db_channel_row.h"
#include "harness.h"

namespace {

using namespace std::string_literals;

// The SQL texts of a service: those that write its row, and the conditions to find it.
struct Row {
  std::string insert, update, lookup;
};

template <typename Value, size_t Size>
const Value& one(fuzz::Input& input, const Value (&values)[Size]) {
  return values[input.below(Size)];
}

fake::Service readService(fuzz::Input& input, uint32_t source, uint32_t number) {
  static const std::pair<std::string, uint32_t> kNames[] = {
      {"WGBH", 0},         {"", 0},
      {"'O''Neil", 0},     {fake::utf16("K'\n") + "\0\xE9\x20\xAC"s, 1},
      {"\xE9\xFF\0d"s, 2}, {std::string(60, 'N'), 0}};
  static const AISRV_pid_info kVideo{0x02, 0, 49, {}, {}, 0, 0, 0, 0};
  static const AISRV_pid_info kAudio{0x81, 1, 52, {'e', 'n', 'g'}, {'f', 'r', 'a'}, 0, 0, 0, 0};
  static const AISRV_pid_info kMixed{0x87, 3, 53, {}, {'s', '\'', 'a'}, 1, 0x80, 1, 0};
  static const AISRV_pid_info kOther{0x06, 3, 60, {}, {}, 0, 1, 0, 0};
  const auto of = [](uint8_t type) {
    return AISRV_pid_info{type, 0, 9, {'u', 'n', 'd'}, {}, 0, 0, 0, 0};
  };
  static const std::vector<AISRV_pid_info> kStreams[] = {
      {kVideo, kAudio},
      {kVideo},
      {kAudio, kAudio, kOther},
      {kOther},
      {kMixed, kVideo, kVideo, of(3), of(4), of(15), of(17), of(1), of(36), of(128)}};
  static constexpr uint32_t kFrequencies[] = {503000000, 57000000, UINT32_MAX};
  fake::Service service;
  AISRV_service_info& info = service.info;
  info.major = static_cast<uint16_t>(4 + input.below(2));
  info.minor = static_cast<uint16_t>(input.below(3));
  info.frequency = one(input, kFrequencies);
  info.source_id = 1 + input.below(3) * 0x8000;
  std::tie(service.name, service.nameEncoding) = one(input, kNames);
  service.pids = one(input, kStreams);
  const uint8_t details = input.byte();
  info.service_id = {number * 2 + (details & 1), source};
  info.build_from_pmt = details >> 1 & 3;
  info.service_type = details >> 3 & 3;
  info.modulation = (details & 0x20) != 0 ? 1024 : 64;
  info.AISRV_flags_ = (details & 0x40) != 0 ? UINT32_MAX : 1;
  info.AISRV_fav_group_ = info.AISRV_flags_ << 4;
  info.transport_stream_id = static_cast<uint16_t>(info.AISRV_flags_);
  info.service_delete = details >> 7;
  return service;
}

// Returns the rows of the services that the middleware lists.
std::vector<Row> rowsOf(uint32_t source, uint32_t count, uint32_t now) {
  atsc::FetchedServices list;
  fuzz::require(atsc::fetchServices(source, count, list, {}), "the services");
  std::vector<Row> rows;
  for (const AISRV_service_info& service : list.records) {
    const atsc::ServiceTexts texts = atsc::readTexts(service, {});
    const atsc::ChannelRow row = atsc::channelRow(service, texts, now);
    sqlString insert, update;
    atsc::appendFilled(insert, atsc::insertPattern(), atsc::kInsertOrder, row);
    atsc::appendFilled(update, atsc::updatePattern(), atsc::kUpdateOrder, row);
    sqlString key;
    key << " WHERE major_no=" << service.major << " AND minor_no=" << service.minor
        << " AND freq=" << service.frequency;
    sqlString lookup = key;
    lookup << " AND source_id=" << (service.source_id & 0xFFFF);
    for (const auto& [column, text] : {std::pair(" AND audio_pid=", texts.streams.audio_pid),
                                       {" AND video_pid=", texts.streams.video_pid}}) {
      if (text.empty()) continue;
      lookup << column;
      lookup.conStr(text);
    }
    rows.push_back({insert.str(), update.str() + key.str(), lookup.str()});
  }
  return rows;
}

// Changes the table like other programs may, as far as SQLite allows.
void change(fuzz::Input& input, const std::string& path, const std::string& table) {
  static const std::string kChanged[] = {"update_time", "major_no",  "minor_no",  "freq",
                                         "source_id",   "audio_pid", "video_pid", "audio_index",
                                         "name",        "ch_id_pk",  "tsid",      "audio_count"};
  static const std::string kValues[] = {"NULL", "0", "1000", "'text'",        "''",  "5.5",
                                        "4",    "1", "'4'",  "x'34395F322C'", "'1'", "65535"};
  static const std::string kTypes[] = {" INTEGER", " REAL", "", " BLOB"};
  static const std::string kRows[] = {"", " WHERE rowid % 2", " WHERE rowid % 3 = 1"};
  const uint32_t kind = input.below(9);
  const std::string rows = one(input, kRows);
  const std::string column = one(input, kChanged);
  const std::string value = one(input, kValues);
  const std::string type = one(input, kTypes);
  const std::string others = "update_time" + _ATSC_Service_db_genBkupColumn().substr(8);
  const std::string drop = "ALTER TABLE " + table + " DROP COLUMN " + column;
  const std::string commands[][3] = {
      {"UPDATE " + table + " SET " + column + "=" + value + rows},
      {"INSERT INTO " + table + "(" + others + ") SELECT " + others + " FROM " + table + rows},
      {"DELETE FROM " + table + rows, "UPDATE sqlite_sequence SET seq=65534"},
      {"ALTER TABLE " + table + " ADD COLUMN customer TEXT DEFAULT 'c'"},
      {"CREATE TABLE tmp AS SELECT * FROM " + table},
      {"DROP TABLE " + table},
      {drop, "ALTER TABLE " + table + " ADD COLUMN " + column + type + " DEFAULT " + value},
      {drop},
      {"CREATE TABLE keyless AS SELECT * FROM " + table, "DROP TABLE " + table,
       "ALTER TABLE keyless RENAME TO " + table}};
  SQLite::Database database(path, SQLite::OPEN_READWRITE);
  for (const std::string& command : commands[kind]) database.tryExec(command);
}

// Applies the rules and returns the result.
int synchronise(const std::string& path, const std::string& table, const std::string& now,
                const std::vector<Row>& rows) {
  const std::string columns = _ATSC_Service_db_genBkupColumn();
  const bool existed = SQLite::Database(path).tableExists(table);
  if (!existed) {
    const std::string other = std::exchange(*gChannel_DB_path, path);
    _ATSC_Service_db_createChannelDB();
    *gChannel_DB_path = other;
  }
  SQLite::Database database(path, SQLite::OPEN_READWRITE);
  // Reads the rows as before the transaction.
  SQLite::Database committed(path, SQLite::OPEN_READONLY);
  try {
    SQLite::Transaction transaction(database);
    database.exec("DROP TABLE IF EXISTS tmp");
    const std::string snapshot = "CREATE TABLE tmp AS SELECT " + columns + " FROM " + table;
    const bool comparable = existed && database.tryExec(snapshot) == SQLITE_OK;
    // Rows with the time stamp of this run.
    database.exec("UPDATE " + table + " SET update_time=-1 WHERE update_time=" + now +
                  " OR update_time IS NULL");
    for (const Row& row : rows) {
      SQLite::Statement query(committed, "SELECT ch_index FROM " + table + row.lookup);
      const bool found =
          query.executeStep() && query.getColumn(0).getInt() != ATSC_CHANNEL_NOT_FOUND;
      database.exec(found ? "UPDATE " + table + " SET" + row.update
                          : "INSERT INTO " + table + row.insert);
    }
    database.exec("DELETE FROM " + table + " WHERE update_time!=" + now);
    const auto missing = [&](const std::string& from, const std::string& other) {
      const std::string lists[] = {"SELECT " + columns + " FROM " + from,
                                   " EXCEPT SELECT " + columns + " FROM " + other};
      return database.execAndGet("SELECT count(*) FROM ( " + lists[0] + lists[1] + " )").getInt();
    };
    const int result = comparable && missing("tmp", table) + missing(table, "tmp") == 0 ? 0 : 1;
    database.exec("DROP TABLE IF EXISTS tmp");
    transaction.commit();
    return result;
  } catch (const SQLite::Exception&) {
    return 1;
  }
}

// Returns all data that a reader can see, in its order.
std::string content(const std::string& path, const std::string& table) {
  SQLite::Database database(path);
  std::string all;
  for (const std::string& query :
       {"PRAGMA integrity_check"s, "SELECT name, sql FROM sqlite_master ORDER BY name"s,
        "SELECT * FROM sqlite_sequence ORDER BY name"s, "SELECT rowid, * FROM " + table}) {
    try {
      for (SQLite::Statement rows(database, query); rows.executeStep(); all += "\n") {
        for (int i = 0; i < rows.getColumnCount(); ++i) {
          const SQLite::Column value = rows.getColumn(i);
          all += std::to_string(value.getType()) + ":" + value.getString() + " ";
        }
      }
    } catch (const SQLite::Exception& e) {
      // A table is missing.
      all += e.what();
    }
  }
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static constexpr uint32_t kTimes[] = {1000, 1001, 999, 0, UINT32_MAX, 65535};
  fuzz::Harness& harness = fuzz::Harness::restored();
  const std::string path = harness.path("channels.db3");
  const std::string copy = harness.path("rules.db3");
  fuzz::Input input(data, size);
  for (int run = 0; run < 5 && input.left() > 0; ++run) {
    const uint32_t source = AI_INPUT_TERRESTRIAL + input.below(2);
    const std::string table = source == AI_INPUT_TERRESTRIAL ? "channel_data_t" : "channel_data_c";
    const uint32_t now = one(input, kTimes);
    for (uint32_t left = input.below(4); left > 0; --left) change(input, path, table);
    std::vector<fake::Service> services(input.below(7));
    for (size_t i = 0; i < services.size(); ++i)
      services[i] = readService(input, source, static_cast<uint32_t>(i));
    fake::reset();
    fake::setTime(now);
    fake::setServices(source, services);
    std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
    const int result = synchronise(copy, table, std::to_string(now),
                                   rowsOf(source, static_cast<uint32_t>(services.size()), now));
    const int given = ATSC_Service_db_UpdateChannel(static_cast<int>(source));
    const std::string rules = content(copy, table), rows = content(path, table);
    fuzz::require(rows == rules, "content", rows + "wanted: \n" + rules);
    fuzz::require(given == result, "result", std::to_string(given) + rows);
  }
  return 0;
}
