#include <atsc/atsc_service.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <map>

#include "atsc_service_event.h"
#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

Json::Value parsed(const std::string& text) {
  Json::Value message;
  Json::Reader().parse(text, message);
  return message;
}

std::string kindOf(const std::string& text) { return parsed(text)["cbtype"].asString(); }

class EventTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    setenv("ATSC_EVENT_DB", (folder_ / "events.db").c_str(), 1);
    static const bool started = (_ATSC_Service_Task_init(), true);
    (void)started;
  }

  // Returns the message to the TV application for one event.
  static Json::Value messageOf(AFW_event_t event, void* data) {
    const size_t before = fake::sent().size();
    _ATSC_Service_CB_To_TV(event, data);
    const Lines sent = fake::waitForSent(before + 1);
    return sent.size() > before ? parsed(sent[before]) : Json::Value();
  }
};

TEST_F(EventTest, EveryEventHasItsMessageOrNone) {
  const std::map<int, std::string> kinds = {{0, "EPG_UPDATE"},
                                            {1, "EPG_COMPLETE"},
                                            {2, "EVENT_TRANSITION"},
                                            {3, "SERVICE_DELETED"},
                                            {4, "SERVICE_UPDATE"},
                                            {6, "RRT_UPDATE"},
                                            {7, "RRT_DL_UPDATE"},
                                            {11, "PARENTAL_UPDATE"},
                                            {12, "PARENTAL_BLOCKED"},
                                            {13, "PARENTAL_UNBLOCKED"},
                                            {14, "CHANNEL_LOCKED"},
                                            {15, "CHANNEL_UNLOCKED"},
                                            {16, "CHANNEL_PLAY_SUCCESS"},
                                            {23, "DCCM"},
                                            {24, "DCCM"},
                                            {25, "DCCM"},
                                            {26, "DCCM"},
                                            {27, "DCCM"},
                                            {28, "EASSTARTBLOCKING"},
                                            {29, "EASSTARTNONBLOCKING"},
                                            {30, "EASSTOP"},
                                            {38, "EIT_UPDATE"},
                                            {39, "STT_UPDATE_EVENT"},
                                            {40, "TIME_CHANGE"},
                                            {43, "ETT_UPDATE"},
                                            {45, "SERVICE_BUILD_COMPLETED"},
                                            {51, "SERVICE_ADDED"},
                                            {57, "DCCM"},
                                            {69, "VIEWING_DELAY"}};
  AIFW_time_data time{};
  for (int event = -1; event < 80; ++event) {
    const auto kind = kinds.find(event);
    if (kind == kinds.end()) {
      _ATSC_Service_CB_To_TV(event, nullptr);
      EXPECT_TRUE(
          fake::logged("Error", "event(" + std::to_string(event) + ") callback is not defined"));
      continue;
    }
    const Json::Value message = messageOf(event, event == 39 ? &time : nullptr);
    EXPECT_EQ(kind->second, message["cbtype"].asString());
    EXPECT_EQ("CALLBACK", message["class"].asString());
    const size_t keys = event == 0 ? 3 : event == 28 || event == 29 ? 3 : event == 39 ? 7 : 2;
    EXPECT_EQ(keys, message.size()) << event;
  }
  EXPECT_EQ(kinds.size(), fake::sent().size());
}

TEST_F(EventTest, IntakeNamesForwardsAndDefersAsItsTablesSay) {
  const std::vector<int> forwarded = {0,  1,  2,  6,  7,  11, 12, 13, 14, 15, 16, 23,
                                      24, 25, 26, 27, 28, 29, 30, 38, 39, 40, 57, 69};
  AIFW_time_data time{};
  for (int event = 0; event < 76; ++event) {
    fake::reset();
    ATSC_Service_event_cb(event, event == 39 || event == 40 ? &time : nullptr);
    const bool forwards = std::count(forwarded.begin(), forwarded.end(), event) > 0;
    const bool defers = event == 3 || event == 45 || event == 51;
    EXPECT_EQ(forwards ? 1u : 0u, fake::waitForSent(forwards ? 1 : 0).size()) << event;
    EXPECT_EQ(
        defers ? Lines{"OSAL_timer_enable(" + std::to_string(service_update_tmr_id) + ",null,2000)"}
               : Lines{},
        callsOf({"OSAL_timer_enable"}))
        << event;
    EXPECT_EQ(event <= 70, !fake::logLine(" @@@@@ AFW_event_t = ").empty()) << event;
  }
  ATSC_Service_event_cb(4, nullptr);
  EXPECT_TRUE(fake::logged("Info", " @@@@@ AFW_event_t = 4 (SERVICE_UPDATE_EVENT )\n"));
  ATSC_Service_event_cb(60, nullptr);
  EXPECT_TRUE(fake::logged("Info", " @@@@@ AFW_event_t = 60 (CC_PUD_AVALIBILITY_EVENT)\n"));
  ATSC_Service_event_cb(70, nullptr);
  EXPECT_TRUE(fake::logged("Info", " @@@@@ AFW_event_t = 70 (INVALID_EVENT)\n"));
  for (const int event : {INT32_MIN, -1}) {
    ATSC_Service_event_cb(event, nullptr);
    EXPECT_TRUE(fake::logged("Info", " AFW_event_t = " + std::to_string(event) +
                                         " !!! not Match the default NAME array \n"));
  }
  ATSC_Service_event_cb(INT32_MAX, nullptr);
  fake::setResult("AIFW_get_EAS_priority", 1);
  ATSC_Service_event_cb(28, nullptr);
  EXPECT_NE("", fake::logLine("[_ATSC_Service_CB_To_TV()][atsc_service_callback.cpp:"));
  EXPECT_NE("", fake::logLine("Failed to call AIFW_get_EAS_priority() -> 0x00000001: void _ATSC"));
}

TEST_F(EventTest, UpdatedSources) {
  fake::setUpdatedSources({7, 12, 400});
  EXPECT_EQ("7,12,400", messageOf(AFW_EPG_UPDATE, nullptr)["source_id"].asString());
  EXPECT_TRUE(fake::logged("Debug", "EPG update at src id 400\n"));
  fake::setUpdatedSources({});
  EXPECT_EQ("", messageOf(AFW_EPG_UPDATE, nullptr)["source_id"].asString());
  fake::setUpdatedSources(std::vector<uint32_t>(AIFW_MAX_UPDATED_SOURCES, 4294967295u));
  fake::claimUpdatedSources(4294967295u);
  const std::string ids = messageOf(AFW_EPG_UPDATE, nullptr)["source_id"].asString();
  EXPECT_EQ(1000u * 11 - 1, ids.size());
  EXPECT_EQ("4294967295,4294967295", ids.substr(ids.size() - 21));
}

TEST_F(EventTest, Alerts) {
  fake::setAlertPriority(255);
  const struct {
    std::string bytes;
    int32_t encoding;
    const char* text;
  } cases[] = {
      {fake::utf16("Hi"), AI_TEXT_UTF16BE, "Hi"},
      {"Hi", 0, "Hi"},
      {std::string("Hi\0there", 8), 0, "Hi"},
      {std::string("\x20\xAC\0\0\0A", 6), AI_TEXT_UTF16BE, "\xE2\x82\xAC"},
      {"odd", AI_TEXT_UTF16BE, ""},
      {std::string("\xD8\x3D\xDE\0", 4), AI_TEXT_UTF16BE, "\xED\xA0\xBD\xED\xB8\x80"},
      {"\xE9\x7F\"\\\x01", 0, "\xE9\x7F\"\\\x01"},
      {"", AI_TEXT_UTF16BE, ""},
  };
  for (const auto& expected : cases) {
    std::string bytes = expected.bytes;
    multiple_lang_t text{reinterpret_cast<uint8_t*>(&bytes[0]), static_cast<uint16_t>(bytes.size()),
                         expected.encoding};
    const Json::Value message = messageOf(AFW_EAS_START_BLOCKING, &text);
    EXPECT_EQ(expected.text, message["text"].asString());
    EXPECT_EQ(255, message["priority"].asInt());
  }
  multiple_lang_t none{nullptr, 100, -1};
  EXPECT_EQ("", messageOf(AFW_EAS_START_NON_BLOCKING, &none)["text"].asString());
}

TEST_F(EventTest, Times) {
  AIFW_time_data time{};
  time.system_time = 4294967295u;
  time.gps_utc_offset = 18;
  time.daylight_savings = 0xCB;
  time.daylight_hour = 2;
  for (const AFW_event_t event : {AFW_STT_UPDATE, AFW_TIME_CHANGE}) {
    const Json::Value message = messageOf(event, &time);
    EXPECT_EQ(4294967295u, message["SystemTime"].asUInt());
    EXPECT_EQ(18, message["GPS_UTC_Offset"].asInt());
    EXPECT_EQ(1, message["DS_Status"].asInt());
    EXPECT_EQ(5, message["DS_Day_Of_Month"].asInt());
    EXPECT_EQ(2, message["DS_Hour"].asInt());
  }
}

TEST_F(EventTest, ServiceChangesAreAnnouncedOnceAndOnlyWhenTheTableChanged) {
  _ATSC_Service_db_createChannelDB();
  const fake::Service service = fake::service(7, 1, 57000000, "News", AI_INPUT_CABLE);
  fake::setServices(AI_INPUT_CABLE, {service});
  fake::setCurrent(service, AI_INPUT_CABLE);
  for (const AFW_event_t event :
       {AFW_SERVICE_ADDED, AFW_SERVICE_DELETED, AFW_SERVICE_BUILD_COMPLETED}) {
    ATSC_Service_event_cb(event, nullptr);
  }
  EXPECT_THAT(fake::sent(), IsEmpty());
  ASSERT_TRUE(fake::fireTimer());
  EXPECT_EQ("SERVICE_BUILD_COMPLETED", kindOf(fake::waitForSent(1).at(0)));
  EXPECT_THAT(rows("SELECT name FROM channel_data_c"), ElementsAre("News"));

  ATSC_Service_event_cb(AFW_SERVICE_BUILD_COMPLETED, nullptr);
  ASSERT_TRUE(fake::fireTimer());
  ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);  // the next message is this one
  EXPECT_EQ("VIEWING_DELAY", kindOf(fake::waitForSent(2).at(1)));
}

TEST_F(EventTest, OnlyARebuiltChannelListIsAnnouncedAtStart) {
  fake::setServices(AI_INPUT_TERRESTRIAL, {fake::service(7, 1, 177000000, "News")});
  Lines names;
  fake::onSend([&](const std::string&) { names = rows("SELECT name FROM channel_data_t"); });
  ATSC_Service_db_init();
  EXPECT_EQ("SERVICE_BUILD_COMPLETED", kindOf(fake::waitForSent(1).at(0)));
  EXPECT_THAT(names, ElementsAre("News"));
  ATSC_Service_db_init();  // nothing to rebuild
  ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
  EXPECT_EQ("VIEWING_DELAY", kindOf(fake::waitForSent(2).at(1)));
}

// A TV application that does not answer only delays the messages of one queue, and never a thread
// that raises events.
TEST_F(EventTest, BlockedTVApplicationDelaysOnlyItsMessages) {
  constexpr int kEvents = 2500;
  std::promise<void> release;
  std::shared_future<void> released = release.get_future().share();
  std::atomic<bool> blocked{false};
  fake::onSend([&](const std::string&) {
    blocked = true;
    released.wait();
  });
  ATSC_Service_event_cb(AFW_PARENTAL_BLOCKED, nullptr);
  while (!blocked) std::this_thread::yield();
  for (int i = 0; i < kEvents; ++i) {
    ATSC_Service_event_cb(i % 2 == 0 ? AFW_EAS_STOP : AFW_VIEWING_DELAY, nullptr);
  }
  EXPECT_THAT(fake::sent(), IsEmpty());
  EXPECT_TRUE(fake::logged("Warn", "ATSC_Service_cb: 1001 messages wait for the TV application"));
  EXPECT_TRUE(fake::logged("Warn", "ATSC_Service_cb: 2003 messages wait for the TV application"));
  release.set_value();
  const Lines sent = fake::waitForSent(kEvents + 1);
  ASSERT_EQ(kEvents + 1u, sent.size());
  for (int i = 0; i < kEvents; ++i) {
    ASSERT_EQ(i % 2 == 0 ? "EASSTOP" : "VIEWING_DELAY", kindOf(sent[static_cast<size_t>(i) + 1]));
  }
}

class InitTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    file_ = (folder_ / "custom.json").string();
    setenv("ATSC_CUSTOM_FILE", file_.c_str(), 1);
  }

  void TearDown() override {
    unsetenv("ATSC_CUSTOM_FILE");
    LibraryTest::TearDown();
  }

  // Returns the start-up output for a customization file.
  std::string init(const std::string& json) {
    writeFile(file_, json);
    return init();
  }

  static std::string init() {
    ATSCCustomizedParameter record{9, 9, 9, 9, 9};
    ::testing::internal::CaptureStdout();
    fake::reset();
    ATSC_Service_init(&record);
    for (const std::string& line : fake::logs()) EXPECT_NE(0u, line.find("Error")) << line;
    const std::string printed = ::testing::internal::GetCapturedStdout();
    const std::string fields = std::to_string(record.block_play_after_scan) + "," +
                               std::to_string(record.tuner_lock_wait_in_ms) + "," +
                               std::to_string(record.tuner_cable_vsb_wait_in_ms) + "," +
                               std::to_string(record.DBB_wait_time_in_ms) + "," +
                               std::to_string(record.customized_flow);
    EXPECT_EQ("[ATSC] customized parameter:\n\tblock_play_after_scan(" +
                  std::string(record.block_play_after_scan != 0 ? "true" : "false") +
                  ")\n\ttuner_lock_wait_in_ms(" + number(record.tuner_lock_wait_in_ms) +
                  ")\n\ttuner_cable_vsb_wait_in_ms(" + number(record.tuner_cable_vsb_wait_in_ms) +
                  ")\n\tDBB_wait_time_in_ms(" + number(record.DBB_wait_time_in_ms) +
                  ")\n\tcustomize_flow(" + number(record.customized_flow) + ")\n",
              printed);
    return fields;
  }

  static std::string number(uint32_t value) { return std::to_string(static_cast<int>(value)); }

  std::string file_;
};

TEST_F(InitTest, CustomizationFile) {
  const struct {
    const char* json;
    const char* fields;
  } cases[] = {
      {R"({"block_play_after_scan":true,"tuner_lock_wait_in_ms":1,"tuner_cable_vsb_wait_in_ms":2,
           "DBB_wait_time_in_ms":3,"customized_flow":4294967295,"other":[]} // comment)",
       "1,1,2,3,4294967295"},
      {R"({"DBB_wait_time_in_ms":5000})", "0,0,0,5000,0"},
      {R"({"block_play_after_scan":"yes","tuner_lock_wait_in_ms":-1,
           "tuner_cable_vsb_wait_in_ms":4294967296,"DBB_wait_time_in_ms":{},"customized_flow":7})",
       "0,0,0,0,7"},
      {R"({"block_play_after_scan":false,"tuner_lock_wait_in_ms":null})", "0,0,0,0,0"},
      {"[1]", "0,0,0,0,0"},
      {"{\"DBB_wait_time_in_ms\":5000", "0,0,0,0,0"},
      {"", "0,0,0,0,0"},
  };
  for (const auto& expected : cases) EXPECT_EQ(expected.fields, init(expected.json));
  std::filesystem::remove(file_);
  EXPECT_EQ("0,0,0,0,0", init());
  std::filesystem::create_directory(file_);
  EXPECT_EQ("0,0,0,0,0", init());
}

TEST_F(InitTest, FileBesideTheExecutableGoesBeforeTheDefaultOnly) {
  const std::filesystem::path beside =
      std::filesystem::read_symlink("/proc/self/exe").parent_path() / "qel.atsc.json";
  writeFile(beside, R"({"customized_flow":3})");
  EXPECT_EQ("0,0,0,0,4", init(R"({"customized_flow":4})"));
  setenv("ATSC_CUSTOM_FILE", "/system/com.qel.atsc/qel.atsc.json", 1);
  EXPECT_EQ("0,0,0,0,3", init());
  unsetenv("ATSC_CUSTOM_FILE");
  EXPECT_EQ("0,0,0,0,3", init());
  std::filesystem::remove(beside);
}

TEST_F(InitTest, WithoutARecordOnlyThePipelineStarts) {
  ::testing::internal::CaptureStdout();
  ATSC_Service_init(nullptr);
  EXPECT_EQ("", ::testing::internal::GetCapturedStdout());
  EXPECT_THAT(fake::calls(), ElementsAre("OSAL_timer_create(DB_SRV_TIMER,2)"));
  ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
  EXPECT_EQ(1u, fake::waitForSent(1).size());
}

}  // namespace
