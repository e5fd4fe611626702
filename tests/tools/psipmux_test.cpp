#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "lineup.h"
#include "mux.h"
#include "psipmux_decoder.h"
#include "sections.h"
#include "text.h"

namespace fs = std::filesystem;

namespace {

std::vector<uint8_t> ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  EXPECT_TRUE(in) << path;
  return {std::istreambuf_iterator<char>(in), {}};
}

void WriteText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

struct Outcome {
  int status = -1;
  std::string output;  // standard output and error
};

Outcome Psipmux(const std::string& arguments) {
  const std::string command = std::string(PSIPMUX) + " " + arguments + " 2>&1";
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), nullptr);
  Outcome outcome;
  std::array<char, 512> buffer;
  while (fgets(buffer.data(), buffer.size(), pipe.get()) != nullptr)
    outcome.output += buffer.data();
  const int status = pclose(pipe.release());
  if (WIFEXITED(status)) outcome.status = WEXITSTATUS(status);
  return outcome;
}

/// A folder of its own for every test.
class PsipmuxTest : public testing::Test {
 protected:
  PsipmuxTest() {
    std::string path = (fs::temp_directory_path() / "psipmux-XXXXXX").string();
    if (mkdtemp(path.data()) != nullptr) folder_ = path;
  }
  ~PsipmuxTest() override {
    if (!folder_.empty()) fs::remove_all(folder_);
  }

  std::set<std::string> Files() const {
    std::set<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
      if (!entry.is_directory()) files.insert(entry.path().lexically_relative(folder_).string());
    }
    return files;
  }

  fs::path folder_;
};

// ---------------------------------------------------------------------------------------------
// Transport stream level, checked on the bytes.

uint32_t SlowCrc(const uint8_t* data, size_t size) {
  uint32_t crc = ~0u;
  for (size_t i = 0; i < size * 8; ++i) {
    const uint32_t bit = data[i / 8] >> (7 - i % 8) & 1u;
    crc = crc << 1 ^ ((crc >> 31 ^ bit) != 0 ? 0x04C11DB7u : 0u);
  }
  return crc;
}

/// Checks continuity and CRC over two loops and returns the longest time between two sections of
/// each table id, in packets. Expects sections to begin after a pointer_field of zero.
std::map<unsigned, size_t> CheckPackets(const std::vector<uint8_t>& stream) {
  EXPECT_EQ(0u, stream.size() % 188);
  EXPECT_LT(stream.size(), 1'000'000u);
  std::map<unsigned, unsigned> continuity;
  std::map<unsigned, std::vector<uint8_t>> section;     // by PID
  std::map<std::array<unsigned, 3>, size_t> last_seen;  // PID, table id, section
  std::map<unsigned, size_t> longest;
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
    std::vector<uint8_t>& bytes = section[pid];
    if ((packet[1] & 0x40) != 0) {
      EXPECT_EQ(0, packet[4]);
      bytes.assign(packet + 5, packet + 188);
      const std::array<unsigned, 3> key = {pid, bytes[0], bytes[6]};
      if (const auto it = last_seen.find(key); it != last_seen.end()) {
        longest[bytes[0]] = std::max(longest[bytes[0]], i - it->second);
      }
      last_seen[key] = i;
    } else {
      bytes.insert(bytes.end(), packet + 4, packet + 188);
    }
    const size_t size = 3 + ((bytes[1] & 0x0Fu) << 8 | bytes[2]);
    if (bytes.size() >= size) {
      EXPECT_EQ(0u, SlowCrc(bytes.data(), size)) << "PID " << pid << " packet " << i;
      EXPECT_LT(bytes.size() - size, 184u);
    }
  }
  return longest;
}

// Table level: what an independent decoder reads is what the lineup says.

using Bytes = std::vector<uint8_t>;
using Lines = std::set<std::string>;

constexpr uint32_t kSomeTime = 1460922004;  // 2026-04-22T19:39:46Z

// The lines of the lineup, without descriptors.
std::string Pmt(const psipmux::Service& service) {
  std::ostringstream line;
  line << "PMT " << service.program << " at " << service.pmt_pid << " version " << +service.version
       << " PCR " << (service.streams.empty() ? 0x1FFF : service.streams[0].pid);
  for (const psipmux::Stream& s : service.streams) line << ", " << +s.type << " at " << s.pid;
  return line.str();
}

std::string VirtualChannel(const psipmux::Channel& channel, const psipmux::Service& service) {
  Bytes name;
  for (const char16_t unit : service.name) {
    name.push_back(static_cast<uint8_t>(unit >> 8));
    name.push_back(static_cast<uint8_t>(unit));
  }
  name.resize(14);
  std::ostringstream line;
  line << "channel " << service.major << '-' << service.minor << Descriptor(0, name)
       << " modulation " << +channel.modulation << " tsid " << channel.tsid << " program "
       << service.program << " hidden " << service.hidden << service.hide_guide << " type "
       << +service.service_type << " source " << service.source_id;
  return line.str();
}

void ExpectChannel(psipmux::Medium medium, const psipmux::Channel& channel, const Bytes& stream) {
  const std::string tsid = " tsid " + std::to_string(channel.tsid);
  const std::string version = " version " + std::to_string(channel.version);
  Lines lines{"PAT" + tsid + version};
  for (const psipmux::Service& service : channel.services) lines.insert(Pmt(service));
  if (channel.psip) {
    const bool cable = medium == psipmux::Medium::kCable;
    size_t bytes = 0;
    for (const Bytes& section : psipmux::BuildVct(medium, channel)) bytes += section.size();
    lines.insert("MGT" + version + " type " + (cable ? "2" : "0") + " at 8187" + version +
                 " bytes " + std::to_string(bytes));
    lines.insert((cable ? "CVCT" : "TVCT") + tsid + version);
    lines.insert("STT " + std::to_string(kSomeTime) + " offset 18");
    for (const auto& service : channel.services) lines.insert(VirtualChannel(channel, service));
  }
  Lines decoded;
  for (std::string line : Decode(stream)) {
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

TEST_F(PsipmuxTest, SampleLineupsDecodeToWhatTheySay) {
  const std::string lineups = LINEUPS;
  const Outcome outcome =
      Psipmux("'" + lineups + "/metro-air.json' '" + lineups + "/metro-cable.json' --out '" +
              (folder_ / "air").string() + "' --start 2026-04-22T19:39:46Z");
  ASSERT_EQ(0, outcome.status) << outcome.output;
  EXPECT_EQ("", outcome.output);
  Lines expected_files;
  for (const char* name : {"metro-air.json", "metro-cable.json"}) {
    const psipmux::Lineup lineup = psipmux::ReadLineup(lineups + "/" + name);
    const bool air = lineup.medium == psipmux::Medium::kAir;
    for (const psipmux::Channel& channel : lineup.channels) {
      SCOPED_TRACE(name + std::string(" ") + std::to_string(channel.frequency));
      const std::string file =
          (air ? "air/vsb/" : "air/qam/") + std::to_string(channel.frequency) + ".ts";
      expected_files.insert(file);
      const Bytes stream = ReadFile(folder_ / file);
      ASSERT_FALSE(stream.empty());
      const auto longest = CheckPackets(stream);
      EXPECT_LE(longest.at(0x00), 100u);
      EXPECT_LE(longest.at(0x02), 400u);
      EXPECT_LE(longest.at(0xC7), 150u);
      EXPECT_LE(longest.at(air ? 0xC8 : 0xC9), 400u);
      EXPECT_LE(longest.at(0xCD), 1000u);
      ExpectChannel(lineup.medium, channel, stream);
    }
  }
  EXPECT_EQ(expected_files, Files());
}

Bytes Stream(const psipmux::Lineup& lineup) {
  return psipmux::Multiplex(lineup, lineup.channels[0], kSomeTime);
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
        {"type": "ac3", "pid": 54, "bsmod": 2, "asvcflags": 1}]}]}]})",
       {"PAT tsid 513 version 31",
        "PMT 3 at 48 version 5 PCR 8186, 2 at 8186, "
        "129 at 52 [a: 65 6e 67 0] [81: 8 28 5 ff af 1 bf 65 6e 67], "
        "129 at 53 [a: 66 72 61 3] [81: 8 28 45 ff 21 1 bf 66 72 61], "
        "129 at 54 [81: 8 28 44 ff 1 1 3f]",
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
    EXPECT_EQ(each.lines, Decode(Stream(psipmux::ParseLineup(each.json, "test.json"))));
  }
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const size_t at = text.find(from);
  EXPECT_NE(std::string::npos, at) << from;
  if (at != std::string::npos) text.replace(at, from.size(), to);
  return text;
}

// `count` services with a stream of audio and as many bytes of extended name as there may be.
std::string LargeLineup(unsigned count) {
  std::string json = R"({"medium": "air", "channels": [{"frequency": 177000000, "tsid": 1,)"
                     R"( "services": [)";
  for (unsigned i = 0; i < count; ++i) {
    const std::string pid = std::to_string(32 + 2 * i);
    json += (i == 0 ? "" : ",") + std::string(R"({"program": )") + std::to_string(i + 1) +
            R"(, "pmt_pid": )" + pid + R"(, "major": 9, "minor": )" + std::to_string(i) +
            R"(, "name": "Many", "source_id": )" + std::to_string(i + 1) +
            R"(, "extended_name": ")" + std::string(247, 'x') +
            R"(", "streams": [{"type": "ac3", "language": "eng", "pid": )" +
            std::to_string(33 + 2 * i) + "}]}";
  }
  return json + "]}]}";
}

TEST(PsipmuxTables, LongVctIsSplitAndAnnouncedInFull) {
  const psipmux::Lineup lineup = psipmux::ParseLineup(LargeLineup(60), "large.json");
  const auto sections = psipmux::BuildVct(lineup.medium, lineup.channels[0]);
  EXPECT_EQ(20u, sections.size());  // three services in each
  for (const Bytes& section : sections) EXPECT_LE(section.size(), 1024u);
  CheckPackets(Stream(lineup));
  ExpectChannel(lineup.medium, lineup.channels[0], Stream(lineup));
}

TEST(PsipmuxTables, SystemTimeFollowsTheStreamAndSummerIsAnnounced) {
  const std::string summer =
      Replaced(LargeLineup(1), "{",
               R"({"daylight_saving": {"status": true, "day_of_month": 9, "hour": 2},)");
  for (const auto& [json, saving] :
       {std::pair(LargeLineup(1), 0x6000), std::pair(summer, 0xE902)}) {
    const Bytes stream = Stream(psipmux::ParseLineup(json, "one.json"));
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

TEST(PsipmuxText, MalformedUtf8IsRefused) {
  EXPECT_EQ(u"a\u00E9\u20AC\U0001F4FA", psipmux::Utf8ToUtf16("aé€📺"));
  for (const char* bad : {"\x80", "\xC3", "\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_FALSE(psipmux::Utf8ToUtf16(bad));
  }
}

// ---------------------------------------------------------------------------------------------
// Faults.

std::string ErrorOf(const std::string& json) {
  try {
    psipmux::ParseLineup(json, "bad.json");
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
  ASSERT_EQ("no error", ErrorOf(kGood));
  // What is replaced in the good one, with ' for "; the error.
  const struct {
    std::string from, to, error;
  } kCases[] = {
      {"'cable'", "'sea'", "medium: must be one of air, cable"},
      {"'medium': 'cable', ", "", "medium: is missing"},
      {"'channels'", "'chanels': 1, 'channels'", "chanels: unknown key"},
      {"'tsid': 2", "'tsid': 2.5", "channels[1].tsid: must be an integer"},
      {"'tsid': 2", "'tsid': 65536", "channels[1].tsid: must be 0 to 65535"},
      {"'tsid': 2", "'tsid': 2, 'psip': 1", "channels[1].psip: must be true or false"},
      {"[]}]},", "{}}]},", "channels[0].services[1].streams: must be an array"},
      {"{'type': 'h264', 'pid': 33}", "3", "channels[0].services[0].streams[0]: must be an object"},
      {"'minor': 5", "'minor': -1", "channels[1].services[0].minor: must be 0 to 999"},
      {"63000000", "57000000", "channels[1].frequency: already used by channels[0].frequency"},
      {"'minor': 5", "'minor': 1",
       "channels[1].services[0].minor: already used by channels[0].services[0].minor"},
      {"'source_id': 4096", "'source_id': 4095",
       "channels[0].services[1].source_id: already used by channels[0].services[0].source_id"},
      {"'Three', 'source_id': 4095", "'Three', 'source_id': 4096",
       "channels[1].services[0].source_id: already used by channels[0].services[1].source_id"},
      {"'pmt_pid': 48", "'pmt_pid': 36",
       "channels[0].services[1].pmt_pid: already used by channels[0].services[0].streams[1].pid"},
      {"Three", "Eight888", "channels[1].services[0].name: must be at most 7 UTF-16 units"},
      {"Three", "📺", "channels[1].services[0].name: must not contain characters above U+FFFF"},
      {"Three", "\xC3(", "channels[1].services[0].name: is not valid UTF-8"},
      {"Three", "\\u0000", "channels[1].services[0].name: must not contain control characters"},
      {"'Two'", "'Two', 'extended_name': '" + std::string(248, 'x') + "'",
       "channels[0].services[1].extended_name: must be 1 to 247 UTF-16 units"},
      {"eng", "ENG",
       "channels[0].services[0].streams[1].language: must be three lower-case letters"},
      {"'cable'", "'air'", "channels[0].services[1].one_part: only for cable"},
      {"'one_part': 70", "'one_part': 70, 'major': 3",
       "channels[0].services[1].major: not with one_part"},
      {"'tsid': 2", "'tsid': 2, 'psip': false",
       "channels[1].services[0].name: not in a channel without psip"},
      {"33", "33, 'mainid': 0",
       "channels[0].services[0].streams[0].mainid: only for streams of type ac3"},
      {"36", "36, 'bsmod': 2", "channels[0].services[0].streams[1].asvcflags: is missing"},
      {"36", "36, 'bsmod': 2, 'mainid': 1",
       "channels[0].services[0].streams[1].mainid: only with a bsmod of 0 or 1"},
  };
  const auto quoted = [](std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
  };
  for (const auto& each : kCases) {
    EXPECT_EQ("bad.json: " + each.error,
              ErrorOf(Replaced(kGood, quoted(each.from), quoted(each.to))));
  }
  EXPECT_EQ("bad.json: channels[0].services: must have 1 to 250 elements",
            ErrorOf(LargeLineup(251)));
  const std::string good = kGood;
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), good + "x", "// comment\n" + good,
        Replaced(good, "\"tsid\": 2", "\"tsid\": 2, \"tsid\": 3"), std::string(100'000, '[')}) {
    const std::string error = ErrorOf(bad);
    EXPECT_EQ(0u, error.find("bad.json: ")) << error;
    EXPECT_EQ(std::string::npos, error.find('\n')) << error;
  }
}

TEST_F(PsipmuxTest, FailureIsOneLineAndLeavesTheFolderAsItWas) {
  const std::string dir = folder_.string();
  const auto path = [&](const char* name) { return dir + "/" + name; };
  fs::create_directories(folder_ / "air/qam");
  WriteText(path("air/qam/57000000.ts"), "old");
  WriteText(path("air/qam/notes.txt"), "mine");
  WriteText(path("good.json"), kGood);
  WriteText(path("bad.json"), Replaced(kGood, "\"tsid\": 1", "\"tsid\": -1"));
  WriteText(path("large.json"), LargeLineup(200));
  WriteText(path("file"), "");
  fs::create_directories(folder_ / "blocked/qam/63000000.ts");
  const std::set<std::string> before = Files();
  const std::string out = " --out " + path("air");
  const std::string good = path("good.json");
  const std::pair<std::string, std::string> cases[] = {
      {good + " " + path("bad.json") + out,
       path("bad.json") + ": channels[0].tsid: must be 0 to 65535\n"},
      {good + " " + good + out,
       good + ": channels[0].frequency: already used by " + good + ": channels[0].frequency\n"},
      {good + " " + path("large.json") + out,
       path("large.json") +
           ": channels[0]: its tables take 2208 packets a second, the stream has 1000\n"},
      {good + " --out " + path("file"),
       "psipmux: " + path("file/qam") + ": cannot create: Not a directory\n"},
      {good + " --out " + path("air") + " --start 2026-02-29T00:00:00Z",
       "psipmux: --start: must be a UTC time of 1980-01-06 to 2116 such as "
       "2026-04-22T19:39:46Z\n"},
      {good, "psipmux: --out is required; see psipmux --help\n"},
  };
  for (const auto& [arguments, error] : cases) {
    const Outcome outcome = Psipmux(arguments);
    EXPECT_EQ(1, outcome.status) << arguments;
    EXPECT_EQ(error, outcome.output);
    const auto old = ReadFile(path("air/qam/57000000.ts"));
    EXPECT_EQ("old", std::string(old.begin(), old.end()));
  }
  EXPECT_EQ(before, Files());
  // A write that fails half-way through the lineup.
  EXPECT_EQ(1, Psipmux(good + " --out " + path("blocked")).status);
  for (const std::string& file : Files()) EXPECT_EQ(std::string::npos, file.find("/.")) << file;
  // Success replaces what it writes and nothing else.
  ASSERT_EQ(0, Psipmux(good + out).status);
  EXPECT_EQ(752'000u, fs::file_size(path("air/qam/57000000.ts")));
  EXPECT_EQ(4u, fs::file_size(path("air/qam/notes.txt")));
}

}  // namespace
