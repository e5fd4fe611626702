// Power cuts: the service ends at any call on its files, and a random part of unsynced data is
// lost. The lists must be complete, old or new, and correct after the next start.
#include <SQLiteCpp/SQLiteCpp.h>
#include <signal.h>

#include <algorithm>
#include <functional>

#include "endurance_fixture.h"

namespace fs = std::filesystem;

namespace {

const std::string kFavourite =
    command("FW CHANNELMODIFY", R"("src":"VSB","major":5,"minor":2,"type":"fav","group":3)");
const std::string kRename =
    command("FW CHANNELADD", R"("src":"VSB","major":5,"minor":1,"freq":473000000,"name":"Mine")");
constexpr const char* kNoLimits =
    R"(,"dia":0,"lan":0,"sex":0,"vio":0,"child":0,"mpaa":0},"can":{"eng":0,"fra":0},"dwn":[])";

constexpr int kProgrammes = 8 * 12;

using Rows = std::vector<std::string>;

class PowerCutTest : public EnduranceTest {
 protected:
  PowerCutTest() {
    broadcastLists();
    tuneAirTo("A");
    startFaultyService();
    scanList("A");
    ask(kSetAlerts);
  }

  // Returns the rows of the tables. After the service has died, reads a copy, so that the next
  // start finds the files unchanged.
  std::map<std::string, Rows> look() {
    fs::path files = db_;
    if (!alive()) {
      files = folder_ / "look";
      fs::remove_all(files);
      fs::copy(db_, files, fs::copy_options::recursive);
    }
    std::map<std::string, Rows> content;
    for (const char* name : {"ATSCChannelData.db3", "ATSC_event.db"}) {
      if (!fs::exists(files / name) || fs::file_size(files / name) == 0) continue;
      SQLite::Database database(files / name, SQLite::OPEN_READWRITE, 2000);
      EXPECT_EQ("ok", database.execAndGet("PRAGMA integrity_check").getString()) << name;
      EXPECT_FALSE(database.tableExists("tmp"));
      for (const std::string table : {"channel_data_t", "channel_data_c", "event_t"}) {
        if (database.tableExists(table)) content[table] = rowsOf(database, table);
      }
      if (!database.tableExists("event_t")) continue;
      // Whether programmes are blocked, in the order of writing: both when the limits changed while
      // the guide was written.
      SQLite::Statement query(database,
                              "SELECT parent_stat FROM event_t WHERE rating <> 'TV-G' "
                              "ORDER BY ch_id_pk, event_index");
      Rows& blocked = content["blocked"] = ::rowsOf(query);
      blocked.erase(std::unique(blocked.begin(), blocked.end()), blocked.end());
    }
    return content;
  }

  // Returns all rows without values that depend on the time.
  static Rows rowsOf(SQLite::Database& database, const std::string& table) {
    const std::string columns = database.execAndGet(
        "SELECT group_concat('`' || name || '`') FROM pragma_table_info('" + table +
        "') WHERE name NOT IN ('ch_index', 'update_time', 'service_record', 'parent_stat')");
    SQLite::Statement query(database, "SELECT " + columns + " FROM " + table + " ORDER BY 1, 2, 3");
    return ::rowsOf(query);
  }

  // Expects that a channel table holds the receiver's list.
  void expectTable(const std::string& table, int source) {
    SQLite::Database database = openDatabase(database_);
    SQLite::Statement list(
        database,
        "SELECT replace(value ->> 'name_utf16be', '00', ''), value ->> 'major', value ->> 'minor', "
        "value ->> 'record', value ->> 'flags', value ->> 'favourites', value ->> 'source_id' "
        "FROM json_each(?, '$.services') WHERE value ->> 'source' = ? ORDER BY 1");
    list.bind(1, readFile(db_ / "services.json"));
    list.bind(2, source);
    EXPECT_EQ(::rowsOf(list), ::rowsOf(database_,
                                       "SELECT lower(hex(name)), major_no, minor_no, "
                                       "service_record, srv_flag, fav_group, source_id "
                                       "FROM " +
                                           table + " ORDER BY 1"));
  }

  void scanList(const std::string& list) {
    tuneAirTo(list);
    for (const char* source : {"QAM", "VSB"}) scan(source);
  }

  // Waits until so many programmes of the guide meet a condition.
  void waitForProgrammes(int count, const std::string& condition = "1") {
    const std::string sql = "SELECT count(*) FROM event_t WHERE " + condition;
    waitFor([&] { return valueNow(events_, sql) == std::to_string(count); });
  }

  void receiveGuide() {
    const size_t from = listener().count();
    ask(kInit);
    waitFor("EPG_UPDATE", from);
    waitForProgrammes(kProgrammes);
  }

  // Returns the command that blocks programmes from a TV rating on. The guide is written again.
  static std::string limits(const std::string& level) {
    return command("PC STORERATING", R"("region":1,"us":{"tv":)" + level + kNoLimits);
  }

  void block(const std::string& level, int blocked) {
    const size_t from = listener().count();
    ask(limits(level));
    waitFor("EPG_UPDATE", from);
    waitForProgrammes(blocked, "parent_stat = 1");
  }

  // Saves the service's files as the start of each run. Runs the steps without faults: records each
  // content and the number of disk calls.
  void learn() {
    service_->stop();
    fs::copy(db_, origin_, fs::copy_options::recursive);
    startFaultyService();
    prepare_();
    control("count");
    const auto note = [&] {
      for (const auto& [table, rows] : look()) whole_[table].push_back(rows);
    };
    note();
    for (const auto& step : steps_) {
      step();
      note();
    }
    calls_ = std::stoi(readFile(control_.string() + ".count"));
    ASSERT_GE(calls_, 40);
  }

  // Expects that each table has one of the recorded contents, and counts the numbers of their
  // steps.
  void expectWhole(const char* when) {
    std::map<std::string, Rows> content = look();
    for (const auto& [table, known] : whole_) {
      const auto at = std::find(known.begin(), known.end(), content[table]);
      EXPECT_NE(known.end(), at) << when << ": " << table << " holds\n"
                                 << testing::PrintToString(content[table]);
      ++outcomes_[table + ' ' + std::to_string(at - known.begin())];
    }
  }

  // Cuts the power during the steps, `cuts` times: spread over the disk calls, in the long form at
  // each call. `recover` runs with the number of the cut when the service is dead.
  void cutEverywhere(int cuts, const std::function<void(int)>& recover) {
    const int stride = longForm() ? 1 : calls_ / (cuts / 2);
    for (int i = 0; i < cuts && !HasFailure(); ++i) {
      const std::string line = (i % 2 == 0 ? "cut " : "power ") +
                               std::to_string(1 + i / 2 * stride % calls_) + " " +
                               std::to_string(i);
      SCOPED_TRACE(line);
      control("");
      service_->kill();
      fs::remove_all(db_);
      fs::copy(origin_, db_, fs::copy_options::recursive);
      startFaultyService();
      prepare_();
      control(line);
      for (const auto& step : steps_) {
        if (alive()) step();
      }
      service_->kill();
      expectWhole("dead");
      recover(i);
    }
  }

  // Starts the service after a cut and expects that all data is correct when it is ready.
  void expectSoundStart() {
    startService();
    outcomes_["rebuilt"] += service_->count("Rebuild channel DB") > 0;
    expectWhole("start");
    expectTable("channel_data_t", 2);
    expectTable("channel_data_c", 3);
    EXPECT_EQ(2, ask(kReadAlerts)["setting"].asInt());
    for (const auto& entry : fs::directory_iterator(db_)) {
      EXPECT_NE(".bad", entry.path().extension()) << entry.path();
    }
  }

  // Expects that the cuts left each of these.
  void expectOutcomes(const Rows& outcomes) {
    for (const std::string& outcome : outcomes) EXPECT_GT(outcomes_[outcome], 0) << outcome;
  }

  const fs::path origin_ = folder_ / "origin";
  std::function<void()> prepare_ = [] {};  // runs between the start and the steps
  std::vector<std::function<void()>> steps_;
  int calls_ = 0;
  std::map<std::string, std::vector<Rows>> whole_;
  std::map<std::string, int> outcomes_;
};

TEST_F(PowerCutTest, ChannelTablesAreOneOfTheLists) {
  steps_ = {[&] { scanList("B"); }, [&] { ask(kFavourite); }, [&] { scanList("C"); },
            [&] { ask(kRename); }, [&] { scanList("A"); }};
  learn();
  if (HasFatalFailure()) return;
  cutEverywhere(longForm() ? 1000 : 40, [&](int i) {
    if (i % 4 == 3) {  // cuts again while the next start repairs or creates a file
      const bool lost = i % 8 == 3;
      if (lost) fs::remove(database_);
      control("power " + std::to_string(1 + i % 29) + " " + std::to_string(i));
      startFaultyService(kMayDie);
      outcomes_["died at the start"] += !alive();
      service_->kill();
      if (!lost) expectWhole("second power");
    }
    expectSoundStart();
  });
  expectOutcomes({"channel_data_t 0", "channel_data_t 2", "channel_data_t 4", "channel_data_c 0",
                  "channel_data_c 1", "channel_data_c 3", "rebuilt", "died at the start"});
}

TEST_F(PowerCutTest, TheGuideIsOneOfThoseThatWere) {
  ask(command("PC SETPRTDETAIL", R"("pc_enable":1)"));
  ask(command("PC STOREALL"));
  receiveGuide();
  prepare_ = [&] { receiveGuide(); };
  // The second guide is the first: it is not written.
  steps_ = {[&] { block("4", kProgrammes / 2); }, [&] { block("3", kProgrammes / 2); },
            [&] { block("0", 0); }};
  learn();
  if (HasFatalFailure()) return;
  ASSERT_EQ((std::vector<Rows>{{"0"}, {"1"}, {"1"}, {"0"}}), whole_["blocked"]);
  whole_["blocked"] = {{"0"}, {"1"}, {"0", "1"}, {"1", "0"}};
  cutEverywhere(longForm() ? 360 : 16, [&](int i) {
    expectSoundStart();
    // Somebody else writes the guide of a service that runs, or between two runs.
    receiveGuide();
    if (i % 2 == 0) service_->stop();
    execute(events_, "UPDATE event_t SET name = 'q'");
    if (i % 2 == 0) startService();
    ask(i % 2 == 0 ? kInit : limits("5"));
    waitForProgrammes(0, "name = 'q'");
    expectWhole("received again");
  });
  expectOutcomes({"blocked 0", "blocked 1"});
}

}  // namespace
