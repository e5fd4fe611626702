// A TV application that reads the databases during a callback.
//
// tv_backend CHANNEL_DB EVENT_DB [HOLD]: registers, prints "ready" and then each callback as one
// line of JSON. Before it answers a callback, it counts the programmes and channels in the files
// over separate connections: members "programmes" (by channel key) and "channels". While the file
// HOLD exists, it prints "held" and does not answer.
//
// tv_backend --call COMMAND...: does not register, but sends the commands in turn forever. Prints
// "answer RESULT" for each command, or "lost" when there was no answer.
#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <atsc_host.h>
#include <json/json.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

namespace {

constexpr int kBusyTimeoutMs = 10000;

class Backend final : public ATSCBUS::ATSCTVServerBackend {
 public:
  Backend(std::string channels, std::string events, std::string hold)
      : channels_(std::move(channels)), events_(std::move(events)), hold_(std::move(hold)) {}

  int jsonCommand(const char* command, char**) override {
    try {
      Json::Value message;
      std::istringstream(command) >> message;
      count(message["programmes"], events_, "SELECT ch_id_pk, count(*) FROM event_t GROUP BY 1");
      count(message["programmes"], events_, "SELECT ch_id_pk, count(*) FROM event_c GROUP BY 1");
      count(message["channels"], channels_, "SELECT name, count(*) FROM channel_data_t GROUP BY 1");
      Json::StreamWriterBuilder builder;
      builder["indentation"] = "";
      std::cout << Json::writeString(builder, message) << std::endl;
      if (hold_.empty() || !std::filesystem::exists(hold_)) return 0;
      std::cout << "\"held\"" << std::endl;
      while (std::filesystem::exists(hold_)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
      }
      return 0;
    } catch (const std::exception& error) {
      std::cout << "\"" << error.what() << "\"" << std::endl;
      return -1;
    }
  }

 private:
  static void count(Json::Value& counts, const std::string& file, const char* sql) {
    try {
      SQLite::Database database(file, SQLite::OPEN_READONLY, kBusyTimeoutMs);
      SQLite::Statement query(database, sql);
      while (query.executeStep()) {
        counts[query.getColumn(0).getString()] = query.getColumn(1).getInt();
      }
    } catch (const SQLite::Exception&) {
      // No file or no table yet.
    }
  }

  const std::string channels_;
  const std::string events_;
  const std::string hold_;
};

[[noreturn]] void call(char** commands) {
  for (char** command = commands;; command = command[1] != nullptr ? command + 1 : commands) {
    const int result = ATSC_TransmitServiceClientJSONCommand(*command, nullptr);
    const bool answered = ATSC_host_last_transact() == 0;
    std::cout << (answered ? "answer " + std::to_string(result) : "lost") << std::endl;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  if (std::string(argv[1]) == "--call") call(argv + 2);
  // Never destroyed: the library may call it until the process ends.
  auto* backend = new Backend(argv[1], argv[2], argc > 3 ? argv[3] : "");
  if (ATSC_RegisterTVServerBackend(backend) != 0) return 1;
  std::cout << "\"ready\"" << std::endl;
  for (;;) pause();
}
