// Compares synchronisations of a channel table with a model that applies the rules command by
// command to a copy of the file. An input is a list of runs: changes of the table by others, the
// time, the service list.
#include <sqlite3.h>

#include <algorithm>
#include <utility>

#include "harness.h"

namespace {

using namespace std::string_literals;

// Columns that a run writes.
const std::string kColumns =
    "(name, build_from_pmt, major_no, minor_no, service_record, source_id, freq, srv_type,"
    " srv_flag, fav_group, service_delete, audio_pid, video_pid, audio_count, video_count,"
    " update_time, ch_id_pk, tsid, tuner_type)";

// A service, the SQL values of its row, and the conditions to find it.
struct Listed {
  fake::Service service;
  std::string values, key, lookup;
};

template <typename Value, size_t Size>
const Value& one(fuzz::Input& input, const Value (&values)[Size]) {
  return values[input.below(Size)];
}

std::string literal(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "''" : std::string(1, c);
  return quoted + "'";
}

Listed readService(fuzz::Input& input, uint32_t source, uint32_t number, uint32_t now) {
  static const struct {
    std::string bytes;
    uint32_t encoding;
    std::string shown;
  } kNames[] = {{"WGBH", 0, "WGBH"},
                {"", 0, "EMPTY"},
                {"'O''Neil", 0, "'O''Neil"},
                {fake::utf16("K'\n") + "\0\xE9\x20\xAC"s, 1, "K'\n\u00E9\u20AC"},
                {"\xE9\xFF\0d"s, 2, "\xE9\xFF"},
                {std::string(60, 'N'), 0, std::string(40, 'N')}};
  static const AISRV_pid_info kVideo{0x02, 0, 49, {}, {}, 0, 0, 0, 0};
  static const AISRV_pid_info kAudio{0x81, 1, 52, {'e', 'n', 'g'}, {'f', 'r', 'a'}, 0, 0, 0, 0};
  static const AISRV_pid_info kMixed{0x87, 3, 53, {}, {'s', '\'', 'a'}, 1, 0x80, 1, 0};
  static const AISRV_pid_info kOther{0x06, 3, 60, {}, {}, 0, 1, 0, 0};
  const auto of = [](uint8_t type) {
    return AISRV_pid_info{type, 0, 9, {'u', 'n', 'd'}, {}, 0, 0, 0, 0};
  };
  static const struct {
    std::vector<AISRV_pid_info> pids;
    std::string audio, video;
  } kStreams[] = {{{kVideo, kAudio}, "52_eng_129,", "49_2,"},
                  {{kVideo}, "", "49_2,"},
                  {{kAudio, kAudio, kOther}, "52_eng_129,52_eng_129,", ""},
                  {{kOther}, "", ""},
                  {{kMixed, kVideo, kVideo, of(3), of(4), of(15), of(17), of(1), of(36), of(128)},
                   "53_s'a_135_AD7FULL_MAIN1,9_und_3,9_und_4,9_und_15,9_und_17,",
                   "49_2,49_2,9_1,9_36,9_128,"}};
  static constexpr uint32_t kFrequencies[] = {503000000, 57000000, UINT32_MAX};
  static constexpr const char* kTypes[] = {"'TV'", "'TV'", "'RADIO'", "'DATA'"};
  Listed listed;
  AISRV_service_info& info = listed.service.info;
  info.major = static_cast<uint16_t>(4 + input.below(2));
  info.minor = static_cast<uint16_t>(input.below(3));
  info.frequency = one(input, kFrequencies);
  info.source_id = 1 + input.below(3) * 0x8000;
  const auto& [bytes, encoding, shown] = one(input, kNames);
  listed.service.name = bytes;
  listed.service.nameEncoding = encoding;
  const auto& [pids, audio, video] = one(input, kStreams);
  listed.service.pids = pids;
  const uint8_t details = input.byte();
  info.service_id = {number * 2 + (details & 1), source};
  info.build_from_pmt = details >> 1 & 3;
  info.service_type = details >> 3 & 3;
  info.modulation = (details & 0x20) != 0 ? 1024 : 64;
  info.AISRV_flags_ = (details & 0x40) != 0 ? UINT32_MAX : 1;
  info.AISRV_fav_group_ = info.AISRV_flags_ << 4;
  info.transport_stream_id = static_cast<uint16_t>(info.AISRV_flags_);
  info.service_delete = details >> 7;
  const std::string major = std::to_string(info.major), minor = std::to_string(info.minor);
  const std::string freq = std::to_string(info.frequency);
  const uint32_t sourceId = info.source_id & 0xFFFF;
  std::ostringstream values;
  values << literal(shown) << ',' << (info.build_from_pmt == 1) << ',' << major << ',' << minor
         << ',' << info.service_id.service_rec << ',' << sourceId << ',' << freq << ','
         << kTypes[info.service_type] << ',' << info.AISRV_flags_ << ',' << info.AISRV_fav_group_
         << ',' << +info.service_delete << ',' << literal(audio) << ',' << literal(video) << ','
         << std::count(audio.begin(), audio.end(), ',') << ','
         << std::count(video.begin(), video.end(), ',') << ',' << now << ','
         << literal(major + "-" + minor + "-" + freq) << ',' << info.transport_stream_id << ','
         << (info.modulation == 64 ? "'VSB'" : "'QAM'");
  listed.values = "(" + values.str() + ")";
  listed.key = " WHERE major_no=" + major + " AND minor_no=" + minor + " AND freq=" + freq;
  listed.lookup = listed.key + " AND source_id=" + std::to_string(sourceId);
  if (!audio.empty()) listed.lookup += " AND audio_pid=" + literal(audio);
  if (!video.empty()) listed.lookup += " AND video_pid=" + literal(video);
  return listed;
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
                const std::vector<Listed>& services) {
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
    for (const Listed& listed : services) {
      SQLite::Statement row(committed, "SELECT ch_index FROM " + table + listed.lookup);
      const bool found = row.executeStep() && row.getColumn(0).getInt() != ATSC_CHANNEL_NOT_FOUND;
      database.exec(found
                        ? "UPDATE " + table + " SET " + kColumns + "=" + listed.values + listed.key
                        : "INSERT INTO " + table + kColumns + " VALUES " + listed.values);
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
    std::vector<Listed> listed(input.below(7));
    std::vector<fake::Service> services;
    for (Listed& each : listed) {
      each = readService(input, source, static_cast<uint32_t>(services.size()), now);
      services.push_back(each.service);
    }
    fake::reset();
    fake::setTime(now);
    fake::setServices(source, services);
    std::filesystem::copy_file(path, copy, std::filesystem::copy_options::overwrite_existing);
    const int result = synchronise(copy, table, std::to_string(now), listed);
    const int given = ATSC_Service_db_UpdateChannel(static_cast<int>(source));
    const std::string rules = content(copy, table), rows = content(path, table);
    fuzz::require(rows == rules, "content", rows + "wanted: \n" + rules);
    fuzz::require(given == result, "result", std::to_string(given) + rows);
  }
  return 0;
}
