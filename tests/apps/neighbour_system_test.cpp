// The programs and hostile neighbours: TV applications that hang, die or send garbage, restarts,
// and other users who connect or create files.
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "backend_fixture.h"
#include "usage.h"

namespace fs = std::filesystem;

namespace {

using testing::HasSubstr;

constexpr const char* kTVSocket = "/tmp/.BUS.atsc.qel.tv.srv";
constexpr const char* kUpdate = "PARENTAL_UPDATE";
constexpr const char* kPlays = "CHANNEL_PLAY_SUCCESS";
constexpr const char* kScan8 = R"("mode":"manual","freq":8,"src":"VSB")";
constexpr uid_t kStranger = 65534;

class NeighbourTest : public BackendTest {
 protected:
  // Starts a program that sends commands one after another; every second command causes a callback.
  void startCaller() {
    caller_ = start({TV_BACKEND, "--call", kInit, command("PC SETPRTDETAIL", R"("pc_enable":1)"),
                     kInit, command("PC SETPRTDETAIL", R"("pc_enable":0)")});
    answered("nothing else", 50);
  }

  // Expects that the caller gets more answers during a fault.
  void answered(const char* during, size_t more = 20) {
    const size_t before = caller_->count("answer 0");
    EXPECT_TRUE(caller_->says("answer 0", before + more)) << during;
    EXPECT_EQ(0u, caller_->count("answer -1")) << during;
  }

  void receivesCallbacks(const Process& application) {
    const size_t before = application.count(kUpdate);
    EXPECT_TRUE(eventually([&] { return application.count(kUpdate) > before + 1; }));
  }

  std::unique_ptr<Process> caller_;
};

TEST_F(NeighbourTest, AStoppedTVApplicationMissesNothingAndHoldsUpNobody) {
  broadcastLineups();
  startService();
  auto application = startBackend();
  act("FW INIT");
  act("SCAN start", kScan8);
  EXPECT_TRUE(application->says(kPlays));
  startCaller();
  application->signal(SIGSTOP);
  for (int i = 0; i < (longForm() ? 20 : 1); ++i) answered("the TV application is stopped", 2100);
  EXPECT_TRUE(service_->says("messages wait for the TV application"));
  // A scan waits for its first message, but can be stopped.
  const size_t commands = caller_->count("answer 0");
  caller_.reset();
  act("SCAN start", kScan8);
  act("SCAN stop");
  EXPECT_THAT(out({"play", "5-2"}), HasSubstr("5-2"));
  EXPECT_EQ(1u, application->count(kPlays));
  application->signal(SIGCONT);
  ASSERT_TRUE(application->says(kPlays, 2));
  // All came before what came later; none was lost. The last command may have been answered after
  // the answers were counted.
  const std::string all = application->out();
  EXPECT_LT(all.rfind(kUpdate), all.rfind(kPlays));
  EXPECT_THAT(application->count(kUpdate),
              testing::AllOf(testing::Ge(commands / 2), testing::Le(commands / 2 + 2)));
}

TEST_F(NeighbourTest, TVApplicationsAndTheServiceMayDieAgainAndAgain) {
  fs::create_directory(air_);
  startService();
  startCaller();
  startBackend();
  answered("the TV application has died");
  const auto usage = [&] {
    const Usage now = usageOf(service_->pid());
    return std::pair(now.descriptors, now.threads);
  };
  const auto before = usage();
  const int rounds = longForm() ? 300 : 50;
  for (int i = 0; i < rounds; ++i) {
    const int kind = i % 3;
    if (kind == 0) writeFile(hold_, "x");
    auto application = startBackend();
    if (kind == 0) {
      EXPECT_TRUE(application->says("held"));
      answered("a callback is not answered", 3);
    } else if (kind == 1) {
      application->signal(SIGSTOP);
      answered("the TV application is stopped", 3);
    }
    application->kill();
    fs::remove(hold_);
  }
  receivesCallbacks(*startBackend());
  answered("the last TV application has died");
  EXPECT_TRUE(eventually([&] { return usage() == before; }))
      << testing::PrintToString(usage()) << ", before " << testing::PrintToString(before);

  auto application = startBackend();
  service_->signal(SIGSTOP);
  auto waiting = startTV({"send", kInit});
  std::this_thread::sleep_for(std::chrono::milliseconds(longForm() ? 60000 : 300));
  EXPECT_EQ(0u, waiting->count("result")) << "a command waits for its answer";
  service_->signal(SIGCONT);
  EXPECT_EQ(0, waiting->wait()) << waiting->err();
  answered("the service goes on");
  const int restarts = longForm() ? 300 : 20;
  for (int i = 0; i < restarts; ++i) {
    service_->kill();
    ASSERT_NO_THROW(startService());
    answered("the service restarts in a loop", 3);
    if (i % 10 == 0) receivesCallbacks(*application);
  }
  EXPECT_EQ(0u, application->count("error"));
}

TEST_F(NeighbourTest, NonsenseForAnswersIsSurvived) {
  fs::create_directory(air_);
  startService();
  startCaller();
  const std::string size("\x64\0\0\0", 4);
  // Garbage, an answer that is cut, and half of one that never ends.
  for (const auto& each : {std::pair(std::string(4096, 'G'), false),
                           {"BUSr" + size + "NOSJ" + std::string(4, '\0'), false},
                           {"BUSr" + size, true}}) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string(kTVSocket).copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address));
    ASSERT_EQ(0, listen(listener, 10));
    std::thread application([&] {
      std::vector<int> open;
      for (int fd; (fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
        char request[4096];
        if (recv(fd, request, sizeof request, 0) > 0) {
          ::send(fd, each.first.data(), each.first.size(), MSG_NOSIGNAL);
        }
        if (!each.second) shutdown(fd, SHUT_RDWR);
        open.push_back(fd);
      }
      for (const int fd : open) close(fd);
    });
    answered(each.first.c_str(), 200);
    shutdown(listener, SHUT_RDWR);
    application.join();
    close(listener);
    fs::remove(kTVSocket);
  }
  EXPECT_GE(service_->count("[bus] ["), 2u);
  EXPECT_LE(service_->count("[bus] ["), 20u) << "a line for a kind of fault";
  receivesCallbacks(*startBackend());
}

TEST_F(NeighbourTest, WhatIsKeptIsNobodyElsesToRead) {
  const auto shared = [](const fs::path& path) {
    return (fs::symlink_status(path).permissions() & static_cast<fs::perms>(0077)) != fs::perms();
  };
  const mode_t before = umask(0);
  broadcastLineups();
  useDatabases(folder_ / "new" / "db");
  startService();
  scan("VSB");
  startWatch();
  act("PC STOREALL");
  EXPECT_TRUE(eventually([&] { return fs::exists(events_); }));
  const auto expectPrivate = [&](const char* when) {
    Words files;
    for (const auto& entry : fs::recursive_directory_iterator(folder_ / "new")) {
      files.push_back(entry.path().filename());
      EXPECT_FALSE(shared(entry.path())) << entry.path() << when;
    }
    EXPECT_GE(files.size(), 5u) << testing::PrintToString(files) << when;
  };
  EXPECT_FALSE(shared(folder_ / "new"));
  EXPECT_FALSE(shared("/tmp/.BUS.atsc.qel.service.srv"));
  EXPECT_FALSE(shared(kTVSocket));
  EXPECT_EQ(0, service_->stop());
  expectPrivate(", as it was made");
  // Files of an earlier version, and the journal of a killed service.
  for (const char* file : {"ATSCChannelData.db3", "ATSC_event.db"}) {
    const fs::path journal = db_ / (std::string(file) + "-journal");
    std::ofstream(journal, std::ios::app);
    for (const fs::path& path : {db_ / file, journal}) ASSERT_EQ(0, chmod(path.c_str(), 0666));
  }
  startService();
  umask(before);
  expectPrivate(", of an earlier version");
  EXPECT_TRUE(shared(air_ / "vsb" / "183000000.ts")) << "the broadcast is anybody's";
}

TEST_F(NeighbourTest, PlantedFilesAreRefused) {
  fs::create_directory(air_);
  const fs::path target = folder_ / "target";
  const fs::path none = folder_ / "none";
  writeFile(target, "precious");
  const auto rights = static_cast<fs::perms>(0644);
  fs::permissions(target, rights);
  const auto link = [](const fs::path& to) {
    return [to](const fs::path& at) { fs::create_symlink(to, at); };
  };
  const auto hard = [&](const fs::path& at) { fs::create_hard_link(target, at); };
  const auto fifo = [](const fs::path& at) { ASSERT_EQ(0, mkfifo(at.c_str(), 0666)); };
  const auto folder = [](const fs::path& at) { fs::create_directory(at); };
  const auto file = [](const fs::path& at) { writeFile(at, "{}"); };
  const struct {
    const char* at;  // in the database folder; empty for the folder itself
    bool stranger;
    std::function<void(const fs::path&)> plant;
    const char* reason;
  } kPlants[] = {
      {"ATSCChannelData.db3", true, link(target), "user 65534"},
      {"ATSC_event.db", true, link(none), "user 65534"},
      {"", true, link(folder_), "user 65534"},
      {"", true, folder, "user 65534"},
      {"ATSC_event.db", true, file, "user 65534"},
      {"ATSC_event.db-journal", true, link(target), "user 65534"},
      {"ATSC_event.db-journal", false, link(target), "not a regular"},
      {"ATSC_event.db-wal", false, link(none), "not a regular"},
      {"ATSCChannelData.db3-journal", false, hard, "hard link"},
      {"ATSCChannelData.db3", false, fifo, "not a regular"},
      {"ATSC_event.db", false, folder, "directory"},
      {"services.json", true, file, "user 65534"},
      {"parental.json.new", true, link(target), "user 65534"},
  };
  const fs::path everybody = folder_ / "everybody's";
  for (const auto& each : kPlants) {
    if (each.stranger && geteuid() != 0) continue;  // only root can create a file of another user
    fs::create_directory(everybody);
    fs::permissions(everybody, static_cast<fs::perms>(01777));
    db_ = everybody / "db";
    const fs::path at = *each.at != '\0' ? db_ / each.at : db_;
    if (at != db_) {
      fs::create_directory(db_);
      fs::permissions(db_, static_cast<fs::perms>(01777));
    }
    each.plant(at);
    SCOPED_TRACE(at);
    const uid_t owner = each.stranger ? kStranger : geteuid();
    ASSERT_EQ(0, lchown(at.c_str(), owner, static_cast<gid_t>(-1)));
    const Outcome outcome = run({ATSC_SERVICE, "--air", air_, "--db", db_});
    expectFailure(outcome, 1, each.reason);
    EXPECT_THAT(outcome.err, HasSubstr(at.string()));
    EXPECT_EQ("precious", readFile(target));
    EXPECT_EQ(rights, fs::status(target).permissions());
    EXPECT_FALSE(fs::exists(none));
    EXPECT_FALSE(fs::exists(folder_ / "ATSCChannelData.db3"));
    EXPECT_TRUE(fs::exists(fs::symlink_status(at)));
    fs::remove_all(everybody);
  }

  // Links of the same user, for the folder and the files.
  const fs::path disk = folder_ / "disk";
  fs::create_directories(disk / "db");
  fs::create_symlink(disk / "db", folder_ / "db-link");
  fs::create_symlink(disk / "channels", disk / "db" / "ATSCChannelData.db3");
  useDatabases(folder_ / "db-link");
  startService();
  act("FW INIT");
  EXPECT_EQ("ok", integrityOf(disk / "channels"));
  EXPECT_TRUE(fs::is_symlink(disk / "db" / "ATSCChannelData.db3"));
}

}  // namespace
