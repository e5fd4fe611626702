// A TV application that tests a service process on the minimal platform. The arguments are the
// command that starts the service; environment variables name the databases.
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <json/json.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

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

// Stores all callbacks in their order.
class Backend : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* command, char** /*result*/) override {
    Json::Value message;
    if (!Json::Reader().parse(command, message)) return -1;
    const std::lock_guard<std::mutex> lock(mutex_);
    messages_.push_back(std::move(message));
    arrived_.notify_all();
    return 0;
  }

  size_t count() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return messages_.size();
  }

  // Waits for a message at position `from` or later that `wanted` accepts. Returns the first.
  Json::Value wait(size_t from, const std::function<bool(const Json::Value&)>& wanted,
                   const std::string& what) {
    std::unique_lock<std::mutex> lock(mutex_);
    Json::Value found;
    const bool came = arrived_.wait_for(lock, kPatience, [&] {
      for (size_t i = from; i < messages_.size(); ++i) {
        if (!wanted(messages_[i])) continue;
        found = messages_[i];
        return true;
      }
      return false;
    });
    expect(came, "no callback " + what);
    return found;
  }

  Json::Value waitKind(size_t from, const std::string& kind) {
    return wait(
        from, [&](const Json::Value& message) { return message["cbtype"] == kind; }, kind);
  }

  // Returns the messages of kind SCAN at position `from` or later.
  std::vector<Json::Value> scans(size_t from) {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<Json::Value> found;
    for (size_t i = from; i < messages_.size(); ++i) {
      if (messages_[i]["cbtype"] == "SCAN") found.push_back(messages_[i]);
    }
    return found;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<Json::Value> messages_;
};

struct Answer {
  int result;
  Json::Value reply;  // null if there is none
};

Answer send(const std::string& command) {
  char* text = nullptr;
  Answer answer{ATSC_TransmitServiceClientJSONCommand(command.c_str(), &text), {}};
  if (text != nullptr) {
    expect(Json::Reader().parse(text, answer.reply), "the reply to " + command + " is no JSON");
  }
  free(text);
  return answer;
}

void order(const std::string& command) { expectEqual(send(command).result, 0, command); }

bool serviceAnswers() {
  return !send(R"({"class":"TIME","command":"GETCUR"})").reply["year"].isNull();
}

// Returns all rows, one per line, columns separated by '|'.
std::string query(const char* variable, const char* sql) {
  sqlite3* database = nullptr;
  const int opened = sqlite3_open_v2(getenv(variable), &database, SQLITE_OPEN_READONLY, nullptr);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> closing(database, sqlite3_close);
  expect(opened == SQLITE_OK, std::string(variable) + " cannot be opened");
  sqlite3_busy_timeout(database, 5000);
  std::string rows;
  const auto addRow = [](void* to, int columns, char** values, char**) {
    for (int i = 0; i < columns; ++i) {
      *static_cast<std::string*>(to) +=
          std::string(i > 0 ? "|" : "") + (values[i] ? values[i] : "");
    }
    *static_cast<std::string*>(to) += "\n";
    return 0;
  };
  char* error = nullptr;
  if (sqlite3_exec(database, sql, addRow, &rows, &error) != SQLITE_OK) {
    throw std::runtime_error(std::string(sql) + ": " + error);
  }
  return rows;
}

std::string channels(const char* sql) { return query("ATSC_CNAHHEL_DB", sql); }
std::string events(const char* sql) { return query("ATSC_EVENT_DB", sql); }

// Returns the columns of both tables that TV applications refer to or show.
std::string allChannels() {
  std::string rows;
  for (const char* table : {"channel_data_t", "channel_data_c"}) {
    const std::string sql =
        "SELECT ch_index, ch_id_pk, name, fav_group, srv_flag, audio_pid, video_pid FROM ";
    rows += channels((sql + table).c_str());
  }
  return rows;
}

// The service process.
class Service {
 public:
  // Starts the process and waits until it prints "ready".
  explicit Service(char** command) {
    int ends[2];
    expect(pipe(ends) == 0, "pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    const int status = posix_spawnp(&pid_, command[0], &actions, nullptr, command, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    expect(status == 0, std::string("cannot start ") + command[0]);
    output_ = fdopen(ends[0], "r");
    char line[1024];
    while (!ready_ && fgets(line, sizeof line, output_) != nullptr) {
      ready_ = std::string(line) == "ready\n";
    }
  }

  ~Service() {
    if (pid_ > 0) end(SIGKILL);
    fclose(output_);
  }

  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  bool ready() const { return ready_; }

  // Sends a signal, unless it is 0, and waits. Returns the exit status, or -1 if a signal ended the
  // process.
  int end(int signal) {
    if (signal != 0) kill(pid_, signal);
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  FILE* output_ = nullptr;
  bool ready_ = false;
};

// Scans, checks the messages and waits until a channel plays.
void scan(Backend& backend, const char* source, int services, int frequencies) {
  const size_t from = backend.count();
  order(std::string(R"({"class":"SCAN","command":"start","src":")") + source + "\"}");
  const Json::Value over = backend.wait(
      from,
      [](const Json::Value& message) {
        return message["cbtype"] == "SCAN" && message["msg"] == "OVER";
      },
      "SCAN OVER");
  expectEqual(over["progress"].asInt(), 100, "progress");
  expectEqual(over["ser_found"].asInt(), services, "services found");
  expectEqual(over["tv_num"].asInt(), services, "TV services found");
  std::string messageOrder;
  int progress = -1;
  for (const Json::Value& message : backend.scans(from)) {
    messageOrder += message["msg"].asString() + " ";
    expect(message["progress"].asInt() >= progress, "the progress goes back");
    progress = message["progress"].asInt();
  }
  std::string wanted = "START ";
  for (int i = 0; i < frequencies; ++i) wanted += "PROGRESS ";
  expectEqual(messageOrder, wanted + "OVER ", "scan messages");
  backend.waitKind(from, "CHANNEL_PLAY_SUCCESS");
  backend.waitKind(from, "EPG_COMPLETE");
}

void expectCurrent(int major, int minor, const std::string& name) {
  const Answer current = send(R"({"class":"SRV","command":"GETCUR"})");
  expectEqual(current.result, 0, "GETCUR");
  expectEqual(current.reply["major"].asInt(), major, "major");
  expectEqual(current.reply["minor"].asInt(), minor, "minor");
  expectEqual(current.reply["chn_name"].asString(), name, "name");
}

void tryService(char** command) {
  expect(!serviceAnswers(), "a command is answered before the service runs: by this process?");
  static Backend backend;
  auto service = std::make_unique<Service>(command);
  expect(service->ready(), "the service does not start");
  expectEqual(ATSC_RegisterTVServerBackend(&backend), 0, "registration");
  expectEqual(ATSC_RegisterTVServerBackend(&backend), -1, "second registration");
  expectEqual(Service(command).end(0), 1, "exit status of a second service");
  expect(serviceAnswers(), "no answer");
  order(R"({"class":"FW","command":"INIT"})");
  backend.waitKind(0, "STT_UPDATE_EVENT");

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
  backend.waitKind(from, "CHANNEL_LOCKED");
  expectCurrent(9, 1, "HILL");
  from = backend.count();
  order(R"({"class":"FW","command":"CHANNELCHANGE","input":"VSB","mode":"UP"})");
  backend.waitKind(from, "CHANNEL_PLAY_SUCCESS");
  expectCurrent(9, 2, "HILL-NW");

  // The guide has texts for each channel of the current input source.
  expectEqual<std::string>(
      query("ATSC_EVENT_DB",
            (std::string("ATTACH '") + getenv("ATSC_CNAHHEL_DB") +
             "' AS list; SELECT c.name, count(*), max(start_time) - min(start_time), "
             "abs(min(start_time) - unixepoch()) < 3600 FROM event_t e "
             "JOIN list.channel_data_t c USING (ch_id_pk) GROUP BY c.ch_index ORDER BY c.name")
                .c_str()),
      "HARBOR|4|5400|1\nHARBOR2|4|5400|1\nHILL|4|5400|1\nHILL-NW|4|5400|1\n", "event_t");
  expectEqual<std::string>(
      events("SELECT DISTINCT name, \"desc\", rating FROM event_t WHERE genre = '34,'"),
      "The Long Way Home|A film in many parts.|TV-PG\n", "a film");

  // A restart changes nothing, whether the service was stopped or killed.
  const std::string before = allChannels();
  expectEqual<std::string>(channels("SELECT fav_group FROM channel_data_t WHERE name = 'HARBOR2'"),
                           "16\n", "favourite");
  for (const int signal : {SIGTERM, SIGKILL}) {
    expectEqual(service->end(signal), signal == SIGTERM ? 0 : -1, "exit status");
    expect(!serviceAnswers(), "a service that has ended answers");
    service = std::make_unique<Service>(command);
    expect(service->ready(), "the service does not start again");
    expectEqual(allChannels(), before, "channels after a restart");
    from = backend.count();
    order(R"({"class":"FW","command":"INIT"})");
    backend.waitKind(from, "EPG_COMPLETE");
    expectEqual<std::string>(events("SELECT count(*) FROM event_t"), "16\n", "event_t");
    order(R"({"class":"FW","command":"PLAY"})");
    expectCurrent(9, 2, "HILL-NW");
  }
  expectEqual(service->end(SIGTERM), 0, "exit status");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  try {
    tryService(argv + 1);
  } catch (const std::exception& e) {
    printf("minimal-tv: %s\n", e.what());
    return 1;
  }
  return 0;
}
