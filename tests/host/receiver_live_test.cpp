// The stream of the playing service: its events, the clock, changes on the air, alerts.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <optional>
#include <thread>

#include "aicn.h"
#include "aiec.h"
#include "aifw.h"
#include "aist.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "files.h"
#include "modules/host.h"
#include "receiver/events/alerts.h"
#include "receiver/events/event_queue.h"
#include "receiver/station/clock.h"
#include "receiver/stream/pace.h"
#include "receiver/tables/psip_text.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Alerts;
using atschost::AlertSettings;
using atschost::Clock;
using atschost::EmergencyAlert;
using atschost::EventQueue;
using atschost::StreamId;
using atschost::SystemTime;
using std::chrono::seconds;
using Events = std::vector<AFW_event_t>;

constexpr uint32_t kChannel16 = 485000000;  // used for the guide of one test only

// A reported event, with answers of the middleware during the callback.
struct Reported {
  AFW_event_t event;
  std::optional<AIFW_time_data> time;
  std::string text;  // ASCII part
  std::vector<uint32_t> sourceIds;
  uint8_t alertPriority = 0;
  uint16_t guideEvents = 0;  // of the first terrestrial service
};

struct EventLog : Arrivals<Reported> {
  // Waits for an event and removes it and all events before it.
  std::vector<Reported> takeUntil(AFW_event_t event) {
    std::vector<Reported> taken =
        Arrivals::takeUntil([&](const Reported& reported) { return reported.event == event; });
    if (!taken.empty()) return taken;
    ADD_FAILURE() << "no event " << event;
    return {{AFW_INVALID, {}, {}, {}, 0, 0}};
  }
};
EventLog eventLog;

void record(AFW_event_t event, void* data) {
  Reported reported{event, {}, {}, {}, 0, 0};
  if (event == AFW_STT_UPDATE || event == AFW_TIME_CHANGE)
    reported.time = *static_cast<AIFW_time_data*>(data);
  if (event == AFW_EAS_START_BLOCKING || event == AFW_EAS_START_NON_BLOCKING) {
    const auto* text = static_cast<multiple_lang_t*>(data);
    reported.text = latin({text->text, text->text + text->length});
    AIFW_get_EAS_priority(&reported.alertPriority);
  }
  if (event == AFW_EPG_UPDATE) {
    AIFW_event_update_data update{};
    EXPECT_EQ(0, AIFW_get_event_update_data(&update));
    reported.sourceIds.assign(update.source_ids, update.source_ids + update.count);
    if (const std::vector<Row> list = rows(kAir); !list.empty())
      AIEC_get_total_events(&list[0].info, &reported.guideEvents);
  }
  eventLog.add(std::move(reported));
}

Events eventsOf(const std::vector<Reported>& log, const Events& ofInterest) {
  Events events;
  for (const Reported& r : log)
    if (std::count(ofInterest.begin(), ofInterest.end(), r.event)) events.push_back(r.event);
  return events;
}

const Events kServiceEvents{AFW_SERVICE_DELETED, AFW_SERVICE_ADDED, AFW_SERVICE_UPDATE,
                            AFW_SERVICE_BUILD_COMPLETED};

// PSIP of one service with source id 3 and two programmes.
constexpr uint32_t kStart = 1200000000;
constexpr uint8_t kOffset = 17;
Bytes guideStream(unsigned version = 1, const std::string& title = "News") {
  return packets(0x1FFB, {vct(0xC8, {{"GOOD", 5, 1, 3}}), stt(kStart + 60, kOffset),
                          mgt({{0x100, 0x1D00}, {0x200, 0x1D01}}, version)}) +
         packets(
             0x1D00,
             {eit(3, {{1, kStart, text(title), {}, 3600}, {2, kStart + 3600, text("Film"), {}, 60}},
                  version)}) +
         packets(0x1D01, {ett(3, 2, text("A long story."))});
}
Bytes named(const std::vector<std::pair<unsigned, std::string>>& channels, unsigned version = 1) {
  std::vector<Channel> list;
  for (const auto& [minor, name] : channels) list.push_back({name, 5, minor, 2 + minor});
  return packets(0x1FFB, {vct(0xC8, list, version), stt(kStart, kOffset)});
}

std::promise<void> called;
void neverReturn(AFW_event_t, void*) {
  called.set_value();
  std::promise<void>().get_future().wait();
}

// Runs before other suites, in a process without a receiver.
TEST(ReceiverLiveDeathTest, ExitIsCleanWhileAStreamPlaysAndACallbackIsStuck) {
  for (const AIFW_app_callback callback : {record, neverReturn}) {
    Air air;
    air.write(kAir, kChannel14, guideStream());
    EXPECT_EXIT(
        {
          AIFW_init(0);
          AIFW_register_frmwrk_app_cb(callback);
          scan(kAir, kChannel14);
          const int played = AIFW_play_first_service(kAir, 0);
          if (callback == record) {
            eventLog.takeUntil(AFW_EPG_COMPLETE);
          } else {
            called.get_future().wait();
          }
          exit(played);
        },
        testing::ExitedWithCode(0), "");
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
    eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED);
    ASSERT_EQ(0, AIFW_play_first_service(source, frequency));
    eventLog.takeUntil(AFW_CHANNEL_PLAY_SUCCESS);
  }
  Air air_;
};

TEST_F(ReceiverLiveTest, TuningTellsLockTimeAndGuideInOrder) {
  air_.write(kAir, kChannel16, named({{1, "GOOD"}}));
  scan(kAir, kChannel16);
  EXPECT_EQ(Events{AFW_SERVICE_BUILD_COMPLETED},
            eventsOf(eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED), kServiceEvents));
  air_.write(kAir, kChannel16, guideStream());
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  const std::vector<Reported> log = eventLog.takeUntil(AFW_EPG_COMPLETE);
  const Events inOrder{AFW_TUNER_LOCKED, AFW_CHANNEL_PLAY_SUCCESS, AFW_STT_UPDATE,  AFW_EIT_UPDATE,
                       AFW_ETT_UPDATE,   AFW_EPG_UPDATE,           AFW_EPG_COMPLETE};
  EXPECT_EQ(inOrder, eventsOf(log, inOrder));
  const Reported& update = log[log.size() - 2];
  EXPECT_EQ(std::vector<uint32_t>{3}, update.sourceIds);
  EXPECT_EQ(2, update.guideEvents);
  for (const Reported& r : log) {
    if (!r.time) continue;
    EXPECT_EQ(kStart + 60, r.time->system_time);
    EXPECT_EQ(kOffset, r.time->gps_utc_offset);
  }
  uint32_t now = 0;
  EXPECT_EQ(0, AIST_get_cur_time_secs(&now));
  EXPECT_LT(now - (kStart + 60 - kOffset + kGpsEpoch), 60u);

  // Another version of the guide. The time was reported before and is not reported again.
  air_.write(kAir, kChannel16, guideStream(2, "Weather"));
  EXPECT_EQ((Events{AFW_STT_UPDATE, AFW_EIT_UPDATE, AFW_EPG_UPDATE, AFW_EPG_COMPLETE}),
            eventsOf(eventLog.takeUntil(AFW_EPG_COMPLETE), inOrder));

  // The clock reaches the start of the next programme.
  ATSC_host_set_clock(kStart + 3600 - kOffset + kGpsEpoch - 1);
  eventLog.takeUntil(AFW_EVENT_TRANSITION);
}

TEST_F(ReceiverLiveTest, ServicesThatChangeOnTheAirAreListedAndTold) {
  play(kAir, named({{1, "GOOD"}, {2, "OLD"}}));
  air_.write(kAir, kChannel14, named({{1, "RENAMED"}, {3, "NEW"}}, 2));
  EXPECT_EQ((Events{AFW_SERVICE_DELETED, AFW_SERVICE_ADDED, AFW_SERVICE_UPDATE,
                    AFW_SERVICE_BUILD_COMPLETED}),
            eventsOf(eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED), kServiceEvents));
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-3 NEW"}), labels(kAir));

  // A broken version, then no table: nothing is known to be removed.
  Bytes broken = vct(0xC8, {{"BROKEN", 5, 1, 3}}, 3);
  broken.back() ^= 1;
  for (const Bytes& stream :
       {packets(0x1FFB, {broken, stt(kStart, kOffset)}), packets(0x1FFB, {stt(kStart, kOffset)})}) {
    air_.write(kAir, kChannel14, stream);
    eventLog.takeUntil(AFW_STT_UPDATE);
  }
  air_.write(kAir, kChannel14,
             named({{1, "RENAMED"}, {3, "NEW"}}, 4) + packets(0, {pat({{3, 0x30}})}) +
                 packets(0x30, {pmt(3, {{2, 49, {}}})}));
  EXPECT_EQ((Events{AFW_SERVICE_UPDATE, AFW_SERVICE_BUILD_COMPLETED}),
            eventsOf(eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED), kServiceEvents));
  EXPECT_EQ((Texts{"49  2"}), streams(rows(kAir)[0]));

  // A missing PMT does not delay the names of other services.
  air_.write(kAir, kChannel14,
             named({{1, "AGAIN"}, {3, "NEW"}}, 5) + packets(0, {pat({{3, 0x30}, {5, 0x31}})}) +
                 packets(0x30, {pmt(3, {{2, 49, {}}})}));
  eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED);
  EXPECT_EQ((Texts{"5-1 AGAIN", "5-3 NEW"}), labels(kAir));
}

TEST_F(ReceiverLiveTest, AServiceThatComesLaterBringsItsGuide) {
  const Bytes guide = packets(0x1FFB, {mgt({{0x100, 0x1D00}})}) +
                      packets(0x1D00, {eit(3, {{1, kStart, text("Known"), {}, 3600}})});
  air_.write(kAir, kChannel14, guide + named({{2, "GOOD"}}));
  scan(kAir, kChannel14);
  eventLog.takeUntil(AFW_EPG_COMPLETE);
  air_.write(kAir, kChannel14, guide + named({{1, "MORE"}, {2, "GOOD"}}));
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED);
  EXPECT_EQ(std::vector<uint32_t>{3}, eventLog.takeUntil(AFW_EPG_UPDATE).back().sourceIds);
}

TEST_F(ReceiverLiveTest, TimesThatContradictEachOtherAreToldOnceASecond) {
  const Bytes both = packets(0x1FFB, {stt(kStart, 15), stt(kStart, 16)});
  const auto begin = std::chrono::steady_clock::now();
  play(kAir, named({{1, "GOOD"}}) + both + both + both);
  for (int i = 0; i < 2; ++i) eventLog.takeUntil(AFW_STT_UPDATE);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, seconds(1));
}

TEST_F(ReceiverLiveTest, ACarrierThatGoesAndComesBackIsNoticed) {
  ATSC_host_set_fast(0);
  const Bytes stream = guideStream();
  play(kAir, stream);
  fs::remove(air_.path(kAir, kChannel14));
  const Events lockEvents{AFW_TUNER_LOCKED, AFW_TUNER_UNLOCKED, AFW_CHANNEL_PLAY_SUCCESS,
                          AFW_CHANNEL_PLAY_FAILURE};
  EXPECT_EQ((Events{AFW_TUNER_UNLOCKED, AFW_CHANNEL_PLAY_FAILURE}),
            eventsOf(eventLog.takeUntil(AFW_CHANNEL_PLAY_FAILURE), lockEvents));
  EXPECT_NE(0, AIFW_play_first_service(kAir, 0));
  eventLog.takeUntil(AFW_CHANNEL_PLAY_FAILURE);
  air_.write(kAir, kChannel14, stream);
  EXPECT_EQ((Events{AFW_TUNER_LOCKED, AFW_CHANNEL_PLAY_SUCCESS}),
            eventsOf(eventLog.takeUntil(AFW_CHANNEL_PLAY_SUCCESS), lockEvents));

  // Truncated in place.
  fs::resize_file(air_.path(kAir, kChannel14), 100);
  eventLog.takeUntil(AFW_CHANNEL_PLAY_FAILURE);
  EXPECT_EQ((Texts{"5-1 GOOD"}), labels(kAir));
}

TEST_F(ReceiverLiveTest, TheGuideOfOtherCarriersIsKeptToo) {
  air_.write(kAir, kChannel14, named({{1, "GOOD"}}));
  scan(kAir, kChannel14);
  ASSERT_EQ(0, AIFW_init(0));
  eventLog.takeUntil(AFW_SERVICE_BUILD_COMPLETED);
  air_.write(kAir, kChannel14, guideStream(1, "Other news"));
  const std::vector<Reported> log = eventLog.takeUntil(AFW_EPG_COMPLETE);
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ(std::vector<uint32_t>{3}, log[log.size() - 2].sourceIds);
  EXPECT_EQ(2, log[log.size() - 2].guideEvents);

  // A scan keeps the service, too.
  air_.write(kAir, 57000000,
             packets(0x1FFB, {vct(0xC8, {{"OTHER", 6, 1, 8}}), mgt({{0x100, 0x1D00}})}) +
                 packets(0x1D00, {eit(8, {{1, kStart, text("Show"), {}, 3600}})}));
  scan(kAir, 57000000);
  const std::vector<Reported> scanned = eventLog.takeUntil(AFW_EPG_COMPLETE);
  EXPECT_EQ((Events{AFW_SERVICE_BUILD_COMPLETED, AFW_EPG_UPDATE, AFW_EPG_COMPLETE}),
            eventsOf(scanned, {AFW_SERVICE_BUILD_COMPLETED, AFW_EPG_UPDATE, AFW_EPG_COMPLETE}));

  // An MGT that keeps changing leaves a guide incomplete.
  for (const unsigned last : {0x1D02, 0x1D01}) {
    air_.write(kAir, 57000000,
               packets(0x1FFB,
                       {vct(0xC8, {{"OTHER", 6, 1, 8}}), mgt({{0x100, 0x1D00}, {0x101, 0x1D01}})}) +
                   packets(0x1D00, {eit(8, {{1, kStart + last, text("Film"), {}, 3600}})}) +
                   packets(0x1FFB, {mgt({{0x100, 0x1D00}, {0x101, last}})}));
    scan(kAir, 57000000);
    eventLog.takeUntil(AFW_EPG_UPDATE);
  }
  EXPECT_EQ(Events{AFW_EPG_COMPLETE},
            eventsOf(eventLog.takeUntil(AFW_EPG_COMPLETE), {AFW_EPG_UPDATE, AFW_EPG_COMPLETE}));

  // An application that keeps the guide of the current source only is notified when the source
  // changes, and when it registers its callback.
  play(kCable, packets(0x1FFB, {vct(0xC9, {{"CABLE", 7, 1, 9}})}));
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 57000000));
  EXPECT_EQ((std::vector<uint32_t>{3, 8}), eventLog.takeUntil(AFW_EPG_UPDATE).back().sourceIds);
  AIFW_register_frmwrk_app_cb(nullptr);
  AIFW_register_frmwrk_app_cb(record);
  EXPECT_EQ((std::vector<uint32_t>{3, 8}), eventLog.takeUntil(AFW_EPG_UPDATE).back().sourceIds);
}

TEST_F(ReceiverLiveTest, AnAlertOfTheStreamIsReported) {
  const fs::path capture = fs::path(ATSC_CAPTURES_DIR) / "sections/cable-emergency-alert-inband.ts";
  if (!*ATSC_CAPTURES_DIR || !fs::exists(capture)) GTEST_SKIP() << "no captures";
  play(kCable, packets(0x1FFB, {vct(0xC9, {{"CABLE", 7, 1, 3}})}) + readBytes(capture));
  const Reported start = eventLog.takeUntil(AFW_EAS_START_BLOCKING).back();
  EXPECT_EQ("REQUIRED WEEKLY TEST", start.text);
  EXPECT_EQ(15, start.alertPriority);
  AIFW_stop_curr_src();
  eventLog.takeUntil(AFW_EAS_STOP);
}

std::promise<void> stuck;
std::promise<void> goOn;
void waitOnce(AFW_event_t event, void* data) {
  if (event == AFW_CHANNEL_PLAY_SUCCESS) {
    stuck.set_value();
    goOn.get_future().wait();
  }
  record(event, data);
}

TEST_F(ReceiverLiveTest, ASlowCallbackDelaysEventsOnly) {
  AIFW_register_frmwrk_app_cb(waitOnce);
  air_.write(kAir, kChannel14, named({{1, "GOOD"}}));
  scan(kAir, kChannel14);
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  stuck.get_future().wait();
  air_.write(kAir, kChannel14, named({{1, "RENAMED"}}, 2));
  const auto deadline = std::chrono::steady_clock::now() + seconds(60);
  while (labels(kAir) != Texts{"5-1 RENAMED"} && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_EQ((Texts{"5-1 RENAMED"}), labels(kAir));
  goOn.set_value();
  eventLog.takeUntil(AFW_SERVICE_UPDATE);
}

TEST(ReceiverEventsTest, UpdatesAreSplitAndBelongToTheirEvent) {
  static EventQueue* queue;
  static std::promise<std::vector<uint32_t>> done;
  EventQueue events;
  queue = &events;
  events.raise(AFW_EPG_COMPLETE);  // no callback
  events.setCallback([](AFW_event_t event, void*) {
    static std::vector<uint32_t> counts;
    if (event == AFW_EPG_COMPLETE) done.set_value(counts);
    counts.push_back(queue->updateData().count);
    throw 1;
  });
  std::vector<uint16_t> ids(1001);
  for (size_t i = 0; i < ids.size(); ++i) ids[i] = static_cast<uint16_t>(i);
  events.raiseGuideUpdate(ids);
  events.raise(AFW_EPG_COMPLETE);
  EXPECT_EQ((std::vector<uint32_t>{1000, 1}), done.get_future().get());
}

EmergencyAlert alert(uint8_t sequence, uint8_t priority, uint8_t remaining, uint16_t duration = 0) {
  EmergencyAlert made;
  made.sequence = sequence;
  made.eventId = sequence;
  made.priority = priority;
  made.timeRemaining = remaining;
  made.duration = duration;
  return made;
}

TEST(ReceiverAlertsTest, StartOnceByPriorityAndEndInTime) {
  eventLog.clear();
  EventQueue events;
  events.setCallback(record);
  const AlertSettings settings;
  Alerts alerts(events, settings, kAir);
  const auto t = std::chrono::steady_clock::now();
  alerts.receive(alert(1, 3, 10), t, {});
  alerts.receive(alert(1, 3, 10), t, {});
  // The last of many alerts replaces the first; the others never start.
  for (int i = 0; i < 100; ++i)
    for (const uint8_t sequence : {4, 3, 2}) alerts.receive(alert(sequence, 11, 10), t, {});
  alerts.check(t + seconds(1), {});
  alerts.check(t + seconds(10), {});
  events.raise(AFW_VIEWING_DELAY);
  alerts.check(t + seconds(11), {});
  alerts.receive(alert(2, 11, 10), t + seconds(12), {});  // again, after its end
  alerts.receive(alert(3, 15, 0), t + seconds(20), {});
  alerts.receive(alert(3, 15, 0), t + seconds(25), {});
  alerts.check(t + seconds(34), {});
  events.raise(AFW_VIEWING_DELAY);
  alerts.check(t + seconds(35), {});  // not received for 10 s
  alerts.receive(alert(4, 7, 0, 1), t + seconds(40), 1000u);
  alerts.receive(alert(4, 7, 0, 1), t + seconds(100), 1060u);
  alerts.check(t + seconds(100), 1059u);
  events.raise(AFW_VIEWING_DELAY);
  alerts.check(t + seconds(100), 1060u);  // the event is over
  alerts.receive(alert(5, 15, 0), t + seconds(110), {});
  events.raise(AFW_VIEWING_DELAY);
  alerts.receive(alert(6, 0, 0), t + seconds(112), {});  // a test message is no alert
  alerts.check(t + seconds(119), {});
  events.raise(AFW_VIEWING_DELAY);
  alerts.stop();
  events.raise(AFW_INVALID);
  Events told;
  for (const Reported& r : eventLog.takeUntil(AFW_INVALID)) told.push_back(r.event);
  EXPECT_EQ(
      (Events{AFW_EAS_START_NON_BLOCKING, AFW_EAS_STOP, AFW_EAS_START_BLOCKING, AFW_VIEWING_DELAY,
              AFW_EAS_STOP, AFW_EAS_START_BLOCKING, AFW_VIEWING_DELAY, AFW_EAS_STOP,
              AFW_EAS_START_NON_BLOCKING, AFW_VIEWING_DELAY, AFW_EAS_STOP, AFW_EAS_START_BLOCKING,
              AFW_VIEWING_DELAY, AFW_VIEWING_DELAY, AFW_EAS_STOP, AFW_INVALID}),
      told);
}

TEST(ReceiverAlertsTest, OnlyThoseThatAreWantedAreReported) {
  EventQueue events;
  events.setCallback(record);
  using Values = AlertSettings::Values;
  const Values all, medium{1, 0, 0}, high{2, 0, 0}, maximum{3, 0, 0}, repeated{0, 1, 0},
      cable{0, 0, 1};
  // Messages arrive two seconds apart.
  struct Message {
    uint8_t sequence;
    uint16_t event;
    uint8_t priority;
    Values settings;
  };
  const struct {
    const char* name;
    uint32_t source;
    std::vector<Message> messages;
    std::string expected;  // priorities of alerts that start, '.' where an alert stops
  } cases[] = {
      {"all", kAir, {{1, 1, 0, all}, {2, 2, 3, all}, {3, 3, 15, all}}, "3 . 15 . "},
      {"medium", kAir, {{1, 1, 3, medium}, {2, 2, 7, medium}, {3, 3, 6, medium}}, "7 . "},
      {"high", kAir, {{1, 1, 11, high}, {2, 2, 10, high}, {3, 3, 12, high}}, "11 . 12 . "},
      {"maximum", kAir, {{1, 1, 11, maximum}, {2, 2, 15, maximum}, {3, 3, 14, maximum}}, "15 . "},
      {"cable only, air", kAir, {{1, 1, 15, cable}}, ""},
      {"cable only, cable", kCable, {{1, 1, 15, cable}}, "15 . "},
      {"an event again",
       kAir,
       {{1, 9, 7, all}, {2, 9, 7, all}, {3, 8, 7, all}, {4, 9, 7, all}},
       "7 . 7 . "},
      {"wanted again", kAir, {{1, 9, 7, repeated}, {2, 9, 7, repeated}}, "7 . 7 . "},
      {"wanted again later",
       kAir,
       {{1, 9, 7, all}, {2, 9, 11, all}, {2, 9, 11, repeated}},
       "7 . 11 . "},
      {"wanted later", kAir, {{1, 1, 7, maximum}, {1, 1, 7, all}}, "7 . "},
      {"no longer wanted", kAir, {{1, 1, 7, all}, {1, 1, 7, high}, {2, 2, 11, high}}, "7 . 11 . "},
      {"a lower one waits",
       kAir,
       {{1, 1, 11, all}, {2, 2, 7, all}, {1, 1, 11, all}, {2, 2, 7, all}},
       "11 . "},
      {"a lower one while the higher one goes",
       kAir,
       {{1, 1, 11, all},
        {2, 2, 7, all},
        {2, 2, 7, all},
        {2, 2, 7, all},
        {2, 2, 7, all},
        {2, 2, 7, all}},
       "11 . 7 . "},
      {"a lower one that is still sent",
       kAir,
       {{1, 1, 7, all},
        {2, 2, 11, all},
        {1, 1, 7, all},
        {1, 1, 7, all},
        {1, 1, 7, all},
        {1, 1, 7, all},
        {1, 1, 7, all}},
       "7 . 11 . 7 . "},
      {"on and off", kAir, {{1, 1, 15, all}, {1, 1, 15, cable}, {1, 1, 15, all}}, "15 . 15 . "},
  };
  for (const auto& c : cases) {
    eventLog.clear();
    AlertSettings settings;
    Alerts alerts(events, settings, c.source);
    auto t = std::chrono::steady_clock::now();
    for (const Message& message : c.messages) {
      settings.set(message.settings);
      alerts.check(t, {});
      EmergencyAlert received = alert(message.sequence, message.priority, 0);
      received.eventId = message.event;
      received.text = atschost::toUtf16(std::to_string(message.priority));
      alerts.receive(received, t, {});
      t += seconds(2);
    }
    alerts.stop();
    events.raise(AFW_INVALID);
    std::string told;
    for (const Reported& r : eventLog.takeUntil(AFW_INVALID)) {
      if (r.event == AFW_EAS_STOP) told += ". ";
      if (!r.text.empty()) told += r.text + ' ';
    }
    EXPECT_EQ(c.expected, told) << c.name;
  }
}

TEST(ReceiverAlertsTest, SettingsAreKeptAtOnce) {
  using Values = AlertSettings::Values;
  const struct {
    int (*access)(int32_t*, int);
    int32_t Values::*which;
    int32_t max;
  } settings[] = {
      {AIFW_user_eas_setting, &Values::level, AIFW_EAS_MAXIMUM},
      {AIFW_disable_optional_eas_event_id_check, &Values::repeatedEvents, 1},
      {AIFW_enable_eas_cable_only, &Values::cableOnly, 1},
  };
  for (const auto& setting : settings) {
    for (int32_t value : {setting.max, 0}) {
      EXPECT_EQ(0, setting.access(&value, AIFW_EAS_WRITE));
      TestReceiver restarted(getenv("ATSC_HOST_STATE"));
      EXPECT_EQ(value, restarted.settings().alert(setting.which));
      for (int32_t unknown : {-1, setting.max + 1})
        EXPECT_NE(0, setting.access(&unknown, AIFW_EAS_WRITE));
      EXPECT_NE(0, setting.access(&value, 2));
      int32_t read = 9;
      EXPECT_EQ(0, setting.access(&read, AIFW_EAS_READ));
      EXPECT_EQ(value, read);
    }
  }
}

SystemTime at(uint32_t gps, uint8_t offset = 18) {
  SystemTime time;
  time.gpsSeconds = gps;
  time.gpsUtcOffset = offset;
  return time;
}

TEST(ReceiverClockTest, FollowsTheFirstTimeOfEachStreamAndRunsOn) {
  Clock clock;
  const auto t = std::chrono::steady_clock::now();
  EXPECT_LT(static_cast<uint32_t>(time(nullptr)) - clock.now(t), 5u);
  const StreamId a{"a", 1, 1, 100, 1}, b{"b", 1, 2, 100, 1}, hostile{"c", 1, 3, 100, 1};
  clock.remember(b, at(kStart + 1), t);
  Clock::Effect effect = clock.follow(a, at(kStart), t);
  EXPECT_TRUE(effect.timeChanged && !effect.detailsChanged);
  EXPECT_EQ(kStart - 18 + kGpsEpoch, clock.now(t));

  // The stream starts again, but its time runs on.
  effect = clock.follow(a, at(kStart), t + seconds(100));
  EXPECT_FALSE(effect.timeChanged);
  EXPECT_EQ(kStart + 100 - 18 + kGpsEpoch, clock.now(t + seconds(100)));
  EXPECT_EQ(kStart + 100, clock.stationTime(a, t + seconds(100)));
  // A stream that was made together with the first, read before.
  EXPECT_FALSE(clock.follow(b, at(kStart), t + seconds(100)).timeChanged);
  // Another offset.
  effect = clock.follow(b, at(kStart, 17), t + seconds(100));
  EXPECT_TRUE(effect.detailsChanged && effect.timeChanged);
  EXPECT_EQ(kStart + 101 - 17 + kGpsEpoch, clock.now(t + seconds(100)));
  // Another content of the same file, and extreme times.
  StreamId replaced = a;
  replaced.inode = 9;
  EXPECT_TRUE(clock.follow(replaced, at(kStart + 50, 17), t + seconds(100)).timeChanged);
  EXPECT_EQ(kStart + 50 - 17 + kGpsEpoch, clock.now(t + seconds(100)));
  // A stream that was made together with the others and is read now for the first time.
  const StreamId late{"d", 1, 4, 100, 1};
  clock.follow(late, at(kStart, 17), t + seconds(200));
  EXPECT_EQ(kStart + 200 - 17 + kGpsEpoch, clock.now(t + seconds(200)));
  clock.follow(hostile, at(0xFFFFFFFF, 255), t + seconds(100));
  EXPECT_EQ(kGpsEpoch - 256, clock.now(t + seconds(100)));

  clock.set(5000, t);
  effect = clock.follow(a, at(kStart, 15), t);
  EXPECT_TRUE(effect.detailsChanged && !effect.timeChanged);
  EXPECT_EQ(5007u, clock.now(t + seconds(7)));
}

TEST(ReceiverPaceTest, IsThatOfTheStreamsOwnClocks) {
  atschost::Pace byPcr, byTime, byDefault;
  for (unsigned i = 0; i < 2000; ++i) {
    Bytes packet = packets(0x31, {Bytes(100)});
    if (i % 20 == 0) {  // every 10 ms
      const uint32_t base = i / 20 * 900;
      packet[3] = 0x20;
      packet[4] = 183;
      packet[5] = 0x10;
      for (int byte = 0; byte < 4; ++byte)
        packet[6 + byte] = static_cast<uint8_t>(uint64_t{base} << 7 >> (32 - 8 * byte));
      packet[10] = static_cast<uint8_t>(base << 7);
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
