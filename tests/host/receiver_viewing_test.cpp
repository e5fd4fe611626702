// Parental control and locks of the playing service, through the modules.
#include <gtest/gtest.h>

#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>

#include "aicn.h"
#include "aiec.h"
#include "aifw.h"
#include "aipc.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "modules/host.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Receiver;
using Events = std::vector<AFW_event_t>;

// Events of parental control and locks.
Arrivals<AFW_event_t> told;

void tell(AFW_event_t event, void*) {
  for (const AFW_event_t kind :
       {AFW_PARENTAL_UPDATE, AFW_PARENTAL_BLOCKED, AFW_PARENTAL_UNBLOCKED, AFW_CHANNEL_LOCKED,
        AFW_CHANNEL_UNLOCKED, AFW_CHANNEL_PLAY_SUCCESS}) {
    if (event == kind) told.add(event);
  }
}

constexpr uint32_t kChannel20 = 509000000;
constexpr uint32_t kStart = 1300000000;  // GPS seconds
constexpr uint8_t kOffset = 18;

// Returns a stream with two channels. 5-1: an hour rated TV-PG, half an hour rated TV-14, and after
// half an hour a programme that is not rated; its PMT has `pmtDescriptors`. 5-2: no programmes.
// Without `hasBoth` the VCT only has 5-2.
Bytes ratedStream(const Bytes& pmtDescriptors = {}, bool hasBoth = true) {
  std::vector<Channel> channels = {{"ONE", 5, 1, 3}, {"TWO", 5, 2, 4}};
  if (!hasBoth) channels.erase(channels.begin());
  const Bytes guide = eit(3, {{1, kStart, text("Mild"), contentAdvisory(1, {{0, 3}}), 3600},
                              {2, kStart + 3600, text("Wild"), contentAdvisory(1, {{0, 4}})},
                              {3, kStart + 7200, text("Unknown"), {}, 3600}});
  return packets(0x1FFB, {vct(0xC8, channels), stt(kStart, kOffset), mgt({{0x100, 0x1D00}})}) +
         packets(0x1D00, {guide}) + packets(0, {pat({{3, 0x30}, {4, 0x31}})}) +
         packets(0x30, {pmt(3, {{2, 49, {}}, {0x81, 52, {}}}, pmtDescriptors)}) +
         packets(0x31, {pmt(4, {{2, 65, {}}})});
}

void setTime(uint32_t gpsSeconds) { ATSC_host_set_clock(gpsSeconds - kOffset + kGpsEpoch); }

class ReceiverViewingTest : public testing::Test {
 protected:
  ReceiverViewingTest() { AIPC_set_default_settings(); }
  ~ReceiverViewingTest() override {
    AIFW_register_frmwrk_app_cb(nullptr);
    AIFW_stop_curr_src();
    AIPC_set_default_settings();
    AICN_set_play_from_ap(0);
    ATSC_host_set_fast(0);
  }
  static void enable() {
    const AIPC_parental_details details{0, 1, 0, 0, 1, 0};
    EXPECT_EQ(0, AIPC_set_parental_details(&details));
  }
  static void limit(int32_t usTv) {
    AIPC_dime_t limits{};
    limits.region = 1;
    limits.us_tv = usTv;
    EXPECT_EQ(0, AIPC_store_rating(limits));
  }
};

std::mutex held;
void hold(AFW_event_t, void*) { const std::lock_guard<std::mutex> lock(held); }

TEST(ReceiverEventsTest, AGuideThatWaitsToBeTakenAnewIsNotToldTwice) {
  atschost::EventQueue events;
  events.setCallback(hold);
  const std::lock_guard<std::mutex> lock(held);
  events.raise(AFW_PARENTAL_UPDATE);
  while (events.waiting() != 0) std::this_thread::yield();
  for (const auto& ids : std::vector<std::vector<uint16_t>>{{1, 2}, {1, 2}, {1}, {1, 2}, {}}) {
    events.raise(AFW_PARENTAL_UPDATE);
    events.refreshGuide(ids);
  }
  EXPECT_EQ(5u + 2u, events.waiting());
  events.setCallback(nullptr);
}

TEST_F(ReceiverViewingTest, WhatPlaysIsBlockedAndFreedAsProgrammesAndSettingsChange) {
  constexpr Events::value_type kUpdate = AFW_PARENTAL_UPDATE, kBlocked = AFW_PARENTAL_BLOCKED,
                               kFree = AFW_PARENTAL_UNBLOCKED, kLocked = AFW_CHANNEL_LOCKED,
                               kOpened = AFW_CHANNEL_UNLOCKED, kPlays = AFW_CHANNEL_PLAY_SUCCESS;
  const Air air;
  AISRV_reset_db(kAir);
  air.write(kAir, kChannel20, ratedStream());
  ATSC_host_set_fast(1);
  scan(kAir, kChannel20);
  Receiver& receiver = atschost::hostReceiver();
  const std::vector<Row> list = rows(kAir);
  ASSERT_EQ(2u, list.size());
  const AISRV_service_info& one = list[0].info;
  const auto verdict = [&] { return AIEC_check_rating(&one); };
  const auto status = [&] {
    uint32_t value = 9;
    EXPECT_EQ(0, AISRV_get_rating_status(&one, &value));
    return value;
  };
  const auto regions = [&] {
    uint8_t numbers[2] = {}, count = 2;
    EXPECT_EQ(0, AISRV_get_CAD_list(&one, &count, numbers));
    return std::vector<int>(numbers, numbers + count);
  };
  const auto blockedEvents = [&] {
    AIEC_event_info events[3] = {};
    uint16_t count = 0;
    EXPECT_EQ(0, AIEC_get_first_n_events(&one, events, 3, &count));
    std::string text;
    for (uint16_t i = 0; i < count; ++i) text += events[i].parental_status ? 'x' : '-';
    return text;
  };
  setTime(kStart);
  AIFW_register_frmwrk_app_cb(tell);
  told.take(0);
  ASSERT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  EXPECT_EQ(Events{kPlays}, told.take(1));
  enable();
  limit(4);
  EXPECT_EQ((Events{kUpdate, kUpdate}), told.take(2));
  EXPECT_EQ(0, verdict());
  EXPECT_EQ("-x-", blockedEvents());
  EXPECT_EQ(1, receiver.player().audioTrack());

  setTime(kStart + 3600 - 1);
  EXPECT_EQ(Events{kBlocked}, told.take(1));
  EXPECT_EQ(AIPC_BLOCKED, verdict());
  EXPECT_EQ(0u, status());
  EXPECT_EQ(0, receiver.player().audioTrack());
  EXPECT_TRUE(receiver.player().isPlaying());
  limit(4);  // nothing changes
  limit(5);
  EXPECT_EQ((Events{kUpdate, kFree}), told.take(2));
  EXPECT_EQ("---", blockedEvents());
  limit(4);
  EXPECT_EQ((Events{kUpdate, kBlocked}), told.take(2));

  // The password for the programme.
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_checking_status(1));
  EXPECT_EQ(Events{kFree}, told.take(1));
  EXPECT_EQ(0, verdict());
  EXPECT_EQ(1, receiver.player().audioTrack());
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_checking_status(0));
  EXPECT_EQ(Events{kBlocked}, told.take(1));
  const AIFW_channel_change_request two{
      AIFW_CHANGE_DIRECT, kAir, AISRV_SERVICE_MASK, 5, 2, 0, 0xFFFF, kAir};
  EXPECT_EQ(0, AIFW_channel_change(&two));
  EXPECT_EQ((Events{kFree, kPlays}), told.take(2));
  EXPECT_EQ(AIPC_BLOCKED, verdict()) << "of the other channel";
  EXPECT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  EXPECT_EQ((Events{kBlocked, kPlays}), told.take(2));

  // Between two programmes; without a rating; with a separate group.
  setTime(kStart + 5400);
  EXPECT_EQ(Events{kFree}, told.take(1));
  EXPECT_EQ(AIPC_UNRATED, verdict());
  setTime(kStart + 7200);
  EXPECT_EQ(AIPC_UNRATED, verdict());
  EXPECT_EQ(0u, status());
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_NO_RATING));
  EXPECT_EQ((Events{kUpdate, kBlocked}), told.take(2));
  EXPECT_EQ(AIPC_UNRATED, verdict());
  EXPECT_EQ(1u, status());
  EXPECT_EQ("-xx", blockedEvents());
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(0, AIPC_UNRATED_NO_RATING));
  EXPECT_EQ((Events{kUpdate, kFree}), told.take(2));

  // Rated by the streams.
  EXPECT_EQ(std::vector<int>{}, regions());
  air.write(kAir, kChannel20, ratedStream(contentAdvisory(1, {{0, 5}, {4, 1}})));
  EXPECT_EQ(Events{kBlocked}, told.take(1));
  EXPECT_EQ(AIPC_BLOCKED_BY_STATUS, verdict());
  EXPECT_EQ(std::vector<int>{1}, regions());
  EXPECT_EQ(1u, status());
  // A film that is not rated.
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_US_MPAA));
  air.write(kAir, kChannel20, ratedStream(contentAdvisory(1, {{7, 8}})));
  while (verdict() != AIPC_UNRATED) std::this_thread::yield();
  EXPECT_EQ(1u, status());
  EXPECT_EQ(Events{kUpdate}, told.take(1)) << "blocked as before";
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(0, AIPC_UNRATED_US_MPAA));
  EXPECT_EQ((Events{kUpdate, kFree}), told.take(2));
  // A service does not count as unrated before its streams are read.
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(std::vector<int>{}, regions());
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_NO_RATING));
  air.write(kAir, kChannel20, ratedStream(contentAdvisory(1, {{0, 3}})));
  EXPECT_EQ(Events{kUpdate}, told.take(1));
  EXPECT_EQ(0, AIFW_play_curr_src());
  while (verdict() != AIPC_BLOCKED_BY_STATUS) std::this_thread::yield();
  EXPECT_EQ(Events{kPlays}, told.take(1));

  // A lock by another origin than the application closes the playing service; removing it opens the
  // service.
  AISRV_service_info locked = one;
  const auto lock = [&](bool on) {
    locked.AISRV_flags_ = AISRV_FLAG_VISIBLE | (on ? AISRV_FLAG_LOCKED : 0);
    EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &locked));
  };
  AICN_set_play_from_ap(0);
  lock(true);
  EXPECT_EQ(0, receiver.player().audioTrack());
  lock(false);
  AICN_set_play_from_ap(1);
  lock(true);
  EXPECT_EQ(1, receiver.player().audioTrack());
  EXPECT_EQ((Events{kLocked, kOpened}), told.take(2));
  EXPECT_EQ(0, AIFW_play_curr_src());
  EXPECT_EQ((Events{kLocked, kPlays}), told.take(2));
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  EXPECT_EQ(Events{kOpened}, told.take(1));
  // A password is forgotten after a failure and after standby, which also stores the settings.
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  const AIFW_channel_change_request none{
      AIFW_CHANGE_DIRECT, kAir, AISRV_SERVICE_MASK, 9, 9, 0, 0xFFFF, kAir};
  EXPECT_NE(0, AIFW_channel_change(&none));
  EXPECT_EQ(0, AIFW_play_curr_src());
  EXPECT_EQ(kLocked, told.take(2).front());
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  EXPECT_EQ(0, AIPC_store_all());
  EXPECT_EQ(0, AIFW_powerTransition_request(1));
  EXPECT_TRUE(atschost::Parental(getenv("ATSC_HOST_STATE")).settings()->enabled());
  EXPECT_EQ(0, AIFW_powerTransition_request(0));
  EXPECT_EQ(kLocked, told.take(2).front());
  lock(false);
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_NE(0, AIFW_pwd_unlocked_no_checking_status(1));
}

TEST_F(ReceiverViewingTest, WhatPlaysIsGuardedWithoutSignalAndWithoutBeingListed) {
  constexpr Events::value_type kUpdate = AFW_PARENTAL_UPDATE, kBlocked = AFW_PARENTAL_BLOCKED,
                               kFree = AFW_PARENTAL_UNBLOCKED;
  const Air air;
  AISRV_reset_db(kAir);
  air.write(kAir, kChannel20, ratedStream());
  ATSC_host_set_fast(1);
  scan(kAir, kChannel20);
  enable();
  limit(4);
  setTime(kStart);
  AIFW_register_frmwrk_app_cb(tell);
  told.take(0);
  ASSERT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  EXPECT_EQ(Events{AFW_CHANNEL_PLAY_SUCCESS}, told.take(1));
  AISRV_service_info one{};
  ASSERT_EQ(0, AICN_get_current(&one));
  AISRV_service_info marked = one;
  marked.AISRV_flags_ |= AISRV_FLAG_LOCKED;
  marked.AISRV_fav_group_ = 0x10;
  AICN_set_play_from_ap(1);
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &marked));

  air.write(kAir, kChannel20, ratedStream(contentAdvisory(1, {{0, 5}})));
  EXPECT_EQ(Events{kBlocked}, told.take(1));
  fs::remove(air.path(kAir, kChannel20));
  EXPECT_EQ(Events{kFree}, told.take(1)) << "as the guide says";

  air.write(kAir, kChannel20, ratedStream({}, false));
  const AISRV_query_filter all{};
  for (uint32_t listed = 0; listed != 1; std::this_thread::yield())
    ASSERT_EQ(0, AISRV_get_total_services(kAir, AISRV_SERVICE_MASK, &all, 0, &listed));
  EXPECT_EQ(Events{AFW_CHANNEL_PLAY_SUCCESS}, told.take(1));
  setTime(kStart + 3600);
  EXPECT_EQ(Events{kBlocked}, told.take(1));
  EXPECT_EQ(AIPC_BLOCKED, AIEC_check_rating(&one));
  limit(5);
  EXPECT_EQ((Events{kUpdate, kFree}), told.take(2));
  AISRV_service_info current{};
  EXPECT_EQ(0, AICN_get_current(&current));
  EXPECT_EQ(one.service_id.service_rec, current.service_id.service_rec);
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_NE(0, AICN_get_current(&current));
  EXPECT_EQ(-1, AIEC_check_rating(&one));
  // The service returns with the viewer's settings.
  air.write(kAir, kChannel20, ratedStream());
  EXPECT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  for (uint32_t listed = 0; listed != 2; std::this_thread::yield())
    ASSERT_EQ(0, AISRV_get_total_services(kAir, AISRV_SERVICE_MASK, &all, 0, &listed));
  EXPECT_EQ(marked.AISRV_flags_, rows(kAir)[0].info.AISRV_flags_);
  EXPECT_EQ(0x10u, rows(kAir)[0].info.AISRV_fav_group_);
}

TEST_F(ReceiverViewingTest, OneProgrammeOfACityIsBlockedFromItsStartToItsEnd) {
  const fs::path captures = ATSC_CAPTURES_DIR;
  if (captures.empty() || !fs::exists(captures / "boston"))
    GTEST_SKIP() << "no field captures: see ATSC_CAPTURES_DIR";
  constexpr uint32_t kStation = 503000000, kBegin = 1389295800;  // 2014-01-09 19:30 UTC
  AISRV_reset_db(kAir);
  ATSC_host_set_air((captures / "boston").c_str());
  ATSC_host_set_dwell(0);
  scan(kAir, kStation);
  enable();
  limit(4);
  ATSC_host_set_clock(kBegin - 10);
  AIFW_register_frmwrk_app_cb(tell);
  told.take(0);
  const AIFW_channel_change_request independent{
      AIFW_CHANGE_DIRECT, kAir, AISRV_SERVICE_MASK, 2, 2, 0, 0xFFFF, kAir};
  ASSERT_EQ(0, AIFW_channel_change(&independent));
  EXPECT_EQ(Events{AFW_CHANNEL_PLAY_SUCCESS}, told.take(1));
  ATSC_host_set_clock(kBegin - 1);
  EXPECT_EQ(Events{AFW_PARENTAL_BLOCKED}, told.take(1));
  ATSC_host_set_clock(kBegin + 5400);
  EXPECT_EQ(Events{AFW_PARENTAL_UNBLOCKED}, told.take(1));
}

}  // namespace
}  // namespace receiver_test
