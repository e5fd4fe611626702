// The clock's settings, local time, and current captions.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
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
using atschost::SystemTime;

uint32_t utc(const char* text) {
  std::tm time{};
  EXPECT_EQ(6, std::sscanf(text, "%d-%d-%d %d:%d:%d", &time.tm_year, &time.tm_mon, &time.tm_mday,
                           &time.tm_hour, &time.tm_min, &time.tm_sec));
  time.tm_year -= 1900;
  --time.tm_mon;
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
    int32_t offset;
  } kCases[] = {
      // Nothing is announced.
      {AIST_ZONE_EASTERN, "2026-01-10 12:00:00", false, 0, 0, "2026-01-10 12:00:00", -300},
      {AIST_ZONE_EASTERN, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", -240},
      // Zones without daylight saving, and zones with odd offsets.
      {AIST_ZONE_KOREA, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", 540},
      {AIST_ZONE_TAIWAN, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", 480},
      {AIST_ZONE_GREENWICH, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", 0},
      {AIST_ZONE_HAWAII, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", -600},
      {AIST_ZONE_HAWAII_ALEUTIAN, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", -540},
      {AIST_ZONE_NEWFOUNDLAND, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", -150},
      // Begins at 2:00 standard time of each zone.
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 2, "2026-03-08 06:59:59", -300},
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 2, "2026-03-08 07:00:00", -240},
      {AIST_ZONE_PACIFIC, "2026-03-08 08:00:00", false, 8, 2, "2026-03-08 09:59:59", -480},
      {AIST_ZONE_PACIFIC, "2026-03-08 08:00:00", false, 8, 2, "2026-03-08 10:00:00", -420},
      {AIST_ZONE_NEWFOUNDLAND, "2026-03-08 05:00:00", false, 8, 2, "2026-03-08 05:29:59", -210},
      {AIST_ZONE_NEWFOUNDLAND, "2026-03-08 05:00:00", false, 8, 2, "2026-03-08 05:30:00", -150},
      // Ends at 2:00 daylight saving time: the hour from 1:00 occurs twice.
      {AIST_ZONE_EASTERN, "2026-10-31 12:00:00", true, 1, 2, "2026-11-01 05:59:59", -240},
      {AIST_ZONE_EASTERN, "2026-10-31 12:00:00", true, 1, 2, "2026-11-01 06:00:00", -300},
      // Announced in the month before; still announced for zones further west.
      {AIST_ZONE_EASTERN, "2026-10-03 12:00:00", true, 1, 2, "2026-10-31 12:00:00", -240},
      {AIST_ZONE_EASTERN, "2026-03-08 11:00:00", false, 8, 2, "2026-03-08 11:00:00", -240},
      {AIST_ZONE_EASTERN, "2026-11-01 11:00:00", true, 1, 2, "2026-11-01 11:00:00", -300},
      // Announced a whole month ahead: that day is still to come.
      {AIST_ZONE_EASTERN, "2026-02-08 12:00:00", false, 8, 2, "2026-02-08 12:00:00", -300},
      {AIST_ZONE_EASTERN, "2026-02-08 12:00:00", false, 8, 2, "2026-03-08 07:00:00", -240},
      {AIST_ZONE_EASTERN, "2026-10-01 12:00:00", true, 1, 2, "2026-10-01 12:00:00", -240},
      {AIST_ZONE_EASTERN, "2026-10-01 12:00:00", true, 1, 2, "2026-11-01 06:00:00", -300},
      // A stream that plays on announces the change only once.
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 2, "2026-07-01 12:00:00", -240},
      // Across the end of a year and of a month, on the day of the change.
      {AIST_ZONE_EASTERN, "2026-12-20 12:00:00", false, 10, 0, "2027-01-10 04:59:59", -300},
      {AIST_ZONE_EASTERN, "2026-12-20 12:00:00", false, 10, 0, "2027-01-10 05:00:00", -240},
      {AIST_ZONE_EASTERN, "2027-01-01 06:00:00", false, 31, 23, "2027-01-01 06:00:00", -240},
      // Invalid announcements change nothing.
      {AIST_ZONE_EASTERN, "2026-04-15 12:00:00", false, 31, 2, "2026-04-30 12:00:00", -300},
      {AIST_ZONE_EASTERN, "2026-03-01 12:00:00", false, 8, 31, "2026-03-20 12:00:00", -300},
      {AIST_ZONE_EASTERN, "2026-07-10 12:00:00", true, 0, 31, "2026-07-11 12:00:00", -240},
      {-1, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", 0},
      {12, "2026-07-10 12:00:00", true, 0, 0, "2026-07-10 12:00:00", 0},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.offset,
              atschost::utcOffset(c.zone, table(c.sent, c.status, c.day, c.hour), utc(c.now)))
        << c.zone << " sent " << c.sent << " day " << +c.day << " at " << c.now;
  }
  EXPECT_EQ(-300, atschost::utcOffset(AIST_ZONE_EASTERN, {}, utc("2026-07-10 12:00:00")));
  // Any table.
  SystemTime any = table("2026-01-01 00:00:00", true, 31, 23);
  for (const uint32_t time : {0u, 1u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    any.gpsSeconds = time;
    const int32_t offset = atschost::utcOffset(AIST_ZONE_ALASKA, any, ~time);
    EXPECT_TRUE(offset == -540 || offset == -480);
  }
}

TEST(LocalTime, DatesAreRightForEveryTime) {
  const struct {
    uint32_t time;
    int32_t offset;
    const char* date;
  } kCases[] = {
      {0, -600, "1969-12-31 14:00:00"},          {951868799, 0, "2000-02-29 23:59:59"},
      {1798774199, -210, "2026-12-31 23:59:59"}, {1798774200, -210, "2027-01-01 00:00:00"},
      {0x80000000, 0, "2038-01-19 03:14:08"},    {4107542399, 0, "2100-02-28 23:59:59"},
      {4107542400, 0, "2100-03-01 00:00:00"},    {0xFFFFFFFF, 0, "2106-02-07 06:28:15"},
      {0xFFFFFFFF, 540, "2106-02-07 15:28:15"},
  };
  for (const auto& c : kCases) {
    const AIST_time_date d = atschost::dateAt(c.time, c.offset);
    char text[40];
    std::snprintf(text, sizeof(text), "%u-%02u-%02u %02u:%02u:%02u", d.year, d.month, d.mday,
                  d.hour, d.minute, d.second);
    EXPECT_STREQ(c.date, text);
  }
}

TEST(ClockSetting, InManualModeNoTableMovesTheClock) {
  using std::chrono::seconds;
  Clock clock;
  const auto t = std::chrono::steady_clock::now();
  const atschost::StreamId a{"a", 1, 1, 100, 1}, b{"b", 1, 2, 100, 1};
  const SystemTime first = table("2026-04-22 12:00:00", true, 0, 0);
  SystemTime later = table("2026-04-22 18:00:00", true, 0, 0);
  clock.follow(a, first, t);
  clock.setSetting({AIST_ZONE_PACIFIC, false});
  EXPECT_FALSE(clock.follow(b, later, t + seconds(10)).timeChanged);
  EXPECT_EQ(first.unixSeconds() + 10, clock.now(t + seconds(10)));
  later.daylightStatus = false;
  const Clock::Effect effect = clock.follow(b, later, t + seconds(20));
  EXPECT_TRUE(effect.detailsChanged && effect.timeChanged);
  EXPECT_FALSE(clock.lastTable()->daylightStatus);
  EXPECT_EQ(first.unixSeconds() + 20, clock.now(t + seconds(20)));

  clock.setAutomatic(true);
  EXPECT_EQ(first.unixSeconds() + 30, clock.now(t + seconds(30))) << "before the next table";
  EXPECT_TRUE(clock.follow(b, later, t + seconds(30)).timeChanged);
  EXPECT_EQ(later.unixSeconds() + 20, clock.now(t + seconds(30)));
  EXPECT_EQ(int32_t(AIST_ZONE_PACIFIC), clock.setting().zone);
}

TEST(ClockSetting, IsSetAndReadThroughTheModule) {
  const Air air;
  const Clock::Setting old = atschost::hostClock().setting();
  AIST_system_time_info info{};
  EXPECT_EQ(0, AIST_set_current_time_zone(AIST_ZONE_HAWAII));
  EXPECT_EQ(0, AIST_manual_mode_enable(1));
  for (const int32_t unknown : {-1, AIST_ZONE_HAWAII + 1})
    EXPECT_NE(0, AIST_set_current_time_zone(unknown));
  EXPECT_EQ(0, AIST_get_system_time_info(&info));
  EXPECT_EQ(std::tuple(11, -600, 0), std::tuple(info.zone, info.offset, info.mode));
  EXPECT_EQ(0, AIST_manual_mode_enable(0));
  EXPECT_EQ(0, AIST_get_system_time_info(&info));
  EXPECT_EQ(int32_t(AIST_MODE_AUTOMATIC), info.mode);
  // The clock advances between the calls.
  const auto tie = [](const AIST_time_date& d) {
    return std::tuple(d.year, d.month, d.mday, d.hour, d.minute, d.second);
  };
  const auto here = [&] { return tie(atschost::dateAt(atschost::hostClock().now(), -600)); };
  const auto before = here();
  AIST_time_date date{};
  EXPECT_EQ(0, AIST_get_cur_time_date(&date));
  EXPECT_TRUE(before <= tie(date) && tie(date) <= here());
  EXPECT_NE(0, AIST_get_system_time_info(nullptr));
  EXPECT_NE(0, AIST_get_cur_time_date(nullptr));
  atschost::hostClock().setSetting(old);
}

// Returns a caption_service_descriptor with entries of 6 bytes.
Bytes captions(uint8_t count, const Bytes& entries) {
  return descriptor(0x86, Bytes{static_cast<uint8_t>(0xE0 | count)} + entries);
}
Bytes caption(const std::string& language, uint8_t kind, uint8_t flags) {
  return Bytes(language.begin(), language.end()) + Bytes{kind, flags, 0xFF};
}

TEST(CaptionServices, OfADamagedDescriptorTheWholeEntriesCount) {
  const auto read = [](const Bytes& whole) {
    const Bytes content(whole.begin() + 2, whole.end());
    std::vector<atschost::CaptionService> services;
    const bool sound = atschost::readCaptionServices(content.data(), content.size(), services);
    return std::pair(sound, services.size());
  };
  const Bytes entry = caption("eng", 0xC1, 0x3F);
  EXPECT_EQ(std::pair(true, size_t{1}), read(captions(1, entry)));
  EXPECT_EQ(std::pair(true, size_t{0}), read(captions(0, entry)));
  EXPECT_EQ(std::pair(true, size_t{1}), read(captions(2, entry + entry))) << "each once";
  EXPECT_EQ(std::pair(true, size_t{0}), read(captions(1, caption("eng", 0xC0, 0x3F))));
  EXPECT_EQ(std::pair(false, size_t{1}), read(captions(3, entry + Bytes{'s', 'p', 'a', 0xC2, 0})));
  EXPECT_EQ(std::pair(false, size_t{0}), read(descriptor(0x86, {})));
  Bytes many;
  for (uint8_t i = 1; i <= 31; ++i) many = many + caption("eng", static_cast<uint8_t>(0xC0 | i), 0);
  EXPECT_EQ(std::pair(true, size_t{16}), read(captions(31, many)));
}

TEST(CaptionServices, AreThoseOfThePresentEventElseOfThePmt) {
  constexpr uint32_t kChannel = 473000000;
  const Air air;
  scan(AI_INPUT_TERRESTRIAL);
  air.write(AI_INPUT_TERRESTRIAL, kChannel,
            packets(0x1FFB, {vct(0xC8, {{"ONE", 6, 1, 3}, {"TWO", 6, 2, 4}, {"NONE", 6, 3, 5}})}) +
                packets(0, {pat({{3, 0x30}, {4, 0x30}})}) +
                packets(0x30, {pmt(3, {{2, 49, captions(1, caption("fra", 0xC1, 0x3F))}}),
                               pmt(4, {{2, 65,
                                        captions(2, caption("eng", 0xC1, 0x3F) +
                                                        caption("???", 0x7F, 0xBF))}})}));
  scan(AI_INPUT_TERRESTRIAL, kChannel);
  const std::vector<Row> list = rows(AI_INPUT_TERRESTRIAL);
  ASSERT_EQ(3u, list.size());
  // A past, a current and a future event.
  const uint32_t now = atschost::hostClock().now() - kGpsEpoch + 18;
  const auto event = [](uint32_t start, const char* language, uint8_t flags) {
    atschost::GuideEvent e;
    e.start = start;
    e.duration = 1800;
    const Bytes content = Bytes{0xE1} + caption(language, 0xC5, flags);
    atschost::readCaptionServices(content.data(), content.size(), e.captionServices);
    e.captions = true;
    return e;
  };
  atschost::GuideTables tables;
  tables.mgtSeen = true;
  tables.announcedEits = {0};
  tables.eits[{0, 3}] = {event(now - 2700, "deu", 0), event(now - 900, "spa", 0x40),
                         event(now + 900, "deu", 0)};
  tables.eits[{0, 4}] = {event(now - 2700, "deu", 0), event(now + 900, "deu", 0)};
  atschost::hostReceiver().guide().update(AI_INPUT_TERRESTRIAL, kChannel, tables, 18);

  AICC_cc_service_data data{}, again{};
  ASSERT_EQ(0, AICC_get_cc_service_data(0, &list[0].info, &data));
  ASSERT_EQ(1, data.count);
  EXPECT_EQ(5, data.services[0].service_id);
  EXPECT_EQ("spa", std::string(data.services[0].language, 3));
  EXPECT_EQ(int32_t(AICC_INPUT_DIGITAL), data.services[0].input_type);
  EXPECT_EQ(int32_t(AICC_ASPECT_16_9), data.services[0].aspect_ratio);
  EXPECT_EQ(0u, data.services[0].easy_reader);

  ASSERT_EQ(0, AICC_get_cc_service_data(0, &list[1].info, &data));
  ASSERT_EQ(2, data.count);
  EXPECT_EQ(int32_t(AICC_ASPECT_4_3), data.services[0].aspect_ratio);
  EXPECT_EQ(2, data.services[1].service_id) << "field 2 of line 21";
  EXPECT_EQ(int32_t(AICC_INPUT_LINE21), data.services[1].input_type);
  EXPECT_EQ(1u, data.services[1].easy_reader);
  EXPECT_EQ(0, data.services[1].language[0]);

  EXPECT_EQ(0, AICC_get_cc_service_data(0, &list[2].info, &data));
  EXPECT_EQ(0, data.count);

  // The captions of the PMT are stored with the list.
  data = again = {};
  EXPECT_EQ(0, AICC_get_cc_service_data(0, &list[1].info, &data));
  EXPECT_EQ(0, AISRV_sync_to_database());
  EXPECT_EQ(0, RMGRReload());
  EXPECT_EQ(0, AICC_get_cc_service_data(0, &list[1].info, &again));
  EXPECT_EQ(2, again.count);
  EXPECT_EQ(0, std::memcmp(&data, &again, sizeof data));

  AISRV_service_info unknown = list[0].info;
  unknown.service_id.service_rec = 0xFFFE;
  EXPECT_NE(0, AICC_get_cc_service_data(0, &unknown, &data));
  EXPECT_NE(0, AICC_get_cc_service_data(1, &list[0].info, &data));
  EXPECT_NE(0, AICC_get_cc_service_data(0, nullptr, &data));
  EXPECT_NE(0, AICC_get_cc_service_data(0, &list[0].info, nullptr));
}

}  // namespace
}  // namespace receiver_test
