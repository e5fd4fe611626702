// The programs together: service, TV application and an air folder, as separate processes.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

constexpr const char* kStop = R"({"class":"SCAN","command":"stop"})";
constexpr const char* kScan15 =
    R"({"class":"SCAN","command":"start","mode":"manual","freq":15,"src":"VSB"})";

std::vector<Row> lineupRowsAt(int64_t frequency) {
  std::vector<Row> rows = rowsOfLineup(kAirLineup);
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&](const Row& row) { return row.frequency != frequency; }),
             rows.end());
  return rows;
}

TEST_F(SystemTest, ScansFindEveryListedServiceOnce) {
  broadcastLineups();
  startService();
  const Outcome air = tv({"scan"});
  ASSERT_EQ(0, air.status) << air.out << air.err;
  EXPECT_EQ(rowsOfLineup(kAirLineup), terrestrial());
  EXPECT_TRUE(cable().empty());
  const Outcome qam = tv({"scan", "--src", "QAM"});
  ASSERT_EQ(0, qam.status) << qam.out << qam.err;
  EXPECT_EQ(rowsOfLineup(kCableLineup), cable());
  EXPECT_EQ(rowsOfLineup(kAirLineup), terrestrial());

  const Outcome list = tv({"channels"});
  EXPECT_EQ(0, list.status) << list.err;
  for (const auto& rows : {terrestrial(), cable()}) {
    EXPECT_FALSE(rows.empty());
    for (const Row& row : rows) EXPECT_THAT(list.out, HasSubstr(row.name));
  }

  const std::string before = contentOfTable(database_, "channel_data_t");
  const std::string cableBefore = contentOfTable(database_, "channel_data_c");
  EXPECT_EQ(0, tv({"scan"}).status);
  EXPECT_EQ(0, tv({"scan", "--src", "QAM"}).status);
  EXPECT_EQ(before, contentOfTable(database_, "channel_data_t"));
  EXPECT_EQ(cableBefore, contentOfTable(database_, "channel_data_c"));

  service_->signal(SIGTERM);
  EXPECT_EQ(0, service_->wait()) << service_->err();
  EXPECT_FALSE(fs::exists("/tmp/.BUS.atsc.qel.service.srv"));
  EXPECT_TRUE(fs::exists(db_ / "services.json")) << "the receiver's state";
  EXPECT_EQ("ok", integrityOf(database_));
}

TEST_F(SystemTest, StoppedScanKeepsWhatItFound) {
  broadcastLineups();
  startService(kSlow);
  auto scan = startScan();
  scan->signal(SIGINT);
  const Outcome stopped = finish(*scan);
  EXPECT_EQ(0, stopped.status) << stopped.err;
  EXPECT_THAT(stopped.out, AllOf(HasSubstr("stopped"), HasSubstr("3 channels")));
  const std::vector<Row> first = lineupRowsAt(183000000);
  EXPECT_EQ(first, terrestrial());

  // A scan that another process stops also ends.
  scan = startScan();
  EXPECT_EQ(0, send(kStop).status);
  const Outcome silent = finish(*scan);
  EXPECT_EQ(1, silent.status) << silent.err;
  EXPECT_THAT(silent.out, HasSubstr("stopped"));
  EXPECT_NE(0, send(kStop).status) << "no scan runs any more";

  // A scan of one frequency adds to the list.
  EXPECT_EQ(0, tv({"scan", "--freq", "15"}).status);
  std::vector<Row> both = first;
  for (const Row& row : lineupRowsAt(479000000)) both.push_back(row);
  EXPECT_EQ(both, terrestrial());

  // The service ends cleanly while a scan runs.
  scan = startScan();
  service_->signal(SIGTERM);
  EXPECT_EQ(0, service_->wait()) << service_->err();
  EXPECT_EQ(1, scan->wait()) << scan->err();
}

TEST_F(SystemTest, CallbacksArriveInOrder) {
  broadcastLineups();
  startService();
  auto watch = startWatch({"--json"});
  EXPECT_EQ(0, send(kInit).status);
  EXPECT_EQ(0, send(kScan15).status);
  ASSERT_TRUE(watch->says("OVER")) << watch->err();
  watch->signal(SIGINT);
  const Outcome outcome = finish(*watch);
  EXPECT_EQ(0, outcome.status) << outcome.err;
  std::istringstream lines(outcome.out);
  std::vector<std::string> states;
  for (std::string line; std::getline(lines, line);) {
    Json::Value message;
    std::istringstream(line) >> message;
    EXPECT_EQ("CALLBACK", message["class"].asString());
    if (message["cbtype"].asString() != "SCAN") continue;
    states.push_back(message["msg"].asString());
    if (states.back() == "OVER") {
      EXPECT_EQ(lineupRowsAt(479000000).size(), message["ser_found"].asUInt());
      EXPECT_EQ(479000000u, message["lock_freq"].asUInt());
      EXPECT_EQ(100, message["progress"].asInt());
    }
  }
  EXPECT_EQ((std::vector<std::string>{"START", "PROGRESS", "OVER"}), states);
}

TEST_F(SystemTest, DeathOfTheServiceIsNoticed) {
  broadcastLineups();
  startService(kSlow);
  // A running TV application has loaded the library, but must not answer in place of the service.
  auto watch = startWatch();
  EXPECT_EQ(0, send(kInit).status);
  service_->signal(SIGKILL);
  service_->wait();
  for (const auto& words : {std::vector<std::string>{"send", kInit}, {"scan"}, {"watch"}}) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(3, outcome.status) << words[0];
    EXPECT_THAT(outcome.err, HasSubstr("start atsc-service")) << words[0];
  }
  EXPECT_TRUE(watch->says("has ended"));

  startService(kSlow);
  EXPECT_EQ(0, send(kInit).status);
  watch->signal(SIGTERM);
  EXPECT_EQ(0, watch->wait());

  auto scan = startScan();
  service_->signal(SIGKILL);
  service_->wait();
  const Outcome outcome = finish(*scan);
  EXPECT_EQ(1, outcome.status);
  EXPECT_THAT(outcome.err, HasSubstr("the service ended during the scan"));
  EXPECT_EQ("ok", integrityOf(database_));

  startService();
  EXPECT_EQ(0, tv({"scan"}).status);
  EXPECT_EQ(rowsOfLineup(kAirLineup), terrestrial());
}

TEST_F(SystemTest, DeathOfTheTVDoesNotDisturbTheService) {
  broadcastLineups();
  startService("50");
  auto watch = startWatch();
  for (const auto& words : {std::vector<std::string>{"watch"}, {"scan"}}) {
    const Outcome refused = tv(words);
    EXPECT_EQ(4, refused.status) << words[0];
    EXPECT_THAT(refused.err, HasSubstr("process " + std::to_string(watch->pid())));
  }
  watch->signal(SIGKILL);
  watch->wait();

  auto scan = startScan();
  scan->signal(SIGKILL);
  scan->wait();
  // A second scan is refused until this one ends. The scan continues without its TV application.
  const Outcome refused = tv({"scan"});
  EXPECT_EQ(1, refused.status);
  EXPECT_THAT(refused.err, HasSubstr("a scan is running"));
  EXPECT_TRUE(eventually([&] { return terrestrial() == rowsOfLineup(kAirLineup); }));
  EXPECT_TRUE(eventually([&] { return tv({"scan", "--freq", "8"}).status == 0; }));
}

TEST_F(SystemTest, OneServiceOnly) {
  fs::create_directory(air_);
  startService();
  const Outcome second = run({ATSC_SERVICE, "--air", air_, "--db", folder_ / "other"});
  EXPECT_EQ(1, second.status);
  EXPECT_THAT(second.err, HasSubstr("process " + std::to_string(service_->pid())));
  EXPECT_EQ(0, send(kInit).status);
}

TEST_F(SystemTest, UnusableFoldersAreRefused) {
  fs::create_directory(air_);
  std::ofstream(folder_ / "file") << "x";
  const Outcome noAir = run({ATSC_SERVICE, "--air", folder_ / "none", "--db", db_});
  EXPECT_EQ(2, noAir.status);
  EXPECT_THAT(noAir.err, HasSubstr("none"));
  const Outcome noDb = run({ATSC_SERVICE, "--air", air_, "--db", folder_ / "file"});
  EXPECT_EQ(1, noDb.status);
  EXPECT_THAT(noDb.err, HasSubstr((folder_ / "file").string()));
  EXPECT_FALSE(fs::exists(db_));
}

TEST_F(SystemTest, WrongCommandsAreAnswered) {
  fs::create_directory(air_);
  startService();
  for (const char* command :
       {"{", R"({"class":"XYZ","command":"INIT"})", R"({"class":"FW"})", "[1]", "7"}) {
    const Outcome outcome = send(command);
    EXPECT_EQ(1, outcome.status) << command;
    EXPECT_EQ("result -1\n", outcome.out) << command;
  }
  const Outcome outcome = run({ATSC_TV, "send", "-"}, kInit);
  EXPECT_EQ(0, outcome.status) << outcome.err;
  EXPECT_EQ("result 0\n", outcome.out);
  EXPECT_EQ(2, tv({"scan", "--src", "FM"}).status);
  EXPECT_EQ(2, tv({"scan", "--freq", "70"}).status);
  const Outcome unknown = tv({"chanels"});
  EXPECT_EQ(2, unknown.status);
  EXPECT_THAT(unknown.err, HasSubstr("'chanels'"));
}

TEST_F(SystemTest, NamesCannotActOnTheTerminal) {
  const Outcome none = tv({"channels"});
  EXPECT_EQ(1, none.status);
  EXPECT_THAT(none.err, HasSubstr("atsc-tv scan finds them"));

  fs::create_directory(db_);
  {
    SQLite::Database file(database_.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    file.exec(
        "CREATE TABLE channel_data_t (ch_index INTEGER PRIMARY KEY, name TEXT, freq INTEGER, "
        "major_no INTEGER, minor_no INTEGER, audio_pid TEXT)");
    SQLite::Statement insert(
        file, "INSERT INTO channel_data_t VALUES (NULL, ?, 57000000, 2, 1, '1_\x1B[2J_129,_,x')");
    for (const char* name : {"\x1B[2Jclear", "tab\tline\nend",
                             "c1\xC2\x9B"
                             "2J",
                             "\xE2\x80\xAEover", "\xED\xA0\xBD\xED\xB8\x80 pair",
                             "lone\xED\xA0\xBD", "\xFF\xC3", "é"}) {
      insert.bind(1, name);
      insert.exec();
      insert.reset();
    }
  }
  const Outcome list = tv({"channels", "--src", "vsb"});
  EXPECT_EQ(0, list.status) << list.err;
  EXPECT_TRUE(std::none_of(list.out.begin(), list.out.end(), [](char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F;
  })) << list.out;
  EXPECT_EQ(std::string::npos, list.out.find("\xC2\x9B"));
  EXPECT_EQ(std::string::npos, list.out.find("\xE2\x80\xAE"));
  EXPECT_EQ(std::string::npos, list.out.find("\xED\xA0"));
  EXPECT_THAT(list.out, AllOf(HasSubstr("\xF0\x9F\x98\x80 pair"), HasSubstr("lone\xEF\xBF\xBD"),
                              HasSubstr("é")));
  const Outcome json = tv({"channels", "--json"});
  Json::Value channels;
  std::istringstream(json.out) >> channels;
  EXPECT_EQ(8u, channels["VSB"].size());
  EXPECT_TRUE(channels["QAM"].isNull());

  std::ofstream(database_, std::ios::trunc) << "this is not a database, whatever its name says";
  const Outcome broken = tv({"channels"});
  EXPECT_EQ(1, broken.status);
  EXPECT_THAT(broken.err, HasSubstr(database_.string()));
}

TEST_F(SystemTest, BostonCapture) {
  air_ = fs::path(kCaptures) / "boston";
  if (!fs::is_directory(air_)) GTEST_SKIP() << "no field captures";
  startService();
  const Outcome scan = tv({"scan"});
  ASSERT_EQ(0, scan.status) << scan.err;
  std::vector<std::string> found;
  for (const Row& row : terrestrial()) {
    found.push_back(std::to_string(row.major) + '-' + std::to_string(row.minor) + ' ' + row.name +
                    ' ' + row.serviceType + ' ' + std::to_string(row.tsid));
  }
  EXPECT_EQ((std::vector<std::string>{"2-1 WGBH-HD TV 1357", "2-2 World TV 1357",
                                      "2-101 Updat0 DATA 1357", "2-102 Updat1 DATA 1357",
                                      "7-1 WHDH-HD TV 1363", "7-2 This TV TV 1363",
                                      "25-1 WFXT DT TV 1365", "25-2 WFXT DT TV 1365"}),
            found);
}

TEST_F(SystemTest, ThreeProgramsCapture) {
  const fs::path capture = fs::path(kCaptures) / "sections" / "three-programs-psip.ts";
  if (!fs::is_regular_file(capture)) GTEST_SKIP() << "no field captures";
  fs::create_directories(air_ / "vsb");
  fs::copy_file(capture, air_ / "vsb" / "479000000.ts");
  startService();
  const Outcome scan = tv({"scan", "--freq", "15"});
  ASSERT_EQ(0, scan.status) << scan.err;
  const std::vector<Row> rows = terrestrial();
  ASSERT_EQ(3u, rows.size());
  EXPECT_EQ(
      (Row{4, 1, "S06 SM2", 479000000, 65002, 3, "TV", "VSB", "52_eng_129,53_spa_129,", "49_2,"}),
      rows[0]);
  for (size_t i = 0; i < rows.size(); ++i) {
    EXPECT_EQ(static_cast<int64_t>(i + 1), rows[i].minor);
    EXPECT_EQ("S0" + std::to_string(i + 6) + " SM2", rows[i].name);
    EXPECT_EQ(static_cast<int64_t>(i + 3), rows[i].sourceId);
    EXPECT_EQ(65002, rows[i].tsid);
  }
  EXPECT_THAT(contentOfTable(database_, "channel_data_t"), HasSubstr("ch_id_pk=4-1-479000000 "));
}

}  // namespace
