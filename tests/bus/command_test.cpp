#include <gmock/gmock.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "fixture.h"
#include "wait.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class CommandTest : public LibraryTest {
 protected:
  // Waits until a middleware call has been seen `count` times.
  static bool waitFor(const std::string& call, size_t count) {
    return eventually([&] { return callsOf({call}).size() >= count; });
  }
};

TEST_F(CommandTest, ResultsAndLogLines) {
  const struct {
    const char* command;
    int result;
    const char* error;  // "" for none
  } cases[] = {
      {"", 0, ""},
      {"{", -1, ""},
      {"{\"class\":\"FW\"}", -1, "command() is not support"},
      {"{\"class\":\"FW\",\"command\":\"init\"}", -1, "command(init) is not support"},
      {"{\"class\":\"XYZ\",\"command\":\"INIT\"}", -1, "Class(XYZ) is not supported"},
      {"{}", -1, "Class() is not supported"},
      {"{\"class\":\"fw\",\"command\":\"INIT\"}", -1, "Class(fw) is not supported"},
      {"{\"class\":\"FW\",\"command\":\"INIT\"}", 0, ""},
      {"{\"class\":\"MSC\",\"command\":\"LOGCTL\",\"para\":\"?\"}", 0, ""},
      // Shapes and types that the JSON library refuses.
      {"[1,2]", -1, "command refused: it is not a JSON object: [1,2]"},
      {"17", -1, "command refused: it is not a JSON object: 17"},
      {"null", -1, "Class() is not supported"},
      {"{\"class\":{}}", -1, "command refused: Type is not convertible to string: {\"class\":{}}"},
      {"{\"class\":\"FW\",\"command\":[]}", -1,
       "command refused: Type is not convertible to string: {\"class\":\"FW\",\"command\":[]}"},
      {"{\"class\":\"SCAN\",\"command\":\"start\",\"mode\":\"m\",\"freq\":-1}", -1,
       "command refused: LargestInt out of UInt range: "
       "{\"class\":\"SCAN\",\"command\":\"start\",\"mode\":\"m\",\"freq\":-1}"},
  };
  for (const auto& expected : cases) {
    fake::reset();
    EXPECT_EQ(expected.result, send(expected.command)) << expected.command;
    Lines errors;
    for (const std::string& line : fake::logs()) {
      if (line.rfind("Error ", 0) == 0) errors.push_back(line.substr(6));
    }
    EXPECT_EQ(*expected.error != '\0' ? Lines{expected.error} : Lines{}, errors);
  }
  EXPECT_EQ(0, g_atsc_server_service.jsonCommand(nullptr, nullptr));
}

TEST_F(CommandTest, InitRegistersForEventsAndReportsTheMiddlewaresFailure) {
  EXPECT_EQ(0, send("{\"class\":\"FW\",\"command\":\"INIT\"}"));
  EXPECT_EQ(&ATSC_Service_event_cb, fake::eventCallback());
  fake::setResult("AIFW_register_frmwrk_app_cb", 5);
  EXPECT_EQ(0, send("{\"class\":\"FW\",\"command\":\"INIT\"}"));
  EXPECT_TRUE(fake::logged("Error", "AIFW_register_frmwrk_app_cb()\n"));
  fake::setResult("AIFW_init", 7);
  EXPECT_EQ(-1, send("{\"class\":\"FW\",\"command\":\"INIT\"}"));
  EXPECT_THAT(callsOf({"AIFW_"}), ElementsAre("AIFW_init(0)", "AIFW_register_frmwrk_app_cb(*)",
                                              "AIFW_init(0)", "AIFW_register_frmwrk_app_cb(*)",
                                              "AIFW_init(0)", "AIFW_register_frmwrk_app_cb(*)"));
  EXPECT_THAT(
      fake::logLine("Failed to call"),
      HasSubstr("Failed to call AIFW_init() -> 0x00000007: int ATSCBUS::ATSCServerService"));
}

TEST_F(CommandTest, ReducedLoggingHidesRatingTextsOnly) {
  const std::string encode = "{\"class\":\"PC\",\"command\":\"ENCODE\"}";
  const std::string other = "{\"class\":\"PC\",\"command\":\"NUMDIM\"}";
  send("{\"class\":\"MSC\",\"command\":\"LOGCTL\",\"para\":\"REDUCE\"}");
  fake::reset();
  send(encode);
  send("{\"class\":\"PC\",\"command\":\"ENCODE\",\"us\":5,\"secret\":1}");
  send(other);
  EXPECT_FALSE(fake::logged("Info", "commad:\n" + encode));
  EXPECT_EQ(std::string::npos, fake::logLine("command refused").find("secret"));
  EXPECT_NE("", fake::logLine("command refused"));
  EXPECT_TRUE(fake::logged("Info", "commad:\n" + other));
  send("{\"class\":\"MSC\",\"command\":\"LOGCTL\",\"para\":\"RESUME\"}");
  send(encode);
  EXPECT_TRUE(fake::logged("Info", "commad:\n" + encode));
}

TEST_F(CommandTest, ChannelChangeCallsInOrder) {
  fake::setServices(2, {fake::service(7, 1, 177000000, "SEVEN")});
  ASSERT_EQ(1, ATSC_Service_db_UpdateChannel(2));
  fake::reset();
  fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), 2);
  fake::setIndexStatus({2, 5, 1});
  fake::setResult("AIUP_store_all", 8);
  fake::setResult("AIUP_sync", 9);
  // Static, because the hook of the last call can run after the test.
  static std::mutex mutex;
  static std::vector<std::chrono::steady_clock::time_point> reads;  // of the index status
  reads.clear();
  fake::onCall([](const std::string& call) {
    std::lock_guard<std::mutex> lock(mutex);
    if (call == "AIPT_get_index_status(*,0)") reads.push_back(std::chrono::steady_clock::now());
  });
  ASSERT_EQ(0, send("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"major\":7,\"minor\":1,"
                    "\"input\":\"VSB\"}"));
  ASSERT_TRUE(waitFor("AICN_get_curr_input_source", 1));
  EXPECT_THAT(
      callsOf({"AI"}),
      ElementsAre(
          "AICN_get_chan_state()", "AICN_set_skip_play_srv(0)", "AIFW_passwd_reqd_non_play_src(1)",
          "AIFW_stop_curr_src()", "AIPT_get_index_status(*,0)", "AIPT_get_index_status(*,0)",
          "AIPT_get_index_status(*,0)", "AIFW_channel_change(5,2,4103,7,1,0,65535,2)",
          "AIFW_pwd_unlocked_no_playing(0)", "AIFW_passwd_reqd_non_play_src(1)", "AIUP_store_all()",
          "AIUP_sync()", "AICN_get_current(*)", "AICN_get_curr_input_source()"));
  EXPECT_TRUE(eventually([] { return g_atsc_server_service.savedChannelIndex() == 1; }));
  for (const char* store : {"AIUP_store_all", "AIUP_sync"}) {
    EXPECT_THAT(fake::logLine(store),
                HasSubstr("Failed to call " + std::string(store) + "() -> 0x00000000: int "));
  }
  EXPECT_TRUE(fake::logged("Debug", "current channel play state 0\n"));
  EXPECT_TRUE(fake::logged("Debug", "set password_reqd to true"));
  EXPECT_GE(reads[1] - reads[0], std::chrono::milliseconds(100));
  EXPECT_GE(reads[2] - reads[1], std::chrono::milliseconds(100));
}

TEST_F(CommandTest, IndexOfTheCurrentChannel) {
  fake::setServices(3, {fake::service(7, 1, 177000000, "SEVEN", 3)});
  ASSERT_EQ(1, ATSC_Service_db_UpdateChannel(3));
  EXPECT_EQ(-1, GetCurrentChannelIdx());
  fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN", 3), 3);
  EXPECT_EQ(1, GetCurrentChannelIdx());
  fake::setCurrent(fake::service(7, 2, 177000000, "OTHER", 3), 3);
  EXPECT_EQ(65535, GetCurrentChannelIdx());
  fake::setResult("AICN_get_current", 1);
  EXPECT_EQ(-1, GetCurrentChannelIdx());
}

TEST_F(CommandTest, ChannelChangeUpIgnoresTheNumberAndAPasswordCanBeWaived) {
  fake::setResult("AIFW_stop_curr_src", 1);  // no wait after a failure
  fake::setResult("AIFW_channel_change", 6);
  send(
      "{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"mode\":\"UP\",\"major\":7,\"minor\":1,"
      "\"input\":\"QAM\",\"service_record\":12,\"password_reqd\":false}");
  ASSERT_TRUE(waitFor("AICN_get_current", 1));
  EXPECT_THAT(callsOf({"AIFW_", "AIPT_"}),
              ElementsAre("AIFW_passwd_reqd_non_play_src(0)", "AIFW_stop_curr_src()",
                          "AIFW_channel_change(0,3,4103,0,0,0,12,3)",
                          "AIFW_pwd_unlocked_no_playing(1)", "AIFW_passwd_reqd_non_play_src(1)"));
  EXPECT_THAT(fake::logLine("AIFW_channel_change"),
              HasSubstr("Failed to call AIFW_channel_change() -> 0x00000006: "));
}

TEST_F(CommandTest, QueuedChangesRunOneAfterTheOtherAndDelayNobody) {
  std::mutex mutex;
  std::condition_variable released, ended;
  bool open = false;
  std::vector<std::chrono::steady_clock::time_point> ends;
  std::vector<std::chrono::steady_clock::time_point> starts;
  fake::onCall([&](const std::string& call) {
    std::unique_lock<std::mutex> lock(mutex);
    if (call == "AICN_get_chan_state()") starts.push_back(std::chrono::steady_clock::now());
    if (open && call == "AICN_get_current(*)") {
      ends.push_back(std::chrono::steady_clock::now());
      ended.notify_all();
    }
    if (call.rfind("AIFW_channel_change", 0) == 0) released.wait(lock, [&] { return open; });
  });
  for (const char* minor : {"1", "2"}) {
    EXPECT_EQ(0, send(std::string("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"major\":7,"
                                  "\"minor\":") +
                      minor + "}"));
  }
  // A queued text of the wrong type or range is dropped with an Error line; the next one runs.
  send("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"major\":[]}");
  send("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"major\":65543,\"minor\":1}");
  send("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\",\"mode\":\"DOWN\"}");
  ASSERT_TRUE(waitFor("AIFW_channel_change", 1));
  for (const char* other : {"\"TIME\",\"command\":\"GETCUR\"", "\"SRV\",\"command\":\"GETCUR\"",
                            "\"CN\",\"command\":\"SETPREAUD\""}) {
    EXPECT_EQ(0, send(std::string("{\"class\":") + other + "}"));  // while the change is held
  }
  EXPECT_EQ(1u, callsOf({"AIFW_channel_change"}).size());
  {
    std::lock_guard<std::mutex> lock(mutex);
    open = true;
  }
  released.notify_all();
  {
    std::unique_lock<std::mutex> lock(mutex);
    ASSERT_TRUE(ended.wait_for(lock, std::chrono::seconds(10), [&] { return ends.size() == 3; }));
  }
  EXPECT_THAT(callsOf({"AIFW_channel_change"}),
              ElementsAre("AIFW_channel_change(5,2,4103,7,1,0,65535,2)",
                          "AIFW_channel_change(5,2,4103,7,2,0,65535,2)",
                          "AIFW_channel_change(1,2,4103,0,0,0,65535,2)"));
  std::lock_guard<std::mutex> lock(mutex);
  EXPECT_GE(starts[1] - ends[0], std::chrono::milliseconds(100));
  EXPECT_NE("", fake::logLine("command refused: "));
  EXPECT_TRUE(fake::logged("Error", "no channel(65543-1) to change to"));
}

TEST_F(CommandTest, TheEndOfTheServerEndsTheWaitForThePreviousService) {
  fake::setIndexStatus(std::vector<int>(100000, 2));
  auto server = std::make_unique<ATSCBUS::ATSCServerService>();
  server->jsonCommand("{\"class\":\"FW\",\"command\":\"CHANNELCHANGE\"}", nullptr);
  ASSERT_TRUE(waitFor("AIPT_get_index_status", 2));
  server.reset();
  EXPECT_THAT(callsOf({"AIFW_channel_change"}), ElementsAre());
}

}  // namespace
