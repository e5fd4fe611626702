// Services built from tables, and broadcasts that try to harm the receiver.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "receiver/tables/psi_decoder.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

constexpr uint32_t kCable14 = 123000000;

// ISO 639 language, audio type 0.
Bytes language(const std::string& code) {
  return descriptor(0x0A, Bytes(code.begin(), code.end()) + Bytes{0});
}
// AC-3 audio: bsmod, fullService, then mainid or asvcflags.
Bytes ac3(unsigned bsmod, unsigned fullService, uint8_t number) {
  return descriptor(0x81, {0x08, 0x38, static_cast<uint8_t>(bsmod << 5 | 2 << 1 | fullService),
                           0xFF, number, 0x01, 0xBF, 'f', 'r', 'a'});
}

class ReceiverTablesTest : public testing::Test {
 protected:
  void SetUp() override {
    scan(kAir);
    scan(kCable);
  }
  std::vector<Row> receive(uint32_t source, uint32_t frequency, const Bytes& stream) {
    air_.write(source, frequency, stream);
    scan(source, frequency);
    return rows(source);
  }
  Air air_;
};

TEST_F(ReceiverTablesTest, ProgramsWithoutVctAreNumberedByRfChannel) {
  const Bytes stream = packets(0, {pat({{0, 0x10}, {3, 0x30}, {4, 0x40}, {5, 0x40}}, 77)}) +
                       packets(0x30, {pmt(3, {{2, 49, {}},
                                              {0x81, 52, language("eng") + ac3(0, 1, 2 << 5)},
                                              {0x81, 53, language("spa") + ac3(2, 1, 0x04)},
                                              {0x81, 54, ac3(3, 0, 0x01)},
                                              {0x81, 55, ac3(5, 0, 0x01)}})}) +
                       packets(0x40, {pmt(4, {{0x0F, 65, {}}}), pmt(5, {{0x0B, 70, {}}})});
  const std::vector<Row> list = receive(kAir, kChannel14, stream);
  ASSERT_EQ((Texts{"14-3 ", "14-4 ", "14-5 "}), labels(list));
  EXPECT_EQ(1u, list[0].info.build_from_pmt);
  EXPECT_EQ(77, list[0].info.transport_stream_id);
  EXPECT_EQ(uint32_t(AISRV_TYPE_TV), list[0].info.service_type);
  EXPECT_EQ(uint32_t(AISRV_TYPE_RADIO), list[1].info.service_type);
  EXPECT_EQ(uint32_t(AISRV_TYPE_DATA), list[2].info.service_type);

  EXPECT_EQ((Texts{"49  2", "52 eng 129", "53 spa 129", "54 fra 129", "55 fra 129"}),
            streams(list[0]));
  const AISRV_pid_info* audio = list[0].pids.pids + 1;
  EXPECT_EQ(AISRV_AUDIO_MAIN, audio[0].audio_kind);
  EXPECT_EQ(2, audio[0].main_audio_number);
  EXPECT_EQ(AISRV_AUDIO_DESCRIPTION, audio[1].audio_kind);
  EXPECT_EQ(0x04, audio[1].description_mask);
  EXPECT_EQ(1, audio[1].full_mix);
  EXPECT_EQ(AISRV_AUDIO_HEARING_IMPAIRED, audio[2].audio_kind);
  EXPECT_EQ(AISRV_AUDIO_OTHER, audio[3].audio_kind) << "commentary";
}

TEST_F(ReceiverTablesTest, LocationNamesTheStreamsAndThePmtTheirDetails) {
  const Bytes tables =
      packets(0x1FFB, {vct(0xC8, {{"BOTH", 8, 1, 3, 2, false,
                                   serviceLocation({{2, 49, ""}, {129, 52, ""}, {129, 52, ""}})},
                                  {"PMTONLY", 8, 2, 4},
                                  {"NEITHER", 8, 3, 5},
                                  {"AUDIO", 8, 4, 7, 3},
                                  {"HIDDEN", 8, 5, 8, 2, true},
                                  {"ELSE", 8, 6, 9, 2, false, {}, 2}})}) +
      packets(0, {pat({{3, 0x30}, {4, 0x30}})}) +
      packets(0x30, {pmt(3, {{129, 52, language("eng") + ac3(2, 0, 0x80)}, {129, 60, {}}}),
                     pmt(4, {{2, 65, {}}})});
  const std::vector<Row> list = receive(kAir, kChannel14, tables);
  ASSERT_EQ((Texts{"8-1 BOTH", "8-2 PMTONLY", "8-3 NEITHER", "8-4 AUDIO"}), labels(list));
  EXPECT_EQ((Texts{"49  2", "52  129"}), streams(list[0]));
  EXPECT_EQ(AISRV_AUDIO_DESCRIPTION, list[0].pids.pids[1].audio_kind);
  EXPECT_EQ(0x80, list[0].pids.pids[1].description_mask);
  EXPECT_EQ("eng", std::string(list[0].pids.pids[1].second_language, 3));
  EXPECT_EQ((Texts{"65  2"}), streams(list[1]));
  EXPECT_EQ(0u, list[2].pids.count);
  EXPECT_EQ(0u, list[3].info.build_from_pmt);
}

TEST_F(ReceiverTablesTest, APmtMayRateItsProgram) {
  const Bytes advisory = descriptor(0x87, {0xC2, 1, 1, 0, 0xF4, 0, 2, 1, 1, 3, 0});
  atschost::PsiDecoder decoder(kAir);
  const std::pair<uint16_t, Bytes> tables[] = {
      {0, pat({{3, 0x30}, {4, 0x30}, {5, 0x30}})},
      {0x30, pmt(3, {{2, 49, {}}}, language("eng") + advisory)},
      {0x30, pmt(4, {{2, 65, advisory}})},  // at a stream, where it is ignored
      {0x30, pmt(5, {{2, 66, {}}}, descriptor(0x87, {0xC2, 1, 1, 0, 3, 0, 2, 9, 0}))},  // cut off
  };
  for (const auto& [pid, table] : tables)
    EXPECT_STREQ(nullptr, decoder.push(atschost::parseSection(pid, table.data(), table.size())));
  using Advisories = std::vector<atschost::Advisory>;
  EXPECT_EQ(
      (std::map<uint16_t, Advisories>{{3, {{1, {{0, 4}}}, {2, {{1, 3}}}}}, {5, {{1, {{0, 3}}}}}}),
      decoder.tables().advisories);
}

TEST_F(ReceiverTablesTest, CableNumbersMayHaveOnePart) {
  const Bytes cable =
      vct(0xC9, {{"ONE", 0x3F1, 7, 3}, {"TWO", 0x3EF, 7, 4}, {"MAX", 0x3FF, 1023, 5}});
  const std::vector<Row> list = receive(kCable, kCable14, packets(0x1FFB, {cable}));
  ASSERT_EQ((Texts{"1007-7 TWO", "1031-0 ONE", "16383-0 MAX"}), labels(list));
  EXPECT_EQ(uint32_t(AI_MODULATION_QAM), list[0].info.modulation);
  // Each source has its own kind of table.
  EXPECT_EQ(Texts{}, labels(receive(kAir, kChannel14, packets(0x1FFB, {cable}))));
}

TEST_F(ReceiverTablesTest, OnlyTheCurrentTableCountsAndPidsAreBounded) {
  std::vector<Element> many;
  for (unsigned i = 0; i < 36; ++i) many.push_back({129, 100 + i, "eng"});
  const std::vector<Row> list =
      receive(kAir, kChannel14,
              packets(0x1FFB, {vct(0xC8, {{"NEXT", 9, 1, 3}}, 3, false),
                               vct(0xC8, {{"NOW", 9, 2, 3, 2, false, serviceLocation(many)}}, 2)}));
  ASSERT_EQ((Texts{"9-2 NOW"}), labels(list));
  ASSERT_EQ(uint32_t(AISRV_MAX_PIDS), list[0].pids.count);
  EXPECT_EQ(129, list[0].pids.pids[29].pid);
}

TEST_F(ReceiverTablesTest, SurvivesHostileStreams) {
  const Bytes good = goodCarrier();
  const Bytes table = vct(0xC8, {{"BAD", 6, 6, 3, 2, false, serviceLocation({{2, 49, ""}})}});
  const auto changed = [](Bytes bytes, size_t at, uint8_t value) {
    bytes.at(at) = value;
    return bytes;
  };
  const auto cut = [](Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
  };
  Bytes subtables;
  for (unsigned id = 2; id < 3000; ++id) {
    Bytes other = section(0xC8, id, {0, 0, 0xFC, 0});
    other[7] = 1;  // a second section that is never sent
    subtables = subtables + packets(0x1FFB, {sealed(other)});
  }
  std::vector<std::pair<unsigned, unsigned>> programs;
  for (unsigned p = 1; p < 250; ++p) programs.push_back({p, 0x1FFB});

  struct Case {
    const char* name;
    Bytes before;  // a good carrier follows, and repeats its tables
  };
  const std::vector<Case> cases = {
      {"lost bytes within a packet", cut(packets(0x1FFB, {table}), 100)},
      {"wrong CRC", packets(0x1FFB, {changed(table, 20, 0xEE)})},
      {"section_length 4095", packets(0x1FFB, {changed(changed(table, 1, 0xBF), 2, 0xFF)})},
      {"more channels than there are", packets(0x1FFB, {sealed(changed(table, 9, 200))})},
      {"descriptors longer than the table", packets(0x1FFB, {sealed(changed(table, 41, 255))})},
      {"descriptor longer than its loop", packets(0x1FFB, {sealed(changed(table, 43, 255))})},
      {"pointer_field past the packet", changed(packets(0x1FFB, {table}), 4, 255)},
      {"adaptation field past the packet",
       changed(changed(packets(0x1FFB, {table}), 3, 0x30), 4, 255)},
      {"scrambled", changed(packets(0x1FFB, {table}), 3, 0xD0)},
      {"transport error", changed(packets(0x1FFB, {table}), 1, 0xDF)},
      {"endless subtables", subtables},
      {"PAT of many programs on the PSIP PID", packets(0, {pat(programs)})},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    air_.write(kAir, 57000000, good);
    air_.write(kAir, kChannel14, c.before + good + good + good);
    scan(kAir);
    EXPECT_EQ((Texts{"5-1 GOOD", "5-1 GOOD"}), labels(kAir));
  }
}

TEST_F(ReceiverTablesTest, SurvivesFilesThatAreNoStreams) {
  EXPECT_EQ(0, mkdir(air_.path(kAir, 57000000).c_str(), 0700));
  EXPECT_EQ(0, mkfifo(air_.path(kAir, 63000000).c_str(), 0600));
  air_.write(kAir, 79000000, {});
  air_.write(kAir, kChannel14, goodCarrier());
  const std::vector<Report> reports = scan(kAir);
  ASSERT_EQ(70u, reports.size());
  EXPECT_EQ(0u, reports[2].progress.lock_frequency);
  EXPECT_EQ(79000000u, reports[4].progress.lock_frequency) << "an empty carrier is one";
  EXPECT_EQ("5-1 GOOD", labels(kAir).back());
}

}  // namespace
}  // namespace receiver_test
