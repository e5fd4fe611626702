#include <gmock/gmock.h>

#include <atomic>
#include <map>
#include <set>
#include <thread>

#include "atsc_service_event.h"
#include "fixture.h"
#include "protocol_document.h"

namespace {

using ::testing::ElementsAre;
using Types = std::map<std::string, std::string>;

std::string kindOf(const std::string& text) { return parsed(text)["cbtype"].asString(); }

class EventTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    startQueues();
  }

  // Returns the message to the TV application for one event.
  static Json::Value messageOf(AFW_event_t event, void* data) {
    const size_t before = fake::sent().size();
    _ATSC_Service_CB_To_TV(event, data);
    const Lines sent = fake::waitForSent(before + 1);
    return sent.size() > before ? parsed(sent[before]) : Json::Value();
  }
};

TEST_F(EventTest, EveryEventHasItsNameMessageAndWay) {
  std::istringstream names(
      "EPG_UPDATE_EVENT EPG_COMPLETE_EVENT EVENT_TRANSITION_EVENT SERVICE_DELETED_EVENT "
      "SERVICE_UPDATE_EVENT SERVICE_UPDATE_TIMER RRT_UPDATE_EVENT RRT_DWNLD_UPDATE_EVENT "
      "TUNER_LOCKED_EVENT TUNER_UNLOCKED_EVENT TUNER_LOCKING_PROGRESS_EVENT PARENTAL_UPDATE_EVENT "
      "PARENTAL_BLOCKED_EVENT PARENTAL_UNBLOCKED_EVENT CURRENT_CHANNEL_LOCKED "
      "CURRENT_CHANNEL_UNLOCKED CURRENT_CHANNEL_PLAY_SUCCESS CURRENT_CHANNEL_PLAY_FAILURE "
      "CURRENT_CHANNEL_DELETED_EVENT SLEEP_TIMER_EVENT SCHEDULER_EVENT SCHEDULER_MSG "
      "LOCK_AFTER_MSG DCCM_TEMP_TUNE_START DCCM_TEMP_TUNE_END DCCM_REDIRECT_CHANNEL "
      "DCCM_VDS_OPTIONS_AVAILABLE DCCM_UPDATE_DATA_AVAILABLE EAS_START_BLOCKING "
      "EAS_START_NON_BLOCKING EAS_STOP_EVENT XDS_EVENT DCCM_EVENT EAS_EVENT EVENT_SLEEP_TIMER "
      "EVENT_SLEEP_TIMER_OVER EVENT_LAPSED_EVENT TASK_EXIT EIT_UPDATE_EVENT STT_UPDATE_EVENT "
      "TIME_CHANGE_EVENT TIME_MODE_CHANGE_EVENT TIME_MONITOR_EVENT ETT_UPDATE_EVENT TMR_EXPR_EVENT "
      "DBB_SERVICE_BUILD_COMPLETED_EVENT DBB_SERVICE_BUILD_ERROR_EVENT "
      "DBB_SERVICE_BUILD_VCT_TIMEOUT_EVENT DBB_SERVICE_BUILD_PMT_TIMEOUT_EVENT "
      "ALL_EVENT_COLLECTION_COMPLETED_EVENT NO_EVENT_FOUND SERVICE_ADDED_EVENT NO_AV_COMPONENT "
      "NO_VIDEO_COMPONENT NO_AUDIO_COMPONENT DATABASE_RESET_EVENT AFD_BAR_UPDATED_EVENT "
      "DCCM_DEPARTING_DESC_AVAILABLE TS_DELETED_SERVICE_EVENT CC_BANNER_INFO_EVENT "
      "CC_PUD_AVALIBILITY_EVENT RF_RESOLUTION_CHANGE ASPECT_RATIO_CHANGE NON_TS_LOCKED_EVENT "
      "NON_TS_UNLOCKED_EVENT NON_TS_LOCKING_EVENT EAS_APP_PREF_CHANGE_EVENT "
      "TS_SCRAMBLED_SERVICE_EVENT AFD_UPDATE_EVENT VIEWING_DELAY INVALID_EVENT");
  // Events with a message, and what ATSC_Service_event_cb() does: f: forward, d: defer, -: nothing.
  std::istringstream messages(
      "0 EPG_UPDATE f 1 EPG_COMPLETE f 2 EVENT_TRANSITION f 3 SERVICE_DELETED d 4 SERVICE_UPDATE - "
      "6 RRT_UPDATE f 7 RRT_DL_UPDATE f 11 PARENTAL_UPDATE f 12 PARENTAL_BLOCKED f "
      "13 PARENTAL_UNBLOCKED f 14 CHANNEL_LOCKED f 15 CHANNEL_UNLOCKED f 16 CHANNEL_PLAY_SUCCESS f "
      "23 DCCM f 24 DCCM f 25 DCCM f 26 DCCM f 27 DCCM f 28 EASSTARTBLOCKING f "
      "29 EASSTARTNONBLOCKING f 30 EASSTOP f 38 EIT_UPDATE f 39 STT_UPDATE_EVENT f "
      "40 TIME_CHANGE f 43 ETT_UPDATE - 45 SERVICE_BUILD_COMPLETED d 51 SERVICE_ADDED d 57 DCCM f "
      "69 VIEWING_DELAY f 999");
  AIFW_time_data time{};
  time.system_time = 4294967295u;
  time.gps_utc_offset = 18;
  time.daylight_savings = 0xCB;
  time.daylight_hour = 2;
  uint8_t letters[] = {'H', 'i'};
  multiple_lang_t alert{letters, sizeof letters, 0};
  const std::string times = R"("DS_Day_Of_Month":5,"DS_Hour":2,"DS_Status":1,"GPS_UTC_Offset":18,)"
                            R"("SystemTime":4294967295,)";
  std::map<std::string, Types> known;  // kinds that have a message, with their keys
  std::set<std::string> raised = {"SCAN", "SERVICE_BUILD_COMPLETED"};  // by events, or later
  int next = 0;
  std::string kind;
  char way = '-';
  messages >> next;
  for (int event = -1; event < 80; ++event) {
    SCOPED_TRACE(event);
    const bool defined = event == next;
    if (defined) messages >> kind >> way >> next;
    const bool alerts = event == 28 || event == 29;
    const bool timed = event == 39 || event == 40;
    void* const data = timed ? static_cast<void*>(&time) : alerts ? &alert : nullptr;
    const std::string expected = "{" + (timed ? times : "") + R"("cbtype":")" + kind +
                                 R"(","class":"CALLBACK")" +
                                 (alerts       ? R"(,"priority":255,"text":"Hi"})"
                                  : event == 0 ? R"(,"source_id":"7,12,400"})"
                                               : "}");
    if (defined) known[kind] = protocol::typesOf(json(expected));
    if (defined && way == 'f') raised.insert(kind);
    for (const auto take : {_ATSC_Service_CB_To_TV, ATSC_Service_event_cb}) {
      fake::reset();
      fake::state()->alertPriority = 255;
      fake::setUpdatedSources({7, 12, 400});
      take(event, data);
      const bool pushes = take == _ATSC_Service_CB_To_TV ? defined : defined && way == 'f';
      EXPECT_EQ(pushes, !fake::logLine("push command").empty());
      EXPECT_EQ(event == 0, fake::logged("Debug", "EPG update at src id 400\n"));
      const Lines got = fake::waitForSent(pushes ? 1 : 0);
      EXPECT_EQ(pushes ? Lines{expected} : Lines{}, got.empty() ? got : Lines{plain(got[0])});
      if (take == _ATSC_Service_CB_To_TV) {
        EXPECT_NE(defined, fake::logged("Error", "event(" + std::to_string(event) +
                                                     ") callback is not defined"));
      }
    }
    EXPECT_EQ(defined && way == 'd'
                  ? "OSAL_timer_enable(" + std::to_string(service_update_tmr_id) + ",null,2000)"
                  : "",
              joined(callsOf({"OSAL_timer_enable"})));
    std::string name;
    if (event >= 0) names >> name;
    if (event == 4) name += ' ';
    const std::string number = " AFW_event_t = " + std::to_string(event);
    const Lines info = logsOf("Info");
    EXPECT_EQ(event < 0     ? number + " !!! not Match the default NAME array \n"
              : event <= 70 ? " @@@@@" + number + " (" + name + ")\n"
                            : "",
              info.empty() ? "" : info[0]);
  }
  ATSC_Service_event_cb(INT32_MIN, nullptr);
  ATSC_Service_event_cb(INT32_MAX, nullptr);
  EXPECT_EQ(2u, messageOf(AFW_TIME_CHANGE, nullptr).size());
  fake::setResult("AIFW_get_EAS_priority", 1);
  messageOf(AFW_EAS_START_BLOCKING, nullptr);
  EXPECT_NE("", fake::logLine("[_ATSC_Service_CB_To_TV()][atsc_service_callback.cpp:"));
  EXPECT_NE("", fake::logLine("Failed to call AIFW_get_EAS_priority() -> 0x00000001: void _ATSC"));

  // The document has all kinds with their keys.
  fake::reset();
  ask("SCAN start");
  AICS_scan_progress progress{};
  fake::scanCallback()(&progress, AICS_STATE_PROGRESS);
  known["SCAN"] = protocol::typesOf(json(fake::waitForSent(1).at(0)));
  const protocol::Document document = protocol::readDocument(PROTOCOL_DOCUMENT);
  for (const auto& [described, row] : protocol::callbackRows(document)) {
    const bool never = protocol::cell(*row, "PC") == "never";
    EXPECT_EQ(raised.count(described) == 0, never) << described;
    EXPECT_EQ(never ? Types{} : known[described], protocol::keys(protocol::cell(*row, "keys")));
    EXPECT_EQ(1u, known.erase(described)) << described;
  }
  EXPECT_TRUE(known.empty());
}

TEST_F(EventTest, UpdatedSourcesAndAlertTexts) {
  fake::setUpdatedSources(std::vector<uint32_t>(AIFW_MAX_UPDATED_SOURCES, 4294967295u));
  fake::state()->update.count = 4294967295u;
  const std::string ids = messageOf(AFW_EPG_UPDATE, nullptr)["source_id"].asString();
  EXPECT_EQ(1000u * 11 - 1, ids.size());
  EXPECT_EQ("4294967295,4294967295", ids.substr(ids.size() - 21));

  // JSON keeps surrogates and bytes of other encodings.
  uint8_t wide[] = {0xD8, 0x3D, 0xDE, 0, 0x20, 0xAC, 0, 0, 0, 'A'};
  uint8_t single[] = {0xE9, 0x7F, '"', '\\', 1};
  const std::pair<multiple_lang_t, const char*> alerts[] = {
      {{wide, sizeof wide, AI_TEXT_UTF16BE}, "\xED\xA0\xBD\xED\xB8\x80\xE2\x82\xAC"},
      {{single, sizeof single, 0}, "\xE9\x7F\"\\\x01"},
      {{nullptr, 100, -1}, ""}};
  for (auto [text, expected] : alerts) {
    EXPECT_EQ(expected, messageOf(AFW_EAS_START_BLOCKING, &text)["text"].asString());
  }
}

TEST_F(EventTest, ServiceChangesAreAnnouncedOnceAndOnlyWhenTheTableChanged) {
  fake::Service service = fake::service(7, 1, 57000000, "News", AI_INPUT_CABLE);
  fake::setServices(AI_INPUT_CABLE, {service});
  fake::setCurrent(service, AI_INPUT_CABLE);
  Lines told;  // each message, with the names in the table
  fake::onSend([&](const std::string& text) {
    told.push_back(kindOf(text) + " " + joined(rows("SELECT name FROM channel_data_c")));
  });
  const auto change = [] {
    for (const auto event : {AFW_SERVICE_ADDED, AFW_SERVICE_DELETED, AFW_SERVICE_BUILD_COMPLETED}) {
      ATSC_Service_event_cb(event, nullptr);
    }
  };
  ATSC_Service_db_init();  // rebuilds the list
  fake::waitForSent(1);
  service.name = fake::utf16("Sports");
  fake::setServices(AI_INPUT_CABLE, {service});
  change();
  EXPECT_EQ(1u, fake::sent().size());
  ASSERT_TRUE(fake::fireTimer());
  fake::waitForSent(2);
  change();
  ASSERT_TRUE(fake::fireTimer());
  ATSC_Service_db_init();  // nothing to rebuild
  ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
  fake::waitForSent(3);
  EXPECT_THAT(told, ElementsAre("SERVICE_BUILD_COMPLETED News", "SERVICE_BUILD_COMPLETED Sports",
                                "VIEWING_DELAY Sports"));
}

// A TV application that does not answer only delays the messages of one queue, and never a thread
// that raises events.
TEST_F(EventTest, BlockedTVApplicationDelaysOnlyItsMessages) {
  std::atomic<bool> blocked{false}, open{false};
  const auto block = [&](int events) {
    fake::reset();
    blocked = open = false;
    fake::onSend([&](const std::string&) {
      blocked = true;
      while (!open) std::this_thread::yield();
    });
    ATSC_Service_event_cb(AFW_PARENTAL_BLOCKED, nullptr);
    while (!blocked) std::this_thread::yield();
    for (int i = 0; i < events; ++i) {
      ATSC_Service_event_cb(i % 2 == 0 ? AFW_EAS_STOP : AFW_VIEWING_DELAY, nullptr);
    }
    EXPECT_EQ(Lines{}, fake::sent());
    open = true;
    return joined(logsOf("Warn"));
  };
  // Told at the first message over 1000, each time the length has doubled, and again after the
  // length has halved.
  const std::string many = "ATSC_Service_cb: 1001 messages wait for the TV application";
  EXPECT_EQ(many + " ATSC_Service_cb: 2003 messages wait for the TV application", block(2500));
  const Lines sent = fake::waitForSent(2501);
  ASSERT_EQ(2501u, sent.size());
  for (size_t i = 1; i < sent.size(); ++i) {
    ASSERT_EQ(i % 2 == 1 ? "EASSTOP" : "VIEWING_DELAY", kindOf(sent[i]));
  }
  EXPECT_EQ(many, block(1001));
  EXPECT_EQ(1002u, fake::waitForSent(1002).size());
}

// Messages that waited when the guide was written are sent without writing it again, as long as
// that succeeded and the input is still the same.
TEST_F(EventTest, OneRewriteServesTheMessagesThatWaited) {
  const auto rewrites = [](const char* database, bool otherInput) {
    setenv("ATSC_EVENT_DB", database, 1);
    fake::reset();
    std::atomic<int> rewrites{0};
    std::atomic<bool> open{false};
    fake::onCall([&](const std::string& call) {
      if (call.rfind("AISRV_get_total_services", 0) != 0) return;
      ++rewrites;
      while (!open) std::this_thread::yield();
    });
    fake::onSend([&](const std::string& text) {
      if (otherInput && fake::sent().size() == 2)
        fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), AI_INPUT_CABLE);
      EXPECT_EQ(fake::sent().size() < 3 ? "EPG_UPDATE" : "EPG_COMPLETE", kindOf(text));
    });
    const auto raise = [](AFW_event_t event, int times) {
      for (int i = 0; i < times; ++i) ATSC_Service_event_cb(event, nullptr);
    };
    raise(AFW_EPG_UPDATE, 1);
    while (rewrites == 0) std::this_thread::yield();
    raise(AFW_EPG_UPDATE, 2);  // come too late for the rewrite that runs
    raise(AFW_EPG_COMPLETE, 3);
    open = true;
    EXPECT_EQ(6u, fake::waitForSent(6).size());
    fake::onCall(nullptr);
    return rewrites.load();
  };
  const std::string guide = folder_ / "events.db";
  EXPECT_EQ(2, rewrites(guide.c_str(), false));
  EXPECT_EQ(3, rewrites(guide.c_str(), true));
  EXPECT_EQ(6, rewrites("/nonexistent/events.db", false));
}

using Fields = std::vector<uint32_t>;

// Returns the record for a customization file.
Fields init() {
  ATSCCustomizedParameter record{9, 9, 9, 9, 9};
  ATSC_Service_init(&record);
  return {record.block_play_after_scan, record.tuner_lock_wait_in_ms,
          record.tuner_cable_vsb_wait_in_ms, record.DBB_wait_time_in_ms, record.customized_flow};
}

TEST_F(LibraryTest, CustomizationFile) {
  testing::internal::CaptureStdout();
  ATSC_Service_init(nullptr);  // starts only the callbacks
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  EXPECT_THAT(fake::calls(), ElementsAre("OSAL_timer_create(DB_SRV_TIMER,2)"));
  ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
  EXPECT_EQ(1u, fake::waitForSent(1).size());

  const std::string file = folder_ / "custom.json";
  setenv("ATSC_CUSTOM_FILE", file.c_str(), 1);
  EXPECT_EQ(Fields(5), init()) << "no file";
  const std::pair<const char*, Fields> cases[] = {
      {R"({"block_play_after_scan":"yes","tuner_lock_wait_in_ms":-1,"DBB_wait_time_in_ms":{},
           "tuner_cable_vsb_wait_in_ms":4294967296,"customized_flow":7})",
       {0, 0, 0, 0, 7}},
      {R"({"block_play_after_scan":false,"tuner_lock_wait_in_ms":null})", Fields(5)},
      {"[1]", Fields(5)},
      {R"({"block_play_after_scan":true,"tuner_lock_wait_in_ms":1,"tuner_cable_vsb_wait_in_ms":2,
           "DBB_wait_time_in_ms":3,"customized_flow":4294967295,"other":[]} // comment)",
       {1, 1, 2, 3, 4294967295}}};
  std::string printed;
  for (const auto& [json, fields] : cases) {
    writeFile(file, json);
    testing::internal::CaptureStdout();
    EXPECT_EQ(fields, init());
    printed = testing::internal::GetCapturedStdout();
  }
  EXPECT_EQ(
      "[ATSC] customized parameter:\n\tblock_play_after_scan(true)\n\ttuner_lock_wait_in_ms(1)\n"
      "\ttuner_cable_vsb_wait_in_ms(2)\n\tDBB_wait_time_in_ms(3)\n\tcustomize_flow(-1)\n",
      printed);
  EXPECT_EQ(Lines{}, logsOf("Error"));

  // A file beside the executable goes before the default only.
  const std::filesystem::path beside =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "qel.atsc.json";
  writeFile(beside, R"({"customized_flow":3})");
  EXPECT_EQ(cases[3].second, init());
  setenv("ATSC_CUSTOM_FILE", "/system/com.qel.atsc/qel.atsc.json", 1);
  EXPECT_EQ((Fields{0, 0, 0, 0, 3}), init());
  unsetenv("ATSC_CUSTOM_FILE");
  EXPECT_EQ((Fields{0, 0, 0, 0, 3}), init());
  std::filesystem::remove(beside);
}

}  // namespace
