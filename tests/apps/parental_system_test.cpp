// Parental control and alerts through all processes.
#include <gmock/gmock.h>
#include <json/json.h>
#include <signal.h>

#include <fstream>
#include <sstream>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

// "The Long Lock" on 5-1 is TV-14-D-V, "Case Closed?" on 9-1 is TV-14-L-V.
constexpr const char* kStart = "2026-04-22T19:05:00Z";

std::string pc(const std::string& name, const std::string& members = "") {
  return R"({"class":"PC","command":")" + name + '"' + (members.empty() ? "" : ',' + members) + '}';
}

class ParentalSystemTest : public SystemTest {
 protected:
  // Creates streams of the sample lineups in the air folder.
  void broadcast(const Words& lineups) {
    Words words = {"--start", kStart};
    words.insert(words.end(), lineups.begin(), lineups.end());
    SystemTest::broadcast(words, air_);
  }

  void restartService(const Words& options = {}) {
    service_->signal(SIGTERM);
    EXPECT_EQ(0, service_->wait()) << service_->err();
    startService(kFast, options);
  }

  std::string viewing() {
    const Json::Value reply = ask(pc("ISPCBLOCKED"));
    EXPECT_EQ(reply["blocked"].asBool(), reply["status"] == "VIEWING_BLOCKED");
    return reply["status"].asString();
  }

  // Expects that the unlock is refused for `reason`.
  void expectNoUnlock(const std::string& reason) {
    const Outcome outcome = tv({"unlock"});
    EXPECT_EQ(1, outcome.status) << outcome.out;
    EXPECT_THAT(outcome.err, HasSubstr("only the channel last changed to can be unlocked"));
    EXPECT_GT(service_->count("\033[0;41;37m " + reason + ". \033[0m"), 0u) << reason;
    EXPECT_EQ(0, ask(pc("PWDUNLOCK", R"("lock_status":1)"))["result"].asInt());
    EXPECT_EQ("VIEWING_BLOCKED", viewing());
  }

  // Plays a source without a channel change.
  void playSource(const std::string& source) {
    EXPECT_EQ(0, send(R"({"class":"FW","command":"PLAYSRC","src":")" + source + "\"}").status);
  }

  void expectFailures(const std::vector<std::pair<Words, const char*>>& cases, int status = 1) {
    for (auto [words, fault] : cases) {
      words.insert(words.begin(), "parental");
      const Outcome outcome = tv(words);
      EXPECT_EQ(status, outcome.status) << outcome.out;
      EXPECT_THAT(outcome.err, HasSubstr(fault));
    }
  }

  Json::Value limits(int region) {
    return ask(pc("RETREIVERATING", "\"region\":" + std::to_string(region)));
  }

  // Returns `document` with another command.
  std::string with(Json::Value document, const std::string& name, const Json::Value& members = {}) {
    document.removeMember("result");
    document["class"] = "PC";
    document["command"] = name;
    for (const std::string& key : members.getMemberNames()) document[key] = members[key];
    return Json::writeString(Json::StreamWriterBuilder(), document);
  }
};

TEST_F(ParentalSystemTest, LimitsAndUnlocks) {
  ASSERT_NO_FATAL_FAILURE(broadcast({kAirLineup, kCableLineup}));
  startService();
  ASSERT_NO_FATAL_FAILURE(scan("QAM"));
  ASSERT_NO_FATAL_FAILURE(scan("VSB"));
  auto watch = startWatch();
  EXPECT_EQ("Parental control is on now\nEntire Audience: TV-14, TV-MA blocked\n",
            out({"parental", "limit", "tv-pg"}));
  const std::string reason =
      "The Long Lock (TV-14-D-V, PG-13, 14+, 13 ans+, Harbor 1) is blocked: TV-14, the limit is "
      "TV-PG";
  const std::string unlocked = " would be blocked (TV-14, the limit is TV-PG), but is unlocked";
  playSource("VSB");
  ASSERT_TRUE(watch->says("PARENTAL_BLOCKED: 5-1 KÉVA-1: " + reason + "\n"));
  EXPECT_EQ("VIEWING_BLOCKED", viewing());
  EXPECT_THAT(
      out({"parental"}),
      AllOf(HasSubstr("  Entire Audience   None, TV-G, TV-PG  "), HasSubstr("  TV-14, TV-MA\n"),
            HasSubstr("5-1 KÉVA-1: " + reason + "; atsc-tv unlock frees it\n")));
  EXPECT_THAT(out({"now"}), HasSubstr("\n         blocked: TV-14, the limit is TV-PG\n"));
  expectNoUnlock("Not yet changed channel");
  // A service that played before can be unlocked, too, with and without its number.
  size_t restarts = 0;
  for (const Words& words : {Words{"play"}, {"play", "5-1"}}) {
    restartService();
    ASSERT_TRUE(watch->says("a service runs again", ++restarts));
    EXPECT_EQ("5-1 KÉVA-1\n  " + reason + "; atsc-tv unlock frees it\n", out(words));
    EXPECT_THAT(out({"unlock"}), HasSubstr(unlocked + "; so is what comes"));
  }
  EXPECT_THAT(out({"parental"}), HasSubstr(unlocked));
  EXPECT_THAT(out({"now"}), HasSubstr("\n        " + unlocked));
  EXPECT_THAT(out({"unlock", "--undo"}), HasSubstr(reason));

  // Free, blocked for its content and free again, while the same channel plays.
  const size_t played = watch->count("CHANNEL_PLAY_SUCCESS");
  EXPECT_EQ("Entire Audience: TV-MA blocked\n", out({"parental", "limit", "TV-14"}));
  ASSERT_TRUE(watch->says("PARENTAL_UNBLOCKED"));
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_EQ("Violence: V blocked\n", out({"parental", "block", "violence"}));
  ASSERT_TRUE(watch->says("is blocked: V (Violence)\n"));
  EXPECT_EQ("Violence: nothing blocked\n", out({"parental", "allow", "V"}));
  ASSERT_TRUE(watch->says("PARENTAL_UNBLOCKED", 2));
  EXPECT_EQ(played, watch->count("CHANNEL_PLAY_SUCCESS"));

  out({"parental", "limit", "TV-PG"});
  EXPECT_THAT(out({"play", "9-1"}), HasSubstr("Case Closed? (TV-14-L-V) is blocked: TV-14, "));
  const size_t free = watch->count("PARENTAL_UNBLOCKED");
  EXPECT_THAT(out({"unlock"}), HasSubstr("9-1 WOLM-HD: Case Closed? (TV-14-L-V)" + unlocked));
  EXPECT_TRUE(watch->says("PARENTAL_UNBLOCKED", free + 1));
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_THAT(out({"unlock", "--undo"}), HasSubstr("Case Closed? (TV-14-L-V) is blocked"));
  // Another source without a channel change.
  EXPECT_EQ("Programmes without a rating: blocked\n", out({"parental", "block", "unrated"}));
  playSource("QAM");
  EXPECT_THAT(out({"parental"}), HasSubstr("2-1 Guide: What Is On is blocked: it has no rating;"));
  expectNoUnlock("orig ch idx != current ch idx");
  out({"parental", "allow", "unrated"});
  EXPECT_EQ("VIEWING_UNRATED", viewing());

  // A table of another region, and ambiguous names.
  out({"parental", "limit", "none"});
  EXPECT_THAT(out({"parental", "region", "harbor city"}), HasSubstr("\n* 5 Harbor City\n"));
  EXPECT_EQ("Age: 12, 18 blocked\n", out({"parental", "limit", "6"}));
  EXPECT_THAT(out({"play", "5-1"}), HasSubstr(" is blocked: "));
  EXPECT_THAT(service_->err(), HasSubstr("blocked: 12 (region 5, Age)"));
  out({"parental", "region", "2"});
  expectFailures({{{"limit", "g"}, "Canadian English Language Rating or Codes français du Canada"},
                  {{"limit", "TV-PG"}, "has no rating 'TV-PG'; there are "},
                  {{"limit", "E"}, "E cannot be a limit; use atsc-tv parental block E"},
                  {{"region", "Utopia"}, "there are 1 U.S. "}});
  EXPECT_EQ("Codes français du Canada: 16 ans+, 18 ans+ blocked\n",
            out({"parental", "limit", "--dimension", "CODES FRANÇAIS", "13ans+"}));
  EXPECT_THAT(out({"parental", "region", "us"}), HasSubstr("* 1 U.S. "));
  out({"parental", "block", "tvy7"});
  expectFailures(
      {{{"allow", "fantasyviolence"}, "FV is blocked together with TV-Y7; allow TV-Y7"},
       {{"limit", "tv-14-d-v"}, "parental limit TV-14 and atsc-tv parental block D V"},
       {{"limit", "V"},
        "V is a kind of content and cannot be a limit; use atsc-tv parental block V"},
       {{"limit", "FOO"}, "Entire Audience: TV-G, TV-PG, TV-14, TV-MA; Children: TV-Y, TV-Y7; "},
       {{"block", "no one 17 and under admitted"}, "may be NC-17 or X"},
       {{"check", "usa-tv", "TV-99"}, "no rating of USA-TV; there are Entire Audience: None, "}});
  expectFailures({{{"limit", "none", "TV-PG"}, "none cannot be combined"},
                  {{"limit", "TV-PG", "TV-MA"}, "one dimension, Entire Audience"}},
                 2);
  EXPECT_EQ("Children: nothing blocked\nFantasy Violence: nothing blocked\n",
            out({"parental", "allow", "FV", "TV-Y7"}));
  EXPECT_EQ("PG-13: not blocked\n", out({"parental", "check", "usa-mpaa", "pg13"}));
  // No message about limits, because another terminal may change them.
  EXPECT_THAT(tv({"--verbose", "parental", "block", "L"}).err,
              HasSubstr(R"("dwn":[],"region":1,"us":{"lan":1}})"));
  out({"parental", "reset"});
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_EQ(1, ask(pc("GETCURRREG"))["region"].asInt());

  // A lock of the channel is independent.
  out({"edit", "22-1", "--lock"});
  EXPECT_THAT(out({"play", "22-1"}), HasSubstr("\n  locked; atsc-tv play 22-1 --unlocked opens"));
  ASSERT_TRUE(watch->says("CHANNEL_LOCKED"));
  EXPECT_THAT(out({"parental"}), HasSubstr("; the channel is locked and plays only after "));
  EXPECT_EQ("22-1 Zoë's\n", out({"play", "22-1", "--unlocked"}));
  EXPECT_TRUE(watch->says("CHANNEL_UNLOCKED"));
  out({"up"});
  const size_t locked = watch->count("CHANNEL_LOCKED");
  const size_t plays = watch->count("CHANNEL_PLAY_SUCCESS");
  out({"down", "--unlocked"});
  EXPECT_TRUE(watch->says("CHANNEL_PLAY_SUCCESS", plays + 1));
  EXPECT_EQ(locked, watch->count("CHANNEL_LOCKED"));
}

// Stored settings can be read after a restart; others are lost.
TEST_F(ParentalSystemTest, DocumentsAreStored) {
  ASSERT_NO_FATAL_FAILURE(broadcast({kAirLineup}));
  startService();
  ASSERT_NO_FATAL_FAILURE(scan("VSB"));
  Json::Value encode;
  encode["rat_dim"] = 0;
  encode["val"] = 4;
  encode["block"] = true;
  Json::Value us = ask(with(limits(1), "ENCODE", encode));
  encode["rat_dim"] = 7;
  us = ask(with(us, "ENCODE", encode));
  EXPECT_EQ(4, us["us"]["tv"].asInt());
  EXPECT_EQ(4, us["us"]["mpaa"].asInt());
  EXPECT_NE(us, limits(1)) << "a document, not a setting";
  EXPECT_EQ(0, ask(with(us, "STORERATING"))["result"].asInt());
  // An incomplete document, and rows of different length.
  for (const char* part :
       {R"("region":1,"us":{"child":2},"can":{},"dwn":[])",
        R"("region":5,"us":{},"can":{},"dwn":[[0,0,1],[],[7]])",
        R"("region":5,"us":{},"can":{},"dwn":[[],[0,1,0,1,0,1,0,1,0,1,0,1,0,1,0,1,0],[]])"}) {
    EXPECT_EQ(0, ask(pc("STORERATING", part))["result"].asInt()) << part;
  }
  us["us"]["child"] = 2;
  EXPECT_EQ(us, limits(1));
  const Json::Value other = limits(5);
  EXPECT_EQ(1, other["dwn"][0][2].asInt());
  EXPECT_EQ(1, other["dwn"][1][13].asInt());
  EXPECT_EQ(15u, other["dwn"][1].size());
  EXPECT_EQ(7, other["dwn"][2][0].asInt());
  EXPECT_EQ(64u, other["dwn"].size());
  EXPECT_EQ(0, ask(pc("STOREALL"))["result"].asInt());
  EXPECT_EQ(0, ask(pc("STORERATING", R"("us":{"tv":2},"can":{},"dwn":[])"))["result"].asInt());
  EXPECT_EQ(0, ask(pc("SETPRTDETAIL", R"("pc_enable":1)"))["result"].asInt());
  EXPECT_EQ(2, limits(1)["us"]["tv"].asInt());

  restartService();
  EXPECT_EQ(us, limits(1));
  EXPECT_EQ(other, limits(5));
  EXPECT_EQ(0, ask(pc("GETPRTDETAIL"))["pc_enable"].asInt());
  EXPECT_EQ(3, ask(pc("GETREGION"))["regions"].asInt()) << "tables are kept as they come";
}

TEST_F(ParentalSystemTest, BoundaryOfABostonProgramme) {
  air_ = fs::path(kCaptures) / "boston";
  if (!fs::is_directory(air_)) GTEST_SKIP() << "no field captures";
  startService();
  ASSERT_NO_FATAL_FAILURE(scan("VSB"));
  out({"parental", "limit", "TV-PG"});
  const std::string blocked =
      "PARENTAL_BLOCKED: 2-2 World: Independent Lens (TV-14) is blocked: TV-14, the limit is TV-PG";
  // The programme runs from 19:30:00 to 21:00:00.
  restartService({"--clock", "2014-01-09T19:29:50Z"});
  auto watch = startWatch();
  EXPECT_THAT(out({"play", "2-2"}), HasSubstr("2-2 World\n"));
  EXPECT_TRUE(watch->says(blocked)) << watch->out();
  EXPECT_EQ("VIEWING_BLOCKED", viewing());
  EXPECT_THAT(out({"now"}), HasSubstr("Clock    Thu 09 Jan 2014 14:30:"));
  watch->signal(SIGINT);
  EXPECT_EQ(0, watch->wait());

  restartService({"--clock", "2014-01-09T20:59:50Z"});
  watch = startWatch();
  EXPECT_THAT(out({"play", "2-2"}), HasSubstr("Independent Lens (TV-14) is blocked"));
  EXPECT_TRUE(watch->says(blocked)) << watch->out();
  EXPECT_TRUE(watch->says("PARENTAL_UNBLOCKED"));
  EXPECT_NE("VIEWING_BLOCKED", viewing());
  EXPECT_THAT(out({"now"}), HasSubstr("Clock    Thu 09 Jan 2014 16:00:"));
}

// Two stations with different names for the ratings.
TEST_F(ParentalSystemTest, RatingTablesOfTheAir) {
  const fs::path captures = kCaptures;
  if (!fs::is_directory(captures / "boston")) GTEST_SKIP() << "no field captures";
  Json::Value lineup;
  std::ifstream(kAirLineup) >> lineup;
  lineup.removeMember("rating_regions");
  const std::string file = folder_ / "lineup.json";
  std::ofstream(file) << lineup;
  ASSERT_NO_FATAL_FAILURE(broadcast({file}));
  std::ofstream(air_ / "vsb" / "183000000.ts", std::ios::binary | std::ios::app)
      << readFile(captures / "sections" / "rating-region-1.ts");
  fs::copy(captures / "boston" / "vsb" / "641000000.ts", air_ / "vsb");
  startService();
  ASSERT_NO_FATAL_FAILURE(scan("VSB"));
  const struct {
    const char *channel, *region, *dimension, *film;
  } stations[] = {
      {"7-1", "U.S.(50 States+Possessions)", "EntireAudience", "MPAARatingNotApplicable"},
      {"5-1", "U.S. (50 states + possessions)", "Entire Audience", "MPAA Rating Not Applicable"},
      {"7-1", "U.S.(50 States+Possessions)", "EntireAudience", "MPAARatingNotApplicable"},
  };
  for (const auto& station : stations) {
    out({"play", station.channel});
    Json::Value dimension;
    EXPECT_TRUE(eventually([&] {
      dimension = ask(pc("DIMNAME", R"("rat_dim":0)"));
      return dimension["dim_name"] == station.dimension;
    })) << dimension;
    EXPECT_EQ(6, dimension["dim_lvl"].asInt());
    EXPECT_TRUE(dimension["grad"].asBool());
    EXPECT_EQ(1, ask(pc("GETREGION"))["reg_lst"][0].asInt());
    EXPECT_EQ(8, ask(pc("NUMDIM"))["num_dim"].asInt());
    EXPECT_EQ(station.region, ask(pc("GETRRTDETAIL"))["reg_name"].asString());
    const Json::Value film = ask(pc("GETVALTXT", R"("rat_dim":7,"val":1)"));
    EXPECT_EQ(station.film, film["rat_val_txt"].asString());
    EXPECT_EQ("TV-PG",
              ask(pc("GETVALTXT", R"("rat_dim":0,"val":3)"))["abbr_rat_val_txt"].asString());
    EXPECT_THAT(out({"parental"}), HasSubstr(station.dimension));
  }
}

TEST_F(ParentalSystemTest, AlertsAsTheUserWantsThem) {
  ASSERT_NO_FATAL_FAILURE(broadcast({kCableLineup}));
  startService();
  ASSERT_NO_FATAL_FAILURE(scan("QAM"));
  EXPECT_THAT(out({"eas", "alerts", "medium"}), HasSubstr("of medium priority (7) and above\n"));
  auto watch = startWatch();
  out({"play", "23-2"});
  ASSERT_TRUE(watch->says("EPG_COMPLETE"));
  restartService();
  ASSERT_TRUE(watch->says("a service runs again"));
  out({"play", "1203"});
  out({"play", "23-2"});
  ASSERT_TRUE(watch->says("EPG_COMPLETE", 3));
  EXPECT_EQ(0u, watch->count("EASSTART"));
  // A present alert is reported when the setting allows it, and ends when it does not.
  out({"eas", "alerts", "all"});
  ASSERT_TRUE(
      watch->says("EASSTARTNONBLOCKING: an alert begins, priority 3 (low): This is a test"));
  EXPECT_EQ(0u, watch->count("EASSTOP"));
  out({"eas", "alerts", "maximum"});
  EXPECT_TRUE(watch->says("EASSTOP"));

  out({"eas", "repeats", "show"});
  out({"eas", "cable-only", "on"});
  const std::string settings = out({"eas"});
  EXPECT_THAT(settings, AllOf(HasSubstr("maximum priority (15) only\n"), HasSubstr("shown again\n"),
                              HasSubstr("stations are not shown\n")));
  restartService();
  EXPECT_EQ(settings, out({"eas"}));
}

}  // namespace
