#include "guide/guide.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "channels/channel_list.h"
#include "common/json.h"
#include "common/rows.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// Returns a time of the event table, whose times have 32 bits.
int64_t seconds(const Json::Value& row, const char* column) {
  return std::clamp<int64_t>(integer(row, column), 0, std::numeric_limits<uint32_t>::max());
}

Programme programmeOf(const Json::Value& row) {
  const int64_t start = seconds(row, "start_time");
  return {start,
          start + seconds(row, "duration"),
          oneLine(row["name"].asString()),
          oneLine(row["rating"].asString()),
          integer(row, "cc") != 0,
          integer(row, "parent_stat") == 1,
          oneLine(row["desc"].asString()),
          row};
}

// Selects the programmes that overlap `span`, including a programme without duration that starts
// with it.
std::string selection(const std::string& table, Span span) {
  const std::string start = std::to_string(span.start);
  return "* FROM " + table + " WHERE start_time < " + std::to_string(span.end) +
         " AND (start_time + duration > " + start + " OR start_time = " + start +
         ") ORDER BY start_time, event_index";
}

}  // namespace

bool Programme::isRated() const {
  return !rating.empty() && rating != "No rating" && rating != "Not rated";
}

Guide readGuide(const std::string& channelDatabase, const std::string& eventDatabase,
                const Source& source, Span span, const std::string& number) {
  Guide guide;
  const Json::Value channels = readChannels(channelDatabase, source);
  guide.scanned = !channels.isNull();
  const std::string table = source.eventTable;
  const Json::Value covered = readRows(eventDatabase, table,
                                       "ch_id_pk, MIN(start_time) AS start_time, MAX(start_time + "
                                       "duration) AS end_time FROM " +
                                           table + " GROUP BY ch_id_pk");
  guide.known = !covered.isNull();
  guide.received = !covered.empty();
  // One SQL statement cannot do this: channels and events are in different files.
  std::unordered_map<std::string, Span> spans;
  for (const Json::Value& row : covered) {
    spans[row["ch_id_pk"].asString()] = {integer(row, "start_time"), integer(row, "end_time")};
  }
  std::unordered_map<std::string, std::vector<Programme>> programmes;
  if (guide.known) {
    for (const Json::Value& row : readRows(eventDatabase, table, selection(table, span))) {
      programmes[row["ch_id_pk"].asString()].push_back(programmeOf(row));
    }
  }
  for (const Json::Value& row : channels) {
    GuideChannel channel = {channelNumber(row), oneLine(row["name"].asString()), {}};
    if (!number.empty() && number != channel.number) continue;
    const std::string key = row["ch_id_pk"].asString();
    if (const auto found = programmes.find(key); found != programmes.end()) {
      channel.programmes = found->second;
    }
    if (const auto found = spans.find(key); found != spans.end()) {
      const bool first = guide.covered.start >= guide.covered.end;
      guide.covered.start =
          first ? found->second.start : std::min(guide.covered.start, found->second.start);
      guide.covered.end = std::max(guide.covered.end, found->second.end);
    }
    guide.channels.push_back(std::move(channel));
  }
  return guide;
}

std::vector<Programme> readProgrammes(const std::string& eventDatabase, const Source& source,
                                      const std::string& key, int64_t after, int count) {
  std::vector<Programme> programmes;
  const std::string table = source.eventTable;
  for (const Json::Value& row :
       readRows(eventDatabase, table,
                "* FROM " + table + " WHERE ch_id_pk = '" + key + "' AND start_time + duration > " +
                    std::to_string(after) + " ORDER BY start_time, event_index LIMIT " +
                    std::to_string(count))) {
    programmes.push_back(programmeOf(row));
  }
  return programmes;
}

}  // namespace apps::tv
