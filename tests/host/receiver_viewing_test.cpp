// Parental control and locks of the playing service, through the modules.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <mutex>
#include <thread>

#include "aicn.h"
#include "aiec.h"
#include "aifw.h"
#include "aipc.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "modules/host.h"
#include "receiver_test_air.h"
#include "wait.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;

// Events of parental control and locks, by letter.
Arrivals<char> told;

void tell(AFW_event_t event, void*) {
  static const std::map<AFW_event_t, char> kLetters = {
      {AFW_PARENTAL_UPDATE, 'U'}, {AFW_PARENTAL_BLOCKED, 'B'}, {AFW_PARENTAL_UNBLOCKED, 'F'},
      {AFW_CHANNEL_LOCKED, 'L'},  {AFW_CHANNEL_UNLOCKED, 'O'}, {AFW_CHANNEL_PLAY_SUCCESS, 'S'}};
  if (const auto letter = kLetters.find(event); letter != kLetters.end()) told.add(letter->second);
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
  // Begins to play the channel 5-1 of ratedStream().
  ReceiverViewingTest() {
    AIPC_set_default_settings();
    AISRV_reset_db(kAir);
    write(ratedStream());
    ATSC_host_set_fast(1);
    scan(kAir, kChannel20);
    setTime(kStart);
    AIFW_register_frmwrk_app_cb(tell);
    told.clear();
    EXPECT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
    EXPECT_EQ(0, AICN_get_current(&one_));
    after("playing begins", "S", "free --- audio 1");
    limit(4);
    const AIPC_parental_details enabled{0, 1, 0, 0, 1, 0};
    EXPECT_EQ(0, AIPC_set_parental_details(&enabled));
    after("limits are enabled", "UU", "free -x- audio 1");
  }
  ~ReceiverViewingTest() override {
    AIFW_register_frmwrk_app_cb(nullptr);
    AIFW_stop_curr_src();
    AIPC_set_default_settings();
    AICN_set_play_from_ap(0);
    ATSC_host_set_fast(0);
  }

  void write(const Bytes& stream) const { air_.write(kAir, kChannel20, stream); }

  static void limit(int32_t usTv) {
    AIPC_dime_t limits{};
    limits.region = 1;
    limits.us_tv = usTv;
    EXPECT_EQ(0, AIPC_store_rating(limits));
  }

  static int change(uint16_t major, uint16_t minor) {
    const AIFW_channel_change_request request{
        AIFW_CHANGE_DIRECT, kAir, AISRV_SERVICE_MASK, major, minor, 0, 0xFFFF, kAir};
    return AIFW_channel_change(&request);
  }

  // Returns the verdict of 5-1, with "!" for its rating status and with the regions of its streams;
  // 'x' for its blocked events; and the audible track.
  std::string state() const {
    static const std::map<int, const char*> kVerdicts = {{0, "free"},
                                                         {-1, "none"},
                                                         {AIPC_BLOCKED, "blocked"},
                                                         {AIPC_UNRATED, "unrated"},
                                                         {AIPC_BLOCKED_BY_STATUS, "by streams"}};
    std::string text = kVerdicts.at(AIEC_check_rating(&one_));
    uint32_t status = 0;
    if (AISRV_get_rating_status(&one_, &status) == 0 && status != 0) text += "!";
    uint8_t regions[2] = {}, regionCount = 2;
    if (AISRV_get_CAD_list(&one_, &regionCount, regions) != 0) regionCount = 0;
    for (int i = 0; i < regionCount; ++i) text += " " + std::to_string(regions[i]);
    AIEC_event_info events[3] = {};
    uint16_t count = 0;
    AIEC_get_first_n_events(&one_, events, 3, &count);
    text += " ";
    for (int i = 0; i < count; ++i) text += events[i].parental_status ? 'x' : '-';
    return text + " audio " + std::to_string(atschost::hostReceiver().player().audioTrack());
  }

  // Expects the events and then the state.
  void after(const char* step, const std::string& events, const std::string& wanted) const {
    const std::vector<char> came = told.take(events.size());
    EXPECT_EQ(events, std::string(came.begin(), came.end())) << step;
    eventually([&] { return state() == wanted; }, std::chrono::seconds(10));
    EXPECT_EQ(wanted, state()) << step;
  }

  const Air air_;
  AISRV_service_info one_{};
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
  setTime(kStart + 3600 - 1);
  after("the next programme", "B", "blocked -x- audio 0");
  EXPECT_TRUE(atschost::hostReceiver().player().isPlaying());
  limit(4);
  EXPECT_EQ(0, AIFW_set_curr_region(2));
  limit(5);
  after("no change, a region, and a higher limit", "UUF", "free --- audio 1");
  limit(4);
  after("a lower limit", "UB", "blocked -x- audio 0");
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_checking_status(1));
  after("the password for the programme", "F", "free -x- audio 1");
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_checking_status(0));
  after("the password is revoked", "B", "blocked -x- audio 0");
  EXPECT_EQ(0, change(5, 2));
  after("another channel", "FS", "blocked -x- audio 0");
  EXPECT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  after("back again", "BS", "blocked -x- audio 0");

  setTime(kStart + 5400);
  after("between two programmes", "F", "unrated -x- audio 1");
  setTime(kStart + 7200);
  after("a programme without a rating", "", "unrated -x- audio 1");
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_NO_RATING));
  after("its group is blocked", "UB", "unrated! -xx audio 0");
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(0, AIPC_UNRATED_NO_RATING));
  after("its group is free", "UF", "unrated -x- audio 1");

  write(ratedStream(contentAdvisory(1, {{0, 5}, {4, 1}})));
  after("rated by the streams", "B", "by streams! 1 -x- audio 0");
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_US_MPAA));
  write(ratedStream(contentAdvisory(1, {{7, 8}})));
  after("a film that is not rated", "U", "unrated! 1 -x- audio 0");
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(0, AIPC_UNRATED_US_MPAA));
  after("films are free", "UF", "unrated 1 -x- audio 1");
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_NO_RATING));
  after("the guide's verdict while nothing plays", "U", "unrated! -xx audio 0");
  write(ratedStream(contentAdvisory(1, {{0, 3}})));
  EXPECT_EQ(0, AIFW_play_curr_src());
  after("not unrated before the streams are read", "S", "by streams 1 -xx audio 1");

  // A lock by the application does not close the playing service; removing it opens the service.
  AISRV_service_info locked = one_;
  const auto lock = [&](bool on) {
    locked.AISRV_flags_ = AISRV_FLAG_VISIBLE | (on ? AISRV_FLAG_LOCKED : 0);
    EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &locked));
  };
  AICN_set_play_from_ap(1);
  lock(true);
  after("locked by the application", "", "by streams 1 -xx audio 1");
  EXPECT_EQ(0, AIFW_play_curr_src());
  after("it starts again", "LS", "by streams 1 -xx audio 0");
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  after("the password for the channel", "O", "by streams 1 -xx audio 1");
  // A password is forgotten after a failure and after standby, which also stores the settings.
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  EXPECT_NE(0, change(9, 9));
  EXPECT_EQ(0, AIFW_play_curr_src());
  after("a channel that is not there", "LS", "by streams 1 -xx audio 0");
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_EQ(0, AIFW_pwd_unlocked_no_playing(1));
  EXPECT_EQ(0, AIPC_store_all());
  EXPECT_EQ(0, AIFW_powerTransition_request(1));
  EXPECT_TRUE(atschost::Parental(getenv("ATSC_HOST_STATE")).settings()->enabled());
  EXPECT_EQ(0, AIFW_powerTransition_request(0));
  after("standby", "LS", "by streams 1 -xx audio 0");
  lock(false);
  after("the lock is removed", "O", "by streams 1 -xx audio 1");
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_NE(0, AIFW_pwd_unlocked_no_checking_status(1));
}

TEST_F(ReceiverViewingTest, WhatPlaysIsGuardedWithoutSignalAndWithoutBeingListed) {
  AISRV_service_info marked = one_;
  marked.AISRV_flags_ |= AISRV_FLAG_LOCKED;
  marked.AISRV_fav_group_ = 0x10;
  AICN_set_play_from_ap(1);
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &marked));

  // A stream whose rating changes after a second. Tables are sent twice, since changed ones are
  // awaited as a whole.
  const Bytes rest = packets(0x1F00, std::vector<Bytes>(1000, section(0xF0, 0, {})));
  Bytes changing;
  for (const Bytes& advisory :
       {contentAdvisory(1, {{0, 5}}), Bytes(), contentAdvisory(1, {{0, 5}})})
    changing = changing + ratedStream(advisory) + ratedStream(advisory) + rest;
  for (int i = 0; i < 20; ++i) changing = changing + rest;
  std::map<int, uint8_t> counters;
  for (size_t at = 0; at < changing.size(); at += 188) {
    const int pid = (changing[at + 1] & 0x1F) << 8 | changing[at + 2];
    changing[at + 3] = static_cast<uint8_t>(0x10 | (counters[pid]++ & 0x0F));
  }
  ATSC_host_set_fast(0);
  write(changing);
  after("ratings of the streams", "BFB", "by streams! 1 -x- audio 0");
  ATSC_host_set_fast(1);
  fs::remove(air_.path(kAir, kChannel20));
  after("no signal: as the guide says", "F", "free -x- audio 1");

  const auto awaitListed = [](size_t count) {
    EXPECT_TRUE(eventually([&] { return rows(kAir).size() == count; }));
  };
  write(ratedStream({}, false));
  awaitListed(1);
  after("no longer listed", "S", "free  audio 1");
  setTime(kStart + 3600);
  after("the next programme", "B", "blocked  audio 0");
  limit(5);
  after("a higher limit", "UF", "free  audio 1");
  AISRV_service_info current{};
  EXPECT_EQ(0, AICN_get_current(&current));
  EXPECT_EQ(one_.service_id.service_rec, current.service_id.service_rec);
  EXPECT_EQ(0, AIFW_stop_curr_src());
  EXPECT_NE(0, AICN_get_current(&current));
  after("nothing plays", "", "none  audio 0");
  // The service returns with the viewer's settings.
  write(ratedStream());
  EXPECT_EQ(0, AIFW_play_first_service(kAir, kChannel20));
  awaitListed(2);
  EXPECT_EQ(marked.AISRV_flags_, rows(kAir)[0].info.AISRV_flags_);
  EXPECT_EQ(0x10u, rows(kAir)[0].info.AISRV_fav_group_);
}

}  // namespace
}  // namespace receiver_test
