#include "lineup_rows.h"

#include <json/json.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <tuple>

#include "rows.h"

namespace {

auto fields(const Row& row) {
  return std::tie(row.major, row.minor, row.name, row.frequency, row.tsid, row.sourceId,
                  row.serviceType, row.tunerType, row.audioPid, row.videoPid);
}

// ISO/IEC 13818-1 and A/53 stream types of the kinds that the tables list.
const std::map<std::string, int> kAudio = {{"mpeg1-audio", 3}, {"mpeg2-audio", 4}, {"aac", 15},
                                           {"latm", 17},       {"ac3", 129},       {"eac3", 135}};
const std::map<std::string, int> kVideo = {
    {"mpeg1-video", 1}, {"mpeg2-video", 2}, {"hevc", 36}, {"dc2-video", 128}};

void addStream(Row& row, const Json::Value& stream) {
  const std::string type = stream["type"].asString();
  const std::string pid = stream["pid"].asString();
  if (const auto video = kVideo.find(type); video != kVideo.end()) {
    row.videoPid += pid + '_' + std::to_string(video->second) + ',';
  }
  const auto audio = kAudio.find(type);
  if (audio == kAudio.end()) return;
  row.audioPid += pid + '_' + stream["language"].asString() + '_' + std::to_string(audio->second);
  if (stream["bsmod"].asInt() == 2) {
    int described = 0;
    while ((stream["asvcflags"].asInt() >> described & 1) == 0) ++described;
    row.audioPid +=
        "_AD" + std::to_string(described) + (stream["full_svc"].asBool() ? "FULL" : "") + "_MAIN0";
  }
  row.audioPid += ',';
}

}  // namespace

bool Row::operator==(const Row& other) const { return fields(*this) == fields(other); }

std::ostream& operator<<(std::ostream& out, const Row& row) {
  return out << row.major << '-' << row.minor << " \"" << row.name << "\" " << row.frequency
             << " tsid " << row.tsid << " source " << row.sourceId << ' ' << row.serviceType << ' '
             << row.tunerType << " audio " << row.audioPid << " video " << row.videoPid;
}

std::vector<Row> rowsOfLineup(const std::filesystem::path& lineup) {
  Json::Value root;
  std::ifstream(lineup) >> root;
  std::vector<Row> rows;
  for (const Json::Value& channel : root["channels"]) {
    for (const Json::Value& service : channel["services"]) {
      if (service["hidden"].asBool()) continue;
      Row row{};
      const bool onePart = service.isMember("one_part");
      row.major = service[onePart ? "one_part" : "major"].asInt64();
      row.minor = onePart ? 0 : service["minor"].asInt64();
      row.name = service["name"].asString();
      row.frequency = channel["frequency"].asInt64();
      row.tsid = channel["tsid"].asInt64();
      row.sourceId = service["source_id"].asInt64();
      const std::string type = service.get("service_type", "tv").asString();
      row.serviceType = type == "radio" ? "RADIO" : type == "data" ? "DATA" : "TV";
      row.tunerType = root["medium"].asString() == "air" ? "VSB" : "QAM";
      for (const Json::Value& stream : service["streams"]) addStream(row, stream);
      rows.push_back(row);
    }
  }
  std::sort(rows.begin(), rows.end(),
            [](const Row& a, const Row& b) { return fields(a) < fields(b); });
  return rows;
}

std::vector<Row> rowsOfTable(const std::filesystem::path& database, const std::string& table) {
  SQLite::Database file = openDatabase(database);
  SQLite::Statement query(file,
                          "SELECT major_no, minor_no, name, freq, tsid, source_id, srv_type, "
                          "tuner_type, audio_pid, video_pid FROM " +
                              table + " ORDER BY major_no, minor_no, name");
  std::vector<Row> rows;
  while (query.executeStep()) {
    const auto number = [&](int column) { return query.getColumn(column).getInt64(); };
    const auto text = [&](int column) { return query.getColumn(column).getString(); };
    rows.push_back({number(0), number(1), text(2), number(3), number(4), number(5), text(6),
                    text(7), text(8), text(9)});
  }
  return rows;
}

std::string contentOfTable(const std::filesystem::path& database, const std::string& table) {
  SQLite::Database file = openDatabase(database);
  SQLite::Statement query(file, "SELECT * FROM " + table + " ORDER BY ch_index");
  std::string content;
  while (query.executeStep()) {
    for (int i = 0; i < query.getColumnCount(); ++i) {
      const std::string column = query.getColumnName(i);
      if (column == "update_time") continue;
      content += column + '=' + query.getColumn(i).getString() + ' ';
    }
    content += '\n';
  }
  return content;
}

std::string integrityOf(const std::filesystem::path& database) {
  return valueOf(database, "PRAGMA integrity_check");
}
