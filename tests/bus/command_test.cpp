#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class CommandTest : public LibraryTest {
 protected:
  // Waits until a middleware call has been seen `count` times.
  static bool waitFor(const std::string& call, size_t count) {
    return eventually([&] { return callsOf({call}).size() >= count; });
  }

  // Returns the times of the function's calls.
  static auto timesOf(const std::string& function) {
    const auto locked = fake::state();
    std::vector<std::chrono::steady_clock::time_point> times;
    for (size_t i = 0; i < locked->calls.size(); ++i) {
      if (locked->calls[i].rfind(function, 0) == 0) times.push_back(locked->callTimes[i]);
    }
    return times;
  }
};

TEST_F(CommandTest, ResultsAndLogLines) {
  const std::string cases = R"(
{ |
{"class":"FW"} | command() is not support
{"class":"FW","command":"init"} | command(init) is not support
{"class":"fw","command":"INIT"} | Class(fw) is not supported
[1,2] | command refused: it is not a JSON object: [1,2]
null | Class() is not supported
{"class":{}} | command refused: Type is not convertible to string: {"class":{}}
{"class":"SCAN","command":"start","mode":"m","freq":-1}
  | command refused: LargestInt out of UInt range:
  {"class":"SCAN","command":"start","mode":"m","freq":-1}
)";
  for (const Lines& row : tableOf(cases, 2)) {
    fake::reset();
    EXPECT_EQ(-1, send(row[0])) << row[0];
    EXPECT_EQ(row[1], joined(logsOf("Error")));
  }
  EXPECT_EQ(0, send(""));
  EXPECT_EQ(0, g_atsc_server_service.jsonCommand(nullptr, nullptr));
}

TEST_F(CommandTest, ReducedLoggingHidesRatingTextsOnly) {
  const std::string encode = command("PC ENCODE", R"("us":5,"secret":1)");
  const std::string other = command("PC NUMDIM");
  for (const bool reduced : {true, false}) {
    ask(reduced ? R"(MSC LOGCTL "para":"REDUCE")" : R"(MSC LOGCTL "para":"RESUME")");
    fake::reset();
    for (const std::string& text : {encode, other}) send(text);
    EXPECT_NE(reduced, fake::logged("Info", "commad:\n" + encode));
    EXPECT_THAT(logsOf("Error"), ElementsAre(EndsWith(reduced ? ": ENCODE" : ": " + encode)));
    EXPECT_TRUE(fake::logged("Info", "commad:\n" + other));
  }
}

TEST_F(CommandTest, ChannelChangeCallsInOrder) {
  fake::setServices(2, {fake::service(7, 1, 177000000, "SEVEN")});
  ASSERT_EQ(1, ATSC_Service_db_UpdateChannel(2));
  fake::reset();
  fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), 2);
  fake::setIndexStatus({2, 5, 1});
  fake::setResult("AIUP_store_all", 8);
  fake::setResult("AIUP_sync", 9);
  EXPECT_EQ(0, ask(R"(FW CHANNELCHANGE "major":7,"minor":1,"input":"VSB")").result);
  ASSERT_TRUE(waitFor("AICN_get_curr_input_source", 1));
  EXPECT_EQ(
      "AICN_get_chan_state() AICN_set_skip_play_srv(0) AIFW_passwd_reqd_non_play_src(1) "
      "AIFW_stop_curr_src() AIPT_get_index_status(*,0) AIPT_get_index_status(*,0) "
      "AIPT_get_index_status(*,0) AIFW_channel_change(5,2,4103,7,1,0,65535,2) "
      "AIFW_pwd_unlocked_no_playing(0) AIFW_passwd_reqd_non_play_src(1) AIUP_store_all() "
      "AIUP_sync() AICN_get_current(*) AICN_get_curr_input_source()",
      joined(callsOf({"AI"})));
  EXPECT_TRUE(eventually([] { return g_atsc_server_service.savedChannelIndex() == 1; }));
  for (const char* store : {"AIUP_store_all", "AIUP_sync"}) {
    EXPECT_THAT(fake::logLine(store),
                HasSubstr("Failed to call " + std::string(store) + "() -> 0x00000000: int "));
  }
  EXPECT_TRUE(fake::logged("Debug", "current channel play state 0\n"));
  EXPECT_TRUE(fake::logged("Debug", "set password_reqd to true"));
  const auto reads = timesOf("AIPT_get_index_status");
  for (const int i : {1, 2}) EXPECT_GE(reads[i] - reads[i - 1], std::chrono::milliseconds(100));
}

TEST_F(CommandTest, ChannelChangeUpIgnoresTheNumberAndAPasswordCanBeWaived) {
  fake::setResult("AIFW_stop_curr_src", 1);  // no wait after a failure
  fake::setResult("AIFW_channel_change", 6);
  ask(R"(FW CHANNELCHANGE "mode":"UP","major":7,"minor":1,"input":"QAM","service_record":12,)"
      R"("password_reqd":false)");
  ASSERT_TRUE(waitFor("AICN_get_current", 1));
  EXPECT_EQ(
      "AIFW_passwd_reqd_non_play_src(0) AIFW_stop_curr_src() "
      "AIFW_channel_change(0,3,4103,0,0,0,12,3) AIFW_pwd_unlocked_no_playing(1) "
      "AIFW_passwd_reqd_non_play_src(1)",
      joined(callsOf({"AIFW_", "AIPT_"})));
  EXPECT_THAT(fake::logLine("AIFW_channel_change"),
              HasSubstr("Failed to call AIFW_channel_change() -> 0x00000006: "));
}

TEST_F(CommandTest, QueuedChangesRunOneAfterTheOtherAndDelayNobody) {
  std::atomic<bool> open{false};
  fake::onCall([&](const std::string& call) {
    while (call.rfind("AIFW_channel_change", 0) == 0 && !open) std::this_thread::yield();
  });
  // A queued text of the wrong type or range is dropped with an Error line; the next one runs.
  for (const char* members :
       {R"("major":7)", R"("major":7,"minor":2)", R"("major":[])", R"("major":65543,"minor":1)",
        R"("major":1,"minor":65536)", R"("mode":"DOWN")"}) {
    EXPECT_EQ(0, send(command("FW CHANNELCHANGE", members)));
  }
  ASSERT_TRUE(waitFor("AIFW_channel_change", 1));
  for (const char* other : {"TIME GETCUR", "SRV GETCUR", "CN SETPREAUD"}) {
    EXPECT_EQ(0, ask(other).result);  // while the change is held
  }
  EXPECT_EQ(1u, callsOf({"AIFW_channel_change"}).size());
  open = true;
  ASSERT_TRUE(waitFor("AICN_get_current", 4));
  EXPECT_EQ(
      "AIFW_channel_change(5,2,4103,7,0,0,65535,2) AIFW_channel_change(5,2,4103,7,2,0,65535,2) "
      "AIFW_channel_change(1,2,4103,0,0,0,65535,2)",
      joined(callsOf({"AIFW_channel_change"})));
  EXPECT_GE(timesOf("AICN_get_chan_state")[1] - timesOf("AICN_get_current")[1],
            std::chrono::milliseconds(100));
  EXPECT_NE("", fake::logLine("command refused: "));
  EXPECT_TRUE(fake::logged("Error", "no channel(65543-1) to change to"));
  EXPECT_TRUE(fake::logged("Error", "no channel(1-65536) to change to"));
}

TEST_F(CommandTest, TheEndOfTheServerEndsTheWaitForThePreviousService) {
  fake::setIndexStatus(std::vector<int>(100000, 2));
  auto server = std::make_unique<ATSCBUS::ATSCServerService>();
  server->jsonCommand(command("FW CHANNELCHANGE").c_str(), nullptr);
  ASSERT_TRUE(waitFor("AIPT_get_index_status", 2));
  server.reset();
  EXPECT_EQ(Lines{}, callsOf({"AIFW_channel_change"}));
}

}  // namespace
