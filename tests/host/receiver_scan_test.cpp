// Scans of real captures, and the rules of starting, stopping and replacing.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <thread>

#include "aicn.h"
#include "aife.h"
#include "aifw.h"
#include "atsc_host.h"
#include "osal.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;

fs::path capture(const std::string& name) { return fs::path(ATSC_CAPTURES_DIR) / name; }

bool hasCaptures() { return *ATSC_CAPTURES_DIR && fs::exists(capture("boston")); }

std::promise<void> called;
void returnAtOnce(void*, int state) {
  if (state == AICS_STATE_START) called.set_value();
}
void neverReturn(void*, int) {
  called.set_value();
  std::promise<void>().get_future().wait();
}

// Runs before every other suite, in a process without a receiver.
TEST(ReceiverExitDeathTest, ExitDuringScanIsCleanAndDoesNotHang) {
  for (const AICS_scan_callback callback : {returnAtOnce, neverReturn}) {
    Air air;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EXIT(
        {
          ATSC_host_set_dwell(60000);
          const int started = startScan(kAir, 0, callback);
          called.get_future().wait();
          exit(started);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(15));
  }
}

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

TEST_F(ReceiverScanTest, FindsTheServicesOfACity) {
  if (!hasCaptures()) GTEST_SKIP() << "no captures";
  ATSC_host_set_air(capture("boston").c_str());
  const std::vector<Report> reports = scan(kAir);
  const std::vector<Row> list = rows(kAir);
  EXPECT_EQ((Texts{"2-1 WGBH-HD", "2-2 World", "2-101 Updat0", "2-102 Updat1", "7-1 WHDH-HD",
                   "7-2 This TV", "25-1 WFXT DT", "25-2 WFXT DT"}),
            labels(list));
  ASSERT_EQ(8u, list.size());
  EXPECT_EQ((Texts{"106 eng 11"}), streams(list[2]));
  EXPECT_EQ((Texts{"49  2", "52 eng 129", "53 spa 129"}), streams(list[4]));
  EXPECT_EQ((Texts{"65  2", "68 eng 129"}), streams(list[7]));
  std::set<unsigned> records;
  for (const Row& row : list) {
    records.insert(row.info.service_id.service_rec);
    EXPECT_EQ(kAir, row.info.service_id.input_source);
    EXPECT_EQ(uint32_t(AI_MODULATION_8VSB), row.info.modulation);
    const bool data = row.info.minor > 100;
    EXPECT_EQ(uint32_t(data ? AISRV_TYPE_DATA : AISRV_TYPE_TV), row.info.service_type);
  }
  EXPECT_EQ(8u, records.size());

  // START, one report for each of the 68 channels, OVER.
  ASSERT_EQ(70u, reports.size());
  EXPECT_EQ(AICS_STATE_START, reports.front().state);
  for (size_t i = 1; i <= 68; ++i) {
    EXPECT_EQ(AICS_STATE_PROGRESS, reports[i].state);
    EXPECT_EQ(i + 1, reports[i].progress.channel_number);
    EXPECT_GE(reports[i].progress.progress, reports[i - 1].progress.progress);
  }
  const AICS_scan_progress& wgbh = reports[18].progress;  // channel 19
  EXPECT_EQ(503000000u, wgbh.lock_frequency);
  EXPECT_EQ(AI_MODULATION_8VSB, wgbh.carrier_type);
  EXPECT_EQ(4u, wgbh.services_found);
  EXPECT_EQ(0, reports[19].progress.carrier_type);
  const AICS_scan_progress& over = reports.back().progress;
  EXPECT_EQ(100, over.progress);
  EXPECT_EQ(803000000u, over.current_frequency);
  EXPECT_EQ(641000000u, over.lock_frequency);
  EXPECT_EQ(8u, over.services_found);
  EXPECT_EQ(6u, over.tv_services);
  EXPECT_EQ(2u, over.data_services);
}

TEST_F(ReceiverScanTest, FindsThreeProgramsWhosePmtsShareAPid) {
  if (!hasCaptures()) GTEST_SKIP() << "no captures";
  fs::copy_file(capture("sections/three-programs-psip.ts"), air_.path(kAir, 479000000));
  const std::vector<Report> reports = scan(kAir, 479000000);
  ASSERT_EQ(3u, reports.size());
  EXPECT_EQ(479000000u, reports[2].progress.current_frequency);
  EXPECT_EQ(15, reports[1].progress.channel_number);
  const std::vector<Row> list = rows(kAir);
  EXPECT_EQ((Texts{"4-1 S06 SM2", "4-2 S07 SM2", "4-3 S08 SM2"}), labels(list));
  ASSERT_EQ(3u, list.size());
  EXPECT_EQ((Texts{"65  2", "68 eng 129", "69 spa 129"}), streams(list[1]));
  EXPECT_EQ(AISRV_AUDIO_MAIN, list[2].pids.pids[1].audio_kind);  // from its PMT
  EXPECT_EQ(65002, list[2].info.transport_stream_id);
  EXPECT_EQ(5, list[2].info.source_id);
}

TEST_F(ReceiverScanTest, RefusesWhatCannotBeTuned) {
  const auto callback = [](void*, int) { ADD_FAILURE() << "called"; };
  EXPECT_NE(0, AICS_start_search(nullptr, callback));
  EXPECT_NE(0, startScan(kAir, 1, callback));
  EXPECT_NE(0, startScan(1, kChannel14, callback));
  EXPECT_NE(0, startScan(kAir, kChannel14, nullptr));
  EXPECT_NE(0, AICS_stop_scan());
}

TEST_F(ReceiverScanTest, ReplacesOnlyTheFrequenciesOfItsSource) {
  air_.write(kAir, kChannel14, goodCarrier());
  air_.write(kAir, 57000000, packets(0x1FFB, {vct(0xC8, {{"OTHER", 6, 1, 3}})}));
  air_.write(kCable, kChannel14, packets(0x1FFB, {vct(0xC9, {{"CABLE", 7, 1, 3}})}));
  scan(kAir);
  scan(kCable, kChannel14);  // 473 MHz is not a channel of the cable plan
  EXPECT_EQ((Texts{"5-1 GOOD", "6-1 OTHER"}), labels(kAir));
  EXPECT_EQ((Texts{"7-1 CABLE"}), labels(kCable));
  const uint32_t record = rows(kAir)[0].info.service_id.service_rec;

  air_.write(kAir, kChannel14,
             packets(0x1FFB, {vct(0xC8, {{"NEWNAME", 5, 1, 9}, {"ADDED", 5, 2, 4}})}));
  fs::remove(air_.path(kAir, 57000000));
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

TEST_F(ReceiverScanTest, FindsItsOwnTablesInAnyOrder) {
  Bytes foreign = vct(0xC8, {{"OTHER", 9, 1, 7, 2, false, {}, 2}});
  foreign[4] = 2;  // transport_stream_id
  const Bytes stream = packets(0x30, {pmt(3, {{2, 49, {}}})}) +
                       packets(0x1FFB, {sealed(foreign), vct(0xC8, {{"OWN", 5, 1, 3}})}) +
                       packets(0, {pat({{3, 0x30}})});
  air_.write(kAir, kChannel14, stream);
  scan(kAir, kChannel14);
  const std::vector<Row> list = rows(kAir);
  ASSERT_EQ((Texts{"5-1 OWN"}), labels(list));
  EXPECT_EQ((Texts{"49  2"}), streams(list[0]));
}

// A callback that waits, like a callback whose message is being handled by the process that stops
// the scan.
struct Gate {
  std::promise<void> reached, opened;
  std::atomic<int> calls{0};
  std::atomic<bool> returned{false};
};
Gate* gate = nullptr;
void waitAfterLock(void* data, int state) {
  ++gate->calls;
  if (state != AICS_STATE_PROGRESS || !static_cast<AICS_scan_progress*>(data)->carrier_type) return;
  gate->reached.set_value();
  gate->opened.get_future().wait();
  gate->returned = true;
}

TEST_F(ReceiverScanTest, StopKeepsWhatWasFoundAndWaitsForNoCallback) {
  Gate blocked;
  gate = &blocked;
  air_.write(kAir, kChannel14, goodCarrier());
  air_.write(kAir, 803000000, packets(0x1FFB, {vct(0xC8, {{"LATER", 6, 1, 3}})}));
  ASSERT_EQ(0, startScan(kAir, 0, waitAfterLock));
  EXPECT_NE(0, startScan(kAir, 0, waitAfterLock)) << "one runs already";
  blocked.reached.get_future().wait();
  EXPECT_EQ(0, AICS_stop_scan());
  EXPECT_NE(0, AICS_stop_scan());
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
  AIFE_tuning_details tuning;
  EXPECT_EQ(0, AIFE_get_tuning_details(AIFE_MAIN_TUNER, AIFE_MAIN_PATH, &tuning));
  EXPECT_EQ(kChannel14, tuning.frequency);

  // The next scan starts at once, but reports nothing until the old callback returns.
  const int calls = blocked.calls;
  static std::promise<bool> begun, ended;
  ASSERT_EQ(0, startScan(kAir, 0, [](void*, int state) {
              if (state == AICS_STATE_START) begun.set_value(gate->returned);
              if (state == AICS_STATE_OVER) ended.set_value(true);
            }));
  blocked.opened.set_value();
  EXPECT_TRUE(begun.get_future().get());
  ended.get_future().wait();
  EXPECT_EQ((Texts{"5-1 GOOD", "6-1 LATER"}), labels(kAir));
  EXPECT_EQ(calls, blocked.calls);
}

std::promise<int> restarted;
std::promise<void> over;
void restartInCallback(void*, int state) {
  if (state != AICS_STATE_PROGRESS) return;
  const int stopped = AICS_stop_scan();
  restarted.set_value(stopped | startScan(kAir, kChannel14, [](void*, int again) {
                        if (again == AICS_STATE_OVER) over.set_value();
                      }));
}

TEST_F(ReceiverScanTest, StopAndStartWorkInsideTheCallback) {
  air_.write(kAir, kChannel14, goodCarrier());
  ASSERT_EQ(0, startScan(kAir, 0, restartInCallback));
  EXPECT_EQ(0, restarted.get_future().get());
  over.get_future().wait();
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
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
        OSAL_display_sem_details_();
      }),
  };
  for (std::thread& thread : threads) thread.join();
  AICS_stop_scan();
  scan(kAir);
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
}

TEST_F(ReceiverScanTest, NamesEndWithTheLentBuffer) {
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

}  // namespace
}  // namespace receiver_test
