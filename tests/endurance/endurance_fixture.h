// A TV set in a folder of the test: its broadcast, its service with a disk that can fail, and the
// test as its TV application.
#ifndef ATSC_TESTS_ENDURANCE_ENDURANCE_FIXTURE_H_
#define ATSC_TESTS_ENDURANCE_ENDURANCE_FIXTURE_H_

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
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

inline constexpr const char* kScan =
    R"({"class":"SCAN","command":"start","mode":"manual","freq":473000000,"src":")";
inline constexpr const char* kReadAlerts =
    R"({"class":"EAS","command":"EASUSERSETTING","op":"read"})";
inline constexpr const char* kSetAlerts =
    R"({"class":"EAS","command":"EASUSERSETTING","op":"set","setting":2})";

class EnduranceTest : public SystemTest {
 protected:
  static constexpr bool kMayDie = true;

  EnduranceTest() : control_(folder_ / "faults") {
    listener();
    environment_["SPDLOG_LEVEL"] = "error";
    environment_["ATSC_FAULT_FOLDER"] = db_;
    environment_["ATSC_FAULT_CONTROL"] = control_;
  }

  // Sets the behaviour of the faulty service's disk.
  void control(const std::string& line) { replaceFile(control_, line); }

  // Returns a lineup with one carrier on 473 MHz, with `channels` services whose names start with
  // `list`.
  static std::string lineup(const std::string& list, int channels, bool cable) {
    Json::Value lineup;
    lineup["medium"] = cable ? "cable" : "air";
    lineup["guide_hours"] = 3;
    Json::Value& carrier = lineup["channels"][0];
    carrier["frequency"] = 473000000;
    carrier["tsid"] = list[0];
    for (int i = 0; i < channels; ++i) {
      Json::Value& service = carrier["services"][i];
      service["program"] = i + 1;
      service["pmt_pid"] = 48 + i;
      service["major"] = 5;
      service["minor"] = i + 1;
      service["name"] = list + std::to_string(i);
      service["source_id"] = i + 1;
      service["streams"][0]["type"] = "mpeg2-video";
      service["streams"][0]["pid"] = 1024 + 8 * i + list[0] % 2;  // some PIDs differ between lists
      service["streams"][1]["type"] = "ac3";
      service["streams"][1]["pid"] = 1028 + 8 * i;
      for (const char* rating : {"TV-G", "TV-14-L"}) {
        Json::Value programme;
        programme["minutes"] = 15;
        programme["title"] = list + "'s " + rating;
        programme["rating"] = rating;
        service["programmes"].append(programme);
      }
    }
    return Json::FastWriter().write(lineup);
  }

  // Creates the broadcast `name` from lineups.
  void broadcast(const std::string& name, const std::string& air, const std::string& cable) {
    const std::string stem = folder_ / name;
    std::ofstream(stem + "-air.json") << air;
    std::ofstream(stem + "-cable.json") << cable;
    SystemTest::broadcast(
        {stem + "-air.json", stem + "-cable.json", "--start", "2026-01-01T00:00:00Z"}, stem);
  }

  // Creates three lists of one carrier for both sources. The first two have the same number of
  // channels.
  void broadcastLists() {
    const struct {
      const char* name;
      int channels;
    } lists[] = {{"A", 8}, {"B", 8}, {"C", 5}};
    for (const auto& list : lists) {
      broadcast(list.name, lineup(list.name, list.channels, false),
                lineup(list.name, list.channels, true));
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
    service_ = start({FAULTY_SERVICE, "--air", air_, "--db", db_, "--dwell", kFast});
    if (!service_->says("ready") && !mayDie) {
      throw std::runtime_error("no service: " + service_->err());
    }
  }

  void stopService(int signal = SIGTERM) {
    service_->signal(signal);
    service_->wait();
  }

  bool alive() const { return service_->alive(); }

  // Waits for an action of the service. Returns at once when the service dies.
  void waitFor(const std::function<bool()>& condition) {
    EXPECT_TRUE(eventually([&] { return condition() || !alive(); }));
  }

  // Scans the carrier and waits for the end.
  void scan(const std::string& source) {
    const size_t before = told("OVER");
    ask(kScan + source + "\"}");
    waitFor([&] { return told("OVER") > before; });
  }

  static size_t told(const std::string& kind) { return listener().count(kind); }

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
