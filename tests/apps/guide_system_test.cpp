// Broadcast data through all processes: guide, service changes, alerts.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <json/json.h>
#include <signal.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;

std::string scanCommand(const std::string& source) {
  return R"({"class":"SCAN","command":"start","src":")" + source + "\"}";
}

std::string tuneCommand(const std::string& source, int major, int minor) {
  return R"({"class":"FW","command":"CHANNELCHANGE","input":")" + source + R"(","major":)" +
         std::to_string(major) + ",\"minor\":" + std::to_string(minor) + "}";
}

std::string channelKey(const Row& row) {
  return std::to_string(row.major) + '-' + std::to_string(row.minor) + '-' +
         std::to_string(row.frequency);
}

class GuideSystemTest : public SystemTest {
 protected:
  GuideSystemTest() : events_(db_ / "ATSC_event.db"), hold_(folder_ / "hold") {
    environment_["TZ"] = "UTC";
  }

  void startBackend() {
    backend_ = start({TV_BACKEND, database_, events_, hold_});
    ASSERT_TRUE(backend_->says("ready")) << backend_->err();
    ASSERT_EQ(0, send(kInit).status);
  }

  // Returns the callbacks so far.
  std::vector<Json::Value> callbacks() const {
    std::vector<Json::Value> messages;
    std::istringstream lines(backend_->out());
    for (std::string line; std::getline(lines, line) && !lines.eof();) {
      Json::Value message;
      std::istringstream(line) >> message;
      if (message.isObject()) messages.push_back(message);
    }
    return messages;
  }

  std::vector<Json::Value> callbacks(const std::string& kind) const {
    std::vector<Json::Value> messages = callbacks();
    messages.erase(std::remove_if(messages.begin(), messages.end(),
                                  [&](const Json::Value& message) {
                                    return message["cbtype"].asString() != kind;
                                  }),
                   messages.end());
    return messages;
  }

  bool hears(const std::string& kind, size_t count = 1) const {
    return eventually([&] { return callbacks(kind).size() >= count; });
  }

  void scan(const std::string& source) {
    const size_t before = overs();
    ASSERT_EQ(0, send(scanCommand(source)).status);
    ASSERT_TRUE(eventually([&] { return overs() > before; }));
  }

  // Returns the value of a query on the guide; "no guide" while there is no table.
  std::string guideValue(const std::string& sql) const {
    try {
      return valueOf(events_, sql);
    } catch (const SQLite::Exception&) {
      return "no guide";
    }
  }

  bool guideBecomes(const std::string& value, const std::string& sql) const {
    return eventually([&] { return guideValue(sql) == value; });
  }

  const fs::path events_;
  const fs::path hold_;
  std::unique_ptr<Process> backend_;

 private:
  size_t overs() const {
    const std::vector<Json::Value> scans = callbacks("SCAN");
    return static_cast<size_t>(std::count_if(
        scans.begin(), scans.end(),
        [](const Json::Value& message) { return message["msg"].asString() == "OVER"; }));
  }
};

// After a scan the guide has the programmes of all services, and they are in the file before the TV
// application is notified.
TEST_F(GuideSystemTest, GuideIsInTheFileBeforeItsMessage) {
  broadcastLineups();
  startService();
  startBackend();
  const auto hasProgrammes = [](const Json::Value& message, const Row& row) {
    return message["programmes"][channelKey(row)].asInt() >= 12;
  };
  std::vector<Row> rows;
  for (const auto& [source, lineup] : {std::pair("VSB", kAirLineup), {"QAM", kCableLineup}}) {
    for (const Row& row : rowsOfLineup(lineup)) {
      if (row.serviceType != "DATA") rows.push_back(row);
    }
    scan(source);
    ASSERT_TRUE(eventually([&] {
      const std::vector<Json::Value> complete = callbacks("EPG_COMPLETE");
      return !complete.empty() && std::all_of(rows.begin(), rows.end(), [&](const Row& row) {
        return hasProgrammes(complete.back(), row);
      });
    })) << source;
  }
  // Several stations can use a source id: at least one of them has programmes.
  std::set<std::string> updated;
  EXPECT_TRUE(eventually([&] {
    for (const Json::Value& message : callbacks("EPG_UPDATE")) {
      std::istringstream ids(message["source_id"].asString());
      for (std::string id; std::getline(ids, id, ',');) {
        updated.insert(id);
        EXPECT_TRUE(std::any_of(rows.begin(), rows.end(), [&](const Row& row) {
          return std::to_string(row.sourceId) == id && hasProgrammes(message, row);
        })) << id;
      }
    }
    return std::all_of(rows.begin(), rows.end(), [&](const Row& row) {
      return updated.count(std::to_string(row.sourceId)) > 0;
    });
  }));
  // Every service has a current programme.
  const Outcome guide = tv({"guide", "--json"});
  ASSERT_EQ(0, guide.status) << guide.err;
  Json::Value sources;
  std::istringstream(guide.out) >> sources;
  std::set<std::string> on;
  for (const char* source : {"VSB", "QAM"}) {
    for (const Json::Value& row : sources[source]) {
      if (row["start_time"].asInt64() <= time(nullptr)) on.insert(row["ch_id_pk"].asString());
    }
  }
  for (const Row& row : rows) EXPECT_THAT(on, Contains(channelKey(row)));
}

TEST_F(GuideSystemTest, BostonGuide) {
  air_ = fs::path(kCaptures) / "boston";
  if (!fs::is_directory(air_)) GTEST_SKIP() << "no field captures";
  startService();
  startBackend();
  scan("VSB");
  ASSERT_EQ(0, send(tuneCommand("VSB", 2, 1)).status);
  const std::string wgbh = " FROM event_t WHERE ch_id_pk LIKE '2-%-503000000'";
  ASSERT_TRUE(guideBecomes("83", "SELECT count(*)" + wgbh)) << guideValue("SELECT count(*)" + wgbh);
  EXPECT_EQ("83", guideValue("SELECT count(*) FROM event_t"));
  EXPECT_EQ("2-1 20,2-101 24,2-102 24,2-2 15",
            guideValue("SELECT group_concat(channel) FROM (SELECT replace(ch_id_pk, '-503000000', "
                       "' ') || count(*) AS channel FROM event_t GROUP BY ch_id_pk ORDER BY 1)"));
  // 2014-01-09 15:00:00 UTC
  EXPECT_EQ("Frontline 2|1389279600|3600|To Catch A Trader",
            guideValue("SELECT name || '|' || start_time || '|' || duration || '|' || desc FROM "
                       "event_t WHERE ch_id_pk = '2-2-503000000' ORDER BY start_time LIMIT 1"));
  EXPECT_EQ("No rating 57,TV-14 1,TV-G 6,TV-PG 4,TV-Y 14,TV-Y7 1",
            guideValue("SELECT group_concat(kind) FROM (SELECT rating || ' ' || count(*) AS kind "
                       "FROM event_t GROUP BY rating ORDER BY rating)"));
  EXPECT_EQ("35", guideValue("SELECT count(*) FROM event_t WHERE cc = 1"));
}

TEST_F(GuideSystemTest, ThreeProgramsGuide) {
  const fs::path capture = fs::path(kCaptures) / "sections" / "three-programs-psip.ts";
  if (!fs::is_regular_file(capture)) GTEST_SKIP() << "no field captures";
  fs::create_directories(air_ / "vsb");
  fs::copy_file(capture, air_ / "vsb" / "479000000.ts");
  startService(kFast, {"--fast", "--clock", "2026-04-22T17:30:00Z"});
  startBackend();
  scan("VSB");
  ASSERT_EQ(0, send(tuneCommand("VSB", 4, 1)).status);
  EXPECT_TRUE(guideBecomes("21", "SELECT count(*) FROM event_t"));
  EXPECT_EQ("7,7,7", guideValue("SELECT group_concat(n) FROM (SELECT count(*) AS n FROM event_t "
                                "GROUP BY ch_id_pk)"));
  // 2026-04-22 17:00:00 UTC
  EXPECT_EQ("1776877200", guideValue("SELECT min(start_time) FROM event_t"));
  EXPECT_EQ("21", guideValue("SELECT count(*) FROM event_t WHERE duration = 3600 AND name = "
                             "'Simulated PSIP'"));
  // The time is from the receiver's clock, not from the stream, which has 19:39:46.
  const int64_t stamp =
      std::stoll(valueOf(database_, "SELECT max(update_time) FROM channel_data_t"));
  EXPECT_GE(stamp, 1776879000);
  EXPECT_LT(stamp, 1776879000 + 1000);
}

TEST_F(GuideSystemTest, AlertReachesTheTV) {
  const fs::path capture = fs::path(kCaptures) / "sections" / "cable-emergency-alert-inband.ts";
  if (!fs::is_regular_file(capture)) GTEST_SKIP() << "no field captures";
  broadcastLineups();
  std::ofstream(air_ / "vsb" / "183000000.ts", std::ios::binary | std::ios::app)
      << readFile(capture);
  startService();
  startBackend();
  scan("VSB");
  auto other = callbacks("EASSTARTBLOCKING").size();
  ASSERT_EQ(0, send(tuneCommand("VSB", 5, 1)).status);
  ASSERT_TRUE(hears("EASSTARTBLOCKING", other + 1));
  const Json::Value alert = callbacks("EASSTARTBLOCKING").back();
  EXPECT_EQ("REQUIRED WEEKLY TEST", alert["text"].asString());
  EXPECT_EQ(15, alert["priority"].asInt());
  // A channel change ends the alert.
  ASSERT_EQ(0, send(tuneCommand("VSB", 22, 1)).status);
  EXPECT_TRUE(hears("EASSTOP"));
}

// A station renames, drops and adds services while one of them plays.
TEST_F(GuideSystemTest, ServiceChangesOnTheAir) {
  broadcastLineups();
  Json::Value lineup;
  std::ifstream(kAirLineup) >> lineup;
  Json::Value& station = lineup["channels"][0];
  ASSERT_EQ(183000000, station["frequency"].asInt64());
  const auto rebroadcast = [&](const std::string& name) {
    const fs::path file = folder_ / (name + ".json");
    std::ofstream(file) << lineup;
    broadcast({file}, folder_ / name);
    fs::rename(folder_ / name / "vsb" / "183000000.ts", air_ / "vsb" / "183000000.ts");
  };
  const auto channelsBecome = [&](const fs::path& lineupFile) {
    return eventually([&] { return terrestrial() == rowsOfLineup(lineupFile); });
  };
  startService();
  startBackend();
  scan("VSB");
  ASSERT_EQ(0, send(tuneCommand("VSB", 5, 1)).status);
  ASSERT_TRUE(hears("CHANNEL_PLAY_SUCCESS"));
  const size_t before = callbacks("SERVICE_BUILD_COMPLETED").size();

  station["version"] = 7;
  Json::Value& services = station["services"];
  services[0]["name"] = "NEW-1";
  Json::Value added = services[1];
  services.removeIndex(2, nullptr);
  added["program"] = 77;
  added["pmt_pid"] = 1000;
  added["minor"] = 7;
  added["name"] = "NEW-7";
  added["source_id"] = 77;
  for (Json::Value& stream : added["streams"]) stream["pid"] = stream["pid"].asInt() + 1000;
  services.append(added);
  rebroadcast("changed");
  ASSERT_TRUE(hears("SERVICE_BUILD_COMPLETED", before + 1));
  EXPECT_EQ(rowsOfLineup(folder_ / "changed.json"), terrestrial());
  const Json::Value first = callbacks("SERVICE_BUILD_COMPLETED").back();
  EXPECT_TRUE(first["channels"].isMember("NEW-1")) << "in the file when the message came";

  station["version"] = 8;
  services[0]["name"] = "NEW-2";
  rebroadcast("again");
  ASSERT_TRUE(hears("SERVICE_BUILD_COMPLETED", before + 2));
  EXPECT_TRUE(channelsBecome(folder_ / "again.json"));
  EXPECT_TRUE(callbacks("SERVICE_BUILD_COMPLETED")[before + 1]["channels"].isMember("NEW-2"))
      << "one message for the first burst";
}

// A TV application that does not answer only delays its own messages. The service can still end.
TEST_F(GuideSystemTest, StuckTVDelaysOnlyItsMessages) {
  broadcastLineups();
  startService();
  startBackend();
  scan("VSB");
  ASSERT_TRUE(hears("EPG_COMPLETE"));
  std::ofstream(hold_) << "x";
  ASSERT_EQ(0, send(tuneCommand("VSB", 5, 1)).status);
  ASSERT_TRUE(backend_->says("held"));
  const size_t before = callbacks().size();
  ASSERT_EQ(0, send(tuneCommand("VSB", 22, 1)).status);
  EXPECT_EQ(0, send(kInit).status);
  EXPECT_EQ(before, callbacks().size());
  const size_t played = callbacks("CHANNEL_PLAY_SUCCESS").size();
  fs::remove(hold_);
  ASSERT_TRUE(hears("CHANNEL_PLAY_SUCCESS", played + 1));

  std::ofstream(hold_) << "x";
  ASSERT_EQ(0, send(tuneCommand("VSB", 9, 1)).status);
  ASSERT_TRUE(eventually([&] {
    const std::string out = backend_->out();
    return out.find("held") != out.rfind("held");
  }));
  service_->signal(SIGTERM);
  EXPECT_EQ(0, service_->wait()) << service_->err();
}

TEST_F(GuideSystemTest, CallbacksAreExplained) {
  broadcastLineups();
  startService();
  auto watch = startWatch();
  ASSERT_EQ(0, send(scanCommand("VSB")).status);
  ASSERT_TRUE(watch->says("SCAN: the scan is over")) << watch->out();
  ASSERT_TRUE(watch->says("EPG_COMPLETE")) << watch->out();
  ASSERT_EQ(0, send(tuneCommand("VSB", 5, 1)).status);
  ASSERT_TRUE(watch->says("CHANNEL_PLAY_SUCCESS: the channel plays"));
  ASSERT_TRUE(watch->says("STT_UPDATE_EVENT: it is 20"));
  ASSERT_EQ(0, send(scanCommand("QAM")).status);
  ASSERT_TRUE(watch->says("SCAN: the scan is over: 7 services"));
  ASSERT_EQ(0, send(tuneCommand("QAM", 23, 2)).status);
  EXPECT_TRUE(
      watch->says("EASSTARTNONBLOCKING: an alert begins, priority 3 (low): This is a test"));
  EXPECT_THAT(watch->out(), AllOf(HasSubstr("EPG_UPDATE: programmes have changed on "),
                                  HasSubstr("5-1 KÉVA-1"), HasSubstr("9-1 WOLM-HD")));
}

// Programmes of a hostile station.
TEST_F(GuideSystemTest, GuideIsReadable) {
  const Outcome none = tv({"guide"});
  EXPECT_EQ(1, none.status);
  EXPECT_THAT(none.err, HasSubstr("atsc-tv scan finds them"));

  fs::create_directory(db_);
  {
    SQLite::Database channels(database_.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    channels.exec(
        "CREATE TABLE channel_data_t (ch_index INTEGER PRIMARY KEY, name TEXT, freq INTEGER, "
        "major_no INTEGER, minor_no INTEGER, tuner_type TEXT, ch_id_pk TEXT);"
        "INSERT INTO channel_data_t VALUES (1, 'KÉVA-1', 57000000, 5, 1, 'VSB', 'a'),"
        "(2, 'Ñandú', 57000000, 9, 1, 'VSB', 'b'), (3, 'Dark', 57000000, 10, 1, 'VSB', 'c')");
    const Outcome empty = tv({"guide", "--width", "80"});
    EXPECT_EQ(0, empty.status);
    EXPECT_THAT(empty.out, HasSubstr("no programmes received yet"));
    SQLite::Database events(events_.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    // Times from 2014-01-09 19:00:00 UTC on.
    events.exec(
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
  }
  const std::vector<std::string> now = {"--at", "2014-01-09T19:40:00Z", "--src", "VSB"};
  const auto guide = [&](std::vector<std::string> words) {
    words.insert(words.begin(), "guide");
    words.insert(words.end(), now.begin(), now.end());
    const Outcome outcome = tv(words);
    EXPECT_EQ(0, outcome.status) << outcome.err;
    return outcome.out;
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
  const Outcome later = tv({"guide", "--width", "80", "--at", "2030-01-01T00:00:00Z"});
  EXPECT_THAT(later.out,
              HasSubstr("those received go from 2014-01-09T19:00Z to 2014-01-10T11:30Z"));
  EXPECT_EQ(later.out, tv({"guide", "--width", "80", "--at", "2029-12-31T19:00-05:00"}).out);
  EXPECT_THAT(tv({"guide", "--channel", "10-1", "--width", "80", "--at", "first"}).out,
              HasSubstr("\nno programme information\n"));
  EXPECT_THAT(tv({"guide", "--width", "80", "--at", "first"}).out, HasSubstr("19:00 UTC\nThu 09"));
  EXPECT_EQ(1, tv({"guide", "--channel", "7-7"}).status);
  EXPECT_EQ(2, tv({"guide", "--at", "2014-02-30T00:00:00Z"}).status);
}

}  // namespace
