// Parental control and emergency alert settings: the calls of the middleware and the replies of the
// commands.
#include <gmock/gmock.h>

#include "fixture.h"
#include "service/server/atsc_server_service_rating.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ParentalTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    fake::reset();
    fake::setParental(parental_);
  }

  // Resets the test with the current `parental_`.
  void restart() {
    fake::reset();
    fake::setParental(parental_);
    fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), source_);
  }

  static std::string document(const std::string& us, const std::string& can,
                              const std::string& dwn) {
    return "\"us\":" + us + ",\"can\":" + can + ",\"dwn\":" + dwn;
  }

  // Returns the reply without blanks.
  static std::string plain(const std::string& text) {
    if (text.empty()) return "";
    std::string line = Json::FastWriter().write(json(text));
    line.pop_back();
    return line;
  }

  fake::Parental parental_;
  int source_ = AI_INPUT_TERRESTRIAL;
};

// All commands with their calls and replies. Each call fails once; after a failure that decides the
// result, the remaining calls are not made.
TEST_F(ParentalTest, CallsRepliesAndFailures) {
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

  const Lines region = {"AIFW_get_curr_region(*)", "AICN_get_curr_input_source()",
                        "AIIN_get_input_details(2,0,*,0)"};
  const auto with = [&](const std::string& call) {
    Lines calls = region;
    calls.push_back(call);
    return calls;
  };
  const std::string doc = document("{}", "{}", "[]");
  const struct {
    const char* name;
    std::string members;
    Lines calls;
    const char* reply;  // null: any reply
  } cases[] = {
      {"PC NUMDIM", "", with("AIPC_num_of_dimension(7002,3,*)"), "{\"num_dim\":200}"},
      {"PC NUMDIM", "\"region\":258", with("AIPC_num_of_dimension(7002,2,*)"), "{\"num_dim\":200}"},
      {"PC DIMNAME", "\"rat_dim\":6", with("AIPC_dimension_name_grad(7002,3,6,512,*,*)"),
       "{\"dim_lvl\":200,\"dim_name\":\"Name\",\"grad\":true}"},
      {"PC RETREIVERATING", "", with("AIPC_retreive_rating(3)"), nullptr},
      {"PC RETREIVERATING", "\"region\":4000000000", with("AIPC_retreive_rating(4000000000)"),
       nullptr},
      {"PC STORERATING", doc, with("AIPC_retreive_rating(3)") + Lines{"AIPC_store_rating(3)"}, ""},
      {"PC ENCODE", doc + ",\"rat_dim\":257,\"val\":-1,\"block\":true",
       with("AIPC_retreive_rating(3)") + Lines{"AIPC_rating_encode(1,255,1)"}, nullptr},
      {"PC ENCODEDRRT", doc + ",\"rat_dim\":1,\"val\":2,\"block\":false",
       with("AIPC_retreive_rating(3)") + Lines{"AIPC_drrt_rating_encode(1,2,0)"}, nullptr},
      {"PC GETPRTDETAIL",
       "",
       {"AIPC_get_parental_details(*)"},
       "{\"pc_enable\":1,\"pc_rated\":9,\"preset_mode\":-5,\"reg_val\":8,\"region\":7}"},
      {"PC SETPRTDETAIL",
       "\"region\":1,\"pc_enable\":256",
       {"AIPC_get_parental_details(*)", "AIPC_set_parental_details(-5,1,8,9,0)"},
       ""},
      {"PC SETPRTDETAIL",
       "\"preset_mode\":6,\"reg_val\":7,\"pc_rated\":0",
       {"AIPC_get_parental_details(*)", "AIPC_set_parental_details(6,7,7,0,1)"},
       ""},
      {"PC GETREGION",
       "",
       {"AICN_get_curr_input_source()", "AIIN_get_input_details(2,0,*,0)",
        "AIPC_get_RRT_regions(7002,255,*)"},
       "{\"reg_lst\":[1,200],\"regions\":2}"},
      {"PC GETRRTDETAIL", "", with("AIPC_get_RRT_details_with_version(7002,3,512,*)"),
       "{\"reg_name\":\"Name\",\"region\":300,\"version\":31}"},
      {"PC GETRRTDETAIL", "\"region\":-1",
       with("AIPC_get_RRT_details_with_version(7002,255,512,*)"),
       "{\"reg_name\":\"Name\",\"region\":300,\"version\":31}"},
      {"PC GETVALTXT", "\"rat_dim\":1,\"val\":2",
       with("AIPC_get_rating_value_text(7002,3,1,2,512,512)"),
       "{\"abbr_rat_val_txt\":\"F\",\"rat_val_txt\":\"Full\",\"region\":3}"},
      {"PC SETUNRATEDGRP",
       "\"unrat_grp\":-2,\"block\":true",
       {"AIPC_set_rating_status_unrated_groups(1,-2)"},
       ""},
      {"PC GETUNRATEDGRP",
       "\"unrat_grp\":2",
       {"AIPC_get_rating_status_unrated_groups(0,2)"},
       "{\"block\":true}"},
      {"PC RESET", "", {"AIPC_reset_user_ratings()"}, ""},
      {"PC DEFAULTSETTING", "", {"AIPC_set_default_settings()"}, ""},
      {"PC STOREALL", "", {"AIPC_store_all()", "AIUP_store_all()", "AIUP_sync()"}, ""},
      {"PC SETCURRREG", "\"region\":-7", {"AIFW_set_curr_region(-7)"}, ""},
      {"PC GETCURRREG", "", {"AIFW_get_curr_region(*)"}, "{\"region\":3}"},
      {"PC COLLECTRRT", "", {"AIPC_collect_RRT()"}, ""},
      {"PC EASUSERSETTING", "\"op\":\"set\",\"setting\":3", {"AIFW_user_eas_setting(3,1)"}, ""},
      {"EAS DISABLEOPTEASCHK",
       "\"op\":\"set\",\"status\":true",
       {"AIFW_disable_optional_eas_event_id_check(1,1)"},
       ""},
      {"EAS CABLEEASONLY",
       "\"op\":\"set\",\"status\":false",
       {"AIFW_enable_eas_cable_only(0,1)"},
       ""},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(command(expected.name, expected.members));
    restart();
    const Answer answer = ask(expected.name, expected.members);
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(expected.calls, fake::calls());
    if (expected.reply != nullptr) {
      EXPECT_EQ(expected.reply, plain(answer.text));
    } else {
      EXPECT_EQ(64u, json(answer.text)["dwn"].size());
    }
    EXPECT_TRUE(answer.text.empty() || fake::logged("Debug", "result: " + answer.text));

    for (size_t i = 0; i < expected.calls.size(); ++i) {
      const std::string function = expected.calls[i].substr(0, expected.calls[i].find('('));
      if (function == "AICN_get_curr_input_source") continue;
      SCOPED_TRACE(function + " fails");
      restart();
      fake::setResult(function, 5);
      const Answer failed = ask(expected.name, expected.members);
      // Without a region, a rating document is changed and used as it was passed.
      const bool goesOn =
          i < region.size() && expected.members.find("\"dwn\"") != std::string::npos;
      EXPECT_EQ(goesOn ? 0 : -1, failed.result);
      EXPECT_EQ(goesOn && expected.reply == nullptr, !failed.text.empty());
      Lines made(expected.calls.begin(), expected.calls.begin() + static_cast<long>(i) + 1);
      if (goesOn) {
        const std::string& last = expected.calls.back();
        made.push_back(last == "AIPC_store_rating(3)" ? "AIPC_store_rating(0)" : last);
      }
      EXPECT_EQ(made, fake::calls());
      EXPECT_NE(Lines{}, fake::logs());
    }
  }
}

TEST_F(ParentalTest, FailuresHaveTheirOwnTexts) {
  const std::string doc = document("{}", "{}", "[]");
  const struct {
    const char* name;
    std::string members;
    const char* failing;
    const char* text;
    size_t calls;
  } cases[] = {
      {"PC NUMDIM", "", "AIPC_num_of_dimension",
       "Failed to call AIPC_num_of_dimension() -> 0x00000005", 4},
      {"PC NUMDIM", "", "AIFW_get_curr_region", "Failed to get current region", 1},
      {"PC NUMDIM", "", "AIFW_get_curr_region", "Failed to get current ATSC Settings", 1},
      {"PC NUMDIM", "", "AIIN_get_input_details", "Failed to get input details (2)", 3},
      {"PC GETRRTDETAIL", "", "AIFW_get_curr_region", "Failed to get current ATSC settings", 1},
      {"PC GETVALTXT", "\"rat_dim\":1,\"val\":1", "AIFW_get_curr_region",
       "Failed to get current ATSC settings", 1},
      {"PC DIMNAME", "", "", "Can not find rating dimension", 0},
      {"PC GETVALTXT", "\"val\":1", "", "Can not find dimension", 0},
      {"PC GETVALTXT", "\"rat_dim\":1", "", "Can not find rating value", 0},
      {"PC ENCODE", doc, "", "Can not find rating dimension", 4},
      {"PC ENCODE", doc + ",\"rat_dim\":1", "", "Can not find rating value", 4},
      {"PC ENCODEDRRT", doc + ",\"rat_dim\":1,\"val\":1", "", "Can not find block setting", 4},
      {"PC ENCODE", doc, "AIPC_retreive_rating", "Failed to convert Json value to AIPC_dim_t", 4},
      {"PC STORERATING", "", "", "Can not find us setting in Json command", 4},
      {"PC STORERATING", "\"us\":{}", "", "Can not find can setting in Json command", 4},
      {"PC STORERATING", "\"us\":{},\"can\":{}", "", "Can not find dwn setting in Json command", 4},
      {"PC STORERATING", doc, "AIFW_get_curr_region", "Failed to get current ATSC Settings", 2},
      {"PC SETPRTDETAIL", "", "AIPC_get_parental_details", "Failed to get parental_details", 1},
      {"PC SETUNRATEDGRP", "\"block\":true", "", "Can not find unrated group", 0},
      {"PC SETUNRATEDGRP", "\"unrat_grp\":1", "", "Can not find block setting", 0},
      {"PC GETUNRATEDGRP", "", "", "Can not find unrated group", 0},
      {"PC STOREALL", "", "AIPC_store_all", "Failed to call AIPC_store_all() -> 0xffffffff", 1},
      {"PC STOREALL", "", "AIUP_store_all", "Failed to call AIUP_store_all() -> 0xffffffff", 2},
      {"PC STOREALL", "", "AIUP_sync", "Failed to call AIUP_sync() -> 0xffffffff", 3},
      {"PC SETCURRREG", "", "", "Can not find rating dimension", 0},
      {"PC GETCURRREG", "", "AIFW_get_curr_region",
       "Failed to call AIPC_get_rating_status_unrated_groups() -> 0x00000005", 1},
      {"PC CHECKRAT", "\"rating\":\"TV-14\"", "", "Can not find rating system", 0},
      {"PC CHECKRAT", "\"system\":\"USA-TV\"", "", "Can not find rating string", 0},
      {"PC PWDUNLOCK", "", "", "Can not find lock status", 0},
      {"EAS EASUSERSETTING", "", "", "Can not find operation", 0},
      {"EAS EASUSERSETTING", "\"op\":\"set\"", "", "Can not find setting", 0},
      {"EAS DISABLEOPTEASCHK", "\"op\":\"set\"", "", "Can not find status", 0},
      {"PC CABLEEASONLY", "\"op\":\"set\"", "", "Can not find status", 0},
      {"PC CABLEEASONLY", "\"op\":\"set\",\"status\":true", "AIFW_enable_eas_cable_only",
       "Failed to call AIFW_enable_eas_cable_only() -> 0x00000005", 1},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(command(expected.name, expected.members) + " " + expected.failing);
    restart();
    fake::setResult(expected.failing, 5);
    // Without a known region, storing continues with an empty record.
    const bool decides = std::string(expected.members) != doc ||
                         std::string(expected.failing) != "AIFW_get_curr_region";
    const Answer answer = ask(expected.name, expected.members);
    EXPECT_EQ(decides ? -1 : 0, answer.result);
    EXPECT_EQ("", answer.text);
    EXPECT_EQ(expected.calls, fake::calls().size());
    const std::string line = fake::logLine(expected.text);
    EXPECT_THAT(line, HasSubstr(std::string(expected.text) + ": "));
  }
  source_ = 0;
  restart();
  EXPECT_EQ(-1, ask("PC GETREGION").result);
  EXPECT_THAT(fake::logLine("is not ATSC"),
              HasSubstr("Current input is not ATSC: bool atsc::GetCurrentATSCSetting("));
  EXPECT_THAT(fake::logLine("ATSC Settings"),
              HasSubstr("[PC_GetRRTRegions()][atsc_server_service_interface_pc.cpp:"));
}

TEST_F(ParentalTest, OfTheWrongTypeOrOutOfRangeCallsNothing) {
  const std::pair<const char*, const char*> cases[] = {
      {"PC NUMDIM", "\"region\":-1"},
      {"PC DIMNAME", "\"rat_dim\":[]"},
      {"PC STORERATING", "\"us\":5,\"can\":{},\"dwn\":[]"},
      {"PC STORERATING", "\"us\":{\"tv\":{}},\"can\":{},\"dwn\":[]"},
      {"PC STORERATING", "\"us\":{},\"can\":{},\"dwn\":{\"0\":1}"},
      {"PC STORERATING", "\"us\":{},\"can\":{},\"dwn\":[[{}]]"},
      {"PC SETPRTDETAIL", "\"region\":\"x\""},
      {"PC SETUNRATEDGRP", "\"unrat_grp\":1e12,\"block\":true"},
      {"PC SETCURRREG", "\"region\":[]"},
      {"EAS CABLEEASONLY", "\"op\":\"set\",\"status\":[]"},
  };
  for (const auto& [name, members] : cases) {
    SCOPED_TRACE(command(name, members));
    restart();
    EXPECT_EQ(-1, ask(name, members).result);
    EXPECT_THAT(callsOf({"AIPC_num", "AIPC_dim", "AIPC_s", "AIPC_check", "AIFW_set", "AIFW_enable",
                         "AIFW_user"}),
                IsEmpty());
    EXPECT_NE("", fake::logLine("command refused"));
  }
}

TEST_F(ParentalTest, RatingDocumentKeepsWhatItDoesNotName) {
  parental_.rating.us_tv = 1;
  parental_.rating.us_mpaa = 7;
  parental_.rating.canada_french = 9;
  parental_.rating.downloadable[0][0] = 10;
  parental_.rating.downloadable[1][1] = 11;
  parental_.rating.downloadable[63][14] = 12;
  restart();
  Json::Value first = json(ask("PC RETREIVERATING", "\"region\":5").text);
  EXPECT_EQ(5, first["region"].asInt());
  ASSERT_EQ(64u, first["dwn"].size());
  for (const Json::Value& row : first["dwn"]) EXPECT_EQ(15u, row.size());
  EXPECT_EQ(12, first["dwn"][63][14].asInt());

  EXPECT_EQ(0, ask("PC STORERATING",
                   "\"region\":5,\"us\":{\"dia\":2,\"lan\":3,\"sex\":4,\"vio\":5,"
                   "\"child\":6},\"can\":{\"eng\":-8},"
                   "\"dwn\":[[],[513],7,[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,99]]")
                   .result);
  EXPECT_THAT(callsOf({"AIPC"}), ElementsAre("AIPC_retreive_rating(5)", "AIPC_retreive_rating(5)",
                                             "AIPC_store_rating(5)"));
  const AIPC_dime_t stored = fake::storedRating();
  EXPECT_EQ(5u, stored.region);
  EXPECT_THAT((std::vector<int32_t>{stored.us_tv, stored.us_dialogue, stored.us_language,
                                    stored.us_sex, stored.us_violence, stored.us_children,
                                    stored.us_mpaa, stored.canada_english, stored.canada_french}),
              ElementsAre(1, 2, 3, 4, 5, 6, 7, -8, 9));
  EXPECT_EQ(10, stored.downloadable[0][0]);
  EXPECT_EQ(1, stored.downloadable[1][0]) << "the low byte";
  EXPECT_EQ(11, stored.downloadable[1][1]);
  EXPECT_EQ(14, stored.downloadable[3][14]);
  EXPECT_EQ(12, stored.downloadable[63][14]);
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[1][1] [1 is valid: T] in dwn_rat: bool"));
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[63][14] [63 is valid: F] in dwn_rat: bool"));

  // The reply of an encoder can be stored unchanged.
  const Json::Value encoded =
      json(ask("PC ENCODEDRRT",
               document("{}", "{}", "[]") + ",\"region\":5,\"rat_dim\":0,\"val\":0,\"block\":true")
               .text);
  EXPECT_EQ(41, encoded["dwn"][63][14].asInt());
  std::string text = Json::FastWriter().write(encoded);
  ask("PC STORERATING", text.substr(1, text.size() - 3));
  EXPECT_EQ(41, fake::storedRating().downloadable[63][14]);
  EXPECT_EQ(10, fake::storedRating().downloadable[0][0]);
}

TEST_F(ParentalTest, TextsOfTheMiddleware) {
  const std::string wide = fake::utf16(std::string(300, 'w'));
  const struct {
    fake::Text text;
    const char* converted;  // null: it cannot be converted
  } cases[] = {
      {{"", 0, 0}, ""},
      {{"plain", 5, 0}, "plain"},
      {{std::string(600, 'x'), 0, 65535}, "x*512"},
      {{wide, AI_TEXT_UTF16BE, 0}, "w*256"},
      {{wide, AI_TEXT_UTF16BE, 65534}, "w*256"},
      {{std::string("\x65\xE5\x00\x20\x67\x2C", 6), AI_TEXT_UTF16BE, 0}, "\u65E5 \u672C"},
      {{fake::utf16("odd"), AI_TEXT_UTF16BE, 5}, nullptr},
      {{wide, AI_TEXT_UTF16BE, 65535}, nullptr},
  };
  for (const auto& expected : cases) {
    parental_.name = parental_.text = expected.text;
    parental_.graduated = 2;
    restart();
    const Answer answer = ask("PC DIMNAME", "\"rat_dim\":0");
    const Answer value = ask("PC GETVALTXT", "\"rat_dim\":0,\"val\":0");
    if (expected.converted == nullptr) {
      EXPECT_EQ(-1, answer.result);
      EXPECT_NE("", fake::logLine("Failed to convert UTF16 to UTF8: bool atsc::Copy2UTF8("));
      EXPECT_NE("", fake::logLine("Failed to Copy2UTF8(): int"));
      EXPECT_NE("", fake::logLine("] rating_value is failed to Copy2UTF8(): int"));
      continue;
    }
    std::string converted = expected.converted;
    if (const size_t star = converted.find('*'); star != std::string::npos) {
      converted.assign(std::stoul(converted.substr(star + 1)), converted[0]);
    }
    EXPECT_EQ(converted, json(answer.text)["dim_name"].asString());
    EXPECT_FALSE(json(answer.text)["grad"].asBool()) << "only 1 is true";
    EXPECT_EQ(converted, json(value.text)["rat_val_txt"].asString());
  }
  // A text in a buffer of the middleware has the stated length.
  std::string own(600, 'x');
  const multiple_lang_t text{reinterpret_cast<uint8_t*>(&own[0]), 600, 0};
  std::vector<uint8_t> copy;
  EXPECT_TRUE(atsc::Copy2UTF8(copy, &text));
  EXPECT_EQ(own, reinterpret_cast<const char*>(copy.data()));

  parental_.text = {};
  parental_.abbreviation = {"xyz", AI_TEXT_UTF16BE, 0};
  restart();
  EXPECT_EQ(-1, ask("PC GETVALTXT", "\"rat_dim\":0,\"val\":0").result);
  EXPECT_NE("", fake::logLine("abbr_rating_value is failed to Copy2UTF8(): int"));

  parental_.regions.assign(255, 9);
  restart();
  EXPECT_EQ(255u, json(ask("PC GETREGION").text)["reg_lst"].size());
  parental_.regions.clear();
  restart();
  EXPECT_EQ("{\"reg_lst\":null,\"regions\":0}", plain(ask("PC GETREGION").text));
}

TEST_F(ParentalTest, WhatIsBlockedNow) {
  enum { kNoStatus = 99 };  // the status call fails
  const struct {
    int verdict;
    std::vector<uint8_t> advisories;
    uint32_t status;
    const char* reply;
    size_t calls;
  } cases[] = {
      {11, {}, 0, "{\"blocked\":true,\"status\":\"VIEWING_BLOCKED\"}", 2},
      {0, {1}, 1, "{\"blocked\":false,\"status\":\"VIEWING_ALLOWED\"}", 2},
      {14, {1}, 1, "{\"blocked\":false,\"status\":\"VIEWING_ALLOWED\"}", 2},
      {12, {}, 1, "{\"blocked\":false,\"status\":\"VIEWING_ALLOWED\"}", 3},
      {12, {1}, 1, "{\"blocked\":true,\"status\":\"VIEWING_BLOCKED\"}", 4},
      {12, {1}, 2, "{\"blocked\":false,\"status\":\"VIEWING_ALLOWED\"}", 4},
      {13, {}, 1, "{\"blocked\":true,\"status\":\"VIEWING_BLOCKED\"}", 4},
      {13, {}, 0, "{\"blocked\":false,\"status\":\"VIEWING_UNRATED\"}", 4},
      {13, {}, kNoStatus, "{\"blocked\":true,\"status\":\"VIEWING_BLOCKED\"}", 4},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.reply);
    parental_.verdict = expected.verdict;
    parental_.advisories = expected.advisories;
    parental_.ratingStatus = expected.status;
    restart();
    if (expected.status == kNoStatus) fake::setResult("AISRV_get_rating_status", 1);
    const Answer answer = ask("PC ISPCBLOCKED");
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(expected.reply, plain(answer.text));
    const Lines calls = {"AICN_get_current(*)", "AIEC_check_rating(7,1)",
                         "AISRV_get_CAD_list(7,8,*)", "AISRV_get_rating_status(7,1)"};
    EXPECT_EQ(Lines(calls.begin(), calls.begin() + static_cast<long>(expected.calls)),
              fake::calls());
  }
  fake::setResult("AISRV_get_CAD_list", 1);
  parental_.verdict = 12;
  fake::setParental(parental_);
  EXPECT_THAT(ask("PC ISPCBLOCKED").text, HasSubstr("VIEWING_ALLOWED"));
  fake::setResult("AICN_get_current", 1);
  EXPECT_THAT(ask("PC ISPCBLOCKED").text, HasSubstr("VIEWING_ALLOWED"));
  EXPECT_NE("", fake::logLine("Failed to get current service info.\n"));
}

TEST_F(ParentalTest, RatingTexts) {
  const std::string huge(100000, 'x');
  std::string bytes;
  for (int c = 1; c < 256; ++c) bytes += static_cast<char>(c);
  const std::string many(5000, ',');
  const struct {
    std::string rating;
    std::string text;  // up to its NUL
    const char* log;   // "" for none
  } cases[] = {
      {"TV-PG", "TV-PG", ""},
      {"D,TV-14,V", "TV-14-D-V", ""},
      {"V,S,TV-MA,L", "TV-MA-L-S-V", ""},
      {"TV-14,,V,", "TV-14---V", ""},
      {"TV-14,TV-PG", "TV-14-TV-PG", ""},
      {"TV-14, D", "TV-14- D", ""},
      {"PG-13", "", "Invalid USA TV rating string: PG-13"},
      {"tv-14", "", "Invalid USA TV rating string: tv-14"},
      {",", "", "Invalid USA TV rating string: ,"},
      {"TV-" + std::string(92, 'x'), "TV-" + std::string(92, 'x'), ""},
      {"TV-" + std::string(93, 'x'), "", "rating string buffer size is too small: 97 > 96"},
      {"TV-" + huge, "", "rating string buffer size is too small: 100004 > 96"},
      {"TV-14," + huge, "TV-14-", "rating string buffer size is too small: 100007 > 96"},
      {"TV-14,\xFF,A", "TV-14-\xFF-A", ""},
      {"TV-14," + bytes.substr(0, 43), "TV-14-" + bytes.substr(0, 43), ""},
      {"TV-14" + many, "TV-14" + std::string(5000, '-'), ""},
      {bytes + many + "TV-", "TV-" + std::string(5000, '-') + bytes.substr(0, 43) + "-",
       "rating string buffer size is too small: 5259 > 96"},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.rating.substr(0, 50));
    fake::reset();
    std::vector<uint8_t> buffer(std::max<size_t>(96, expected.rating.size()) + 2);
    atsc::ConvertUSATVRatingString(expected.rating, buffer.data(), 96);
    EXPECT_EQ(expected.text, reinterpret_cast<const char*>(buffer.data()));
    EXPECT_TRUE(*expected.log == '\0' || fake::logged("Error", expected.log));
  }
  for (const char* equal : {"", "V", "Va"}) EXPECT_FALSE(atsc::StringCompare("V", equal));
  EXPECT_TRUE(atsc::StringCompare("", ""));
  EXPECT_TRUE(atsc::StringCompare("\xFF", "A")) << "signed";
}

TEST_F(ParentalTest, ChecksOfARating) {
  const struct {
    const char* system;
    std::string rating;
    const char* call;  // "" for none
    std::string text;  // up to its NUL
  } cases[] = {
      {"USA-TV", "D,TV-14,V", "AIPC_check_rating(1,1,0)", "TV-14-D-V"},
      {"USA-TV", "PG", "AIPC_check_rating(1,1,0)", ""},
      {"USA-MPAA", "PG-13", "AIPC_check_rating(1,2,0)", "PG-13"},
      {"CAN-ENG", "14+", "AIPC_check_rating(2,3,0)", "14+"},
      {"CAN-FRA", "8 ans+", "AIPC_check_rating(2,4,0)", "8 ans+"},
      {"CAN-FRA", std::string(100000, 'y'), "AIPC_check_rating(2,4,0)", std::string(96, 'y')},
      {"usa-tv", "TV-14", "", ""},
      {"USA-TV", "", "", ""},
  };
  for (const auto& expected : cases) {
    for (const int verdict : {11, 12}) {
      parental_.verdict = verdict;
      restart();
      const Answer answer = ask("PC CHECKRAT", std::string("\"system\":\"") + expected.system +
                                                   "\",\"rating\":\"" + expected.rating + "\"");
      EXPECT_EQ(0, answer.result);
      const bool blocked = *expected.call != '\0' && verdict == 11;
      EXPECT_EQ(blocked ? "{\"blocked\":true}" : "{\"blocked\":false}", plain(answer.text));
      EXPECT_EQ(*expected.call == '\0' ? Lines{} : Lines{expected.call}, fake::calls());
      if (*expected.call == '\0') continue;
      EXPECT_EQ(96u, fake::checkedRating().size());
      EXPECT_EQ(expected.text, fake::checkedRating().substr(0, fake::checkedRating().find('\0')));
    }
  }
}

// Unlocking is only for the channel of the last channel change.
TEST_F(ParentalTest, UnlockOnlyOfTheChannelChangedTo) {
  _ATSC_Service_db_createChannelDB();
  const fake::Service first = fake::service(7, 1, 177000000, "ONE");
  const fake::Service second = fake::service(7, 2, 177000000, "TWO");
  const auto list = [&] {
    fake::reset();
    fake::setServices(2, {first, second});
    ASSERT_LE(0, ATSC_Service_db_UpdateChannel(2));
    fake::setCurrent(first, 2);
  };
  const auto expect = [&](const char* members, const Lines& calls, const char* line) {
    EXPECT_EQ(0, ask("PC PWDUNLOCK", members).result);
    EXPECT_EQ(calls, callsOf({"AICN_set_play", "AIFW_pwd"}));
    EXPECT_TRUE(*line == '\0' || fake::logged("Info", line)) << line;
  };
  // A new command server: no channel change yet.
  ATSCBUS::ATSCServerService server;
  list();
  EXPECT_EQ(0, server.jsonCommand(command("PC PWDUNLOCK", "\"lock_status\":1").c_str(), nullptr));
  EXPECT_TRUE(fake::logged("Info", "\033[0;41;37m Not yet changed channel. \033[0m\n"));
  EXPECT_THAT(callsOf({"AICN_set_play", "AIFW_pwd"}), IsEmpty());

  list();
  ask("FW CHANNELCHANGE", "\"major\":7,\"minor\":1");
  while (callsOf({"AIUP_sync"}).empty() ||
         g_atsc_server_service.savedChannelIndex() != GetCurrentChannelIdx()) {
    std::this_thread::yield();
  }
  list();
  expect("\"lock_status\":5",
         {"AICN_set_play_from_ap(1)", "AIFW_pwd_unlocked_no_checking_status(1)"}, "");
  list();
  fake::setResult("AICN_set_play_from_ap", 1);
  expect("\"lock_status\":0",
         {"AICN_set_play_from_ap(1)", "AIFW_pwd_unlocked_no_checking_status(0)"}, "");
  list();
  fake::setCurrent(second, 2);
  expect("\"lock_status\":1", {}, "\033[0;41;37m orig ch idx != current ch idx. \033[0m\n");
  // Two channels without a row are different.
  list();
  execute("DELETE FROM channel_data_t");
  expect("\"lock_status\":1", {}, "\033[0;41;37m orig ch idx != current ch idx. \033[0m\n");
  ask("FW CHANNELCHANGE", "\"major\":7,\"minor\":1");
  while (g_atsc_server_service.savedChannelIndex() != 65535) std::this_thread::yield();
  list();
  execute("DELETE FROM channel_data_t");
  expect("\"lock_status\":1", {}, "\033[0;41;37m failed to get current ch idx. \033[0m\n");
  list();
  expect("\"lock_status\":1", {}, "\033[0;41;37m orig ch idx != current ch idx. \033[0m\n");
  list();
  fake::setResult("AICN_get_current", 1);
  expect("\"lock_status\":1", {}, "\033[0;41;37m failed to get current ch idx. \033[0m\n");
}

TEST_F(ParentalTest, AlertSettingsAreReadUnlessTheyAreSet) {
  for (const char* name : {"PC EASUSERSETTING", "EAS EASUSERSETTING"}) {
    parental_.alertSetting = 3;
    restart();
    EXPECT_EQ("{\"setting\":3}", plain(ask(name, "\"op\":\"GET\"").text));
    EXPECT_THAT(fake::calls(), ElementsAre("AIFW_user_eas_setting(0,0)"));
    fake::setResult("AIFW_user_eas_setting", 5);
    const Answer failed = ask(name, "\"op\":\"get\"");
    EXPECT_EQ(0, failed.result);
    EXPECT_EQ("{\"setting\":0}", plain(failed.text));
    EXPECT_NE("", fake::logLine("Failed to call AIFW_user_eas_setting() -> 0x00000005: int"));
  }
  const std::pair<const char*, const char*> switches[] = {
      {"DISABLEOPTEASCHK", "AIFW_disable_optional_eas_event_id_check"},
      {"CABLEEASONLY", "AIFW_enable_eas_cable_only"}};
  for (const auto& [name, function] : switches) {
    for (const int value : {0, 1, 2}) {
      parental_.alertSetting = value;
      restart();
      EXPECT_EQ(value == 1 ? "{\"status\":true}" : "{\"status\":false}",
                plain(ask(std::string("EAS ") + name, "\"op\":\"SET\",\"status\":true").text));
      EXPECT_EQ(Lines{std::string(function) + "(0,0)"}, fake::calls());
    }
    fake::setResult(function, -3);
    EXPECT_EQ("{\"status\":false}", plain(ask(std::string("PC ") + name, "\"op\":\"\"").text));
    EXPECT_NE("", fake::logLine(std::string("Failed to call ") + function + "() -> 0xfffffffd"));
  }
}

}  // namespace
