// Actions of a viewer with the remote control, through all processes.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>
#include <json/json.h>
#include <signal.h>
#include <time.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

// At the start of "The Long Lock" on 5-1, a programme with wide captions; in summer.
constexpr const char* kStart = "2026-04-22T19:05:00Z";
constexpr int64_t kStartSeconds = 1776884700;

constexpr const char* kCurrent = R"({"class":"SRV","command":"GETCUR"})";
constexpr const char* kCurrentSource = R"({"class":"CN","command":"GETCURSRC"})";
constexpr const char* kLanguages = R"({"class":"CN","command":"GETPREAUD"})";
constexpr const char* kTime = R"({"class":"TIME","command":"GETCUR"})";
constexpr const char* kTimeSetting = R"({"class":"TIME","command":"GETSETTING"})";

std::string tuneCommand(int major, int minor) {
  return R"({"class":"FW","command":"CHANNELCHANGE","major":)" + std::to_string(major) +
         ",\"minor\":" + std::to_string(minor) + "}";
}

// Returns the output of atsc-tv play for a channel.
std::string played(const Row& row) {
  return std::to_string(row.major) + '-' + std::to_string(row.minor) + ' ' + row.name + '\n';
}

class RemoteSystemTest : public SystemTest {
 protected:
  // Keeps the receiver's state separate from the databases.
  RemoteSystemTest() : state_(folder_ / "state") { environment_["ATSC_HOST_STATE"] = state_; }

  void begin(const Words& sources) {
    Words words = {"--start", kStart};
    for (const char* name : {kAirLineup, kCableLineup}) {
      Json::Value lineup;
      std::ifstream(name) >> lineup;
      lineup["daylight_saving"]["status"] = true;
      words.push_back(folder_ / fs::path(name).filename());
      std::ofstream(words.back()) << lineup;
    }
    broadcast(words, air_);
    startService();
    for (const std::string& source : sources) scan(source);
  }

  std::string currentNumber() {
    const Json::Value reply = ask(kCurrent);
    return reply["major"].asString() + '-' + reply["minor"].asString();
  }

  Json::Value captions(int inputType, int service) {
    return ask(R"({"class":"CC","command":"get_sar","input_type":)" + std::to_string(inputType) +
               ",\"AiccServiceId\":" + std::to_string(service) + "}");
  }

  std::string value(const std::string& sql) const { return valueOf(database_, "SELECT " + sql); }

  const fs::path state_;
};

TEST_F(RemoteSystemTest, Evening) {
  ASSERT_NO_FATAL_FAILURE(begin({"VSB", "QAM"}));
  const std::vector<Row> lineup = rowsOfLineup(kAirLineup);
  ASSERT_EQ(lineup, terrestrial());
  ASSERT_EQ(rowsOfLineup(kCableLineup), cable());

  // Up through all channels and around to the first; then down.
  EXPECT_EQ(played(lineup[0]), out({"play", "5-1"}));
  for (size_t i = 1; i <= lineup.size(); ++i) {
    ASSERT_EQ(played(lineup[i % lineup.size()]), out({"up"}));
  }
  EXPECT_EQ(played(lineup.back()), out({"play", "down"}));
  // A channel of cable only. Back on terrestrial, the last channel plays.
  EXPECT_THAT(out({"play", "1203"}), HasSubstr("1203 "));
  EXPECT_EQ("QAM", ask(kCurrentSource)["src"].asString());
  EXPECT_EQ(played(lineup.back()), out({"play", "--src", "VSB"}));

  EXPECT_EQ(played(lineup[0]), out({"play", "5-1"}));
  EXPECT_EQ("5-2 L'Été: skipped\n", out({"edit", "5-2", "--skip"}));
  EXPECT_EQ("5-3 KÉVA FM: favourite groups 1 28, skipped\n",
            out({"edit", "5-3", "--skip", "--fav", "1", "--fav", "28"}));
  EXPECT_EQ("9-1 WOLM-HD\n", out({"up"}));
  EXPECT_EQ("5-3 KÉVA FM\n", out({"play", "5-3"})) << "a skipped channel can be chosen";
  EXPECT_EQ("5-3 KÉVA FM: favourite group 28, skipped, locked\n",
            out({"edit", "5-3", "--unfav", "1", "--lock"}));
  EXPECT_EQ(0xD, ask(kCurrent)["srv_flag"].asInt());
  EXPECT_EQ("5-3 KÉVA FM: favourite group 28, skipped\n", out({"edit", "5-3", "--unlock"}));
  EXPECT_THAT(out({"channels"}),
              AllOf(HasSubstr("  5-3  KÉVA FM  favourite group 28, skipped  RADIO "),
                    HasSubstr("Cable (QAM): 7 channels\n   No.  Name     Type ")));

  const std::string addedName = "Zoë's hand-made ♥";
  EXPECT_EQ("5-9 " + addedName + "\n  Terrestrial (VSB), RF 8, 183.000 MHz\n",
            out({"add", "5-9", "--freq", "8", "--name", addedName}));
  EXPECT_EQ("5-9 " + addedName + " (nothing is received for it)\n", out({"play", "5-9"}));
  EXPECT_EQ("5-1 KÉVA-1\n", out({"down"}));

  // The preferred language of all channels, then the track of this channel.
  EXPECT_THAT(out({"audio", "--prefer", "fre,eng"}), HasSubstr("* 1 eng AC-3\n"));
  EXPECT_THAT(out({"audio", "--prefer", "spa", "--dual", "mixed"}),
              AllOf(HasSubstr("Dual mono: mixed\n"), HasSubstr("* 2 spa AC-3\n"),
                    HasSubstr("preferred: spa, then eng\n")));
  EXPECT_THAT(out({"audio", "3"}), HasSubstr("* 3 eng AC-3 described\n"));
  EXPECT_EQ("3", value("audio_index FROM channel_data_t WHERE ch_id_pk = '5-1-183000000'"));

  // The captions of the current programme.
  EXPECT_EQ(1, captions(0, 1)["cc_aspect_ratio"].asInt());
  EXPECT_EQ(0, captions(0, 2)["cc_aspect_ratio"].asInt());
  EXPECT_EQ(-1, captions(0, 3)["result"].asInt());

  EXPECT_THAT(out({"time", "--zone", "pst"}),
              HasSubstr(" PST (UTC-7:00), follows the broadcast\n"));
  const Json::Value setting = ask(kTimeSetting);
  EXPECT_EQ("PST", setting["time_zone"].asString());
  EXPECT_EQ(-420, setting["offset"].asInt());
  EXPECT_EQ("AUTO", setting["mode"].asString());
  const Json::Value now = ask(kTime);
  tm local = {};
  local.tm_year = now["year"].asInt() - 1900;
  local.tm_mon = now["month"].asInt() - 1;
  local.tm_mday = now["mday"].asInt();
  local.tm_hour = now["hour"].asInt();
  local.tm_min = now["min"].asInt();
  local.tm_sec = now["sec"].asInt();
  const int64_t sinceStart = timegm(&local) + 7 * 3600 - kStartSeconds;
  EXPECT_GE(sinceStart, 0);
  EXPECT_LT(sinceStart, 1800);

  EXPECT_THAT(out({"now"}),
              AllOf(HasSubstr("Channel  5-1 KÉVA-1\n"), HasSubstr(", RF 8, 183.000 MHz\n"),
                    HasSubstr("Now      12:00-13:00  The Long Lock  TV-14-D-V"),
                    HasSubstr("Next     13:00-13:30  Little Bobby's Tables"),
                    HasSubstr("\n         * 3 eng AC-3 described\n"),
                    HasSubstr("\nClock    Wed 22 Apr 2026 12:")));

  // Emptying a list does not change the other list; a scan fills it again.
  const std::string air = contentOfTable(database_, "channel_data_t");
  EXPECT_EQ(0, ask(R"({"class":"SRV","command":"RESET","src":"QAM"})")["result"].asInt());
  EXPECT_TRUE(cable().empty());
  EXPECT_EQ(air, contentOfTable(database_, "channel_data_t"));
  scan("QAM");
  scan("VSB");
  EXPECT_EQ(rowsOfLineup(kCableLineup), cable());
  EXPECT_EQ(air, contentOfTable(database_, "channel_data_t"));
  std::vector<Row> rows = terrestrial();
  const auto added = std::find_if(rows.begin(), rows.end(),
                                  [](const Row& row) { return row.major == 5 && row.minor == 9; });
  ASSERT_NE(rows.end(), added);
  EXPECT_EQ(addedName, added->name);
  rows.erase(added);
  EXPECT_EQ(lineup, rows);

  // After a restart: the receiver has its list without the channel table.
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  service_->signal(SIGTERM);
  EXPECT_EQ(0, service_->wait()) << service_->err();
  startService();
  for (const char* source : {"VSB", "QAM"}) {
    ask(std::string(R"({"class":"TEST","command":"GETSERVICE","input":")") + source + "\"}");
  }
  EXPECT_EQ(air, contentOfTable(database_, "channel_data_t"));
  EXPECT_EQ(rowsOfLineup(kCableLineup), cable());
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play"}));
  EXPECT_THAT(service_->err() + service_->out(), HasSubstr("audio track 3 (PID 54"));
  EXPECT_EQ("spa", ask(kLanguages)["first"].asString());
  EXPECT_EQ("eng", ask(kLanguages)["second"].asString());
  EXPECT_EQ("PST", ask(kTimeSetting)["time_zone"].asString());
}

TEST_F(RemoteSystemTest, ChangesAreQueuedAndDelayNothing) {
  ASSERT_NO_FATAL_FAILURE(begin({"VSB"}));
  auto watch = startWatch();
  EXPECT_EQ(0, send(tuneCommand(5, 1)).status);
  EXPECT_EQ(0, send(tuneCommand(9, 1)).status);
  EXPECT_EQ(0, send(tuneCommand(22, 1)).status);
  EXPECT_TRUE(eventually([&] {
    const Json::Value time = ask(kTime);
    EXPECT_EQ(0, time["result"].asInt());
    EXPECT_TRUE(time.isMember("year"));
    return currentNumber() == "22-1";
  }));
  // With a TV application, which is notified of each change.
  EXPECT_EQ("22-2 KidTree\n", out({"up"}));
  EXPECT_EQ("Stopped\n", out({"stop"}));
  EXPECT_TRUE(watch->says("CHANNEL_PLAY_SUCCESS", 4));
}

TEST_F(RemoteSystemTest, FailuresAreTold) {
  const auto fails = [&](int status, const Words& words, const std::string& reason) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(status, outcome.status) << words[0] << ' ' << outcome.err;
    EXPECT_EQ("", outcome.out) << words[0];
    EXPECT_THAT(outcome.err, HasSubstr(reason)) << words[0];
  };
  for (const Words& words : {Words{"play", "5-1"},
                             {"up"},
                             {"stop"},
                             {"now"},
                             {"edit", "5-1", "--skip"},
                             {"add", "5-9", "--freq", "8", "--name", "x"},
                             {"audio"},
                             {"time"},
                             {"parental"},
                             {"unlock"},
                             {"eas"}}) {
    fails(3, words, "start atsc-service");
  }
  for (const Words& words : {Words{"play", "5-"},
                             {"play", "up", "--src", "QAM"},
                             {"edit", "5-1"},
                             {"edit", "5-1", "--skip", "--unskip"},
                             {"edit", "5-1", "--fav", "29"},
                             {"add", "5-9", "--freq", "70", "--name", "x"},
                             {"audio", "--prefer", "deu"},
                             {"time", "--zone", "PDT"},
                             {"play", "--unlocked"},
                             {"parental", "limit"},
                             {"eas", "alerts", "none"}}) {
    EXPECT_EQ(2, tv(words).status) << words[0] << ' ' << words.back();
  }
  fails(2, {"edit", "5-1", "--fav"}, "--fav needs a value; see atsc-tv edit --help");
  fails(2, {"play", "5-1", "5-2"}, "unknown argument '5-2'; see atsc-tv play --help");

  ASSERT_NO_FATAL_FAILURE(begin({}));
  EXPECT_THAT(out({"now"}), AllOf(HasSubstr("Channel  none"), HasSubstr("Clock    ")));
  fails(1, {"up"}, "no channel");
  fails(1, {"play"}, "nothing to play");
  fails(1, {"play", "5-1"}, "atsc-tv scan finds them");
  scan("VSB");
  fails(1, {"play", "99-1", "--src", "QAM"}, "there is no channel 99-1 on QAM");
  out({"edit", "22-1", "--delete"});
  fails(1, {"play", "22-1"}, "22-1 is deleted");

  // A station that is gone is skipped and cannot be selected.
  out({"play", "5-3"});
  fs::remove(air_ / "vsb" / "479000000.ts");
  EXPECT_EQ("22-2 KidTree\n", out({"up"}));
  const size_t asked = service_->count("GETCUR");
  fails(1, {"play", "9-1"},
        "9-1 does not play: the service's log says why, or the receiver is in standby; still on "
        "22-2");
  EXPECT_THAT(service_->count("GETCUR") - asked, AllOf(testing::Gt(5), testing::Lt(50)))
      << "none, or a flood";
  EXPECT_EQ("22-2", currentNumber());
  fs::remove(air_ / "vsb" / "521000000.ts");
  fails(1, {"play", "22-2"}, "22-2 does not play");

  // The receiver's state cannot be stored. The table has the stored state.
  const std::string before = contentOfTable(database_, "channel_data_t");
  fs::remove_all(state_);
  std::ofstream(state_) << "x";
  fails(1, {"edit", "5-1", "--skip"}, "5-1 could not be changed (skip)");
  fails(1, {"add", "5-9", "--freq", "8", "--name", "x"}, "cannot add 5-9");
  fails(1, {"audio", "--prefer", "spa"}, "could not be stored");
  // These settings apply although they are not stored.
  for (const Words& words : {Words{"eas", "alerts", "high"}, {"parental", "off"}}) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(1, outcome.status) << outcome.out;
    EXPECT_THAT(outcome.err, HasSubstr("could not be stored: it ends with the service"))
        << words[0];
  }
  EXPECT_EQ(before, contentOfTable(database_, "channel_data_t"));
}

TEST_F(RemoteSystemTest, OtherDatabase) {
  ASSERT_NO_FATAL_FAILURE(begin({"VSB"}));
  const auto fails = [&](const Words& words, const std::string& reason) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(1, outcome.status) << words[0] << ' ' << outcome.out;
    EXPECT_THAT(outcome.err, AllOf(HasSubstr(reason), HasSubstr("need the same --db"))) << words[0];
  };
  const fs::path used = std::exchange(db_, folder_ / "other");
  const std::string table = (db_ / database_.filename()).string();
  for (const Words& words :
       {Words{"play", "9-1"}, {"up"}, {"now"}, {"edit", "9-1", "--skip"}, {"audio"}}) {
    fails(words, "the current channel 5-1 is not in " + table);
  }
  // An old copy has all channels and does not receive changes.
  fs::create_directory(db_);
  fs::copy_file(database_, table);
  fails({"edit", "5-2", "--skip", "--fav", "2"}, "5-2 was changed, but not in " + table);
  fails({"edit", "5-2", "--fav", "2"}, "5-2 was changed, but not in " + table);
  fails({"add", "5-9", "--freq", "8", "--name", "x"}, "5-9 was added, but is not in " + table);
  db_ = used;
  EXPECT_EQ("5-2 L'Été: favourite group 2, skipped, locked\n", out({"edit", "5-2", "--lock"}));
}

// Two stations have the same number; one of them disappears and returns.
TEST_F(RemoteSystemTest, TwoCarriersOfOneNumber) {
  ASSERT_NO_FATAL_FAILURE(begin({"VSB"}));
  EXPECT_THAT(out({"add", "5-1", "--freq", "15", "--name", "A name that is too long"}),
              HasSubstr("5-1 A name that is too l (the name was cut)\n"));
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  const std::string second = "5-1 A name that is too l (nothing is received for it)\n";
  out({"edit", "5-1", "--delete"});
  EXPECT_EQ(second, out({"play", "5-1"}));
  out({"edit", "5-1", "--undelete"});
  out({"play", "22-1"});
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  fs::remove(air_ / "vsb" / "183000000.ts");
  EXPECT_EQ(second, out({"play", "5-1"}));
  EXPECT_THAT(out({"now"}), HasSubstr("Channel  " + second));
}

}  // namespace
