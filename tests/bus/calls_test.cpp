// The commands: their calls of the middleware, their replies and their failures.
#include <gmock/gmock.h>

#include "fixture.h"

namespace {

using ::testing::HasSubstr;

class CallsTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    _ATSC_Service_db_createChannelDB();
    parental_.region = 3;
    parental_.details = {-5, 7, 8, 9, 1, 0};
    parental_.regions = {1, 200};
    parental_.tableRegion = 300;
    parental_.name = {fake::utf16("Name"), AI_TEXT_UTF16BE, 0};
    parental_.text = {"Full", 0, 0};
    parental_.abbreviation = {fake::utf16("F"), AI_TEXT_UTF16BE, 0};
    parental_.version = 31;
    parental_.count = 200;
    parental_.graduated = 1;
    parental_.groupStatus = 1;
    parental_.alertSetting = 1;
  }

  void restart() {
    fake::reset();
    fake::setParental(parental_);
    fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), AI_INPUT_TERRESTRIAL);
  }

  fake::Parental parental_;
};

// Behind a call: "!" when its failure ends the command, "-" when its failure is the command's but
// the other calls are made, "~" when it has no failure or one that another test has.
TEST_F(CallsTest, CallsRepliesAndFailures) {
  const auto synchronised = [](const std::string& input) {
    return "AIST_get_cur_time_secs(*) AISRV_get_total_services(" + input +
           ",4103,*,0,*)~ AISRV_get_n_services(" + input +
           ",4103,0,*,0,0,*,null)~ AISRV_sync_to_database()";
  };
  const std::string input = "AICN_get_curr_input_source()~ AIIN_get_input_details(2,0,*,0)! ";
  const std::string region = "AIFW_get_curr_region(*)! " + input;
  // Without a region, a rating document is changed and used as it was passed.
  const std::string rating =
      "AIFW_get_curr_region(*)~ AICN_get_curr_input_source()~ AIIN_get_input_details(2,0,*,0)~ "
      "AIPC_retreive_rating(3)! ";
  const std::string stop = "AIFE_tune_stop_request(1,524289) ";
  const std::string stored = "AIUP_store_all()! AIUP_sync()-";
  const std::string track = " AICN_get_current(*) AIIN_get_db_no_input_details(2,*)";
  const struct {
    std::string request, calls;
    const char* reply;  // null: a rating document
  } cases[] = {
      {"FW POWERDOWN", "AIFW_powerTransition_request(0)-", ""},
      {R"(FW POWERDOWN "powerdown":true)", "AIFW_powerTransition_request(1)-", ""},
      {R"(FW PLAYSRC "src":"QAM")", stop + "AIFW_play_src(0,3)-", ""},
      {R"(FW PLAYSRC "src":"qam")", stop + "AIFW_play_src(0,2)-", ""},
      {"FW PLAYSRC", stop + "AIFW_play_src(0,2)-", ""},
      {"FW PLAY", "AIFW_play_curr_src()-", ""},
      {"FW STOP",
       stop + "AICN_get_tuner_mode()~ AIFW_handle_tuner_mode_change(2) AIFW_stop_curr_src()-", ""},
      {"FW RELOADDB", "RMGRReload() " + synchronised("2") + " " + synchronised("3"), ""},
      {"OS SEMLIST", "OSAL_display_sem_details_()~", ""},
      {R"(SRV RESET "src":"VSB")", "AISRV_reset_db(2)- " + synchronised("2"), ""},
      {R"(SRV RESET "src":"vsb")", "AISRV_reset_db(3)- " + synchronised("3"), ""},
      {"SRV RESET", "AISRV_reset_db(3)- " + synchronised("3"), ""},
      {"TEST GETSERVICE", synchronised("2"), ""},
      {R"(TEST GETSERVICE "input":"AIR")", synchronised("3"), ""},
      {R"(TEST GETSERVICE "input":[])", synchronised("2"), ""},
      {R"(MSC LOGCTL "para":{})", "", ""},
      {"VC CLOSE", "AIVC_close_video(0)", ""},
      {"AUD SETDUAL", "AIAUD_set_dual_mode(0)-", ""},
      {R"(AUD SETDUAL "mode":"LEFT")", "AIAUD_set_dual_mode(1)-", ""},
      {R"(AUD SETDUAL "mode":"RIGHT")", "AIAUD_set_dual_mode(2)-", ""},
      {R"(AUD SETDUAL "mode":"MIXED")", "AIAUD_set_dual_mode(3)-", ""},
      {R"(AUD SETDUAL "mode":"?")", "AIAUD_set_dual_mode(0)-", ""},
      {R"(AUD CHANGE "index":2)", "AIFW_change_audio(3)!" + track, ""},
      {R"(AUD CHANGE "index":255)", "AIFW_change_audio(0)!" + track, ""},
      {R"(TIME SETMODE "mode":"AUTO")", "AIST_manual_mode_enable(0)", ""},
      {R"(TIME SETMODE "mode":"auto")", "AIST_manual_mode_enable(1)", ""},
      {R"(TIME SETMODE "mode":{})", "AIST_manual_mode_enable(1)", ""},
      {R"(TIME SETTIMEZONE "zone":"SKST")", "AIST_set_current_time_zone(0)", ""},
      {R"(TIME SETTIMEZONE "zone":"PST")", "AIST_set_current_time_zone(8)", ""},
      {R"(TIME SETTIMEZONE "zone":"HST")", "AIST_set_current_time_zone(11)", ""},
      {R"(TIME SETTIMEZONE "zone":"PDT")", "", ""},
      {R"(TIME SETTIMEZONE "zone":[])", "", ""},
      {R"(CN SETPREAUD "first":"spa","second":"fre")",
       "AICN_set_pref_aud_lang(2) AICN_set_sec_pref_aud_lang(1)! " + stored, ""},
      {R"(CN SETPREAUD "first":"spa","second":"?")",
       "AICN_set_pref_aud_lang(2) AICN_set_sec_pref_aud_lang(2)! " + stored, ""},
      {"CN SETPREAUD", "AICN_set_pref_aud_lang(0) AICN_set_sec_pref_aud_lang(0)! " + stored, ""},

      {"PC NUMDIM", region + "AIPC_num_of_dimension(7002,3,*)!", R"({"num_dim":200})"},
      {R"(PC NUMDIM "region":258)", region + "AIPC_num_of_dimension(7002,2,*)!",
       R"({"num_dim":200})"},
      {R"(PC DIMNAME "rat_dim":6)", region + "AIPC_dimension_name_grad(7002,3,6,512,*,*)!",
       R"({"dim_lvl":200,"dim_name":"Name","grad":true})"},
      {"PC RETREIVERATING", region + "AIPC_retreive_rating(3)!", nullptr},
      {R"(PC RETREIVERATING "region":4000000000)", region + "AIPC_retreive_rating(4000000000)!",
       nullptr},
      {R"(PC STORERATING "us":{},"can":{},"dwn":[])", rating + "AIPC_store_rating(3)!", ""},
      {R"(PC ENCODE "us":{},"can":{},"dwn":[],"rat_dim":257,"val":-1,"block":true)",
       rating + "AIPC_rating_encode(1,255,1)!", nullptr},
      {R"(PC ENCODEDRRT "us":{},"can":{},"dwn":[],"rat_dim":1,"val":2,"block":false)",
       rating + "AIPC_drrt_rating_encode(1,2,0)!", nullptr},
      {"PC GETPRTDETAIL", "AIPC_get_parental_details(*)!",
       R"({"pc_enable":1,"pc_rated":9,"preset_mode":-5,"reg_val":8,"region":7})"},
      {R"(PC SETPRTDETAIL "region":1,"pc_enable":256)",
       "AIPC_get_parental_details(*)! AIPC_set_parental_details(-5,1,8,9,0)!", ""},
      {R"(PC SETPRTDETAIL "preset_mode":6,"reg_val":7,"pc_rated":0)",
       "AIPC_get_parental_details(*)! AIPC_set_parental_details(6,7,7,0,1)!", ""},
      {"PC GETREGION", input + "AIPC_get_RRT_regions(7002,255,*)!",
       R"({"reg_lst":[1,200],"regions":2})"},
      {"PC GETRRTDETAIL", region + "AIPC_get_RRT_details_with_version(7002,3,512,*)!",
       R"({"reg_name":"Name","region":300,"version":31})"},
      {R"(PC GETRRTDETAIL "region":-1)",
       region + "AIPC_get_RRT_details_with_version(7002,255,512,*)!",
       R"({"reg_name":"Name","region":300,"version":31})"},
      {R"(PC GETVALTXT "rat_dim":1,"val":2)",
       region + "AIPC_get_rating_value_text(7002,3,1,2,512,512)!",
       R"({"abbr_rat_val_txt":"F","rat_val_txt":"Full","region":3})"},
      {R"(PC SETUNRATEDGRP "unrat_grp":-2,"block":true)",
       "AIPC_set_rating_status_unrated_groups(1,-2)!", ""},
      {R"(PC GETUNRATEDGRP "unrat_grp":2)", "AIPC_get_rating_status_unrated_groups(0,2)!",
       R"({"block":true})"},
      {"PC RESET", "AIPC_reset_user_ratings()!", ""},
      {"PC DEFAULTSETTING", "AIPC_set_default_settings()!", ""},
      {"PC STOREALL", "AIPC_store_all()! AIUP_store_all()! AIUP_sync()!", ""},
      {R"(PC SETCURRREG "region":-7)", "AIFW_set_curr_region(-7)!", ""},
      {"PC GETCURRREG", "AIFW_get_curr_region(*)!", R"({"region":3})"},
      {"PC COLLECTRRT", "AIPC_collect_RRT()!", ""},

      {R"(PC EASUSERSETTING "op":"set","setting":3)", "AIFW_user_eas_setting(3,1)!", ""},
      {R"(EAS EASUSERSETTING "op":"GET")", "AIFW_user_eas_setting(0,0)", R"({"setting":1})"},
      {R"(EAS EASUSERSETTING "op":{})", "AIFW_user_eas_setting(0,0)", R"({"setting":1})"},
      {R"(EAS DISABLEOPTEASCHK "op":"set","status":true)",
       "AIFW_disable_optional_eas_event_id_check(1,1)!", ""},
      {R"(PC DISABLEOPTEASCHK "op":"SET","status":false)",
       "AIFW_disable_optional_eas_event_id_check(0,0)", R"({"status":true})"},
      {R"(PC CABLEEASONLY "op":"set","status":false)", "AIFW_enable_eas_cable_only(0,1)!", ""},
      {R"(EAS CABLEEASONLY "op":"")", "AIFW_enable_eas_cable_only(0,0)", R"({"status":true})"},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.request);
    Lines calls;
    std::string marks;
    std::istringstream words(expected.calls);
    for (std::string call; words >> call;) {
      marks += call.back();
      if (call.back() != ')') call.pop_back();
      calls.push_back(call);
    }
    restart();
    const Answer answer = ask(expected.request);
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(calls, fake::calls());
    EXPECT_EQ(Lines{}, logsOf("Error"));
    if (expected.reply != nullptr) {
      EXPECT_EQ(expected.reply, plain(answer.text));
    } else {
      EXPECT_EQ(64u, json(answer.text)["dwn"].size());
    }
    EXPECT_TRUE(answer.text.empty() || fake::logged("Debug", "result: " + answer.text));

    for (size_t i = 0; i < calls.size(); ++i) {
      if (marks[i] == '~') continue;
      const std::string function = calls[i].substr(0, calls[i].find('('));
      SCOPED_TRACE(function + " fails");
      restart();
      fake::setResult(function, 5);
      const Answer failed = ask(expected.request);
      EXPECT_EQ(marks[i] == ')' ? 0 : -1, failed.result);
      EXPECT_TRUE(marks[i] == ')' || failed.text.empty());
      const auto end = marks[i] == '!' ? calls.begin() + static_cast<long>(i) + 1 : calls.end();
      EXPECT_EQ(Lines(calls.begin(), end), fake::calls());
      // Functions whose failure has a text of its own.
      const bool named = function.rfind("AIFW_get_curr", 0) != 0 &&
                         function != "AIIN_get_input_details" &&
                         function != "AIPC_get_parental_details";
      const std::string call = named ? "call " + function + "() -> 0x" : "";
      EXPECT_NE("", fake::logLine("Failed to " + call));
    }
  }
}

TEST_F(CallsTest, FailuresHaveTheirOwnTexts) {
  const std::string rating = R"("us":{},"can":{},"dwn":[])";
  const struct {
    std::string request;
    const char* failing;  // function of the middleware, "" for none
    const char* text;
    size_t calls;
  } cases[] = {
      {"CN SETPREAUD", "AIUP_sync", "Failed to call AIUP_sync() -> 0xffffffff", 4},
      {"PC NUMDIM", "AIFW_get_curr_region", "Failed to get current region", 1},
      {"PC NUMDIM", "AIFW_get_curr_region", "Failed to get current ATSC Settings", 1},
      {"PC NUMDIM", "AIIN_get_input_details", "Failed to get input details (2)", 3},
      {"PC GETRRTDETAIL", "AIFW_get_curr_region", "Failed to get current ATSC settings", 1},
      {R"(PC GETVALTXT "rat_dim":1,"val":1)", "AIFW_get_curr_region",
       "Failed to get current ATSC settings", 1},
      {"PC DIMNAME", "", "Can not find rating dimension", 0},
      {R"(PC GETVALTXT "val":1)", "", "Can not find dimension", 0},
      {R"(PC GETVALTXT "rat_dim":1)", "", "Can not find rating value", 0},
      {"PC ENCODE " + rating, "", "Can not find rating dimension", 4},
      {"PC ENCODE " + rating + R"(,"rat_dim":1)", "", "Can not find rating value", 4},
      {"PC ENCODEDRRT " + rating + R"(,"rat_dim":1,"val":1)", "", "Can not find block setting", 4},
      {"PC ENCODE " + rating, "AIPC_retreive_rating", "Failed to convert Json value to AIPC_dim_t",
       4},
      {"PC STORERATING", "", "Can not find us setting in Json command", 4},
      {R"(PC STORERATING "us":{})", "", "Can not find can setting in Json command", 4},
      {R"(PC STORERATING "us":{},"can":{})", "", "Can not find dwn setting in Json command", 4},
      {"PC SETPRTDETAIL", "AIPC_get_parental_details", "Failed to get parental_details", 1},
      {R"(PC SETUNRATEDGRP "block":true)", "", "Can not find unrated group", 0},
      {R"(PC SETUNRATEDGRP "unrat_grp":1)", "", "Can not find block setting", 0},
      {"PC GETUNRATEDGRP", "", "Can not find unrated group", 0},
      {"PC STOREALL", "AIUP_sync", "Failed to call AIUP_sync() -> 0xffffffff", 3},
      {"PC SETCURRREG", "", "Can not find rating dimension", 0},
      {"PC GETCURRREG", "AIFW_get_curr_region",
       "Failed to call AIPC_get_rating_status_unrated_groups() -> 0x00000005", 1},
      {R"(PC CHECKRAT "system":[],"rating":"TV-14")", "", "Can not find rating system", 0},
      {R"(PC CHECKRAT "system":"USA-TV")", "", "Can not find rating string", 0},
      {R"(PC PWDUNLOCK "lock_status":"0")", "", "Can not find lock status", 0},
      {"EAS EASUSERSETTING", "", "Can not find operation", 0},
      {R"(EAS EASUSERSETTING "op":"set")", "", "Can not find setting", 0},
      {R"(EAS DISABLEOPTEASCHK "op":"set")", "", "Can not find status", 0},
      // Members of the wrong type or range.
      {R"(FW POWERDOWN "powerdown":[1])", "", "command refused", 0},
      {R"(FW CHANNELMODIFY "major":7,"minor":1,"type":"fav","group":-1)", "", "command refused", 0},
      {R"(FW CHANNELADD "freq":1e10)", "", "command refused", 0},
      {R"(SRV RESET "src":[])", "", "command refused", 0},
      {R"(AUD CHANGE "index":-1)", "", "command refused", 0},
      {R"(CN SETPREAUD "second":{})", "", "command refused", 0},
      {R"(PC STORERATING "us":{},"can":{},"dwn":[[{}]])", "", "command refused", 4},
      {R"(PC SETPRTDETAIL "region":"x")", "", "command refused", 1},
      {R"(PC SETUNRATEDGRP "unrat_grp":1e12,"block":true)", "", "command refused", 0},
      {R"(EAS CABLEEASONLY "op":"set","status":[])", "", "command refused", 0},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.request + " " + expected.failing);
    restart();
    fake::setResult(expected.failing, 5);
    const Answer answer = ask(expected.request);
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ("", answer.text);
    EXPECT_EQ(expected.calls, fake::calls().size());
    EXPECT_THAT(fake::logLine(expected.text), HasSubstr(std::string(expected.text) + ": "));
  }
  // Failures after which a command goes on.
  const struct {
    std::string request;
    const char *failing, *calls, *reply;
  } others[] = {
      {"PC STORERATING " + rating, "AIFW_get_curr_region",
       "AIFW_get_curr_region(*) AIPC_store_rating(0)", ""},
      {"PC STORERATING " + rating, "AIIN_get_input_details",
       "AIFW_get_curr_region(*) AICN_get_curr_input_source() AIIN_get_input_details(2,0,*,0) "
       "AIPC_store_rating(0)",
       ""},
      {R"(EAS EASUSERSETTING "op":"get")", "AIFW_user_eas_setting", "AIFW_user_eas_setting(0,0)",
       R"({"setting":0})"},
      {R"(EAS DISABLEOPTEASCHK "op":"get")", "AIFW_disable_optional_eas_event_id_check",
       "AIFW_disable_optional_eas_event_id_check(0,0)", R"({"status":false})"},
  };
  for (const auto& expected : others) {
    SCOPED_TRACE(expected.request + " " + expected.failing);
    restart();
    fake::setResult(expected.failing, 5);
    const Answer answer = ask(expected.request);
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(expected.reply, plain(answer.text));
    EXPECT_EQ(expected.calls, joined(fake::calls()));
    EXPECT_NE("", fake::logLine("Failed to "));
  }
  parental_.alertSetting = 2;  // only 1 is true
  restart();
  EXPECT_EQ(R"({"status":false})", plain(ask(R"(EAS CABLEEASONLY "op":"get")").text));
  fake::state()->currentInput = 0;
  EXPECT_EQ(-1, ask("PC GETREGION").result);
  EXPECT_THAT(fake::logLine("is not ATSC"),
              HasSubstr("Current input is not ATSC: bool atsc::GetCurrentATSCSetting("));
  EXPECT_THAT(fake::logLine("ATSC Settings"),
              HasSubstr("[PC_GetRRTRegions()][atsc_server_service_interface_pc.cpp:"));
}

}  // namespace
