// The programs together: service, TV application and an air folder, as separate processes.
#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

TEST_F(SystemTest, ScansFindEveryListedServiceOnce) {
  broadcastLineups();
  startService();
  scan("VSB");
  EXPECT_EQ(kAirRows, terrestrial());
  EXPECT_EQ(Words{}, cable());
  scan("QAM");
  EXPECT_EQ(kCableRows, cable());
  EXPECT_EQ(kAirRows, terrestrial());
  const std::string list = out({"channels"});
  for (const Words& rows : {kAirRows, kCableRows}) {
    for (const std::string& row : rows) {
      const size_t name = row.find('|') + 1;
      EXPECT_THAT(list, HasSubstr(' ' + row.substr(name, row.find('|', name) - name) + ' '));
    }
  }

  // Scans again, for a TV application that hears of each of them.
  const std::vector<Words> before{contentOf("channel_data_t"), contentOf("channel_data_c")};
  scan("VSB");
  scan("QAM");
  startWatch({"--json"});
  act("FW INIT");
  act("SCAN start", R"("mode":"manual","freq":15,"src":"VSB")");
  EXPECT_TRUE(watch_->says("OVER")) << watch_->err();
  EXPECT_EQ(0, watch_->stop(SIGINT));
  const std::string heard = watch_->out();
  const std::regex states(R"re("(START|PROGRESS|OVER)")re");
  EXPECT_EQ((Words{"START", "PROGRESS", "OVER"}),
            Words(std::sregex_token_iterator(heard.begin(), heard.end(), states, 1), {}));
  EXPECT_EQ(before, (std::vector{contentOf("channel_data_t"), contentOf("channel_data_c")}));

  EXPECT_EQ(0, service_->stop()) << service_->err();
  EXPECT_FALSE(fs::exists("/tmp/.BUS.atsc.qel.service.srv"));
  EXPECT_TRUE(fs::exists(db_ / "services.json")) << "the receiver's state";
  EXPECT_EQ("ok", integrityOf(database_));
}

TEST_F(SystemTest, DeathsDisturbNobodyElse) {
  broadcastLineups();
  startService(kSlow);
  expectFailure(run({ATSC_SERVICE, "--air", air_, "--db", folder_ / "other"}), 1,
                "process " + std::to_string(service_->pid()));
  startWatch();
  fails(4, {"watch"}, "process " + std::to_string(watch_->pid()));
  fails(4, {"scan"}, "process " + std::to_string(watch_->pid()));
  watch_->kill();

  // A scan continues without its TV application, and refuses another until it ends.
  startScan()->kill();
  fails(1, {"scan"}, "a scan is running");
  EXPECT_TRUE(eventually([&] { return terrestrial() == kAirRows; }));
  EXPECT_TRUE(eventually([&] { return tv({"scan", "--freq", "8"}).status == 0; }));

  // A running TV application has loaded the library, but must not answer in place of the service.
  startWatch();
  act("FW INIT");
  service_->kill();
  for (const Words& words : {Words{"send", kInit}, {"scan"}, {"watch"}}) {
    fails(3, words, "start atsc-service");
  }
  EXPECT_TRUE(watch_->says("has ended"));
  startService(kSlow);
  act("FW INIT");
  EXPECT_EQ(0, watch_->stop());

  auto scan = startScan();
  service_->kill();
  EXPECT_EQ(1, scan->wait());
  EXPECT_THAT(scan->err(), HasSubstr("the service ended during the scan"));
  EXPECT_EQ("ok", integrityOf(database_));
  // The service ends cleanly while a scan runs.
  startService(kSlow);
  scan = startScan();
  EXPECT_EQ(0, service_->stop()) << service_->err();
  EXPECT_EQ(1, scan->wait()) << scan->err();
}

TEST_F(SystemTest, WrongUsageIsRefused) {
  fs::create_directory(air_);
  writeFile(folder_ / "file", "x");
  expectFailure(run({ATSC_SERVICE, "--air", folder_ / "none", "--db", db_}), 2, "none");
  const fs::path file = folder_ / "file";
  expectFailure(run({ATSC_SERVICE, "--air", air_, "--db", file}), 1, file.string());
  EXPECT_FALSE(fs::exists(db_));

  startService();
  const Outcome wrong = send("{");
  EXPECT_EQ(1, wrong.status);
  EXPECT_EQ("result -1\n", wrong.out);
  EXPECT_EQ("result 0\n", run({ATSC_TV, "send", "-"}, kInit).out);
  fails(2, {"scan", "--src", "FM"}, "FM");
  fails(2, {"scan", "--freq", "70"}, "--freq");
  fails(2, {"chanels"}, "'chanels'");
}

TEST_F(SystemTest, NamesCannotActOnTheTerminal) {
  fails(1, {"channels"}, "atsc-tv scan finds them");
  fs::create_directory(db_);
  execute(database_,
          "CREATE TABLE channel_data_t (ch_index INTEGER PRIMARY KEY, name TEXT, freq INTEGER, "
          "major_no INTEGER, minor_no INTEGER, audio_pid TEXT);"
          "INSERT INTO channel_data_t SELECT NULL, column1, 57000000, 2, 1, "
          "'1_\x1B[2J_129,_,x' FROM (VALUES ('\x1B[2Jclear'), ('tab\tline\nend'), "
          "('c1\xC2\x9B;2J'), ('\xE2\x80\xAEover'), ('\xED\xA0\xBD\xED\xB8\x80 pair'), "
          "('lone\xED\xA0\xBD'), ('\xFF\xC3'), ('é'))");
  const std::string list = out({"channels", "--src", "vsb"});
  EXPECT_TRUE(std::none_of(list.begin(), list.end(), [](char c) {
    return (static_cast<unsigned char>(c) < 0x20 && c != '\n') || c == 0x7F;
  })) << list;
  for (const char* bad : {"\xC2\x9B", "\xE2\x80\xAE", "\xED\xA0"}) {
    EXPECT_EQ(std::string::npos, list.find(bad)) << list;
  }
  EXPECT_THAT(list, AllOf(HasSubstr("\xF0\x9F\x98\x80 pair"), HasSubstr("lone\xEF\xBF\xBD"),
                          HasSubstr("é")));
  const Json::Value json = parsed(out({"channels", "--json"}));
  EXPECT_EQ(8u, json["VSB"].size());
  EXPECT_TRUE(json["QAM"].isNull());

  writeFile(database_, "this is not a database, whatever its name says");
  fails(1, {"channels"}, database_.string());
}

}  // namespace
