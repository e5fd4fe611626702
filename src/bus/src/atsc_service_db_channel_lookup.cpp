// The lookups of a synchronisation.
#include "atsc_service_db_channel_lookup.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <algorithm>

namespace atsc {

namespace {

std::string numberText(int64_t major, int64_t minor, int64_t frequency) {
  sqlString text;
  text << major << "-" << minor << "-" << frequency;
  return text.str();
}

std::string numberOf(const AISRV_service_info& service) {
  return numberText(service.major, service.minor, service.frequency);
}

std::string lookup(const std::string& number, int64_t source_id, const std::string& audio_pid,
                   const std::string& video_pid) {
  sqlString text;
  text << number << "-" << source_id << "-" << static_cast<long long>(audio_pid.size()) << "-"
       << audio_pid << video_pid;
  return text.str();
}

// Returns false when the value equals no integer: NULL, a text, a fraction.
bool readNumber(const SQLite::Column& value, int64_t& number) {
  if (!value.isInteger() && !value.isFloat()) return false;
  number = value.getInt64();
  return value.isInteger() || static_cast<double>(number) == value.getDouble();
}

std::string pidText(const SQLite::Column& value) {
  return value.isText() ? value.getString() : std::string();
}

}  // namespace

const CommittedRows::Answer* CommittedRows::add(const AISRV_service_info& service,
                                                const StreamTexts& streams) {
  wanted_[!streams.audio_pid.empty()][!streams.video_pid.empty()] = true;
  sameNumber_[numberOf(service)];
  return &answers_
              .emplace(lookup(numberOf(service), static_cast<uint16_t>(service.source_id),
                              streams.audio_pid, streams.video_pid),
                       Answer())
              .first->second;
}

void CommittedRows::read(SQLite::Database& database, const std::string& table, uint32_t stamp) {
  SQLite::Statement rows(
      database,
      "SELECT rowid, major_no, minor_no, freq, source_id, audio_pid, video_pid, ch_index, "
      "update_time FROM " +
          table);
  while (rows.executeStep()) {
    int64_t major = 0;
    int64_t minor = 0;
    int64_t frequency = 0;
    int64_t time = 0;
    const SQLite::Column update_time = rows.getColumn(8);
    const bool stamped = update_time.isNull() || (readNumber(update_time, time) && time == stamp);
    const bool comparable = readNumber(rows.getColumn(1), major) &&
                            readNumber(rows.getColumn(2), minor) &&
                            readNumber(rows.getColumn(3), frequency);
    const std::string number = comparable ? numberText(major, minor, frequency) : "";
    const auto same = sameNumber_.find(number);
    if (same == sameNumber_.end()) {
      stampedStray_ = stampedStray_ || stamped;
      continue;
    }
    same->second.rows.push_back(rows.getColumn(0).getInt64());
    same->second.stamped = same->second.stamped || stamped;
    answerLookups(number, rows);
  }
}

void CommittedRows::answerLookups(const std::string& number, SQLite::Statement& row) {
  int64_t source_id = 0;
  if (!readNumber(row.getColumn(4), source_id)) return;
  // A lookup without a PID text matches any text of the row.
  for (const bool withAudio : {false, true}) {
    for (const bool withVideo : {false, true}) {
      if (!wanted_[withAudio][withVideo]) continue;
      const auto found =
          answers_.find(lookup(number, source_id, withAudio ? pidText(row.getColumn(5)) : "",
                               withVideo ? pidText(row.getColumn(6)) : ""));
      // The first row counts.
      if (found != answers_.end() && !found->second) found->second = row.getColumn(7).getInt();
    }
  }
}

SameNumber& CommittedRows::sameNumber(const AISRV_service_info& service) {
  return sameNumber_[numberOf(service)];
}

bool CommittedRows::hasStampedStray() const {
  return stampedStray_ || std::any_of(sameNumber_.begin(), sameNumber_.end(), [](const auto& same) {
           return same.second.stamped && !same.second.lastUpdate;
         });
}

}  // namespace atsc
