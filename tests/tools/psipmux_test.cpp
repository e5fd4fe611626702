// Runs psipmux and compares its streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "broadcast.h"
#include "files.h"
#include "lineup.h"
#include "mux.h"
#include "process.h"
#include "replaced.h"
#include "temporary_folder.h"

namespace {

namespace fs = std::filesystem;

using broadcast::be16;
using broadcast::be32;
using broadcast::Bytes;
using broadcast::operator+;
using Lines = std::set<std::string>;

constexpr uint32_t kSomeTime = 1460922004;  // 2026-04-22T19:39:46Z

struct Packets {
  // The longest interval between two equal sections by table id, in packets; of EIT-0 by its PID.
  std::map<unsigned, size_t> longest;
  Lines sections;  // PID and bytes, in hexadecimal; without those of the system time
};

std::string hex(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes)
    for (const int digit : {byte >> 4, byte & 15}) text += "0123456789abcdef"[digit];
  return text;
}

// Receives a stream that is played twice in a row, and checks its packets.
Packets receive(const Bytes& stream) {
  EXPECT_EQ(0u, stream.size() % 188);
  std::map<unsigned, Bytes> section;                   // by PID
  std::map<unsigned, unsigned> counters;               // by PID
  std::map<std::array<unsigned, 4>, size_t> lastSeen;  // PID, table id, extension, section
  Packets result;
  const size_t count = stream.size() / 188;
  for (size_t i = 0; i < 2 * count; ++i) {
    const uint8_t* packet = &stream[i % count * 188];
    const unsigned pid = (packet[1] & 0x1Fu) << 8 | packet[2];
    unsigned& counter = counters.insert({pid, packet[3]}).first->second;
    EXPECT_EQ(0x10u | (pid == 0x1FFF ? 0 : counter++ & 0x0F), packet[3]);
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
    EXPECT_LE(size, bytes[0] < 0xCA && bytes[0] != 0xC7 ? 1024u : 4096u);
    bytes.resize(size);
    if (bytes[0] != 0xCD) result.sections.insert(hex(be16(pid)) + " " + hex(bytes));
    bytes.clear();
  }
  return result;
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

// streams/NAME.sections has the sections of the lineup streams/NAME.json at a system time.
TEST(PsipmuxTables, EveryFieldReachesTheStream) {
  for (const std::string name : {"guide", "services", "cable", "without-psip"}) {
    Lines sections;
    std::istringstream lines(readFile(fs::path(STREAMS) / (name + ".sections")));
    uint32_t time = 0;
    lines.ignore(3) >> time;  // "at "
    for (std::string line; std::getline(lines, line);)
      if (!line.empty() && line[0] != '#') sections.insert(line);
    const std::string json = readFile(fs::path(STREAMS) / (name + ".json"));
    EXPECT_EQ(sections, receive(streamOf(json, time)).sections) << name;
  }
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
    std::map<std::string, int> counts;  // of sections by table id
    std::vector<Bytes> pieces;
  } kCases[] = {
      // Four services fill a section of the VCT.
      {largeLineup(60, 199),
       752'000,
       {{"00", 1}, {"02", 60}, {"c7", 1}, {"c8", 15}},
       {be32(0xFFFBE0) + be32(15360)}},
      {longGuide(96, 253),
       3'008'000,
       {{"00", 1}, {"02", 1}, {"c7", 1}, {"c8", 1}, {"cb", 96}, {"cc", 1152}},
       {be16(543) + be16(0xE000 | 7711) + Bytes{0xE0} + be32(19476),
        be32(1 << 16 | 4788 << 2 | 2) + Bytes{1} + text}},
  };
  for (const auto& [json, size, counts, pieces] : kCases) {
    const Bytes stream = streamOf(json);
    EXPECT_EQ(size, stream.size());
    std::map<std::string, int> counted;
    std::string all;
    for (const std::string& section : receive(stream).sections) {
      ++counted[section.substr(5, 2)];
      all += section;
    }
    EXPECT_EQ(counts, counted);
    for (const Bytes& piece : pieces) EXPECT_NE(std::string::npos, all.find(hex(piece)));
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
      const Bytes body = Bytes{0} + be32(time) + Bytes{18} + be16(saving);
      EXPECT_EQ(broadcast::section(0xCD, 0, body, 0), Bytes(packet + 5, packet + 25)) << start;
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
    const uint8_t vct = file[0] == 'v' ? 0xC8 : 0xC9;
    const std::map<unsigned, size_t> limits = {{0x00, 100}, {0x02, 400},  {0xC7, 150},
                                               {vct, 400},  {0xCD, 1000}, {0x1D00, 500}};
    const auto longest = receive(readBytes(folder.path() / file)).longest;
    for (const auto& [table, limit] : limits) EXPECT_LE(longest.at(table), limit) << table;
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
