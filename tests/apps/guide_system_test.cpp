// Broadcast data through all processes: guide, service changes, alerts.
#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>

#include "backend_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

class GuideSystemTest : public BackendTest {
 protected:
  GuideSystemTest() { environment_["TZ"] = "UTC"; }

  // Returns the callbacks of a kind so far.
  std::vector<Json::Value> callbacks(const std::string& kind) const {
    return callbacksIn(backend_->out(), kind);
  }

  bool hears(const std::string& kind, size_t count = 1) const {
    return backend_->says('"' + kind + '"', count);
  }

  void scan(const std::string& source) {
    const size_t before = backend_->count("\"OVER\"");
    act("SCAN start", R"("src":")" + source + '"');
    ASSERT_TRUE(hears("OVER", before + 1));
  }

  // Returns whether a query on the guide gets a value.
  bool guideBecomes(const std::string& value, const std::string& sql) const {
    return eventually([&] { return valueNow(events_, sql) == value; });
  }

  std::unique_ptr<Process> backend_;
};

// After a scan the guide has the programmes of all services, and they are in the file before the TV
// application is notified. One that does not answer delays only its messages.
TEST_F(GuideSystemTest, GuideIsInTheFileBeforeItsMessage) {
  broadcastLineups();
  startService();
  backend_ = startBackend();
  act("FW INIT");
  const auto full = [](const Json::Value& message) {
    return [&](const std::string& key) { return message["programmes"][key].asInt() >= 12; };
  };
  std::set<std::string> keys;
  std::map<std::string, Words> keysOf;  // by source id
  for (const auto& [source, table] :
       {std::pair("VSB", "channel_data_t"), {"QAM", "channel_data_c"}}) {
    scan(source);
    const std::string sql = " FROM " + std::string(table) + " WHERE srv_type <> 'DATA'";
    for (const std::string& id : rowsOf(database_, "SELECT DISTINCT source_id" + sql)) {
      for (const std::string& key :
           rowsOf(database_, "SELECT ch_id_pk" + sql + " AND source_id = " + id)) {
        keys.insert(key);
        keysOf[id].push_back(key);
      }
    }
    EXPECT_TRUE(eventually([&] {
      const std::vector<Json::Value> complete = callbacks("EPG_COMPLETE");
      return !complete.empty() && std::all_of(keys.begin(), keys.end(), full(complete.back()));
    })) << source;
  }
  // Several stations can use a source id: at least one of them has programmes.
  std::set<std::string> updated;
  EXPECT_TRUE(eventually([&] {
    for (const Json::Value& message : callbacks("EPG_UPDATE")) {
      std::istringstream ids(message["source_id"].asString());
      for (std::string id; std::getline(ids, id, ',');) {
        updated.insert(id);
        EXPECT_TRUE(std::any_of(keysOf[id].begin(), keysOf[id].end(), full(message))) << id;
      }
    }
    return updated.size() == keysOf.size();
  }));
  // Every service has a current programme.
  std::set<std::string> on;
  for (const Json::Value& source : parsed(out({"guide", "--json"}))) {
    for (const Json::Value& row : source) {
      if (row["start_time"].asInt64() <= time(nullptr)) on.insert(row["ch_id_pk"].asString());
    }
  }
  EXPECT_THAT(on, testing::IsSupersetOf(keys));

  writeFile(hold_, "x");
  tune(5, 1);
  ASSERT_TRUE(hears("held"));
  const std::string before = backend_->out();
  tune(22, 1);
  act("FW INIT");
  EXPECT_EQ(before, backend_->out());
  const size_t played = callbacks("CHANNEL_PLAY_SUCCESS").size();
  fs::remove(hold_);
  ASSERT_TRUE(hears("CHANNEL_PLAY_SUCCESS", played + 1));
  writeFile(hold_, "x");
  tune(9, 1);
  ASSERT_TRUE(hears("held", 2));
  EXPECT_EQ(0, service_->stop()) << service_->err() << "ends although its message is not answered";
}

// A carrier of a city: its channels, its guide, and its programmes as the viewer may see them.
TEST_F(GuideSystemTest, BostonCapture) {
  air_ = fs::path(kCaptures) / "boston";
  if (!fs::is_directory(air_)) GTEST_SKIP() << "no field captures";
  startService();
  SystemTest::scan("VSB");
  EXPECT_EQ((Words{"2-1 WGBH-HD TV 1357", "2-2 World TV 1357", "2-101 Updat0 DATA 1357",
                   "2-102 Updat1 DATA 1357", "7-1 WHDH-HD TV 1363", "7-2 This TV TV 1363",
                   "25-1 WFXT DT TV 1365", "25-2 WFXT DT TV 1365"}),
            rowsOf(database_,
                   "SELECT major_no || '-' || minor_no || ' ' || name || ' ' || srv_type "
                   "|| ' ' || tsid FROM channel_data_t ORDER BY major_no, minor_no"));
  startWatch();
  out({"play", "2-1"});
  EXPECT_TRUE(guideBecomes("83", "SELECT count(*) FROM event_t"));
  EXPECT_EQ(
      (Words{"2-1-503000000|20", "2-101-503000000|24", "2-102-503000000|24", "2-2-503000000|15"}),
      rowsOf(events_, "SELECT ch_id_pk, count(*) FROM event_t GROUP BY 1 ORDER BY 1"));
  // 2014-01-09 15:00:00 UTC
  EXPECT_EQ(Words{"Frontline 2|1389279600|3600|To Catch A Trader"},
            rowsOf(events_,
                   "SELECT name, start_time, duration, desc FROM event_t WHERE ch_id_pk = "
                   "'2-2-503000000' ORDER BY start_time LIMIT 1"));
  EXPECT_EQ((Words{"No rating|57", "TV-14|1", "TV-G|6", "TV-PG|4", "TV-Y|14", "TV-Y7|1"}),
            rowsOf(events_, "SELECT rating, count(*) FROM event_t GROUP BY 1 ORDER BY 1"));
  EXPECT_EQ("35", valueOf(events_, "SELECT count(*) FROM event_t WHERE cc = 1"));

  // A programme from 19:30:00 to 21:00:00. An emulator takes longer to start the programs.
  out({"parental", "limit", "TV-PG"});
  const std::string second = std::getenv("ATSC_TEST_EMULATOR") != nullptr ? "50Z" : "57Z";
  const std::string blocked =
      "PARENTAL_BLOCKED: 2-2 World: Independent Lens (TV-14) is blocked: TV-14, the limit is TV-PG";
  restartService({"--fast", "--clock", "2014-01-09T19:29:" + second});
  EXPECT_EQ("2-2 World\n", out({"play", "2-2"}));
  EXPECT_TRUE(watch_->says(blocked)) << watch_->out();
  EXPECT_TRUE(ask("PC ISPCBLOCKED")["blocked"].asBool());
  EXPECT_THAT(out({"now"}), HasSubstr("Clock    Thu 09 Jan 2014 14:30:"));
  const size_t freed = watch_->count("PARENTAL_UNBLOCKED");
  restartService({"--fast", "--clock", "2014-01-09T20:59:" + second});
  EXPECT_THAT(out({"play", "2-2"}), HasSubstr("Independent Lens (TV-14) is blocked"));
  EXPECT_TRUE(watch_->says(blocked, 2)) << watch_->out();
  EXPECT_TRUE(watch_->says("PARENTAL_UNBLOCKED", freed + 1));
  EXPECT_FALSE(ask("PC ISPCBLOCKED")["blocked"].asBool());
  EXPECT_THAT(out({"now"}), HasSubstr("Clock    Thu 09 Jan 2014 16:00:"));
}

TEST_F(GuideSystemTest, ThreeProgramsCapture) {
  const fs::path capture = fs::path(kCaptures) / "sections" / "three-programs-psip.ts";
  if (!fs::is_regular_file(capture)) GTEST_SKIP() << "no field captures";
  fs::create_directories(air_ / "vsb");
  fs::copy_file(capture, air_ / "vsb" / "479000000.ts");
  startService(kFast, {"--fast", "--clock", "2026-04-22T17:30:00Z"});
  out({"scan", "--freq", "15"});
  EXPECT_EQ((Words{"4-1|S06 SM2|479000000|65002|3|TV|VSB|52_eng_129,53_spa_129,|49_2,",
                   "4-2|S07 SM2|479000000|65002|4|TV|VSB|68_eng_129,69_spa_129,|65_2,",
                   "4-3|S08 SM2|479000000|65002|5|TV|VSB|84_eng_129,85_spa_129,|81_2,"}),
            terrestrial());
  out({"play", "4-1"});
  EXPECT_TRUE(guideBecomes("21", "SELECT count(*) FROM event_t"));
  // From 2026-04-22 17:00:00 UTC on.
  const std::string rest = "|7|1776877200|3600|3600|Simulated PSIP|Simulated PSIP";
  EXPECT_EQ((Words{"4-1-479000000" + rest, "4-2-479000000" + rest, "4-3-479000000" + rest}),
            rowsOf(events_,
                   "SELECT ch_id_pk, count(*), min(start_time), min(duration), "
                   "max(duration), min(name), max(name) FROM event_t GROUP BY 1"));
  // The time is from the receiver's clock, not from the stream, which has 19:39:46.
  EXPECT_EQ("1776879", valueOf(database_, "SELECT max(update_time) / 1000 FROM channel_data_t"));
}

// A station sends an alert. Then it renames, drops and adds services while one of them plays.
TEST_F(GuideSystemTest, StationChangesWhatItSends) {
  broadcastLineups();
  const fs::path carrier = air_ / "vsb" / "183000000.ts";
  const fs::path capture = fs::path(kCaptures) / "sections" / "cable-emergency-alert-inband.ts";
  const bool alerts = fs::is_regular_file(capture);
  if (alerts) replaceFile(carrier, readFile(capture) + readFile(carrier));
  startService();
  backend_ = startBackend();
  act("FW INIT");
  scan("VSB");
  const size_t others = callbacks("EASSTARTBLOCKING").size();
  tune(5, 1);
  ASSERT_TRUE(hears("CHANNEL_PLAY_SUCCESS"));
  if (alerts) {
    ASSERT_TRUE(hears("EASSTARTBLOCKING", others + 1));
    const Json::Value alert = callbacks("EASSTARTBLOCKING").back();
    EXPECT_EQ("REQUIRED WEEKLY TEST", alert["text"].asString());
    EXPECT_EQ(15, alert["priority"].asInt());
    tune(22, 1);
    EXPECT_TRUE(hears("EASSTOP")) << "a channel change ends the alert";
    tune(5, 1);
  }
  const size_t before = callbacks("SERVICE_BUILD_COMPLETED").size();

  Json::Value lineup = parsed(readFile(kAirLineup));
  Json::Value& station = lineup["channels"][0];
  ASSERT_EQ(183000000, station["frequency"].asInt64());
  station["version"] = 7;
  Json::Value& services = station["services"];
  services[0]["name"] = "NEW-1";
  services[2] = services[1];
  services[2]["name"] = "NEW-7";
  for (const auto& [key, value] :
       {std::pair("program", 77), {"pmt_pid", 1000}, {"minor", 7}, {"source_id", 77}}) {
    services[2][key] = value;
  }
  for (Json::Value& stream : services[2]["streams"]) stream["pid"] = stream["pid"].asInt() + 1000;
  writeFile(folder_ / "changed.json", Json::FastWriter().write(lineup));
  broadcast({folder_ / "changed.json"}, folder_ / "changed");
  fs::rename(folder_ / "changed" / "vsb" / "183000000.ts", carrier);
  ASSERT_TRUE(hears("SERVICE_BUILD_COMPLETED", before + 1));
  Words rows = kAirRows;
  rows[0].replace(rows[0].find("KÉVA-1"), sizeof "KÉVA-1" - 1, "NEW-1");
  rows[2] = "5-7|NEW-7|183000000|2817|77|TV|VSB|1068_fra_129,1069_eng_129,|1065_2,";
  EXPECT_EQ(rows, terrestrial());
  const std::vector<Json::Value> built = callbacks("SERVICE_BUILD_COMPLETED");
  EXPECT_EQ(before + 1, built.size()) << "one message for all changes";
  EXPECT_TRUE(built.back()["channels"].isMember("NEW-1")) << "in the file when the message came";
}

// Programmes of a hostile station.
TEST_F(GuideSystemTest, GuideIsReadable) {
  fails(1, {"guide"}, "atsc-tv scan finds them");
  fs::create_directory(db_);
  execute(database_,
          "CREATE TABLE channel_data_t (ch_index INTEGER PRIMARY KEY, name TEXT, freq INTEGER, "
          "major_no INTEGER, minor_no INTEGER, tuner_type TEXT, ch_id_pk TEXT);"
          "INSERT INTO channel_data_t VALUES (1, 'KÉVA-1', 57000000, 5, 1, 'VSB', 'a'),"
          "(2, 'Ñandú', 57000000, 9, 1, 'VSB', 'b'), (3, 'Dark', 57000000, 10, 1, 'VSB', 'c')");
  EXPECT_THAT(out({"guide", "--width", "80"}), HasSubstr("no programmes received yet"));
  // Times from 2014-01-09 19:00:00 UTC on.
  execute(
      events_,
      "CREATE TABLE event_t (event_index INTEGER, name TEXT, start_time INTEGER, duration "
      "INTEGER, rating TEXT, cc INTEGER, desc TEXT, ch_id_pk INTEGER);"
      "INSERT INTO event_t SELECT column1, column2, 1389294000 + 60 * column3, 60 * column4, "
      "column5, column6, column7, column8 FROM (VALUES "
      "(1, 'Long and overlapped by the next one', 0, 120, 'TV-14-V', 1, 'Line one\nline two', "
      "'a'), (2, 'Begins early', 60, 30, 'No rating', 0, NULL, 'a'),"
      "(3, 'no length', 45, 0, '', 0, '', 'a'), (4, 'A title\twith \x1B[2J', 125, 85, '', 0, '', "
      "'a'), (5, 'Le soleil d''été', 30, 30, '', 0, '', 'b'), (6, 'EMPTY', 90, 900, '', 0, '', "
      "'b'), (7, 'of a channel that is gone', 0, 900, '', 0, '', 'd'));"
      "ALTER TABLE event_t ADD COLUMN parent_stat INTEGER;"
      "UPDATE event_t SET parent_stat = event_index = 2");
  const auto guide = [&](Words words) {
    words.insert(words.begin(), {"guide", "--at", "2014-01-09T19:40:00Z", "--src", "VSB"});
    return out(words);
  };
  EXPECT_EQ(
      "Terrestrial (VSB), Thu 09 Jan 2014 19:40 UTC\n"
      "Thu 09 Jan  │19:30      │20:00      │20:30      │21:00\n"
      " 5-1 KÉVA-1 │‹*Long and…│!Begins ea…│no info      │:05 A tit…\n"
      " 9-1 Ñandú  │*Le soleil…│no info    │(no title)\n"
      "10-1 Dark   │no programme information\n"
      "\n"
      "Thu 09 Jan  │21:30      │22:00      │22:30\n"
      " 5-1 KÉVA-1 │‹A title with \xEF\xBF\xBD[2J     │no info\n"
      " 9-1 Ñandú  │‹(no title)\n"
      "10-1 Dark   │no programme information\n"
      "! blocked\n",
      guide({"--width", "61"}));
  EXPECT_EQ(
      "VSB\t5-1\tKÉVA-1\t2014-01-09T19:00:00+00:00\t2014-01-09T21:00:00+00:00\tLong and overlapped "
      "by the next one\tTV-14-V\tCC\tLine one line two\t-\n"
      "VSB\t5-1\tKÉVA-1\t2014-01-09T19:45:00+00:00\t2014-01-09T19:45:00+00:00\tno "
      "length\t\t-\t\t-\n"
      "VSB\t5-1\tKÉVA-1\t2014-01-09T20:00:00+00:00\t2014-01-09T20:30:00+00:00\tBegins early\tNo "
      "rating\t-\t\tblocked\n"
      "VSB\t9-1\tÑandú\t2014-01-09T19:30:00+00:00\t2014-01-09T20:00:00+00:00\tLe soleil "
      "d'été\t\t-\t\t-\n"
      "VSB\t9-1\tÑandú\t2014-01-09T20:30:00+00:00\t2014-01-10T11:30:00+00:00\tEMPTY\t\t-\t\t-\n",
      guide({"--hours", "1"}));
  EXPECT_EQ(
      "Terrestrial (VSB), Thu 09 Jan 2014 19:40 UTC\n"
      "5-1 KÉVA-1\n"
      "  Thu 09 Jan 2014\n"
      "now 19:00-21:00  Long and overlapped\n"
      "      by the next one (120 min)  TV-14-V\n"
      "      [CC]\n"
      "      Line one line two\n"
      "    19:45-19:45  no length (0 min)\n"
      "    20:00-20:30  Begins early (30 min)\n"
      "      blocked\n",
      guide({"--hours", "1", "--channel", "5-1", "--width", "40"}));
  const std::string later = out({"guide", "--width", "80", "--at", "2030-01-01T00:00:00Z"});
  EXPECT_THAT(later, HasSubstr("those received go from 2014-01-09T19:00Z to 2014-01-10T11:30Z"));
  EXPECT_EQ(later, out({"guide", "--width", "80", "--at", "2029-12-31T19:00-05:00"}));
  EXPECT_THAT(out({"guide", "--channel", "10-1", "--width", "80", "--at", "first"}),
              HasSubstr("\nno programme information\n"));
  EXPECT_THAT(out({"guide", "--width", "80", "--at", "first"}), HasSubstr("19:00 UTC\nThu 09"));
  fails(1, {"guide", "--channel", "7-7"}, "7-7");
  fails(2, {"guide", "--at", "2014-02-30T00:00:00Z"}, "--at");
}

}  // namespace
