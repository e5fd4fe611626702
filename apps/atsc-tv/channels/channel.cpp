#include "channels/channel.h"

#include <algorithm>
#include <limits>

#include "common/json.h"
#include "common/rows.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// Parses one part of a channel number. Returns nothing unless the whole of `text` is a number.
std::optional<uint16_t> parsePart(const std::string& text) {
  constexpr size_t kDigits = 5;
  if (text.empty() || text.size() > kDigits ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return std::nullopt;
  }
  const unsigned long value = std::stoul(text);
  if (value > std::numeric_limits<uint16_t>::max()) return std::nullopt;
  return static_cast<uint16_t>(value);
}

std::vector<Channel> select(const std::string& database, const Source& source,
                            const std::string& condition) {
  std::vector<Channel> channels;
  const Json::Value rows = readRows(database, source.table,
                                    std::string("* FROM ") + source.table + condition +
                                        " ORDER BY major_no, minor_no, ch_index, freq");
  for (const Json::Value& row : rows) {
    Channel channel;
    channel.source = &source;
    channel.major = integer(row, "major_no");
    channel.minor = integer(row, "minor_no");
    channel.frequency = integer(row, "freq");
    channel.name = oneLine(row["name"].asString());
    channel.flags = integer(row, "srv_flag");
    channel.favourites = integer(row, "fav_group");
    channel.serviceRecord = integer(row, "service_record");
    channel.audioPids = row["audio_pid"].asString();
    channel.hasStreams = !channel.audioPids.empty() || !row["video_pid"].asString().empty();
    channel.isData = row["srv_type"] == "DATA";
    channel.audioIndex = integer(row, "audio_index");
    channels.push_back(std::move(channel));
  }
  return channels;
}

std::string favouriteWords(int64_t favourites) {
  std::string groups;
  bool several = false;
  for (uint32_t group = 1; group <= kFavouriteGroups; ++group) {
    if ((favourites & favouriteBit(group)) == 0) continue;
    several = !groups.empty();
    groups += (several ? " " : "") + std::to_string(group);
  }
  if (groups.empty()) return "";
  return (several ? "favourite groups " : "favourite group ") + groups;
}

}  // namespace

int64_t favouriteBit(uint32_t group) {
  constexpr int64_t kFirst = 0x10;
  return kFirst << (group - 1);
}

// A cable channel with a one-part number (A/65 6.3.2) has the minor number 0.
std::string Channel::number() const {
  const std::string first = std::to_string(major);
  return minor == 0 && source == &kSources[1] ? first : first + '-' + std::to_string(minor);
}

std::string Channel::key() const {
  return std::to_string(major) + '-' + std::to_string(minor) + '-' + std::to_string(frequency);
}

bool Channel::isSameAs(const Channel& other) const {
  return source == other.source && key() == other.key();
}

std::optional<ChannelNumber> parseChannelNumber(const std::string& text) {
  const size_t dash = text.find('-');
  const std::optional<uint16_t> major = parsePart(text.substr(0, dash));
  const std::optional<uint16_t> minor =
      dash == std::string::npos ? std::optional<uint16_t>(0) : parsePart(text.substr(dash + 1));
  if (!major || !minor) return std::nullopt;
  return ChannelNumber{*major, *minor};
}

std::string channelNumberFault(const std::string& text) {
  return parseChannelNumber(text) ? "" : "'" + text + "' is no channel number like 7-1 or 1203";
}

std::vector<Channel> listedChannels(const std::string& database, const Source& source) {
  return select(database, source, "");
}

std::vector<Channel> listedChannels(const std::string& database, const Source& source,
                                    ChannelNumber number) {
  return select(database, source,
                " WHERE major_no = " + std::to_string(number.major) +
                    " AND minor_no = " + std::to_string(number.minor));
}

bool hasChannels(const std::string& database) {
  return std::any_of(kSources.begin(), kSources.end(), [&](const Source& source) {
    return !readRows(database, source.table, std::string("1 FROM ") + source.table + " LIMIT 1")
                .empty();
  });
}

std::string markWords(int64_t flags, int64_t favourites) {
  std::string words = favouriteWords(favourites);
  const auto add = [&](int64_t flag, const char* word) {
    if ((flags & flag) == 0) return;
    words += (words.empty() ? "" : ", ") + std::string(word);
  };
  add(kSkipped, "skipped");
  add(kLocked, "locked");
  add(kDeleted, "deleted");
  return words;
}

std::string placeWords(const Channel& channel) {
  const int rf = rfChannel(*channel.source, channel.frequency);
  return std::string(channel.source->title) + " (" + channel.source->name + ")" +
         (rf != 0 ? ", RF " + std::to_string(rf) : "") + ", " + megahertz(channel.frequency) +
         " MHz";
}

std::string channelLine(const Channel& channel) {
  const std::string marks = markWords(channel.flags, channel.favourites);
  return channel.number() + ' ' + channel.name + (marks.empty() ? "" : ": " + marks);
}

const char* streamRemark(const Channel& channel) {
  return channel.hasStreams || channel.isData ? "" : " (nothing is received for it)";
}

}  // namespace apps::tv
