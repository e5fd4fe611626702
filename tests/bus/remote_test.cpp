// Commands of the remote control: their calls of the middleware and their replies.
#include <gmock/gmock.h>

#include <chrono>
#include <thread>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// Returns the calls of a synchronisation of a source's channel table.
Lines synchronised(int source) {
  const std::string input = std::to_string(source);
  return {"AIST_get_cur_time_secs(*)", "AISRV_get_total_services(" + input + ",4103,*,0,*)",
          "AISRV_get_n_services(" + input + ",4103,0,*,0,0,*,null)", "AISRV_sync_to_database()"};
}

bool contains(const Lines& lines, const std::string& line) {
  return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class RemoteTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    _ATSC_Service_db_createChannelDB();
    fake::reset();
  }

  static Json::Value reply(const std::string& name, const std::string& members = "") {
    const std::string text = ask(name, members).text;
    EXPECT_TRUE(fake::logged("Info", "result: " + text)) << text;
    return json(text);
  }

  // Sets the services of the middleware and writes the channel table.
  void list(int source, const std::vector<fake::Service>& services) {
    fake::setServices(static_cast<uint32_t>(source), services);
    ASSERT_EQ(1, ATSC_Service_db_UpdateChannel(source));
  }
};

TEST_F(RemoteTest, CallsInOrderAndWhichOfThemDecides) {
  const Lines kLanguageCalls = {"AICN_set_sec_pref_aud_lang", "AIUP_store_all", "AIUP_sync"};
  const struct {
    const char* name;
    const char* members;
    Lines calls;
    Lines decide;  // calls whose failure makes the command fail
  } cases[] = {
      {"FW POWERDOWN", "", {"AIFW_powerTransition_request(0)"}, {"AIFW_powerTransition_request"}},
      {"FW POWERDOWN",
       "\"powerdown\":true",
       {"AIFW_powerTransition_request(1)"},
       {"AIFW_powerTransition_request"}},
      {"FW PLAYSRC",
       "\"src\":\"QAM\"",
       {"AIFE_tune_stop_request(1,524289)", "AIFW_play_src(0,3)"},
       {"AIFW_play_src"}},
      {"FW PLAYSRC",
       "\"src\":\"qam\"",
       {"AIFE_tune_stop_request(1,524289)", "AIFW_play_src(0,2)"},
       {"AIFW_play_src"}},
      {"FW PLAYSRC",
       "",
       {"AIFE_tune_stop_request(1,524289)", "AIFW_play_src(0,2)"},
       {"AIFW_play_src"}},
      {"FW PLAY", "", {"AIFW_play_curr_src()"}, {"AIFW_play_curr_src"}},
      {"FW STOP",
       "",
       {"AIFE_tune_stop_request(1,524289)", "AICN_get_tuner_mode()",
        "AIFW_handle_tuner_mode_change(2)", "AIFW_stop_curr_src()"},
       {"AIFW_stop_curr_src"}},
      {"FW RELOADDB", "", Lines{"RMGRReload()"} + synchronised(2) + synchronised(3), {}},
      {"OS SEMLIST", "", {"OSAL_display_sem_details_()"}, {}},
      {"SRV RESET",
       "\"src\":\"VSB\"",
       Lines{"AISRV_reset_db(2)"} + synchronised(2),
       {"AISRV_reset_db"}},
      {"SRV RESET",
       "\"src\":\"vsb\"",
       Lines{"AISRV_reset_db(3)"} + synchronised(3),
       {"AISRV_reset_db"}},
      {"SRV RESET", "", Lines{"AISRV_reset_db(3)"} + synchronised(3), {"AISRV_reset_db"}},
      {"TEST GETSERVICE", "", synchronised(2), {}},
      {"TEST GETSERVICE", "\"input\":\"AIR\"", synchronised(3), {}},
      {"VC CLOSE", "", {"AIVC_close_video(0)"}, {}},
      {"AUD SETDUAL", "", {"AIAUD_set_dual_mode(0)"}, {"AIAUD_set_dual_mode"}},
      {"AUD SETDUAL", "\"mode\":\"LEFT\"", {"AIAUD_set_dual_mode(1)"}, {"AIAUD_set_dual_mode"}},
      {"AUD SETDUAL", "\"mode\":\"RIGHT\"", {"AIAUD_set_dual_mode(2)"}, {"AIAUD_set_dual_mode"}},
      {"AUD SETDUAL", "\"mode\":\"MIXED\"", {"AIAUD_set_dual_mode(3)"}, {"AIAUD_set_dual_mode"}},
      {"AUD SETDUAL", "\"mode\":\"?\"", {"AIAUD_set_dual_mode(0)"}, {"AIAUD_set_dual_mode"}},
      {"AUD CHANGE",
       "\"index\":2",
       {"AIFW_change_audio(3)", "AICN_get_current(*)", "AIIN_get_db_no_input_details(2,*)"},
       {"AIFW_change_audio"}},
      {"AUD CHANGE",
       "\"index\":255",
       {"AIFW_change_audio(0)", "AICN_get_current(*)", "AIIN_get_db_no_input_details(2,*)"},
       {"AIFW_change_audio"}},
      {"TIME SETMODE", "\"mode\":\"AUTO\"", {"AIST_manual_mode_enable(0)"}, {}},
      {"TIME SETMODE", "\"mode\":\"auto\"", {"AIST_manual_mode_enable(1)"}, {}},
      {"TIME SETMODE", "", {"AIST_manual_mode_enable(1)"}, {}},
      {"TIME SETTIMEZONE", "\"zone\":\"SKST\"", {"AIST_set_current_time_zone(0)"}, {}},
      {"TIME SETTIMEZONE", "\"zone\":\"PST\"", {"AIST_set_current_time_zone(8)"}, {}},
      {"TIME SETTIMEZONE", "\"zone\":\"HST\"", {"AIST_set_current_time_zone(11)"}, {}},
      {"TIME SETTIMEZONE", "\"zone\":\"PDT\"", {}, {}},
      {"TIME SETTIMEZONE", "", {}, {}},
      {"CN SETPREAUD",
       "\"first\":\"spa\",\"second\":\"fre\"",
       {"AICN_set_pref_aud_lang(2)", "AICN_set_sec_pref_aud_lang(1)", "AIUP_store_all()",
        "AIUP_sync()"},
       kLanguageCalls},
      {"CN SETPREAUD",
       "\"first\":\"spa\",\"second\":\"?\"",
       {"AICN_set_pref_aud_lang(2)", "AICN_set_sec_pref_aud_lang(2)", "AIUP_store_all()",
        "AIUP_sync()"},
       kLanguageCalls},
      {"CN SETPREAUD",
       "",
       {"AICN_set_pref_aud_lang(0)", "AICN_set_sec_pref_aud_lang(0)", "AIUP_store_all()",
        "AIUP_sync()"},
       kLanguageCalls},
  };
  // After a failure of these no other calls are made.
  const Lines ends = {"AIFW_change_audio", "AICN_set_sec_pref_aud_lang", "AIUP_store_all"};
  for (const auto& expected : cases) {
    SCOPED_TRACE(command(expected.name, expected.members));
    fake::reset();
    fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), 2);
    EXPECT_EQ(0, ask(expected.name, expected.members).result);
    EXPECT_EQ(expected.calls, fake::calls());

    // Each call fails once. The failure is logged, and the other calls are made.
    for (const std::string& call : expected.calls) {
      const std::string function = call.substr(0, call.find('('));
      if (function == "AICN_get_tuner_mode" || function == "OSAL_display_sem_details_") continue;
      if (function.rfind("AISRV_get", 0) == 0) continue;  // tested with the channel tables
      SCOPED_TRACE(function + " fails");
      fake::reset();
      fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), 2);
      fake::setResult(function, 5);
      const bool decides = contains(expected.decide, function);
      EXPECT_EQ(decides ? -1 : 0, ask(expected.name, expected.members).result);
      EXPECT_NE("", fake::logLine("Failed to call " + function + "() -> 0x"));
      Lines made = expected.calls;
      if (contains(ends, function))
        made.erase(std::find(made.begin(), made.end(), call) + 1, made.end());
      EXPECT_EQ(made, fake::calls());
    }
  }
}

TEST_F(RemoteTest, StopFollowsTheTuner) {
  fake::setCurrent(fake::service(23, 1, 219000000, "CABLE", 3), 3);
  ask("FW STOP");
  EXPECT_THAT(callsOf({"AIFW_handle"}), ElementsAre("AIFW_handle_tuner_mode_change(3)"));
}

TEST_F(RemoteTest, FailedStoreOfLanguagesIsLoggedWithTheHandlersResult) {
  fake::setResult("AIUP_sync", 5);
  EXPECT_EQ(-1, ask("CN SETPREAUD").result);
  EXPECT_THAT(fake::logLine("AIUP_sync"),
              HasSubstr("Failed to call AIUP_sync() -> 0xffffffff: int "
                        "ATSCBUS::ATSCServerService::CN_setPreAudLang"));
}

TEST_F(RemoteTest, MembersOfTheWrongTypeCallNothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"FW POWERDOWN", "\"powerdown\":[1]"},
      {"FW PLAYSRC", "\"src\":{}"},
      {"FW CHANNELMODIFY", "\"major\":\"7\""},
      {"FW CHANNELMODIFY", "\"major\":7,\"minor\":1,\"type\":\"fav\",\"group\":-1"},
      {"FW CHANNELADD", "\"freq\":1e10"},
      {"FW CHANNELADD", "\"major\":65536"},
      {"FW CHANNELADD", "\"minor\":65536"},
      {"SRV RESET", "\"src\":[]"},
      {"AUD CHANGE", "\"index\":-1"},
      {"AUD SETDUAL", "\"mode\":[]"},
      {"CN SETPREAUD", "\"second\":{}"},
  };
  for (const auto& [name, members] : cases) {
    fake::reset();
    EXPECT_EQ(-1, ask(name, members).result) << name << members;
    EXPECT_THAT(fake::calls(), IsEmpty()) << name << members;
    const Lines logs = fake::logs();
    EXPECT_TRUE(std::any_of(logs.begin(), logs.end(),
                            [](const std::string& line) { return line.rfind("Error ", 0) == 0; }))
        << name << members;
  }
}

TEST_F(RemoteTest, MembersOfTheWrongTypeThatCountAsAbsent) {
  const struct {
    const char* name;
    const char* members;
    int result;
    const char* call;  // of the middleware
    const char* text;
  } cases[] = {
      {"TIME SETMODE", "\"mode\":{}", 0, "AIST_manual_mode_enable(1)", ""},
      {"TIME SETTIMEZONE", "\"zone\":[]", 0, "", ""},
      {"MSC LOGCTL", "\"para\":{}", 0, "", ""},
      {"TEST GETSERVICE", "\"input\":[]", 0, "AISRV_get_total_services(2,4103,*,0,*)", ""},
      {"CC get_sar", "\"input_type\":-1,\"AiccServiceId\":{}", -1,
       "AICC_get_cc_service_data(0,*,*)", "{\n   \"cc_aspect_ratio\" : 1\n}\n"},
      {"EAS EASUSERSETTING", "\"op\":{}", 0, "AIFW_user_eas_setting(0,0)",
       "{\n   \"setting\" : 0\n}\n"},
      {"PC CHECKRAT", "\"system\":[],\"rating\":\"G\"", -1, "", ""},
      {"PC PWDUNLOCK", "\"lock_status\":\"0\"", -1, "", ""},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.name);
    fake::reset();
    const Answer answer = ask(expected.name, expected.members);
    EXPECT_EQ(expected.result, answer.result);
    EXPECT_EQ(expected.text, answer.text);
    EXPECT_TRUE(*expected.call == '\0' ? fake::calls().empty()
                                       : contains(fake::calls(), expected.call));
  }
}

TEST_F(RemoteTest, AttributesOfAChannel) {
  const struct {
    const char* members;
    uint32_t flags, favourites;  // before
    uint32_t newFlags, newFavourites;
    const char* line;  // of the log
  } cases[] = {
      {"\"type\":\"skip\"", 0x21, 0x10, 0x29, 0x10, "Info Skip channel"},
      {"\"type\":\"unskip\"", 0x2D, 0, 0x25, 0, "Info Unskip channel"},
      {"\"type\":\"delete\"", 0x1, 0, 0x21, 0, "Info Delete channel"},
      {"\"type\":\"undelete\"", 0x2D, 0, 0xD, 0, "Info Undelete channel"},
      {"\"type\":\"lock\"", 0x1, 0, 0x5, 0, "Info Lock channel"},
      {"\"type\":\"unlock\"", 0x2D, 0, 0x29, 0, "Info Unlock channel"},
      {"\"type\":\"fav\",\"group\":1", 0x1, 0x20, 0x1, 0x30, "Info set channel fav"},
      {"\"type\":\"fav\",\"group\":28", 0x1, 0x1, 0x1, 0x80000001, "Info set channel fav"},
      {"\"type\":\"unfav\",\"group\":2", 0x1, 0x3F, 0x1, 0x1F, "Info unset channel fav"},
      {"\"type\":\"fav\"", 0x1, 0x20, 0x1, 0x20, "Error fav group setting is 0"},
      {"\"type\":\"fav\",\"group\":29", 0x1, 0x20, 0x1, 0x20, "Info set channel fav"},
      {"\"type\":\"unfav\",\"group\":4294967295", 0x1, 0x20, 0x1, 0x20, "Info unset channel fav"},
      {"\"type\":\"Skip\"", 0x5, 0x20, 0x5, 0x20, "Info modify channel(7-2)"},
      {"", 0x5, 0x20, 0x5, 0x20, "Info modify channel(7-2)"},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.members);
    fake::reset();
    fake::Service first = fake::service(7, 1, 177000000, "ONE");
    fake::Service second = fake::service(7, 2, 177000000, "TWO");
    fake::Service twin = fake::service(7, 2, 183000000, "TWIN");
    second.info.AISRV_flags_ = expected.flags;
    second.info.AISRV_fav_group_ = expected.favourites;
    fake::setServices(2, {first, second, twin});
    EXPECT_EQ(0,
              ask("FW CHANNELMODIFY", std::string("\"major\":7,\"minor\":2") +
                                          (*expected.members != '\0' ? "," : "") + expected.members)
                  .result);
    const fake::Service written = fake::modifiedService();
    EXPECT_EQ(second.info.service_id.service_rec, written.info.service_id.service_rec);
    EXPECT_EQ(177000000u, written.info.frequency);
    EXPECT_EQ(second.name, written.name);
    EXPECT_EQ(expected.newFlags, written.info.AISRV_flags_);
    EXPECT_EQ(expected.newFavourites, written.info.AISRV_fav_group_);
    EXPECT_TRUE(contains(fake::logs(), "Info modify channel(7-2)"));
    EXPECT_TRUE(contains(fake::logs(), expected.line));
  }
}

TEST_F(RemoteTest, ModifyWritesBackThenSynchronises) {
  fake::setServices(3, {fake::service(23, 1, 219000000, "CABLE", 3)});
  const std::string members = "\"major\":23,\"minor\":1,\"src\":\"QAM\",\"type\":\"skip\"";
  testing::internal::CaptureStdout();
  EXPECT_EQ(0, ask("FW CHANNELMODIFY", members).result);
  EXPECT_EQ("total_service_info[0].service_id.service_rec 2301(23-1)\n",
            testing::internal::GetCapturedStdout());
  EXPECT_THAT(callsOf({"AI"}),
              ElementsAre("AISRV_get_total_services(3,4103,*,0,*)",
                          "AISRV_get_n_services(3,4103,0,*,0,0,*,*)", "AIFW_modify_service(8,*)",
                          "AIST_get_cur_time_secs(*)", "AISRV_get_total_services(3,4103,*,0,*)",
                          "AISRV_get_n_services(3,4103,0,*,0,0,*,*)", "AISRV_get_pid_details(*,*)",
                          "AISRV_sync_to_database()"));
  fake::setResult("AIFW_modify_service", 4);
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", members).result);
  EXPECT_EQ(2u, callsOf({"AISRV_sync_to_database"}).size()) << "synchronised all the same";

  // A service that is not listed or cannot be read is not written.
  fake::reset();
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", members).result);
  fake::setServices(3, {fake::service(23, 1, 219000000, "CABLE", 3)});
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", "\"major\":65559,\"minor\":1,\"src\":\"QAM\"").result);
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", "\"major\":23,\"minor\":1").result) << "terrestrial";
  fake::claimCount(70000);
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", "\"major\":23,\"minor\":2,\"src\":\"QAM\"").result);
  fake::setResult("AISRV_get_n_services", 1);
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", members).result);
  fake::setResult("AISRV_get_total_services", 1);
  EXPECT_EQ(-1, ask("FW CHANNELMODIFY", members).result);
  EXPECT_THAT(callsOf({"AIFW_modify_service"}), IsEmpty());
}

TEST_F(RemoteTest, LockOfTheChannelThatPlaysComesFromTheApplication) {
  const fake::Service playing = fake::service(7, 1, 177000000, "SEVEN");
  const fake::Service other = fake::service(7, 2, 177000000, "OTHER");
  fake::Service sameRecord = playing;
  sameRecord.info.service_id.input_source = 3;
  const struct {
    const char* type;
    fake::Service current;
    bool told;
  } cases[] = {{"lock", playing, true},
               {"unlock", playing, true},
               {"skip", playing, false},
               {"lock", other, false},
               {"lock", sameRecord, false}};
  for (const auto& expected : cases) {
    fake::reset();
    fake::setServices(2, {playing, other});
    fake::setCurrent(expected.current, 2);
    ask("FW CHANNELMODIFY",
        std::string("\"major\":7,\"minor\":1,\"type\":\"") + expected.type + "\"");
    EXPECT_EQ(expected.told ? (Lines{"AICN_set_play_from_ap(1)", "AIFW_modify_service(8,*)"})
                            : Lines{"AIFW_modify_service(8,*)"},
              callsOf({"AICN_set_play", "AIFW_"}));
  }
  fake::setCurrent(playing, 2);
  fake::setResult("AICN_get_current", 1);
  ask("FW CHANNELMODIFY", "\"major\":7,\"minor\":1,\"type\":\"lock\"");
  EXPECT_THAT(callsOf({"AICN_set_play"}), IsEmpty());
}

TEST_F(RemoteTest, AddedChannel) {
  const std::string name = std::string(5000, 'n') + "\xC3\xA9";
  EXPECT_EQ(0, ask("FW CHANNELADD",
                   "\"major\":9,\"minor\":4,\"freq\":4294967295,\"name\":\"" + name + "\"")
                   .result);
  EXPECT_EQ(Lines{"AIFW_modify_service(6,*)"} + synchronised(2), fake::calls());
  EXPECT_TRUE(fake::logged("Info", "add channel(9-4) frequency -1"));
  fake::Service added = fake::modifiedService();
  EXPECT_EQ(name, added.name);
  EXPECT_EQ(0, added.info.name.encoding);
  EXPECT_EQ(0u, added.info.service_id.service_rec);
  EXPECT_EQ(2u, added.info.service_id.input_source);
  EXPECT_EQ(1u, added.info.service_type);
  EXPECT_EQ(9, added.info.major);
  EXPECT_EQ(4, added.info.minor);
  EXPECT_EQ(4294967295u, added.info.frequency);
  EXPECT_EQ(0x40u, added.info.modulation);
  EXPECT_EQ(0u, added.info.AISRV_fav_group_);
  EXPECT_EQ(1u, added.info.AISRV_flags_);
  EXPECT_EQ(1u, added.info.build_from_pmt);

  fake::setResult("AIFW_modify_service", 4);
  EXPECT_EQ(-1, ask("FW CHANNELADD", "\"src\":\"QAM\",\"major\":1203").result);
  EXPECT_EQ("AISRV_sync_to_database()", fake::calls().back()) << "synchronised all the same";
  added = fake::modifiedService();
  EXPECT_EQ(3u, added.info.service_id.input_source);
  EXPECT_EQ(0x400u, added.info.modulation);
  EXPECT_EQ("", added.name);

  // The longest name of a record, and one byte more.
  fake::setResult("AIFW_modify_service", 0);
  EXPECT_EQ(0, ask("FW CHANNELADD", "\"name\":\"" + std::string(65535, 'x') + "\"").result);
  EXPECT_EQ(65535u, fake::modifiedService().name.size());
  EXPECT_EQ(-1, ask("FW CHANNELADD", "\"name\":\"" + std::string(65536, 'x') + "\"").result);
  EXPECT_EQ(3u, callsOf({"AIFW_modify_service"}).size());
}

TEST_F(RemoteTest, AudioIndexOfTheCurrentChannelIsStored) {
  list(2, {fake::service(7, 1, 177000000, "ONE"), fake::service(7, 2, 177000000, "TWO")});
  list(3, {fake::service(7, 1, 177000000, "CABLE", 3)});
  const auto indices = [&] {
    return rows(
        "SELECT ch_id_pk, audio_index FROM channel_data_t UNION ALL "
        "SELECT ch_id_pk, audio_index FROM channel_data_c");
  };
  fake::setCurrent(fake::service(7, 2, 177000000, "TWO"), 2);
  EXPECT_EQ(0, ask("AUD CHANGE").result);
  EXPECT_THAT(indices(), ElementsAre("7-1-177000000|", "7-2-177000000|1", "7-1-177000000|"));
  fake::setCurrent(fake::service(7, 1, 177000000, "CABLE", 3), 2);  // the record decides
  EXPECT_EQ(0, ask("AUD CHANGE", "\"index\":2").result);
  EXPECT_THAT(indices(), ElementsAre("7-1-177000000|", "7-2-177000000|1", "7-1-177000000|3"));
  fake::setResult("AIFW_change_audio", 1);
  EXPECT_EQ(-1, ask("AUD CHANGE", "\"index\":0").result);
  EXPECT_THAT(indices(), ElementsAre("7-1-177000000|", "7-2-177000000|1", "7-1-177000000|3"));
}

TEST_F(RemoteTest, CurrentService) {
  const Json::Value none = json(
      "{\"major\":0,\"minor\":0,\"freq\":0,\"fav_group\":0,\"srv_flag\":0,\"source_id\":0,"
      "\"chn_name\":\"\",\"srv_rec\":65535}");
  EXPECT_EQ(none, reply("SRV GETCUR"));
  EXPECT_TRUE(fake::logged("Error", " AICN_get_current fail\n"));

  fake::Service service = fake::service(7, 1, 4000000000, "SEVEN");
  service.info.source_id = 4;
  service.info.AISRV_fav_group_ = 0x30;
  service.info.AISRV_flags_ = 9;
  service.name = std::string("\0K\0\xC9\x20\xAC", 6);
  list(2, {fake::service(5, 1, 177000000, ""), service});
  list(3, {service});
  fake::setCurrent(service, 2);
  fake::setRecording(true);
  EXPECT_EQ(json("{\"major\":7,\"minor\":1,\"freq\":4000000000,\"fav_group\":48,\"srv_flag\":9,"
                 "\"source_id\":4,\"chn_name\":\"K\xC3\x89\xE2\x82\xAC\",\"srv_rec\":2}"),
            reply("SRV GETCUR"));

  fake::setCurrent(service, 3);
  EXPECT_EQ(1u, reply("SRV GETCUR")["srv_rec"].asUInt()) << "the table of the current source";

  service.name = "single";
  service.nameEncoding = 0;
  fake::setCurrent(service, 2);
  EXPECT_EQ("single", reply("SRV GETCUR")["chn_name"].asString());
  service.name.clear();
  fake::setCurrent(service, 2);
  EXPECT_FALSE(reply("SRV GETCUR").isMember("chn_name"));

  service.info.source_id = 5;  // not in the table
  fake::setCurrent(service, 2);
  EXPECT_EQ(none, reply("SRV GETCUR"));
  EXPECT_EQ(0, ask("SRV GETCUR").result);
  service.info.source_id = 4;
  fake::setCurrent(service, 2);
  fake::setResult("AICN_get_current", 1);
  EXPECT_EQ(none, reply("SRV GETCUR"));
}

TEST_F(RemoteTest, CurrentSource) {
  const std::pair<int, const char*> cases[] = {{2, "VSB"}, {3, "QAM"}, {1, "ERROR"}, {-1, "ERROR"}};
  for (const auto& [source, name] : cases) {
    fake::setCurrent(fake::service(7, 1, 1, ""), source);
    const Answer answer = ask("CN GETCURSRC");
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(json("{\"src\":\"" + std::string(name) + "\"}"), json(answer.text));
  }
  EXPECT_TRUE(fake::logged("Debug", "ATSC_INPUT"));
  EXPECT_TRUE(fake::logged("Debug", "CABLE_INPUT"));
  EXPECT_TRUE(fake::logged("Debug", "current input(1)"));
}

TEST_F(RemoteTest, PreferredLanguages) {
  const struct {
    int32_t first, second;
    const char *firstCode, *secondCode;
  } cases[] = {{0, 1, "eng", "fre"},
               {2, 0, "spa", "eng"},
               {2, 3, "spa", "spa"},
               {3, 1, "", "fre"},
               {-1, 7, "", ""}};
  for (const auto& expected : cases) {
    fake::setLanguages(expected.first, expected.second);
    const Json::Value languages = reply("CN GETPREAUD");
    EXPECT_EQ(expected.firstCode, languages["first"].asString());
    EXPECT_EQ(expected.secondCode, languages["second"].asString());
  }
  fake::setLanguages(1, 2);
  fake::setResult("AICN_get_sec_pref_aud_lang", 5);
  EXPECT_EQ(json("{\"first\":\"fre\",\"second\":\"fre\"}"), reply("CN GETPREAUD"));
  fake::setResult("AICN_get_pref_aud_lang", 5);
  EXPECT_EQ(json("{\"first\":\"\",\"second\":\"\"}"), reply("CN GETPREAUD"));
}

TEST_F(RemoteTest, TimeSettingAndTime) {
  const struct {
    AIST_system_time_info info;
    const char* reply;
  } cases[] = {
      {{8, -420, 1, {}}, "{\"time_zone\":\"PST\",\"offset\":-420,\"mode\":\"AUTO\"}"},
      {{0, 540, 2, {}}, "{\"time_zone\":\"SKST\",\"offset\":540,\"mode\":\"MANUAL\"}"},
      {{11, 0, 1, {}}, "{\"time_zone\":\"HST\",\"offset\":0,\"mode\":\"AUTO\"}"},
      {{12, INT32_MIN, 0, {}},
       "{\"time_zone\":\"EST\",\"offset\":-2147483648,\"mode\":\"MANUAL\"}"},
      {{-1, 0, 1, {}}, "{\"time_zone\":\"EST\",\"offset\":0,\"mode\":\"AUTO\"}"},
  };
  for (const auto& expected : cases) {
    fake::setTimeInfo(expected.info);
    EXPECT_EQ(json(expected.reply), reply("TIME GETSETTING"));
  }
  fake::setTimeDate({2016, 4, 8, 13, 5, 9, {}});
  EXPECT_EQ(json("{\"year\":2016,\"month\":4,\"mday\":8,\"hour\":13,\"min\":5,\"sec\":9}"),
            reply("TIME GETCUR"));
}

TEST_F(RemoteTest, CaptionAspectRatio) {
  AICC_cc_service_data captions{};
  captions.count = 255;  // only 16 exist
  captions.services[0].service_id = 1;
  captions.services[0].input_type = 1;
  captions.services[0].aspect_ratio = 5;
  captions.services[1].service_id = 1;
  captions.services[1].aspect_ratio = -7;
  captions.services[2].service_id = 1;
  captions.services[2].aspect_ratio = 9;
  captions.services[15].service_id = 16;
  captions.services[15].aspect_ratio = 0;
  const struct {
    const char* members;
    int result;
    int ratio;
  } cases[] = {
      {"\"AiccServiceId\":1", 0, -7},
      {"\"AiccServiceId\":1,\"input_type\":1", 0, 5},
      {"\"AiccServiceId\":16", 0, 0},
      {"\"AiccServiceId\":257", -1, 1},
      {"\"AiccServiceId\":2", -1, 1},
      {"\"input_type\":4294967295", -1, 1},
      {"", 0, 0},  // an empty entry of those 16
  };
  for (const auto& expected : cases) {
    fake::reset();
    fake::setCaptions(captions);
    const Answer answer = ask("CC get_sar", expected.members);
    EXPECT_EQ(expected.result, answer.result) << expected.members;
    EXPECT_EQ(json("{\"cc_aspect_ratio\":" + std::to_string(expected.ratio) + "}"),
              json(answer.text));
    EXPECT_THAT(fake::calls(),
                ElementsAre("AICN_get_current(*)", "AICC_get_cc_service_data(0,*,*)"));
    EXPECT_EQ(expected.result == 0, fake::logged("Debug", "hit\n"));
    EXPECT_TRUE(fake::logged("Debug", "result: " + answer.text));
    EXPECT_TRUE(fake::logged("Debug", "cc_aspect_ratio = " + std::to_string(expected.ratio)));
  }
  fake::setResult("AICC_get_cc_service_data", 2);
  const Answer failed = ask("CC get_sar", "\"AiccServiceId\":1");
  EXPECT_EQ(-1, failed.result);
  EXPECT_EQ(json("{\"cc_aspect_ratio\":1}"), json(failed.text));
}

}  // namespace
