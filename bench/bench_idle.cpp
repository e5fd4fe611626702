// Measures an idle set: how soon a channel change starts, compared with the one-way time of a bare
// Unix socket between the same processes, and how often the two processes wake.
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <atsc_host.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "process.h"
#include "report.h"
#include "temporary_folder.h"

namespace {

using std::chrono::steady_clock;

// The size of kZap on the wire: frame header, tag, size and NUL of the text.
constexpr const char* kZap = R"({"class":"FW","command":"CHANNELCHANGE","major":5,"minor":1})";
constexpr size_t kFrameBytes = 16 + 5 + 1;
constexpr std::chrono::seconds kSettle{5}, kWatch{10};
// A channel change is followed by a pause of 100 ms.
constexpr std::chrono::milliseconds kIdleAfterZap{150};

int gArrivals = -1;  // socket of the service process

void arrive() {
  const auto time = steady_clock::now().time_since_epoch().count();
  if (write(gArrivals, &time, sizeof time) != sizeof time) abort();
}

// A service process without a receiver: tells when a bare message or a channel change arrives.
[[noreturn]] void serve(int messages, int arrivals) {
  gArrivals = arrivals;
  if (ATSC_host_claim(ATSC_HOST_SERVICE_NAME) != 0) _exit(1);
  ATSC_Service_init(nullptr);
  ATSC_host_serve(ATSC_HOST_SERVICE_NAME);
  arrive();
  std::string message(kFrameBytes + strlen(kZap), 0);
  while (read(messages, message.data(), message.size()) > 0) arrive();
  _exit(0);
}

// A TV application that prints its callbacks.
class Printer : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* text, char**) override {
    puts(text);
    return fflush(stdout);
  }
};

[[noreturn]] void runTV() {
  static Printer& printer = *new Printer;
  if (ATSC_RegisterTVServerBackend(&printer) != 0) _exit(1);
  printer.jsonCommand("ready", nullptr);
  for (;;) pause();
}

// Returns the seconds from before `send` to the arrival.
template <typename Send>
double secondsUntilArrival(int arrivals, Send send) {
  const auto begin = steady_clock::now().time_since_epoch().count();
  send();
  auto arrived = begin;
  if (read(arrivals, &arrived, sizeof arrived) != sizeof arrived) abort();
  return std::chrono::duration<double>(steady_clock::duration(arrived - begin)).count();
}

void transmit(const std::string& command) {
  if (ATSC_TransmitServiceClientJSONCommand(command.c_str(), nullptr) != 0) abort();
}

// Returns how often a process has woken, in all its threads.
double wakeUps(pid_t process) {
  double count = 0;
  const std::filesystem::path threads = "/proc/" + std::to_string(process) + "/task";
  for (const auto& thread : std::filesystem::directory_iterator(threads)) {
    std::ifstream status(thread.path() / "status");
    for (std::string word; status >> word;) {
      if (word != "voluntary_ctxt_switches:") continue;
      double switches = 0;
      status >> switches;
      count += switches;
    }
  }
  return count;
}

// Wake-ups a second.
struct WakeUps {
  double service;
  double tv;
};

// Watches a set that has scanned and plays nothing.
WakeUps watchIdleSet(const std::string& air, const std::string& self) {
  const auto expect = [](bool good, const Process& process) {
    if (good) return;
    fprintf(stderr, "bench_idle: %s%s\n", process.out().c_str(), process.err().c_str());
    abort();
  };
  Process psipmux({PSIPMUX, LINEUPS "/metro-air.json", "--out", air});
  expect(psipmux.wait() == 0, psipmux);
  Process service({ATSC_SERVICE, "--air", air, "--db", air + ".db"});
  expect(service.says("ready"), service);
  Process tv({self, "tv"});
  expect(tv.says("ready"), tv);
  transmit(R"({"class":"FW","command":"INIT"})");
  transmit(R"({"class":"SCAN","command":"start","src":"VSB"})");
  expect(tv.says("\"OVER\"") && tv.says("CHANNEL_PLAY_SUCCESS"), tv);
  transmit(R"({"class":"FW","command":"STOP"})");
  std::this_thread::sleep_for(kSettle);
  const WakeUps before{wakeUps(service.pid()), wakeUps(tv.pid())};
  std::this_thread::sleep_for(kWatch);
  const auto seconds = static_cast<double>(kWatch.count());
  return {(wakeUps(service.pid()) - before.service) / seconds,
          (wakeUps(tv.pid()) - before.tv) / seconds};
}

}  // namespace

// Stands before that of the platform.
extern "C" int AIFW_channel_change(const AIFW_channel_change_request*) {
  arrive();
  return 0;
}

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "serve") == 0) serve(atoi(argv[2]), atoi(argv[3]));
  if (argc == 2 && strcmp(argv[1], "tv") == 0) runTV();
  const TemporaryFolder temporary;
  const std::string folder = temporary.path();
  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const std::map<std::string, std::string> state{{"ATSC_HOST_STATE", folder + "/state"}};
  int messages[2], arrivals[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, messages) != 0 ||
      socketpair(AF_UNIX, SOCK_STREAM, 0, arrivals) != 0) {
    perror("bench_idle");
    return 1;
  }
  Process zapped({self, "serve", std::to_string(messages[1]), std::to_string(arrivals[1])}, state);
  const auto idle = [] { std::this_thread::sleep_for(kIdleAfterZap); };
  secondsUntilArrival(arrivals[0], [] {});
  bench::addTimed(
      "zap to channel change",
      [&] {
        idle();
        return secondsUntilArrival(arrivals[0], [] { transmit(kZap); });
      },
      [&] {
        idle();
        return secondsUntilArrival(arrivals[0], [&] {
          const std::string message(kFrameBytes + strlen(kZap), 0);
          if (write(messages[0], message.data(), message.size()) !=
              static_cast<ssize_t>(message.size()))
            abort();
        });
      },
      5);
  WakeUps idleSet{};
  bench::addFigure("idle service", "wake-ups a second", [&] {
    zapped.kill();
    idleSet = watchIdleSet(folder + "/air", self);
    return idleSet.service;
  });
  bench::addFigure("idle TV application", "wake-ups a second", [&] { return idleSet.tv; });
  return bench::run(argc, argv);
}
