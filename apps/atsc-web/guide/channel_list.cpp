#include "guide/channel_list.h"

#include <algorithm>
#include <numeric>
#include <tuple>
#include <utility>

#include "common/text.h"

namespace web {
namespace {

// The service has at most 60,000 channels, and no text is nearly as long; a foreign file is cut
// there.
constexpr size_t kMostChannels = 60000;
constexpr size_t kLongestText = 4000;

// In the order of channelOf().
const std::vector<const char*> kChannelColumns = {
    "ch_index",       "major_no",  "minor_no", "freq",        "srv_flag",       "fav_group",
    "service_record", "source_id", "tsid",     "audio_index", "build_from_pmt", "service_delete",
    "name",           "srv_type",  "ch_id_pk", "audio_pid",   "video_pid"};
constexpr int kDeleteColumn = 11;

std::string textOf(const SQLite::Column& column) {
  const char* const text = column.getText();
  return apps::validUtf8({text, std::min(static_cast<size_t>(column.getBytes()), kLongestText)});
}

ChannelRow channelOf(SQLite::Statement& row) {
  ChannelRow channel;
  int column = 0;
  for (int64_t* number : {&channel.row, &channel.major, &channel.minor, &channel.frequency,
                          &channel.flags, &channel.favourites, &channel.record, &channel.sourceId,
                          &channel.tsid, &channel.audioIndex}) {
    *number = row.getColumn(column++).getInt64();
  }
  channel.manual = row.getColumn(column++).getInt64() != 0;
  ++column;
  for (std::string* text :
       {&channel.name, &channel.type, &channel.key, &channel.audio, &channel.video}) {
    *text = textOf(row.getColumn(column++));
    text->shrink_to_fit();
  }
  if (channel.name == "EMPTY") channel.name.clear();
  return channel;
}

auto everything(const ChannelRow& c) {
  return std::tie(c.row, c.major, c.minor, c.frequency, c.flags, c.favourites, c.record, c.sourceId,
                  c.tsid, c.audioIndex, c.manual, c.name, c.type, c.key, c.audio, c.video);
}

}  // namespace

std::string ChannelRow::number(const apps::Source& source) const {
  const std::string first = std::to_string(major);
  // A cable channel with a one-part number (A/65 6.3.2) has the minor number 0.
  return minor == 0 && &source == &apps::kSources[1] ? first : first + '-' + std::to_string(minor);
}

bool operator==(const ChannelRow& a, const ChannelRow& b) { return everything(a) == everything(b); }

void writeChannel(JsonText& json, const apps::Source& source, const ChannelRow& channel) {
  json.open('{')
      .number("row", channel.row)
      .number("major", channel.major)
      .number("minor", channel.minor)
      .text("number", channel.number(source))
      .text("name", channel.name)
      .text("type", channel.type)
      .number("freq", channel.frequency)
      .number("rf", apps::rfChannel(source, channel.frequency))
      .number("flags", channel.flags)
      .number("fav", channel.favourites)
      .text("key", channel.key)
      .number("record", channel.record)
      .number("sourceId", channel.sourceId)
      .number("tsid", channel.tsid)
      .text("audio", channel.audio)
      .number("audioIndex", channel.audioIndex)
      .text("video", channel.video)
      .boolean("manual", channel.manual)
      .close('}');
}

ChannelList::ChannelList(std::vector<ChannelRow> rows) : rows_(std::move(rows)) {
  std::sort(rows_.begin(), rows_.end(), [](const ChannelRow& a, const ChannelRow& b) {
    return std::tie(a.major, a.minor, a.frequency, a.row) <
           std::tie(b.major, b.minor, b.frequency, b.row);
  });
  byRow_.resize(rows_.size());
  std::iota(byRow_.begin(), byRow_.end(), 0);
  byKey_ = byRow_;
  std::sort(byRow_.begin(), byRow_.end(),
            [this](uint32_t a, uint32_t b) { return rows_[a].row < rows_[b].row; });
  std::stable_sort(byKey_.begin(), byKey_.end(),
                   [this](uint32_t a, uint32_t b) { return rows_[a].key < rows_[b].key; });
}

const ChannelRow* ChannelList::withRow(int64_t row) const {
  const auto found =
      std::lower_bound(byRow_.begin(), byRow_.end(), row,
                       [this](uint32_t at, int64_t wanted) { return rows_[at].row < wanted; });
  return found != byRow_.end() && rows_[*found].row == row ? &rows_[*found] : nullptr;
}

const ChannelRow* ChannelList::withKey(std::string_view key) const {
  const auto found = std::lower_bound(
      byKey_.begin(), byKey_.end(), key,
      [this](uint32_t at, std::string_view wanted) { return rows_[at].key < wanted; });
  return found != byKey_.end() && rows_[*found].key == key ? &rows_[*found] : nullptr;
}

std::vector<ChannelRow> readChannelRows(ServiceFile& file, const apps::Source& source,
                                        const std::function<bool()>& goesOn) {
  std::vector<ChannelRow> rows;
  const std::vector<std::string> tables = file.tables();
  if (std::find(tables.begin(), tables.end(), source.table) == tables.end()) return rows;
  // A list that is written all the time is read anyway.
  constexpr int kMostRounds = 4;
  int round = 0;
  do {
    rows.clear();
    ++round;
  } while (!file.readInPieces(
               source.table, kChannelColumns,
               [&rows](SQLite::Statement& row) {
                 if (row.getColumn(kDeleteColumn).getInt64() == 0 && rows.size() < kMostChannels) {
                   rows.push_back(channelOf(row));
                 }
                 return true;
               },
               goesOn, round >= kMostRounds) &&
           goesOn());
  return rows;
}

}  // namespace web
