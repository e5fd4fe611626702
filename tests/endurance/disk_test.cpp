// Failing disks under a running service.
#include <SQLiteCpp/SQLiteCpp.h>
#include <gmock/gmock.h>

#include <cerrno>
#include <chrono>
#include <functional>
#include <optional>

#include "endurance_fixture.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

const std::string kSynchronise = command("TEST GETSERVICE", R"("input":"VSB")");

class DiskTest : public EnduranceTest {
 protected:
  std::string names() const {
    return valueNow(database_, "SELECT group_concat(substr(name, 1, 1), '') FROM channel_data_t");
  }
};

TEST_F(DiskTest, FaultsPassWithTheirCause) {
  std::optional<SQLite::Database> other;
  const auto inject = [this](int error) {
    return [this, error] { control("fail " + std::to_string(error)); };
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
  const auto restore = [&](const fs::path& path) {
    return [=] {
      fs::remove(path);
      fs::rename(moved, path);
    };
  };
  const struct {
    const char* what;
    std::function<void()> begin;
    std::function<void()> end;
    const char* reason;  // of the channel table; null: it is written
    const char* state;   // of the receiver's files, which have no other readers
  } faults[] = {
      {"full", inject(ENOSPC), undo, "database or disk is full", "No space left on device"},
      {"broken", inject(EIO), undo, "disk I/O error", "Input/output error"},
      {"read-only", inject(EROFS), undo, "readonly database", "Read-only file system"},
      {"no permission", inject(EACCES), undo, "readonly database", "Permission denied"},
      {"a reader", hold("BEGIN"), release, "database is locked", nullptr},
      {"a writer", hold("BEGIN EXCLUSIVE"), release, "database is locked", nullptr},
      {"a folder in the file's place",
       [&] {
         fs::rename(database_, moved);
         fs::create_directory(database_);
       },
       restore(database_), "unable to open database file: Is a directory", nullptr},
      {"a file in the folder's place",
       [&] {
         fs::rename(db_, moved);
         writeFile(db_, "");
       },
       restore(db_), "unable to open database file: Not a directory", "Not a directory"},
      {"no folder", [&] { fs::remove_all(db_); }, [] {}, nullptr, nullptr},
  };
  broadcastLists();
  tuneAirTo("A");
  // The disk is full at the first start.
  inject(ENOSPC)();
  startFaultyService();
  scan("VSB");
  EXPECT_EQ(0, ask(command("SRV GETCUR"))["result"].asInt());
  undo();
  ask(kSynchronise);
  ASSERT_EQ("AAAAAAAA", names());

  const char* list = "A";
  for (const auto& fault : faults) {
    SCOPED_TRACE(fault.what);
    const size_t told = service_->err().size();
    fault.begin();
    list = *list == 'A' ? "B" : "A";
    tuneAirTo(list);
    scan("VSB");
    const int set = ask(kSetAlerts)["result"].asInt();
    EXPECT_EQ(fault.state != nullptr ? -1 : 0, set);
    // A command that does not use the disk is answered at once.
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_EQ(0, ask(command("TIME GETSETTING"))["result"].asInt());
    EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(5));
    ASSERT_TRUE(alive());
    const std::string said = service_->err().substr(told);
    if (fault.reason != nullptr) {
      EXPECT_THAT(said, HasSubstr(database_.string() + " is not written: "));
      EXPECT_THAT(said, HasSubstr(fault.reason));
    }
    EXPECT_THAT(said, HasSubstr(fault.state != nullptr ? fault.state : ""));
    EXPECT_EQ(2, ask(kReadAlerts)["setting"].asInt()) << "the setting holds";

    fault.end();
    ask(kSynchronise);
    EXPECT_EQ(std::string(8, *list), names());
    EXPECT_EQ("ok", integrityOf(database_));
    EXPECT_EQ(0, ask(kSetAlerts)["result"].asInt());
    EXPECT_THAT(readFile(db_ / "services.json"), HasSubstr(*list == 'B' ? "\"0042" : "\"0041"));
    fs::remove(db_ / "settings.json");
  }
  // A restart loses nothing. Columns of a product stay, and missing columns of an older layout are
  // filled.
  service_->stop();
  execute(database_,
          "ALTER TABLE channel_data_t ADD COLUMN zoom INTEGER; UPDATE channel_data_t SET zoom = 7;"
          "ALTER TABLE channel_data_t DROP COLUMN tsid");
  startService();
  EXPECT_EQ(std::vector<std::string>(8, std::to_string(*list) + "|7"),
            rowsOf(database_, "SELECT tsid, zoom FROM channel_data_t"));
}

}  // namespace
