// atsc-web: a TV application whose screen is a page in a browser.

#include <sys/syscall.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>

#include "common/database_files.h"
#include "common/process.h"
#include "guide/guide_routes.h"
#include "guide/guide_store.h"
#include "http/event_hub.h"
#include "http/router.h"
#include "http/server.h"
#include "http/token.h"
#include "television/television_routes.h"

namespace {

constexpr int kFailure = 1;
constexpr int kUsage = 2;
constexpr uint16_t kDefaultPort = 8077;
constexpr unsigned kPatience = 3;  // seconds

struct Options {
  std::string db;
  uint16_t port = kDefaultPort;
  std::string listen;
  std::string tokenFile;
  bool noConsole = false;
  std::string state;
};

// The PIN belongs to the user, not to a broadcast.
std::string pinFile(const Options& options) {
  const auto variable = [](const char* name) -> std::filesystem::path {
    const char* const value = getenv(name);
    return value != nullptr ? value : "";
  };
  std::filesystem::path folder = options.state;
  if (folder.empty()) {
    // XDG base directories, which ignore relative paths.
    const std::filesystem::path state = variable("XDG_STATE_HOME");
    const std::filesystem::path home = variable("HOME");
    folder = state.is_absolute() ? state / "atsc"
             : home.is_absolute()
                 ? home / ".local" / "state" / "atsc"
                 : std::filesystem::path(apps::databaseFiles(options.db).channels).parent_path();
  }
  return std::filesystem::absolute(folder / "atsc-web.pin").string();
}

void run(const Options& options) {
  web::Router router;
  web::EventHub hub;
  // Before the television: whoever cannot listen takes nobody's place as the TV application.
  web::HttpServer::Options http;
  http.address = options.listen;
  http.port = options.port;
  if (!options.tokenFile.empty()) http.token = web::readToken(options.tokenFile);
  web::HttpServer server(http, router, hub);
  web::addEventRoutes(router, hub);
  web::GuideStore guide(apps::databaseFiles(options.db));
  web::addGuideRoutes(router, guide);
  web::Television television(guide, hub, {pinFile(options), ATSC_VERSION, !options.noConsole});
  web::addTelevisionRoutes(router, television);
  server.start();
  std::cout << "atsc-web: " << server.url() << std::endl;
  apps::waitForStop();
  // A service that hangs keeps the thread that asked it. Without what sanitizers do in _exit():
  // that thread is left on purpose.
  signal(SIGALRM, [](int) { syscall(SYS_exit_group, 0); });
  alarm(kPatience);
  server.stop();
}

// Reads the command line. Returns the exit status if the program ends with that. The parser is gone
// while the program runs.
std::optional<int> parse(int argc, char** argv, Options& options) {
  CLI::App app(
      "A TV application whose screen is a page in a browser: banner, guide, scan, channels,\n"
      "parental control, alerts and settings of the ATSC service, with its callbacks and a\n"
      "command console for developers. Ends with SIGTERM or SIGINT.",
      "atsc-web");
  app.set_version_flag("--version", "atsc-web " ATSC_VERSION);
  app.add_option("--db", options.db, apps::kDatabaseFolderHelp)->option_text("DIR");
  app.add_option("--port", options.port, "TCP port of the page (default: 8077)")
      ->check(CLI::Range(1u, 65535u))
      ->option_text("N");
  app.add_option("--listen", options.listen,
                 "IP address to listen on (default: this machine only, 127.0.0.1 and ::1); any "
                 "other one needs --token-file")
      ->option_text("ADDRESS");
  app.add_option("--token-file", options.tokenFile,
                 "File with a secret of 16 or more characters, which each browser has to give "
                 "once; only its owner may have access to the file")
      ->option_text("FILE");
  app.add_flag("--no-console", options.noConsole, "Refuse commands that are typed in the console");
  app.add_option("--state", options.state,
                 "Folder where the program keeps the PIN (default: $XDG_STATE_HOME/atsc)")
      ->option_text("DIR");
  app.footer("Exit status: 0 ended by a signal; 1 failure; 2 wrong arguments.");
  try {
    app.parse(argc, argv);
    if (!options.listen.empty()) web::checkListen(options.listen, !options.tokenFile.empty());
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
    std::cerr << "atsc-web: " << error.what() << "; see atsc-web --help\n";
    return kUsage;
  } catch (const std::invalid_argument& error) {
    std::cerr << "atsc-web: " << error.what() << "; see atsc-web --help\n";
    return kUsage;
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    apps::prepareProcess();
    Options options;
    if (const std::optional<int> status = parse(argc, argv, options)) return *status;
    run(options);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "atsc-web: " << error.what() << '\n';
    return kFailure;
  }
}
