// The commands: their calls of the middleware, their replies and their failures.
#include <gmock/gmock.h>

#include "atsc_service_event.h"
#include "fixture.h"

namespace {

using ::testing::HasSubstr;

class CallsTest : public LibraryTest {
 protected:
  void restart() const {
    LibraryTest::restart();
    const auto state = fake::state();
    fake::Parental& parental = state->parental;
    parental.region = 3;
    parental.details = {-5, 7, 8, 9, 1, 0};
    parental.regions = {1, 200};
    parental.tableRegion = 300;
    parental.name = {fake::utf16("Name"), AI_TEXT_UTF16BE, 0};
    parental.text = {"Full", 0, 0};
    parental.abbreviation = {fake::utf16("F"), AI_TEXT_UTF16BE, 0};
    parental.version = 31;
    parental.count = 200;
    parental.graduated = parental.groupStatus = parental.alertSetting = 1;
    state->language = AICN_LANGUAGE_SPANISH;
    state->secondLanguage = AICN_LANGUAGE_FRENCH;
    state->timeDate = {2016, 4, 8, 13, 5, 9, {}};
    state->captions.count = 255;  // only 16 exist
    for (const int i : {0, 1, 2}) state->captions.services[i].service_id = 1;
    state->captions.services[0].input_type = 1;
    state->captions.services[0].aspect_ratio = 5;
    state->captions.services[1].aspect_ratio = -7;
    state->captions.services[15].service_id = 16;
    state->captions.services[15].aspect_ratio = 9;
  }
};

// Behind a call: "!" when its failure ends the command, "-" when its failure is the command's but
// the other calls are made, "~" when it has no failure or one that another test has.
// A command, its calls, its reply ("-1" before it when it fails) and a function of the middleware
// that fails.
TEST_F(CallsTest, CallsRepliesAndFailures) {
  const std::pair<const char*, const char*> shared[] = {
      {"$air", "$synchronised(2,4103,*,0,*)~ AISRV_get_n_services(2,4103,$list"},
      {"$cable", "$synchronised(3,4103,*,0,*)~ AISRV_get_n_services(3,4103,$list"},
      {"$synchronised", "AIST_get_cur_time_secs(*) AISRV_get_total_services"},
      {"$list", "0,*,0,0,*,null)~ AISRV_sync_to_database()"},
      // Without a region, a rating document is changed and used as it was passed.
      {"$document", "$region~ $source~ $input~ AIPC_retreive_rating(3)!"},
      {"$settings", "$region! $source~ $input!"},
      {"$region", "AIFW_get_curr_region(*)"},
      {"$source", "AICN_get_curr_input_source()"},
      {"$input", "AIIN_get_input_details(2,0,*,0)"},
      {"$stop", "AIFE_tune_stop_request(1,524289)"},
      {"$second", "AICN_set_sec_pref_aud_lang"},
      {"$languages", "AICN_get_pref_aud_lang(*)~ AICN_get_sec_pref_aud_lang(*)~"},
      {"$captions", "AICN_get_current(*)~ AICC_get_cc_service_data(0,*,*)~"},
      {"$stored", "AIUP_store_all()! AIUP_sync()-"},
      {"$track", "AICN_get_current(*) AIIN_get_db_no_input_details(2,*)"},
      {"$details", "AIPC_get_parental_details(*)"},
      {"$table", "AIPC_get_RRT_details_with_version"},
      {"$check", "AIFW_disable_optional_eas_event_id_check"},
      {"$noservice", R"("chn_name":"","fav_group":0,"freq":0,"major":0,"minor":0,"source_id":0,)"
                     R"("srv_flag":0)"},
      {"$none", R"("us":{},"can":{},"dwn":[])"},
  };
  _ATSC_Service_db_createChannelDB();
  std::string commands = R"(
FW INIT | AIFW_init(0)- AIFW_register_frmwrk_app_cb(*)~
FW INIT | AIFW_init(0)~ AIFW_register_frmwrk_app_cb(*)~ | | AIFW_register_frmwrk_app_cb
FW POWERDOWN | AIFW_powerTransition_request(0)-
FW POWERDOWN "powerdown":true | AIFW_powerTransition_request(1)-
FW PLAYSRC "src":"QAM" | $stop AIFW_play_src(0,3)-
FW PLAYSRC | $stop AIFW_play_src(0,2)-
FW PLAY | AIFW_play_curr_src()-
FW STOP | $stop AICN_get_tuner_mode()~ AIFW_handle_tuner_mode_change(2) AIFW_stop_curr_src()-
FW CHANNELADD "major":9 | AIFW_modify_service(6,*)- $air
FW RELOADDB | RMGRReload() $air $cable
SRV GETCUR | AICN_get_current(*)~ | $noservice,"srv_rec":65535 | AICN_get_current
OS SEMLIST | OSAL_display_sem_details_()~
SRV RESET "src":"VSB" | AISRV_reset_db(2)- $air
SRV RESET | AISRV_reset_db(3)- $cable
TEST GETSERVICE | $air
TEST GETSERVICE "input":"AIR" | $cable
TEST GETSERVICE "input":[] | $air
MSC LOGCTL "para":{}
VC CLOSE | AIVC_close_video(0)
AUD SETDUAL | AIAUD_set_dual_mode(0)-
AUD SETDUAL "mode":"LEFT" | AIAUD_set_dual_mode(1)-
AUD SETDUAL "mode":"RIGHT" | AIAUD_set_dual_mode(2)-
AUD SETDUAL "mode":"MIXED" | AIAUD_set_dual_mode(3)-
AUD CHANGE "index":2 | AIFW_change_audio(3)! $track
AUD CHANGE "index":255 | AIFW_change_audio(0)! $track
TIME SETMODE "mode":"AUTO" | AIST_manual_mode_enable(0)
TIME SETMODE "mode":{} | AIST_manual_mode_enable(1)
TIME SETTIMEZONE "zone":"PDT"
CN SETPREAUD "first":"spa","second":"fre" | AICN_set_pref_aud_lang(2) $second(1)! $stored
CN SETPREAUD "first":"spa","second":"?" | AICN_set_pref_aud_lang(2) $second(2)! $stored
CN SETPREAUD | AICN_set_pref_aud_lang(0) $second(0)! $stored
CN GETPREAUD | $languages | "first":"spa","second":"fre"
CN GETPREAUD | $languages | "first":"spa","second":"spa" | AICN_get_sec_pref_aud_lang
CN GETPREAUD | $languages | "first":"","second":"fre" | AICN_get_pref_aud_lang
CN GETCURSRC | $source~ | "src":"VSB"
TIME GETSETTING | AIST_get_system_time_info(*) | "mode":"MANUAL","offset":0,"time_zone":"SKST"
TIME GETCUR | AIST_get_cur_time_date(*) | "hour":13,"mday":8,"min":5,"month":4,"sec":9,"year":2016
CC get_sar "AiccServiceId":1 | $captions | "cc_aspect_ratio":-7
CC get_sar "AiccServiceId":1,"input_type":1 | $captions | "cc_aspect_ratio":5
CC get_sar "AiccServiceId":16 | $captions | "cc_aspect_ratio":9
CC get_sar "AiccServiceId":257 | $captions | -1 "cc_aspect_ratio":1
CC get_sar "AiccServiceId":{},"input_type":-1 | $captions | "cc_aspect_ratio":0
CC get_sar "AiccServiceId":1 | $captions | -1 "cc_aspect_ratio":1 | AICC_get_cc_service_data
PC NUMDIM | $settings AIPC_num_of_dimension(7002,3,*)! | "num_dim":200
PC NUMDIM "region":258 | $settings AIPC_num_of_dimension(7002,2,*)! | "num_dim":200
PC DIMNAME "rat_dim":6 | $settings AIPC_dimension_name_grad(7002,3,6,512,*,*)!
  | "dim_lvl":200,"dim_name":"Name","grad":true
PC RETREIVERATING | $settings AIPC_retreive_rating(3)! | ...
PC RETREIVERATING "region":4000000000 | $settings AIPC_retreive_rating(4000000000)! | ...
PC STORERATING $none | $document AIPC_store_rating(3)!
PC STORERATING $none | $region~ AIPC_store_rating(0)~ | | AIFW_get_curr_region
PC STORERATING $none | $region~ $source~ $input~ AIPC_store_rating(0)~ | | AIIN_get_input_details
PC ENCODE $none,"rat_dim":257,"val":-1,"block":true | $document AIPC_rating_encode(1,255,1)! | ...
PC ENCODEDRRT $none,"rat_dim":1,"val":2,"block":false
  | $document AIPC_drrt_rating_encode(1,2,0)! | ...
PC GETPRTDETAIL | $details! | "pc_enable":1,"pc_rated":9,"preset_mode":-5,"reg_val":8,"region":7
PC SETPRTDETAIL "region":1,"pc_enable":256 | $details! AIPC_set_parental_details(-5,1,8,9,0)!
PC SETPRTDETAIL "preset_mode":6,"reg_val":7,"pc_rated":0
  | $details! AIPC_set_parental_details(6,7,7,0,1)!
PC GETREGION | $source~ $input! AIPC_get_RRT_regions(7002,255,*)! | "reg_lst":[1,200],"regions":2
PC GETRRTDETAIL | $settings $table(7002,3,512,*)! | "reg_name":"Name","region":300,"version":31
PC GETRRTDETAIL "region":-1 | $settings $table(7002,255,512,*)!
  | "reg_name":"Name","region":300,"version":31
PC GETVALTXT "rat_dim":1,"val":2 | $settings AIPC_get_rating_value_text(7002,3,1,2,512,512)!
  | "abbr_rat_val_txt":"F","rat_val_txt":"Full","region":3
PC SETUNRATEDGRP "unrat_grp":-2,"block":true | AIPC_set_rating_status_unrated_groups(1,-2)!
PC GETUNRATEDGRP "unrat_grp":2 | AIPC_get_rating_status_unrated_groups(0,2)! | "block":true
PC RESET | AIPC_reset_user_ratings()!
PC DEFAULTSETTING | AIPC_set_default_settings()!
PC STOREALL | AIPC_store_all()! AIUP_store_all()! AIUP_sync()!
PC SETCURRREG "region":-7 | AIFW_set_curr_region(-7)!
PC GETCURRREG | $region! | "region":3
PC COLLECTRRT | AIPC_collect_RRT()!
PC EASUSERSETTING "op":"set","setting":3 | AIFW_user_eas_setting(3,1)!
EAS EASUSERSETTING "op":{} | AIFW_user_eas_setting(0,0) | "setting":1
EAS EASUSERSETTING "op":"get" | AIFW_user_eas_setting(0,0)~ | "setting":1 | AIFW_user_eas_setting
EAS DISABLEOPTEASCHK "op":"set","status":true | $check(1,1)!
PC DISABLEOPTEASCHK "op":"SET","status":false | $check(0,0) | "status":true
EAS DISABLEOPTEASCHK "op":"get" | $check(0,0)~ | "status":false | $check
PC CABLEEASONLY "op":"set","status":false | AIFW_enable_eas_cable_only(0,1)!
EAS CABLEEASONLY "op":"" | AIFW_enable_eas_cable_only(0,0) | "status":true
)";
  for (const auto& [name, text] : shared) {
    commands = std::regex_replace(commands, std::regex('\\' + std::string(name) + "\\b"), text);
  }
  for (const Lines& row : tableOf(commands, 4)) {
    const std::string& request = row[0];
    const std::string& failing = row[3];
    SCOPED_TRACE(request + ' ' + failing);
    Lines calls;
    std::string marks;
    std::istringstream words(row[1]);
    for (std::string call; words >> call;) {
      marks += call.back();
      if (call.back() != ')') call.pop_back();
      calls.push_back(call);
    }
    restart();
    fake::setResult(failing, 5);
    const Answer answer = ask(request);
    const bool fails = row[2].rfind("-1 ", 0) == 0;
    const std::string reply = row[2].substr(fails ? 3 : 0);
    EXPECT_EQ(fails ? -1 : 0, answer.result);
    EXPECT_EQ(calls, fake::calls());
    EXPECT_EQ(failing.empty(), logsOf("Error").empty());
    if (reply != "...") {
      EXPECT_EQ(reply.empty() ? "" : '{' + reply + '}', plain(answer.text));
    } else {
      EXPECT_EQ(64u, json(answer.text)["dwn"].size());
    }
    EXPECT_TRUE(answer.text.empty() || fake::logged("Debug", "result: " + answer.text) ||
                fake::logged("Info", "result: " + answer.text));

    for (size_t i = 0; i < calls.size(); ++i) {
      if (marks[i] == '~') continue;
      const std::string function = calls[i].substr(0, calls[i].find('('));
      SCOPED_TRACE(function + " fails");
      restart();
      fake::setResult(function, 5);
      const Answer failed = ask(request);
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
  // A command, the number of its calls, its text and a function of the middleware that fails.
  const std::string commands = R"(
CN SETPREAUD | 4 | Failed to call AIUP_sync() -> 0xffffffff | AIUP_sync
PC NUMDIM | 1 | Failed to get current region | AIFW_get_curr_region
PC NUMDIM | 1 | Failed to get current ATSC Settings | AIFW_get_curr_region
PC NUMDIM | 3 | Failed to get input details (2) | AIIN_get_input_details
PC GETRRTDETAIL | 1 | Failed to get current ATSC settings | AIFW_get_curr_region
PC DIMNAME | 0 | Can not find rating dimension
PC GETVALTXT "val":1 | 0 | Can not find dimension
PC GETVALTXT "rat_dim":1 | 0 | Can not find rating value
PC ENCODE "us":{},"can":{},"dwn":[] | 4 | Can not find rating dimension
PC ENCODE "us":{},"can":{},"dwn":[],"rat_dim":1 | 4 | Can not find rating value
PC ENCODE "us":{},"can":{},"dwn":[],"rat_dim":1,"val":1 | 4 | Can not find block setting
PC ENCODE | 4 | Failed to convert Json value to AIPC_dim_t | AIPC_retreive_rating
PC STORERATING | 4 | Can not find us setting in Json command
PC STORERATING "us":{} | 4 | Can not find can setting in Json command
PC STORERATING "us":{},"can":{} | 4 | Can not find dwn setting in Json command
PC SETPRTDETAIL | 1 | Failed to get parental_details | AIPC_get_parental_details
PC SETUNRATEDGRP "block":true | 0 | Can not find unrated group
PC SETUNRATEDGRP "unrat_grp":1 | 0 | Can not find block setting
PC GETUNRATEDGRP | 0 | Can not find unrated group
FW INIT | 2 | Failed to call AIFW_init() -> 0x00000005 | AIFW_init
PC STOREALL | 3 | Failed to call AIUP_sync() -> 0xffffffff | AIUP_sync
PC SETCURRREG | 0 | Can not find rating dimension
PC GETCURRREG | 1 | Failed to call AIPC_get_rating_status_unrated_groups() -> 0x00000005
  | AIFW_get_curr_region
PC CHECKRAT "system":[],"rating":"TV-14" | 0 | Can not find rating system
PC CHECKRAT "system":"USA-TV" | 0 | Can not find rating string
PC PWDUNLOCK "lock_status":"0" | 0 | Can not find lock status
EAS EASUSERSETTING | 0 | Can not find operation
EAS EASUSERSETTING "op":"set" | 0 | Can not find setting
EAS DISABLEOPTEASCHK "op":"set" | 0 | Can not find status
FW CHANNELMODIFY "major":7,"minor":1,"type":"fav","group":-1 | 0 | command refused
CN SETPREAUD "second":{} | 0 | command refused
PC STORERATING "us":{},"can":{},"dwn":[[{}]] | 4 | command refused
)";
  for (const Lines& row : tableOf(commands, 4)) {
    SCOPED_TRACE(row[0] + ' ' + row[3]);
    restart();
    fake::setResult(row[3], 5);
    const Answer answer = ask(row[0]);
    EXPECT_EQ(-1, answer.result);
    EXPECT_EQ("", answer.text);
    EXPECT_EQ(row[1], std::to_string(fake::calls().size()));
    EXPECT_THAT(fake::logLine(row[2]), HasSubstr(row[2] + ": "));
  }
  fake::state()->parental.alertSetting = 2;  // only 1 is true
  EXPECT_EQ(R"({"status":false})", plain(ask(R"(EAS CABLEEASONLY "op":"get")").text));
  ask(R"(CC get_sar "AiccServiceId":1)");
  EXPECT_TRUE(fake::logged("Debug", "hit\n"));
  EXPECT_TRUE(fake::logged("Debug", "cc_aspect_ratio = -7"));
  fake::setResult("AIFW_register_frmwrk_app_cb", 1);
  ask("FW INIT");
  EXPECT_TRUE(fake::logged("Error", "AIFW_register_frmwrk_app_cb()\n"));
  EXPECT_EQ(&ATSC_Service_event_cb, fake::state()->eventCallback);
  fake::state()->language = 3;
  EXPECT_EQ(R"({"first":"","second":"fre"})", plain(ask("CN GETPREAUD").text));
  for (const auto& [input, name, line] :
       {std::tuple{2, "VSB", "ATSC_INPUT"}, std::tuple{3, "QAM", "CABLE_INPUT"},
        std::tuple{0, "ERROR", "current input(0)"}}) {
    fake::state()->currentInput = input;
    EXPECT_EQ(name, json(ask("CN GETCURSRC").text)["src"].asString());
    EXPECT_TRUE(fake::logged("Debug", line));
  }
  EXPECT_EQ(-1, ask("PC GETREGION").result);
  EXPECT_THAT(fake::logLine("is not ATSC"),
              HasSubstr("Current input is not ATSC: bool atsc::GetCurrentATSCSetting("));
  EXPECT_THAT(fake::logLine("ATSC Settings"),
              HasSubstr("[PC_GetRRTRegions()][atsc_server_service_interface_pc.cpp:"));
}

}  // namespace
