#include "channels/channel_list.h"

#include <algorithm>
#include <vector>

#include "channels/audio.h"
#include "channels/channel.h"
#include "common/json.h"
#include "common/rows.h"
#include "terminal/table.h"
#include "terminal/terminal.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// Converts "52_eng_129,53_spa_129_AD0FULL_MAIN0," to "52 eng AC-3, 53 spa AC-3 described".
std::string audioText(const std::string& pids) {
  std::string text;
  for (const AudioTrack& track : audioTracks(pids)) {
    text += (text.empty() ? "" : ", ") + track.pid + ' ' + track.words();
  }
  return text;
}

// Converts "49_2," to "49 MPEG-2".
std::string videoText(const std::string& pids) {
  std::string text;
  for (const std::string& entry : split(pids, ',')) {
    const std::vector<std::string> fields = split(entry, '_');
    if (!text.empty()) text += ", ";
    text += fields.size() == 2 ? fields[0] + ' ' + codingName(fields[1]) : entry;
  }
  return text;
}

// The marks precede the columns that a narrow terminal cuts off.
constexpr int kMarksColumn = 2;

}  // namespace

Json::Value readChannels(const std::string& database, const Source& source) {
  return readRows(
      database, source.table,
      std::string("* FROM ") + source.table + " ORDER BY major_no, minor_no, freq, ch_index");
}

// A cable channel with a one-part number (A/65 6.3.2) has the minor number 0.
std::string channelNumber(const Json::Value& row) {
  const std::string major = row["major_no"].asString();
  const std::string minor = row["minor_no"].asString();
  return minor == "0" && row["tuner_type"].asString() == "QAM" ? major : major + '-' + minor;
}

void printChannels(std::ostream& out, const Source& source, const Json::Value& channels) {
  out << source.title << " (" << source.name << "): " << channels.size()
      << (channels.size() == 1 ? " channel\n" : " channels\n");
  if (channels.empty()) return;
  const auto marks = [](const Json::Value& row) {
    return markWords(integer(row, "srv_flag"), integer(row, "fav_group"));
  };
  const bool marked = std::any_of(channels.begin(), channels.end(),
                                  [&](const Json::Value& row) { return !marks(row).empty(); });
  std::vector<Column> columns = {
      {"No.", Align::kRight},    {"Name", Align::kLeft},  {"Type", Align::kLeft},
      {"RF", Align::kRight},     {"MHz", Align::kRight},  {"TSID", Align::kRight},
      {"Source", Align::kRight}, {"Video", Align::kLeft}, {"Audio", Align::kLeft}};
  if (marked) columns.insert(columns.begin() + kMarksColumn, {"Marks", Align::kLeft});
  Table table(std::move(columns));
  for (const Json::Value& row : channels) {
    const int64_t frequency = integer(row, "freq");
    const int channel = rfChannel(source, frequency);
    std::vector<std::string> cells = {channelNumber(row),
                                      row["name"].asString(),
                                      row["srv_type"].asString(),
                                      channel != 0 ? std::to_string(channel) : "",
                                      megahertz(frequency),
                                      row["tsid"].asString(),
                                      row["source_id"].asString(),
                                      videoText(row["video_pid"].asString()),
                                      audioText(row["audio_pid"].asString())};
    // An empty cell would be shown as "-", which stands for unknown.
    if (marked) {
      const std::string words = marks(row);
      cells.insert(cells.begin() + kMarksColumn, words.empty() ? " " : words);
    }
    table.add(cells);
  }
  table.print(out, "  ", terminalWidth());
}

Failure noChannel(const std::string& number, const std::string& source) {
  return Failure(kFailure, "there is no channel " + number +
                               (source.empty() ? "" : " on " + source) +
                               "; atsc-tv channels shows those that were found");
}

Failure noChannels(const std::string& database) {
  return Failure(
      kFailure, "no channels in " + database + "; atsc-tv scan finds them (" + kSameDatabase + ")");
}

}  // namespace apps::tv
