// Actions of a viewer with the remote control, through all processes.
#include <filesystem>
#include <string>

#include "system_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::AllOf;
using testing::HasSubstr;

// At the start of "The Long Lock" on 5-1, a programme with wide captions; in summer.
constexpr const char* kRemoteStart = "2026-04-22T19:05:00Z";

class RemoteSystemTest : public SystemTest {
 protected:
  // Keeps the receiver's state separate from the databases.
  RemoteSystemTest() : state_(folder_ / "state") { environment_["ATSC_HOST_STATE"] = state_; }

  int captionAspect(int service) {
    const Json::Value reply =
        ask("CC get_sar", "\"input_type\":0,\"AiccServiceId\":" + std::to_string(service));
    return reply["result"].asInt() == 0 ? reply["cc_aspect_ratio"].asInt() : -1;
  }

  const fs::path state_;
};

TEST_F(RemoteSystemTest, Evening) {
  broadcastLineups({"--start", kRemoteStart});
  startService();
  for (const char* source : {"VSB", "QAM"}) scan(source);

  // Up through all channels and around to the first; then down.
  const Words lineup = rowsOf(database_,
                              "SELECT major_no || '-' || minor_no || ' ' || name || char(10) FROM "
                              "channel_data_t ORDER BY major_no, minor_no");
  ASSERT_EQ(kAirRows.size(), lineup.size());
  EXPECT_EQ(lineup[0], out({"play", "5-1"}));
  for (size_t i = 1; i <= lineup.size(); ++i) {
    ASSERT_EQ(lineup[i % lineup.size()], out({"up"}));
  }
  EXPECT_EQ(lineup.back(), out({"play", "down"}));
  // A channel of cable only. Back on terrestrial, the last channel plays.
  EXPECT_EQ("1203 東京TV\n", out({"play", "1203"}));
  EXPECT_EQ("QAM", ask("CN GETCURSRC")["src"].asString());
  EXPECT_EQ(lineup.back(), out({"play", "--src", "VSB"}));

  EXPECT_EQ(lineup[0], out({"play", "5-1"}));
  EXPECT_EQ("5-2 L'Été: skipped\n", out({"edit", "5-2", "--skip"}));
  EXPECT_EQ("5-3 KÉVA FM: favourite groups 1 28, skipped\n",
            out({"edit", "5-3", "--skip", "--fav", "1", "--fav", "28"}));
  EXPECT_EQ("9-1 WOLM-HD\n", out({"up"}));
  EXPECT_EQ("5-3 KÉVA FM\n", out({"play", "5-3"})) << "a skipped channel can be chosen";
  EXPECT_EQ("5-3 KÉVA FM: favourite group 28, skipped, locked\n",
            out({"edit", "5-3", "--unfav", "1", "--lock"}));
  EXPECT_EQ(0xD, ask("SRV GETCUR")["srv_flag"].asInt());
  EXPECT_EQ("5-3 KÉVA FM: favourite group 28, skipped\n", out({"edit", "5-3", "--unlock"}));
  EXPECT_THAT(out({"channels"}),
              AllOf(HasSubstr("  5-3  KÉVA FM  favourite group 28, skipped  RADIO "),
                    HasSubstr("Cable (QAM): 7 channels\n   No.  Name     Type ")));

  const std::string added = "5-9 Zoë's hand-made ♥";
  EXPECT_EQ(added + "\n  Terrestrial (VSB), RF 8, 183.000 MHz\n",
            out({"add", "5-9", "--freq", "8", "--name", added.substr(4)}));
  EXPECT_EQ(added + " (nothing is received for it)\n", out({"play", "5-9"}));
  EXPECT_EQ("5-1 KÉVA-1\n", out({"down"}));

  // The preferred language of all channels, then the track of this channel.
  EXPECT_THAT(out({"audio", "--prefer", "fre,eng"}), HasSubstr("* 1 eng AC-3\n"));
  EXPECT_THAT(out({"audio", "--prefer", "spa", "--dual", "mixed"}),
              AllOf(HasSubstr("Dual mono: mixed\n"), HasSubstr("* 2 spa AC-3\n"),
                    HasSubstr("preferred: spa, then eng\n")));
  EXPECT_THAT(out({"audio", "3"}), HasSubstr("* 3 eng AC-3 described\n"));
  EXPECT_EQ("3", valueOf(database_,
                         "SELECT audio_index FROM channel_data_t WHERE ch_id_pk = "
                         "'5-1-183000000'"));

  // The captions of the current programme.
  EXPECT_EQ(1, captionAspect(1));
  EXPECT_EQ(0, captionAspect(2));
  EXPECT_EQ(-1, captionAspect(3));

  EXPECT_THAT(out({"time", "--zone", "pst"}),
              HasSubstr(" PST (UTC-7:00), follows the broadcast\n"));
  const Json::Value setting = ask("TIME GETSETTING");
  EXPECT_EQ(parsed(R"({"mode":"AUTO","offset":-420,"result":0,"time_zone":"PST"})"), setting);
  Json::Value now = ask("TIME GETCUR");
  for (const char* key : {"min", "sec"}) EXPECT_TRUE(now.removeMember(key, nullptr)) << key;
  EXPECT_EQ(parsed(R"({"hour":12,"mday":22,"month":4,"result":0,"year":2026})"), now);

  EXPECT_THAT(out({"now"}),
              AllOf(HasSubstr("Channel  5-1 KÉVA-1\n"), HasSubstr(", RF 8, 183.000 MHz\n"),
                    HasSubstr("Now      12:00-13:00  The Long Lock  TV-14-D-V"),
                    HasSubstr("Next     13:00-13:30  Little Bobby's Tables"),
                    HasSubstr("\n         * 3 eng AC-3 described\n"),
                    HasSubstr("\nClock    Wed 22 Apr 2026 12:")));

  // Emptying a list does not change the other list; a scan fills it again, and keeps what was
  // added.
  const Words content = contentOf("channel_data_t");
  const Words air = terrestrial();
  EXPECT_EQ(kAirRows.size() + 1, air.size()) << "with the added channel";
  EXPECT_EQ(0, ask("SRV RESET", R"("src":"QAM")")["result"].asInt());
  EXPECT_EQ(Words{}, cable());
  EXPECT_EQ(air, terrestrial());
  scan("QAM");
  scan("VSB");
  EXPECT_EQ(kCableRows, cable());
  EXPECT_EQ(content, contentOf("channel_data_t"));

  // Changes are queued and delay nothing; a TV application is notified of each.
  startWatch();
  for (const auto& [major, minor] : {std::pair(5, 1), {9, 1}, {22, 1}}) tune(major, minor);
  EXPECT_TRUE(eventually([&] {
    EXPECT_TRUE(ask("TIME GETCUR").isMember("year"));
    const Json::Value current = ask("SRV GETCUR");
    return current["major"] == 22 && current["minor"] == 1;
  }));
  EXPECT_EQ("22-2 KidTree\n", out({"up"}));
  EXPECT_EQ("Stopped\n", out({"stop"}));
  EXPECT_TRUE(watch_->says("CHANNEL_PLAY_SUCCESS", 4));

  // After a restart: the receiver has its list without the channel table.
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  restartService();
  for (const char* source : {"VSB", "QAM"}) {
    ask("TEST GETSERVICE", std::string(R"("input":")") + source + '"');
  }
  EXPECT_EQ(content, contentOf("channel_data_t"));
  EXPECT_EQ(kCableRows, cable());
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play"}));
  EXPECT_TRUE(service_->says("audio track 3 (PID 54"));
  EXPECT_EQ(parsed(R"({"first":"spa","result":0,"second":"eng"})"), ask("CN GETPREAUD"));
  EXPECT_EQ(setting, ask("TIME GETSETTING"));
}

// What takes long happens while a scan waits for progress that never comes.
TEST_F(RemoteSystemTest, FailuresAreTold) {
  for (const char* line :
       {"play 5-1", "up", "stop", "now", "edit 5-1 --skip", "add 5-9 --freq 8 --name x", "audio",
        "time", "parental", "unlock", "eas"}) {
    fails(3, wordsOf(line), "start atsc-service");
  }
  for (const char* line :
       {"play 5-", "play up --src QAM", "edit 5-1", "edit 5-1 --skip --unskip", "edit 5-1 --fav 29",
        "add 5-9 --freq 70 --name x", "audio --prefer deu", "time --zone PDT", "play --unlocked",
        "parental limit", "eas alerts none"}) {
    fails(2, wordsOf(line), "");
  }
  fails(2, {"edit", "5-1", "--fav"}, "--fav needs a value; see atsc-tv edit --help");
  fails(2, {"play", "5-1", "5-2"}, "unknown argument '5-2'; see atsc-tv play --help");

  broadcastLineups();
  startService(kSlow);
  EXPECT_THAT(out({"now"}), AllOf(HasSubstr("Channel  none"), HasSubstr("Clock    ")));
  fails(1, {"up"}, "no channel");
  fails(1, {"play"}, "nothing to play");
  fails(1, {"play", "5-1"}, "atsc-tv scan finds them");

  // A scan that the viewer stops keeps what it found. A scan that another process stops ends later.
  auto stopped = startScan();
  EXPECT_EQ(0, stopped->stop(SIGINT)) << stopped->err();
  EXPECT_THAT(stopped->out(), AllOf(HasSubstr("stopped"), HasSubstr("3 channels")));
  EXPECT_EQ(Words(kAirRows.begin(), kAirRows.begin() + 3), terrestrial());
  // A scan of one frequency adds to the list.
  for (const char* frequency : {"15", "22"}) out({"scan", "--freq", frequency});
  const auto silent = startScan();
  act("SCAN stop");
  EXPECT_EQ(1, send(command("SCAN stop")).status) << "no scan runs any more";
  EXPECT_EQ(Words(kAirRows.begin(), kAirRows.begin() + 9), terrestrial());

  // The databases are not those of the service.
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  useDatabases(folder_ / "other");
  for (const char* line : {"play 9-1", "up", "edit 9-1 --skip", "audio"}) {
    fails(1, wordsOf(line),
          "5-1 is not in " + database_.string() + "; the service and atsc-tv need the same --db");
  }
  expectFailure(tv({"now"}), 1, "5-1 is not in ");
  // An old copy has all channels and does not receive changes.
  fs::create_directory(db_);
  fs::copy_file(folder_ / "db" / database_.filename(), database_);
  const std::string lacking = "not in " + database_.string() + "; the channel table could not be";
  fails(1, {"edit", "5-2", "--skip", "--fav", "2"}, "5-2 was changed, but " + lacking);
  fails(1, {"edit", "5-2", "--fav", "2"}, "5-2 was changed, but " + lacking);
  fails(1, {"add", "5-9", "--freq", "8", "--name", "x"}, "5-9 was added, but is " + lacking);
  useDatabases(folder_ / "db");
  EXPECT_EQ("5-2 L'Été: favourite group 2, skipped, locked\n", out({"edit", "5-2", "--lock"}));

  // A station that is gone is skipped and cannot be selected.
  fails(1, {"play", "99-1", "--src", "QAM"}, "there is no channel 99-1 on QAM");
  out({"edit", "22-1", "--delete"});
  fails(1, {"play", "22-1"}, "22-1 is deleted");
  out({"play", "5-3"});
  fs::rename(air_ / "vsb" / "479000000.ts", folder_ / "gone");
  out({"edit", "5-9", "--delete"});
  EXPECT_EQ("22-2 KidTree\n", out({"up"}));
  const size_t asked = service_->count("GETCUR");
  fails(1, {"play", "9-1"},
        "9-1 does not play: the service's log says why, or the receiver is in standby; still on "
        "22-2");
  EXPECT_THAT(service_->count("GETCUR") - asked, AllOf(testing::Gt(5), testing::Lt(50)))
      << "none, or a flood";
  EXPECT_THAT(out({"now"}), HasSubstr("Channel  22-2 "));

  // Two stations have the same number; one of them disappears.
  EXPECT_THAT(out({"add", "5-1", "--freq", "15", "--name", "A name that is too long"}),
              HasSubstr("5-1 A name that is too l (the name was cut)\n"));
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  const std::string second = "5-1 A name that is too l (nothing is received for it)\n";
  fs::rename(folder_ / "gone", air_ / "vsb" / "479000000.ts");
  out({"edit", "5-1", "--delete"});
  EXPECT_EQ(second, out({"play", "5-1"}));
  out({"edit", "5-1", "--undelete"});
  out({"play", "22-2"});
  EXPECT_EQ("5-1 KÉVA-1\n", out({"play", "5-1"}));
  fs::remove(air_ / "vsb" / "183000000.ts");
  EXPECT_EQ(second, out({"play", "5-1"}));
  EXPECT_THAT(out({"now"}), HasSubstr("Channel  " + second));

  // The receiver's state cannot be stored. The table has the stored state.
  const Words before = contentOf("channel_data_t");
  fs::remove_all(state_);
  writeFile(state_, "x");
  fails(1, {"edit", "22-2", "--skip"}, "22-2 could not be changed (skip)");
  fails(1, {"add", "5-7", "--freq", "8", "--name", "x"}, "cannot add 5-7");
  fails(1, {"audio", "--prefer", "spa"}, "could not be stored");
  // These settings apply although they are not stored.
  for (const char* line : {"eas alerts high", "parental off"}) {
    expectFailure(tv(wordsOf(line)), 1, "could not be stored: it ends with the service");
  }
  EXPECT_EQ(before, contentOf("channel_data_t"));

  EXPECT_EQ(1, silent->wait()) << silent->err();
  EXPECT_THAT(silent->out(), HasSubstr("No progress for 10 seconds: the scan was stopped"));
}

}  // namespace
