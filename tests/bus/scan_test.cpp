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

  static int start(const std::string& members) { return send(command("SCAN start", members)); }
};

TEST_F(ScanTest, RequestsOfTheMiddleware) {
  // The channels of CEA-542: first and last number, frequency of the first in MHz.
  const struct {
    const char* source;
    int first, last, frequency;
  } plans[] = {{"VSB", 2, 4, 57},    {"VSB", 5, 6, 79},   {"VSB", 7, 13, 177},
               {"VSB", 14, 69, 473}, {"QAM", 1, 1, 75},   {"QAM", 2, 4, 57},
               {"QAM", 5, 6, 79},    {"QAM", 7, 13, 177}, {"QAM", 14, 22, 123},
               {"QAM", 23, 94, 219}, {"QAM", 95, 99, 93}, {"QAM", 100, 135, 651}};
  std::map<std::string, std::string> requests = {
      {"", "1,2,0,2"},
      {R"("freq":14)", "1,2,0,2"},
      {R"("src":"QAM")", "1,2,0,3"},
      {R"("mode":"manual","src":"VSB","freq":615000000)", "0,2,615000000,2"},
      {R"("mode":"manual","src":"VSB","freq":256)", "0,2,256,2"},
      {R"("mode":"manual")", ""},
  };
  for (const std::string source : {"VSB", "QAM"}) {
    for (int channel = 0; channel < 256; ++channel) {
      std::string& call = requests[R"("mode":"manual","src":")" + source + R"(","freq":)" +
                                   std::to_string(channel)];
      for (const auto& plan : plans) {
        if (source != plan.source || channel < plan.first || channel > plan.last) continue;
        call = "0,2," + std::to_string(plan.frequency + 6 * (channel - plan.first)) + "000000," +
               (source == "VSB" ? "2" : "3");
      }
    }
  }
  for (const auto& [members, call] : requests) {
    fake::reset();
    EXPECT_EQ(call.empty() ? -1 : 0, start(members)) << members;
    EXPECT_EQ(call.empty() ? "" : "AICN_set_skip_play_srv(1) AICS_start_search(" + call + ")",
              joined(fake::calls()));
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
    EXPECT_EQ(R"({"cbtype":"SCAN","chn_num":14,"class":"CALLBACK","cur_freq":473000000,)"
              R"("data_num":3,"lock_freq":470000000,"msg":")" +
                  std::string(name) +
                  R"(","progress":50,"radio_num":2,"ser_found":4000000000,"tv_num":1,"type":-3})",
              plain(fake::sent().back()));
  }
  EXPECT_EQ(Lines{}, callsOf({"AISRV", "AIFW"}));  // only messages so far
}

TEST_F(ScanTest, TheEndSynchronisesThenPlaysThenTells) {
  const struct {
    const char* members;
    int32_t band;
    const char *input, *frequency;
  } cases[] = {{"", 64, "2", "0"},
               {R"("src":"QAM")", 1024, "3", "0"},
               {R"("mode":"manual","freq":14)", 64, "2", "473000000"},
               {"", 5, "2", "0"}};
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
    EXPECT_EQ("AISRV_get_total_services(" + std::string(expected.input) +
                  ",4103,*,0,*) AISRV_sync_to_database() AIFW_play_first_service(" +
                  expected.input + ',' + expected.frequency + ')',
              joined(callsOf({"AISRV_get_total", "AISRV_sync", "AIFW"})));
    EXPECT_EQ(0u, sentBeforePlay);
    EXPECT_EQ("OVER", json(fake::sent().at(0))["msg"].asString());
  }
}

TEST_F(ScanTest, StopSynchronisesBothTablesWhateverTheMiddlewareSays) {
  const Lines tables = {"AISRV_get_total_services(2,4103,*,0,*)",
                        "AISRV_get_total_services(3,4103,*,0,*)"};
  const struct {
    const char* members;
    int input, status;
    const char* calls;
  } cases[] = {
      {"", 3, 0, "AICS_stop_scan() AIFW_play_first_service(3,0) "},
      {R"("mode":"manual","freq":14)", 2, 1,
       "AICS_stop_scan() AIIN_get_input_details(2,0,*,0) AIFE_get_tuning_details(1,524289,*) "
       "AIFW_play_first_service(2,479000000) "},
  };
  for (const auto& expected : cases) {
    fake::reset();
    fake::state()->tunedFrequency = 479000000;
    fake::setCurrent(fake::service(7, 1, 1, ""), expected.input);
    fake::setResult("AICS_stop_scan", expected.status);
    start(expected.members);
    EXPECT_EQ(-expected.status, ask("SCAN stop").result);
    EXPECT_EQ(expected.calls + joined(tables),
              joined(callsOf({"AICS_stop", "AIIN", "AIFE", "AIFW", "AISRV_get_total"})));
  }
}

}  // namespace
