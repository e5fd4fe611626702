// Parental control and alerts through all processes.
#include <filesystem>
#include <string>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

// "The Long Lock" on 5-1 is TV-14-D-V, "Case Closed?" on 9-1 is TV-14-L-V.
constexpr const char* kStart = "2026-04-22T19:05:00Z";

class ParentalSystemTest : public SystemTest {
 protected:
  std::string viewing() {
    const Json::Value reply = ask("PC ISPCBLOCKED");
    EXPECT_EQ(reply["blocked"].asBool(), reply["status"] == "VIEWING_BLOCKED");
    return reply["status"].asString();
  }
};

TEST_F(ParentalSystemTest, LimitsAndUnlocks) {
  broadcastLineups({"--start", kStart});
  startService();
  scan("QAM");
  scan("VSB");
  startWatch();
  EXPECT_EQ("Parental control is on now\nEntire Audience: TV-14, TV-MA blocked\n",
            out({"parental", "limit", "tv-pg"}));
  const std::string reason =
      "The Long Lock (TV-14-D-V, PG-13, 14+, 13 ans+, Harbor 1) is blocked: TV-14, the limit is "
      "TV-PG";
  const std::string unlocked = " would be blocked (TV-14, the limit is TV-PG), but is unlocked";
  act("FW PLAYSRC", R"("src":"VSB")");
  ASSERT_TRUE(watch_->says("PARENTAL_BLOCKED: 5-1 KÉVA-1: " + reason + "\n"));
  EXPECT_EQ("VIEWING_BLOCKED", viewing());
  EXPECT_THAT(
      out({"parental"}),
      AllOf(HasSubstr("  Entire Audience   None, TV-G, TV-PG  "), HasSubstr("  TV-14, TV-MA\n"),
            HasSubstr("5-1 KÉVA-1: " + reason + "; atsc-tv unlock frees it\n")));
  EXPECT_THAT(out({"now"}), HasSubstr("\n         blocked: TV-14, the limit is TV-PG\n"));
  fails(1, {"unlock"}, "only the channel last changed to can be unlocked");
  EXPECT_TRUE(service_->says("\033[0;41;37m Not yet changed channel. \033[0m"));
  EXPECT_EQ("VIEWING_BLOCKED", viewing());
  // A service that played before can be unlocked, too, with and without its number.
  for (const Words& words : {Words{"play"}, {"play", "5-1"}}) {
    restartService();
    EXPECT_EQ("5-1 KÉVA-1\n  " + reason + "; atsc-tv unlock frees it\n", out(words));
    EXPECT_THAT(out({"unlock"}), HasSubstr(unlocked + "; so is what comes"));
  }
  EXPECT_THAT(out({"parental"}), HasSubstr(unlocked));
  EXPECT_THAT(out({"now"}), HasSubstr("\n        " + unlocked));
  EXPECT_THAT(out({"unlock", "--undo"}), HasSubstr(reason));

  // Free, blocked for its content and free again, while the same channel plays.
  const size_t played = watch_->count("CHANNEL_PLAY_SUCCESS");
  EXPECT_EQ("Entire Audience: TV-MA blocked\n", out({"parental", "limit", "TV-14"}));
  ASSERT_TRUE(watch_->says("PARENTAL_UNBLOCKED"));
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_EQ("Violence: V blocked\n", out({"parental", "block", "violence"}));
  ASSERT_TRUE(watch_->says("is blocked: V (Violence)\n"));
  EXPECT_EQ("Violence: nothing blocked\n", out({"parental", "allow", "V"}));
  ASSERT_TRUE(watch_->says("PARENTAL_UNBLOCKED", 2));
  EXPECT_EQ(played, watch_->count("CHANNEL_PLAY_SUCCESS"));

  out({"parental", "limit", "TV-PG"});
  EXPECT_THAT(out({"play", "9-1"}), HasSubstr("Case Closed? (TV-14-L-V) is blocked: TV-14, "));
  const size_t free = watch_->count("PARENTAL_UNBLOCKED");
  EXPECT_THAT(out({"unlock"}), HasSubstr("9-1 WOLM-HD: Case Closed? (TV-14-L-V)" + unlocked));
  EXPECT_TRUE(watch_->says("PARENTAL_UNBLOCKED", free + 1));
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_THAT(out({"unlock", "--undo"}), HasSubstr("Case Closed? (TV-14-L-V) is blocked"));
  // Another source without a channel change.
  EXPECT_EQ("Programmes without a rating: blocked\n", out({"parental", "block", "unrated"}));
  act("FW PLAYSRC", R"("src":"QAM")");
  EXPECT_THAT(out({"parental"}), HasSubstr("2-1 Guide: What Is On is blocked: it has no rating;"));
  act("PC PWDUNLOCK", R"("lock_status":1)");
  EXPECT_TRUE(service_->says("\033[0;41;37m orig ch idx != current ch idx. \033[0m"));
  EXPECT_EQ("VIEWING_BLOCKED", viewing());
  out({"parental", "allow", "unrated"});
  EXPECT_EQ("VIEWING_UNRATED", viewing());

  // A table of another region, and ambiguous names.
  out({"parental", "limit", "none"});
  EXPECT_THAT(out({"parental", "region", "harbor city"}), HasSubstr("\n* 5 Harbor City\n"));
  EXPECT_EQ("Age: 12, 18 blocked\n", out({"parental", "limit", "6"}));
  EXPECT_THAT(out({"play", "5-1"}), HasSubstr(" is blocked: "));
  EXPECT_THAT(service_->err(), HasSubstr("blocked: 12 (region 5, Age)"));
  out({"parental", "region", "2"});
  fails(1, {"parental", "limit", "g"}, "English Language Rating or Codes français du Canada");
  fails(1, {"parental", "limit", "TV-PG"}, "has no rating 'TV-PG'; there are ");
  fails(1, {"parental", "limit", "E"}, "E cannot be a limit; use atsc-tv parental block E");
  fails(1, {"parental", "region", "Utopia"}, "there are 1 U.S. ");
  EXPECT_EQ("Codes français du Canada: 16 ans+, 18 ans+ blocked\n",
            out({"parental", "limit", "--dimension", "CODES FRANÇAIS", "13ans+"}));
  EXPECT_THAT(out({"parental", "region", "us"}), HasSubstr("* 1 U.S. "));
  out({"parental", "block", "tvy7"});
  fails(1, {"parental", "allow", "fantasyviolence"}, "FV is blocked together with TV-Y7; allow TV");
  fails(1, {"parental", "limit", "tv-14-d-v"}, "limit TV-14 and atsc-tv parental block D V");
  fails(1, {"parental", "limit", "V"}, "V is a kind of content and cannot be a limit; use atsc-tv");
  fails(1, {"parental", "limit", "FOO"}, "TV-G, TV-PG, TV-14, TV-MA; Children: TV-Y, TV-Y7; ");
  fails(1, {"parental", "block", "no one 17 and under admitted"}, "may be NC-17 or X");
  fails(1, {"parental", "check", "usa-tv", "TV-99"}, "no rating of USA-TV; there are Entire Aud");
  fails(2, {"parental", "limit", "none", "TV-PG"}, "none cannot be combined");
  fails(2, {"parental", "limit", "TV-PG", "TV-MA"}, "one dimension, Entire Audience");
  EXPECT_EQ("Children: nothing blocked\nFantasy Violence: nothing blocked\n",
            out({"parental", "allow", "FV", "TV-Y7"}));
  EXPECT_EQ("PG-13: not blocked\n", out({"parental", "check", "usa-mpaa", "pg13"}));
  // No message about limits, because another terminal may change them.
  EXPECT_THAT(tv({"--verbose", "parental", "block", "L"}).err,
              HasSubstr(R"("dwn":[],"region":1,"us":{"lan":1}})"));
  out({"parental", "reset"});
  EXPECT_EQ("VIEWING_ALLOWED", viewing());
  EXPECT_EQ(1, ask("PC GETCURRREG")["region"].asInt());

  // A lock of the channel is independent.
  out({"edit", "22-1", "--lock"});
  EXPECT_THAT(out({"play", "22-1"}), HasSubstr("\n  locked; atsc-tv play 22-1 --unlocked opens"));
  ASSERT_TRUE(watch_->says("CHANNEL_LOCKED"));
  EXPECT_THAT(out({"parental"}), HasSubstr("; the channel is locked and plays only after "));
  EXPECT_EQ("22-1 Zoë's\n", out({"play", "22-1", "--unlocked"}));
  EXPECT_TRUE(watch_->says("CHANNEL_UNLOCKED"));
  out({"up"});
  const size_t locked = watch_->count("CHANNEL_LOCKED");
  const size_t plays = watch_->count("CHANNEL_PLAY_SUCCESS");
  out({"down", "--unlocked"});
  EXPECT_TRUE(watch_->says("CHANNEL_PLAY_SUCCESS", plays + 1));
  EXPECT_EQ(locked, watch_->count("CHANNEL_LOCKED"));
}

// Two stations with different names for the ratings.
TEST_F(ParentalSystemTest, RatingTablesOfTheAir) {
  const fs::path captures = kCaptures;
  if (!fs::is_directory(captures / "boston")) GTEST_SKIP() << "no field captures";
  Json::Value lineup = parsed(readFile(kAirLineup));
  lineup.removeMember("rating_regions");
  writeFile(folder_ / "lineup.json", Json::FastWriter().write(lineup));
  broadcast({"--start", kStart, folder_ / "lineup.json"}, air_);
  const fs::path carrier = air_ / "vsb" / "183000000.ts";
  writeFile(carrier, readFile(captures / "sections" / "rating-region-1.ts") + readFile(carrier));
  fs::copy(captures / "boston" / "vsb" / "641000000.ts", air_ / "vsb");
  startService(kFast, {"--fast"});
  scan("VSB");
  const Words distant{"7-1", "U.S.(50 States+Possessions)", "EntireAudience",
                      "MPAARatingNotApplicable"};
  const Words local{"5-1", "U.S. (50 states + possessions)", "Entire Audience",
                    "MPAA Rating Not Applicable"};
  for (const Words& station : {distant, local, distant}) {
    out({"play", station[0]});
    Json::Value dimension;
    EXPECT_TRUE(eventually([&] {
      dimension = ask("PC DIMNAME", R"("rat_dim":0)");
      return dimension["dim_name"] == station[2];
    })) << dimension;
    EXPECT_EQ(8, ask("PC NUMDIM")["num_dim"].asInt());
    EXPECT_EQ(station[1], ask("PC GETRRTDETAIL")["reg_name"].asString());
    const Json::Value film = ask("PC GETVALTXT", R"("rat_dim":7,"val":1)");
    EXPECT_EQ(station[3], film["rat_val_txt"].asString());
    EXPECT_THAT(out({"parental"}), HasSubstr(station[2]));
  }
}

// Callbacks are explained; alerts come as the user wants them.
TEST_F(ParentalSystemTest, CallbacksAndAlerts) {
  broadcastLineups({"--start", kStart});
  startService();
  startWatch();
  act("SCAN start", R"("src":"VSB")");
  ASSERT_TRUE(watch_->says("SCAN: the scan is over: 12 services")) << watch_->out();
  ASSERT_TRUE(watch_->says("EPG_COMPLETE")) << watch_->out();
  tune(5, 1);
  ASSERT_TRUE(watch_->says("CHANNEL_PLAY_SUCCESS: the channel plays"));
  ASSERT_TRUE(watch_->says("STT_UPDATE_EVENT: it is 2026-"));
  for (const char* text : {"EPG_UPDATE: programmes have changed on ", "5-1 KÉVA-1", "9-1 WOLM-HD"})
    EXPECT_TRUE(watch_->says(text)) << watch_->out();
  EXPECT_EQ(0u, service_->count("picture closed"));
  act("VC CLOSE");
  EXPECT_TRUE(service_->says("picture closed, audio track"));
  act("SCAN start", R"("src":"QAM")");
  ASSERT_TRUE(watch_->says("SCAN: the scan is over: 7 services"));
  EXPECT_THAT(out({"eas", "alerts", "medium"}), HasSubstr("of medium priority (7) and above\n"));
  restartService();
  ASSERT_TRUE(watch_->says("a service runs again"));
  const size_t complete = watch_->count("EPG_COMPLETE");
  out({"play", "1203"});
  out({"play", "23-2"});
  ASSERT_TRUE(watch_->says("EPG_COMPLETE", complete + 2));
  EXPECT_EQ(0u, watch_->count("EASSTART"));
  // A present alert is reported when the setting allows it, and ends when it does not.
  out({"eas", "alerts", "all"});
  ASSERT_TRUE(
      watch_->says("EASSTARTNONBLOCKING: an alert begins, priority 3 (low): This is a test"));
  EXPECT_EQ(0u, watch_->count("EASSTOP"));
  out({"eas", "alerts", "maximum"});
  EXPECT_TRUE(watch_->says("EASSTOP"));

  out({"eas", "repeats", "show"});
  out({"eas", "cable-only", "on"});
  const std::string settings = out({"eas"});
  EXPECT_THAT(settings, AllOf(HasSubstr("maximum priority (15) only\n"), HasSubstr("shown again\n"),
                              HasSubstr("stations are not shown\n")));
  restartService();
  EXPECT_EQ(settings, out({"eas"}));
}

}  // namespace
