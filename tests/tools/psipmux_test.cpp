#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "calendar.h"
#include "lineup.h"
#include "mux.h"
#include "psipmux_decoder.h"
#include "psipmux_fixture.h"
#include "sections.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Transport stream level, checked on the bytes.

uint32_t slowCrc(const uint8_t* data, size_t size) {
  uint32_t crc = ~0u;
  for (size_t i = 0; i < size * 8; ++i) {
    const uint32_t bit = data[i / 8] >> (7 - i % 8) & 1u;
    crc = crc << 1 ^ ((crc >> 31 ^ bit) != 0 ? 0x04C11DB7u : 0u);
  }
  return crc;
}

using Bytes = std::vector<uint8_t>;

struct Packets {
  std::map<unsigned, size_t>
      longest;  // between two equal sections of a table id, in packets; of EIT-0 by its PID
  std::map<unsigned, std::set<Bytes>> sections;  // by PID
};

/// Checks continuity and CRC over two loops. Expects sections to begin after a pointer_field of
/// zero.
Packets checkPackets(const Bytes& stream) {
  EXPECT_EQ(0u, stream.size() % 188);
  EXPECT_LT(stream.size(), 3'100'000u);
  std::map<unsigned, unsigned> continuity;
  std::map<unsigned, Bytes> section;                   // by PID
  std::map<std::array<unsigned, 4>, size_t> lastSeen;  // PID, table id, extension, section
  Packets result;
  const size_t count = stream.size() / 188;
  for (size_t i = 0; i < 2 * count; ++i) {
    const uint8_t* packet = &stream[i % count * 188];
    EXPECT_EQ(0x47, packet[0]);
    const unsigned pid = (packet[1] & 0x1Fu) << 8 | packet[2];
    if (pid == 0x1FFF) continue;
    EXPECT_EQ(0x10, packet[3] & 0xF0);
    const unsigned counter = packet[3] & 0x0Fu;
    if (const auto it = continuity.find(pid); it != continuity.end()) {
      EXPECT_EQ((it->second + 1) % 16, counter) << "PID " << pid << " packet " << i;
    }
    continuity[pid] = counter;
    Bytes& bytes = section[pid];
    if ((packet[1] & 0x40) != 0) {
      EXPECT_TRUE(bytes.empty()) << "PID " << pid << " packet " << i;
      EXPECT_EQ(0, packet[4]);
      bytes.assign(packet + 5, packet + 188);
      const std::array<unsigned, 4> key = {pid, bytes[0], bytes[3] * 256u + bytes[4], bytes[6]};
      if (const auto it = lastSeen.find(key); it != lastSeen.end()) {
        size_t& longest = result.longest[pid == 0x1D00 ? pid : bytes[0]];
        longest = std::max(longest, i - it->second);
      }
      lastSeen[key] = i;
    } else if (bytes.empty()) {
      EXPECT_TRUE(std::all_of(packet + 4, packet + 188, [](uint8_t b) { return b == 0xFF; }));
      continue;
    } else {
      bytes.insert(bytes.end(), packet + 4, packet + 188);
    }
    const size_t size = 3 + ((bytes[1] & 0x0Fu) << 8 | bytes[2]);
    if (bytes.size() >= size) {
      bytes.resize(size);
      EXPECT_EQ(0u, slowCrc(bytes.data(), size)) << "PID " << pid << " packet " << i;
      result.sections[pid].insert(std::exchange(bytes, {}));
    }
  }
  return result;
}

// Table level: the tables of an independent decoder match the lineup.

using Lines = std::set<std::string>;

constexpr uint32_t kSomeTime = 1460922004;  // 2026-04-22T19:39:46Z

// Returns the lines of the lineup, without descriptors.
std::string pmt(const psipmux::Service& service) {
  std::ostringstream line;
  line << "PMT " << service.program << " at " << service.pmtPid << " version " << +service.version
       << " PCR " << (service.streams.empty() ? 0x1FFF : service.streams[0].pid);
  for (const psipmux::Stream& s : service.streams) line << ", " << +s.type << " at " << s.pid;
  return line.str();
}

std::string virtualChannel(const psipmux::Channel& channel, const psipmux::Service& service) {
  Bytes name;
  for (const char16_t unit : service.name) {
    name.push_back(static_cast<uint8_t>(unit >> 8));
    name.push_back(static_cast<uint8_t>(unit));
  }
  name.resize(14);
  std::ostringstream line;
  line << "channel " << service.major << '-' << service.minor << descriptor(0, name)
       << " modulation " << +channel.modulation << " tsid " << channel.tsid << " program "
       << service.program << " hidden " << service.hidden << service.hideGuide << " type "
       << +service.serviceType << " source " << service.sourceId;
  return line.str();
}

void expectChannel(const psipmux::Lineup& lineup, const psipmux::Channel& channel,
                   const Bytes& stream) {
  const Packets packets = checkPackets(stream);
  const std::string tsid = " tsid " + std::to_string(channel.tsid);
  const std::string version = " version " + std::to_string(channel.version);
  Lines lines{"PAT" + tsid + version};
  for (const psipmux::Service& service : channel.services) lines.insert(pmt(service));
  if (channel.psip) {
    const bool cable = lineup.medium == psipmux::Medium::kCable;
    const auto announce = [&](unsigned type, unsigned pid, const std::string& tableVersion,
                              const std::set<unsigned>& tableIds, unsigned region) {
      size_t bytes = 0;
      for (const Bytes& section : packets.sections.at(pid)) {
        if (tableIds.count(section[0]) != 0 && (region == 0 || section[4] == region)) {
          bytes += section.size();
        }
      }
      lines.insert("MGT" + version + " type " + std::to_string(type) + " at " +
                   std::to_string(pid) + tableVersion + " bytes " + std::to_string(bytes));
    };
    announce(cable ? 2 : 0, 8187, version, {0xC8, 0xC9}, 0);
    for (const auto& [pid, sections] : packets.sections) {
      if (pid >= 0x1D00 && pid < 0x1D80) announce(pid - 0x1D00 + 0x100, pid, version, {0xCB}, 0);
      if (pid >= 0x1E00 && pid < 0x1E80) announce(pid - 0x1E00 + 0x200, pid, version, {0xCC}, 0);
    }
    for (const psipmux::RatingRegion& region : lineup.ratingRegions) {
      announce(0x300 + region.region, 8187, " version " + std::to_string(region.version), {0xCA},
               region.region);
    }
    lines.insert((cable ? "CVCT" : "TVCT") + tsid + version);
    lines.insert("STT " + std::to_string(kSomeTime) + " offset 18");
    for (const auto& service : channel.services) lines.insert(virtualChannel(channel, service));
  }
  Lines decoded;
  for (std::string line : decode(stream)) {
    for (size_t at = 0; (at = line.find(" [", at)) != std::string::npos;) {
      if (line[at + 2] == '0') {
        ++at;  // the name
      } else {
        line.erase(at, line.find(']', at) + 1 - at);
      }
    }
    decoded.insert(line);
  }
  EXPECT_EQ(lines, decoded);
}

std::map<std::string, std::u16string> strings(const Bytes& text) {
  std::map<std::string, std::u16string> strings;
  size_t at = 1;
  for (unsigned n = text.at(0); n > 0; --n) {
    std::u16string& string = strings[{text.begin() + at, text.begin() + at + 3}];
    unsigned segments = text.at(at + 3);
    for (at += 4; segments > 0; --segments) {
      EXPECT_EQ(0, text.at(at));
      const bool wide = text.at(at + 1) == 0x3F;
      EXPECT_TRUE(wide || text.at(at + 1) == 0);
      const size_t end = at + 3 + text.at(at + 2);
      for (at += 3; at < end; ++at) {
        unsigned unit = text.at(at);
        if (wide) unit = unit << 8 | text.at(++at);
        string.push_back(static_cast<char16_t>(unit));
      }
    }
  }
  EXPECT_EQ(text.size(), at);
  return strings;
}

std::map<std::string, std::u16string> strings(const psipmux::Text& text) {
  std::map<std::string, std::u16string> strings;
  for (const auto& each : text) strings[each.language] = each.text;
  return strings;
}

// Expects a guide from the segment of kSomeTime on, with programmes one after the other.
void expectGuide(const psipmux::Lineup& lineup, const psipmux::Channel& channel,
                 const Bytes& stream) {
  const unsigned begin = kSomeTime - (1 * 60 + 39) * 60 - 46;  // 18:00:00
  const DecodedGuide guide = decodeGuide(stream);
  EXPECT_EQ(Lines{}, guide.complaints);
  size_t texts = 0;
  size_t services = 0;
  for (const psipmux::Service& service : channel.services) {
    if (service.programmes.empty()) continue;
    ++services;
    size_t next = service.programmes.size();
    std::map<unsigned, unsigned> ids;  // of events by start
    for (unsigned k = 0; k < lineup.guideHours / 3; ++k) {
      const unsigned from = begin + k * 10800;
      ASSERT_EQ(1u, guide.events.count({k, service.sourceId})) << k;
      const auto& events = guide.events.at({k, service.sourceId});
      EXPECT_LE(events.front().start, from);
      EXPECT_GE(events.back().start + events.back().length, from + 10800);
      for (size_t e = 0; e < events.size(); ++e) {
        const GuideEvent& event = events[e];
        EXPECT_GT(event.start + event.length, from);
        EXPECT_LT(event.start, from + 10800);
        if (e > 0) {
          EXPECT_EQ(events[e - 1].start + events[e - 1].length, event.start);
        }
        const auto [known, added] = ids.emplace(event.start, event.id);
        EXPECT_EQ(known->second, event.id);
        const auto title = strings(event.title);
        if (next == service.programmes.size()) {  // the first event of all
          for (next = 0; strings(service.programmes.at(next).title) != title;) ++next;
        } else if (added) {
          next = (next + 1) % service.programmes.size();
        }
        const psipmux::Programme& programme = service.programmes[next];
        EXPECT_EQ(strings(programme.title), title);
        EXPECT_EQ(programme.duration, event.length);
        EXPECT_EQ(programme.description.empty() ? 0u : 1u, event.etmLocation);
        if (event.etmLocation == 0) continue;
        const auto text = guide.texts.find({k, service.sourceId << 16 | event.id << 2 | 2});
        ASSERT_NE(guide.texts.end(), text);
        EXPECT_EQ(strings(programme.description), strings(text->second));
        ++texts;
      }
    }
    std::set<unsigned> distinct;
    for (const auto& [start, id] : ids) distinct.insert(id);
    EXPECT_EQ(ids.size(), distinct.size());
  }
  EXPECT_EQ(services * lineup.guideHours / 3, guide.events.size());
  EXPECT_EQ(texts, guide.texts.size());
}

TEST_F(PsipmuxTest, SampleLineupsDecodeToWhatTheySay) {
  const std::string lineups = LINEUPS;
  const Outcome outcome = runPsipmux({lineups + "/metro-air.json", lineups + "/metro-cable.json",
                                      "--out", folder_ / "air", "--start", "2026-04-22T19:39:46Z"});
  ASSERT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("", outcome.out + outcome.err);
  Lines expectedFiles;
  for (const char* name : {"metro-air.json", "metro-cable.json"}) {
    const psipmux::Lineup lineup = psipmux::readLineup(lineups + "/" + name);
    const bool air = lineup.medium == psipmux::Medium::kAir;
    for (const psipmux::Channel& channel : lineup.channels) {
      SCOPED_TRACE(name + std::string(" ") + std::to_string(channel.frequency));
      const std::string file =
          (air ? "air/vsb/" : "air/qam/") + std::to_string(channel.frequency) + ".ts";
      expectedFiles.insert(file);
      const Bytes stream = readStream(folder_ / file);
      ASSERT_FALSE(stream.empty());
      const auto longest = checkPackets(stream).longest;
      EXPECT_LE(longest.at(0x00), 100u);
      EXPECT_LE(longest.at(0x02), 400u);
      EXPECT_LE(longest.at(0xC7), 150u);
      EXPECT_LE(longest.at(air ? 0xC8 : 0xC9), 400u);
      EXPECT_LE(longest.at(0xCD), 1000u);
      EXPECT_LE(longest.at(0x1D00), 500u);
      expectChannel(lineup, channel, stream);
      expectGuide(lineup, channel, stream);
    }
  }
  EXPECT_EQ(expectedFiles, files());
}

Bytes streamOf(const psipmux::Lineup& lineup) {
  return psipmux::multiplex(lineup, lineup.channels[0], kSomeTime);
}

TEST(PsipmuxTables, EveryFieldReachesTheStream) {
  const struct {
    const char* json;
    Lines lines;
  } kCases[] = {
      {R"({"medium": "air",
    "channels": [{"frequency": 177000000, "tsid": 513, "version": 31, "services": [
      {"program": 3, "pmt_pid": 48, "version": 5, "major": 999, "minor": 7, "name": "ŁTéVXYZ",
       "extended_name": "Été", "source_id": 65535, "service_type": "data", "hidden": true,
       "hide_guide": true, "sld": false, "streams": [
        {"type": "mpeg2-video", "pid": 8186},
        {"type": "ac3", "pid": 52, "language": "eng", "mainid": 5},
        {"type": "ac3", "pid": 53, "language": "fra", "bsmod": 2, "full_svc": true,
         "asvcflags": 33},
        {"type": "ac3", "pid": 54, "bsmod": 2, "asvcflags": 1},
        {"type": "ac3", "pid": 55, "language": "eng", "dual_mono": true,
         "second_language": "spa"},
        {"type": "ac3", "pid": 56, "dual_mono": true}],
       "captions": ["eng", {"language": "spa", "line21_field": 1, "wide": true}]}]}]})",
       {"PAT tsid 513 version 31",
        "PMT 3 at 48 version 5 PCR 8186, "
        "2 at 8186 [86: e2 65 6e 67 c1 3f ff 73 70 61 7f 7f ff], "
        "129 at 52 [a: 65 6e 67 0] [81: 8 28 5 ff af 1 bf 65 6e 67], "
        "129 at 53 [a: 66 72 61 3] [81: 8 28 45 ff 21 1 bf 66 72 61], "
        "129 at 54 [81: 8 28 44 ff 1 1 3f], "
        "129 at 55 [a: 65 6e 67 0 73 70 61 0] [81: 8 28 1 ff ff f 1 ff 65 6e 67 73 70 61], "
        "129 at 56 [81: 8 28 1 ff ff f 1 3f]",
        "MGT version 31 type 0 at 8187 version 31 bytes 61", "TVCT tsid 513 version 31",
        "STT 1460922004 offset 18",
        "channel 999-7 [0: 1 41 0 54 0 e9 0 56 0 58 0 59 0 5a] modulation 4 tsid 513 "
        "program 3 hidden 11 type 4 source 65535 [a0: 1 65 6e 67 1 0 0 3 c9 74 e9]"}},
      {R"({"medium": "cable",
    "channels": [{"frequency": 57000000, "tsid": 1, "modulation": "64qam", "services": [
      {"program": 2, "pmt_pid": 48, "one_part": 1203, "name": "Middle!", "source_id": 2,
       "extended_name": "♥", "service_type": "radio",
       "streams": [{"type": "h264", "pid": 33, "language": "eng"}]}]}]})",
       {"PAT tsid 1 version 0", "PMT 2 at 48 version 0 PCR 33, 27 at 33 [a: 65 6e 67 0]",
        "MGT version 0 type 2 at 8187 version 0 bytes 71", "CVCT tsid 1 version 0",
        "STT 1460922004 offset 18",
        "channel 1009-179 [0: 0 4d 0 69 0 64 0 64 0 6c 0 65 0 21] modulation 2 tsid 1 "
        "program 2 hidden 00 type 3 source 2 [a1: e0 21 1 1b e0 21 65 6e 67]"
        " [a0: 1 65 6e 67 1 0 3f 2 26 65]"}},
      {R"({"medium": "air",
    "channels": [{"frequency": 177000000, "tsid": 1, "psip": false, "services": [
      {"program": 1, "pmt_pid": 32, "streams": []}]}]})",
       {"PAT tsid 1 version 0", "PMT 1 at 32 version 0 PCR 8191"}},
  };
  for (const auto& each : kCases) {
    EXPECT_EQ(each.lines, decode(streamOf(psipmux::parseLineup(each.json, "test.json"))));
  }
}

TEST(PsipmuxTables, EveryFieldOfTheGuideReachesTheStream) {
  const psipmux::Lineup lineup = psipmux::parseLineup(R"({"medium": "air", "guide_hours": 3,
    "channels": [{"frequency": 177000000, "tsid": 1, "version": 3, "guide_version": 31, "services": [
      {"program": 3, "pmt_pid": 48, "major": 9, "minor": 7, "name": "One", "source_id": 258,
       "streams": [], "guide_offset": 30, "rating_in": "both", "programmes": [
        {"minutes": 180, "title": {"fra": "Été", "spa": "Ł"}, "description": "D",
         "rating": {"us_tv": "TV-14-D-V", "us_movie": "PG-13", "ca_english": "14+",
          "ca_french": "13 ans+", "regions": [{"region": 5, "dimensions": {"10": 2}}]},
         "captions": ["eng", {"language": "spa", "service": 5, "wide": true},
          {"language": "fra", "line21_field": 1, "easy_reader": true}],
         "genres": ["education", "wrestling", "movie"]},
        {"minutes": 1260, "title": "", "rating": "TV-Y7-FV"}]}]}]})",
                                                      "test.json");
  // 03:00 on the day that began at 1460851218: the first programme runs until 03:30.
  const Bytes stream = psipmux::multiplex(lineup, lineup.channels[0], 1460851218 + 3 * 3600);
  const Lines tables = decode(stream);
  EXPECT_EQ(1u, tables.count("TVCT tsid 1 version 3"));
  EXPECT_EQ(1u, tables.count("MGT version 2 type 256 at 7424 version 2 bytes 170"));
  EXPECT_EQ(1u, tables.count("MGT version 2 type 512 at 7680 version 2 bytes 26"));
  const auto [events, texts, complaints] = decodeGuide(stream);
  EXPECT_EQ(Lines{}, complaints);
  ASSERT_EQ(2u, events.at({0, 258}).size());
  const GuideEvent& event = events.at({0, 258})[0];
  const GuideEvent& next = events.at({0, 258})[1];
  EXPECT_EQ(1460851218u + 1800, event.start);
  EXPECT_EQ(
      (Bytes{2, 'f', 'r', 'a', 1, 0, 0, 3, 0xC9, 't', 0xE9, 's', 'p', 'a', 1, 0, 0x3F, 2, 1, 0x41}),
      event.title);
  EXPECT_EQ(
      " [86: e3 65 6e 67 c1 3f ff 73 70 61 c5 7f ff 66 72 61 7f bf ff]"
      " [87: c3 1 4 0 f4 1 f1 4 f1 7 f4 11 1 65 6e 67 1 0 0 9 54 56 2d 31 34 2d 44 2d 56"
      " 2 2 0 f5 1 f3 b 1 65 6e 67 1 0 0 3 31 34 2b 5 1 a f2 0]"
      " [ab: e3 20 ad 22]",
      event.descriptors);
  EXPECT_EQ(event.start + 3 * 3600, next.start);
  EXPECT_EQ((Bytes{1, 'e', 'n', 'g', 0}), next.title);
  EXPECT_EQ(" [87: c1 1 2 5 f2 6 f1 10 1 65 6e 67 1 0 0 8 54 56 2d 59 37 2d 46 56]",
            next.descriptors);
  EXPECT_EQ(1u, texts.size());
  EXPECT_EQ((Bytes{1, 'e', 'n', 'g', 1, 0, 0, 1, 'D'}),
            texts.at({0, 258u << 16 | event.id << 2 | 2}));

  // The rating is in the PMT; for the second programme, the 33818th since 1980, only there.
  const std::string firstRating = event.descriptors.substr(event.descriptors.find(" [87"));
  EXPECT_EQ(1u, tables.count("PMT 3 at 48 version 27" +
                             firstRating.substr(0, firstRating.find(" [ab")) + " PCR 8191"));
  psipmux::Lineup changed = lineup;
  changed.channels[0].services[0].ratingInGuide = false;
  const Bytes later = psipmux::multiplex(changed, changed.channels[0], next.start);
  EXPECT_EQ(1u, decode(later).count("PMT 3 at 48 version 28" + next.descriptors + " PCR 8191"));
  EXPECT_EQ("", decodeGuide(later).events.at({0, 258})[1].descriptors);
}

// The first section of a table on the base PID.
Bytes sectionOf(const Bytes& stream, uint8_t tableId, uint8_t extension) {
  Bytes section;
  for (size_t i = 0; i + 188 <= stream.size(); i += 188) {
    const uint8_t* packet = &stream[i];
    if ((packet[1] & 0x1F) != 0x1F || packet[2] != 0xFB) continue;
    const bool start = (packet[1] & 0x40) != 0;
    if (section.empty() && !(start && packet[5] == tableId && packet[9] == extension)) continue;
    section.insert(section.end(), packet + (start ? 5 : 4), packet + 188);
    const size_t size = 3 + ((section[1] & 0x0Fu) << 8 | section[2]);
    if (section.size() < size) continue;
    section.resize(size);
    return section;
  }
  ADD_FAILURE() << "no such table";
  return Bytes(4096);
}

TEST(PsipmuxTables, RatingRegionAndAlertAreAsOnTheAir) {
  const fs::path captures = fs::path(ATSC_CAPTURES_DIR) / "sections";
  if (!fs::exists(captures)) GTEST_SKIP() << "no field captures in " << captures;
  EXPECT_EQ(sectionOf(readStream(captures / "rating-region-1.ts"), 0xCA, 1),
            sectionOf(streamOf(psipmux::readLineup(LINEUPS "/metro-air.json")), 0xCA, 1));

  const psipmux::Lineup lineup = psipmux::parseLineup(R"({"medium": "cable",
    "channels": [{"frequency": 57000000, "tsid": 1,
     "alerts": [{"sequence": 5, "event_id": 2677, "originator": "EAS", "event_code": "RWT",
      "activation_text": "REQUIRED WEEKLY TEST", "time_remaining": 29, "duration": 15,
      "priority": 15, "locations": [{"state": 42, "county": 91}, {"state": 42, "county": 101}]},
      {"sequence": 31, "originator": "CIV", "event_code": "X", "priority": 0, "text": "Ł",
       "locations": [{"state": 0, "subdivision": 9, "county": 999}]}],
     "services": [{"program": 2, "pmt_pid": 48, "one_part": 1203, "name": "M", "source_id": 2,
      "streams": []}]}]})",
                                                      "test.json");
  const Bytes stream = streamOf(lineup);
  const Bytes air = sectionOf(readStream(captures / "cable-emergency-alert-inband.ts"), 0xD8, 0);
  const Bytes ours = sectionOf(stream, 0xD8, 0);
  // The received section also has a channel with details, and a descriptor at the end.
  constexpr size_t kLength = 1, kDetails = 56, kDetailsEnd = 62, kDescriptors = 74;
  ASSERT_EQ(0x26, air[kDetails]);
  EXPECT_EQ(air[kLength], ours[kLength]);  // section_syntax_indicator and its neighbours
  EXPECT_TRUE(std::equal(&air[kLength + 2], &air[kDetails], &ours[kLength + 2]));
  EXPECT_EQ((Bytes{0, 0, 0xFC, 0, 0xFC, 0}), Bytes(&ours[kDetails], &ours[kDetailsEnd]));
  EXPECT_TRUE(std::equal(&air[kDetailsEnd], &air[kDescriptors], &ours[kDetailsEnd]));
  EXPECT_EQ(kDescriptors + 2 + 4, ours.size());
  const auto all = checkPackets(stream).sections.at(0x1FFB);
  const Bytes second = {0xD8, 0xB0, 54,   0,    0, 0xFF, 0,    0,    0, 0,    31,   'C',  'I', 'V',
                        1,    'X',  0,    0,    0, 0,    0,    0,    0, 0,    0xFF, 0xF0, 0,   0,
                        0xFC, 0,    0xFC, 0,    0, 0,    0,    10,   1, 'e',  'n',  'g',  1,   0,
                        0x3F, 2,    1,    0x41, 1, 0,    0x9F, 0xE7, 0, 0xFC, 0};
  EXPECT_EQ(1, std::count_if(all.begin(), all.end(), [&](const Bytes& section) {
              return std::equal(section.begin(), section.end() - 4, second.begin(), second.end());
            }));
}

TEST(PsipmuxTables, LongVctIsSplitAndAnnouncedInFull) {
  const psipmux::Lineup lineup = psipmux::parseLineup(largeLineup(60), "large.json");
  const auto sections = psipmux::buildVct(lineup.medium, lineup.channels[0]);
  EXPECT_EQ(20u, sections.size());  // three services in each
  for (const Bytes& section : sections) EXPECT_LE(section.size(), 1024u);
  expectChannel(lineup, lineup.channels[0], streamOf(lineup));
}

// Returns a service whose guide fills `hours` with five-minute programmes with long descriptions.
std::string longGuide(unsigned hours) {
  std::string json = largeLineup(1);
  json.insert(1, "\"guide_hours\": " + std::to_string(hours) + ",");
  const std::string text = "📺" + std::string(250, 'x') + "📺";  // a surrogate pair may not be split
  json.insert(json.find("\"streams\""), "\"programmes\": [{\"minutes\": 5, \"title\": \"" +
                                            std::string(247, 't') + "\", \"description\": \"" +
                                            text + "\"}],");
  return json;
}

TEST(PsipmuxTables, LargeGuideMakesALongerStreamAndOneTooLargeIsAnError) {
  const psipmux::Lineup lineup = psipmux::parseLineup(longGuide(96), "long.json");
  const Bytes stream = streamOf(lineup);
  EXPECT_LT(752'000u, stream.size());
  expectChannel(lineup, lineup.channels[0], stream);
  expectGuide(lineup, lineup.channels[0], stream);
  const std::string large = longGuide(384);
  // Much too large: refused before it is built.
  const std::string huge = replaced(large, std::string(250, 'x'), std::string(1900, 'x'));
  for (const auto& [json, fault] :
       {std::pair(large, "its guide takes 25008 packets, the longest stream has room for 13504"),
        std::pair(huge, "its guide takes more than 16 MiB")}) {
    try {
      streamOf(psipmux::parseLineup(json, "long.json"));
      ADD_FAILURE() << "no error";
    } catch (const psipmux::MuxError& error) {
      EXPECT_STREQ(fault, error.what());
    }
  }
}

TEST(PsipmuxTables, SystemTimeFollowsTheStreamAndSummerIsAnnounced) {
  const std::string summer =
      replaced(largeLineup(1), "{",
               R"({"daylight_saving": {"status": true, "day_of_month": 9, "hour": 2},)");
  for (const auto& [json, saving] :
       {std::pair(largeLineup(1), 0xE000), std::pair(summer, 0xE902)}) {
    const Bytes stream = streamOf(psipmux::parseLineup(json, "one.json"));
    unsigned seen = 0;
    for (size_t i = 0; i < stream.size(); i += 188) {
      const uint8_t* packet = &stream[i];
      if (packet[1] != 0x5F || packet[2] != 0xFB || packet[5] != 0xCD) continue;
      const uint8_t* time = packet + 14;
      EXPECT_EQ(kSomeTime + i / 188 / 1000,
                static_cast<uint32_t>(time[0]) << 24 | time[1] << 16 | time[2] << 8 | time[3]);
      EXPECT_EQ(saving, time[5] << 8 | time[6]);
      ++seen;
    }
    EXPECT_EQ(16u, seen);
  }
}

TEST(PsipmuxTables, DaylightSavingIsThatOfTheUsWhereTheLineupSaysNothing) {
  const struct {
    uint32_t systemTime;
    bool status;
    int day, hour;
  } kCases[] = {
      {1454569218, false, 0, 0},  // 2026-02-08 07:00:00, four weeks before the change
      {1454569219, false, 8, 2},  {1456988417, false, 8, 2},
      {1456988418, true, 0, 0},                               // 2026-03-08 07:00:00
      {1477548017, true, 1, 2},   {1477548018, false, 0, 0},  // 2026-11-01 06:00:00
      {636879617, false, 12, 2},                              // 2000-03-12 06:59:59
      {662342417, false, 0, 0},                               // 2000-12-31 23:59:59
      {4291967295u, false, 0, 0},                             // 2116-01-08
  };
  for (const auto& c : kCases) {
    const psipmux::DaylightSaving saving = psipmux::usDaylightSaving(c.systemTime);
    EXPECT_EQ(std::tuple(c.status, c.day, c.hour),
              std::tuple(saving.status, int{saving.dayOfMonth}, int{saving.hour}))
        << c.systemTime;
  }
}

}  // namespace
