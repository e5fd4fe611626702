// Runs all programs as separate processes, in a folder of the test.
#ifndef ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_
#define ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "command_text.h"
#include "files.h"
#include "process.h"
#include "rows.h"
#include "temporary_folder.h"
#include "wait.h"

inline constexpr const char* kAirLineup = LINEUPS "/metro-air.json";
inline constexpr const char* kCableLineup = LINEUPS "/metro-cable.json";
inline constexpr const char* kInit = R"({"class":"FW","command":"INIT"})";

inline constexpr const char* kCaptures = ATSC_CAPTURES_DIR;

// Dwell time, in milliseconds, that lets a test act during a scan.
inline constexpr const char* kSlow = "30";
inline constexpr const char* kFast = "0";

using Words = std::vector<std::string>;

// Returns the words of a line, which are separated by blanks.
inline Words wordsOf(const std::string& line) {
  std::istringstream stream(line);
  return {std::istream_iterator<std::string>(stream), {}};
}

// Returns the callbacks that a TV application has printed, each in a line: all, or those of a kind.
inline std::vector<Json::Value> callbacksIn(const std::string& out, const std::string& kind = "") {
  std::vector<Json::Value> messages;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line) && !lines.eof();) {
    if (line[0] != '{') continue;
    messages.push_back(parsed(line));
    if (!kind.empty() && messages.back()["cbtype"] != kind) messages.pop_back();
  }
  return messages;
}

// What a scan of the sample lineups finds, in channel order: number, name, frequency, TSID, source
// id, type, tuner, audio and video streams.
inline const Words kAirRows = {
    "5-1|KÉVA-1|183000000|2817|1|TV|VSB|52_eng_129,53_spa_129,54_eng_129_AD0FULL_MAIN0,|49_2,",
    "5-2|L'Été|183000000|2817|2|TV|VSB|68_fra_129,69_eng_129,|65_2,",
    "5-3|KÉVA FM|183000000|2817|3|RADIO|VSB|84_eng_129,|",
    "9-1|WOLM-HD|479000000|2823|1|TV|VSB|52_eng_129,53_spa_129,54_eng_129_AD0_MAIN0,|49_2,",
    "9-2|Ñandú|479000000|2823|2|TV|VSB|68_spa_129,|65_2,",
    "9-3|WOLM Wx|479000000|2823|3|TV|VSB|84_eng_129,|81_2,",
    "22-1|Zoë's|521000000|2841|4097|TV|VSB|52_eng_129,53_deu_129,54_eng_129,|",
    "22-2|KidTree|521000000|2841|4098|TV|VSB|68_eng_129,|",
    "22-3|Jazz 22|521000000|2841|4099|RADIO|VSB|84_eng_15,|",
    "31-1|Nürn TV|575000000|2855|1|TV|VSB|52_deu_129,53_eng_129,54_fra_129,|49_2,",
    "31-2|ShopNow|575000000|2855|2|TV|VSB|68_eng_129,69_spa_129,|65_2,",
    "31-3|CityDat|575000000|2855|3|DATA|VSB||"};
inline const Words kCableRows = {
    "2-1|Guide|57000000|101|1|TV|QAM|52_eng_129,|49_2,",
    "2-2|Mairie|57000000|101|2|TV|QAM|68_fra_129,69_eng_129,|65_2,",
    "23-1|R'n'B ♥|219000000|123|4097|RADIO|QAM|52_eng_129,|",
    "23-2|Cinéma+|219000000|123|4098|TV|QAM|68_fra_129,69_eng_129,70_fra_129_AD0FULL_MAIN0,|",
    "23-3|Sport 3|219000000|123|4099|TV|QAM|84_eng_129,85_spa_129,|",
    "512-0|Mövies|651000000|200|1|TV|QAM|52_eng_129,53_deu_129,|",
    "1203-0|東京TV|651000000|200|2|TV|QAM|68_jpn_129,69_eng_129,|"};

class SystemTest : public testing::Test {
 protected:
  SystemTest() {
    environment_ = {
        {"HOME", folder_}, {"ATSC_HOST_STATE", ""}, {"ATSC_CNAHHEL_DB", ""}, {"ATSC_EVENT_DB", ""}};
    useDatabases(folder_ / "db");
  }

  // Ends the service and the TV application cleanly, which also removes their sockets.
  void TearDown() override {
    for (const auto& process : {std::ref(watch_), std::ref(service_)}) {
      if (!process.get() || !process.get()->alive()) continue;
      EXPECT_EQ(0, process.get()->stop()) << process.get()->err();
    }
  }

  void useDatabases(const std::filesystem::path& folder) {
    db_ = folder;
    database_ = db_ / "ATSCChannelData.db3";
    events_ = db_ / "ATSC_event.db";
  }

  std::unique_ptr<Process> start(Words words, const std::string& input = "") {
    return std::make_unique<Process>(std::move(words), environment_, input);
  }

  Outcome run(Words words, const std::string& input = "") {
    return finish(*start(std::move(words), input));
  }

  // Creates a transport stream for each channel of lineups. Passes further options to psipmux.
  void broadcast(Words arguments, const std::filesystem::path& folder) {
    arguments.insert(arguments.begin(), {PSIPMUX, "--out", folder});
    const Outcome outcome = run(std::move(arguments));
    if (outcome.status != 0) throw std::runtime_error("no broadcast: " + outcome.err);
  }
  void broadcastLineups(Words options = {}) {
    options.insert(options.begin(), {kAirLineup, kCableLineup});
    broadcast(std::move(options), air_);
  }

  void startService(const std::string& dwell = kFast, Words options = {}) {
    options.insert(options.begin(), {ATSC_SERVICE, "--air", air_, "--db", db_, "--dwell", dwell});
    service_ = start(std::move(options));
    if (!service_->says("ready")) throw std::runtime_error("no service: " + service_->err());
  }
  void restartService(const Words& options = {}) {
    EXPECT_EQ(0, service_->stop()) << service_->err();
    startService(kFast, options);
  }

  std::unique_ptr<Process> startTV(Words arguments) {
    arguments.insert(arguments.begin(), {ATSC_TV, "--db", db_});
    return start(std::move(arguments));
  }

  Outcome tv(Words arguments) { return finish(*startTV(std::move(arguments))); }

  // Runs atsc-tv and returns its output.
  std::string out(const Words& words) {
    const Outcome outcome = tv(words);
    EXPECT_EQ(0, outcome.status) << words[0] << ": " << outcome.err;
    return outcome.out;
  }

  // Expects that a program fails for a reason.
  void expectFailure(const Outcome& outcome, int status, const std::string& reason) {
    EXPECT_EQ(status, outcome.status) << reason << outcome.err;
    EXPECT_THAT(outcome.err, testing::HasSubstr(reason));
  }
  // Expects that atsc-tv prints nothing but an error.
  void fails(int status, const Words& words, const std::string& reason) {
    SCOPED_TRACE(testing::PrintToString(words));
    const Outcome outcome = tv(words);
    expectFailure(outcome, status, reason);
    EXPECT_EQ("", outcome.out);
  }

  Outcome send(const std::string& command) { return tv({"send", command}); }

  // Sends the command "CLASS NAME", which has no reply.
  void act(const std::string& name, const std::string& members = "") {
    EXPECT_EQ("result 0\n", send(command(name, members)).out) << name << ' ' << members;
  }

  // Returns the reply to the command "CLASS NAME", with "result" added.
  Json::Value ask(const std::string& name, const std::string& members = "") {
    const Outcome outcome = send(command(name, members));
    const size_t result = outcome.out.rfind("result ");
    EXPECT_NE(std::string::npos, result) << name << outcome.err;
    if (result == std::string::npos) return {};
    Json::Value reply = parsed(outcome.out.substr(0, result));
    reply["result"] = std::stoi(outcome.out.substr(result + 7));
    return reply;
  }

  void tune(int major, int minor, const std::string& source = "VSB") {
    act("FW CHANNELCHANGE", R"("input":")" + source + R"(","major":)" + std::to_string(major) +
                                ",\"minor\":" + std::to_string(minor));
  }

  void scan(const std::string& source) { out({"scan", "--src", source}); }

  // Starts a scan and waits until it has found the services of the first channel. Most of the band
  // is left.
  std::unique_ptr<Process> startScan() {
    auto scan = startTV({"scan"});
    if (!scan->says("RF 8")) throw std::runtime_error("no scan: " + scan->err());
    return scan;
  }

  // Starts a TV application and waits until it is registered.
  void startWatch(Words arguments = {}) {
    arguments.insert(arguments.begin(), "watch");
    watch_ = startTV(std::move(arguments));
    EXPECT_TRUE(eventually([] { return std::filesystem::exists("/tmp/.BUS.atsc.qel.tv.srv"); }));
  }

  // Returns a value of a database, or the reason why there is none, such as no table yet.
  static std::string valueNow(const std::filesystem::path& database, const std::string& sql) {
    try {
      return valueOf(database, sql);
    } catch (const SQLite::Exception& e) {
      return e.what();
    }
  }

  // Returns the columns of a channel table that depend on the broadcast, in channel order.
  Words rowsOfTable(const std::string& table) const {
    return rowsOf(database_,
                  "SELECT major_no || '-' || minor_no, name, freq, tsid, source_id, "
                  "srv_type, tuner_type, audio_pid, video_pid FROM " +
                      table + " ORDER BY major_no, minor_no");
  }
  Words terrestrial() const { return rowsOfTable("channel_data_t"); }
  Words cable() const { return rowsOfTable("channel_data_c"); }

  // Returns all columns of a channel table but the time of the update.
  Words contentOf(const std::string& table) const {
    const std::string columns =
        R"(SELECT group_concat('"' || name || '"') FROM pragma_table_info(')";
    const std::string all = valueOf(database_, columns + table + "') WHERE name <> 'update_time'");
    return rowsOf(database_, "SELECT " + all + " FROM " + table);
  }

  const TemporaryFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path();
  std::filesystem::path air_ = folder_ / "air";
  std::filesystem::path db_, database_, events_;
  std::map<std::string, std::string> environment_;
  std::unique_ptr<Process> service_;
  std::unique_ptr<Process> watch_;
};

#endif  // ATSC_TESTS_APPS_SYSTEM_FIXTURE_H_
