// The channel lists and guides of atsc-web: what pages get from the service's databases, also from
// those that other programs have written.
#include <atsc/atsc_tables.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "command_text.h"
#include "files.h"
#include "guide/guide_routes.h"
#include "guide/guide_store.h"
#include "replaced.h"
#include "rows.h"
#include "temporary_folder.h"
#include "wait.h"

namespace {

using testing::HasSubstr;

class GuideTest : public testing::Test {
 protected:
  GuideTest() {
    makeChannels();
    makeGuide();
  }

  template <size_t N>
  static std::string columns(const ATSC_Service_db_layout (&layout)[N]) {
    std::string list;
    for (const ATSC_Service_db_layout& column : layout) {
      const bool isKey = column.name == std::string("ch_index");
      list += (list.empty() ? "`" : ", `") + std::string(column.name) + "` " +
              (isKey              ? "INTEGER PRIMARY KEY"
               : column.type == 1 ? "INTEGER"
                                  : "TEXT");
    }
    return list;
  }
  void makeChannels() {
    for (const char* table : {"channel_data_t", "channel_data_c"}) {
      execute(files_.channels, std::string("CREATE TABLE ") + table + " (" +
                                   columns(atsc_service_db_layout) + ", `END`)");
    }
  }
  void makeGuide() {
    execute(files_.events, "CREATE TABLE event_t (" + columns(atsc_event_db_layout) + ")");
  }

  // Adds a channel of 57 MHz; `number` is "5-1".
  void addChannel(int row, const std::string& number, const std::string& more = "'KÉVA', 1, 0") {
    std::string parts = number;
    parts[parts.find('-')] = ',';
    execute(files_.channels,
            "INSERT INTO channel_data_t (ch_index, ch_id_pk, freq, major_no, minor_no, name, "
            "srv_flag, service_delete) VALUES (" +
                std::to_string(row) + ", '" + number + "-57000000', 57000000, " + parts + ", " +
                more + ")");
  }
  // Adds programmes of the channel 5-1; each is the values of kColumns.
  void add(const std::vector<std::string>& programmes) {
    std::string rows;
    for (const std::string& values : programmes) {
      rows += (rows.empty() ? "('5-1-57000000', " : ", ('5-1-57000000', ") + values + ")";
    }
    execute(files_.events,
            std::string("INSERT INTO event_t (ch_id_pk, ") + kColumns + ") VALUES " + rows);
  }

  web::GuideStore& store() {
    if (!store_) {
      store_.emplace(files_);
      router_.emplace();
      addGuideRoutes(*router_, *store_);
    }
    return *store_;
  }

  // Answers a request such as "/api/guide?src=VSB&rows=1", without its source if that is VSB.
  web::Response answer(const std::string& path, std::map<std::string, std::string> query) {
    store();
    query.emplace("src", "VSB");
    return router_->answer({"GET", path, "", std::move(query), {}});
  }
  Json::Value ask(const std::string& path, std::map<std::string, std::string> query = {}) {
    const web::Response response = answer(path, std::move(query));
    EXPECT_EQ(200, response.status) << response.body;
    return parsed(response.body);
  }

  // Returns whether the store reads another content from the files.
  bool refreshed(uint64_t web::Versions::*version,
                 std::chrono::milliseconds limit = std::chrono::seconds(50)) {
    const uint64_t before = seen_.*version;
    store().guideChanged();
    const auto end = std::chrono::steady_clock::now() + limit;
    bool differs = false;
    while (!differs && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      differs = store().versions().*version > before;
    }
    seen_ = store().versions();
    return differs;
  }
  bool guideRefreshed() { return refreshed(&web::Versions::guide); }

  // Waits much longer than a refresh of few rows takes.
  bool stays(uint64_t web::Versions::*version) {
    return !refreshed(version, std::chrono::milliseconds(400));
  }
  bool guideStays() { return stays(&web::Versions::guide); }

  // Returns the programmes of row 1 as "start+duration title rating flags [genres]", all days.
  std::vector<std::string> guide() {
    std::vector<std::string> lines;
    const Json::Value rows =
        ask("/api/guide", {{"rows", "1"}, {"from", "0"}, {"to", "9999999999"}})["rows"];
    for (const Json::Value& p : rows["1"]) {
      std::string genres = Json::FastWriter().write(p["genres"]);
      genres.pop_back();
      lines.push_back(p["start"].asString() + "+" + p["duration"].asString() + " " +
                      p["title"].asString() + " " + p["rating"].asString() +
                      (p["cc"].asBool() ? " cc" : "") + (p["blocked"].asBool() ? " blocked" : "") +
                      " " + genres);
    }
    return lines;
  }

  static constexpr const char* kColumns =
      "start_time, duration, name, rating, parent_stat, cc, genre, `desc`";

  TemporaryFolder folder_;
  const apps::DatabaseFiles files_ = {folder_.path() / "channels.db3",
                                      folder_.path() / "events.db"};
  std::optional<web::GuideStore> store_;
  std::optional<web::Router> router_;
  web::Versions seen_;
};

TEST_F(GuideTest, AnyRowsOfTheTables) {
  addChannel(1, "5-1");
  addChannel(9, "5-2", "CAST(x'EDA0BDEDB98022' AS TEXT), 0x24, 0");  // surrogates, a quote
  addChannel(3, "2-10", "NULL, 'x', 0");
  addChannel(4, "2-2", "'EMPTY', -1, 0");
  addChannel(5, "7-7", "'leaves', 1, 1");
  addChannel(6, "2-3", "x'00FF', 9e99, 0");
  struct Case {
    const char* values;
    const char* shown;
  };
  const std::vector<Case> cases = {
      {"1000, 60, 'Plain', 'TV-G', 1, 1, '60,97,', 'd'", "1000+60 Plain TV-G cc blocked [60,97]"},
      {"1060, 60, 'EMPTY', 'No rating', 0, 0, '', ''", "1060+60   []"},
      {"1120, NULL, NULL, 'Not rated', 2, NULL, NULL, NULL", "1120+0   []"},
      {"1180, -5, CAST(x'4CE9C3A922' AS TEXT), NULL, 0, 0, ',,x7,99999999999,-3', x'00'",
       "1180+0 L\uFFFDé\"  [7,65535,3]"},
      {"'1240', '60 s', 5, 1.5, 0, 0, 34, 0", "1240+60 5 1.5 [34]"},
      {"-7, 1, 'Early', '', 0, 0, '', ''", "0+1 Early  []"},
      {"99999999999, 99999999999, 'Late', '', 0, 0, '', ''", "4294967295+4294967295 Late  []"},
  };
  std::vector<std::string> shown;
  for (const Case& one : cases) {
    add({one.values});
    shown.push_back(one.shown);
  }
  add({cases[0].values});  // the same once more
  execute(files_.events, "INSERT INTO event_t (start_time) VALUES (1000)");
  execute(files_.events, "INSERT INTO event_t (ch_id_pk, name) VALUES (x'00FF', zeroblob(90000))");
  ASSERT_TRUE(guideRefreshed());
  EXPECT_THAT(guide(), testing::UnorderedElementsAreArray(shown));
  std::vector<std::string> channels;
  const Json::Value list = ask("/api/channels")["channels"];
  for (const Json::Value& channel : list) {
    channels.push_back(channel["row"].asString() + " " + channel["number"].asString() + " " +
                       channel["name"].asString() + " " + channel["flags"].asString() + " RF " +
                       channel["rf"].asString());
  }
  EXPECT_THAT(channels, testing::ElementsAre(
                            "4 2-2  -1 RF 2",
                            "6 2-3 " + std::string(1, '\0') + "\uFFFD 9223372036854775807 RF 2",
                            "3 2-10  0 RF 2", "1 5-1 KÉVA 1 RF 2", "9 5-2 \U0001F640\" 36 RF 2"));
  const Json::Value whole = ask("/api/programme", {{"row", "1"}, {"start", "1000"}});
  EXPECT_EQ("Plain: d", whole["title"].asString() + ": " + whole["description"].asString());
  EXPECT_THAT(answer("/api/rows", {{"db", "guide"}, {"offset", "3"}, {"count", "1"}}).body,
              testing::EndsWith("\"rows\":[[null,null,\"L\uFFFDé\\\"\",1180,-5,null,null,null,0,"
                                "\",,x7,99999999999,-3\",\"x'00' (1 bytes)\",0,\"5-1-57000000\"]],"
                                "\"total\":10}"));
}

TEST_F(GuideTest, FollowsTheFiles) {
  addChannel(1, "5-1");
  add({"1000, 60, 'One', '', 0, 0, '', ''", "1060, 60, 'Two', '', 0, 0, '', ''"});
  ASSERT_TRUE(guideRefreshed());
  const auto change = [this](const std::string& sql) {
    execute(files_.events, sql);
    return guideRefreshed();
  };
  const auto changeUnseen = [this](const std::string& sql) {
    execute(files_.events, sql);
    return guideStays();
  };
  const std::string one = "1000+60 One  []", two = "1060+60 Two  []";
  EXPECT_THAT(guide(), testing::ElementsAre(one, two));
  // The same rows with other ids, and columns that are not shown.
  EXPECT_TRUE(changeUnseen("UPDATE event_t SET _rowid_ = _rowid_ + 100, event_index = 7"));
  EXPECT_TRUE(change("UPDATE event_t SET name = 'Zwei' WHERE name = 'Two'"));
  EXPECT_THAT(guide(), testing::ElementsAre(one, "1060+60 Zwei  []"));
  EXPECT_TRUE(change("UPDATE event_t SET parent_stat = 1 WHERE name = 'One'"));
  EXPECT_TRUE(change("UPDATE event_t SET genre = '60,' WHERE name = 'One'"));
  EXPECT_THAT(guide(), testing::ElementsAre("1000+60 One  blocked [60]", "1060+60 Zwei  []"));
  EXPECT_TRUE(change("DELETE FROM event_t WHERE name = 'One'"));
  EXPECT_EQ(0u, ask("/api/search", {{"q", "one"}})["results"].size());
  EXPECT_EQ(1u, ask("/api/search", {{"q", "zwei"}})["results"].size());
  EXPECT_TRUE(changeUnseen("PRAGMA journal_mode = WAL"));
  {
    SQLite::Database other(files_.events, SQLite::OPEN_READWRITE);
    other.exec("UPDATE event_t SET name = 'Logged'");
    EXPECT_TRUE(guideRefreshed());
    EXPECT_THAT(guide(), testing::ElementsAre("1060+60 Logged  []"));
  }
  execute(files_.events, "PRAGMA journal_mode = DELETE");
  // A broken file keeps what was there, until it is replaced.
  const std::string good = readFile(files_.events);
  testing::internal::CaptureStderr();
  replaceFile(files_.events, std::string(5000, 'x'));
  EXPECT_TRUE(guideStays());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("events.db: file is not a database\n"));
  EXPECT_THAT(guide(), testing::ElementsAre("1060+60 Logged  []"));
  EXPECT_EQ(503, answer("/api/rows", {{"db", "guide"}}).status);
  // To open a pipe would take for ever.
  std::filesystem::remove(files_.events);
  ASSERT_EQ(0, mkfifo(files_.events.c_str(), S_IRUSR | S_IWUSR));
  EXPECT_TRUE(guideRefreshed());
  EXPECT_THAT(guide(), testing::IsEmpty());
  EXPECT_EQ(0u, ask("/api/rows", {{"db", "guide"}})["tables"].size());
  replaceFile(files_.events, good);
  EXPECT_TRUE(guideRefreshed());
  // Another program's tables: without columns, with ten million characters, without row ids.
  execute(files_.events, "DROP TABLE event_t");
  execute(files_.events, "CREATE TABLE event_t (ch_id_pk, start_time, name)");
  // The statements before may be read by themselves.
  execute(files_.events,
          "INSERT INTO event_t VALUES ('x', 9, hex(zeroblob(5000000))), "
          "('5-1-57000000', 9, 'Foreign')");
  store().guideChanged();
  EXPECT_TRUE(eventually([&] { return guide() == std::vector<std::string>{"9+0 Foreign  []"}; }));
  execute(files_.events,
          "DROP TABLE event_t; CREATE TABLE event_t (_rowid_ PRIMARY KEY) WITHOUT ROWID");
  execute(files_.events, "CREATE TABLE event_c (" + columns(atsc_event_db_layout) + ")");
  execute(files_.events,
          "INSERT INTO event_c (ch_id_pk, name, start_time) VALUES ('x', 'Cable', 5)");
  store().guideChanged();
  EXPECT_TRUE(eventually([&] {
    return ask("/api/guide/span", {{"src", "QAM"}})["programmes"] == 1;
  }));

  seen_ = store().versions();
  execute(files_.channels, "UPDATE channel_data_t SET update_time = 5");
  EXPECT_TRUE(stays(&web::Versions::channels));
  execute(files_.channels, "UPDATE channel_data_t SET srv_flag = 5");
  EXPECT_TRUE(refreshed(&web::Versions::channels));
  EXPECT_EQ(5, store().channel("VSB", "5-1-57000000")->flags);
}

TEST_F(GuideTest, Searches) {
  addChannel(1, "5-1");
  addChannel(2, "6-1", "'Deleted', 0x20, 0");
  add({"3000, 60, 'L''Été à Kéva', '', 0, 0, '60,', 'Straße'",
       "1000, 60, 'CAFÉ noir', '', 0, 0, '97,60,', 'A \"quoted\" AND NOT title:x'",
       "2000, 60, '東京 ニュース', '', 0, 0, '6,', 'Ελληνικό τραπέζι; cafeteria'"});
  execute(
      files_.events,
      "INSERT INTO event_t (ch_id_pk, name) VALUES ('6-1-57000000', 'Café'), ('9-9-1', 'Café')");
  ASSERT_TRUE(guideRefreshed());
  struct Case {
    std::map<std::string, std::string> query;
    const char* starts;
  };
  const std::vector<Case> cases = {
      {{{"q", "cafe"}}, "1000 2000 "},
      {{{"q", "CAFÉ"}, {"limit", "1"}}, "1000 more"},
      {{{"q", "cafe"}, {"after", "1060"}}, "2000 "},
      {{{"q", "cafe"}, {"after", "1059"}}, "1000 2000 "},
      {{{"q", "noir caf"}}, "1000 "},
      {{{"q", "noir  keva"}}, ""},
      {{{"q", "l'ete"}}, "3000 "},
      {{{"q", "afe"}}, ""},
      {{{"q", "ΤΡΑΠΈΖΙ 東"}}, "2000 "},
      {{{"q", "\"quoted\""}}, "1000 "},
      {{{"q", "\""}}, ""},
      {{{"q", "noir OR keva"}}, ""},
      {{{"q", "noir NOT"}}, "1000 "},
      {{{"q", "title:x"}}, "1000 "},
      {{{"q", "caf* NEAR(a) {b} ^c -d"}}, ""},
      {{{"q", std::string("no\0ir", 5)}}, ""},
      {{{"q", "\xFF\xC3"}}, ""},
      {{{"q", ""}}, ""},
      {{{"q", "  "}, {"genre", "60"}}, "1000 3000 "},
      {{{"q", "keva"}, {"genre", "97"}}, ""},
      {{{"q", "noir"}, {"genre", "9"}}, ""},
  };
  for (const Case& one : cases) {
    const Json::Value found = ask("/api/search", one.query);
    std::string starts;
    for (const Json::Value& hit : found["results"]) starts += hit["start"].asString() + ' ';
    EXPECT_EQ(one.starts, starts.substr(0, starts.size() - found["more"].asBool()) +
                              (found["more"].asBool() ? " more" : ""))
        << one.query.at("q");
  }
  EXPECT_EQ(
      "{\"rows\":[1]}",
      answer("/api/guide/matching", {{"genre", "60"}, {"from", "3059"}, {"to", "4000"}}).body);
  EXPECT_EQ(
      "{\"rows\":[]}",
      answer("/api/guide/matching", {{"genre", "60"}, {"from", "1060"}, {"to", "3000"}}).body);
  EXPECT_EQ("{\"first\":0,\"last\":3060,\"programmes\":5,\"genres\":[6,60,97]}",
            answer("/api/guide/span", {}).body);
}

TEST_F(GuideTest, WhatIsOnNowAndNext) {
  add({"1000, 100, 'A', '', 0, 0, '', ''", "1200, 100, 'C', '', 0, 0, '', 'c'",
       "1050, 100, 'B', '', 0, 0, '', ''", "1300, 0, 'D', '', 0, 0, '', ''"});
  ASSERT_TRUE(guideRefreshed());
  const auto at = [this](int64_t utc) {
    const web::NowNext on = store().nowNext("VSB", "5-1-57000000", utc);
    return (on.now ? on.now->title + on.now->description : "-") +
           (on.next ? on.next->title + on.next->description : "-");
  };
  // An overlap shows the one that began last.
  std::string all;
  for (const int utc : {999, 1000, 1049, 1050, 1149, 1150, 1200, 1299, 1300}) all += at(utc) + ' ';
  EXPECT_EQ("-A AB AB BCc BCc -Cc CcD CcD -- ", all);
  EXPECT_FALSE(store().nowNext("QAM", "5-1-57000000", 1000).now);
}

TEST_F(GuideTest, RefusesRequests) {
  addChannel(1, "5-1");
  ASSERT_TRUE(refreshed(&web::Versions::channels));
  std::string many = "1";
  for (int i = 0; i < 64; ++i) many += "," + std::to_string(i);
  struct Case {
    int status;
    const char* path;
    std::map<std::string, std::string> query;
  };
  const std::vector<Case> cases = {
      {400, "/api/channels", {{"src", ""}}},
      {400, "/api/channels", {{"src", "vsb"}}},
      {400, "/api/guide", {{"rows", "1"}, {"from", "1"}}},
      {400, "/api/guide", {{"rows", "1;2"}, {"from", "1"}, {"to", "2"}}},
      {400, "/api/guide", {{"rows", "1"}, {"from", "1e3"}, {"to", "99999999999999999999"}}},
      {400, "/api/guide", {{"rows", many}, {"from", "1"}, {"to", "2"}}},
      {200, "/api/guide", {{"rows", ""}, {"from", "2"}, {"to", "1"}}},
      {200,
       "/api/guide",
       {{"rows", "1,7,-1"}, {"from", "-9223372036854775808"}, {"to", "9223372036854775807"}}},
      {400, "/api/guide/matching", {{"from", "1"}, {"to", "2"}}},
      {400, "/api/guide/matching", {{"genre", "-1"}, {"from", "1"}, {"to", "2"}}},
      {404, "/api/programme", {{"row", "1"}, {"start", "1"}}},
      {400, "/api/programme", {{"row", "2"}, {"start", "1"}}},
      {400, "/api/search", {{"q", std::string(1 << 20, '"')}}},
      {200, "/api/search", {{"q", std::string(1000, '"')}, {"limit", "-5"}}},
      {400, "/api/search", {{"q", "x"}, {"genre", "news"}}},
      {400, "/api/rows", {{"db", "../channels"}}},
      {400, "/api/rows", {{"db", "channels"}, {"table", "sqlite_master"}}},
      {400, "/api/rows", {{"db", "channels"}, {"table", "channel_data_t` WHERE 1 --"}}},
      {200, "/api/rows", {{"db", "channels"}, {"offset", "-1"}, {"count", "9223372036854775807"}}},
  };
  for (const Case& one : cases) {
    EXPECT_EQ(one.status, answer(one.path, one.query).status)
        << one.path << testing::PrintToString(one.query);
  }
}

// The guide is changed as a whole again and again: readers see one content or the other, with those
// texts that belong to it.
TEST_F(GuideTest, ReadersSeeOneContent) {
  addChannel(1, "5-1");
  const auto content = [](char letter) {
    std::string rows;
    for (int i = 0; i < 3000; ++i) {
      rows += std::string(i == 0 ? "" : ", ") + "('5-1-57000000', " + std::to_string(i * 60) +
              ", 60, 'x" + letter + "')";
    }
    return "DELETE FROM event_t; INSERT INTO event_t (ch_id_pk, start_time, duration, name) "
           "VALUES " +
           rows;
  };
  const std::string contents[] = {content('a'), content('b')};
  execute(files_.events, contents[1]);
  ASSERT_TRUE(guideRefreshed());
  std::atomic<bool> ends = false;
  std::atomic<int> wrong = 0;
  std::vector<std::thread> readers;
  for (int i = 0; i < 3; ++i) {
    readers.emplace_back([&, i] {
      while (!ends) {
        std::set<std::string> titles;
        size_t count = 0;
        const auto take = [&](const web::Programme& p) {
          ++count;
          titles.insert(p.title);
        };
        if (i == 0) {
          web::SearchQuery query;
          query.words = "x";
          query.limit = 10000;
          query.accepts = [](const std::string&) { return true; };
          bool more = false;
          for (const auto& hit : store().programmes(apps::kSources[0]).search(query, &more))
            take(hit.programme);
        } else {
          store()
              .programmes(apps::kSources[0])
              .window({"5-1-57000000"}, 0, 1000000, [&](size_t, const web::Programme& p) {
                take(p);
                return true;
              });
        }
        if (titles.size() != 1 || count != 3000 || titles.count("") != 0) ++wrong;
      }
    });
  }
  for (int round = 0; round < 4; ++round) {
    execute(files_.events, "BEGIN; " + contents[round % 2] + "; COMMIT");
    const uint64_t before = store().versions().guide;
    store().guideChanged();
    EXPECT_TRUE(eventually([&] { return store().versions().guide > before; }));
  }
  ends = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(0, wrong);
}

}  // namespace
