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
#include <string>
#include <utility>
#include <vector>

#include "lineup.h"
#include "mux.h"
#include "psipmux_decoder.h"
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

// ---------------------------------------------------------------------------------------------
// Table level: what an independent decoder reads is what the lineup says.

void ExpectStreams(const psipmux::Service& service, const Decoded::Pmt& pmt) {
  EXPECT_EQ(service.version, pmt.version);
  EXPECT_EQ(service.streams.empty() ? 0x1FFF : service.streams[0].pid, pmt.pcr_pid);
  ASSERT_EQ(service.streams.size(), pmt.streams.size());
  for (size_t i = 0; i < pmt.streams.size(); ++i) {
    const psipmux::Stream& wanted = service.streams[i];
    EXPECT_EQ(wanted.type, pmt.streams[i].type);
    EXPECT_EQ(wanted.pid, pmt.streams[i].pid);
    const auto language = pmt.streams[i].descriptors.find(0x0A);
    ASSERT_EQ(wanted.language.empty(), language == pmt.streams[i].descriptors.end());
    if (!wanted.language.empty()) {
      EXPECT_EQ(wanted.language,
                std::string(language->second.begin(), language->second.begin() + 3));
    }
    EXPECT_EQ(wanted.type == 0x81 ? 1u : 0u, pmt.streams[i].descriptors.count(0x81));
  }
}

void ExpectServiceLocation(const psipmux::Service& service, const Decoded::VirtualChannel& got) {
  ASSERT_EQ(service.sld ? 1u : 0u, got.descriptors.count(0xA1));
  if (!service.sld) return;
  const std::vector<uint8_t>& body = got.descriptors.find(0xA1)->second;
  ASSERT_EQ(3 + 6 * service.streams.size(), body.size());
  EXPECT_EQ(service.streams.size(), body[2]);
  for (size_t i = 0; i < service.streams.size(); ++i) {
    const uint8_t* element = &body[3 + 6 * i];
    EXPECT_EQ(service.streams[i].type, element[0]);
    EXPECT_EQ(service.streams[i].pid, (element[1] & 0x1F) << 8 | element[2]);
    const std::string none(3, '\0');
    EXPECT_EQ(service.streams[i].language.empty() ? none : service.streams[i].language,
              std::string(element + 3, element + 6));
  }
}

void ExpectChannel(const psipmux::Lineup& lineup, const psipmux::Channel& channel,
                   const Decoded& got) {
  EXPECT_EQ(std::vector<std::string>(), got.complaints);
  EXPECT_EQ(channel.tsid, got.tsid);
  EXPECT_EQ(channel.version, got.pat_version);
  ASSERT_EQ(channel.services.size(), got.programs.size());
  for (const psipmux::Service& service : channel.services) {
    EXPECT_EQ(service.pmt_pid, got.programs.at(service.program));
    ASSERT_EQ(1u, got.pmts.count(service.program));
    ExpectStreams(service, got.pmts.at(service.program));
  }
  EXPECT_EQ(channel.psip, got.has_vct);
  EXPECT_EQ(channel.psip, got.has_stt);
  ASSERT_EQ(channel.psip ? 1u : 0u, got.mgt.size());
  if (!channel.psip) return;
  const bool cable = lineup.medium == psipmux::Medium::kCable;
  EXPECT_EQ(channel.version, got.mgt_version);
  EXPECT_EQ(cable ? 2u : 0u, got.mgt[0].type);
  EXPECT_EQ(0x1FFBu, got.mgt[0].pid);
  EXPECT_EQ(channel.version, got.mgt[0].version);
  EXPECT_EQ(cable, got.cable_vct);
  EXPECT_EQ(channel.version, got.vct_version);
  EXPECT_EQ(channel.tsid, got.vct_tsid);
  ASSERT_EQ(channel.services.size(), got.channels.size());
  for (size_t i = 0; i < channel.services.size(); ++i) {
    const psipmux::Service& service = channel.services[i];
    const Decoded::VirtualChannel& entry = got.channels[i];
    EXPECT_EQ(service.name, entry.name);
    EXPECT_EQ(service.major, entry.major);
    EXPECT_EQ(service.minor, entry.minor);
    EXPECT_EQ(channel.modulation, entry.modulation);
    EXPECT_EQ(channel.tsid, entry.tsid);
    EXPECT_EQ(service.program, entry.program);
    EXPECT_EQ(service.hidden, entry.hidden);
    EXPECT_EQ(service.hide_guide, entry.hide_guide);
    EXPECT_EQ(service.service_type, entry.service_type);
    EXPECT_EQ(service.source_id, entry.source_id);
    EXPECT_EQ(service.extended_name.empty() ? 0u : 1u, entry.descriptors.count(0xA0));
    ExpectServiceLocation(service, entry);
  }
}

/// Whether a frequency is the centre of a channel of the terrestrial or the standard cable plan.
bool IsCentre(psipmux::Medium medium, uint32_t hz) {
  const bool cable = medium == psipmux::Medium::kCable;
  const auto on = [mhz = hz / 1'000'000](uint32_t first, uint32_t last) {
    return mhz >= first && mhz <= last && (mhz - first) % 6 == 0;
  };
  if (hz % 1'000'000 != 0) return false;
  return on(57, 69) || on(79, 85) || on(177, 213) ||
         (cable ? on(123, 171) || on(219, 645) || on(651, 999) : on(473, 803));
}

TEST_F(PsipmuxTest, SampleLineupsDecodeToWhatTheySay) {
  const std::string lineups = LINEUPS;
  const Outcome outcome =
      Psipmux("'" + lineups + "/metro-air.json' '" + lineups + "/metro-cable.json' --out '" +
              (folder_ / "air").string() + "' --start 2026-04-22T19:39:46Z");
  ASSERT_EQ(0, outcome.status) << outcome.output;
  EXPECT_EQ("", outcome.output);
  std::set<std::string> expected_files;
  size_t visible = 0, hidden = 0;
  for (const char* name : {"metro-air.json", "metro-cable.json"}) {
    const psipmux::Lineup lineup = psipmux::ReadLineup(lineups + "/" + name);
    const bool air = lineup.medium == psipmux::Medium::kAir;
    for (const psipmux::Channel& channel : lineup.channels) {
      SCOPED_TRACE(name + std::string(" ") + std::to_string(channel.frequency));
      EXPECT_TRUE(IsCentre(lineup.medium, channel.frequency));
      const std::string file =
          (air ? "air/vsb/" : "air/qam/") + std::to_string(channel.frequency) + ".ts";
      expected_files.insert(file);
      const auto stream = ReadFile(folder_ / file);
      ASSERT_FALSE(stream.empty());
      const auto longest = CheckPackets(stream);
      EXPECT_LE(longest.at(0x00), 100u);
      EXPECT_LE(longest.at(0x02), 400u);
      EXPECT_LE(longest.at(0xC7), 150u);
      EXPECT_LE(longest.at(air ? 0xC8 : 0xC9), 400u);
      EXPECT_LE(longest.at(0xCD), 1000u);
      const Decoded got = DecodeLooped(stream);
      ExpectChannel(lineup, channel, got);
      // 1776886786 - 315964800 + 18, and no more than the 4 seconds of the stream later.
      EXPECT_GE(got.system_time, 1460922004u);
      EXPECT_LT(got.system_time, 1460922008u);
      EXPECT_EQ(18u, got.gps_utc_offset);
      for (const auto& service : got.channels) ++(service.hidden ? hidden : visible);
    }
  }
  EXPECT_EQ(expected_files, Files());
  EXPECT_EQ(12u + 7u, visible);
  EXPECT_EQ(1u, hidden);
}

constexpr uint32_t kSomeTime = 1460922004;

Decoded DecodeFirst(const std::string& json) {
  const psipmux::Lineup lineup = psipmux::ParseLineup(json, "test.json");
  const auto stream = psipmux::Multiplex(lineup, lineup.channels[0], kSomeTime);
  CheckPackets(stream);
  const Decoded got = DecodeLooped(stream);
  ExpectChannel(lineup, lineup.channels[0], got);
  return got;
}

TEST(PsipmuxTables, EveryFieldReachesTheStream) {
  const Decoded got = DecodeFirst(R"({"medium": "air",
    "channels": [{"frequency": 177000000, "tsid": 513, "version": 31, "services": [
      {"program": 3, "pmt_pid": 48, "version": 5, "major": 999, "minor": 7, "name": "L'Été",
       "extended_name": "Été", "source_id": 65535, "service_type": "data", "hidden": true,
       "hide_guide": true, "streams": [
        {"type": "mpeg2-video", "pid": 8186},
        {"type": "ac3", "pid": 52, "language": "eng", "mainid": 5},
        {"type": "ac3", "pid": 53, "language": "fra", "bsmod": 2, "full_svc": true,
         "asvcflags": 33},
        {"type": "ac3", "pid": 54, "bsmod": 2, "asvcflags": 1}]},
      {"program": 4, "pmt_pid": 49, "major": 9, "minor": 0, "name": "", "extended_name": "♥",
       "source_id": 1, "sld": false, "streams": []}]}]})");
  EXPECT_EQ(31u, got.vct_version);
  EXPECT_EQ(5u, got.pmts.at(3).version);
  EXPECT_EQ(31u, got.pmts.at(4).version);
  EXPECT_EQ(8186u, got.pmts.at(3).pcr_pid);
  const auto& first = got.channels.at(0);
  EXPECT_EQ(u"L'\u00C9t\u00E9", first.name);
  EXPECT_EQ(999u, first.major);
  EXPECT_EQ(7u, first.minor);
  EXPECT_EQ(4u, first.modulation);
  EXPECT_EQ(4u, first.service_type);
  EXPECT_TRUE(first.hidden && first.hide_guide);
  using Body = std::vector<uint8_t>;
  EXPECT_EQ((Body{1, 'e', 'n', 'g', 1, 0, 0x00, 3, 0xC9, 't', 0xE9}),
            first.descriptors.find(0xA0)->second);
  EXPECT_EQ((Body{1, 'e', 'n', 'g', 1, 0, 0x3F, 2, 0x26, 0x65}),
            got.channels.at(1).descriptors.find(0xA0)->second);
  EXPECT_EQ(0u, got.channels.at(1).descriptors.count(0xA1));
  // AC-3: main service 5; full description of main services 0 and 5; partial one, no language.
  const auto& streams = got.pmts.at(3).streams;
  EXPECT_EQ((Body{0x08, 0x28, 0x05, 0xFF, 0xAF, 0x01, 0xBF, 'e', 'n', 'g'}),
            streams.at(1).descriptors.find(0x81)->second);
  EXPECT_EQ((Body{0x08, 0x28, 0x45, 0xFF, 33, 0x01, 0xBF, 'f', 'r', 'a'}),
            streams.at(2).descriptors.find(0x81)->second);
  EXPECT_EQ((Body{'f', 'r', 'a', 3}), streams.at(2).descriptors.find(0x0A)->second);
  EXPECT_EQ((Body{0x08, 0x28, 0x44, 0xFF, 1, 0x01, 0x3F}),
            streams.at(3).descriptors.find(0x81)->second);
}

TEST(PsipmuxTables, CableNumbersAndModulation) {
  const Decoded got = DecodeFirst(R"({"medium": "cable",
    "channels": [{"frequency": 57000000, "tsid": 1, "modulation": "64qam", "services": [
      {"program": 1, "pmt_pid": 32, "one_part": 16383, "name": "Top", "source_id": 1,
       "streams": []},
      {"program": 2, "pmt_pid": 48, "one_part": 1203, "name": "Mid", "source_id": 2,
       "service_type": "radio", "streams": []}]}]})");
  EXPECT_EQ(0x3FFu, got.channels.at(0).major);
  EXPECT_EQ(0x3FFu, got.channels.at(0).minor);
  EXPECT_EQ(0x3F1u, got.channels.at(1).major);
  EXPECT_EQ(179u, got.channels.at(1).minor);
  EXPECT_EQ(2u, got.channels.at(1).modulation);
  EXPECT_EQ(3u, got.channels.at(1).service_type);
}

TEST(PsipmuxTables, ChannelWithoutPsipHasPatAndPmtOnly) {
  const Decoded got = DecodeFirst(R"({"medium": "air",
    "channels": [{"frequency": 177000000, "tsid": 1, "psip": false, "services": [
      {"program": 1, "pmt_pid": 32, "streams": [{"type": "h264", "pid": 33}]}]}]})");
  EXPECT_EQ(0x1Bu, got.pmts.at(1).streams.at(0).type);
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
  constexpr unsigned kServices = 60;
  const Decoded got = DecodeFirst(LargeLineup(kServices));  // compares every service
  const psipmux::Lineup lineup = psipmux::ParseLineup(LargeLineup(kServices), "large.json");
  size_t bytes = 0;
  const auto sections = psipmux::BuildVct(lineup.medium, lineup.channels[0]);
  for (const auto& section : sections) {
    EXPECT_LE(section.size(), 1024u);
    bytes += section.size();
  }
  EXPECT_EQ(20u, sections.size());  // three services in each
  EXPECT_EQ(bytes, got.mgt.at(0).bytes);
}

TEST(PsipmuxTables, SystemTimeFollowsTheStreamAndSummerIsAnnounced) {
  const std::string summer =
      Replaced(LargeLineup(1), "{",
               R"({"daylight_saving": {"status": true, "day_of_month": 9, "hour": 2},)");
  for (const auto& [json, saving] :
       {std::pair(LargeLineup(1), 0x6000), std::pair(summer, 0xE902)}) {
    const psipmux::Lineup lineup = psipmux::ParseLineup(json, "one.json");
    const auto stream = psipmux::Multiplex(lineup, lineup.channels[0], kSomeTime);
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
  for (const char* bad :
       {"\x80", "\xC3", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xE2\x82", "\xF4\x90\x80\x80",
        "\xF8\x88\x80\x80\x80", "\xFF", "\xC3(", "\xF0\x9F\x93"}) {
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
  struct Case {
    std::string from, to, error;
  };
  const std::string first = "channels[0].services[0]";
  const std::string second = "channels[0].services[1]";
  const std::string third = "channels[1].services[0]";
  const Case cases[] = {
      // Types and presence.
      {"\"cable\"", "\"sea\"", "medium: must be one of air, cable"},
      {"\"cable\"", "null", "medium: must be a string"},
      {"\"medium\": \"cable\", ", "", "medium: is missing"},
      {"\"channels\"", "\"chanels\": 1, \"channels\"", "chanels: unknown key"},
      {"\"tsid\": 2", "\"tsid\": 2, \"a\\nb\": 2", "channels[1].a?b: unknown key"},
      {"\"tsid\": 2", "\"tsid\": \"2\"", "channels[1].tsid: must be an integer"},
      {"\"tsid\": 2", "\"tsid\": 2.5", "channels[1].tsid: must be an integer"},
      {"\"tsid\": 2", "\"tsid\": 18446744073709551615", "channels[1].tsid: must be an integer"},
      {"\"tsid\": 2", "\"tsid\": 2, \"psip\": 1", "channels[1].psip: must be true or false"},
      {"\"streams\": []}]},", "\"streams\": {}}]},", second + ".streams: must be an array"},
      {"{\"type\": \"h264\", \"pid\": 33}", "33", first + ".streams[0]: must be an object"},
      // Ranges.
      {"57000000", "57000", "channels[0].frequency: must be 54000000 to 1002000000"},
      {"\"tsid\": 2", "\"tsid\": 65536", "channels[1].tsid: must be 0 to 65535"},
      {"\"tsid\": 2", "\"tsid\": 2, \"version\": 32", "channels[1].version: must be 0 to 31"},
      {"\"program\": 2", "\"program\": 0", second + ".program: must be 1 to 65535"},
      {"\"minor\": 5", "\"minor\": 1000", third + ".minor: must be 0 to 999"},
      {"\"minor\": 5", "\"minor\": -1", third + ".minor: must be 0 to 999"},
      {"\"one_part\": 70", "\"one_part\": 16384", second + ".one_part: must be 0 to 16383"},
      {"\"pid\": 33", "\"pid\": 8187", first + ".streams[0].pid: must be 16 to 8186"},
      {"\"source_id\": 4096", "\"source_id\": 0", second + ".source_id: must be 1 to 65535"},
      // Duplicates.
      {"63000000", "57000000", "channels[1].frequency: already used by channels[0].frequency"},
      {"\"minor\": 5", "\"minor\": 1", third + ".minor: already used by " + first + ".minor"},
      {"\"source_id\": 4096", "\"source_id\": 4095",
       second + ".source_id: already used by " + first + ".source_id"},
      {"\"minor\": 5, \"name\": \"Three\", \"source_id\": 4095",
       "\"minor\": 5, \"name\": \"Three\", \"source_id\": 4096",
       third + ".source_id: already used by " + second + ".source_id"},
      {"\"program\": 2", "\"program\": 1",
       second + ".program: already used by " + first + ".program"},
      {"\"pmt_pid\": 48", "\"pmt_pid\": 36",
       second + ".pmt_pid: already used by " + first + ".streams[1].pid"},
      // Names and languages.
      {"\"Three\"", "\"Eight888\"", third + ".name: must be at most 7 UTF-16 units"},
      {"\"Three\"", "\"TV 📺\"", third + ".name: must not contain characters above U+FFFF"},
      {"\"Three\"", "\"\xC3(\"", third + ".name: is not valid UTF-8"},
      {"\"Three\"", "\"\\udc00\"", third + ".name: is not valid UTF-8"},
      {"\"Three\"", "\"A\\u0000B\"", third + ".name: must not contain control characters"},
      {"\"Two\"", "\"Two\", \"extended_name\": \"" + std::string(248, 'x') + "\"",
       second + ".extended_name: must be 1 to 247 UTF-16 units"},
      {"\"eng\"", "\"ENG\"", first + ".streams[1].language: must be three lower-case letters"},
      // Keys that exclude each other.
      {"\"cable\"", "\"air\"", second + ".one_part: only for cable"},
      {"\"one_part\": 70", "\"one_part\": 70, \"major\": 3", second + ".major: not with one_part"},
      {"\"tsid\": 2", "\"tsid\": 2, \"psip\": false",
       third + ".name: not in a channel without psip"},
      {"\"pid\": 33", "\"pid\": 33, \"mainid\": 0",
       first + ".streams[0].mainid: only for streams of type ac3"},
      {"\"eng\"", "\"eng\", \"bsmod\": 2", first + ".streams[1].asvcflags: is missing"},
      {"\"eng\"", "\"eng\", \"asvcflags\": 1",
       first + ".streams[1].asvcflags: only with a bsmod of 2 to 7"},
      {"\"eng\"", "\"eng\", \"bsmod\": 2, \"mainid\": 1",
       first + ".streams[1].mainid: only with a bsmod of 0 or 1"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ("bad.json: " + c.error, ErrorOf(Replaced(kGood, c.from, c.to)));
  }
  const std::string head = R"({"medium": "air", "channels": )";
  EXPECT_EQ("bad.json: channels: must have 1 to 200 elements", ErrorOf(head + "[]}"));
  EXPECT_EQ("bad.json: channels[0].services: must have 1 to 250 elements",
            ErrorOf(LargeLineup(251)));
  EXPECT_EQ("bad.json: must be an object", ErrorOf("[]"));
}

TEST(PsipmuxErrors, MalformedJsonIsOneLine) {
  const std::string good = kGood;
  const std::string deep = std::string(100'000, '[') + std::string(100'000, ']');
  for (const std::string& bad :
       {std::string(), std::string("{"), std::string("null"), std::string("\0\1\2", 3),
        good.substr(0, good.size() / 2), good + "x", "// comment\n" + good,
        Replaced(good, "\"tsid\": 2", "\"tsid\": 2, \"tsid\": 3"),
        Replaced(good, "57000000", "1e999"), Replaced(good, "57000000", "NaN"), deep}) {
    const std::string error = ErrorOf(bad);
    EXPECT_EQ(0u, error.find("bad.json: ")) << error;
    EXPECT_GT(error.size(), 15u) << error;
    EXPECT_EQ(std::string::npos, error.find('\n')) << error;
  }
  EXPECT_EQ("bad.json: nested too deeply", ErrorOf(deep));
  EXPECT_EQ("bad.json: Line 1, Column 1: Syntax error: value, object or array expected.",
            ErrorOf("x"));
}

TEST_F(PsipmuxTest, FailureIsOneLineAndLeavesTheFolderAsItWas) {
  const std::string dir = folder_.string();
  const auto path = [&](const char* name) { return dir + "/" + name; };
  fs::create_directories(folder_ / "air/qam");
  WriteText(path("air/qam/57000000.ts"), "old");
  WriteText(path("air/qam/notes.txt"), "mine");
  WriteText(path("good.json"), kGood);
  WriteText(path("again.json"), kGood);
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
      {good + " " + path("none.json") + out,
       path("none.json") + ": cannot read: No such file or directory\n"},
      {dir + out, dir + ": cannot read: Is a directory\n"},
      {"/dev/zero" + out, "/dev/zero: larger than 4 MiB\n"},
      {good + " " + path("again.json") + out, path("again.json") +
                                                  ": channels[0].frequency: already used by " +
                                                  good + ": channels[0].frequency\n"},
      {good + " " + path("large.json") + out,
       path("large.json") +
           ": channels[0]: its tables take 2208 packets a second, the stream has 1000\n"},
      {good + " --out " + path("file"),
       "psipmux: " + path("file/qam") + ": cannot create: Not a directory\n"},
      {good + " --out " + path("air") + " --start 2026-02-29T00:00:00Z",
       "psipmux: --start: must be a UTC time of 1980-01-06 to 2116 such as "
       "2026-04-22T19:39:46Z\n"},
      {good, "psipmux: --out is required\n"},
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

TEST_F(PsipmuxTest, HelpAndVersion) {
  const Outcome help = Psipmux("--help");
  EXPECT_EQ(0, help.status);
  EXPECT_NE(std::string::npos, help.output.find("none is carried"));
  EXPECT_EQ(0, Psipmux("--version").status);
}

}  // namespace
