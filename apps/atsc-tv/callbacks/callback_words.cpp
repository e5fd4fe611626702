#include "callbacks/callback_words.h"

#include <SQLiteCpp/SQLiteCpp.h>

#include <functional>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "channels/channel_list.h"
#include "terminal/local_time.h"

namespace apps::tv {
namespace {

using Words = std::string (*)(const Json::Value& message);

std::string text(const Json::Value& message, const char* key) {
  return message[key].isString() ? message[key].asString() : "";
}

// Returns a 32-bit number of a message, 0 if it is missing or not a number.
int64_t number(const Json::Value& message, const char* key) {
  return message[key].isUInt() ? int64_t{message[key].asUInt()} : 0;
}

std::string scanWords(const Json::Value& message) {
  const std::string state = text(message, "msg");
  const auto count = [&](const char* key) { return std::to_string(number(message, key)); };
  const std::string found = count("ser_found") + " services found (" + count("tv_num") + " TV, " +
                            count("radio_num") + " radio, " + count("data_num") + " data)";
  if (state == "START") return "the scan has begun";
  if (state == "OVER") return "the scan is over: " + found;
  if (state == "ERROR") return "the scan failed";
  if (state == "PAUSE") return "the scan waits";
  if (state == "RESUME") return "the scan goes on";
  if (state != "PROGRESS") return "scan, " + state;
  const int64_t frequency = number(message, "cur_freq");
  return count("progress") + " %, RF " + count("chn_num") + ", " + megahertz(frequency) +
         " MHz: " + (number(message, "lock_freq") == frequency ? "carrier, " : "nothing, ") + found;
}

// Describes the system time (A/65 6.1).
std::string timeWords(const Json::Value& message) {
  constexpr int64_t kGpsEpoch = 315964800;  // 1980-01-06, Unix seconds
  if (!message.isMember("SystemTime")) return "the clock was set";
  const int64_t day = number(message, "DS_Day_Of_Month");
  std::string words =
      "it is " +
      utcTime(kGpsEpoch + number(message, "SystemTime") - number(message, "GPS_UTC_Offset"),
              "%Y-%m-%d %H:%M:%S UTC") +
      ", daylight saving time " + (number(message, "DS_Status") != 0 ? "in force" : "not in force");
  if (day != 0) {
    words += ", changes on day " + std::to_string(day) + " at hour " +
             std::to_string(number(message, "DS_Hour"));
  }
  return words;
}

// Describes an alert and its alert_priority (SCTE 18).
std::string alertWords(const Json::Value& message) {
  const int64_t priority = number(message, "priority");
  const char* const word = priority == 0    ? "test"
                           : priority == 3  ? "low"
                           : priority == 7  ? "medium"
                           : priority == 11 ? "high"
                           : priority == 15 ? "maximum"
                                            : "reserved";
  const std::string alert = text(message, "text");
  return (text(message, "cbtype") == "EASSTARTBLOCKING" ? "an alert interrupts viewing"
                                                        : "an alert begins") +
         std::string(", priority ") + std::to_string(priority) + " (" + word +
         "): " + (alert.empty() ? "no text" : alert);
}

const std::map<std::string, const char*> kPlainWords = {
    {"EPG_COMPLETE", "the guide is complete"},
    {"EVENT_TRANSITION", "the next programme begins"},
    {"SERVICE_DELETED", "a service has gone off the air"},
    {"SERVICE_UPDATE", "a service has changed"},
    {"SERVICE_ADDED", "a service is new on the air"},
    {"SERVICE_BUILD_COMPLETED", "the channel list has changed"},
    {"RRT_UPDATE", "a rating table was received"},
    {"RRT_DL_UPDATE", "a downloadable rating table was received"},
    {"PARENTAL_UPDATE", "the parental settings have changed"},
    {"PARENTAL_BLOCKED", "the programme is blocked"},
    {"PARENTAL_UNBLOCKED", "the programme is blocked no longer"},
    {"CHANNEL_LOCKED", "the channel is locked and stays closed"},
    {"CHANNEL_UNLOCKED", "the channel is locked no longer"},
    {"CHANNEL_PLAY_SUCCESS", "the channel plays"},
    {"DCCM", "the broadcaster asks for another channel"},
    {"EASSTOP", "the alert is over"},
    {"EIT_UPDATE", "programmes were received"},
    {"ETT_UPDATE", "descriptions were received"},
    {"VIEWING_DELAY", "viewing is delayed"},
};

const std::map<std::string, Words> kWords = {
    {"SCAN", scanWords},
    {"STT_UPDATE_EVENT", timeWords},
    {"TIME_CHANGE", timeWords},
    {"EASSTARTBLOCKING", alertWords},
    {"EASSTARTNONBLOCKING", alertWords},
};

}  // namespace

CallbackWords::CallbackWords(std::string channelDatabase, std::string eventDatabase)
    : channelDatabase_(std::move(channelDatabase)),
      eventDatabase_(std::move(eventDatabase)),
      fingerprints_(readFingerprints()) {}

std::optional<std::string> CallbackWords::explain(const Json::Value& message) {
  if (!message.isObject()) return std::nullopt;
  const std::string kind = text(message, "cbtype");
  if (kind == "EPG_UPDATE") return guideUpdate(message);
  if (const auto found = kPlainWords.find(kind); found != kPlainWords.end()) return found->second;
  if (const auto found = kWords.find(kind); found != kWords.end()) return found->second(message);
  return std::nullopt;
}

// Stations choose source ids independently: one id may stand for channels of several stations.
// Names the channels whose programmes have changed in the database, which is up to date when the
// message arrives.
std::string CallbackWords::guideUpdate(const Json::Value& message) {
  constexpr size_t kMaxNamed = 8;
  std::set<std::string> ids;
  std::istringstream list(text(message, "source_id"));
  for (std::string id; std::getline(list, id, ',');) ids.insert(id);
  Fingerprints now = readFingerprints();
  std::vector<std::string> names;
  for (const Source& source : kSources) {
    try {
      for (const Json::Value& row : readChannels(channelDatabase_, source)) {
        if (ids.count(row["source_id"].asString()) == 0) continue;
        const std::string key = row["ch_id_pk"].asString();
        const auto before = fingerprints_.find(key);
        const auto after = now.find(key);
        const bool same = before == fingerprints_.end() || after == now.end()
                              ? before == fingerprints_.end() && after == now.end()
                              : before->second == after->second;
        if (!same) names.push_back(channelNumber(row) + ' ' + row["name"].asString());
      }
    } catch (const std::runtime_error&) {
      // The channel list is being rewritten; the source ids must suffice.
    }
  }
  fingerprints_ = std::move(now);
  if (names.empty()) return "programmes were received, source ids " + text(message, "source_id");
  std::string words = "programmes have changed on ";
  for (size_t i = 0; i < names.size() && i < kMaxNamed; ++i) {
    words += (i > 0 ? ", " : "") + names[i];
  }
  if (names.size() > kMaxNamed) {
    words += " and " + std::to_string(names.size() - kMaxNamed) + " more";
  }
  return words;
}

CallbackWords::Fingerprints CallbackWords::readFingerprints() const {
  constexpr int kBusyTimeoutMs = 500;
  Fingerprints fingerprints;
  for (const Source& source : kSources) {
    try {
      SQLite::Database file(eventDatabase_, SQLite::OPEN_READONLY, kBusyTimeoutMs);
      SQLite::Statement query(file, std::string("SELECT ch_id_pk, * FROM ") + source.eventTable);
      while (query.executeStep()) {
        uint64_t& fingerprint = fingerprints[query.getColumn(0).getString()];
        for (int i = 1; i < query.getColumnCount(); ++i) {
          fingerprint = fingerprint * 31 + std::hash<std::string>()(query.getColumn(i).getString());
        }
      }
    } catch (const SQLite::Exception&) {
      // The file or the table does not exist yet.
    }
  }
  return fingerprints;
}

}  // namespace apps::tv
