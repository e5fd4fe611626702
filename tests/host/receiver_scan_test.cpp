// Scans: what they report, list and replace, how they start and stop, and services built from the
// tables of a stream, also of one that tries to harm the receiver.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <atomic>
#include <future>
#include <sstream>
#include <thread>

#include "aicn.h"
#include "aife.h"
#include "aifw.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;

constexpr uint32_t kChannel2 = 57000000, kCable14 = 123000000;

class ReceiverScanTest : public testing::Test {
 protected:
  void SetUp() override {
    scan(kAir);
    scan(kCable);
    ASSERT_EQ(Texts{}, labels(kAir));
    ASSERT_EQ(Texts{}, labels(kCable));
  }
  Air air_;
};

// A carrier with the channel major-1 alone.
Bytes named(const std::string& name, unsigned major, uint8_t type = 2, uint8_t tableId = 0xC8) {
  return packets(0x1FFB, {vct(tableId, {{name, major, 1, 3, type}})});
}

TEST_F(ReceiverScanTest, ReportsEachChannelAndTheServicesSoFar) {
  EXPECT_EQ(0, mkdir(air_.path(kAir, kChannel2).c_str(), 0700));
  EXPECT_EQ(0, mkfifo(air_.path(kAir, 63000000).c_str(), 0600));
  air_.write(kAir, 79000000, {});  // a carrier without a stream
  air_.write(kAir, kChannel14, goodCarrier());
  air_.write(kAir, 479000000, named("RADIO", 6, 3));
  air_.write(kAir, 803000000, named("DATA", 7, 4));
  const std::vector<Report> reports = scan(kAir);
  ASSERT_EQ(70u, reports.size());
  for (unsigned i = 1; i <= 68; ++i) {
    EXPECT_EQ(i + 1, reports[i].progress.channel_number);
    EXPECT_EQ(i * 100 / 68, reports[i].progress.progress);
  }
  // State, frequency, last lock (MHz), whether this is one; services: all, TV, radio, data.
  const auto told = [](const Report& r) {
    const AICS_scan_progress& p = r.progress;
    EXPECT_EQ(AI_MODULATION_8VSB, p.band_mask);
    EXPECT_TRUE(p.carrier_type == 0 || p.carrier_type == AI_MODULATION_8VSB);
    std::ostringstream text;
    text << r.state << ' ' << p.current_frequency / 1000000 << ' ' << p.lock_frequency / 1000000
         << (p.carrier_type ? " locked " : " - ") << p.services_found << ' ' << p.tv_services << ' '
         << p.radio_services << ' ' << p.data_services;
    return text.str();
  };
  Texts some;
  for (const size_t i : {0, 1, 2, 4, 5, 13, 14, 15, 68, 69}) some.push_back(told(reports[i]));
  EXPECT_EQ(
      (Texts{"0 0 0 - 0 0 0 0", "1 57 0 - 0 0 0 0", "1 63 0 - 0 0 0 0", "1 79 79 locked 0 0 0 0",
             "1 85 79 - 0 0 0 0", "1 473 473 locked 1 1 0 0", "1 479 479 locked 2 1 1 0",
             "1 485 479 - 2 1 1 0", "1 803 803 locked 3 1 1 1", "2 803 803 locked 3 1 1 1"}),
      some);
  const std::vector<Report> one = scan(kAir, kChannel14);
  ASSERT_EQ(3u, one.size());
  EXPECT_EQ(14, one[1].progress.channel_number);
  EXPECT_EQ("2 473 473 locked 1 1 0 0", told(one[2]));
}

TEST_F(ReceiverScanTest, ReplacesOnlyTheFrequenciesOfItsSource) {
  air_.write(kAir, kChannel14, goodCarrier());
  air_.write(kAir, kChannel2, named("OTHER", 6));
  air_.write(kCable, kChannel14, named("CABLE", 7, 2, 0xC9));
  scan(kAir);
  scan(kCable, kChannel14);  // 473 MHz is not a channel of the cable plan
  EXPECT_EQ((Texts{"5-1 GOOD", "6-1 OTHER"}), labels(kAir));
  EXPECT_EQ((Texts{"7-1 CABLE"}), labels(kCable));
  const uint32_t record = rows(kAir)[0].info.service_id.service_rec;

  air_.write(kAir, kChannel14,
             packets(0x1FFB, {vct(0xC8, {{"NEWNAME", 5, 1, 9}, {"ADDED", 5, 2, 4}})}));
  fs::remove(air_.path(kAir, kChannel2));
  scan(kAir, kChannel14);
  EXPECT_EQ((Texts{"5-1 NEWNAME", "5-2 ADDED", "6-1 OTHER"}), labels(kAir));
  EXPECT_EQ(record, rows(kAir)[0].info.service_id.service_rec);
  EXPECT_EQ(9, rows(kAir)[0].info.program_number);
  scan(kAir);
  EXPECT_EQ((Texts{"5-1 NEWNAME", "5-2 ADDED"}), labels(kAir));
  EXPECT_EQ((Texts{"7-1 CABLE"}), labels(kCable));
  fs::remove(air_.path(kCable, kChannel14));
  scan(kCable, kChannel14);

  // Services of an unreadable carrier stay.
  fs::remove(air_.path(kAir, kChannel14));
  fs::create_directory(air_.path(kAir, kChannel14));
  scan(kAir);
  EXPECT_EQ((Texts{"5-1 NEWNAME", "5-2 ADDED"}), labels(kAir));
  fs::remove(air_.path(kAir, kChannel14));
}

// A callback that waits, like a callback whose message is being handled by the process that stops
// the scan.
std::promise<void> reached, opened;
std::atomic<int> calls{0};
std::atomic<bool> returned{false};
void waitAfterLock(void* data, int state) {
  ++calls;
  if (state != AICS_STATE_PROGRESS || !static_cast<AICS_scan_progress*>(data)->carrier_type) return;
  reached.set_value();
  opened.get_future().wait();
  returned = true;
}

TEST_F(ReceiverScanTest, StopKeepsWhatWasFoundAndWaitsForNoCallback) {
  air_.write(kAir, kChannel14, goodCarrier());
  air_.write(kAir, 803000000, named("LATER", 6));
  ASSERT_EQ(0, startScan(kAir, 0, waitAfterLock));
  EXPECT_NE(0, startScan(kAir, 0, waitAfterLock)) << "one runs already";
  reached.get_future().wait();
  EXPECT_EQ(0, AICS_stop_scan());
  EXPECT_NE(0, AICS_stop_scan());
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
  AIFE_tuning_details tuning;
  EXPECT_EQ(0, AIFE_get_tuning_details(AIFE_MAIN_TUNER, AIFE_MAIN_PATH, &tuning));
  EXPECT_EQ(kChannel14, tuning.frequency);

  // The next scan starts at once, but reports nothing until the old callback returns.
  const int before = calls;
  static std::promise<bool> begun, ended;
  ASSERT_EQ(0, startScan(kAir, 0, [](void*, int state) {
              if (state == AICS_STATE_START) begun.set_value(returned);
              if (state == AICS_STATE_OVER) ended.set_value(true);
            }));
  opened.set_value();
  EXPECT_TRUE(begun.get_future().get());
  ended.get_future().wait();
  EXPECT_EQ((Texts{"5-1 GOOD", "6-1 LATER"}), labels(kAir));
  EXPECT_EQ(before, calls);

  // A scan is stopped and started by a callback.
  static std::promise<int> restarted;
  static std::promise<void> over;
  ASSERT_EQ(0, startScan(kAir, 0, [](void*, int state) {
              if (state != AICS_STATE_PROGRESS) return;
              const int stopped = AICS_stop_scan();
              restarted.set_value(stopped | startScan(kAir, kChannel14, [](void*, int again) {
                                    if (again == AICS_STATE_OVER) over.set_value();
                                  }));
            }));
  EXPECT_EQ(0, restarted.get_future().get());
  over.get_future().wait();
}

// For the thread sanitizer.
TEST_F(ReceiverScanTest, ManyThreadsMayUseItAtOnce) {
  air_.write(kAir, kChannel14, goodCarrier());
  const auto keep = [](const auto& work) {
    return std::thread([work] {
      for (int i = 0; i < 200; ++i) work(i);
    });
  };
  std::thread threads[] = {
      keep([](int i) { startScan(kAir, i % 2 ? 0 : kChannel14, [](void*, int) {}); }),
      keep([](int) { AICS_stop_scan(); }),
      keep([](int) { labels(kCable); }),
      keep([](int) { AIFW_play_first_service(kAir, 0); }),
      keep([](int) { AISRV_sync_to_database(); }),
      keep([](int i) {
        AIFW_powerTransition_request(i % 2 == 0);
        AISRV_reset_db(kCable);
      }),
      keep([](int i) {
        AIFW_change_audio(static_cast<uint8_t>(i % 2));
        AICN_set_pref_aud_lang(i % 2 == 0 ? AICN_LANGUAGE_SPANISH : AICN_LANGUAGE_ENGLISH);
        AIFW_handle_tuner_mode_change(i % 3 == 0 ? kCable : kAir);
      }),
  };
  for (std::thread& thread : threads) thread.join();
  AICS_stop_scan();
  scan(kAir);
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
}

TEST_F(ReceiverScanTest, RefusesWhatItDoesNotKnowAndWritesNoMoreThanIsLent) {
  const auto callback = [](void*, int) { ADD_FAILURE() << "called"; };
  EXPECT_NE(0, AICS_start_search(nullptr, callback));
  EXPECT_NE(0, startScan(kAir, 1, callback));
  EXPECT_NE(0, startScan(1, kChannel14, callback));
  EXPECT_NE(0, startScan(kAir, kChannel14, nullptr));
  EXPECT_NE(0, AICS_stop_scan());
  air_.write(kAir, kChannel14, goodCarrier());
  scan(kAir, kChannel14);
  const AISRV_query_filter none{};
  uint32_t count = 1;
  EXPECT_NE(0, AISRV_get_total_services(1, AISRV_SERVICE_MASK, &none, 0, &count));
  uint8_t name[6] = {9, 9, 9, 9, 9, 9};
  AISRV_service_info record{};
  record.name = {name, 5, 0};
  ASSERT_EQ(0, AISRV_get_n_services(kAir, AISRV_SERVICE_MASK, 0, &none, 0, 0, &count, &record));
  EXPECT_EQ(4, record.name.length);
  EXPECT_EQ(Bytes({0, 'G', 0, 'O', 9, 9}), Bytes(name, name + 6));
}

// ISO 639 language, audio type 0.
Bytes language(const std::string& code) { return descriptor(0x0A, bytesOf(code) + Bytes{0}); }
// AC-3 audio: bsmod, full service, then mainid or asvcflags; 0 channels are two mono ones.
Bytes ac3(unsigned bsmod, unsigned fullService, uint8_t number, unsigned channels = 2) {
  return descriptor(
      0x81, Bytes{0x08, 0x38, static_cast<uint8_t>(bsmod << 5 | channels << 1 | fullService)} +
                Bytes(channels == 0 ? 2 : 1, 0xFF) + Bytes{number, 0x01, 0xBF, 'f', 'r', 'a'});
}

class ReceiverTablesTest : public ReceiverScanTest {
 protected:
  // Returns what a carrier lists: each service, its type, program, transport stream and source ids,
  // with '*' when it has no VCT, and its streams.
  Texts receive(uint32_t source, const Bytes& stream) {
    const uint32_t frequency = source == kCable ? kCable14 : kChannel14;
    air_.write(source, frequency, stream);
    scan(source, frequency);
    const std::vector<Row> list = rows(source);
    Texts texts = labels(list);
    for (size_t i = 0; i < list.size(); ++i) {
      const AISRV_service_info& info = list[i].info;
      EXPECT_EQ(source, info.service_id.input_source);
      EXPECT_EQ(uint32_t(source == kCable ? AI_MODULATION_QAM : AI_MODULATION_8VSB),
                info.modulation);
      std::ostringstream text;
      text << (info.service_type == AISRV_TYPE_RADIO  ? " radio "
               : info.service_type == AISRV_TYPE_DATA ? " data "
                                                      : " TV ")
           << info.program_number << ' ' << info.transport_stream_id << ' ' << info.source_id
           << (info.build_from_pmt ? "*" : "");
      for (const std::string& each : streams(list[i])) text << ", " << each;
      texts[i] += text.str();
    }
    return texts;
  }
};

TEST_F(ReceiverTablesTest, MakeServicesWithTheirStreams) {
  std::vector<Element> many;
  for (unsigned i = 0; i < 36; ++i) many.push_back({129, 100 + i, "eng"});
  std::string manyStreams = "9-2 NOW TV 3 1 3";
  for (unsigned pid = 100; pid < 130; ++pid) manyStreams += ", " + std::to_string(pid) + " eng 129";
  Bytes foreign = vct(0xC8, {{"OTHER", 9, 1, 7, 2, false, {}, 2}});
  foreign[4] = 2;  // transport_stream_id
  const Bytes cable = packets(
      0x1FFB, {vct(0xC9, {{"ONE", 0x3F1, 7, 3}, {"TWO", 0x3EF, 7, 4}, {"MAX", 0x3FF, 1023, 5}})});
  const struct {
    uint32_t source;
    Bytes stream;
    Texts expected;
  } cases[] = {
      // Programs without a VCT are numbered by the RF channel.
      {kAir,
       packets(0, {pat({{0, 0x10}, {3, 0x30}, {4, 0x40}, {5, 0x40}}, 77)}) +
           packets(0x30, {pmt(3, {{2, 49, {}},
                                  {0x81, 52, language("eng") + ac3(0, 1, 2 << 5)},
                                  {0x81, 53, language("spa") + ac3(2, 1, 0x04)},
                                  {0x81, 54, ac3(3, 0, 0x01)},
                                  {0x81, 55, ac3(5, 0, 0x01, 0)}})}) +
           packets(0x40, {pmt(4, {{0x0F, 65, {}}}), pmt(5, {{0x0B, 70, {}}})}),
       {"14-3  TV 3 77 0*, 49  2, 52 eng 129 kind 1 main 2, 53 spa 129 kind 3 describes 4 mixed, "
        "54 fra 129 kind 2 describes 1, 55 fra 129 kind 4 describes 1",
        "14-4  radio 4 77 0*, 65  15", "14-5  data 5 77 0*, 70  11"}},
      // The location names the streams, and the PMT their details.
      {kAir,
       packets(0x1FFB, {vct(0xC8, {{"BOTH", 8, 1, 3, 2, false,
                                    serviceLocation({{2, 49, ""}, {129, 52, ""}, {129, 52, ""}})},
                                   {"PMTONLY", 8, 2, 4},
                                   {"NEITHER", 8, 3, 5},
                                   {"AUDIO", 8, 4, 7, 3},
                                   {"HIDDEN", 8, 5, 8, 2, true},
                                   {"ELSE", 8, 6, 9, 2, false, {}, 2}})}) +
           packets(0, {pat({{3, 0x30}, {4, 0x30}})}) +
           packets(0x30, {pmt(3, {{129, 52, language("eng") + ac3(2, 0, 0x80)}, {129, 60, {}}}),
                          pmt(4, {{2, 65, {}}})}),
       {"8-1 BOTH TV 3 1 3, 49  2, 52  129 kind 3 describes 128 second eng",
        "8-2 PMTONLY TV 4 1 4, 65  2", "8-3 NEITHER TV 5 1 5", "8-4 AUDIO radio 7 1 7"}},
      // In any order, and next to the VCT of another stream.
      {kAir,
       packets(0x30, {pmt(3, {{2, 49, {}}})}) +
           packets(0x1FFB, {sealed(foreign), vct(0xC8, {{"OWN", 5, 1, 3}})}) +
           packets(0, {pat({{3, 0x30}})}),
       {"5-1 OWN TV 3 1 3, 49  2"}},
      // Only the current table counts, and PIDs are bounded.
      {kAir,
       packets(0x1FFB, {vct(0xC8, {{"NEXT", 9, 1, 3}}, 3, false),
                        vct(0xC8, {{"NOW", 9, 2, 3, 2, false, serviceLocation(many)}}, 2)}),
       {manyStreams}},
      // Cable numbers may have one part. Each source has its own kind of table.
      {kCable, cable, {"1007-7 TWO TV 4 1 4", "1031-0 ONE TV 3 1 3", "16383-0 MAX TV 5 1 5"}},
      {kAir, cable, {}},
  };
  for (const auto& each : cases) EXPECT_EQ(each.expected, receive(each.source, each.stream));
}

TEST_F(ReceiverTablesTest, SurviveHostileStreams) {
  const Bytes table = vct(0xC8, {{"BAD", 6, 6, 3, 2, false, serviceLocation({{2, 49, ""}})}});
  const Bytes sound = packets(0x1FFB, {table});
  const auto changed = [](Bytes bytes, size_t at, uint8_t value) {
    bytes.at(at) = value;
    return bytes;
  };
  std::vector<std::pair<unsigned, unsigned>> programs;
  for (unsigned p = 1; p < 250; ++p) programs.push_back({p, 0x1FFB});
  Bytes stream = Bytes(sound.begin(), sound.begin() + 100) +  // lost bytes within a packet
                 packets(0, {pat(programs)}) +                // all on the PID of the VCT
                 changed(sound, 4, 255) +                     // pointer_field past the packet
                 changed(changed(sound, 3, 0x30), 4, 255) +   // adaptation field, too
                 changed(sound, 3, 0xD0) +                    // scrambled
                 changed(sound, 1, 0xDF);                     // transport error
  // A wrong CRC, and a section_length of 4095. Then more channels than there are, too long
  // descriptors, a descriptor longer than its loop.
  for (const Bytes& bad : {changed(table, 20, 0xEE), changed(changed(table, 1, 0xBF), 2, 0xFF),
                           sealed(changed(table, 9, 200)), sealed(changed(table, 41, 255)),
                           sealed(changed(table, 43, 255))})
    stream = stream + packets(0x1FFB, {bad});
  const Bytes good = goodCarrier();
  air_.write(kAir, kChannel14, stream + good + good);  // tables are repeated
  scan(kAir);
  EXPECT_EQ(Texts{"5-1 GOOD"}, labels(kAir));
}

}  // namespace
}  // namespace receiver_test
