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
constexpr unsigned kMaxServices = 250;  // a PAT in one section of 1024 bytes
constexpr unsigned kMaxStreams = 40;    // a service location descriptor of 255 bytes
constexpr size_t kShortNameUnits = 7;
constexpr size_t kMaxExtendedNameBytes = 247;  // a descriptor of 255 bytes
constexpr int64_t kFirstPid = 0x10;
constexpr int64_t kLastPid = 0x1FFA;  // PSIP has the next one

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

/// What must be unique in a lineup. Source ids from 0x1000 on name a source in a whole region,
/// those below only within their transport stream (A/65 6.3.1).
struct LineupIds {
  Unique frequencies;
  Unique numbers;
  Unique regional_sources;
};

struct ChannelIds {
  Unique programs;
  Unique pids;
  Unique local_sources;
};

uint16_t ParsePid(const Node& node, const char* key, ChannelIds& ids) {
  const auto pid = static_cast<uint16_t>(node.Integer(key, kFirstPid, kLastPid));
  for (const uint16_t first : {kEitPid, kEttPid}) {
    if (pid >= first && pid < first + kMaxInstances) {
      node.At(key).Fail("must not be one of the guide's, " + std::to_string(first) + " to " +
                        std::to_string(first + kMaxInstances - 1));
    }
  }
  ids.pids.Add(pid, node.At(key));
  return pid;
}

std::string ParseLanguage(const Node& node, const char* key) {
  const std::string language = node.String(key);
  if (!IsLanguage(language)) node.At(key).Fail("must be three lower-case letters");
  return language;
}

Stream ParseStream(const Node& node, ChannelIds& ids) {
  node.AllowKeys({"type", "pid", "language", "bsmod", "full_svc", "mainid", "asvcflags",
                  "dual_mono", "second_language"});
  Stream stream;
  stream.type = node.OneOf("type", kStreamTypes);
  stream.pid = ParsePid(node, "pid", ids);
  if (node.Has("language")) {
    stream.language = ParseLanguage(node, "language");
  }
  if (stream.type != kStreamTypeAc3) {
    node.ForbidKeys({"bsmod", "full_svc", "mainid", "asvcflags", "dual_mono", "second_language"},
                    "only for streams of type ac3");
    return stream;
  }
  stream.bsmod = static_cast<uint8_t>(node.IntegerOr("bsmod", 0, 7, 0));
  const bool main_service = stream.bsmod < 2;
  stream.full_svc = node.BooleanOr("full_svc", main_service);
  if (main_service) {
    node.ForbidKeys({"asvcflags"}, "only with a bsmod of 2 to 7");
    stream.mainid = static_cast<uint8_t>(node.IntegerOr("mainid", 0, 7, 0));
  } else {
    node.ForbidKeys({"mainid"}, "only with a bsmod of 0 or 1");
    stream.asvcflags = static_cast<uint8_t>(node.Integer("asvcflags", 0, 255));
  }
  stream.dual_mono = node.BooleanOr("dual_mono", false);
  if (stream.dual_mono && stream.bsmod == 7) node.At("dual_mono").Fail("not with a bsmod of 7");
  if (node.Has("second_language")) {
    if (!stream.dual_mono || stream.language.empty()) {
      node.At("second_language").Fail("only with dual_mono and language");
    }
    stream.second_language = ParseLanguage(node, "second_language");
  }
  return stream;
}

void ParseNumber(const Node& node, Medium medium, Service& service, LineupIds& ids) {
  if (node.Has("one_part")) {
    if (medium != Medium::kCable) node.At("one_part").Fail("only for cable");
    node.ForbidKeys({"major", "minor"}, "not with one_part");
    const auto number = static_cast<uint32_t>(node.Integer("one_part", 0, 0x3FFF));
    service.major = static_cast<uint16_t>(0x3F0 | number >> 10);
    service.minor = static_cast<uint16_t>(number & 0x3FF);
  } else {
    service.major = static_cast<uint16_t>(node.Integer("major", 1, 999));
    service.minor = static_cast<uint16_t>(node.Integer("minor", 0, 999));
  }
  ids.numbers.Add(static_cast<uint32_t>(service.major) << 16 | service.minor,
                  node.At(node.Has("one_part") ? "one_part" : "minor"));
}

void ParseVirtualChannel(const Node& node, Medium medium, Service& service, LineupIds& lineup_ids,
                         ChannelIds& channel_ids) {
  service.name = node.Utf16("name");
  const auto surrogate = [](char16_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; };
  if (std::any_of(service.name.begin(), service.name.end(), surrogate)) {
    node.At("name").Fail("must not contain characters above U+FFFF");
  }
  if (service.name.size() > kShortNameUnits) {
    node.At("name").Fail("must be at most 7 UTF-16 units");
  }
  if (node.Has("extended_name")) {
    service.extended_name = node.Utf16("extended_name");
    const bool wide = std::any_of(service.extended_name.begin(), service.extended_name.end(),
                                  [](char16_t unit) { return unit > 0xFF; });
    const size_t limit = wide ? kMaxExtendedNameBytes / 2 : kMaxExtendedNameBytes;
    if (service.extended_name.empty() || service.extended_name.size() > limit) {
      node.At("extended_name").Fail("must be 1 to " + std::to_string(limit) + " UTF-16 units");
    }
  }
  ParseNumber(node, medium, service, lineup_ids);
  service.source_id = static_cast<uint16_t>(node.Integer("source_id", 1, 0xFFFF));
  (service.source_id < 0x1000 ? channel_ids.local_sources : lineup_ids.regional_sources)
      .Add(service.source_id, node.At("source_id"));
  service.service_type =
      node.Has("service_type") ? node.OneOf("service_type", kServiceTypes) : kServiceTypes[0].value;
  service.hidden = node.BooleanOr("hidden", false);
  service.hide_guide = node.BooleanOr("hide_guide", false);
  service.sld = node.BooleanOr("sld", true);
  service.programmes = ParseProgrammes(node);
  service.guide_offset = static_cast<uint32_t>(node.IntegerOr("guide_offset", 0, 1439, 0) * 60);
  if (node.Has("rating_in")) {
    if (service.programmes.empty()) node.At("rating_in").Fail("only with programmes");
    const uint8_t places = node.OneOf("rating_in", kRatingPlaces);
    service.rating_in_guide = (places & kInGuide) != 0;
    service.rating_in_pmt = (places & kInPmt) != 0;
  }
}

Service ParseService(const Node& node, Medium medium, const Channel& channel, LineupIds& lineup_ids,
                     ChannelIds& channel_ids) {
  node.AllowKeys({"program", "pmt_pid", "version", "name", "extended_name", "major", "minor",
                  "one_part", "source_id", "service_type", "hidden", "hide_guide", "sld",
                  "programmes", "guide_offset", "rating_in", "streams", "captions"});
  Service service;
  service.program = static_cast<uint16_t>(node.Integer("program", 1, 0xFFFF));
  channel_ids.programs.Add(service.program, node.At("program"));
  service.pmt_pid = ParsePid(node, "pmt_pid", channel_ids);
  service.version = static_cast<uint8_t>(node.IntegerOr("version", 0, 31, channel.version));
  if (channel.psip) {
    ParseVirtualChannel(node, medium, service, lineup_ids, channel_ids);
  } else {
    node.ForbidKeys(
        {"name", "extended_name", "major", "minor", "one_part", "source_id", "service_type",
         "hidden", "hide_guide", "sld", "programmes", "guide_offset", "rating_in"},
        "not in a channel without psip");
  }
  for (const Node& stream : node.Elements("streams", 0, kMaxStreams)) {
    service.streams.push_back(ParseStream(stream, channel_ids));
  }
  service.captions = ParseCaptions(node);
  if (!service.captions.empty() && service.streams.empty()) {
    node.At("captions").Fail("only with streams, the first of which they belong to");
  }
  size_t size = BuildPmt(service, service.version, {}).size();
  if (service.rating_in_pmt) {
    for (const Programme& programme : service.programmes) {
      size = std::max(size, BuildPmt(service, service.version, programme.ratings).size());
    }
  }
  if (size > kMaxSectionSize) {
    node.Fail("takes a PMT of " + std::to_string(size) + " bytes, it may have " +
              std::to_string(kMaxSectionSize));
  }
  return service;
}

Channel ParseChannel(const Node& node, Medium medium, LineupIds& lineup_ids) {
  node.AllowKeys({"frequency", "tsid", "version", "guide_version", "psip", "modulation", "services",
                  "alerts"});
  Channel channel;
  channel.frequency = static_cast<uint32_t>(node.Integer("frequency", 54'000'000, 1'002'000'000));
  lineup_ids.frequencies.Add(channel.frequency, node.At("frequency"));
  channel.tsid = static_cast<uint16_t>(node.Integer("tsid", 0, 0xFFFF));
  channel.version = static_cast<uint8_t>(node.IntegerOr("version", 0, 31, 0));
  const int64_t guide_version = node.IntegerOr("guide_version", 0, 31, 0);
  channel.guide_version = static_cast<uint8_t>((channel.version + guide_version) % 32);
  channel.psip = node.BooleanOr("psip", true);
  if (!channel.psip) node.ForbidKeys({"guide_version", "alerts"}, "not in a channel without psip");
  channel.alerts = ParseAlerts(node);
  if (medium == Medium::kAir) {
    node.ForbidKeys({"modulation"}, "only for cable");
    channel.modulation = kModulation8Vsb;
  } else {
    channel.modulation = node.Has("modulation") ? node.OneOf("modulation", kCableModulations)
                                                : kCableModulations[1].value;
  }
  ChannelIds channel_ids;
  for (const Node& service : node.Elements("services", 1, kMaxServices)) {
    channel.services.push_back(ParseService(service, medium, channel, lineup_ids, channel_ids));
  }
  return channel;
}

Lineup ParseRoot(const Node& node) {
  node.AllowKeys({"medium", "daylight_saving", "guide_hours", "rating_regions", "channels"});
  Lineup lineup;
  lineup.medium = static_cast<Medium>(node.OneOf("medium", kMedia));
  if (node.Has("daylight_saving")) {
    const Node saving = node.At("daylight_saving");
    saving.AllowKeys({"status", "day_of_month", "hour"});
    lineup.daylight_saving =
        DaylightSaving{saving.BooleanOr("status", false),
                       static_cast<uint8_t>(saving.IntegerOr("day_of_month", 0, 31, 0)),
                       static_cast<uint8_t>(saving.IntegerOr("hour", 0, 23, 0))};
  }
  lineup.guide_hours =
      static_cast<unsigned>(node.IntegerOr("guide_hours", 1, 3 * kMaxInstances, 24));
  lineup.rating_regions = ParseRatingRegions(node);
  LineupIds ids;
  for (const Node& channel : node.Elements("channels", 1, kMaxChannels)) {
    lineup.channels.push_back(ParseChannel(channel, lineup.medium, ids));
  }
  return lineup;
}

// The JSON reader lists its errors over several lines ("* Line 1, Column 2\n  reason\n").
std::string FirstJsonError(std::string errors) {
  const size_t next = errors.find("\n*");
  if (next != std::string::npos) errors.resize(next);
  if (errors.rfind("* ", 0) == 0) errors.erase(0, 2);
  const size_t end = errors.find_last_not_of(" \n");
  errors.resize(end == std::string::npos ? 0 : end + 1);
  const size_t reason = errors.find("\n  ");
  if (reason != std::string::npos) errors.replace(reason, 3, ": ");
  return Printable(errors);
}

}  // namespace

Lineup ParseLineup(const std::string& json, const std::string& file) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["stackLimit"] = kMaxNesting;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value root;
  try {
    std::string errors;
    if (!reader->parse(json.data(), json.data() + json.size(), &root, &errors)) {
      throw LineupError(file + ": " + FirstJsonError(errors));
    }
  } catch (const Json::Exception&) {
    throw LineupError(file + ": nested too deeply");
  }
  return ParseRoot(Node(root, file, ""));
}

Lineup ReadLineup(const std::string& file) {
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::string json(kMaxFileSize + 1, '\0');
  in.read(json.data(), static_cast<std::streamsize>(json.size()));
  if (!in.eof() && in.fail()) {
    throw LineupError(file + ": cannot read: " + std::strerror(errno != 0 ? errno : EIO));
  }
  json.resize(static_cast<size_t>(in.gcount()));
  if (json.size() > kMaxFileSize) throw LineupError(file + ": larger than 4 MiB");
  return ParseLineup(json, file);
}

}  // namespace psipmux
