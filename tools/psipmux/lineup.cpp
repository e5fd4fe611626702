#include "lineup.h"

#include <json/json.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fstream>
#include <memory>

#include "guide.h"
#include "json_node.h"
#include "lineup_guide.h"

namespace psipmux {
namespace {

constexpr size_t kMaxFileSize = 4u << 20;
constexpr int kMaxNesting = 16;
constexpr unsigned kMaxChannels = 200;
constexpr unsigned kMaxServices = 250;  // in a PAT section of 1024 bytes
constexpr unsigned kMaxStreams = 40;    // in a service location descriptor of 255 bytes
constexpr size_t kShortNameUnits = 7;
constexpr size_t kMaxExtendedNameBytes = 247;  // in a descriptor of 255 bytes
constexpr int64_t kFirstPid = 0x10;
constexpr int64_t kLastPid = 0x1FFA;  // the next PID is that of PSIP

constexpr Choice kMedia[] = {{"air", 0}, {"cable", 1}};
constexpr Choice kServiceTypes[] = {{"tv", 2}, {"radio", 3}, {"data", 4}};
constexpr Choice kCableModulations[] = {{"64qam", 2}, {"256qam", 3}};
constexpr uint8_t kInGuide = 1, kInPmt = 2;
constexpr Choice kRatingPlaces[] = {
    {"guide", kInGuide}, {"pmt", kInPmt}, {"both", kInGuide | kInPmt}};
constexpr uint8_t kModulation8Vsb = 4;
constexpr Choice kStreamTypes[] = {
    {"mpeg1-video", 0x01}, {"mpeg2-video", 0x02},   {"mpeg1-audio", 0x03}, {"mpeg2-audio", 0x04},
    {"aac", 0x0F},         {"latm", 0x11},          {"h264", 0x1B},        {"hevc", 0x24},
    {"dc2-video", 0x80},   {"ac3", kStreamTypeAc3}, {"eac3", 0x87},        {"data", 0x95},
};

/// Values that must be unique in a lineup. Source ids from 0x1000 on are unique in a region, lower
/// source ids within their transport stream (A/65 6.3.1).
struct LineupIds {
  Unique frequencies;
  Unique numbers;
  Unique regionalSources;
};

struct ChannelIds {
  Unique programs;
  Unique pids;
  Unique localSources;
};

uint16_t parsePid(const Node& node, const char* key, ChannelIds& ids) {
  const auto pid = static_cast<uint16_t>(node.integer(key, kFirstPid, kLastPid));
  for (const uint16_t first : {kEitPid, kEttPid}) {
    if (pid >= first && pid < first + kMaxInstances) {
      node.at(key).fail("must not be one of the guide's, " + std::to_string(first) + " to " +
                        std::to_string(first + kMaxInstances - 1));
    }
  }
  ids.pids.add(pid, node.at(key));
  return pid;
}

std::string parseLanguage(const Node& node, const char* key) {
  const std::string language = node.string(key);
  if (!isLanguage(language)) node.at(key).fail("must be three lower-case letters");
  return language;
}

Stream parseStream(const Node& node, ChannelIds& ids) {
  node.allowKeys({"type", "pid", "language", "bsmod", "full_svc", "mainid", "asvcflags",
                  "dual_mono", "second_language"});
  Stream stream;
  stream.type = node.oneOf("type", kStreamTypes);
  stream.pid = parsePid(node, "pid", ids);
  if (node.has("language")) {
    stream.language = parseLanguage(node, "language");
  }
  if (stream.type != kStreamTypeAc3) {
    node.forbidKeys({"bsmod", "full_svc", "mainid", "asvcflags", "dual_mono", "second_language"},
                    "only for streams of type ac3");
    return stream;
  }
  stream.bsmod = static_cast<uint8_t>(node.integerOr("bsmod", 0, 7, 0));
  const bool mainService = stream.bsmod < 2;
  stream.fullSvc = node.booleanOr("full_svc", mainService);
  if (mainService) {
    node.forbidKeys({"asvcflags"}, "only with a bsmod of 2 to 7");
    stream.mainid = static_cast<uint8_t>(node.integerOr("mainid", 0, 7, 0));
  } else {
    node.forbidKeys({"mainid"}, "only with a bsmod of 0 or 1");
    stream.asvcflags = static_cast<uint8_t>(node.integer("asvcflags", 0, 255));
  }
  stream.dualMono = node.booleanOr("dual_mono", false);
  if (stream.dualMono && stream.bsmod == 7) node.at("dual_mono").fail("not with a bsmod of 7");
  if (node.has("second_language")) {
    if (!stream.dualMono || stream.language.empty()) {
      node.at("second_language").fail("only with dual_mono and language");
    }
    stream.secondLanguage = parseLanguage(node, "second_language");
  }
  return stream;
}

void parseNumber(const Node& node, Medium medium, Service& service, LineupIds& ids) {
  if (node.has("one_part")) {
    if (medium != Medium::kCable) node.at("one_part").fail("only for cable");
    node.forbidKeys({"major", "minor"}, "not with one_part");
    const auto number = static_cast<uint32_t>(node.integer("one_part", 0, 0x3FFF));
    service.major = static_cast<uint16_t>(0x3F0 | number >> 10);
    service.minor = static_cast<uint16_t>(number & 0x3FF);
  } else {
    service.major = static_cast<uint16_t>(node.integer("major", 1, 999));
    service.minor = static_cast<uint16_t>(node.integer("minor", 0, 999));
  }
  ids.numbers.add(static_cast<uint32_t>(service.major) << 16 | service.minor,
                  node.at(node.has("one_part") ? "one_part" : "minor"));
}

void parseVirtualChannel(const Node& node, Medium medium, Service& service, LineupIds& lineupIds,
                         ChannelIds& channelIds) {
  service.name = node.utf16("name");
  const auto surrogate = [](char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; };
  if (std::any_of(service.name.begin(), service.name.end(), surrogate)) {
    node.at("name").fail("must not contain characters above U+FFFF");
  }
  if (service.name.size() > kShortNameUnits) {
    node.at("name").fail("must be at most 7 UTF-16 units");
  }
  if (node.has("extended_name")) {
    service.extendedName = node.utf16("extended_name");
    const bool wide = std::any_of(service.extendedName.begin(), service.extendedName.end(),
                                  [](char16_t unit) { return unit > 0xFF; });
    const size_t limit = wide ? kMaxExtendedNameBytes / 2 : kMaxExtendedNameBytes;
    if (service.extendedName.empty() || service.extendedName.size() > limit) {
      node.at("extended_name").fail("must be 1 to " + std::to_string(limit) + " UTF-16 units");
    }
  }
  parseNumber(node, medium, service, lineupIds);
  service.sourceId = static_cast<uint16_t>(node.integer("source_id", 1, 0xFFFF));
  (service.sourceId < 0x1000 ? channelIds.localSources : lineupIds.regionalSources)
      .add(service.sourceId, node.at("source_id"));
  service.serviceType =
      node.has("service_type") ? node.oneOf("service_type", kServiceTypes) : kServiceTypes[0].value;
  service.hidden = node.booleanOr("hidden", false);
  service.hideGuide = node.booleanOr("hide_guide", false);
  service.sld = node.booleanOr("sld", true);
  service.programmes = parseProgrammes(node);
  service.guideOffset = static_cast<uint32_t>(node.integerOr("guide_offset", 0, 1439, 0) * 60);
  if (node.has("rating_in")) {
    if (service.programmes.empty()) node.at("rating_in").fail("only with programmes");
    const uint8_t places = node.oneOf("rating_in", kRatingPlaces);
    service.ratingInGuide = (places & kInGuide) != 0;
    service.ratingInPmt = (places & kInPmt) != 0;
  }
}

Service parseService(const Node& node, Medium medium, const Channel& channel, LineupIds& lineupIds,
                     ChannelIds& channelIds) {
  node.allowKeys({"program", "pmt_pid", "version", "name", "extended_name", "major", "minor",
                  "one_part", "source_id", "service_type", "hidden", "hide_guide", "sld",
                  "programmes", "guide_offset", "rating_in", "streams", "captions"});
  Service service;
  service.program = static_cast<uint16_t>(node.integer("program", 1, 0xFFFF));
  channelIds.programs.add(service.program, node.at("program"));
  service.pmtPid = parsePid(node, "pmt_pid", channelIds);
  service.version = static_cast<uint8_t>(node.integerOr("version", 0, 31, channel.version));
  if (channel.psip) {
    parseVirtualChannel(node, medium, service, lineupIds, channelIds);
  } else {
    node.forbidKeys(
        {"name", "extended_name", "major", "minor", "one_part", "source_id", "service_type",
         "hidden", "hide_guide", "sld", "programmes", "guide_offset", "rating_in"},
        "not in a channel without psip");
  }
  for (const Node& stream : node.elements("streams", 0, kMaxStreams)) {
    service.streams.push_back(parseStream(stream, channelIds));
  }
  service.captions = parseCaptions(node);
  if (!service.captions.empty() && service.streams.empty()) {
    node.at("captions").fail("only with streams, the first of which they belong to");
  }
  size_t size = buildPmt(service, service.version, {}).size();
  if (service.ratingInPmt) {
    for (const Programme& programme : service.programmes) {
      size = std::max(size, buildPmt(service, service.version, programme.ratings).size());
    }
  }
  if (size > kMaxSectionSize) {
    node.fail("takes a PMT of " + std::to_string(size) + " bytes, it may have " +
              std::to_string(kMaxSectionSize));
  }
  return service;
}

Channel parseChannel(const Node& node, Medium medium, LineupIds& lineupIds) {
  node.allowKeys({"frequency", "tsid", "version", "guide_version", "psip", "modulation", "services",
                  "alerts"});
  Channel channel;
  channel.frequency = static_cast<uint32_t>(node.integer("frequency", 54'000'000, 1'002'000'000));
  lineupIds.frequencies.add(channel.frequency, node.at("frequency"));
  channel.tsid = static_cast<uint16_t>(node.integer("tsid", 0, 0xFFFF));
  channel.version = static_cast<uint8_t>(node.integerOr("version", 0, 31, 0));
  const int64_t guideVersion = node.integerOr("guide_version", 0, 31, 0);
  channel.guideVersion = static_cast<uint8_t>((channel.version + guideVersion) % 32);
  channel.psip = node.booleanOr("psip", true);
  if (!channel.psip) node.forbidKeys({"guide_version", "alerts"}, "not in a channel without psip");
  channel.alerts = parseAlerts(node);
  if (medium == Medium::kAir) {
    node.forbidKeys({"modulation"}, "only for cable");
    channel.modulation = kModulation8Vsb;
  } else {
    channel.modulation = node.has("modulation") ? node.oneOf("modulation", kCableModulations)
                                                : kCableModulations[1].value;
  }
  ChannelIds channelIds;
  for (const Node& service : node.elements("services", 1, kMaxServices)) {
    channel.services.push_back(parseService(service, medium, channel, lineupIds, channelIds));
  }
  return channel;
}

Lineup parseRoot(const Node& node) {
  node.allowKeys({"medium", "daylight_saving", "guide_hours", "rating_regions", "channels"});
  Lineup lineup;
  lineup.medium = static_cast<Medium>(node.oneOf("medium", kMedia));
  if (node.has("daylight_saving")) {
    const Node saving = node.at("daylight_saving");
    saving.allowKeys({"status", "day_of_month", "hour"});
    lineup.daylightSaving =
        DaylightSaving{saving.booleanOr("status", false),
                       static_cast<uint8_t>(saving.integerOr("day_of_month", 0, 31, 0)),
                       static_cast<uint8_t>(saving.integerOr("hour", 0, 23, 0))};
  }
  lineup.guideHours =
      static_cast<unsigned>(node.integerOr("guide_hours", 1, 3 * kMaxInstances, 24));
  lineup.ratingRegions = parseRatingRegions(node);
  LineupIds ids;
  for (const Node& channel : node.elements("channels", 1, kMaxChannels)) {
    lineup.channels.push_back(parseChannel(channel, lineup.medium, ids));
  }
  return lineup;
}

// Returns the first error of the JSON reader in one line. The reader's format is
// "* Line 1, Column 2\n  reason\n".
std::string firstJsonError(std::string errors) {
  const size_t next = errors.find("\n*");
  if (next != std::string::npos) errors.resize(next);
  if (errors.rfind("* ", 0) == 0) errors.erase(0, 2);
  const size_t end = errors.find_last_not_of(" \n");
  errors.resize(end == std::string::npos ? 0 : end + 1);
  const size_t reason = errors.find("\n  ");
  if (reason != std::string::npos) errors.replace(reason, 3, ": ");
  return printable(errors);
}

}  // namespace

Lineup parseLineup(const std::string& json, const std::string& file) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kMaxNesting;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  try {
    std::string errors;
    if (!reader->parse(json.data(), json.data() + json.size(), &root, &errors)) {
      throw LineupError(file + ": " + firstJsonError(errors));
    }
  } catch (const Json::Exception&) {
    throw LineupError(file + ": nested too deeply");
  }
  return parseRoot(Node(root, file, ""));
}

Lineup readLineup(const std::string& file) {
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::string json(kMaxFileSize + 1, '\0');
  in.read(json.data(), static_cast<std::streamsize>(json.size()));
  if (!in.eof() && in.fail()) {
    throw LineupError(file + ": cannot read: " + std::strerror(errno != 0 ? errno : EIO));
  }
  json.resize(static_cast<size_t>(in.gcount()));
  if (json.size() > kMaxFileSize) throw LineupError(file + ": larger than 4 MiB");
  return parseLineup(json, file);
}

}  // namespace psipmux
