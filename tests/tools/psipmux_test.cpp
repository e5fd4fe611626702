// Runs psipmux, and decodes its streams with another decoder.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "broadcast.h"
#include "files.h"
#include "lineup.h"
#include "mux.h"
#include "process.h"
#include "psipmux_decoder.h"
#include "replaced.h"
#include "temporary_folder.h"

namespace {

namespace fs = std::filesystem;

using broadcast::be16;
using broadcast::be32;
using broadcast::Bytes;
using broadcast::operator+;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using Lines = std::set<std::string>;

constexpr uint32_t kSomeTime = 1460922004;  // 2026-04-22T19:39:46Z

struct Packets {
  // The longest interval between two equal sections by table id, in packets; of EIT-0 by its PID.
  std::map<unsigned, size_t> longest;
  std::set<std::string> privateSections;  // those that the decoder does not know, without CRC
};

// Checks what the decoder, which complains of faults in CRC and continuity, does not see.
Packets checkPackets(const Bytes& stream) {
  EXPECT_EQ(0u, stream.size() % 188);
  std::map<unsigned, Bytes> section;                   // by PID
  std::map<std::array<unsigned, 4>, size_t> lastSeen;  // PID, table id, extension, section
  Packets result;
  const size_t count = stream.size() / 188;
  for (size_t i = 0; i < 2 * count; ++i) {
    const uint8_t* packet = &stream[i % count * 188];
    const unsigned pid = (packet[1] & 0x1Fu) << 8 | packet[2];
    EXPECT_EQ(pid == 0x1FFF ? 0x10 : 0x10 | (packet[3] & 0x0F), packet[3]);
    Bytes& bytes = section[pid];
    if ((packet[1] & 0x40) != 0) {
      EXPECT_TRUE(bytes.empty()) << "PID " << pid << " packet " << i;
      EXPECT_EQ(0, packet[4]);
      bytes.assign(packet + 5, packet + 188);
      const auto seen =
          lastSeen.insert({{pid, bytes[0], bytes[3] * 256u + bytes[4], bytes[6]}, i}).first;
      size_t& longest = result.longest[pid == 0x1D00 ? pid : bytes[0]];
      longest = std::max(longest, i - std::exchange(seen->second, i));
    } else if (bytes.empty()) {
      EXPECT_TRUE(std::all_of(packet + 4, packet + 188, [](uint8_t b) { return b == 0xFF; }));
      continue;
    } else {
      bytes.insert(bytes.end(), packet + 4, packet + 188);
    }
    const size_t size = 3 + ((bytes[1] & 0x0Fu) << 8 | bytes[2]);
    if (bytes.size() < size) continue;
    EXPECT_EQ(bytes[0] < 0xC7 || bytes[0] == 0xD8 ? 0xB0 : 0xF0, bytes[1] & 0xF0);
    EXPECT_LE(size, bytes[0] < 0xCA && bytes[0] != 0xC7 ? 1024u : 4096u);
    const Bytes whole(bytes.begin() + 1, bytes.begin() + static_cast<int>(size) - 4);
    if (bytes[0] == 0xCA || bytes[0] == 0xD8)
      result.privateSections.insert("section" + descriptor(bytes[0], whole));
    bytes.clear();
  }
  return result;
}

Lines linesOf(const Bytes& stream) {
  Lines lines = checkPackets(stream).privateSections;
  lines.merge(decode(stream));
  return lines;
}

// Returns the number of lines by their first word.
std::string countsOf(const Bytes& stream) {
  std::map<std::string, size_t> counts;
  for (const std::string& line : linesOf(stream)) ++counts[line.substr(0, line.find(' '))];
  std::string all;
  for (const auto& [word, count] : counts) all += word + " " + std::to_string(count) + " ";
  return all;
}

Bytes streamOf(const std::string& json, uint32_t time = kSomeTime) {
  const psipmux::Lineup lineup = psipmux::parseLineup(json, "test.json");
  return psipmux::multiplex(lineup, lineup.channels[0], time);
}

// Returns a lineup of `count` services with an audio stream and a long extended name.
std::string largeLineup(unsigned count, size_t units = 247) {
  std::string services;
  for (unsigned i = 1; i <= count; ++i) {
    const std::string number = std::to_string(i);
    services += (i == 1 ? R"({"program": )" : R"(, {"program": )") + number + R"(, "pmt_pid": )" +
                std::to_string(30 + 2 * i) + R"(, "major": 9, "minor": )" + number +
                R"(, "source_id": )" + number + R"(, "name": "Many", "extended_name": ")" +
                std::string(units, 'x') +
                R"(", "streams": [{"type": "ac3", "language": "eng", "pid": )" +
                std::to_string(31 + 2 * i) + "}]}";
  }
  return R"({"medium": "air", "channels": [{"frequency": 177000000, "tsid": 1, "services": [)" +
         services + "]}]}";
}

TEST(PsipmuxTables, EveryFieldReachesTheStream) {
  const struct {
    const char* json;
    uint32_t time;
    Lines lines;
  } kCases[] = {
      {R"({"medium": "air", "guide_hours": 4, "rating_regions": [
     {"region": 5, "version": 9, "name": "R", "dimensions": [
      {"name": "D", "graduated": true, "values": ["", {"abbrev": "A", "rating": "Å"}]}]}],
    "channels": [{"frequency": 177000000, "tsid": 1, "version": 3, "guide_version": 31, "services": [
      {"program": 3, "pmt_pid": 48, "major": 9, "minor": 7, "name": "One", "source_id": 258,
       "streams": [], "guide_offset": 30, "rating_in": "both", "programmes": [
        {"minutes": 180, "title": {"fra": "Été", "spa": "Ł\u07FF\u0800\uD800\uDC00"}, "description": "D",
         "rating": {"us_tv": "TV-14-D-V", "us_movie": "PG-13", "ca_english": "14+",
          "ca_french": "13 ans+", "regions": [{"region": 5, "dimensions": {"10": 2}}]},
         "captions": ["eng", {"language": "spa", "service": 5, "wide": true},
          {"language": "fra", "line21_field": 1, "easy_reader": true}],
         "genres": ["education", "wrestling", "movie"]},
        {"minutes": 1260, "title": "", "rating": "TV-Y7-FV"}]},
      {"program": 4, "pmt_pid": 49, "major": 9, "minor": 8, "name": "Two", "source_id": 259,
       "streams": [], "rating_in": "pmt", "programmes": [
        {"minutes": 60, "title": "A", "rating": {"ca_french": "G", "ca_english": "C8+"}},
        {"minutes": 100, "title": "B", "rating": {"us_movie": "NC-17"}}]}
    ]}]})",
       1460851218 + 3 * 3600,  // 03:00: the first programme is on until 03:30
       {"PAT tsid 1 version 3",
        "PMT 3 at 48 version 27 [87: c3 1 4 0 f4 1 f1 4 f1 7 f4 11 1 65 6e 67 1 0 0 9 54 56 2d 31 "
        "34 2d 44 2d 56 2 2 0 f5 1 f3 b 1 65 6e 67 1 0 0 3 31 34 2b 5 1 a f2 0] PCR 8191",
        "PMT 4 at 49 version 29 [87: c1 2 2 0 f2 1 f1 b 1 65 6e 67 1 0 0 3 43 38 2b] PCR 8191",
        "MGT version 2 type 0 at 8187 version 3 bytes 90",
        "MGT version 2 type 256 at 7424 version 2 bytes 255",
        "MGT version 2 type 257 at 7425 version 2 bytes 134",
        "MGT version 2 type 512 at 7680 version 2 bytes 26",
        "MGT version 2 type 773 at 8187 version 9 bytes 69",
        "TVCT tsid 1 version 3",
        "STT 1460862018 offset 18",
        "channel 9-7 [0: 0 4f 0 6e 0 65 0 0 0 0 0 0 0 0] modulation 4 tsid 1 program 3 "
        "hidden 00 type 2 source 258 [a1: ff ff 0]",
        "channel 9-8 [0: 0 54 0 77 0 6f 0 0 0 0 0 0 0 0] modulation 4 tsid 1 program 4 "
        "hidden 00 type 2 source 259 [a1: ff ff 0]",
        "section [ca: f0 42 ff 5 d3 0 0 0 9 1 65 6e 67 1 0 0 1 52 1 9 1 65 6e 67 1 0 0 1 44 f2 "
        "5 1 65 6e 67 0 5 1 65 6e 67 0 9 1 65 6e 67 1 0 0 1 41 9 1 65 6e 67 1 0 0 1 c5 fc 0]",
        "EIT 0 source 258 version 2 event 3462 at 1460853018 for 10800 etm 1 "
        "[0: 2 66 72 61 1 0 0 3 c9 74 e9 73 70 61 1 0 3f a 1 41 7 ff 8 0 d8 0 dc 0] "
        "[86: e3 65 6e 67 c1 3f ff 73 70 61 c5 7f ff 66 72 61 7f bf ff] "
        "[87: c3 1 4 0 f4 1 f1 4 f1 7 f4 11 1 65 6e 67 1 0 0 9 54 56 2d 31 34 2d 44 2d 56 "
        "2 2 0 f5 1 f3 b 1 65 6e 67 1 0 0 3 31 34 2b 5 1 a f2 0] [ab: e3 20 ad 22]",
        "ETT 0 source 258 version 2 event 3462 kind 2 [0: 1 65 6e 67 1 0 0 1 44]",
        "EIT 0 source 258 version 2 event 3498 at 1460863818 for 75600 etm 0 [0: 1 65 6e 67 0]"
        " [87: c1 1 2 5 f2 6 f1 10 1 65 6e 67 1 0 0 8 54 56 2d 59 37 2d 46 56]",
        "EIT 1 source 258 version 2 event 3498 at 1460863818 for 75600 etm 0 [0: 1 65 6e 67 0]"
        " [87: c1 1 2 5 f2 6 f1 10 1 65 6e 67 1 0 0 8 54 56 2d 59 37 2d 46 56]",
        "EIT 0 source 259 version 2 event 3488 at 1460860818 for 3600 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "41]",
        "EIT 0 source 259 version 2 event 3500 at 1460864418 for 6000 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "42]",
        "EIT 0 source 259 version 2 event 3520 at 1460870418 for 3600 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "41]",
        "EIT 1 source 259 version 2 event 3520 at 1460870418 for 3600 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "41]",
        "EIT 1 source 259 version 2 event 3532 at 1460874018 for 6000 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "42]",
        "EIT 1 source 259 version 2 event 3552 at 1460880018 for 3600 etm 0 [0: 1 65 6e 67 1 0 0 1 "
        "41]"}},
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
       kSomeTime,
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
    "channels": [{"frequency": 57000000, "tsid": 1, "modulation": "64qam",
     "alerts": [{"sequence": 5, "event_id": 2677, "originator": "EAS", "event_code": "RWT",
      "activation_text": "TEST", "time_remaining": 29, "duration": 1500, "priority": 15,
      "locations": [{"state": 42, "county": 91}, {"state": 42, "county": 999}]},
      {"sequence": 31, "originator": "CIV", "event_code": "X", "priority": 0, "text": "Ł",
       "locations": [{"state": 0, "subdivision": 9}]}],
     "services": [
      {"program": 2, "pmt_pid": 48, "one_part": 1203, "name": "Middle!", "source_id": 2,
       "extended_name": "♥", "service_type": "radio", "streams": [
        {"type": "h264", "pid": 33, "language": "eng"}, {"type": "ac3", "pid": 34, "bsmod": 3,
         "asvcflags": 255, "language": "eng"}]},
      {"program": 3, "pmt_pid": 49, "major": 2, "minor": 1, "name": "", "source_id": 3,
       "streams": [{"type": "mpeg1-video", "pid": 65}, {"type": "mpeg1-audio", "pid": 66},
        {"type": "mpeg2-audio", "pid": 67}, {"type": "aac", "pid": 68}, {"type": "latm", "pid": 69},
        {"type": "hevc", "pid": 70}, {"type": "dc2-video", "pid": 71}, {"type": "eac3", "pid": 72},
        {"type": "data", "pid": 73}]}]}]})",
       kSomeTime,
       {"PAT tsid 1 version 0",
        "PMT 2 at 48 version 0 PCR 33, 27 at 33 [a: 65 6e 67 0], "
        "129 at 34 [a: 65 6e 67 2] [81: 8 28 64 ff ff 1 bf 65 6e 67]",
        "PMT 3 at 49 version 0 PCR 65, 1 at 65, 3 at 66, 4 at 67, 15 at 68, 17 at 69, 36 at 70, "
        "128 at 71, 135 at 72, 149 at 73",
        "MGT version 0 type 2 at 8187 version 0 bytes 168", "CVCT tsid 1 version 0",
        "STT 1460922004 offset 18",
        "channel 1009-179 [0: 0 4d 0 69 0 64 0 64 0 6c 0 65 0 21] modulation 2 tsid 1 "
        "program 2 hidden 00 type 3 source 2 [a1: e0 21 2 1b e0 21 65 6e 67 81 e0 22 65 6e 67]"
        " [a0: 1 65 6e 67 1 0 3f 2 26 65]",
        "channel 2-1 [0: 0 0 0 0 0 0 0 0 0 0 0 0 0 0] modulation 2 tsid 1 program 3 hidden 00 "
        "type 2 source 3 [a1: e0 41 9 1 e0 41 0 0 0 3 e0 42 0 0 0 4 e0 43 0 0 0 f e0 44 0 0 0 "
        "11 e0 45 0 0 0 24 e0 46 0 0 0 80 e0 47 0 0 0 87 e0 48 0 0 0 95 e0 49 0 0 0]",
        "section [d8: b0 3d 0 0 cb 0 0 0 a 75 45 41 53 3 52 57 54 c 1 65 6e 67 1 0 0 4 54 45 53 "
        "54 1d 0 0 0 0 5 dc ff ff 0 0 fc 0 fc 0 0 0 0 0 2 2a c 5b 2a f e7 0 fc 0]",
        "section [d8: b0 36 0 0 ff 0 0 0 0 1f 43 49 56 1 58 0 0 0 0 0 0 0 0 ff f0 0 0 fc 0 fc 0 "
        "0 0 0 a 1 65 6e 67 1 0 3f 2 1 41 1 0 9c 0 0 fc 0]"}},
      {R"({"medium": "air",
    "channels": [{"frequency": 177000000, "tsid": 1, "psip": false, "services": [
      {"program": 1, "pmt_pid": 32, "streams": []}]}]})",
       kSomeTime,
       {"PAT tsid 1 version 0", "PMT 1 at 32 version 0 PCR 8191"}},
  };
  for (const auto& [json, time, lines] : kCases) EXPECT_EQ(lines, linesOf(streamOf(json, time)));
}

// Returns a service whose guide fills `hours` with five-minute programmes with long descriptions.
std::string longGuide(unsigned hours, size_t length) {
  std::string json = largeLineup(1);
  json.insert(1, "\"guide_hours\": " + std::to_string(hours) + ",");
  json.insert(json.find("\"streams\""), "\"programmes\": [{\"minutes\": 5, \"title\": \"" +
                                            std::string(247, 't') + "\", \"description\": \"" +
                                            std::string(length, 'x') + "📺\"}],");
  return json;
}

TEST(PsipmuxTables, LargeTablesAreSplitAndTooLargeOnesAreErrors) {
  // Segments of at most 255 bytes; a surrogate pair is not split.
  const auto wide = [](const Bytes& units, size_t count) {
    Bytes text;
    for (; count > 0; --count) text = text + units;
    return broadcast::segment(0, 0x3F, text);
  };
  const Bytes text = broadcast::stringOf(
      "eng", {wide(be16('x'), 127), wide(be16('x'), 126), wide(be32(0xD83DDCFA), 1)});
  const struct {
    std::string json;
    size_t size;
    std::string counts;
    Lines lines;
  } kCases[] = {
      // Four services fill a section of the VCT.
      {largeLineup(60, 199),
       752'000,
       "MGT 1 PAT 1 PMT 60 STT 1 TVCT 1 channel 60 ",
       {"MGT version 0 type 0 at 8187 version 0 bytes 15360"}},
      {longGuide(96, 253),
       3'008'000,
       "EIT 1152 ETT 1152 MGT 65 PAT 1 PMT 1 STT 1 TVCT 1 channel 1 ",
       {"MGT version 0 type 543 at 7711 version 0 bytes 19476",
        "ETT 31 source 1 version 0 event 4788 kind 2" + descriptor(0, Bytes{1} + text)}},
  };
  for (const auto& [json, size, counts, lines] : kCases) {
    const Bytes stream = streamOf(json);
    EXPECT_EQ(size, stream.size());
    EXPECT_EQ(counts, countsOf(stream));
    const Lines all = decode(stream);
    EXPECT_TRUE(std::includes(all.begin(), all.end(), lines.begin(), lines.end()));
  }
  // The last one is refused before it is built.
  for (const auto& [json, fault] :
       {std::pair(largeLineup(200), "its tables take 2208 packets a second, the stream has 1000"),
        {longGuide(384, 253),
         "its guide takes 25008 packets, the longest stream has room for 13504"},
        {longGuide(384, 1900), "its guide takes more than 16 MiB"}}) {
    try {
      streamOf(json);
      ADD_FAILURE() << "no error";
    } catch (const psipmux::MuxError& error) {
      EXPECT_STREQ(fault, error.what());
    }
  }
}

// The system time follows the stream. Daylight saving is that of the U.S. where the lineup says
// nothing.
TEST(PsipmuxTables, SystemTimeTables) {
  const std::string usual = largeLineup(1);
  const std::string summer = replaced(
      usual, "{", R"({"daylight_saving": {"status": true, "day_of_month": 9, "hour": 2},)");
  const struct {
    uint32_t time;
    const std::string& json;
    unsigned saving;  // status, day of the change, hour
  } kCases[] = {
      {kSomeTime, summer, 0xE902}, {kSomeTime, usual, 0xE000},
      {1454569218, usual, 0x6000},  // 2026-02-08 07:00:00, four weeks before the change
      {1454569219, usual, 0x6802}, {1456988417, usual, 0x6802},
      {1456988418, usual, 0xE000},                               // 2026-03-08 07:00:00
      {1477548017, usual, 0xE102}, {1477548018, usual, 0x6000},  // 2026-11-01 06:00:00
      {636879617, usual, 0x6C02},                                // 2000-03-12 06:59:59
      {662342417, usual, 0x6000},                                // 2000-12-31 23:59:59
      {4291967290, usual, 0x6000},                               // 2116-01-07
  };
  for (const auto& [start, json, saving] : kCases) {
    const Bytes stream = streamOf(json, start);
    unsigned seen = 0;
    for (size_t i = 0; i < stream.size(); i += 188) {
      const uint8_t* packet = &stream[i];
      if (packet[1] != 0x5F || packet[2] != 0xFB || packet[5] != 0xCD) continue;
      const auto time = static_cast<uint32_t>(start + i / 188 / 1000);
      EXPECT_EQ(be32(time) + Bytes{18} + be16(saving), Bytes(packet + 14, packet + 21)) << start;
      ++seen;
    }
    EXPECT_EQ(16u, seen);
  }
}

std::string errorOf(const std::string& json) {
  try {
    psipmux::parseLineup(json, "bad.json");
  } catch (const psipmux::LineupError& error) {
    return error.what();
  }
  return "no error";
}

constexpr char kGood[] = R"({"medium": "cable", "channels": [
 {"frequency": 57000000, "tsid": 1, "services": [
  {"program": 1, "pmt_pid": 32, "major": 2, "minor": 1, "name": "One", "source_id": 4095,
   "streams": [{"type": "h264", "pid": 33}, {"type": "ac3", "pid": 36, "language": "eng"}]},
  {"program": 2, "pmt_pid": 48, "one_part": 70, "name": "Two", "source_id": 4096, "streams": []}]},
 {"frequency": 63000000, "tsid": 2, "services": [
  {"program": 1, "pmt_pid": 32, "major": 2, "minor": 5, "name": "Three", "source_id": 4095,
   "streams": []}]}]})";

TEST(PsipmuxErrors, InvalidLineupsNameTheKeyAndTheReason) {
  ASSERT_EQ("no error", errorOf(kGood));
  const std::string kAlert =
      "{'sequence': 1, 'originator': 'EAS', 'event_code': 'RWT', "
      "'priority': 3, 'locations': [{'state': 42}]}";
  // Replacement in the valid lineup, with ' for ", and the error, with @ for the first service of
  // channels[1] and # for the second of channels[0].
  const struct {
    std::string from, to, error;
  } kCases[] = {
      {"'cable'", "'sea'", "medium: must be one of air, cable"},
      {"'medium': 'cable', ", "", "medium: is missing"},
      {"'channels'", "'chanels': 1, 'channels'", "chanels: unknown key"},
      {"'tsid': 2", "'tsid': 2.5", "channels[1].tsid: must be an integer"},
      {"'tsid': 2", "'tsid': 65536", "channels[1].tsid: must be 0 to 65535"},
      {"'tsid': 2", "'tsid': 2, 'psip': 1", "channels[1].psip: must be true or false"},
      {"[]}]},", "{}}]},", "#streams: must be an array"},
      {"{'type': 'h264', 'pid': 33}", "3", "channels[0].services[0].streams[0]: must be an object"},
      {"'minor': 5", "'minor': -1", "@minor: must be 0 to 999"},
      {"'program': 2", "'program': 1", "#program: already used by channels[0].services[0].program"},
      {"63000000", "57000000", "channels[1].frequency: already used by channels[0].frequency"},
      {"'minor': 5", "'minor': 1", "@minor: already used by channels[0].services[0].minor"},
      {"'source_id': 4096", "'source_id': 4095",
       "#source_id: already used by channels[0].services[0].source_id"},
      {"'Three', 'source_id': 4095", "'Three', 'source_id': 4096",
       "@source_id: already used by #source_id"},
      {"'pmt_pid': 48", "'pmt_pid': 36",
       "#pmt_pid: already used by channels[0].services[0].streams[1].pid"},
      {"Three", "Eight888", "@name: must be at most 7 UTF-16 units"},
      {"Three", "📺", "@name: must not contain characters above U+FFFF"},
      {"Three", "\\u0000", "@name: must not contain control characters"},
      {"'Two'", "'Two', 'extended_name': '" + std::string(248, 'x') + "'",
       "#extended_name: must be 1 to 247 UTF-16 units"},
      {"eng", "ENG",
       "channels[0].services[0].streams[1].language: must be three lower-case letters"},
      {"'cable'", "'air'", "#one_part: only for cable"},
      {"'one_part': 70", "'one_part': 70, 'major': 3", "#major: not with one_part"},
      {"'tsid': 2", "'tsid': 2, 'psip': false", "@name: not in a channel without psip"},
      {"33", "33, 'mainid': 0",
       "channels[0].services[0].streams[0].mainid: only for streams of type ac3"},
      {"36", "36, 'bsmod': 2", "channels[0].services[0].streams[1].asvcflags: is missing"},
      {"'pmt_pid': 48", "'pmt_pid': 7424",
       "#pmt_pid: must not be one of the guide's, 7424 to 7551"},
      {"'cable'", "'cable', 'guide_hours': 385", "guide_hours: must be 1 to 384"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 4, 'title': ''}]",
       "@programmes[0].minutes: must be 5 to 1440"},
      {"'Three'",
       "'Three', 'programmes': [{'minutes': 5, 'title': '" + std::string(248, 'x') + "'}]",
       "@programmes[0].title: takes 256 bytes, the table has room for 255"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': {'en': 'x'}}]",
       "@programmes[0].title.en: must be three lower-case letters"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': '', 'genres': ['noise']}]",
       "@programmes[0].genres[0]: must be a genre of A/65 in lower case"},
      {"'Three'", "'Three', 'programmes': [{'minutes': 5, 'title': '', 'rating': 'TV-Y7-V'}]",
       "@programmes[0].rating: must be a TV rating such as TV-Y7-FV or "
       "TV-14-D-L-S-V"},
      {"'tsid': 2", "'tsid': 2, 'alerts': [{'sequence': 1, 'originator': 'EASY'}]",
       "channels[1].alerts[0].originator: must be 3 ASCII characters"},
      {"'tsid': 2", "'tsid': 2, 'alerts': [" + kAlert + ", " + kAlert + "]",
       "channels[1].alerts[1].sequence: already used by channels[1].alerts[0].sequence"},
      {"36", "36, 'second_language': 'spa'",
       "channels[0].services[0].streams[1].second_language: only with dual_mono and language"},
      {"'Two'", "'Two', 'rating_in': 'pmt'", "#rating_in: only with programmes"},
      {"'Three'", "'Three', 'rating_in': 'eit', 'programmes': [{'minutes': 5, 'title': ''}]",
       "@rating_in: must be one of guide, pmt, both"},
      {"'Two'", "'Two', 'captions': ['eng']",
       "#captions: only with streams, the first of which they belong to"},
      {"36", "36, 'bsmod': 2, 'mainid': 1",
       "channels[0].services[0].streams[1].mainid: only with a bsmod of 0 or 1"},
  };
  const auto whole = [](std::string text) {
    for (const auto& [letter, meaning] : {std::pair("'", "\""),
                                          {"@", "channels[1].services[0]."},
                                          {"#", "channels[0].services[1]."}})
      text = std::regex_replace(text, std::regex(letter), meaning);
    return text;
  };
  for (const auto& [from, to, error] : kCases)
    EXPECT_EQ(whole("bad.json: " + error), whole(errorOf(replaced(kGood, whole(from), whole(to)))));
  EXPECT_EQ("bad.json: channels[0].services: must have 1 to 250 elements",
            errorOf(largeLineup(251)));
  for (const char* name :
       {"\xC3(", "\x80", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_EQ("bad.json: channels[1].services[0].name: is not valid UTF-8",
              errorOf(replaced(kGood, "Three", name)));
  }
  const std::string good = kGood;
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), good + "x", "// comment\n" + good,
        replaced(good, "\"tsid\": 2", "\"tsid\": 2, \"tsid\": 3"), std::string(100'000, '[')}) {
    EXPECT_THAT(errorOf(bad), MatchesRegex("bad.json: [ -~]+"));
  }
}

Outcome runPsipmux(std::vector<std::string> words) {
  words.insert(words.begin(), PSIPMUX);
  Process process(words);
  return finish(process);
}

Lines filesOf(const TemporaryFolder& folder) {
  Lines files;
  for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
    if (!entry.is_directory()) files.insert(entry.path().lexically_relative(folder.path()));
  return files;
}

TEST(PsipmuxProgram, SampleLineupsAreStreams) {
  const TemporaryFolder folder;
  const Outcome outcome = runPsipmux({LINEUPS "/metro-air.json", LINEUPS "/metro-cable.json",
                                      "--out", folder.path(), "--start", "2026-04-22T19:39:46Z"});
  EXPECT_EQ(0, outcome.status);
  EXPECT_EQ("", outcome.out + outcome.err);
  EXPECT_EQ((Lines{"qam/219000000.ts", "qam/57000000.ts", "qam/651000000.ts", "vsb/183000000.ts",
                   "vsb/479000000.ts", "vsb/521000000.ts", "vsb/575000000.ts"}),
            filesOf(folder));
  for (const std::string& file : filesOf(folder)) {
    SCOPED_TRACE(file);
    const Bytes stream = readBytes(folder.path() / file);
    const uint8_t vct = file[0] == 'v' ? 0xC8 : 0xC9;
    const std::map<unsigned, size_t> limits = {{0x00, 100}, {0x02, 400},  {0xC7, 150},
                                               {vct, 400},  {0xCD, 1000}, {0x1D00, 500}};
    const auto longest = checkPackets(stream).longest;
    for (const auto& [table, limit] : limits) EXPECT_LE(longest.at(table), limit) << table;
    EXPECT_THAT(countsOf(stream), Not(HasSubstr("complaint")));
  }
}

TEST(PsipmuxProgram, FailureIsOneLineAndLeavesTheFolderAsItWas) {
  const TemporaryFolder folder;
  fs::current_path(folder.path());
  for (const char* name : {"air/qam", "blocked/qam/63000000.ts"}) fs::create_directories(name);
  writeFile("air/qam/57000000.ts", "old");
  writeFile("air/qam/notes.txt", "mine");
  writeFile("good", kGood);
  writeFile("bad", replaced(kGood, "\"tsid\": 1", "\"tsid\": -1"));
  writeFile("large", largeLineup(200));
  const Lines before = filesOf(folder);
  const struct {
    int status;
    std::vector<std::string> arguments;
    std::string error;
  } kCases[] = {
      {1, {"good", "bad", "--out", "air"}, "bad: channels[0].tsid: must be 0 to 65535"},
      {1, {"good", "none", "--out", "air"}, "none: cannot read: No such file or directory"},
      {1,
       {"good", "good", "--out", "air"},
       "good: channels[0].frequency: already used by good: channels[0].frequency"},
      {1,
       {"good", "large", "--out", "air"},
       "large: channels[0]: its tables take 2208 packets a second, the stream has 1000"},
      {1, {"good", "--out", "bad"}, "bad/qam: cannot create: Not a directory"},
      {1, {"good", "--out", "blocked"}, "blocked/qam/63000000.ts: cannot write: Is a directory"},
      {2,
       {"good", "--out", "air", "--start", "2026-02-29T00:00:00Z"},
       "--start: must be a UTC time of 1980-01-06 to 2116 such as 2026-04-22T19:39:46Z"},
      {2, {"good"}, "--out is required; see psipmux --help"},
  };
  for (const auto& [status, arguments, error] : kCases) {
    const Outcome outcome = runPsipmux(arguments);
    EXPECT_EQ(status, outcome.status) << error;
    EXPECT_EQ("psipmux: " + error + "\n", outcome.out + outcome.err);
    EXPECT_EQ("old", readFile("air/qam/57000000.ts"));
  }
  // The fault while the files are renamed leaves those before it.
  EXPECT_TRUE(fs::remove("blocked/qam/57000000.ts"));
  EXPECT_EQ(before, filesOf(folder));
  // Success replaces only the written files.
  EXPECT_EQ(0, runPsipmux({"good", "--out", "air"}).status);
  EXPECT_EQ(752'000u, fs::file_size("air/qam/57000000.ts"));
  EXPECT_EQ("mine", readFile("air/qam/notes.txt"));
}

}  // namespace
