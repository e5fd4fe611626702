// The clock's settings, local time, and current captions.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <limits>
#include <tuple>

#include "aicc.h"
#include "aist.h"
#include "modules/host.h"
#include "receiver/station/clock.h"
#include "receiver/station/local_time.h"
#include "receiver/tables/caption_services.h"
#include "receiver_test_air.h"
#include "rmgr.h"

namespace receiver_test {
namespace {

using atschost::Clock;
using atschost::StreamId;
using atschost::SystemTime;

uint32_t utc(const char* text) {
  std::tm time{};
  EXPECT_NE(nullptr, strptime(text, "%F %T", &time));
  return static_cast<uint32_t>(timegm(&time));
}

SystemTime table(const char* sent, bool status, uint8_t day, uint8_t hour) {
  SystemTime time;
  time.gpsSeconds = utc(sent) - kGpsEpoch + 18;
  time.gpsUtcOffset = 18;
  time.daylightStatus = status;
  time.daylightDayOfMonth = day;
  time.daylightHour = hour;
  return time;
}

TEST(LocalTime, DaylightSavingIsInForceAsTheSystemTimeTableSays) {
  const struct {
    int32_t zone;
    const char* sent;
    bool status;
    uint8_t day, hour;
    const char* now;
    int32_t before, offset;  // a second before that, and then
  } kCases[] = {
      // Nothing is announced.
      {AIST_ZONE_EASTERN, "2026-01-10 12:00:00", false, 0, 0, "2026-01-10 12:00:00", -300, -300},
      {AIST_ZONE_EASTERN, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", -240, -240},
      // Begins at 2:00 standard time of each zone.
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 2, "2026-03-08 07:00:00", -300, -240},
      {AIST_ZONE_PACIFIC, "2026-03-08 08:00:00", false, 8, 2, "2026-03-08 10:00:00", -480, -420},
      {AIST_ZONE_NEWFOUNDLAND, "2026-03-08 05:00:00", false, 8, 2, "2026-03-08 05:30:00", -210,
       -150},
      // Ends at 2:00 daylight saving time: the hour from 1:00 occurs twice.
      {AIST_ZONE_EASTERN, "2026-10-31 12:00:00", true, 1, 2, "2026-11-01 06:00:00", -240, -300},
      // Announced a month before: that day is still to come, and still announced for zones further
      // west.
      {AIST_ZONE_EASTERN, "2026-10-03 12:00:00", true, 1, 2, "2026-10-31 12:00:00", -240, -240},
      {AIST_ZONE_EASTERN, "2026-02-08 12:00:00", false, 8, 2, "2026-03-08 07:00:00", -300, -240},
      {AIST_ZONE_EASTERN, "2026-10-01 12:00:00", true, 1, 2, "2026-11-01 06:00:00", -240, -300},
      {AIST_ZONE_EASTERN, "2026-03-08 11:00:00", false, 8, 2, "2026-03-08 11:00:00", -240, -240},
      {AIST_ZONE_EASTERN, "2026-11-01 11:00:00", true, 1, 2, "2026-11-01 11:00:00", -300, -300},
      // A stream that plays on announces the change only once.
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 2, "2026-07-01 12:00:00", -240, -240},
      // Across the end of a year and of a month, on the day of the change.
      {AIST_ZONE_EASTERN, "2026-12-20 12:00:00", false, 10, 0, "2027-01-10 05:00:00", -300, -240},
      {AIST_ZONE_EASTERN, "2027-01-01 06:00:00", false, 31, 23, "2027-01-01 06:00:00", -240, -240},
      // Invalid announcements change nothing.
      {AIST_ZONE_EASTERN, "2026-04-15 12:00:00", false, 31, 2, "2026-04-30 12:00:00", -300, -300},
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 31, "2026-03-20 12:00:00", -300, -300},
      {AIST_ZONE_EASTERN, "2026-07-10 12:00:00", true, 0, 31, "2026-07-11 12:00:00", -240, -240},
  };
  for (const auto& c : kCases) {
    const SystemTime sent = table(c.sent, c.status, c.day, c.hour);
    const uint32_t now = utc(c.now);
    EXPECT_EQ((std::pair{c.before, c.offset}),
              (std::pair{atschost::utcOffset(c.zone, sent, now - 1),
                         atschost::utcOffset(c.zone, sent, now)}))
        << c.zone << " sent " << c.sent << " day " << +c.day << " at " << c.now;
  }
  // Of all zones, and others, in summer.
  const SystemTime any = table("2026-07-10 12:00:00", true, 0, 0);
  std::vector<int32_t> offsets;
  for (int32_t zone = -1; zone <= 12; ++zone)
    offsets.push_back(atschost::utcOffset(zone, any, any.unixSeconds()));
  EXPECT_EQ((std::vector<int32_t>{0, 540, 480, 0, -150, -180, -240, -300, -360, -420, -480, -540,
                                  -600, 0}),
            offsets);
  EXPECT_EQ(-300, atschost::utcOffset(AIST_ZONE_EASTERN, {}, any.unixSeconds()));
}

TEST(LocalTime, DatesAreRightForEveryTime) {
  // The C library of a 32-bit machine has no later dates.
  constexpr uint64_t kEnd =
      std::min<uint64_t>(UINT32_MAX, std::numeric_limits<time_t>::max() - 86400);
  for (const int32_t offset : {-600, -210, 0, 540}) {
    for (uint64_t time = 0; time <= kEnd; time += 86399) {
      const AIST_time_date d = atschost::dateAt(static_cast<uint32_t>(time), offset);
      const auto local = static_cast<time_t>(time) + offset * 60;
      const std::tm& tm = *std::gmtime(&local);
      ASSERT_EQ((std::tuple{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                            tm.tm_sec}),
                (std::tuple{d.year, d.month, d.mday, d.hour, d.minute, d.second}))
          << time << " at " << offset;
    }
  }
}

TEST(ReceiverClockTest, FollowsTheFirstTimeOfEachStreamAndRunsOnAsItIsSet) {
  using std::chrono::seconds;
  constexpr uint32_t kStart = 1200000000;
  Clock clock;
  const auto t = std::chrono::steady_clock::now();
  EXPECT_LT(static_cast<uint32_t>(time(nullptr)) - clock.now(t), 5u);
  const StreamId a{"a", 1, 1, 100, 1}, b{"b", 1, 2, 100, 1}, hostile{"c", 1, 3, 100, 1};
  const StreamId late{"d", 1, 4, 100, 1}, replaced{"a", 1, 9, 100, 1};
  const auto at = [&](uint32_t second, uint8_t offset) {
    SystemTime time;
    time.gpsSeconds = kStart + second;
    time.gpsUtcOffset = offset;
    return time;
  };
  // Follows a stream's time; returns the clock after kStart and the effect.
  const auto follow = [&](const StreamId& stream, int when, const SystemTime& time) {
    const Clock::Effect effect = clock.follow(stream, time, t + seconds(when));
    return std::to_string(static_cast<int32_t>(clock.now(t + seconds(when)) - kGpsEpoch - kStart)) +
           (effect.detailsChanged ? " details" : "") + (effect.timeChanged ? " time" : "");
  };
  clock.remember(b, at(1, 18), t);
  EXPECT_EQ("-18 time", follow(a, 0, at(0, 18)));
  EXPECT_EQ("82", follow(a, 100, at(0, 18))) << "it starts again, but its time runs on";
  EXPECT_EQ(kStart + 100, clock.stationTime(a, t + seconds(100)));
  EXPECT_FALSE(clock.stationTime(replaced, t));
  EXPECT_EQ("83", follow(b, 100, at(0, 18))) << "made together with the first, read before";
  EXPECT_EQ("84 details time", follow(b, 100, at(0, 17)));
  EXPECT_EQ("33 time", follow(replaced, 100, at(50, 17)));
  EXPECT_EQ("183 time", follow(late, 200, at(0, 17))) << "made together, read for the first time";
  EXPECT_EQ("-1200000256 details time", follow(hostile, 100, at(0xFFFFFFFF - kStart, 255)));

  // In manual mode no table moves the clock.
  EXPECT_EQ("83 details time", follow(b, 100, at(0, 18)));
  clock.setSetting({AIST_ZONE_PACIFIC, false});
  SystemTime later = at(6000, 18);
  EXPECT_EQ("93", follow(replaced, 110, later));
  later.daylightStatus = true;
  EXPECT_EQ("103 details time", follow(replaced, 120, later));
  EXPECT_TRUE(clock.lastTable()->daylightStatus);
  clock.setAutomatic(true);
  EXPECT_EQ(kStart + 113 + kGpsEpoch, clock.now(t + seconds(130))) << "before the next table";
  EXPECT_EQ("62 time", follow(replaced, 130, later));
  EXPECT_EQ(int32_t(AIST_ZONE_PACIFIC), clock.setting().zone);

  clock.set(kStart + kGpsEpoch, t);
  EXPECT_EQ("7 details", follow(a, 7, at(0, 15)));
}

TEST(ClockSetting, UnknownOnesAreRefused) {
  for (const int32_t unknown : {-1, AIST_ZONE_HAWAII + 1})
    EXPECT_NE(0, AIST_set_current_time_zone(unknown));
  EXPECT_NE(0, AIST_get_system_time_info(nullptr));
  EXPECT_NE(0, AIST_get_cur_time_date(nullptr));
}

// Returns a caption_service_descriptor with entries of 6 bytes.
Bytes captions(uint8_t count, const Bytes& entries) {
  return descriptor(0x86, Bytes{static_cast<uint8_t>(0xE0 | count)} + entries);
}
Bytes caption(const std::string& language, uint8_t kind, uint8_t flags) {
  return bytesOf(language) + Bytes{kind, flags, 0xFF};
}

TEST(CaptionServices, AreThoseOfThePresentEventElseOfThePmt) {
  const Air air;
  scan(kAir);
  const Bytes french = captions(1, caption("fra", 0xC1, 0x3F));
  const Bytes two = captions(2, caption("eng", 0xC1, 0x3F) + caption("???", 0x7F, 0xBF));
  const Bytes spanish = captions(1, caption("spa", 0xC5, 0x40));
  // A past, a current and a future event.
  const uint32_t now = atschost::hostClock().now() - kGpsEpoch + 18;
  const Programme past{1, now - 2700, {}, french}, present{2, now - 900, {}, spanish};
  const Programme future{3, now + 900, {}, french};
  air.write(kAir, kChannel14,
            packets(0x1FFB, {vct(0xC8, {{"ONE", 6, 1, 3}, {"TWO", 6, 2, 4}, {"NONE", 6, 3, 5}}),
                             mgt({{0x100, 0x1D00}}), stt(now, 18)}) +
                packets(0x1D00, {eit(3, {past, present, future}), eit(4, {past, future})}) +
                packets(0, {pat({{3, 0x30}, {4, 0x30}})}) +
                packets(0x30, {pmt(3, {{2, 49, french}}), pmt(4, {{2, 65, two}})}));
  scan(kAir, kChannel14);
  const std::vector<Row> list = rows(kAir);
  ASSERT_EQ(3u, list.size());

  // Each caption service's number, language, input, aspect ratio and whether it is easy to read.
  const auto told = [](const AISRV_service_info& service) {
    AICC_cc_service_data data{};
    EXPECT_EQ(0, AICC_get_cc_service_data(0, &service, &data));
    Texts texts;
    for (const AICC_cc_service* s = data.services; s < data.services + data.count; ++s)
      texts.push_back(std::to_string(s->service_id) + ' ' +
                      std::string(s->language, s->language[0] ? 3 : 0) +
                      (s->input_type == AICC_INPUT_DIGITAL ? " digital" : " line 21") +
                      (s->aspect_ratio == AICC_ASPECT_16_9 ? " 16:9" : " 4:3") +
                      (s->easy_reader != 0 ? " easy" : ""));
    return texts;
  };
  EXPECT_EQ(Texts{"5 spa digital 16:9"}, told(list[0].info));
  EXPECT_EQ(Texts{}, told(list[2].info));
  // The captions of the PMT are stored with the list.
  EXPECT_EQ(0, AISRV_sync_to_database());
  EXPECT_EQ(0, RMGRReload());
  EXPECT_EQ((Texts{"1 eng digital 4:3", "2  line 21 4:3 easy"}), told(list[1].info));

  AICC_cc_service_data data;
  AISRV_service_info unknown = list[0].info;
  unknown.service_id.service_rec = 0xFFFE;
  EXPECT_NE(0, AICC_get_cc_service_data(0, &unknown, &data));
  EXPECT_NE(0, AICC_get_cc_service_data(1, &list[0].info, &data));
  EXPECT_NE(0, AICC_get_cc_service_data(0, nullptr, nullptr));
}

}  // namespace
}  // namespace receiver_test
