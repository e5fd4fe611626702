// A TV application that tests a service process on the minimal platform. The arguments are the
// command that starts the service; environment variables name the databases.
#include <atsc/atsc_service.h>
#include <json/json.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "command.h"
#include "listener.h"
#include "process.h"
#include "rows.h"
#include "wait.h"

namespace {

constexpr std::chrono::seconds kPatience(20);

void expect(bool condition, const std::string& what) {
  if (!condition) throw std::runtime_error(what);
}

template <typename T>
void expectEqual(const T& got, const T& wanted, const std::string& what) {
  if (got == wanted) return;
  if constexpr (std::is_same_v<T, std::string>) {
    throw std::runtime_error(what + ": got\n" + got + "\ninstead of\n" + wanted);
  } else {
    throw std::runtime_error(what + ": " + std::to_string(got) + " instead of " +
                             std::to_string(wanted));
  }
}

// Waits for a callback of a kind at position `from` or later. Returns the first.
Json::Value waitKind(Listener& backend, size_t from, const std::string& kind) {
  std::vector<Json::Value> found;
  expect(eventually(
             [&] {
               found = backend.heard(from, kind);
               return !found.empty();
             },
             kPatience),
         "no callback " + kind);
  return found[0];
}

void order(const std::string& command) { expectEqual(transmit(command).result, 0, command); }

bool serviceAnswers() {
  return !parsed(transmit(R"({"class":"TIME","command":"GETCUR"})").text)["year"].isNull();
}

// Returns all rows, one per line, columns separated by '|'.
std::string query(const char* variable, const std::string& sql) {
  std::string text;
  for (const std::string& row : rowsOf(getenv(variable), sql)) text += row + "\n";
  return text;
}

std::string channels(const std::string& sql) { return query("ATSC_CNAHHEL_DB", sql); }
std::string events(const std::string& sql) { return query("ATSC_EVENT_DB", sql); }

// Returns the columns of both tables that TV applications refer to or show.
std::string allChannels() {
  std::string rows;
  for (const char* table : {"channel_data_t", "channel_data_c"}) {
    rows += channels(
        std::string(
            "SELECT ch_index, ch_id_pk, name, fav_group, srv_flag, audio_pid, video_pid FROM ") +
        table);
  }
  return rows;
}

// Scans, checks the messages and waits until a channel plays.
void scan(Listener& backend, const char* source, int services, int frequencies) {
  const size_t from = backend.count();
  order(std::string(R"({"class":"SCAN","command":"start","src":")") + source + "\"}");
  const Json::Value over = waitKind(backend, from, "OVER");
  expectEqual(over["progress"].asInt(), 100, "progress");
  expectEqual(over["ser_found"].asInt(), services, "services found");
  expectEqual(over["tv_num"].asInt(), services, "TV services found");
  std::string messageOrder;
  int progress = -1;
  for (const Json::Value& message : backend.heard(from)) {
    if (message["cbtype"] != "SCAN") continue;
    messageOrder += message["msg"].asString() + " ";
    expect(message["progress"].asInt() >= progress, "the progress goes back");
    progress = message["progress"].asInt();
  }
  std::string wanted = "START ";
  for (int i = 0; i < frequencies; ++i) wanted += "PROGRESS ";
  expectEqual(messageOrder, wanted + "OVER ", "scan messages");
  waitKind(backend, from, "CHANNEL_PLAY_SUCCESS");
  waitKind(backend, from, "EPG_COMPLETE");
}

void expectCurrent(int major, int minor, const std::string& name) {
  const Answer current = transmit(R"({"class":"SRV","command":"GETCUR"})");
  expectEqual(current.result, 0, "GETCUR");
  const Json::Value reply = parsed(current.text);
  expectEqual(reply["major"].asInt(), major, "major");
  expectEqual(reply["minor"].asInt(), minor, "minor");
  expectEqual(reply["chn_name"].asString(), name, "name");
}

// The service process. Its log is shown when the test fails.
std::unique_ptr<Process> service;

void startService(const std::vector<std::string>& command) {
  service = std::make_unique<Process>(command);
  expect(service->says("ready\n"), "the service does not start");
}

// Sends a signal and waits. Returns the exit status, or minus the signal that ended the service.
int endService(int signal) {
  service->signal(signal);
  return service->wait();
}

void tryService(const std::vector<std::string>& command) {
  expect(!serviceAnswers(), "a command is answered before the service runs: by this process?");
  static Listener backend;
  startService(command);
  expectEqual(ATSC_RegisterTVServerBackend(&backend), 0, "registration");
  expectEqual(ATSC_RegisterTVServerBackend(&backend), -1, "second registration");
  expectEqual(Process(command).wait(), 1, "exit status of a second service");
  expect(serviceAnswers(), "no answer");
  order(R"({"class":"FW","command":"INIT"})");
  waitKind(backend, 0, "STT_UPDATE_EVENT");

  scan(backend, "VSB", 4, 3);
  expectEqual<std::string>(
      channels("SELECT major_no, minor_no, name, source_id FROM channel_data_t ORDER BY 1, 2"),
      "7|1|HARBOR|1793\n7|2|HARBOR2|1794\n9|1|HILL|2305\n9|2|HILL-NW|2306\n", "channel_data_t");
  expectCurrent(7, 1, "HARBOR");
  scan(backend, "QAM", 2, 3);
  expectEqual<std::string>(
      channels("SELECT major_no, minor_no, name, freq, audio_pid FROM channel_data_c ORDER BY 1"),
      "101|0|CITY|57000000|52_eng_129,53_spa_129,\n102|0|SPORT|63000000|52_eng_129,53_spa_129,\n",
      "channel_data_c");
  expectEqual<std::string>(events("SELECT count(*) FROM event_c"), "8\n", "event_c");
  expectCurrent(101, 0, "CITY");

  size_t from = backend.count();
  order(R"({"class":"FW","command":"CHANNELMODIFY","src":"VSB","major":7,"minor":2,"type":"fav",)"
        R"("group":1})");
  order(
      R"({"class":"FW","command":"CHANNELMODIFY","src":"VSB","major":9,"minor":1,"type":"lock"})");
  order(R"({"class":"FW","command":"CHANNELCHANGE","input":"VSB","major":9,"minor":1})");
  waitKind(backend, from, "CHANNEL_LOCKED");
  expectCurrent(9, 1, "HILL");
  from = backend.count();
  order(R"({"class":"FW","command":"CHANNELCHANGE","input":"VSB","mode":"UP"})");
  waitKind(backend, from, "CHANNEL_PLAY_SUCCESS");
  expectCurrent(9, 2, "HILL-NW");

  // The guide has texts for each channel of the current input source.
  SQLite::Database guide = openDatabase(getenv("ATSC_EVENT_DB"));
  guide.exec(std::string("ATTACH '") + getenv("ATSC_CNAHHEL_DB") + "' AS list");
  SQLite::Statement texts(
      guide,
      "SELECT c.name, count(*), max(start_time) - min(start_time), "
      "abs(min(start_time) - unixepoch()) < 3600 FROM event_t e "
      "JOIN list.channel_data_t c USING (ch_id_pk) GROUP BY c.ch_index ORDER BY c.name");
  expect(rowsOf(texts) == std::vector<std::string>{"HARBOR|4|5400|1", "HARBOR2|4|5400|1",
                                                   "HILL|4|5400|1", "HILL-NW|4|5400|1"},
         "event_t");
  expectEqual<std::string>(
      events("SELECT DISTINCT name, \"desc\", rating FROM event_t WHERE genre = '34,'"),
      "The Long Way Home|A film in many parts.|TV-PG\n", "a film");

  // A restart changes nothing, whether the service was stopped or killed.
  const std::string before = allChannels();
  expectEqual<std::string>(channels("SELECT fav_group FROM channel_data_t WHERE name = 'HARBOR2'"),
                           "16\n", "favourite");
  for (const int signal : {SIGTERM, SIGKILL}) {
    expectEqual(endService(signal), signal == SIGTERM ? 0 : -SIGKILL, "exit status");
    expect(!serviceAnswers(), "a service that has ended answers");
    startService(command);
    expectEqual(allChannels(), before, "channels after a restart");
    from = backend.count();
    order(R"({"class":"FW","command":"INIT"})");
    waitKind(backend, from, "EPG_COMPLETE");
    expectEqual<std::string>(events("SELECT count(*) FROM event_t"), "16\n", "event_t");
    order(R"({"class":"FW","command":"PLAY"})");
    expectCurrent(9, 2, "HILL-NW");
  }
  expectEqual(endService(SIGTERM), 0, "exit status");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  try {
    tryService({argv + 1, argv + argc});
  } catch (const std::exception& e) {
    printf("%sminimal-tv: %s\n", service != nullptr ? service->err().c_str() : "", e.what());
    return 1;
  }
  return 0;
}
