// The library with the recording platform for fuzzers: fast, without files left over, and with the
// same state for every input.
#ifndef ATSC_FUZZ_BUS_HARNESS_H_
#define ATSC_FUZZ_BUS_HARNESS_H_

#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>
#include <json/json.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "atsc_service_db.h"
#include "fake.h"
#include "files.h"
#include "input.h"
#include "service/server/atsc_server_service.h"
#include "temporary_folder.h"

// Disabled, because no file outlasts the run, and sync() would wait for files of other programs.
extern "C" void sync() noexcept {}

namespace fuzz {

// Parses a JSON text of the library, which must be an object.
inline Json::Value parsed(const std::string& text) {
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  std::istringstream stream(text);
  Json::Value value;
  std::string errors;
  require(Json::parseFromStream(builder, stream, &value, &errors), "valid JSON", text + errors);
  require(value.isObject(), "a JSON object", text);
  return value;
}

// A private folder, in memory if possible, with the databases of a newly started set with three
// channels. Left over when a run ends with a finding.
class Harness {
 public:
  // Returns the harness with the platform and the files as before the first input.
  static Harness& restored() {
    static Harness harness;
    harness.reset();
    return harness;
  }

  std::string path(const std::string& name) const { return folder_.path() / name; }

  // Checks the channel database, if it exists.
  void checkChannels() const {
    if (!std::filesystem::exists(path("channels.db3"))) return;
    SQLite::Database database(path("channels.db3"));
    require(database.execAndGet("PRAGMA integrity_check").getString() == "ok", "integrity");
    require(!database.tableExists("tmp"), "no table tmp");
  }

 private:
  Harness() {
    setenv("ATSC_CNAHHEL_DB", path("channels.db3").c_str(), 1);
    setenv("ATSC_EVENT_DB", path("guide.db").c_str(), 1);
    setenv("ATSC_CUSTOM_FILE", path("custom.json").c_str(), 1);
    setenv("ATSC_CUSTOM_DB_COLUMN_FILE", path("columns.json").c_str(), 1);
    // Discards the output of the library, which would dominate the run time.
    require(freopen("/dev/null", "w", stdout) != nullptr, "/dev/null");
    reset();
    *gChannel_DB_path = atsc::channelDatabasePath();
    for (const int input : {AI_INPUT_TERRESTRIAL, AI_INPUT_CABLE}) {
      ATSC_Service_db_UpdateChannel(input);
      ATSC_Service_db_UpdateEvent(input);
    }
    for (const char* name : {"channels.db3", "guide.db"}) databases_[name] = readFile(path(name));
  }

  void reset() {
    fake::reset();
    fake::setRecording(false);
    fillPlatform();
    for (const auto& [name, content] : databases_) {
      std::filesystem::remove(path(name + "-journal"));
      writeFile(path(name), content);
    }
  }

  // Sets texts as long as the callers' buffers, for the noise to change.
  static void fillPlatform() {
    std::vector<fake::Service> air{fake::service(4, 1, 503000000, std::string(60, 'N')),
                                   fake::service(4, 2, 503000000, "WGBH")};
    air[0].pids.resize(4, air[0].pids.back());
    air[0].pids.back().audio_kind = AISRV_AUDIO_DESCRIPTION;
    const std::vector<fake::Service> cable{
        fake::service(5, 1, 57000000, std::string(60, 'C'), AI_INPUT_CABLE)};
    fake::setServices(AI_INPUT_TERRESTRIAL, air);
    fake::setServices(AI_INPUT_CABLE, cable);
    fake::setCurrent(air[0], AI_INPUT_TERRESTRIAL);
    fake::Event event;
    event.name = fake::utf16(std::string(200, 'E'));
    event.rating = event.allRatings = std::string(90, 'R');
    event.description = fake::utf16("D");
    event.info.duration = 1800;
    fake::setEvents(air[0], {event, event, event});
    fake::Parental parental;
    parental.regions = {1, 2, 5};
    parental.name = parental.text = {fake::utf16(std::string(260, 'P')), AI_TEXT_UTF16BE, 0};
    parental.abbreviation.bytes = std::string(600, 'A');
    parental.count = 5;
    parental.verdict = AIPC_BLOCKED_BY_STATUS;
    parental.advisories = {1, 2};
    fake::setParental(parental);
  }

  const TemporaryFolder folder_{TemporaryFolder::memory()};
  std::map<std::string, std::string> databases_;  // their content before the first input
};

}  // namespace fuzz

#endif  // ATSC_FUZZ_BUS_HARNESS_H_
