#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "fixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class EventTableTest : public LibraryTest {
 protected:
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
  fake::Event manyGenres;
  manyGenres.info.genre_count = 255;
  std::string genres;
  for (uint8_t i = 0; i < AIEC_MAX_GENRES; ++i) {
    manyGenres.info.genres[i] = i;
    genres += std::to_string(i) + ",";
  }
  update({event, manyGenres});
  EXPECT_THAT(guideRows("SELECT ch_id_pk,event_index,event_id,name,start_time,duration,rating,"
                        "multi_rating,genre_count,parent_stat,genre,cc,\"desc\" FROM event_t"),
              ElementsAre("7-1-177000000|0|5|It's late|4294967295|1800|TV-14-D|0|2|1|32,175,|1|"
                          "plain 'text'",
                          "7-1-177000000|1|0|EMPTY|0|0|No rating|0|255|0|" + genres + "|0|"));
  EXPECT_TRUE(fake::logged(
      "Debug",
      "SQL Command INSERT INTO event_t ( ch_id_pk,event_index,event_id,name,start_time,duration,"
      "rating,multi_rating,genre_count,parent_stat,genre,cc,desc)VALUES ('7-1-177000000',0,5,"
      "'It''s late',4294967295,1800,'TV-14-D',0,2,1,'32,175,',1,'plain ''text''')\n"));
  EXPECT_EQ(
      "AISRV_get_total_services(2,4103,*,0,*) AISRV_get_n_services(2,4103,0,*,0,0,*,*) "
      "AIEC_get_total_events(*,*) AIEC_get_first_n_events(*,*,1,*) "
      "AIEC_get_event_description(*,*) AIEC_get_next_n_events(*,*,1,*,1) "
      "AIEC_get_event_description(*,*) AIEC_get_next_n_events(*,*,1,*,1)",
      joined(fake::calls()));
}

TEST_F(EventTableTest, LongTextsAndRatings) {
  const std::string name(AIEC_NAME_SIZE / 2, 'n');
  const std::string rating(AIEC_RATING_SIZE, 'r');
  const std::string description(AIEC_DESCRIPTION_SIZE / 2, 'd');
  fake::Event longest = programme(name);
  longest.rating = rating;
  longest.description = fake::utf16(description);
  fake::Event zero = longest;
  zero.rating.clear();
  zero.info.rating.length = AIEC_RATING_SIZE;
  fake::Event several = zero;
  several.info.multi_rating = 1;
  fake::Event listed = several;
  listed.allRatings = "TV-PG, PG-13";
  update({longest, zero, several, listed});
  EXPECT_THAT(guideRows("SELECT multi_rating,rating FROM event_t"),
              ElementsAre("0|" + rating, "0|Not rated", "1|Not rated", "1|TV-PG, PG-13"));
  EXPECT_THAT(guideRows("SELECT DISTINCT name || \"desc\" FROM event_t"),
              ElementsAre(name + description));
}

TEST_F(EventTableTest, InputsHaveTablesOfTheirOwn) {
  const fake::Service cable = fake::service(3, 0, 57000000, "Cable", AI_INPUT_CABLE);
  fake::setServices(AI_INPUT_CABLE, {fake::service(2, 0, 57000000, "Mute", AI_INPUT_CABLE), cable});
  fake::setEvents(cable, {programme("one"), programme("two")});
  ATSC_Service_db_UpdateEvent(7);
  update({programme("air")});
  EXPECT_THAT(guideRows("SELECT ch_id_pk,event_index,name FROM event_c"),
              ElementsAre("3-0-57000000|0|one", "3-0-57000000|1|two"));
  EXPECT_THAT(guideRows("SELECT name FROM event_t"), ElementsAre("air"));
  fake::setServices(AI_INPUT_CABLE, {});
  ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE);
  EXPECT_THAT(guideRows("SELECT * FROM event_c"), IsEmpty());
}

TEST_F(EventTableTest, MiddlewareThatFailsInTheMiddle) {
  const fake::Service first = fake::service(7, 1, 177000000, "One");
  const fake::Service second = fake::service(7, 2, 177000000, "Two");
  const auto rewrite = [&] {
    fake::setServices(AI_INPUT_TERRESTRIAL, {first, second});
    fake::setEvents(first, {programme("a"), programme("b")});
    fake::setEvents(second, {programme("c"), programme("d")});
    ATSC_Service_db_UpdateEvent(AI_INPUT_TERRESTRIAL);
    return guideRows("SELECT name FROM event_t");
  };
  fake::setResult("AIEC_get_next_n_events", 1);
  EXPECT_THAT(rewrite(), ElementsAre("a", "c"));
  fake::reset();
  fake::state()->claimedEventCount = UINT16_MAX;
  EXPECT_THAT(rewrite(), ElementsAre("a", "b", "c", "d"));
  fake::setResult("AIEC_get_first_n_events", 1);
  EXPECT_THAT(rewrite(), IsEmpty());
  fake::reset();
  rewrite();
  // Without a service list the guide stays.
  fake::setResult("AISRV_get_n_services", 1);
  EXPECT_THAT(rewrite(), ElementsAre("a", "b", "c", "d"));
}

TEST_F(EventTableTest, OnlyRowsThatDifferAreWritten) {
  const auto rows = [&] { return guideRows("SELECT rowid, name FROM event_t"); };
  const auto changedAt = [&] {
    struct stat status {};
    EXPECT_EQ(0, stat(guide_.c_str(), &status));
    return std::pair(status.st_ino, status.st_ctim.tv_sec * 1000000000ll + status.st_ctim.tv_nsec);
  };
  const std::vector<std::string> many(3000, "a"), others(3000, "b");
  std::vector<std::string> mixed = many;
  std::copy_n(others.begin(), 300, mixed.begin() + 1000);
  const std::vector<std::string> guides[] = {
      {"a", "b", "c"}, {"a", "x", "c"}, {"a"},      {},     {"b", "a", "c", "d"}, many,
      mixed,           others,          {"b", "y"}, others, {"a", "b", "c"}};
  const auto write = [&](const std::vector<std::string>& names) {
    std::vector<fake::Event> events;
    for (const std::string& name : names) events.push_back(programme(name));
    update(events);
  };
  ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE);
  for (const auto& names : guides) {
    std::vector<std::string> expected;
    for (const std::string& name : names)
      expected.push_back(std::to_string(expected.size() + 1) + "|" + name);
    write(names);
    EXPECT_EQ(expected, rows());
    const auto before = changedAt();
    write(names);
    ATSC_Service_db_UpdateEvent(AI_INPUT_CABLE);
    write(names);
    EXPECT_EQ(before, changedAt()) << "nothing was written";
    EXPECT_EQ(expected, rows());
  }
  // Whoever wrote in between, the rows are those of the middleware.
  const std::string older = readFile(guide_);
  write({"a", "b", "z"});
  const auto replaceBytes = [&](const std::string& bytes) {
    std::fstream file(guide_, std::ios::in | std::ios::out | std::ios::binary);
    file << bytes;
  };
  const struct {
    const char* what;
    std::function<void()> happens;
  } kWriters[] = {
      {"an SQL command",
       [&] { ::execute(guide_, "UPDATE event_t SET name = 'q' WHERE rowid = 2"); }},
      {"an older copy", [&] { replaceFile(guide_, older); }},
      {"an older content", [&] { replaceBytes(older); }},
      {"no table", [&] { ::execute(guide_, "DROP TABLE event_t"); }},
      {"no file", [&] { std::filesystem::remove(guide_); }},
      {"a write-ahead log",
       [&] {
         ::execute(guide_, "PRAGMA journal_mode = WAL; UPDATE event_t SET name = 'q'");
         write({"a", "b", "z"});
         ::execute(guide_, "UPDATE event_t SET name = 'q'");
       }},
  };
  for (const auto& writer : kWriters) {
    SCOPED_TRACE(writer.what);
    const auto time = std::filesystem::last_write_time(guide_);
    writer.happens();
    if (std::filesystem::exists(guide_)) std::filesystem::last_write_time(guide_, time);
    write({"a", "b", "z"});
    EXPECT_THAT(rows(), ElementsAre("1|a", "2|b", "3|z"));
  }
  // A product's index, trigger or numbering of its own: all rows are written, one after the other.
  for (const char* part :
       {"PRAGMA journal_mode = DELETE; CREATE UNIQUE INDEX own ON event_t(name)",
        "DROP INDEX own; CREATE TABLE log(name); CREATE TRIGGER own AFTER INSERT "
        "ON event_t BEGIN INSERT INTO log VALUES (NEW.name); END",
        "DROP TABLE event_t; CREATE TABLE event_t(own INTEGER PRIMARY KEY AUTOINCREMENT, name "
        "TEXT); INSERT INTO event_t(name) VALUES ('q')"}) {
    SCOPED_TRACE(part);
    ::execute(guide_, part);
    for (const auto& names : {"a b c", "a b x", "b x d"}) {
      write({{names[0]}, {names[2]}, {names[4]}});
      EXPECT_EQ(names, valueOf(guide_, "SELECT group_concat(name, ' ') FROM event_t NOT INDEXED"));
    }
  }
  EXPECT_EQ("9", valueOf(guide_, "SELECT count(*) FROM log"));
}

// The guide is larger than SQLite's cache, and the reader does not wait.
TEST_F(EventTableTest, ReadersSeeTheOldOrTheNewGuide) {
  constexpr size_t kMany = 10000;
  fake::Event large = programme("old");
  large.description = fake::utf16(std::string(300, 'd'));
  update(std::vector<fake::Event>(kMany, large));
  large.name = fake::utf16("new");
  const auto names = [this] { return guideRows("SELECT DISTINCT name FROM event_t"); };
  size_t events = 0;
  fake::onCall([&](const std::string& call) {
    if (call.rfind("AIEC_get_event_description", 0) != 0 || ++events < kMany) return;
    EXPECT_THAT(names(), ElementsAre("old"));
  });
  update(std::vector<fake::Event>(kMany, large));
  EXPECT_EQ(kMany, events);
  EXPECT_THAT(names(), ElementsAre("new"));
  fake::onCall(nullptr);
  // A failure in the middle leaves the old guide and says so.
  ::execute(guide_,
            "CREATE TRIGGER no BEFORE INSERT ON event_t WHEN new.name = 'bad' "
            "BEGIN SELECT RAISE(ABORT, 'refused'); END");
  ::testing::internal::CaptureStdout();
  update({programme("good"), programme("bad")});
  EXPECT_THAT(::testing::internal::GetCapturedStdout(),
              AllOf(HasSubstr("[Error]SQLite exception: refused at ATSC_Service_db_UpdateEvent_"),
                    HasSubstr(", command:INSERT INTO event_t ( ch_id_pk,"), HasSubstr("'bad'")));
  EXPECT_THAT(names(), ElementsAre("new"));
}

}  // namespace
