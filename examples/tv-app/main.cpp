// The smallest TV application: registers for callbacks, scans, lists the channels and plays the
// last.
//
//   tv-app [VSB|QAM]
//
// Reads the channels from the database in the environment variable ATSC_CNAHHEL_DB, by default from
// /mtd_rwarea/ATSCChannelData.db3. Exits with status 0 when the channel plays.
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <json/json.h>
#include <sqlite3.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// Receives the callbacks, on the BUS server thread of this process.
class Backend : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* command, char**) override {
    try {
      Json::Value message;
      std::istringstream(command) >> message;
      std::string kind = message["cbtype"].asString();
      if (kind == "SCAN") kind += " " + message["msg"].asString();
      if (kind != "SCAN PROGRESS") std::cout << "callback " << kind << std::endl;
      const std::lock_guard<std::mutex> lock(mutex_);
      heard_.insert(kind);
      changed_.notify_all();
      return 0;
    } catch (const std::exception& error) {
      std::cerr << "callback: " << error.what() << std::endl;
      return -1;
    }
  }

  // Waits for a callback of this kind. Returns at once if one was received since the last call.
  // Throws std::runtime_error after 60 seconds.
  void await(const std::string& kind) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (!changed_.wait_for(lock, std::chrono::seconds(60),
                           [&] { return heard_.erase(kind) > 0; })) {
      throw std::runtime_error("no callback " + kind);
    }
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::set<std::string> heard_;  // guarded by mutex_
};

// Sends a command to the service. Returns the reply, null if the command has none. Throws
// std::runtime_error if the command fails.
Json::Value send(const std::string& command) {
  char* text = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(command.c_str(), &text);
  const std::unique_ptr<char, void (*)(void*)> owned(text, std::free);
  if (result != 0) throw std::runtime_error("failed: " + command);
  Json::Value reply;
  if (text != nullptr) std::istringstream(text) >> reply;
  return reply;
}

struct Channel {
  int major = 0;
  int minor = 0;
  std::string name;
};

// Returns the channels of a table, sorted by number.
std::vector<Channel> readChannels(const std::string& table) {
  const char* path = std::getenv("ATSC_CNAHHEL_DB");
  if (path == nullptr) path = "/mtd_rwarea/ATSCChannelData.db3";
  sqlite3* opened = nullptr;
  const int status = sqlite3_open_v2(path, &opened, SQLITE_OPEN_READONLY, nullptr);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> database(opened, sqlite3_close);
  if (status != SQLITE_OK) throw std::runtime_error(std::string("cannot read ") + path);
  // The service may be writing at the same time.
  sqlite3_busy_timeout(opened, 5000);
  const std::string sql =
      "SELECT major_no, minor_no, name FROM " + table + " ORDER BY major_no, minor_no";
  sqlite3_stmt* prepared = nullptr;
  sqlite3_prepare_v2(opened, sql.c_str(), -1, &prepared, nullptr);
  const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> query(prepared, sqlite3_finalize);
  std::vector<Channel> channels;
  while (sqlite3_step(prepared) == SQLITE_ROW) {
    const unsigned char* name = sqlite3_column_text(prepared, 2);
    channels.push_back({sqlite3_column_int(prepared, 0), sqlite3_column_int(prepared, 1),
                        name != nullptr ? reinterpret_cast<const char*>(name) : ""});
  }
  return channels;
}

void run(const std::string& source) {
  // Static, as the library calls the backend until the process ends.
  static Backend backend;
  if (ATSC_RegisterTVServerBackend(&backend) != 0) {
    throw std::runtime_error("another TV application is registered");
  }
  send(R"({"class":"FW","command":"INIT"})");
  if (send(R"({"class":"CN","command":"GETCURSRC"})").isNull()) {
    throw std::runtime_error("no service runs");
  }

  send(R"({"class":"SCAN","command":"start","src":")" + source + "\"}");
  backend.await("SCAN OVER");

  const auto channels =
      readChannels(source == ATSC_INPUT_TERRESTRIAL_NAME ? "channel_data_t" : "channel_data_c");
  for (const Channel& channel : channels) {
    std::cout << channel.major << "-" << channel.minor << " " << channel.name << std::endl;
  }
  if (channels.empty()) throw std::runtime_error("no channel was found");

  const Channel& last = channels.back();
  send(R"({"class":"FW","command":"CHANNELCHANGE","input":")" + source + "\",\"major\":" +
       std::to_string(last.major) + ",\"minor\":" + std::to_string(last.minor) + "}");
  // Skips events of another channel: the command is only queued, and the library plays the first
  // channel at the end of the scan.
  Json::Value current;
  do {
    backend.await("CHANNEL_PLAY_SUCCESS");
    current = send(R"({"class":"SRV","command":"GETCUR"})");
  } while (current["major"] != last.major || current["minor"] != last.minor);
  std::cout << "playing " << current["major"] << "-" << current["minor"] << " "
            << current["chn_name"].asString() << std::endl;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(argc > 1 ? argv[1] : ATSC_INPUT_TERRESTRIAL_NAME);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "tv-app: " << error.what() << std::endl;
    return 1;
  }
}
