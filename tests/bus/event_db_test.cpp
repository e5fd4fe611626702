#include <gmock/gmock.h>

#include <fstream>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using std::string_literals::operator""s;

class EventTableTest : public LibraryTest {
 protected:
  void SetUp() override {
    LibraryTest::SetUp();
    path_ = (folder_ / "events.db").string();
    setenv("ATSC_EVENT_DB", path_.c_str(), 1);
  }

  static fake::Event programme(const std::string& name, uint32_t start = 1000) {
    fake::Event event;
    event.info.event_id = 5;
    event.info.start_time = start;
    event.info.duration = 1800;
    event.name = fake::utf16(name);
    return event;
  }

  // Rewrites the terrestrial guide of one service.
  static void update(std::vector<fake::Event> events) {
    const fake::Service service = fake::service(7, 1, 177000000, "News");
    fake::setServices(AI_INPUT_TERRESTRIAL, {service});
    fake::setEvents(service, std::move(events));
    ATSC_Service_db_UpdateEvent(AI_INPUT_TERRESTRIAL);
  }
};

constexpr const char* kAll =
    "SELECT ch_id_pk,event_index,event_id,name,start_time,duration,rating,multi_rating,genre_count,"
    "parent_stat,genre,cc,\"desc\" FROM event_t";

TEST_F(EventTableTest, WritesEveryColumnAndLogsTheStatement) {
  fake::Event event = programme("It's late", 4294967295u);
  event.info.genre_count = 2;
  event.info.genres[0] = 0x20;
  event.info.genres[1] = 0xAF;
  event.info.parental_status = 1;
  event.info.captions = 1;
  event.rating = fake::utf16("TV-14-D");
  event.ratingEncoding = AI_TEXT_UTF16BE;
  event.description = "plain 'text'";
  event.descriptionEncoding = 0;
  update({event});
  EXPECT_THAT(rows(kAll), ElementsAre("7-1-177000000|0|5|It's late|4294967295|1800|TV-14-D|0|2|1|"
                                      "32,175,|1|plain 'text'"));
  EXPECT_TRUE(fake::logged(
      "Debug",
      "SQL Command INSERT INTO event_t ( ch_id_pk,event_index,event_id,name,start_time,duration,"
      "rating,multi_rating,genre_count,parent_stat,genre,cc,desc)VALUES ('7-1-177000000',0,5,"
      "'It''s late',4294967295,1800,'TV-14-D',0,2,1,'32,175,',1,'plain ''text''')\n"));
  EXPECT_THAT(callsOf({"AI"}),
              ElementsAre("AISRV_get_total_services(2,4103,*,0,*)",
                          "AISRV_get_n_services(2,4103,0,*,0,0,*,*)", "AIEC_get_total_events(*,*)",
                          "AIEC_get_first_n_events(*,*,1,*)", "AIEC_get_event_description(*,*)",
                          "AIEC_get_next_n_events(*,*,1,*,1)"));
}

TEST_F(EventTableTest, TextsOfEveryKind) {
  fake::Event plain = programme("");
  plain.name = "caf\xC3\xA9";
  plain.nameEncoding = 0;
  fake::Event unnamed = programme("");
  fake::Event full = programme(std::string(AIEC_NAME_SIZE / 2, 'n'));
  full.rating = std::string(AIEC_RATING_SIZE, 'r');
  full.description = fake::utf16(std::string(AIEC_DESCRIPTION_SIZE / 2, 'd'));
  fake::Event zero = programme("zero");
  zero.rating = std::string(AIEC_RATING_SIZE, '\0');
  fake::Event several = programme("several");
  several.info.multi_rating = 1;
  several.rating = "TV-PG";
  several.allRatings = "TV-PG, PG-13";
  fake::Event severalUnknown = several;
  severalUnknown.allRatings = "";
  fake::Event hostile = programme("x'); DROP TABLE event_t; --");
  hostile.description = "\x20\xAC\0'"s;
  fake::Event manyGenres = programme("many");
  manyGenres.info.genre_count = 255;
  fake::Event ended = programme("");
  ended.name = "be\0yond"s;
  ended.nameEncoding = 0;
  update({plain, unnamed, full, zero, several, severalUnknown, hostile, ended, manyGenres});
  EXPECT_THAT(
      rows("SELECT name || '|' || rating || '|' || \"desc\" FROM event_t"),
      ElementsAre("caf\xC3\xA9|No rating|", "EMPTY|No rating|",
                  std::string(AIEC_NAME_SIZE / 2, 'n') + '|' + std::string(AIEC_RATING_SIZE, 'r') +
                      '|' + std::string(AIEC_DESCRIPTION_SIZE / 2, 'd'),
                  "zero|Not rated|", "several|TV-PG, PG-13|", "several|Not rated|",
                  "x'); DROP TABLE event_t; --|No rating|\xE2\x82\xAC'", "be|No rating|",
                  "many|No rating|"));
}

TEST_F(EventTableTest, InputsHaveTablesOfTheirOwn) {
  const fake::Service cable = fake::service(3, 0, 57000000, "Cable", AI_INPUT_CABLE);
  fake::setServices(AI_INPUT_CABLE, {fake::service(2, 0, 57000000, "Mute", AI_INPUT_CABLE), cable});
  fake::setEvents(cable, {programme("one"), programme("two")});
  ATSC_Service_db_UpdateEvent(7);
  update({programme("air")});
  EXPECT_THAT(rows("SELECT ch_id_pk,event_index,name FROM event_c"),
              ElementsAre("3-0-57000000|0|one", "3-0-57000000|1|two"));
  EXPECT_THAT(rows("SELECT name FROM event_t"), ElementsAre("air"));
  fake::setServices(AI_INPUT_CABLE, {});
  ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE);
  EXPECT_THAT(rows("SELECT * FROM event_c"), IsEmpty());
}

TEST_F(EventTableTest, MiddlewareThatFailsInTheMiddle) {
  const fake::Service first = fake::service(7, 1, 177000000, "One");
  const fake::Service second = fake::service(7, 2, 177000000, "Two");
  const auto rewrite = [&] {
    fake::setServices(AI_INPUT_TERRESTRIAL, {first, second});
    fake::setEvents(first, {programme("a"), programme("b")});
    fake::setEvents(second, {programme("c"), programme("d")});
    ATSC_Service_db_UpdateEvent(AI_INPUT_TERRESTRIAL);
    return rows("SELECT name FROM event_t");
  };
  EXPECT_THAT(rewrite(), ElementsAre("a", "b", "c", "d"));
  fake::setResult("AIEC_get_next_n_events", 1);
  EXPECT_THAT(rewrite(), ElementsAre("a", "c"));
  fake::reset();
  fake::claimEventCount(UINT16_MAX);
  EXPECT_THAT(rewrite(), ElementsAre("a", "b", "c", "d"));
  fake::setResult("AIEC_get_first_n_events", 1);
  EXPECT_THAT(rewrite(), IsEmpty());
  fake::reset();
  rewrite();
  // Without a service list the guide stays.
  fake::setResult("AISRV_get_n_services", 1);
  EXPECT_THAT(rewrite(), ElementsAre("a", "b", "c", "d"));
}

// The guide is larger than SQLite's cache, and the reader does not wait.
TEST_F(EventTableTest, ReadersSeeTheOldOrTheNewGuide) {
  constexpr size_t kMany = 10000;
  fake::Event large = programme("old");
  large.description = fake::utf16(std::string(300, 'd'));
  update(std::vector<fake::Event>(kMany, large));
  large.name = fake::utf16("new");
  const auto names = [this] { return rows("SELECT DISTINCT name FROM event_t"); };
  size_t events = 0;
  fake::onCall([&](const std::string& call) {
    if (call.rfind("AIEC_get_event_description", 0) != 0 || ++events < kMany) return;
    EXPECT_THAT(names(), ElementsAre("old"));
  });
  update(std::vector<fake::Event>(kMany, large));
  EXPECT_EQ(kMany, events);
  EXPECT_THAT(names(), ElementsAre("new"));
  fake::onCall(nullptr);
}

TEST_F(EventTableTest, FailureInTheMiddleLeavesTheOldGuideAndSaysSo) {
  update({programme("old")});
  execute(
      "CREATE TRIGGER no BEFORE INSERT ON event_t WHEN new.name = 'bad' "
      "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  ::testing::internal::CaptureStdout();
  update({programme("good"), programme("bad")});
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              AllOf(HasSubstr("[Error]SQLite exception: refused at ATSC_Service_db_UpdateEvent_"),
                    HasSubstr(", command:INSERT INTO event_t ( ch_id_pk,"), HasSubstr("'bad'")));
  EXPECT_THAT(rows("SELECT name FROM event_t"), ElementsAre("old"));
}

TEST_F(EventTableTest, BrokenFileIsReplaced) {
  std::ofstream(path_) << std::string(5000, 'x');
  update({programme("new")});
  EXPECT_THAT(rows("SELECT name FROM event_t"), ElementsAre("new"));
}

}  // namespace
