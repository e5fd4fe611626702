#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class ChannelTableTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    _ATSC_Service_db_createChannelDB();
    fake::reset();
  }

  static int synchronise(std::vector<fake::Service> services, int input = 2) {
    fake::setServices(static_cast<uint32_t>(input), std::move(services));
    return ATSC_Service_db_UpdateChannel(input);
  }

  static ATSC_Service_db_channelKey key(uint32_t major, uint32_t minor, uint32_t sourceId,
                                        uint32_t frequency) {
    ATSC_Service_db_channelKey made{major, minor, sourceId, frequency, {}};
    strcpy(made.table, "channel_data_t");
    return made;
  }
};

TEST_F(ChannelTableTest, RepeatChangeAndDisappearance) {
  fake::Service a = fake::service(7, 1, 177000000, "A");
  fake::Service b = fake::service(7, 2, 177000000, "B");
  EXPECT_EQ(1, synchronise({a, b}));
  EXPECT_TRUE(fake::logged("Info", "channel count(2)"));
  EXPECT_TRUE(fake::logged("Info", "Service[1]"));
  // The clock stops, advances, and goes back: nothing changes, and the rows stay.
  for (const uint32_t time : {1000u, 2000u, 5u, 4294967295u, 4294967295u, 4294967295u}) {
    fake::setTime(time);
    EXPECT_EQ(0, synchronise({a, b})) << time;
    const std::string stamp = "|" + std::to_string(time);
    EXPECT_THAT(rows("SELECT ch_index, name, update_time FROM channel_data_t"),
                ElementsAre("1|A" + stamp, "2|B" + stamp));
  }
  // Removed within the same second.
  EXPECT_EQ(1, synchronise({b}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("B"));
  // A row without a time stamp (from a table without that column) belongs to no run.
  execute("INSERT INTO channel_data_t (name) VALUES ('stray')");
  EXPECT_EQ(1, synchronise({b}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("B"));
  // The same in a table that rejects services.
  execute("ALTER TABLE channel_data_t DROP COLUMN build_from_pmt");
  EXPECT_EQ(1, synchronise({}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), IsEmpty());
  EXPECT_THAT(rows("SELECT name FROM sqlite_master WHERE name='tmp'"), IsEmpty());
}

TEST_F(ChannelTableTest, StatementTexts) {
  fake::setTime(77);
  const fake::Service service = fake::service(7, 1, 177000000, "It's");
  synchronise({service});
  EXPECT_TRUE(fake::logged(
      "Debug",
      "SQL Command INSERT INTO channel_data_t ( name,build_from_pmt,major_no,minor_no,"
      "service_record,source_id,freq,srv_type,srv_flag,fav_group,service_delete,audio_pid,"
      "video_pid,audio_count,video_count,update_time,ch_id_pk,tsid,tuner_type)VALUES "
      "('It''s',0,7,1,"
      "701,1,177000000,'TV',1,0,0,'52_eng_129,','49_2,',1,1,77,'7-1-177000000',4711,'VSB')\n"));
  fake::setTime(78);
  synchronise({service});
  EXPECT_TRUE(fake::logged(
      "Debug",
      "SQL Command UPDATE channel_data_t SET  name='It''s', build_from_pmt=0, service_record=701, "
      "major_no=7, minor_no=1, source_id=1, freq=177000000, srv_type='TV', srv_flag=1, "
      "fav_group=0, service_delete=0, update_time=78, audio_pid='52_eng_129,', video_pid='49_2,', "
      "audio_count=1, video_count=1, tuner_type='VSB', tsid=4711, ch_id_pk='7-1-177000000' WHERE "
      "major_no=7 AND minor_no=1 AND freq=177000000\n"));
  EXPECT_EQ("", fake::logLine("DELETE"));
  atsc::FetchedServices list;
  ASSERT_TRUE(atsc::fetchServices(2, 1, list, {}));
  const std::string update =
      _ATSC_Service_db_getChannelUpdate_Command(list.records.data(), 0) + " WHERE major_no=7";
  const std::string insert = _ATSC_Service_db_getChannelInsert_Command(list.records.data(), 0);
  EXPECT_NE("", fake::logLine("UPDATE channel_data_t SET " + update));
  execute("DELETE FROM channel_data_t");
  synchronise({service});
  EXPECT_NE("", fake::logLine("INSERT INTO channel_data_t" + insert + "\n"));
}

TEST_F(ChannelTableTest, StreamsAndTypes) {
  std::vector<fake::Service> services;
  for (uint16_t type = 0; type < 256; ++type) {  // of a stream and of the service
    services.push_back(fake::service(7, type, 177000000, "A"));
    services.back().info.service_type = type;
    services.back().pids.resize(1);
    services.back().pids[0].stream_type = static_cast<uint8_t>(type);
  }
  AISRV_pid_info described = fake::service(7, 1, 1, "").pids[1];
  described.audio_kind = AISRV_AUDIO_DESCRIPTION;
  described.main_audio_number = 3;
  AISRV_pid_info mixed = described;
  mixed.description_mask = 4;
  mixed.full_mix = 1;
  memset(mixed.language, 0, 3);
  memcpy(mixed.second_language, "fre", 3);
  services[2].pids = {described, mixed};
  services[3].name = "";
  services[4].name = "N";
  services[4].nameEncoding = 0;
  synchronise(services);
  EXPECT_EQ(
      "1||49_1,|0|1|TV 2|52_eng_129_AD_MAIN3,52_fre_129_AD2FULL_MAIN3,||2|0|RADIO "
      "3|49__3,||1|0|DATA 4|49__4,||1|0|TV 15|49__15,||1|0|TV 17|49__17,||1|0|TV "
      "36||49_36,|0|1|TV 128||49_128,|0|1|TV 129|49__129,||1|0|TV 135|49__135,||1|0|TV",
      joined(rows("SELECT minor_no,audio_pid,video_pid,audio_count,video_count,srv_type FROM "
                  "channel_data_t WHERE audio_count+video_count > 0")));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t WHERE minor_no IN (3,4,5)"),
              ElementsAre("EMPTY", "N", "A"));
}

TEST_F(ChannelTableTest, AMiddlewareThatFailsOrLiesLosesNoChannels) {
  const std::vector<fake::Service> services = {fake::service(7, 1, 177000000, "A")};
  synchronise(services);
  for (const char* function : {"AISRV_get_total_services", "AISRV_get_n_services"}) {
    fake::setServices(2, {});
    fake::setResult(function, 5);
    EXPECT_EQ(1, ATSC_Service_db_UpdateChannel(2));
    EXPECT_EQ("AISRV_sync_to_database()", fake::calls().back());
    fake::setResult(function, 0);
    EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  }
  fake::setServices(2, services);
  fake::state()->claimedCount = 4294967295u;  // memory and reads do not depend on the claimed count
  EXPECT_EQ(1, ATSC_Service_db_UpdateChannel(2));
}

TEST_F(ChannelTableTest, AFailedRewriteLeavesTheTableAsItWas) {
  synchronise({fake::service(7, 1, 177000000, "A")});
  execute(
      "CREATE TRIGGER broken BEFORE UPDATE OF name ON channel_data_t BEGIN SELECT "
      "RAISE(ABORT,'no');END");
  testing::internal::CaptureStdout();
  EXPECT_EQ(1, synchronise({fake::service(9, 1, 1, "B"), fake::service(7, 1, 177000000, "C")}));
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              ::testing::ContainsRegex("\\[Error\\]SQLite exception: no at "
                                       "ATSC_Service_db_UpdateChannel_[0-9]+, command:UPDATE "
                                       "channel_data_t SET  name='C'"));
  EXPECT_EQ("AISRV_sync_to_database()", fake::calls().back());
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  EXPECT_THAT(rows("SELECT name FROM sqlite_master WHERE name='tmp'"), IsEmpty());
  execute("DROP TRIGGER broken");
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "C")}));  // no lock is left
}

TEST_F(ChannelTableTest, OtherWritersOfTheFile) {
  synchronise({fake::service(7, 1, 177000000, "A")});
  SQLite::Database writer(path_, SQLite::OPEN_READWRITE);
  writer.exec("BEGIN EXCLUSIVE");
  testing::internal::CaptureStdout();
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "B")}));
  EXPECT_EQ(65535, ATSC_Service_db_findChannelIndex(path_.c_str(), key(7, 1, 1, 177000000), nullptr,
                                                    nullptr));
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("database is locked"));
  writer.exec("COMMIT");
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  // A writer that ends soon is waited for. A lock that ends late costs the comparison.
  for (const int milliseconds : {100, 750}) {
    writer.exec("BEGIN IMMEDIATE");
    std::thread release([&writer, milliseconds] {
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      writer.exec("COMMIT");
    });
    fake::setTime(static_cast<uint32_t>(milliseconds));
    testing::internal::CaptureStdout();
    EXPECT_EQ(milliseconds > 500, synchronise({fake::service(7, 1, 177000000, "A")}));
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(
        milliseconds > 500,
        printed.find("command:CREATE TABLE tmp AS SELECT ch_index, name") != std::string::npos);
    release.join();
    EXPECT_THAT(rows("SELECT update_time FROM channel_data_t"),
                ElementsAre(std::to_string(milliseconds)));
  }
}

TEST_F(ChannelTableTest, ServicesWithOneKeyAreWrittenOnce) {
  std::vector<fake::Service> services(50, fake::service(7, 1, 177000000, "A"));
  for (size_t i = 0; i < services.size(); ++i) {
    services[i].name = fake::utf16("N" + std::to_string(i));
  }
  synchronise(services);
  execute("CREATE TABLE hits (n INTEGER)");
  fake::setTime(1);
  execute(
      "CREATE TRIGGER counted AFTER UPDATE ON channel_data_t BEGIN INSERT INTO hits VALUES (1);"
      "END");
  synchronise(services);
  EXPECT_THAT(rows("SELECT count(*) FROM hits"), ElementsAre("50"));  // linear, not quadratic
  EXPECT_THAT(rows("SELECT DISTINCT name FROM channel_data_t"), ElementsAre("N49"));
}

TEST_F(ChannelTableTest, FindsTheFirstRowOfAKey) {
  execute(
      "INSERT INTO channel_data_t (major_no,minor_no,source_id,freq,audio_pid,video_pid) VALUES "
      "(7,1,3,57,'1_e''g_129,','2_2,'),(7,1,3,57,'9_eng_129,','2_2,'),(7,1,3,57,NULL,NULL)");
  const auto find = [&](ATSC_Service_db_channelKey k, const char* a, const char* v) {
    return ATSC_Service_db_findChannelIndex(path_.c_str(), k, a, v);
  };
  EXPECT_EQ(1, find(key(7, 1, 3, 57), nullptr, nullptr));
  EXPECT_EQ(1, find(key(7, 1, 3, 57), "", ""));
  EXPECT_EQ(1, find(key(7, 1, 3, 57), "1_e'g_129,", nullptr));
  EXPECT_EQ(2, find(key(7, 1, 3, 57), "9_eng_129,", "2_2,"));
  EXPECT_EQ(65535, find(key(7, 1, 3, 57), "9_eng_129,", "3_2,"));
  EXPECT_EQ(65535, find(key(7, 1, 4, 57), nullptr, nullptr));
  EXPECT_EQ(65535, ATSC_Service_db_findChannelIndex(nullptr, key(7, 1, 3, 57), nullptr, nullptr));
}

TEST_F(ChannelTableTest, SingleColumnsAreWrittenByChannelKey) {
  synchronise({fake::service(7, 1, 177000000, "A"), fake::service(7, 2, 177000000, "B")});
  ATSC_Service_db_updateChannelEntryText("7-2-177000000", "channel_data_t", "name", "O'Neill");
  ATSC_Service_db_updateChannelEntryInterger("7-2-177000000", "channel_data_t", "audio_index",
                                             4294967295u);
  ATSC_Service_db_updateChannelEntryText("' OR '1'='1", "channel_data_t", "name", "all");
  EXPECT_THAT(rows("SELECT name, audio_index FROM channel_data_t"),
              ElementsAre("A|", "O'Neill|4294967295"));
  EXPECT_TRUE(fake::logged("Debug",
                           " update command: UPDATE channel_data_t SET name='O''Neill' WHERE "
                           "ch_id_pk='7-2-177000000'"));
  ATSC_Service_db_updateChannelEntryText("7-2-177000000", "nowhere", "name", "x");
  EXPECT_TRUE(fake::logged("Error", "table(nowhere) does not exist"));
  ATSC_Service_db_updateChannelEntryText(nullptr, "channel_data_t", "name", "x");
  testing::internal::CaptureStdout();
  ATSC_Service_db_updateChannelEntryInterger("7-2-177000000", "channel_data_t", "nothing", 1);
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              HasSubstr("at ATSC_Service_db_updateChannelEntryInterger_"));
  // Data of the set about a channel survives a synchronisation.
  synchronise({fake::service(7, 1, 177000000, "A"), fake::service(7, 2, 177000000, "B")});
  EXPECT_THAT(rows("SELECT name, audio_index FROM channel_data_t"),
              ElementsAre("A|", "B|4294967295"));
}

}  // namespace
