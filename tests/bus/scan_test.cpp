#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;

class ScanTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    _ATSC_Service_db_createChannelDB();
    fake::reset();
  }

  static int start(const std::string& members) {
    return send("{\"class\":\"SCAN\",\"command\":\"start\"" + members + "}");
  }

  static Json::Value lastMessage() {
    Json::Value message;
    if (fake::sent().empty()) return message;
    Json::Reader().parse(fake::sent().back(), message);
    return message;
  }
};

TEST_F(ScanTest, RequestsOfTheMiddleware) {
  const struct {
    const char* members;
    int result;
    const char* call;  // "" when no call is expected
  } cases[] = {
      {"", 0, "AICS_start_search(1,2,0,2)"},
      {",\"freq\":14", 0, "AICS_start_search(1,2,0,2)"},
      {",\"src\":\"QAM\"", 0, "AICS_start_search(1,2,0,3)"},
      {",\"mode\":\"manual\",\"freq\":14", 0, "AICS_start_search(0,2,473000000,2)"},
      {",\"mode\":\"manual\",\"freq\":69", 0, "AICS_start_search(0,2,803000000,2)"},
      {",\"mode\":\"manual\",\"freq\":5", 0, "AICS_start_search(0,2,79000000,2)"},
      {",\"mode\":\"manual\",\"freq\":1,\"src\":\"QAM\"", 0, "AICS_start_search(0,2,75000000,3)"},
      {",\"mode\":\"manual\",\"freq\":135,\"src\":\"QAM\"", 0,
       "AICS_start_search(0,2,861000000,3)"},
      {",\"mode\":\"manual\",\"freq\":95,\"src\":\"QAM\"", 0, "AICS_start_search(0,2,93000000,3)"},
      {",\"mode\":\"manual\",\"freq\":615000000", 0, "AICS_start_search(0,2,615000000,2)"},
      {",\"mode\":\"manual\",\"freq\":256", 0, "AICS_start_search(0,2,256,2)"},
      {",\"mode\":\"manual\"", -1, ""},
      {",\"mode\":\"manual\",\"freq\":1", -1, ""},
      {",\"mode\":\"manual\",\"freq\":70", -1, ""},
      {",\"mode\":\"manual\",\"freq\":255", -1, ""},
      {",\"mode\":\"manual\",\"freq\":0,\"src\":\"QAM\"", -1, ""},
      {",\"mode\":\"manual\",\"freq\":136,\"src\":\"QAM\"", -1, ""},
  };
  for (const auto& expected : cases) {
    fake::reset();
    EXPECT_EQ(expected.result, start(expected.members)) << expected.members;
    EXPECT_EQ(
        *expected.call != '\0' ? (Lines{"AICN_set_skip_play_srv(1)", expected.call}) : Lines{},
        fake::calls());
  }
  fake::setResult("AICS_start_search", 3);
  EXPECT_EQ(-1, start(""));
}

TEST_F(ScanTest, ProgressIsSentAtOnceWithAllItsNumbers) {
  start("");
  AICS_scan_progress progress{50, 14, 4000000000, 473000000, 470000000, -3, 1, 2, 3, 64};
  const std::pair<int, const char*> states[] = {{0, "START"},  {1, "PROGRESS"}, {3, "PAUSE"},
                                                {4, "RESUME"}, {7, "ERROR"},    {-1, "ERROR"}};
  for (const auto& [state, name] : states) {
    fake::scanCallback()(&progress, state);
    EXPECT_EQ(name, lastMessage()["msg"].asString());
  }
  const Json::Value message = lastMessage();
  EXPECT_EQ("CALLBACK", message["class"].asString());
  EXPECT_EQ("SCAN", message["cbtype"].asString());
  EXPECT_EQ(50, message["progress"].asInt());
  EXPECT_EQ(14, message["chn_num"].asInt());
  EXPECT_EQ(4000000000u, message["ser_found"].asUInt());
  EXPECT_EQ(473000000u, message["cur_freq"].asUInt());
  EXPECT_EQ(470000000u, message["lock_freq"].asUInt());
  EXPECT_EQ(-3, message["type"].asInt());
  EXPECT_EQ(1u, message["tv_num"].asUInt());
  EXPECT_EQ(2u, message["radio_num"].asUInt());
  EXPECT_EQ(3u, message["data_num"].asUInt());
  EXPECT_EQ(12u, message.size());
  EXPECT_THAT(callsOf({"AISRV", "AIFW"}), ElementsAre());  // only messages so far
}

TEST_F(ScanTest, TheEndSynchronisesThenPlaysThenTells) {
  const struct {
    const char* members;
    int32_t band;
    const char* total;
    const char* play;
  } cases[] = {
      {"", 64, "AISRV_get_total_services(2,4103,*,0,*)", "AIFW_play_first_service(2,0)"},
      {",\"src\":\"QAM\"", 1024, "AISRV_get_total_services(3,4103,*,0,*)",
       "AIFW_play_first_service(3,0)"},
      {",\"mode\":\"manual\",\"freq\":14", 64, "AISRV_get_total_services(2,4103,*,0,*)",
       "AIFW_play_first_service(2,473000000)"},
      {"", 5, "AISRV_get_total_services(2,4103,*,0,*)", "AIFW_play_first_service(2,0)"},
  };
  for (const auto& expected : cases) {
    fake::reset();
    start(expected.members);
    size_t sentBeforePlay = 99;
    fake::onCall([&](const std::string& call) {
      if (call.rfind("AIFW_play", 0) == 0) sentBeforePlay = fake::sent().size();
    });
    AICS_scan_progress progress{};
    progress.current_frequency = 473000000;
    progress.band_mask = expected.band;
    fake::scanCallback()(&progress, 2);
    EXPECT_THAT(callsOf({"AISRV_get_total", "AISRV_sync", "AIFW"}),
                ElementsAre(expected.total, "AISRV_sync_to_database()", expected.play));
    EXPECT_EQ(0u, sentBeforePlay);
    EXPECT_EQ("OVER", lastMessage()["msg"].asString());
  }
}

TEST_F(ScanTest, StopSynchronisesBothTablesWhateverTheMiddlewareSays) {
  fake::setTunedFrequency(479000000);
  fake::setCurrent(fake::service(7, 1, 1, ""), 3);
  start("");
  const Lines tables = {"AISRV_get_total_services(2", "AISRV_get_total_services(3"};
  EXPECT_EQ(0, send("{\"class\":\"SCAN\",\"command\":\"stop\"}"));
  EXPECT_THAT(callsOf({"AICN_get", "AICS_stop", "AIIN", "AIFE", "AIFW", "AISRV_get_total"}),
              ElementsAre("AICN_get_curr_input_source()", "AICS_stop_scan()",
                          "AIFW_play_first_service(3,0)", "AISRV_get_total_services(2,4103,*,0,*)",
                          "AISRV_get_total_services(3,4103,*,0,*)"));
  fake::reset();
  fake::setTunedFrequency(479000000);
  fake::setResult("AICS_stop_scan", 1);
  start(",\"mode\":\"manual\",\"freq\":14");
  EXPECT_EQ(-1, send("{\"class\":\"SCAN\",\"command\":\"stop\"}"));
  EXPECT_THAT(
      callsOf({"AICS_stop", "AIIN", "AIFE", "AIFW", "AISRV_get_total"}),
      ElementsAre("AICS_stop_scan()", "AIIN_get_input_details(2,0,*,0)",
                  "AIFE_get_tuning_details(1,524289,*)", "AIFW_play_first_service(2,479000000)",
                  "AISRV_get_total_services(2,4103,*,0,*)",
                  "AISRV_get_total_services(3,4103,*,0,*)"));
}

}  // namespace
