#include "fixture.h"

namespace {

using ScanTest = LibraryTest;

int start(const std::string& members) { return transmit(command("SCAN start", members)).result; }

TEST_F(ScanTest, RequestsOfTheMiddleware) {
  const auto expectCall = [](const std::string& members, const std::string& call) {
    fake::reset();
    EXPECT_EQ(call.empty() ? -1 : 0, start(members)) << members;
    EXPECT_EQ(call.empty() ? "" : "AICN_set_skip_play_srv(1) AICS_start_search(" + call + ")",
              joined(fake::calls()));
  };
  expectCall("", "1,2,0,2");
  expectCall(R"("freq":14)", "1,2,0,2");
  expectCall(R"("src":"QAM")", "1,2,0,3");
  expectCall(R"("mode":"manual","src":"VSB","freq":615000000)", "0,2,615000000,2");
  expectCall(R"("mode":"manual","src":"VSB","freq":256)", "0,2,256,2");
  expectCall(R"("mode":"manual")", "");
  // The channels of CEA-542: first and last number, frequency of the first in MHz.
  const struct {
    std::string source;
    int first, last, frequency;
  } plans[] = {{"VSB", 2, 4, 57},    {"VSB", 5, 6, 79},   {"VSB", 7, 13, 177},
               {"VSB", 14, 69, 473}, {"QAM", 1, 1, 75},   {"QAM", 2, 4, 57},
               {"QAM", 5, 6, 79},    {"QAM", 7, 13, 177}, {"QAM", 14, 22, 123},
               {"QAM", 23, 94, 219}, {"QAM", 95, 99, 93}, {"QAM", 100, 135, 651}};
  for (const std::string source : {"VSB", "QAM"}) {
    for (int channel = 0; channel < 256; ++channel) {
      std::string call;
      for (const auto& plan : plans) {
        if (source != plan.source || channel < plan.first || channel > plan.last) continue;
        call = "0,2," + std::to_string(plan.frequency + 6 * (channel - plan.first)) + "000000," +
               (source == "VSB" ? "2" : "3");
      }
      expectCall(R"("mode":"manual","src":")" + source + R"(","freq":)" + std::to_string(channel),
                 call);
    }
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
  const std::tuple<const char*, int32_t, std::string, const char*> cases[] = {
      {"", 64, "2", "0"},
      {R"("src":"QAM")", 1024, "3", "0"},
      {R"("mode":"manual","freq":14)", 64, "2", "473000000"}};
  for (const auto& [members, band, input, frequency] : cases) {
    fake::reset();
    start(members);
    fake::onCall([](const std::string&) { EXPECT_EQ(Lines{}, fake::sent()); });
    AICS_scan_progress progress{};
    progress.current_frequency = 473000000;
    progress.band_mask = band;
    fake::scanCallback()(&progress, 2);
    EXPECT_EQ("AISRV_get_total_services(" + input +
                  ",4103,*,0,*) AISRV_sync_to_database() AIFW_play_first_service(" + input + ',' +
                  frequency + ')',
              joined(callsOf({"AISRV_get_total", "AISRV_sync", "AIFW"})));
    EXPECT_EQ("OVER", json(fake::sent().at(0))["msg"].asString());
  }
}

TEST_F(ScanTest, StopSynchronisesBothTablesWhateverTheMiddlewareSays) {
  const std::tuple<const char*, int, int, std::string> cases[] = {
      {"", 3, 0, "AICS_stop_scan() AIFW_play_first_service(3,0) "},
      {R"("mode":"manual","freq":14)", 2, 1,
       "AICS_stop_scan() AIIN_get_input_details(2,0,*,0) AIFE_get_tuning_details(1,524289,*) "
       "AIFW_play_first_service(2,479000000) "}};
  for (const auto& [members, input, status, calls] : cases) {
    fake::reset();
    fake::state()->tunedFrequency = 479000000;
    fake::setCurrent(fake::service(7, 1, 1, ""), input);
    fake::setResult("AICS_stop_scan", status);
    start(members);
    EXPECT_EQ(-status, ask("SCAN stop").result);
    EXPECT_EQ(
        calls + "AISRV_get_total_services(2,4103,*,0,*) AISRV_get_total_services(3,4103,*,0,*)",
        joined(callsOf({"AICS_stop", "AIIN", "AIFE", "AIFW", "AISRV_get_total"})));
  }
}

}  // namespace
