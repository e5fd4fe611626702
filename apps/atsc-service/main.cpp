// atsc-service: the service process on a PC. Receives the broadcast of an air folder, keeps the
// databases and answers TV applications.

#include <atsc/atsc_service.h>
#include <atsc_host.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

#include "common/database_files.h"
#include "common/process.h"
#include "common/utc_time.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;

// Names the folder with the state of the receiver.
constexpr const char* kStateVariable = "ATSC_HOST_STATE";
constexpr const char* kStateFiles[] = {"services.json", "settings.json", "parental.json",
                                       "regions.json"};

struct Options {
  std::string air;
  std::string db;
  std::optional<unsigned int> dwell;
  std::string clock;
  bool fast = false;
};

// Checks the receiver's state files, and warns about folders in which other users can replace the
// files that the service creates later.
void prepareState(const apps::DatabaseFiles& files) {
  std::set<std::string> folders = {std::filesystem::path(files.channels).parent_path(),
                                   std::filesystem::path(files.events).parent_path()};
  if (const char* state = getenv(kStateVariable); state != nullptr && *state != '\0') {
    for (const char* file : kStateFiles) {
      const std::string path = std::filesystem::path(state) / file;
      apps::refusePlanted(path);
      apps::refusePlanted(path + ".new");
    }
    folders.insert(state);
  }
  for (const std::string& folder : folders) {
    if (!apps::everyUserCanWrite(folder.empty() ? "." : folder)) continue;
    std::cerr << "atsc-service: warning: every user can change the files in " << folder
              << std::endl;
  }
}

// Updates the channel tables from the receiver's list. After a power cut between writing the two,
// they may hold different channels but equally many of them. The start-up of the databases compares
// only how many there are.
void bringTablesInLine() {
  bool changed = false;
  for (const int input : {ATSC_INPUT_TERRESTRIAL, ATSC_INPUT_CABLE}) {
    changed = ATSC_Service_db_UpdateChannel(input) != 0 || changed;
  }
  if (changed) ATSC_Service_event_cb_Ex();
}

// Notifies a waiting service manager that the service answers TV applications from now on, with the
// message of sd_notify(3). Does nothing without a service manager.
void notifyReady() {
  const char* const path = getenv("NOTIFY_SOCKET");
  sockaddr_un address = {};
  const size_t size = path != nullptr ? strlen(path) : 0;
  if (size < 2 || size >= sizeof address.sun_path) return;
  address.sun_family = AF_UNIX;
  memcpy(address.sun_path, path, size);
  if (path[0] == '@') address.sun_path[0] = '\0';
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  constexpr char kReady[] = "READY=1";
  if (sendto(manager, kReady, sizeof kReady - 1, MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(&address),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + size)) < 0) {
    std::cerr << "atsc-service: warning: cannot notify the service manager at " << path << ": "
              << strerror(errno) << std::endl;
  }
  close(manager);
}

void run(const Options& options) {
  if (!options.air.empty()) ATSC_host_set_air(options.air.c_str());
  if (options.dwell) ATSC_host_set_dwell(*options.dwell);
  if (!options.clock.empty()) ATSC_host_set_clock(apps::parseUtcTime(options.clock));
  if (options.fast) ATSC_host_set_fast(1);
  apps::DatabaseFiles files = apps::databaseFiles(options.db);
  // Claims the name first: two services must never use the same databases.
  const int owner = ATSC_host_claim(ATSC_HOST_SERVICE_NAME);
  if (owner > 0) {
    throw std::runtime_error("a service runs already, process " + std::to_string(owner));
  }
  if (owner != 0) {
    throw std::runtime_error(std::string("cannot serve the name ") + ATSC_HOST_SERVICE_NAME +
                             ": /tmp/.BUS." + ATSC_HOST_SERVICE_NAME +
                             " or its lock is not free, see the log");
  }
  apps::prepareDatabaseFiles(&files);
  setenv(apps::kChannelDatabaseVariable, files.channels.c_str(), 1);
  setenv(apps::kEventDatabaseVariable, files.events.c_str(), 1);
  if (const char* state = getenv(kStateVariable);
      !options.db.empty() && (state == nullptr || *state == '\0')) {
    setenv(kStateVariable, options.db.c_str(), 1);
  }
  prepareState(files);
  // These values are meant for the tuner of a set; this receiver needs no extra time.
  ATSCCustomizedParameter customized = {};
  ATSC_Service_init(&customized);
  ATSC_Service_db_init();
  // Before the comparison: it writes the tables, and seldom finds a difference.
  ATSC_host_serve(ATSC_HOST_SERVICE_NAME);
  bringTablesInLine();

  std::cerr << "atsc-service: ready; air folder " << (options.air.empty() ? "not set" : options.air)
            << ", database folder "
            << std::filesystem::absolute(files.channels).parent_path().string() << std::endl;
  notifyReady();
  apps::waitForStop();
}

// Reads the command line. Returns the exit status if the program ends with that. The parser is gone
// while the service runs.
std::optional<int> parse(int argc, char** argv, Options& options) {
  CLI::App app(
      "The ATSC service process: receives the broadcast of an air folder, keeps the channel and\n"
      "event databases and answers TV applications such as atsc-tv. Ends with SIGTERM or SIGINT.",
      "atsc-service");
  app.set_version_flag("--version", "atsc-service " ATSC_VERSION);
  app.add_option("--air", options.air,
                 "Folder with the broadcast: vsb/FREQUENCY.ts and qam/FREQUENCY.ts, frequencies "
                 "in Hz; default: $ATSC_AIR")
      ->envname("ATSC_AIR")
      ->check(CLI::ExistingDirectory)
      ->option_text("DIR");
  app.add_option("--db", options.db,
                 std::string(apps::kDatabaseFolderHelp) +
                     "; keeps the receiver's service list too, unless ATSC_HOST_STATE names "
                     "another folder for it")
      ->option_text("DIR");
  // The maximum is long enough for any tuner, and shorter than the time for which TV applications
  // wait for progress.
  app.add_option("--dwell", options.dwell,
                 "Milliseconds that a scan stays on a frequency, at most 5000 (default: 20)")
      ->check(CLI::Range(0u, 5000u))
      ->option_text("MS");
  app.add_option("--clock", options.clock,
                 std::string("Start the receiver's clock at this time instead of setting it by "
                             "the broadcast: ") +
                     apps::kUtcTimeForm)
      ->check(apps::utcTimeFault)
      ->option_text("TIME");
  app.add_flag("--fast", options.fast,
               "Read a playing stream as fast as it can be read, not at its own pace");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    std::cerr << "atsc-service: " << error.what() << "; see atsc-service --help\n";
    return kUsage;
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    apps::prepareProcess();
    // The library's output is read while the service runs.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    Options options;
    if (const std::optional<int> status = parse(argc, argv, options)) return *status;
    run(options);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "atsc-service: " << error.what() << '\n';
    return kFailure;
  }
}
