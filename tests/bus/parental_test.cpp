// Parental control: rating documents, texts of rating tables, checks and the unlock.
#include <gmock/gmock.h>

#include "fixture.h"
#include "service/server/atsc_server_service_rating.h"

namespace {

using ::testing::AllOf;
using ::testing::EndsWith;
using ::testing::StartsWith;
using ParentalTest = LibraryTest;

TEST_F(ParentalTest, RatingDocumentKeepsWhatItDoesNotName) {
  AIPC_dime_t& rating = parental_.rating;
  rating = {5, 1, 2, 3, 4, 5, 6, 7, 8, 9, {}};
  for (int i = 0; i < 64 * 15; ++i) rating.downloadable[i / 15][i % 15] = static_cast<uint8_t>(i);
  const auto isStored = [](const AIPC_dime_t& wanted) {
    return memcmp(&fake::state()->storedRating, &wanted, sizeof wanted) == 0;
  };
  restart();
  EXPECT_THAT(plain(ask(R"(PC RETREIVERATING "region":5)").text),
              AllOf(StartsWith(R"({"can":{"eng":8,"fra":9},"dwn":[[0,1,2,3,4,5,6,7,8,9,10,11,12,)"
                               R"(13,14],[15,16,)"),
                    EndsWith(R"(190,191]],"region":5,"us":{"child":6,"dia":2,"lan":3,"mpaa":7,)"
                             R"("sex":4,"tv":1,"vio":5}})")));
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
  EXPECT_TRUE(isStored(stored));
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[1][1] [1 is valid: T] in dwn_rat: bool"));
  EXPECT_NE("", fake::logLine("Can not find dwn_rat[63][14] [63 is valid: F] in dwn_rat: bool"));

  // The reply of an encoder can be stored unchanged.
  for (const std::string encode : {"PC ENCODE ", "PC ENCODEDRRT "}) {
    restart();
    const std::string encoded = plain(ask(encode + R"("region":5,"rat_dim":0,"val":0,"block":true,)"
                                                   R"("us":{},"can":{},"dwn":[])")
                                          .text);
    fake::state()->parental.rating = {};
    ask("PC STORERATING " + encoded.substr(1, encoded.size() - 2));
    stored = rating;
    (encode == "PC ENCODE " ? stored.us_tv : stored.us_mpaa) = 40;
    EXPECT_TRUE(isStored(stored)) << encoded;
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
  const Lines calls = {"AICN_get_current(*)", "AIEC_check_rating(7,1)", "AISRV_get_CAD_list(7,8,*)",
                       "AISRV_get_rating_status(7,1)"};
  // The verdict, the number of advisories, the rating status, the answer, the number of calls and
  // a function that fails.
  const std::string cases = R"(
11 | 0 | 0 | BLOCKED | 2
0 | 1 | 1 | ALLOWED | 2
14 | 1 | 1 | ALLOWED | 2
12 | 0 | 1 | ALLOWED | 3
12 | 1 | 1 | BLOCKED | 4
12 | 1 | 2 | ALLOWED | 4
13 | 0 | 1 | BLOCKED | 4
13 | 0 | 0 | UNRATED | 4
13 | 0 | 0 | BLOCKED | 4 | AISRV_get_rating_status
12 | 1 | 1 | ALLOWED | 3 | AISRV_get_CAD_list
11 | 0 | 0 | ALLOWED | 1 | AICN_get_current
)";
  for (const Lines& row : tableOf(cases, 6)) {
    SCOPED_TRACE(joined(row));
    parental_.verdict = std::stoi(row[0]);
    parental_.advisories.resize(std::stoul(row[1]));
    parental_.ratingStatus = static_cast<uint32_t>(std::stoul(row[2]));
    restart();
    fake::setResult(row[5], 1);
    EXPECT_EQ(std::string(R"({"blocked":)") + (row[3] == "BLOCKED" ? "true" : "false") +
                  R"(,"status":"VIEWING_)" + row[3] + "\"}",
              plain(ask("PC ISPCBLOCKED").text));
    EXPECT_EQ(Lines(calls.begin(), calls.begin() + std::stol(row[4])), fake::calls());
  }
  EXPECT_NE("", fake::logLine("Failed to get current service info.\n"));
}

TEST_F(ParentalTest, ChecksOfARating) {
  const std::string small = "rating string buffer size is too small: ";
  // `numbers` are those of country and system, "" when nothing is checked; `text` ends at its NUL.
  const struct {
    std::string system, rating, numbers, text, log;
  } cases[] = {
      {"USA-TV", "V,S,TV-MA,L", "1,1", "TV-MA-L-S-V", ""},
      {"USA-TV", "TV-14,,Vb,\u00E9,Va,", "1,1", "TV-14---\u00E9-Vb-Va", ""},
      {"USA-TV", "PG-13", "1,1", "", "Invalid USA TV rating string: PG-13"},
      {"USA-TV", "TV-" + std::string(92, 'x'), "1,1", "TV-" + std::string(92, 'x'), ""},
      {"USA-TV", "TV-" + std::string(93, 'x'), "1,1", "", small + "97 > 96"},
      {"USA-TV", "D,TV-14," + std::string(95, 'x'), "1,1", "TV-14-D-" + std::string(88, 'x'), ""},
      {"USA-TV", "TV-14," + std::string(96, 'x'), "1,1", "TV-14-", small + "103 > 96"},
      {"USA-MPAA", "PG-13", "1,2", "PG-13", ""},
      {"CAN-ENG", "14+", "2,3", "14+", ""},
      {"CAN-FRA", std::string(1000, 'y'), "2,4", std::string(96, 'y'), ""},
      {"usa-tv", "TV-14", "", "", ""},
      {"USA-TV", "", "", "", ""},
  };
  for (const auto& [system, rating, numbers, text, log] : cases) {
    SCOPED_TRACE(rating);
    for (const int verdict : {11, 12}) {
      parental_.verdict = verdict;
      restart();
      const Answer answer =
          ask(R"(PC CHECKRAT "system":")" + system + R"(","rating":")" + rating + '"');
      const bool blocked = !numbers.empty() && verdict == 11;
      EXPECT_EQ(blocked ? R"({"blocked":true})" : R"({"blocked":false})", plain(answer.text));
      EXPECT_EQ(numbers.empty() ? "" : "AIPC_check_rating(" + numbers + ",0)",
                joined(fake::calls()));
      const std::string checked = fake::state()->checkedRating;
      EXPECT_EQ(numbers.empty() ? 0u : 96u, checked.size());
      EXPECT_EQ(text, checked.substr(0, checked.find('\0')));
      EXPECT_EQ(log, joined(logsOf("Error")));
    }
  }
  EXPECT_FALSE(atsc::StringCompare("V", ""));
  EXPECT_TRUE(atsc::StringCompare("", ""));
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
  // Whether the channel had a row (in turns, so that each change is noticed) and has one, the minor
  // number now, the command's status, what happens and a function that fails.
  const std::string cases = R"(
1 | 1 | 1 | 5 | (1) | AICN_set_play_from_ap
0 | 0 | 1 | 1 | failed to get current ch idx
1 | 1 | 1 | 0 | (0)
0 | 1 | 1 | 1 | orig ch idx != current ch idx
1 | 1 | 2 | 1 | orig ch idx != current ch idx
0 | 1 | 1 | 1 | failed to get current ch idx | AICN_get_current
1 | 0 | 1 | 1 | orig ch idx != current ch idx
)";
  for (const Lines& row : tableOf(cases, 6)) {
    SCOPED_TRACE(joined(row));
    list(row[0] == "1");
    ask(R"(FW CHANNELCHANGE "major":7,"minor":1)");
    ASSERT_TRUE(eventually([&] {
      return !callsOf({"AIUP_sync"}).empty() &&
             g_atsc_server_service.savedChannelIndex() == GetCurrentChannelIdx();
    }));
    list(row[1] == "1");
    fake::setCurrent(fake::service(7, row[2] == "1" ? 1 : 2, 1, ""), 2);
    fake::setResult(row[5], 5);
    EXPECT_EQ(0, ask("PC PWDUNLOCK " + unlock + row[3]).result);
    const bool unlocks = row[4][0] == '(';
    EXPECT_EQ(
        unlocks ? "AICN_set_play_from_ap(1) AIFW_pwd_unlocked_no_checking_status" + row[4] : "",
        joined(callsOf({"AICN_set_play", "AIFW_pwd"})));
    EXPECT_NE(unlocks, fake::logged("Info", "\033[0;41;37m " + row[4] + ". \033[0m\n"));
  }
}

}  // namespace
