// Failing disks under a running service, and databases of other versions.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <optional>

#include "endurance_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

constexpr const char* kSynchronise = R"({"class":"TEST","command":"GETSERVICE","input":"VSB"})";

class DiskTest : public EnduranceTest {
 protected:
  DiskTest() {
    broadcastLists();
    tuneAirTo("A");
  }

  std::string names() {
    try {
      return valueOf(database_, "SELECT group_concat(substr(name, 1, 1), '') FROM channel_data_t");
    } catch (const SQLite::Exception& e) {
      return e.what();
    }
  }

  // Returns the time of a command that does not use the disk.
  static std::chrono::milliseconds askTime() {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(0, ask(R"({"class":"TIME","command":"GETSETTING"})")["result"].asInt());
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 begin);
  }
};

constexpr const char* kNewA = "AAAAAAAA";
constexpr const char* kNewB = "BBBBBBBB";

TEST_F(DiskTest, FaultsPassWithTheirCause) {
  std::optional<SQLite::Database> other;
  const auto inject = [this](const char* error) {
    return [this, error] { control(std::string("fail ") + error); };
  };
  const auto undo = [this] { control(""); };
  const auto hold = [&](const char* how) {
    return [&, how] {
      other.emplace(database_, SQLite::OPEN_READWRITE);
      other->exec(how);
      if (how == std::string("BEGIN")) other->execAndGet("SELECT count(*) FROM channel_data_t");
    };
  };
  const auto release = [&] { other.reset(); };
  const std::string moved = db_.string() + "-moved";
  const struct {
    const char* what;
    std::function<void()> begin;
    std::function<void()> end;
    const char* reason;  // of the channel table
    const char* state;   // of the receiver's files, which have no other readers
  } faults[] = {
      {"full", inject("ENOSPC"), undo, "database or disk is full", "No space left on device"},
      {"broken", inject("EIO"), undo, "disk I/O error", "Input/output error"},
      {"read-only", inject("EROFS"), undo, "readonly database", "Read-only file system"},
      {"no permission", inject("EACCES"), undo, "readonly database", "Permission denied"},
      {"a reader", hold("BEGIN"), release, "database is locked", nullptr},
      {"a writer", hold("BEGIN EXCLUSIVE"), release, "database is locked", nullptr},
      {"a folder in the file's place",
       [&] {
         fs::rename(database_, moved);
         fs::create_directory(database_);
       },
       [&] {
         fs::remove(database_);
         fs::rename(moved, database_);
       },
       "unable to open database file: Is a directory", nullptr},
      {"a file in the folder's place",
       [&] {
         fs::rename(db_, moved);
         std::ofstream(db_) << "no folder";
       },
       [&] {
         fs::remove(db_);
         fs::rename(moved, db_);
       },
       "unable to open database file: Not a directory", "Not a directory"},
  };
  startFaultyService();
  scan("VSB");
  ASSERT_EQ(kNewA, names());
  bool b = false;
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.what);
    const size_t told = service_->err().size();
    fault.begin();
    b = !b;
    tuneAirTo(b ? "B" : "A");
    scan("VSB");
    const int set = ask(kSetAlerts)["result"].asInt();
    EXPECT_EQ(fault.state != nullptr ? -1 : 0, set);
    EXPECT_LT(askTime().count(), 5000);
    ASSERT_TRUE(alive());
    const std::string said = service_->err().substr(told);
    EXPECT_THAT(said, HasSubstr(database_.string() + " is not written: "));
    EXPECT_THAT(said, HasSubstr(fault.reason));
    EXPECT_THAT(said, HasSubstr(fault.state != nullptr ? fault.state : ""));
    EXPECT_EQ(2, ask(kReadAlerts)["setting"].asInt()) << "the setting holds";

    fault.end();
    ask(kSynchronise);
    EXPECT_EQ(b ? kNewB : kNewA, names());
    EXPECT_EQ("ok", integrityOf(database_));
    EXPECT_EQ(0, ask(kSetAlerts)["result"].asInt());
    EXPECT_THAT(readFile(db_ / "services.json"), HasSubstr(b ? "\"0042" : "\"0041"));
    fs::remove(db_ / "settings.json");
  }
}

TEST_F(DiskTest, AFolderThatIsRemovedIsMadeAgain) {
  startFaultyService();
  scan("VSB");
  fs::remove_all(db_);
  tuneAirTo("B");
  scan("VSB");
  ASSERT_TRUE(alive());
  ask(kSynchronise);
  EXPECT_EQ(kNewB, names());
  // A restart loses nothing.
  stopService();
  startService();
  EXPECT_EQ(kNewB, names());
}

TEST_F(DiskTest, AFullDiskAtTheFirstStart) {
  control("fail ENOSPC");
  startFaultyService();
  scan("VSB");
  EXPECT_EQ(0, ask(R"({"class":"SRV","command":"GETCUR"})")["result"].asInt());
  control("");
  ask(kSynchronise);
  EXPECT_EQ(kNewA, names());
}

TEST_F(DiskTest, ADatabaseOfAnotherVersion) {
  startService();
  scan("VSB");
  stopService();
  const auto rows = [&](const std::string& column) {
    return valueOf(database_,
                   "SELECT count(*) || ' ' || group_concat(DISTINCT tsid) || ' ' || "
                   "ifnull(group_concat(DISTINCT " +
                       column + "), '') FROM channel_data_t");
  };
  // Columns of a product stay, and missing columns of an older layout are filled.
  execute(database_,
          "ALTER TABLE channel_data_t ADD COLUMN zoom INTEGER; UPDATE channel_data_t SET zoom = 7;"
          "ALTER TABLE channel_data_t DROP COLUMN tsid");
  startService();
  EXPECT_EQ("8 65 7", rows("zoom"));
  stopService();
  execute(database_, "PRAGMA user_version = 0");
  startService();
  EXPECT_EQ("8 65 ", rows("audio_index"));
  EXPECT_THROW(rows("zoom"), SQLite::Exception) << "the file is a new one";
}

}  // namespace
