// The stream of the playing service: its events, changes on the air, alerts.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <future>
#include <map>
#include <sstream>
#include <tuple>
#include <utility>

#include "aiec.h"
#include "aifw.h"
#include "aist.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "modules/host.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/stream/pace.h"
#include "receiver/tables/psip_text.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Alerts;
using atschost::AlertSettings;
using atschost::EventQueue;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr uint32_t kChannel16 = 485000000;  // used for the guide of one test only

// The events that tests look at.
const std::map<AFW_event_t, const char*> kNames{
    {AFW_TUNER_LOCKED, "locked"},
    {AFW_TUNER_UNLOCKED, "unlocked"},
    {AFW_CHANNEL_PLAY_SUCCESS, "plays"},
    {AFW_CHANNEL_PLAY_FAILURE, "fails"},
    {AFW_STT_UPDATE, "time"},
    {AFW_EIT_UPDATE, "events"},
    {AFW_ETT_UPDATE, "texts"},
    {AFW_EPG_UPDATE, "guide"},
    {AFW_EPG_COMPLETE, "complete"},
    {AFW_EVENT_TRANSITION, "next"},
    {AFW_SERVICE_DELETED, "deleted"},
    {AFW_SERVICE_ADDED, "added"},
    {AFW_SERVICE_UPDATE, "updated"},
    {AFW_SERVICE_BUILD_COMPLETED, "listed"},
    {AFW_EAS_START_BLOCKING, "blocking"},
    {AFW_EAS_START_NON_BLOCKING, "alert"},
    {AFW_EAS_STOP, "over"},
    {AFW_VIEWING_DELAY, "delay"},
};

// Names of events with their data and what the middleware answers meanwhile.
struct EventLog : Arrivals<std::string> {
  // Waits for an event of a name and removes it and all events before it. Returns those that are
  // `wanted`: all, or the words of this list.
  Texts until(const std::string& name, const std::string& wanted = {}) {
    const auto nameOf = [](const std::string& told) { return told.substr(0, told.find(' ')); };
    Texts taken = takeUntil([&](const std::string& told) { return nameOf(told) == name; });
    EXPECT_FALSE(taken.empty()) << "no event " << name;
    Texts list;
    for (const std::string& told : taken)
      if (wanted.empty() || (' ' + wanted + ' ').find(' ' + nameOf(told) + ' ') != wanted.npos)
        list.push_back(told);
    return list;
  }
};
EventLog eventLog;

void record(AFW_event_t event, void* data) {
  const auto name = kNames.find(event);
  if (name == kNames.end()) return;
  std::ostringstream told;
  told << name->second;
  if (event == AFW_STT_UPDATE) {
    const auto* time = static_cast<AIFW_time_data*>(data);
    told << ' ' << time->system_time << ' ' << +time->gps_utc_offset;
  }
  if (event == AFW_EAS_START_BLOCKING || event == AFW_EAS_START_NON_BLOCKING) {
    const auto* text = static_cast<multiple_lang_t*>(data);
    told << ' ' << latin({text->text, text->text + text->length});
  }
  if (event == AFW_EPG_UPDATE) {
    AIFW_event_update_data update{};
    EXPECT_EQ(0, AIFW_get_event_update_data(&update));
    for (uint32_t i = 0; i < update.count; ++i) told << ' ' << update.source_ids[i];
    uint16_t count = 0;
    if (const std::vector<Row> list = rows(kAir); !list.empty())
      AIEC_get_total_events(&list[0].info, &count);
    told << " of " << count;  // events of the first terrestrial service
  }
  eventLog.add(told.str());
}

// PSIP of one service with source id 3 and two programmes.
constexpr uint32_t kStart = 1200000000;
constexpr uint8_t kOffset = 17;
Bytes guideStream(unsigned version = 1, const std::string& title = "News") {
  const std::vector<Programme> programmes{{1, kStart, text(title), {}, 3600},
                                          {2, kStart + 3600, text("Film"), {}, 60}};
  return packets(0x1FFB, {vct(0xC8, {{"GOOD", 5, 1, 3}}), stt(kStart + 60, kOffset),
                          mgt({{0x100, 0x1D00}, {0x200, 0x1D01}}, version)}) +
         packets(0x1D00, {eit(3, programmes, version)}) +
         packets(0x1D01, {ett(3, 2, text("A long story."))});
}
Bytes named(const std::vector<std::pair<unsigned, std::string>>& channels, unsigned version = 1) {
  std::vector<Channel> list;
  for (const auto& [minor, name] : channels) list.push_back({name, 5, minor, 2 + minor});
  return packets(0x1FFB, {vct(0xC8, list, version), stt(kStart, kOffset)});
}

std::promise<void> called;
template <typename First, typename Second>
void neverReturn(First, Second) {
  called.set_value();
  std::promise<void>().get_future().wait();
}

// Runs before every other suite, in a process without a receiver.
TEST(ReceiverExitDeathTest, ExitIsCleanWhileACallbackIsStuck) {
  const std::function<int()> kCalls[] = {
      [] {
        ATSC_host_set_dwell(60000);
        return startScan(kAir, 0, neverReturn);
      },
      [] {
        AIFW_init(0);
        AIFW_register_frmwrk_app_cb(neverReturn);
        scan(kAir, kChannel14);
        return AIFW_play_first_service(kAir, 0);
      },
  };
  for (const auto& call : kCalls) {
    const Air air;
    air.write(kAir, kChannel14, guideStream());
    const auto begin = steady_clock::now();
    const auto process = [&] {
      const int result = call();
      called.get_future().wait();
      exit(result);
    };
    EXPECT_EXIT(process(), testing::ExitedWithCode(0), "");
    EXPECT_LT(steady_clock::now() - begin, seconds(15));
  }
}

class ReceiverLiveTest : public testing::Test {
 protected:
  void SetUp() override {
    ATSC_host_set_fast(1);
    AIFW_stop_curr_src();
    scan(kAir);
    scan(kCable);
    scan(kCable, 75000000);  // all other events have been reported
    AIFW_register_frmwrk_app_cb(record);
    eventLog.clear();
  }
  void TearDown() override {
    AIFW_stop_curr_src();
    AIFW_register_frmwrk_app_cb(nullptr);
  }
  // Scans a carrier and plays it.
  void play(uint32_t source, const Bytes& stream) {
    const uint32_t frequency = source == kCable ? 123000000 : kChannel14;
    air_.write(source, frequency, stream);
    scan(source, frequency);
    eventLog.until("listed");
    ASSERT_EQ(0, AIFW_play_first_service(source, frequency));
    eventLog.until("plays");
  }
  // Changes the stream that plays; returns the events of the services.
  Texts change(const Bytes& stream) {
    air_.write(kAir, kChannel14, stream);
    return eventLog.until("listed", "deleted added updated listed");
  }
  Air air_;
};

TEST_F(ReceiverLiveTest, TuningTellsLockTimeAndGuideInOrder) {
  air_.write(kAir, kChannel16, named({{1, "GOOD"}}));
  scan(kAir, kChannel16);
  EXPECT_EQ(Texts{"listed"}, eventLog.until("listed", "deleted added updated listed"));
  air_.write(kAir, kChannel16, guideStream());
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  EXPECT_EQ((Texts{"locked", "plays", "time 1200000060 17", "events", "texts", "guide 3 of 2",
                   "complete"}),
            eventLog.until("complete"));
  uint32_t now = 0;
  EXPECT_EQ(0, AIST_get_cur_time_secs(&now));
  EXPECT_LT(now - (kStart + 60 - kOffset + kGpsEpoch), 60u);
  // Another version of the guide.
  air_.write(kAir, kChannel16, guideStream(2, "Weather"));
  EXPECT_EQ((Texts{"time 1200000060 17", "events", "complete"}),
            eventLog.until("complete", "time events texts complete"));
  // The clock reaches the start of the next programme.
  ATSC_host_set_clock(kStart + 3600 - kOffset + kGpsEpoch - 1);
  EXPECT_EQ(Texts{"next"}, eventLog.until("next"));
}

TEST_F(ReceiverLiveTest, ServicesThatChangeOnTheAirAreListedAndTold) {
  play(kAir, named({{1, "GOOD"}, {2, "OLD"}}));
  EXPECT_EQ((Texts{"deleted", "added", "updated", "listed"}),
            change(named({{1, "RENAMED"}, {3, "NEW"}}, 2)));
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-3 NEW"}), labels(kAir));

  // A broken version, then no table: nothing is known to be removed.
  Bytes broken = vct(0xC8, {{"BROKEN", 5, 1, 3}}, 3);
  broken.back() ^= 1;
  for (const std::vector<Bytes>& tables :
       {std::vector{broken, stt(kStart, kOffset)}, {stt(kStart, kOffset)}}) {
    air_.write(kAir, kChannel14, packets(0x1FFB, tables));
    eventLog.until("time");
  }
  const Bytes pmts = packets(0x30, {pmt(3, {{2, 49, {}}})});
  EXPECT_EQ((Texts{"updated", "listed"}),
            change(named({{1, "RENAMED"}, {3, "NEW"}}, 4) + packets(0, {pat({{3, 0x30}})}) + pmts));
  EXPECT_EQ(Texts{"49  2"}, streams(rows(kAir)[0]));

  // A missing PMT does not delay the names of other services.
  EXPECT_EQ((Texts{"updated", "listed"}), change(named({{1, "AGAIN"}, {3, "NEW"}}, 5) +
                                                 packets(0, {pat({{3, 0x30}, {5, 0x31}})}) + pmts));
  EXPECT_EQ((Texts{"5-1 AGAIN", "5-3 NEW"}), labels(kAir));
}

TEST_F(ReceiverLiveTest, AServiceThatComesLaterBringsItsGuide) {
  const Bytes guide = packets(0x1FFB, {mgt({{0x100, 0x1D00}})}) +
                      packets(0x1D00, {eit(3, {{1, kStart, text("Known"), {}, 3600}})});
  air_.write(kAir, kChannel14, guide + named({{2, "GOOD"}}));
  scan(kAir, kChannel14);
  eventLog.until("complete");
  air_.write(kAir, kChannel14, guide + named({{1, "MORE"}, {2, "GOOD"}}));
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  eventLog.until("listed");
  EXPECT_EQ(Texts{"guide 3 of 1"}, eventLog.until("guide"));
}

TEST_F(ReceiverLiveTest, TimesThatContradictEachOtherAreToldOnceASecond) {
  const Bytes both = packets(0x1FFB, {stt(kStart, 15), stt(kStart, 16)});
  const auto begin = steady_clock::now();
  play(kAir, named({{1, "GOOD"}}) + both + both + both);
  for (int i = 0; i < 2; ++i) eventLog.until("time");
  EXPECT_GE(steady_clock::now() - begin, seconds(1));
}

TEST_F(ReceiverLiveTest, ACarrierThatGoesAndComesBackIsNoticed) {
  const std::string signal = "locked unlocked plays fails";
  ATSC_host_set_fast(0);
  const Bytes stream = guideStream();
  play(kAir, stream);
  fs::remove(air_.path(kAir, kChannel14));
  EXPECT_EQ((Texts{"unlocked", "fails"}), eventLog.until("fails", signal));
  EXPECT_NE(0, AIFW_play_first_service(kAir, 0));
  EXPECT_EQ(Texts{"fails"}, eventLog.until("fails", signal));
  air_.write(kAir, kChannel14, stream);
  EXPECT_EQ((Texts{"locked", "plays"}), eventLog.until("plays", signal));
  fs::resize_file(air_.path(kAir, kChannel14), 100);  // truncated in place
  EXPECT_EQ((Texts{"unlocked", "fails"}), eventLog.until("fails", signal));
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
}

TEST_F(ReceiverLiveTest, TheGuideOfOtherCarriersIsKeptToo) {
  air_.write(kAir, kChannel14, named({{1, "GOOD"}}));
  scan(kAir, kChannel14);
  ASSERT_EQ(0, AIFW_init(0));
  eventLog.until("listed");
  air_.write(kAir, kChannel14, guideStream(1, "Other news"));
  EXPECT_EQ("guide 3 of 2", eventLog.until("complete", "guide").back());

  // A scan keeps the service, too. An MGT that keeps changing leaves a guide incomplete.
  const auto other = [&](const std::string& title, const std::vector<MgtEntry>& tables,
                         const Bytes& last = {}) {
    const Bytes show = eit(8, {{1, kStart, text(title), {}, 3600}});
    air_.write(kAir, 57000000,
               packets(0x1D00, {show}) +  // before the table that announces it
                   packets(0x1FFB, {vct(0xC8, {{"OTHER", 6, 1, 8}}), mgt(tables)}) + last);
    scan(kAir, 57000000);
  };
  other("Show", {{0x100, 0x1D00}});
  EXPECT_EQ((Texts{"listed", "guide 8 of 2", "complete"}), eventLog.until("complete"));
  const MgtEntry now{0x100, 0x1D00}, later{0x101, 0x1D01};
  other("Film", {now, later}, packets(0x1FFB, {mgt({now, {0x101, 0x1D02}})}));
  EXPECT_EQ(Texts{"guide 8 of 2"}, eventLog.until("guide"));
  other("News", {now, later});
  EXPECT_EQ((Texts{"guide 8 of 2", "complete"}), eventLog.until("complete"));

  // An application that keeps the guide of the current source only is notified when the source
  // changes, and when it registers its callback.
  play(kCable, packets(0x1FFB, {vct(0xC9, {{"CABLE", 7, 1, 9}}), alert(4, "Tornado", "")}));
  EXPECT_EQ(Texts{"blocking Tornado"}, eventLog.until("blocking", "blocking alert over"));
  uint8_t priority = 0;
  EXPECT_EQ(0, AIFW_get_EAS_priority(&priority));
  EXPECT_EQ(11, priority);
  AIFW_stop_curr_src();
  EXPECT_EQ(Texts{"over"}, eventLog.until("over", "alert blocking over"));
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 57000000));
  EXPECT_EQ(Texts{"guide 3 8 of 2"}, eventLog.until("guide", "guide"));
  AIFW_register_frmwrk_app_cb(nullptr);
  AIFW_register_frmwrk_app_cb(record);
  EXPECT_EQ(Texts{"guide 3 8 of 2"}, eventLog.until("guide", "guide"));
}

TEST(ReceiverEventsTest, UpdatesAreSplitAndBelongToTheirEvent) {
  static EventQueue* queue;
  static Arrivals<std::pair<AFW_event_t, uint32_t>> counts;
  EventQueue events;
  queue = &events;
  events.raise(AFW_EPG_COMPLETE);  // no callback
  events.setCallback([](AFW_event_t event, void*) {
    counts.add({event, queue->updateData().count});
    throw 1;
  });
  events.raiseGuideUpdate(std::vector<uint16_t>(1001, 7));
  using Told = std::vector<std::pair<AFW_event_t, uint32_t>>;
  EXPECT_EQ((Told{{AFW_EPG_UPDATE, 1000}, {AFW_EPG_UPDATE, 1}}), counts.take(2));
}

TEST(ReceiverAlertsTest, StartByPriorityAndSettingsAndEndInTime) {
  // A script has settings, "=level,repeated,cable", and messages, "second:sequence/event/priority",
  // optionally with "+", the remaining seconds, the minutes and the start of the event. The alerts
  // that start and end are "second:sequence/priority", with 'b' when blocking, and "second:.".
  const struct {
    const char* name;
    uint32_t source;
    const char* script;
    const char* expected;
  } cases[] = {
      {"by priority", kAir, "0:1/1/0 1:2/2/3 3:3/3/15", "1:2/3 3:. 3:3/15b 13:. "},
      {"for its time", kAir, "0:1/1/3+10 0:1/1/3+10 12:1/1/3+10", "0:1/3 10:. "},
      {"one a second", kAir,
       "0:1/1/3+99 0:4/4/11+5 0:3/3/11+5 0:2/2/11+5 0:4/4/11+5 0:3/3/11+5 0:2/2/11+5 8:3/3/11+5",
       "0:1/3 1:. 1:2/11b 6:. 8:3/11b 13:. "},
      {"while it is sent", kAir, "0:3/3/15 5:3/3/15", "0:3/15b 15:. "},
      {"until the event is over", kAir,
       "0:4/4/7+0+1 9:4/4/7+0+1 18:4/4/7+0+1 27:4/4/7+0+1 "
       "36:4/4/7+0+1 45:4/4/7+0+1 54:4/4/7+0+1",
       "0:4/7 60:. "},
      {"as it started", kAir, "0:4/4/7+0+1+890", "0:4/7 5:. "},
      {"until the end", kAir, "0:5/5/15+99 2:6/6/0", "0:5/15b 13:. "},
      {"medium", kAir, "=1,0,0 0:1/1/3 2:2/2/7 4:3/3/6", "2:2/7 12:. "},
      {"high", kAir, "=2,0,0 0:1/1/11 2:2/2/10 4:3/3/12", "0:1/11b 4:. 4:3/12 14:. "},
      {"maximum", kAir, "=3,0,0 0:1/1/11 2:2/2/15 4:3/3/14", "2:2/15b 12:. "},
      {"cable only, air", kAir, "=0,0,1 0:1/1/15", ""},
      {"cable only, cable", kCable, "=0,0,1 0:1/1/15", "0:1/15b 10:. "},
      {"an event again", kAir, "0:1/9/7 2:2/9/7 4:3/8/7 6:4/9/7", "0:1/7 4:. 4:3/7 14:. "},
      {"wanted again", kAir, "=0,1,0 0:1/9/7 2:2/9/7", "0:1/7 2:. 2:2/7 12:. "},
      {"wanted again later", kAir, "0:1/9/7 2:2/9/11 =0,1,0 4:2/9/11", "0:1/7 4:. 4:2/11b 14:. "},
      {"no longer wanted", kAir, "0:1/1/7 =2,0,0 2:1/1/7 4:2/2/11", "0:1/7 1:. 4:2/11b 14:. "},
      {"a lower one waits", kAir, "0:1/1/11 2:2/2/7 4:1/1/11 6:2/2/7", "0:1/11b 14:. "},
      {"a lower one while the higher one goes", kAir, "0:1/1/11 2:2/2/7 6:2/2/7 9:2/2/7 11:2/2/7",
       "0:1/11b 10:. 11:2/7 21:. "},
      {"a lower one that is still sent", kAir, "0:1/1/7 2:2/2/11 4:1/1/7 8:1/1/7 12:1/1/7",
       "0:1/7 2:. 2:2/11b 12:. 12:1/7 22:. "},
      {"on and off", kAir, "0:1/1/15 =0,0,1 2:1/1/15 =0,0,0 4:1/1/15", "0:1/15b 1:. 4:1/15b 14:. "},
  };
  EventQueue events;
  events.setCallback(record);
  for (const auto& each : cases) {
    eventLog.clear();
    AlertSettings settings;
    Alerts alerts(events, settings, each.source);
    const auto begin = steady_clock::now();
    int second = 0;
    const auto runTo = [&](int end) {
      for (; second < end; ++second) {
        events.raise(AFW_VIEWING_DELAY);
        alerts.check(begin + seconds(second + 1), 946u + static_cast<uint32_t>(second));
      }
    };
    std::istringstream script(each.script);
    for (std::string word; script >> word;) {
      AlertSettings::Values values;
      if (std::sscanf(word.c_str(), "=%d,%d,%d", &values.level, &values.repeatedEvents,
                      &values.cableOnly) == 3) {
        settings.set(values);
        continue;
      }
      int at = 0;
      atschost::EmergencyAlert m;
      std::sscanf(word.c_str(), "%d:%hhu/%hu/%hhu+%hhu+%hu+%u", &at, &m.sequence, &m.eventId,
                  &m.priority, &m.timeRemaining, &m.duration, &m.start);
      m.text = atschost::toUtf16(std::to_string(m.sequence) + '/' + std::to_string(m.priority));
      runTo(at);
      alerts.receive(m, begin + seconds(at), 945u + static_cast<uint32_t>(at));
    }
    runTo(second + 11);
    alerts.stop();
    events.raise(AFW_CHANNEL_PLAY_FAILURE);
    std::string told;
    int now = 0;
    for (const std::string& event : eventLog.until("fails", "blocking alert over delay")) {
      const std::string at = std::to_string(now) + ':';
      if (event == "delay") ++now;
      if (event == "over") told += at + ". ";
      if (event[0] == 'a') told += at + event.substr(6) + ' ';
      if (event[0] == 'b') told += at + event.substr(9) + "b ";
    }
    EXPECT_EQ(each.expected, told) << each.name;
  }
}

TEST(ReceiverAlertsTest, SettingsAreKeptAtOnce) {
  using Values = AlertSettings::Values;
  const std::tuple<int (*)(int32_t*, int), int32_t Values::*, int32_t> settings[] = {
      {AIFW_user_eas_setting, &Values::level, AIFW_EAS_MAXIMUM},
      {AIFW_disable_optional_eas_event_id_check, &Values::repeatedEvents, 1},
      {AIFW_enable_eas_cable_only, &Values::cableOnly, 1},
  };
  for (const auto& [access, which, max] : settings) {
    for (int32_t value : {max, 0}) {
      int32_t below = -1, above = max + 1, read = 9;
      EXPECT_EQ(0, access(&value, AIFW_EAS_WRITE));
      EXPECT_EQ(value, TestReceiver(getenv("ATSC_HOST_STATE")).settings().alert(which));
      EXPECT_NE(0, access(&below, AIFW_EAS_WRITE));
      EXPECT_NE(0, access(&above, AIFW_EAS_WRITE));
      EXPECT_NE(0, access(&value, 2));
      EXPECT_EQ(0, access(&read, AIFW_EAS_READ));
      EXPECT_EQ(value, read);
    }
  }
}

TEST(ReceiverPaceTest, IsThatOfTheStreamsOwnClocks) {
  atschost::Pace byPcr, byTime, byDefault;
  for (unsigned i = 0; i < 2000; ++i) {
    Bytes packet = packets(0x31, {Bytes(100)});
    if (i % 20 == 0) {  // every 10 ms
      const uint32_t base = i / 20 * 900;
      const Bytes clock = Bytes{0x20, 183, 0x10} + be32(base >> 1) + be16((base & 1) << 15);
      std::copy(clock.begin(), clock.end(), packet.begin() + 3);
    }
    byPcr.packet(packet.data());
    byTime.packet(packets(0x31, {Bytes(100)}).data());
    if (i % 150 == 0) byTime.systemTime(kStart + i / 300);
  }
  EXPECT_NEAR(2000, byPcr.packetsPerSecond(), 1);
  EXPECT_NEAR(300, byTime.packetsPerSecond(), 1);
  EXPECT_EQ(1000, byDefault.packetsPerSecond());
}

}  // namespace
}  // namespace receiver_test
