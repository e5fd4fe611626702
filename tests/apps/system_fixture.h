// Runs all programs as separate processes, in a folder of the test.
#ifndef ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_
#define ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_

#include <gtest/gtest.h>
#include <json/json.h>
#include <stdlib.h>

#include <filesystem>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "files.h"
#include "lineup_rows.h"
#include "process.h"
#include "rows.h"
#include "temporary_folder.h"
#include "wait.h"

inline constexpr const char* kAirLineup = LINEUPS "/metro-air.json";
inline constexpr const char* kCableLineup = LINEUPS "/metro-cable.json";
inline constexpr const char* kInit = R"({"class":"FW","command":"INIT"})";

inline constexpr const char* kCaptures = ATSC_CAPTURES_DIR;

// Dwell time, in milliseconds, that lets a test act during a scan.
inline constexpr const char* kSlow = "300";
inline constexpr const char* kFast = "0";

using Words = std::vector<std::string>;

class SystemTest : public testing::Test {
 protected:
  SystemTest() {
    environment_ = {
        {"HOME", folder_}, {"ATSC_HOST_STATE", ""}, {"ATSC_CNAHHEL_DB", ""}, {"ATSC_EVENT_DB", ""}};
    db_ = folder_ / "db";
    database_ = db_ / "ATSCChannelData.db3";
    air_ = folder_ / "air";
  }
  ~SystemTest() override { service_.reset(); }

  std::unique_ptr<Process> start(std::vector<std::string> words, const std::string& input = "") {
    return std::make_unique<Process>(std::move(words), environment_, input);
  }

  Outcome run(std::vector<std::string> words, const std::string& input = "") {
    return finish(*start(std::move(words), input));
  }

  // Creates a transport stream for each channel of lineups. Passes further options to psipmux.
  void broadcast(Words arguments, const std::filesystem::path& folder) {
    arguments.insert(arguments.begin(), {PSIPMUX, "--out", folder});
    const Outcome outcome = run(std::move(arguments));
    if (outcome.status != 0) throw std::runtime_error("no broadcast: " + outcome.err);
  }
  void broadcastLineups(const Words& options = {}) {
    Words words{kAirLineup, kCableLineup};
    words.insert(words.end(), options.begin(), options.end());
    broadcast(words, air_);
  }

  void startService(const std::string& dwell = kFast, std::vector<std::string> options = {}) {
    options.insert(options.begin(), {ATSC_SERVICE, "--air", air_, "--db", db_, "--dwell", dwell});
    service_ = start(std::move(options));
    if (!service_->says("ready")) throw std::runtime_error("no service: " + service_->err());
  }

  std::unique_ptr<Process> startTV(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {ATSC_TV, "--db", db_});
    return start(std::move(arguments));
  }

  Outcome tv(std::vector<std::string> arguments) { return finish(*startTV(std::move(arguments))); }
  Outcome send(const std::string& command) { return tv({"send", command}); }

  void scan(const std::string& source) {
    const Outcome outcome = tv({"scan", "--src", source});
    ASSERT_EQ(0, outcome.status) << outcome.err;
  }

  // Runs atsc-tv and returns its output.
  std::string out(const Words& words) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(0, outcome.status) << words[0] << ": " << outcome.err;
    return outcome.out;
  }

  // Returns the reply to a command, with "result" added.
  Json::Value ask(const std::string& command) {
    const Outcome outcome = send(command);
    Json::Value reply(Json::objectValue);
    const size_t result = outcome.out.rfind("result ");
    EXPECT_NE(std::string::npos, result) << command << outcome.err;
    if (result == std::string::npos) return reply;
    if (result > 0) std::istringstream(outcome.out.substr(0, result)) >> reply;
    reply["result"] = std::stoi(outcome.out.substr(result + 7));
    return reply;
  }

  // Starts a scan and waits until it has found the services of the first channel. Most of the band
  // is left.
  std::unique_ptr<Process> startScan() {
    auto scan = startTV({"scan"});
    if (!scan->says("RF 8")) throw std::runtime_error("no scan: " + scan->err());
    return scan;
  }

  // Starts a TV application and waits until it is registered.
  std::unique_ptr<Process> startWatch(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), "watch");
    auto watch = startTV(std::move(arguments));
    EXPECT_TRUE(eventually([] { return std::filesystem::exists("/tmp/.BUS.atsc.qel.tv.srv"); }));
    return watch;
  }

  std::vector<Row> terrestrial() const { return rowsOfTable(database_, "channel_data_t"); }
  std::vector<Row> cable() const { return rowsOfTable(database_, "channel_data_c"); }

  const TemporaryFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path();
  std::filesystem::path air_;
  std::filesystem::path db_;
  std::filesystem::path database_;
  std::map<std::string, std::string> environment_;
  std::unique_ptr<Process> service_;
};

#endif  // ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_
