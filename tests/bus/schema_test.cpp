#include <gmock/gmock.h>

#include <functional>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kCreateText =
    "CREATE TABLE \"channel_data_t\" ( `ch_index`  INTEGER NOT NULL PRIMARY KEY AUTOINCREMENT, "
    "`name` TEXT, `source_id` INTEGER, `audio_index` INTEGER, `freq` INTEGER, `srv_type` TEXT, "
    "`tuner_type` TEXT, `major_no` INTEGER, `minor_no` INTEGER, `srv_flag` INTEGER, `fav_group` "
    "INTEGER, `audio_count` INTEGER, `video_count` INTEGER, `audio_pid` TEXT, `video_pid` TEXT, "
    "`update_time` INTEGER, `service_delete` INTEGER, `build_from_pmt` INTEGER, `tsid` INTEGER, "
    "`ch_id_pk` TEXT, `service_record` INTEGER, END  )";

class SchemaTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    restart();
  }

  // Forgets the calls and log lines.
  static void restart() {
    fake::reset();
    fake::setServices(2, {fake::service(7, 1, 177000000, "T")});
    fake::setServices(3, {fake::service(8, 1, 57000000, "C", AI_INPUT_CABLE)});
  }

  // Starts the databases and returns the output.
  static std::string init() {
    testing::internal::CaptureStdout();
    ATSC_Service_db_init();
    return testing::internal::GetCapturedStdout();
  }

  static bool rebuilt() {
    return fake::logged("Error", " DB integrity check fail. Rebuild channel DB");
  }

  Lines names() const {
    return rows("SELECT name FROM channel_data_t UNION ALL SELECT name FROM channel_data_c");
  }
};

TEST_F(SchemaTest, FilesThatCannotBeKeptAreCreatedAndFilled) {
  const auto overwrite = [&](int offset, const std::string& bytes) {
    std::fstream(path_, std::ios::in | std::ios::out | std::ios::binary).seekp(offset) << bytes;
  };
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"missing", [&] { std::filesystem::remove(path_); }},
      {"other version", [&] { execute("PRAGMA user_version = 0"); }},
      {"no database at all", [&] { writeFile(path_, std::string(5000, 'x')); }},
      {"cut off", [&] { std::filesystem::resize_file(path_, 9000); }},
      {"a page overwritten", [&] { overwrite(4096 + 8, std::string(4000, '\xA5')); }},
      {"a file format from the future", [&] { overwrite(47, "\x05"); }},
  };
  for (const auto& [what, damage] : cases) {
    SCOPED_TRACE(what);
    init();
    execute("ALTER TABLE channel_data_t ADD COLUMN witness TEXT");
    restart();
    damage();
    EXPECT_THAT(init(), HasSubstr("[_DBG_ATSC_Service_db_printChDb]:\n"
                                  "[_DBG_ATSC_Service_db_printChDb]:END\n"));
    EXPECT_TRUE(rebuilt());
    EXPECT_THAT(names(), ElementsAre("T", "C"));
    EXPECT_THAT(rows("SELECT sql FROM sqlite_master WHERE name='channel_data_t'"),
                ElementsAre(kCreateText));
    EXPECT_THAT(rows("PRAGMA user_version"), ElementsAre("1"));
  }
  // The next start finds no fault and prints the table.
  restart();
  EXPECT_EQ(
      "[_DBG_ATSC_Service_db_printChDb]:\n"
      "    Channel[1] [7-1],name[T], ch_id[7-1-177000000]\n"
      "[_DBG_ATSC_Service_db_printChDb]:END\n",
      init());
  EXPECT_FALSE(rebuilt());
}

TEST_F(SchemaTest, AFileThatCannotBeOpenedIsNeverDeleted) {
  init();
  writeFile(folder_ / "witness", readFile(path_));
  {
    SQLite::Database other(path_, SQLite::OPEN_READWRITE);
    other.exec("BEGIN EXCLUSIVE");
    EXPECT_THAT(init(), HasSubstr("database is locked"));
  }
  EXPECT_EQ(readFile(folder_ / "witness"), readFile(path_));
  EXPECT_THAT(names(), ElementsAre("T", "C"));
  const std::pair<std::filesystem::path, const char*> kUnusable[] = {
      {folder_, "Is a directory"}, {folder_ / "none" / "x.db3", "No such file or directory"}};
  for (const auto& [path, reason] : kUnusable) {
    setenv("ATSC_CNAHHEL_DB", path.c_str(), 1);
    EXPECT_THAT(init(), HasSubstr("unable to open database file"));
    EXPECT_THAT(fake::logLine("is not written: "), HasSubstr(reason));
  }
  EXPECT_TRUE(std::filesystem::is_directory(folder_));
}

TEST_F(SchemaTest, KeysAndCountsAreChecked) {
  init();
  // Keys stay below the answer for "not found".
  execute("UPDATE channel_data_t SET ch_index = 60000");
  init();
  EXPECT_THAT(rows("SELECT ch_index FROM channel_data_t"), ElementsAre("60000"));
  execute("UPDATE channel_data_t SET ch_index = 60001");
  execute("UPDATE sqlite_sequence SET seq = 60001 WHERE name='channel_data_t'");
  init();
  EXPECT_THAT(rows("SELECT ch_index, name FROM channel_data_t"), ElementsAre("1|T"));
  // The numbers of channels are those of the middleware.
  fake::reset();
  fake::setServices(2, {fake::service(7, 1, 177000000, "T"), fake::service(7, 2, 177000000, "U")});
  init();
  EXPECT_TRUE(fake::logged("Error", "Channel number is not synced( service T(2) , SQLDB T(1)\n"));
  EXPECT_TRUE(fake::logged("Error", "Channel number is not synced( service C(0), SQLDB C(1)\n"));
  EXPECT_THAT(names(), ElementsAre("T", "U"));
  // No rebuild when the middleware cannot give a number.
  fake::reset();
  fake::setResult("AISRV_get_total_services", 1);
  init();
  EXPECT_FALSE(rebuilt());
  EXPECT_THAT(names(), ElementsAre("T", "U"));
}

TEST_F(SchemaTest, AnOlderLayoutIsMigrated) {
  execute("CREATE TABLE channel_data_t (ch_index INTEGER PRIMARY KEY, name TEXT, own TEXT)");
  execute("CREATE TABLE channel_data_c (ch_index INTEGER PRIMARY KEY, name TEXT)");
  execute("INSERT INTO channel_data_t VALUES (5, 'old', 'mine')");
  execute("INSERT INTO channel_data_c VALUES (6, 'older')");
  execute("CREATE TABLE tmp (x)");  // left by an interrupted run
  execute("CREATE INDEX channel_data_c_number ON channel_data_c (ch_index)");
  execute("PRAGMA user_version = 1");
  fake::setResult("AISRV_get_total_services", 1);  // no rebuild
  init();
  EXPECT_THAT(rows("SELECT ch_index, name, own, tsid FROM channel_data_t"),
              ElementsAre("5|old|mine|"));
  EXPECT_TRUE(fake::logged(
      "Info", "add DB command: ALTER TABLE channel_data_t ADD COLUMN `tsid` INTEGER "));
  EXPECT_THAT(rows("SELECT name FROM sqlite_master WHERE name='tmp' OR type='index'"), IsEmpty());
  fake::setResult("AISRV_get_total_services", 0);
  EXPECT_EQ(1, ATSC_Service_db_UpdateChannel(2));
  EXPECT_THAT(names(), ElementsAre("T", "older"));
}

TEST_F(SchemaTest, TheGuidesTables) {
  EXPECT_EQ(guide_, _ATSC_Service_db_createEventDB(2));
  _ATSC_Service_db_createEventDB(3);
  EXPECT_THAT(guideRows("SELECT name FROM sqlite_master"), ElementsAre("event_t", "event_c"));
  EXPECT_THAT(guideRows("SELECT sql FROM sqlite_master WHERE name='event_t'"),
              ElementsAre("CREATE TABLE \"event_t\" ( `event_index` INTEGER, `event_id` INTEGER, "
                          "`name` TEXT, `start_time` INTEGER, `duration` INTEGER, `rating` TEXT, "
                          "`multi_rating` INTEGER, `genre_count` INTEGER, `parent_stat` INTEGER, "
                          "`genre` TEXT, `desc` TEXT, `cc` INTEGER, `ch_id_pk` INTEGER )"));
  // A valid file keeps its rows and gains columns; a broken file is created again.
  ::execute(guide_, "INSERT INTO event_t (name) VALUES ('News')");
  ::execute(guide_, "ALTER TABLE event_t DROP COLUMN `desc`");
  testing::internal::CaptureStdout();
  _ATSC_Service_db_createEventDB(2);
  EXPECT_THAT(guideRows("SELECT name, `desc` FROM event_t"), ElementsAre("News|"));
  _ATSC_Service_db_createEventDB(2);
  EXPECT_EQ("", testing::internal::GetCapturedStdout());
  writeFile(guide_, std::string(5000, 'x'));
  _ATSC_Service_db_createEventDB(2);
  EXPECT_THAT(guideRows("SELECT name FROM event_t"), IsEmpty());
}

TEST_F(SchemaTest, CustomerColumns) {
  const std::string longName(128, 'n');
  writeFile(folder_ / "columns.json",
            R"({ /* product */ "column": [{"name":"zoom","type":"integer"},
                {"name":"note","type":"INTEGER"}, {"name":"select"}, {"name":"zoom","type":"text"},
                {"name":"odd` TEXT); DROP TABLE channel_data_t;--","type":"text"}, {"name":""},
                {"name":7}, {"type":"text"}, 3, {"name":"NAME"}, {"name":"end"}, {"name":"ROWID"},
                {"name":"oid"}, {"name":"_rowid_"}, {"name":"a\u0000b"}, {"name":")" +
                longName.substr(1) + R"("}, {"name":")" + longName + R"("}], "other": 1})");
  init();
  EXPECT_THAT(
      rows("SELECT name || ' ' || type FROM pragma_table_info('channel_data_t') "
           "WHERE cid >= 22"),
      ElementsAre("zoom INTEGER", "note TEXT", "select TEXT",
                  "odd` TEXT); DROP TABLE channel_data_t;-- TEXT", longName.substr(1) + " TEXT"));
  EXPECT_TRUE(fake::logged("Info", "customized cloumns size 17\n"));
  EXPECT_TRUE(fake::logged("Info", "customized cloumn name[1] note"));
  EXPECT_TRUE(fake::logged(
      "Error", "customized column[16] rejected: the name has 128 bytes or more: " + longName));
  EXPECT_TRUE(fake::logged(
      "Error", "customized column[9] rejected: the channel tables have that column: NAME"));
  EXPECT_THAT(names(), ElementsAre("T", "C"));
}

TEST_F(SchemaTest, CustomerColumnFiles) {
  std::string many = R"({"column":[{"name":"c"})";
  for (int i = 1; i < 300; ++i) many += R"(,{"name":"c)" + std::to_string(i) + "\"}";
  const std::tuple<std::string, int, unsigned> cases[] = {
      {R"({"column":[{"name":"c"}]})", 0, 1},
      // The previous columns stay.
      {R"({"column":[)", -1, 1},
      {R"({"column":)" + std::string(5000, '['), -1, 1},
      {"[1]", 0, 0},
      {R"({"column":{}})", 0, 0},
      {many + "]}", 0, 255},
  };
  EXPECT_EQ(-1, _ATSC_Service_db_cus_init()) << "no file";
  for (const auto& [text, result, columns] : cases) {
    SCOPED_TRACE(text.substr(0, 20));
    writeFile(folder_ / "columns.json", text);
    EXPECT_EQ(result, _ATSC_Service_db_cus_init());
    EXPECT_EQ(columns, atsc_service_db_custom_column_count);
    EXPECT_EQ(columns != 0, atsc_service_db_custom_column != nullptr);
  }
  unsetenv("ATSC_CUSTOM_DB_COLUMN_FILE");
  EXPECT_EQ("/system/com.qel.atsc/qel.atsc.cus_col.json",
            _ATSC_Service_db_get_custom_column_file());
}

}  // namespace
