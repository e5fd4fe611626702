// Parental control: rating documents, texts of rating tables, checks and the unlock.
#include <gmock/gmock.h>

#include "fixture.h"
#include "service/server/atsc_server_service_rating.h"

namespace {

using ::testing::HasSubstr;

class ParentalTest : public LibraryTest {
 protected:
  // Resets the test with the current `parental_`.
  void restart() {
    fake::reset();
    fake::setParental(parental_);
    fake::setCurrent(fake::service(7, 1, 177000000, "SEVEN"), AI_INPUT_TERRESTRIAL);
  }

  fake::Parental parental_;
};

// Returns the document of a record.
std::string document(const AIPC_dime_t& rating) {
  std::ostringstream text;
  text << R"({"can":{"eng":)" << rating.canada_english << R"(,"fra":)" << rating.canada_french
       << R"(},"dwn":[)";
  for (const auto& row : rating.downloadable) {
    text << (&row == rating.downloadable ? "[" : ",[");
    for (const uint8_t& level : row) text << (&level == row ? "" : ",") << unsigned{level};
    text << ']';
  }
  text << R"(],"region":)" << rating.region << R"(,"us":{"child":)" << rating.us_children
       << R"(,"dia":)" << rating.us_dialogue << R"(,"lan":)" << rating.us_language << R"(,"mpaa":)"
       << rating.us_mpaa << R"(,"sex":)" << rating.us_sex << R"(,"tv":)" << rating.us_tv
       << R"(,"vio":)" << rating.us_violence << "}}";
  return text.str();
}

TEST_F(ParentalTest, RatingDocumentKeepsWhatItDoesNotName) {
  AIPC_dime_t& rating = parental_.rating;
  rating = {5, 1, 2, 3, 4, 5, 6, 7, 8, 9, {}};
  for (int i = 0; i < 64 * 15; ++i) rating.downloadable[i / 15][i % 15] = static_cast<uint8_t>(i);
  restart();
  EXPECT_EQ(document(rating), plain(ask(R"(PC RETREIVERATING "region":5)").text));
  EXPECT_EQ(0, ask(R"(PC STORERATING "region":5,"us":{"dia":12,"lan":13,"sex":14,"vio":15,)"
                   R"("child":16},"can":{"eng":-8},)"
                   R"("dwn":[[],[513],7,[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,99]])")
                   .result);
  EXPECT_EQ("AIPC_retreive_rating(5) AIPC_retreive_rating(5) AIPC_store_rating(5)",
            joined(callsOf({"AIPC"})));
  AIPC_dime_t stored = {5, 1, 12, 13, 14, 15, 16, 7, -8, 9, {}};
  std::copy_n(&rating.downloadable[0][0], 64 * 15, &stored.downloadable[0][0]);
  stored.downloadable[1][0] = 1;  // the low byte
  for (uint8_t i = 0; i < 15; ++i) stored.downloadable[3][i] = i;
  EXPECT_EQ(document(stored), document(fake::state()->storedRating));
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[1][1] [1 is valid: T] in dwn_rat: bool"));
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[63][14] [63 is valid: F] in dwn_rat: bool"));

  // The reply of an encoder can be stored unchanged.
  const std::string value = R"("region":5,"rat_dim":0,"val":0,"block":true,)";
  const std::string empty = R"("us":{},"can":{},"dwn":[])";
  for (const char* encode : {"PC ENCODE ", "PC ENCODEDRRT "}) {
    const std::string encoded = plain(ask(encode + value + empty).text);
    stored = rating;
    if (encode[9] == ' ') stored.us_tv = 40;
    if (encode[9] != ' ') stored.downloadable[63][14] = 41;
    EXPECT_EQ(document(stored), encoded);
    ask("PC STORERATING " + encoded.substr(1, encoded.size() - 2));
    EXPECT_EQ(encoded, document(fake::state()->storedRating));
  }
}

TEST_F(ParentalTest, TextsOfTheMiddleware) {
  const std::string wide = fake::utf16(std::string(300, 'w'));
  const struct {
    fake::Text text;
    std::string converted;  // "-": it cannot be converted
  } cases[] = {
      {{"plain", 5, 0}, "plain"},
      {{std::string(600, 'x'), 0, 65535}, std::string(512, 'x')},
      {{wide, AI_TEXT_UTF16BE, 0}, std::string(256, 'w')},
      {{wide, AI_TEXT_UTF16BE, 65534}, std::string(256, 'w')},
      {{fake::utf16("odd"), AI_TEXT_UTF16BE, 5}, "-"},
      {{wide, AI_TEXT_UTF16BE, 65535}, "-"},
  };
  for (const auto& expected : cases) {
    parental_.name = parental_.text = expected.text;
    parental_.graduated = 2;  // only 1 is true
    restart();
    const Answer name = ask(R"(PC DIMNAME "rat_dim":0)");
    const Answer value = ask(R"(PC GETVALTXT "rat_dim":0,"val":0)");
    if (expected.converted == "-") {
      EXPECT_EQ(-1, name.result);
      EXPECT_NE("", fake::logLine("Failed to convert UTF16 to UTF8: bool atsc::Copy2UTF8("));
      EXPECT_NE("", fake::logLine("Failed to Copy2UTF8(): int"));
      EXPECT_NE("", fake::logLine("] rating_value is failed to Copy2UTF8(): int"));
      continue;
    }
    EXPECT_EQ(R"({"dim_lvl":0,"dim_name":")" + expected.converted + R"(","grad":false})",
              plain(name.text));
    EXPECT_EQ(R"({"abbr_rat_val_txt":"","rat_val_txt":")" + expected.converted + R"(","region":1})",
              plain(value.text));
  }
  // A text in a buffer of the middleware has the stated length.
  std::string own(600, 'x');
  const multiple_lang_t text{reinterpret_cast<uint8_t*>(&own[0]), 600, 0};
  std::vector<uint8_t> copy;
  EXPECT_TRUE(atsc::Copy2UTF8(copy, &text));
  EXPECT_EQ(own, reinterpret_cast<const char*>(copy.data()));

  parental_.text = {};
  parental_.abbreviation = {"xyz", AI_TEXT_UTF16BE, 0};
  parental_.regions.assign(255, 9);
  restart();
  EXPECT_EQ(-1, ask(R"(PC GETVALTXT "rat_dim":0,"val":0)").result);
  EXPECT_NE("", fake::logLine("abbr_rating_value is failed to Copy2UTF8(): int"));
  EXPECT_EQ(255u, json(ask("PC GETREGION").text)["reg_lst"].size());
  fake::state()->parental.regions.clear();
  EXPECT_EQ(R"({"reg_lst":null,"regions":0})", plain(ask("PC GETREGION").text));
}

TEST_F(ParentalTest, WhatIsBlockedNow) {
  const struct {
    int verdict;
    std::vector<uint8_t> advisories;
    uint32_t status;
    const char* failing;
    const char* reply;  // after "VIEWING_"
    size_t calls;
  } cases[] = {
      {11, {}, 0, "", "BLOCKED", 2},
      {0, {1}, 1, "", "ALLOWED", 2},
      {14, {1}, 1, "", "ALLOWED", 2},
      {12, {}, 1, "", "ALLOWED", 3},
      {12, {1}, 1, "", "BLOCKED", 4},
      {12, {1}, 2, "", "ALLOWED", 4},
      {13, {}, 1, "", "BLOCKED", 4},
      {13, {}, 0, "", "UNRATED", 4},
      {13, {}, 0, "AISRV_get_rating_status", "BLOCKED", 4},
      {12, {1}, 1, "AISRV_get_CAD_list", "ALLOWED", 3},
      {11, {}, 0, "AICN_get_current", "ALLOWED", 1},
  };
  const Lines calls = {"AICN_get_current(*)", "AIEC_check_rating(7,1)", "AISRV_get_CAD_list(7,8,*)",
                       "AISRV_get_rating_status(7,1)"};
  for (const auto& expected : cases) {
    SCOPED_TRACE(std::to_string(expected.verdict) + expected.reply + expected.failing);
    parental_.verdict = expected.verdict;
    parental_.advisories = expected.advisories;
    parental_.ratingStatus = expected.status;
    restart();
    fake::setResult(expected.failing, 1);
    const Answer answer = ask("PC ISPCBLOCKED");
    EXPECT_EQ(0, answer.result);
    EXPECT_EQ(std::string(R"({"blocked":)") + (*expected.reply == 'B' ? "true" : "false") +
                  R"(,"status":"VIEWING_)" + expected.reply + "\"}",
              plain(answer.text));
    EXPECT_EQ(Lines(calls.begin(), calls.begin() + static_cast<long>(expected.calls)),
              fake::calls());
  }
  EXPECT_NE("", fake::logLine("Failed to get current service info.\n"));
}

TEST_F(ParentalTest, RatingTexts) {
  const struct {
    std::string rating;
    std::string text;  // up to its NUL
    const char* log;   // "" for none
  } cases[] = {
      {"V,S,TV-MA,L", "TV-MA-L-S-V", ""},
      {"TV-14,,Vb,\xFF,Va,", "TV-14---\xFF-Vb-Va", ""},
      {"PG-13", "", "Invalid USA TV rating string: PG-13"},
      {"TV-" + std::string(92, 'x'), "TV-" + std::string(92, 'x'), ""},
      {"TV-" + std::string(93, 'x'), "", "rating string buffer size is too small: 97 > 96"},
      {"D,TV-14," + std::string(95, 'x'), "TV-14-D-" + std::string(95, 'x'), ""},
      {"TV-14," + std::string(96, 'x'), "TV-14-",
       "rating string buffer size is too small: 103 > 96"},
  };
  for (const auto& expected : cases) {
    SCOPED_TRACE(expected.rating);
    std::vector<uint8_t> buffer(std::max<size_t>(96, expected.rating.size()) + 2);
    atsc::ConvertUSATVRatingString(expected.rating, buffer.data(), 96);
    EXPECT_EQ(expected.text, reinterpret_cast<const char*>(buffer.data()));
    EXPECT_TRUE(*expected.log == '\0' || fake::logged("Error", expected.log));
  }
  EXPECT_FALSE(atsc::StringCompare("V", ""));
  EXPECT_TRUE(atsc::StringCompare("", ""));
}

TEST_F(ParentalTest, ChecksOfARating) {
  const struct {
    const char* system;
    std::string rating;
    const char* call;  // "" for none
    std::string text;  // up to its NUL
  } cases[] = {
      {"USA-TV", "D,TV-14,V", "AIPC_check_rating(1,1,0)", "TV-14-D-V"},
      {"USA-MPAA", "PG-13", "AIPC_check_rating(1,2,0)", "PG-13"},
      {"CAN-ENG", "14+", "AIPC_check_rating(2,3,0)", "14+"},
      {"CAN-FRA", std::string(1000, 'y'), "AIPC_check_rating(2,4,0)", std::string(96, 'y')},
      {"usa-tv", "TV-14", "", ""},
      {"USA-TV", "", "", ""},
  };
  for (const auto& expected : cases) {
    for (const int verdict : {11, 12}) {
      parental_.verdict = verdict;
      restart();
      const bool blocked = *expected.call != '\0' && verdict == 11;
      EXPECT_EQ(blocked ? R"({"blocked":true})" : R"({"blocked":false})",
                plain(ask(std::string(R"(PC CHECKRAT "system":")") + expected.system +
                          R"(","rating":")" + expected.rating + '"')
                          .text));
      EXPECT_EQ(expected.call, joined(fake::calls()));
      const std::string checked = fake::state()->checkedRating;
      EXPECT_EQ(*expected.call == '\0' ? 0u : 96u, checked.size());
      EXPECT_EQ(expected.text, checked.substr(0, checked.find('\0')));
    }
  }
}

TEST_F(ParentalTest, UnlockOnlyOfTheChannelChangedTo) {
  _ATSC_Service_db_createChannelDB();
  const auto list = [](bool listed) {
    fake::reset();
    if (listed)
      fake::setServices(2, {fake::service(7, 1, 1, "ONE"), fake::service(7, 2, 1, "TWO")});
    ATSC_Service_db_UpdateChannel(2);
    fake::setCurrent(fake::service(7, 1, 1, "ONE"), 2);
  };
  const std::string unlock = R"("lock_status":)";
  // A new command server: no channel change yet.
  list(true);
  ATSCBUS::ATSCServerService().jsonCommand(command("PC PWDUNLOCK", unlock + '1').c_str(), nullptr);
  EXPECT_TRUE(fake::logged("Info", "\033[0;41;37m Not yet changed channel. \033[0m\n"));
  EXPECT_EQ(Lines{}, callsOf({"AICN_set_play", "AIFW_pwd"}));
  // Two channels without a row are different.
  const struct {
    bool hadRow, hasRow;
    uint16_t minor;
    const char *failing, *status, *outcome;
  } cases[] = {
      {true, true, 1, "AICN_set_play_from_ap", "5", "(1)"},
      {true, true, 1, "", "0", "(0)"},
      {true, true, 2, "", "1", "orig ch idx != current ch idx"},
      {true, false, 1, "", "1", "orig ch idx != current ch idx"},
      {false, false, 1, "", "1", "failed to get current ch idx"},
      {false, true, 1, "", "1", "orig ch idx != current ch idx"},
      {false, true, 1, "AICN_get_current", "1", "failed to get current ch idx"},
  };
  for (const auto& each : cases) {
    list(each.hadRow);
    ask(R"(FW CHANNELCHANGE "major":7,"minor":1)");
    ASSERT_TRUE(eventually([&] {
      return !callsOf({"AIUP_sync"}).empty() &&
             g_atsc_server_service.savedChannelIndex() == (each.hadRow ? 1 : 65535);
    }));
    list(each.hasRow);
    fake::setCurrent(fake::service(7, each.minor, 1, ""), 2);
    fake::setResult(each.failing, 5);
    EXPECT_EQ(0, ask("PC PWDUNLOCK " + unlock + each.status).result);
    const std::string outcome = each.outcome;
    const bool unlocks = outcome[0] == '(';
    EXPECT_EQ(
        unlocks ? "AICN_set_play_from_ap(1) AIFW_pwd_unlocked_no_checking_status" + outcome : "",
        joined(callsOf({"AICN_set_play", "AIFW_pwd"})));
    EXPECT_NE(unlocks, fake::logged("Info", "\033[0;41;37m " + outcome + ". \033[0m\n"));
  }
}

}  // namespace
