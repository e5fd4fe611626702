// Power cuts: the service ends at any call on its files, and a random part of unsynced data is
// lost. The lists must be complete, old or new, and correct after the next start.
#include <SQLiteCpp/SQLiteCpp.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <random>
#include <set>
#include <thread>

#include "endurance_fixture.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kFavourite =
    R"({"class":"FW","command":"CHANNELMODIFY","src":"VSB","major":5,"minor":2,"type":"fav",)"
    R"("group":3})";
constexpr const char* kRename =
    R"({"class":"FW","command":"CHANNELADD","src":"VSB","major":5,"minor":1,"freq":473000000,)"
    R"("name":"Mine"})";
constexpr const char* kBlock =
    R"({"class":"PC","command":"STORERATING","region":1,"us":{"tv":%,"dia":0,"lan":0,"sex":0,)"
    R"("vio":0,"child":0,"mpaa":0},"can":{"eng":0,"fra":0},"dwn":[]})";
constexpr const char* kStoreAll = R"({"class":"PC","command":"STOREALL"})";
constexpr const char* kEnforce = R"({"class":"PC","command":"SETPRTDETAIL","pc_enable":1})";

constexpr int kProgrammes = 8 * 12;

// Rows as text, by table.
using Content = std::map<std::string, std::string>;

class PowerCutTest : public EnduranceTest {
 protected:
  // Reads the content of the databases. After the service has died, reads a copy, so that the next
  // start finds the files unchanged.
  Content look() {
    fs::path files = db_;
    if (!alive()) {
      files = folder_ / "look";
      fs::remove_all(files);
      fs::copy(db_, files, fs::copy_options::recursive);
    }
    Content content;
    for (const char* name : {"ATSCChannelData.db3", "ATSC_event.db"}) {
      if (!fs::exists(files / name) || fs::file_size(files / name) == 0) continue;
      SQLite::Database database(files / name, SQLite::OPEN_READWRITE, 2000);
      EXPECT_EQ("ok", database.execAndGet("PRAGMA integrity_check").getString()) << name;
      EXPECT_FALSE(database.tableExists("tmp"));
      for (const char* table : {"channel_data_t", "channel_data_c", "event_t"}) {
        if (database.tableExists(table)) content[table] = rowsOf(database, table);
      }
      if (database.tableExists("event_t")) content["blocked"] = blockedIn(database);
    }
    return content;
  }

  // Returns all rows without values that depend on the time.
  static std::string rowsOf(SQLite::Database& database, const std::string& table) {
    const std::string columns =
        database
            .execAndGet(
                "SELECT group_concat('ifnull(`' || name || '`, ''NULL'')', ' || '' '' || ')"
                " FROM pragma_table_info('" +
                table +
                "') WHERE name NOT IN ('ch_index', 'update_time', 'service_record', 'parent_stat')")
            .getString();
    SQLite::Statement query(database, "SELECT " + columns + " FROM " + table + " ORDER BY 1");
    std::string text;
    for (const std::string& row : ::rowsOf(query)) text += row + "\n";
    return text;
  }

  // Returns whether programmes are blocked, in the order of writing: "0" or "1", or both when the
  // limits changed while the guide was written.
  static std::string blockedIn(SQLite::Database& database) {
    SQLite::Statement query(database,
                            "SELECT parent_stat FROM event_t WHERE rating <> 'TV-G' "
                            "ORDER BY ch_id_pk, event_index");
    std::string changes;
    for (const std::string& blocked : ::rowsOf(query)) {
      if (changes.empty() || changes.substr(changes.size() - 1) != blocked) changes += blocked;
    }
    return changes;
  }

  // Returns each channel, as in the receiver's list and as in the table.
  static std::multiset<std::string> listed(const fs::path& db, unsigned source) {
    std::multiset<std::string> channels;
    Json::Value list;
    std::ifstream(db / "services.json") >> list;
    for (const Json::Value& service : list["services"]) {
      if (service["source"].asUInt() != source) continue;
      std::string name;
      const std::string hex = service["name_utf16be"].asString();
      for (size_t i = 2; i < hex.size(); i += 4) {
        name += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
      }
      for (const char* key : {"major", "minor", "record", "flags", "favourites", "source_id"}) {
        name += "|" + service[key].asString();
      }
      channels.insert(name);
    }
    return channels;
  }
  static std::multiset<std::string> tabled(const fs::path& database, const std::string& table) {
    const std::vector<std::string> channels = ::rowsOf(
        database,
        "SELECT name, major_no, minor_no, service_record, srv_flag, fav_group, source_id FROM " +
            table);
    return {channels.begin(), channels.end()};
  }

  void scanList(const std::string& list) {
    tuneAirTo(list);
    for (const char* source : {"QAM", "VSB"}) scan(source);
  }

  // Runs the steps in order while the service lives.
  void runSteps() {
    for (const auto& step : steps_) {
      if (alive()) step();
    }
  }

  // Ends the service and saves its files as the start of each run.
  void keepOrigin() {
    stopService();
    fs::copy(db_, origin_, fs::copy_options::recursive);
  }
  void restore() {
    stopService(SIGKILL);
    fs::remove_all(db_);
    fs::copy(origin_, db_, fs::copy_options::recursive);
  }

  void makeChannels() {
    broadcastLists();
    tuneAirTo("A");
    startFaultyService();
    scanList("A");
    ask(kSetAlerts);
    keepOrigin();
    steps_ = {[&] { scanList("B"); }, [&] { ask(kFavourite); }, [&] { scanList("C"); },
              [&] { ask(kRename); }, [&] { scanList("A"); }};
    startFaultyService();
    learn();
  }

  // Returns the number of programmes in the guide, or of blocked programmes.
  int programmes(const std::string& condition = "1") const {
    try {
      return std::stoi(
          valueOf(db_ / "ATSC_event.db", "SELECT count(*) FROM event_t WHERE " + condition));
    } catch (const SQLite::Exception&) {
      return -1;  // no file or table yet
    }
  }

  void receiveGuide() {
    const size_t before = told("EPG_UPDATE");
    ask(R"({"class":"FW","command":"INIT"})");
    waitFor([&] { return told("EPG_UPDATE") > before && programmes() == kProgrammes; });
  }

  // Blocks programmes from a TV rating on, which rewrites the guide.
  void block(const std::string& level, int blocked) {
    std::string command = kBlock;
    command.replace(command.find('%'), 1, level);
    ask(command);
    waitFor([&] { return programmes("parent_stat = 1") == blocked; });
  }

  // Runs the steps without faults: records each content, the number of disk calls, and the time.
  void learn() {
    control("count");
    const auto note = [&] {
      for (const auto& [table, rows] : look()) whole_[table].push_back(rows);
    };
    note();
    const auto begin = std::chrono::steady_clock::now();
    for (const auto& step : steps_) {
      step();
      note();
    }
    steps_duration_ = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin);
    std::ifstream(control_.string() + ".count") >> calls_;
    ASSERT_GT(calls_, 40);
    std::cout << calls_ << " calls, " << steps_duration_.count() << " us" << std::endl;
    control("");
    stopService();
  }

  // Expects that each table has one of the recorded contents, by the number of its step.
  void expectWhole(const Content& content, const std::string& when) {
    for (const auto& [table, known] : whole_) {
      const auto rows = content.find(table);
      if (rows == content.end()) {
        ADD_FAILURE() << when << ": no " << table;
        continue;
      }
      const auto at = std::find(known.begin(), known.end(), rows->second);
      if (at == known.end()) {
        ADD_FAILURE() << when << ": " << table << " holds\n" << rows->second;
      } else {
        ++outcomes_[when + ", " + table + " " + std::to_string(at - known.begin())];
      }
    }
  }

  // Cuts the power during the steps, `cuts` times: spread over the disk calls, in the long form at
  // each call. `prepare` runs between the start and the steps; `recover` runs with the number of
  // the cut when the service is dead.
  void cutEverywhere(int cuts, const std::function<void()>& prepare,
                     const std::function<void(int)>& recover) {
    const int stride = longForm() ? 1 : calls_ / (cuts / 2);
    for (int i = 0; i < cuts && !HasFailure(); ++i) {
      const std::string mode = i % 2 == 0 ? "cut" : "power";
      const std::string line =
          mode + " " + std::to_string(1 + i / 2 * stride % calls_) + " " + std::to_string(i);
      SCOPED_TRACE(line);
      restore();
      startFaultyService();
      prepare();
      control(line);
      runSteps();
      stopService(SIGKILL);
      expectWhole(look(), mode);
      recover(i);
      control("");
    }
  }

  // Starts the service after a cut and expects that all data is correct when it is ready.
  void expectSoundStart() {
    startService();
    if (service_->count("Rebuild channel DB") > 0) ++outcomes_["rebuilt"];
    expectWhole(look(), "start");
    EXPECT_EQ(listed(db_, 2), tabled(database_, "channel_data_t"));
    EXPECT_EQ(listed(db_, 3), tabled(database_, "channel_data_c"));
    EXPECT_EQ(2, ask(kReadAlerts)["setting"].asInt());
    for (const auto& entry : fs::directory_iterator(db_)) {
      EXPECT_NE(".bad", entry.path().extension()) << entry.path();
    }
  }

  ~PowerCutTest() override {
    for (const auto& [what, count] : outcomes_) std::cout << what << ": " << count << "\n";
  }

  const fs::path origin_ = folder_ / "origin";
  std::vector<std::function<void()>> steps_;
  int calls_ = 0;
  std::chrono::microseconds steps_duration_{};
  std::map<std::string, std::vector<std::string>> whole_;
  std::map<std::string, int> outcomes_;
};

TEST_F(PowerCutTest, ChannelTablesAreOneOfTheLists) {
  makeChannels();
  if (HasFatalFailure()) return;
  cutEverywhere(
      longForm() ? 1000 : 40, [] {},
      [&](int i) {
        if (i % 4 == 3) {  // cuts again while the next start repairs or creates a file
          const bool lost = i % 8 == 3;
          if (lost) fs::remove(database_);
          control("power " + std::to_string(1 + i % 29) + " " + std::to_string(i));
          startFaultyService(kMayDie);
          const bool died = !alive();
          stopService(SIGKILL);
          if (!lost) expectWhole(look(), "second power");
          ++outcomes_[died ? "died at the start" : "started"];
        }
        expectSoundStart();
      });
  EXPECT_GT(outcomes_["died at the start"], 0);
}

TEST_F(PowerCutTest, ChannelTablesSurviveAnEndAtAnyMoment) {
  makeChannels();
  if (HasFatalFailure()) return;
  std::minstd_rand random;
  for (int i = 0; i < (longForm() ? 500 : 10) && !HasFailure(); ++i) {
    restore();
    startService();
    std::thread viewer([&] { runSteps(); });
    const auto moment = std::chrono::microseconds(random() % steps_duration_.count());
    std::this_thread::sleep_for(moment);
    service_->signal(SIGKILL);
    viewer.join();
    stopService();
    SCOPED_TRACE(std::to_string(moment.count()) + " us");
    expectWhole(look(), "any moment");
    expectSoundStart();
  }
}

TEST_F(PowerCutTest, TheGuideIsOneOfThoseThatWere) {
  broadcastLists();
  tuneAirTo("A");
  startFaultyService();
  scanList("A");
  ask(kSetAlerts);
  ask(kEnforce);
  ask(kStoreAll);
  receiveGuide();
  keepOrigin();
  steps_ = {[&] { block("4", kProgrammes / 2); }, [&] { block("0", 0); }};
  startFaultyService();
  receiveGuide();
  learn();
  if (HasFatalFailure()) return;
  ASSERT_EQ((std::vector<std::string>{"0", "1", "0"}), whole_["blocked"]);
  whole_["blocked"] = {"0", "1", "01", "10"};

  cutEverywhere(
      longForm() ? 360 : 16, [&] { receiveGuide(); },
      [&](int) {
        expectSoundStart();
        receiveGuide();
        expectWhole(look(), "received again");
      });
}

}  // namespace
