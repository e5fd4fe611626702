#include <gmock/gmock.h>

#include <cstring>
#include <thread>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ChannelTableTest : public LibraryTest {
 protected:
  static int synchronise(std::vector<fake::Service> services, int input = 2) {
    fake::setServices(static_cast<uint32_t>(input), std::move(services));
    return ATSC_Service_db_UpdateChannel(input);
  }
};

// What a synchronisation leaves in the table is the fuzzer's.
TEST_F(ChannelTableTest, StatementTexts) {
  fake::Service service = fake::service(7, 1, 177000000, "It's");
  AISRV_pid_info& described = service.pids[1];
  described.audio_kind = AISRV_AUDIO_DESCRIPTION;
  described.main_audio_number = 3;
  AISRV_pid_info mixed = described;
  mixed.description_mask = 4;
  mixed.full_mix = 1;
  memset(mixed.language, 0, 3);
  memcpy(mixed.second_language, "fre", 3);
  service.pids.push_back(mixed);
  fake::setTime(77);
  EXPECT_EQ(1, synchronise({service}));
  EXPECT_TRUE(fake::logged("Info", "channel count(1)"));
  EXPECT_TRUE(fake::logged("Info", "Service[0]"));
  const std::string shown = "Channel No(7-1), freq(177000000), fav(0), flag(1), name(It's)";
  EXPECT_TRUE(fake::logged("Info", shown));
  const std::string inserted =
      " ( name,build_from_pmt,major_no,minor_no,service_record,source_id,freq,srv_type,srv_flag,"
      "fav_group,service_delete,audio_pid,video_pid,audio_count,video_count,update_time,ch_id_pk,"
      "tsid,tuner_type)VALUES ('It''s',0,7,1,701,1,177000000,'TV',1,0,0,"
      "'52_eng_129_AD_MAIN3,52_fre_129_AD2FULL_MAIN3,','49_2,',2,1,77,'7-1-177000000',4711,'VSB')";
  EXPECT_TRUE(fake::logged("Debug", "SQL Command INSERT INTO channel_data_t" + inserted + "\n"));
  atsc::FetchedServices list;
  ASSERT_TRUE(atsc::fetchServices(2, 1, list, {}));
  EXPECT_EQ(inserted, _ATSC_Service_db_getChannelInsert_Command(list.records.data(), 0));

  fake::setTime(78);
  EXPECT_EQ(0, synchronise({service}));
  const std::string updated =
      " name='It''s', build_from_pmt=0, service_record=701, major_no=7, minor_no=1, source_id=1, "
      "freq=177000000, srv_type='TV', srv_flag=1, fav_group=0, service_delete=0, update_time=78, "
      "audio_pid='52_eng_129_AD_MAIN3,52_fre_129_AD2FULL_MAIN3,', video_pid='49_2,', "
      "audio_count=2, video_count=1, tuner_type='VSB', tsid=4711, ch_id_pk='7-1-177000000'";
  EXPECT_TRUE(fake::logged("Debug", "SQL Command UPDATE channel_data_t SET " + updated +
                                        " WHERE major_no=7 AND minor_no=1 AND freq=177000000\n"));
  EXPECT_EQ(updated, _ATSC_Service_db_getChannelUpdate_Command(list.records.data(), 0));
  EXPECT_EQ("", fake::logLine("DELETE"));
}

TEST_F(ChannelTableTest, TypesAndNames) {
  std::vector<fake::Service> services;
  for (uint16_t type = 0; type < 256; ++type) {  // of a stream and of the service
    services.push_back(fake::service(7, type, 177000000, "A"));
    services.back().info.service_type = type;
    services.back().pids.resize(1);
    services.back().pids[0].stream_type = static_cast<uint8_t>(type);
  }
  strcpy(services[129].pids[0].language, "e");
  services[3].name = "";
  services[4].name = "N";
  services[4].nameEncoding = 0;
  synchronise(services);
  EXPECT_EQ(
      "1|A||49_1,|0|1|TV 2|A||49_2,|0|1|RADIO 3|EMPTY|49__3,||1|0|DATA 4|N|49__4,||1|0|TV "
      "15|A|49__15,||1|0|TV 17|A|49__17,||1|0|TV 36|A||49_36,|0|1|TV 128|A||49_128,|0|1|TV "
      "129|A|49_e_129,||1|0|TV 135|A|49__135,||1|0|TV",
      joined(rows("SELECT minor_no,name,audio_pid,video_pid,audio_count,video_count,srv_type FROM "
                  "channel_data_t WHERE audio_count+video_count > 0")));
}

TEST_F(ChannelTableTest, AFailureLosesNoChannels) {
  synchronise({fake::service(7, 1, 177000000, "A")});
  const auto expectFailure = [] {
    fake::setServices(2, {fake::service(9, 1, 1, "B"), fake::service(7, 1, 177000000, "C")});
    testing::internal::CaptureStdout();
    EXPECT_EQ(1, ATSC_Service_db_UpdateChannel(2));
    EXPECT_EQ("AISRV_sync_to_database()", fake::calls().back());
    return testing::internal::GetCapturedStdout();
  };
  for (const char* function : {"AISRV_get_total_services", "AISRV_get_n_services"}) {
    fake::reset();
    fake::setResult(function, 5);
    EXPECT_EQ("", expectFailure());
    EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  }
  fake::reset();
  execute(
      "CREATE TRIGGER broken BEFORE UPDATE OF name ON channel_data_t BEGIN SELECT "
      "RAISE(ABORT,'no');END");
  EXPECT_THAT(expectFailure(),
              ::testing::ContainsRegex("\\[Error\\]SQLite exception: no at "
                                       "ATSC_Service_db_UpdateChannel_[0-9]+, command:UPDATE "
                                       "channel_data_t SET  name='C'"));
  execute("DROP TRIGGER broken");
  SQLite::Database writer(path_, SQLite::OPEN_READWRITE);
  writer.exec("BEGIN EXCLUSIVE");
  EXPECT_THAT(expectFailure(), HasSubstr("database is locked"));
  writer.exec("COMMIT");
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  EXPECT_EQ(Lines{}, rows("SELECT name FROM sqlite_master WHERE name='tmp'"));
  // A writer that ends late is waited for, but costs the comparison.
  writer.exec("BEGIN IMMEDIATE");
  std::thread release([&writer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(750));
    writer.exec("COMMIT");
  });
  fake::setTime(750);
  testing::internal::CaptureStdout();
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "A")}));
  EXPECT_THAT(testing::internal::GetCapturedStdout(),
              HasSubstr("command:CREATE TABLE tmp AS SELECT ch_index, name"));
  release.join();
  EXPECT_THAT(rows("SELECT update_time FROM channel_data_t"), ElementsAre("750"));
}

TEST_F(ChannelTableTest, ServicesWithOneKeyAreWrittenOnce) {
  const std::vector<fake::Service> services(50, fake::service(7, 1, 177000000, "A"));
  synchronise(services);
  execute(
      "CREATE TABLE hits (n); CREATE TRIGGER counted AFTER UPDATE ON channel_data_t "
      "BEGIN INSERT INTO hits VALUES (1); END");
  fake::setTime(1);
  synchronise(services);
  EXPECT_THAT(rows("SELECT count(*) FROM hits"), ElementsAre("50"));  // linear, not quadratic
  // A row that is deleted has not been written before; one that a trigger ignores has no id.
  execute(
      "CREATE TRIGGER gone AFTER DELETE ON channel_data_t BEGIN INSERT INTO hits VALUES "
      "(old.update_time); END; CREATE TRIGGER none BEFORE INSERT ON channel_data_t WHEN new.name = "
      "'D' BEGIN SELECT RAISE(IGNORE); END");
  const fake::Service a = fake::service(8, 1, 1, "A"), b = fake::service(8, 2, 1, "B");
  fake::setTime(2);
  synchronise({a, b});
  execute("DELETE FROM hits");
  fake::Service d = fake::service(8, 1, 1, "D");
  d.info.source_id = 77;
  fake::setTime(3);
  synchronise({fake::service(9, 1, 1, "E"), d, a});
  EXPECT_THAT(rows("SELECT n FROM hits"), ElementsAre("1", "2"));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A", "E"));
}

TEST_F(ChannelTableTest, FindsTheFirstRowOfAKey) {
  _ATSC_Service_db_createChannelDB();
  execute(
      "INSERT INTO channel_data_t (major_no,minor_no,source_id,freq,audio_pid,video_pid) VALUES "
      "(7,1,3,57,'1_e''g_129,','2_2,'),(7,1,3,57,'9_eng_129,','2_2,'),(7,1,3,57,NULL,NULL)");
  const auto find = [&](uint32_t sourceId, const char* audio, const char* video) {
    const ATSC_Service_db_channelKey key{7, 1, sourceId, 57, "channel_data_t"};
    return ATSC_Service_db_findChannelIndex(path_.c_str(), key, audio, video);
  };
  EXPECT_EQ(1, find(3, nullptr, nullptr));
  EXPECT_EQ(1, find(3, "", ""));
  EXPECT_EQ(1, find(3, "1_e'g_129,", nullptr));
  EXPECT_EQ(2, find(3, "9_eng_129,", "2_2,"));
  EXPECT_EQ(65535, find(3, "9_eng_129,", "3_2,"));
  EXPECT_EQ(65535, find(4, nullptr, nullptr));
  EXPECT_EQ(65535, ATSC_Service_db_findChannelIndex(nullptr, {}, nullptr, nullptr));
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
}

}  // namespace
