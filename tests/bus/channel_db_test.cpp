#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <thread>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using std::string_literals::operator""s;

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

  static AISRV_pid_info audio(uint16_t pid, const char* language, uint8_t type = 0x81) {
    AISRV_pid_info info{};
    info.stream_type = type;
    info.pid = pid;
    memcpy(info.language, language, std::min(strlen(language), sizeof info.language));
    return info;
  }

  static ATSC_Service_db_channelKey key(uint32_t major, uint32_t minor, uint32_t sourceId,
                                        uint32_t frequency) {
    ATSC_Service_db_channelKey made{major, minor, sourceId, frequency, {}};
    strcpy(made.table, "channel_data_t");
    return made;
  }
};

TEST_F(ChannelTableTest, WritesEveryColumn) {
  fake::setTime(1234567);
  fake::Service service = fake::service(7, 1, 177000000, "News");
  service.info.source_id = 9;
  service.info.AISRV_fav_group_ = 0x30;
  service.info.AISRV_flags_ = 0x9;
  service.info.build_from_pmt = 1;
  service.info.service_delete = 1;
  fake::Service radio = fake::service(7, 2, 4294967295u, "", AI_INPUT_CABLE);
  radio.info.service_type = AISRV_TYPE_RADIO;
  radio.pids.clear();
  fake::Service data = fake::service(7, 3, 177000000, "Data");
  data.info.service_type = AISRV_TYPE_DATA;
  data.name = "plain";
  data.nameEncoding = 0;
  EXPECT_EQ(1, synchronise({service, radio, data}));
  EXPECT_THAT(
      rows("SELECT ch_index,name,source_id,audio_index,freq,srv_type,tuner_type,major_no,minor_no,"
           "srv_flag,fav_group,audio_count,video_count,audio_pid,video_pid,update_time,"
           "service_delete,build_from_pmt,tsid,ch_id_pk,service_record FROM channel_data_t"),
      ElementsAre("1|News|9||177000000|TV|VSB|7|1|9|48|1|1|52_eng_129,|49_2,|1234567|1|1|4711|"
                  "7-1-177000000|701",
                  "2|EMPTY|2||4294967295|RADIO|QAM|7|2|1|0|0|0|||1234567|0|0|4711|"
                  "7-2-4294967295|702",
                  "3|plain|3||177000000|DATA|VSB|7|3|1|0|1|1|52_eng_129,|49_2,|1234567|0|0|4711|"
                  "7-3-177000000|703"));
}

TEST_F(ChannelTableTest, ElementaryStreamTexts) {
  fake::Service service = fake::service(7, 1, 177000000, "A");
  AISRV_pid_info described = audio(53, "spa");
  described.audio_kind = AISRV_AUDIO_DESCRIPTION;
  described.description_mask = 1 << 2;
  AISRV_pid_info mixed = audio(54, "", 0x87);
  memcpy(mixed.second_language, "fre", 3);
  mixed.audio_kind = AISRV_AUDIO_DESCRIPTION;
  mixed.description_mask = 1 << 7;
  mixed.full_mix = 1;
  mixed.main_audio_number = 3;
  AISRV_pid_info impaired = audio(55, "eng", 0x0F);
  impaired.audio_kind = AISRV_AUDIO_HEARING_IMPAIRED;
  service.pids = {audio(52, "eng"), described, mixed, impaired};
  for (const uint8_t type : {0x01, 0x02, 0x24, 0x80, 0x05, 0x1B, 0x03, 0x04, 0x11}) {
    service.pids.push_back(audio(static_cast<uint16_t>(0x100 + type), "eng", type));
  }
  synchronise({service});
  EXPECT_THAT(rows("SELECT audio_pid, audio_count, video_pid, video_count FROM channel_data_t"),
              ElementsAre("52_eng_129,53_spa_129_AD2_MAIN0,54_fre_135_AD7FULL_MAIN3,55_eng_15,"
                          "259_eng_3,260_eng_4,273_eng_17,|7|257_1,258_2,292_36,384_128,|4"));
}

TEST_F(ChannelTableTest, BroadcastTextCannotLeaveItsQuotes) {
  const std::string attack = "x','0'); DROP TABLE t;--";
  fake::Service utf16 = fake::service(1, 1, 57000000, attack.substr(0, 20));
  fake::Service plain = fake::service(1, 2, 57000000, "");
  plain.nameEncoding = 0;
  plain.name = attack;
  fake::Service language = fake::service(1, 3, 57000000, "L'Ete");
  language.pids = {audio(52, "e'x"), audio(53, "'''"), audio(54, "\n\0z"), audio(55, "\xFF\"`")};
  fake::Service truncated = fake::service(1, 4, 57000000, "");
  truncated.nameEncoding = 0;
  truncated.name = "it's\0hidden"s;
  const std::vector<fake::Service> services = {utf16, plain, language, truncated};
  EXPECT_EQ(1, synchronise(services));
  EXPECT_EQ(0, synchronise(services));  // the texts that were written are the ones looked up
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"),
              ElementsAre(attack.substr(0, 20), attack, "L'Ete", "it's"));
  EXPECT_THAT(rows("SELECT audio_pid FROM channel_data_t WHERE minor_no=3"),
              ElementsAre("52_e'x_129,53_'''_129,54_\n_129,55_\xFF\"`_129,"));
}

TEST_F(ChannelTableTest, RepeatChangeAndDisappearance) {
  fake::Service a = fake::service(7, 1, 177000000, "A");
  fake::Service b = fake::service(7, 2, 177000000, "B");
  EXPECT_EQ(1, synchronise({a, b}));
  // The clock stands still, goes on, and goes back: no change, and rows stay.
  for (const uint32_t time : {1000u, 2000u, 5u, 4294967295u, 4294967295u, 4294967295u}) {
    fake::setTime(time);
    EXPECT_EQ(0, synchronise({a, b})) << time;
    const std::string stamp = "|" + std::to_string(time);
    EXPECT_THAT(rows("SELECT ch_index, name, update_time FROM channel_data_t"),
                ElementsAre("1|A" + stamp, "2|B" + stamp));
  }
  b.name = fake::utf16("C");
  EXPECT_EQ(1, synchronise({a, b}));
  EXPECT_THAT(rows("SELECT ch_index, name FROM channel_data_t"), ElementsAre("1|A", "2|C"));
  // Other PIDs are another service: a new row, the old one goes.
  a.pids = {audio(60, "eng")};
  EXPECT_EQ(1, synchronise({a, b}));
  EXPECT_THAT(rows("SELECT ch_index, name, audio_pid FROM channel_data_t"),
              ElementsAre("2|C|52_eng_129,", "3|A|60_eng_129,"));
  // Gone within the same second.
  EXPECT_EQ(1, synchronise({b}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("C"));
  // A row without a stamp (from a table that had no such column) is nobody's.
  execute("INSERT INTO channel_data_t (name) VALUES ('stray')");
  EXPECT_EQ(1, synchronise({b}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("C"));
  // Also in a table that cannot take a service.
  execute("ALTER TABLE channel_data_t DROP COLUMN build_from_pmt");
  EXPECT_EQ(1, synchronise({}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), IsEmpty());
  EXPECT_THAT(rows("SELECT name FROM sqlite_master WHERE name='tmp'"), IsEmpty());
}

TEST_F(ChannelTableTest, LookupSeesCommittedRowsOnly) {
  // Two services with one key: both get rows in the first run, and later share their updates.
  fake::Service first = fake::service(7, 1, 177000000, "A");
  fake::Service second = first;
  second.name = fake::utf16("B");
  EXPECT_EQ(1, synchronise({first, second}));
  EXPECT_THAT(rows("SELECT ch_index, name FROM channel_data_t"), ElementsAre("1|A", "2|B"));
  EXPECT_EQ(1, synchronise({first, second}));
  EXPECT_THAT(rows("SELECT ch_index, name FROM channel_data_t"), ElementsAre("1|B", "2|B"));
  EXPECT_EQ(0, synchronise({first, second}));
  // An update reaches the rows that were inserted before it, not those that come later.
  second.pids = {audio(60, "eng")};
  fake::Service third = second;
  third.pids = {audio(61, "eng")};
  second.info.service_id.service_rec = 1;
  third.info.service_id.service_rec = 2;
  EXPECT_EQ(1, synchronise({second, first, third}));
  EXPECT_THAT(rows("SELECT ch_index, name FROM channel_data_t"),
              ElementsAre("1|A", "2|A", "3|A", "4|B"));
  // Without PIDs the key alone decides, also against rows that have some.
  second.pids.clear();
  EXPECT_EQ(1, synchronise({second}));
  EXPECT_THAT(rows("SELECT ch_index, audio_pid FROM channel_data_t"),
              ElementsAre("1|", "2|", "3|", "4|"));
}

TEST_F(ChannelTableTest, CallsTheMiddlewareInOrder) {
  synchronise({fake::service(7, 1, 177000000, "A"), fake::service(7, 2, 177000000, "B")}, 3);
  EXPECT_THAT(fake::calls(),
              ElementsAre("AIST_get_cur_time_secs(*)", "AISRV_get_total_services(3,4103,*,0,*)",
                          "AISRV_get_n_services(3,4103,0,*,0,0,*,*)", "AISRV_get_pid_details(*,*)",
                          "AISRV_get_pid_details(*,*)", "AISRV_sync_to_database()"));
  EXPECT_TRUE(fake::logged("Info", "channel count(2)"));
  EXPECT_TRUE(fake::logged("Info", "Service[1]"));
  EXPECT_THAT(rows("SELECT name FROM channel_data_c"), ElementsAre("A", "B"));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), IsEmpty());
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
  atsc::ServiceList list;
  ASSERT_TRUE(atsc::fetchServices(2, 1, list, {}));
  const std::string update =
      _ATSC_Service_db_getChannelUpdate_Command(list.records.data(), 0) + " WHERE major_no=7";
  const std::string insert = _ATSC_Service_db_getChannelInsert_Command(list.records.data(), 0);
  EXPECT_NE("", fake::logLine("UPDATE channel_data_t SET " + update));
  execute("DELETE FROM channel_data_t");
  synchronise({service});
  EXPECT_NE("", fake::logLine("INSERT INTO channel_data_t" + insert + "\n"));
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
  fake::claimCount(4294967295u);  // neither memory nor reading follows the claim
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
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "C")}));  // nothing stays locked
}

TEST_F(ChannelTableTest, ReadersAndOtherWritersOfTheFile) {
  synchronise({fake::service(7, 1, 177000000, "A")});
  {
    SQLite::Database writer(path_, SQLite::OPEN_READWRITE);
    writer.exec("BEGIN EXCLUSIVE");
    testing::internal::CaptureStdout();
    EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "B")}));
    EXPECT_EQ(65535, ATSC_Service_db_findChannelIndex(path_.c_str(), key(7, 1, 1, 177000000),
                                                      nullptr, nullptr));
    EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("database is locked"));
  }
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "B")}));
}

TEST_F(ChannelTableTest, AWriterThatEndsSoonIsWaitedFor) {
  synchronise({fake::service(7, 1, 177000000, "A")});
  SQLite::Database writer(path_, SQLite::OPEN_READWRITE);
  // One that ends late costs the comparison.
  for (const int milliseconds : {100, 750}) {
    writer.exec("BEGIN IMMEDIATE");
    std::thread release([&writer, milliseconds] {
      std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
      writer.exec("COMMIT");
    });
    fake::setTime(static_cast<uint32_t>(milliseconds));
    testing::internal::CaptureStdout();
    EXPECT_EQ(milliseconds > 500, synchronise({fake::service(7, 1, 177000000, "A")}));
    EXPECT_EQ(milliseconds > 500,
              testing::internal::GetCapturedStdout().find(
                  "command:CREATE TABLE tmp AS SELECT ch_index, name") != std::string::npos);
    release.join();
    EXPECT_THAT(rows("SELECT update_time FROM channel_data_t"),
                ElementsAre(std::to_string(milliseconds)));
  }
}

TEST_F(ChannelTableTest, ARowWhoseKeyIsNoNumberIsNoServicesRow) {
  execute(
      "INSERT INTO channel_data_t (major_no, minor_no, source_id, freq) "
      "VALUES (7, NULL, 0, 177000000), (7, 0, 0, 'x'), (7, 0, 0, 177000000.5)");
  EXPECT_EQ(1, synchronise({fake::service(7, 0, 177000000, "A")}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
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
  EXPECT_THAT(rows("SELECT count(*) FROM hits"), ElementsAre("50"));  // and not the square
  EXPECT_THAT(rows("SELECT DISTINCT name FROM channel_data_t"), ElementsAre("N49"));
}

TEST_F(ChannelTableTest, AMissingTableIsCreated) {
  std::filesystem::remove(path_);
  EXPECT_EQ(1, synchronise({}));  // nothing to compare with
  std::filesystem::remove(path_);
  EXPECT_EQ(1, synchronise({fake::service(7, 1, 177000000, "A")}));
  EXPECT_THAT(rows("SELECT name FROM channel_data_t"), ElementsAre("A"));
  EXPECT_EQ(0, synchronise({fake::service(7, 1, 177000000, "A")}));
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
  // What the set remembers of a channel outlives a synchronisation.
  synchronise({fake::service(7, 1, 177000000, "A"), fake::service(7, 2, 177000000, "B")});
  EXPECT_THAT(rows("SELECT name, audio_index FROM channel_data_t"),
              ElementsAre("A|", "B|4294967295"));
}

}  // namespace
