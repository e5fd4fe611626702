// A TV set in a folder of the test: its broadcast, its service with a disk that can fail, and the
// test as its TV application.
#ifndef ATSC_TESTS_ENDURANCE_ENDURANCE_FIXTURE_H_
#define ATSC_TESTS_ENDURANCE_ENDURANCE_FIXTURE_H_

#include <string>
#include <vector>

#include "command.h"
#include "listener.h"
#include "system_fixture.h"
#include "usage.h"

inline Listener& listener() {
  static Listener& made = *new Listener;  // the library may call it until the process ends
  static const bool registered = ATSC_RegisterTVServerBackend(&made) == 0;
  if (!registered) throw std::runtime_error("no TV application");
  return made;
}

inline const std::string kReadAlerts = command("EAS EASUSERSETTING", R"("op":"read")");
inline const std::string kSetAlerts = command("EAS EASUSERSETTING", R"("op":"set","setting":2)");

// What is on the air: services whose names start with `name`, each with the same programmes.
struct Lineup {
  std::string name;
  int services;
  int perCarrier;
  int firstFrequency;
  int guideHours;
  int minutes;
  std::vector<std::string> ratings;  // of the programmes
};

class EnduranceTest : public SystemTest {
 protected:
  static constexpr bool kMayDie = true;

  EnduranceTest() : control_(folder_ / "faults") {
    listener();
    environment_["SPDLOG_LEVEL"] = "error";
    environment_["ATSC_FAULT_FOLDER"] = db_;
    environment_["ATSC_FAULT_CONTROL"] = control_;
  }

  // Sets the behaviour of the disk under startFaultyService().
  void control(const std::string& line) { replaceFile(control_, line); }

  // Creates the broadcast of a lineup for both sources.
  void broadcastLineup(const Lineup& lineup, const std::filesystem::path& folder) {
    Words words;
    for (const char* medium : {"air", "cable"}) {
      Json::Value root;
      root["medium"] = medium;
      root["guide_hours"] = lineup.guideHours;
      for (int i = 0; i < lineup.services; ++i) {
        const int carrier = i / lineup.perCarrier;
        const int at = i % lineup.perCarrier;
        Json::Value& channel = root["channels"][carrier];
        channel["frequency"] = lineup.firstFrequency + carrier * 6000000;
        channel["tsid"] = lineup.name[0] + carrier;
        Json::Value& service = channel["services"][at];
        service["program"] = at + 1;
        service["pmt_pid"] = 48 + at;
        service["major"] = 5 + carrier;
        service["minor"] = at + 1;
        service["name"] = lineup.name + std::to_string(i);
        service["source_id"] = i + 1;
        // Some PIDs differ between lists.
        int pid = 1024 + 8 * at + lineup.name[0] % 2;
        for (const char* type : {"mpeg2-video", "ac3", "ac3"}) {
          Json::Value stream;
          stream["type"] = type;
          stream["pid"] = pid++;
          service["streams"].append(stream);
        }
        for (const std::string& rating : lineup.ratings) {
          Json::Value programme;
          programme["minutes"] = lineup.minutes;
          programme["title"] = lineup.name + "'s \"" + rating + '"';
          programme["rating"] = rating;
          service["programmes"].append(programme);
        }
      }
      words.push_back(folder.string() + '-' + medium + ".json");
      writeFile(words.back(), Json::FastWriter().write(root));
    }
    words.insert(words.end(), {"--start", "2026-01-01T00:00:00Z"});
    broadcast(words, folder);
  }

  // Creates three lists of one carrier. The first two have the same number of channels.
  void broadcastLists() {
    for (const char* name : {"A", "B", "C"}) {
      const int services = *name == 'C' ? 5 : 8;
      broadcastLineup({name, services, services, 473000000, 3, 15, {"TV-G", "TV-14-L"}},
                      folder_ / name);
    }
  }

  // Switches the air folder to the broadcast `name`.
  void tuneAirTo(const std::string& name) {
    for (const char* medium : {"vsb", "qam"}) {
      const std::filesystem::path to = air_ / medium;
      std::filesystem::create_directories(to);
      std::filesystem::copy_file(folder_ / name / medium / "473000000.ts", to / "new");
      std::filesystem::rename(to / "new", to / "473000000.ts");
    }
  }

  void startFaultyService(bool mayDie = false) {
    service_ = start({ENDURANCE_SERVICE, "--air", air_, "--db", db_, "--dwell", kFast});
    if (!service_->says("ready") && !mayDie) {
      throw std::runtime_error("no service: " + service_->err());
    }
  }

  bool alive() const { return service_->alive(); }

  // Waits for an action of the service. Returns at once when the service dies.
  void waitFor(const std::function<bool()>& condition) {
    EXPECT_TRUE(eventually([&] { return condition() || !alive(); }));
  }
  void waitFor(const std::string& kind, size_t from) {
    waitFor([&] { return !listener().heard(from, kind).empty(); });
  }

  // Scans the carrier and waits for the end.
  void scan(const std::string& source) {
    const size_t from = listener().count();
    ask(command("SCAN start", R"("mode":"manual","freq":473000000,"src":")" + source + '"'));
    waitFor("OVER", from);
  }

  // Returns the reply to a command, with "result" added.
  static Json::Value ask(const std::string& command) {
    const Answer answer = transmit(command);
    Json::Value reply = answer.text.empty() ? Json::Value(Json::objectValue) : parsed(answer.text);
    reply["result"] = answer.result;
    return reply;
  }

  const std::filesystem::path control_;
};

#endif  // ATSC_TESTS_ENDURANCE_ENDURANCE_FIXTURE_H_
