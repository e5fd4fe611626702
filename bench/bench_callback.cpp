// Compares the time from an event of the middleware to the TV application's backend in another
// process with the one-way time of a bare Unix socket between the same processes. Each process has
// its own core, if there are two, so that both paths have the same wake-ups.
#include <aifw.h>
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "process.h"
#include "report.h"

namespace {

// Size of a callback without further keys on the wire: frame header, item tag and size, text.
constexpr size_t kMessageBytes = 16 + 5 + 58;

// Shared by both processes.
struct Arrival {
  sem_t arrived;
  timespec time;
};

timespec now() {
  timespec time = {};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time;
}

Arrival* map(int file) {
  void* memory = mmap(nullptr, sizeof(Arrival), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  if (memory == MAP_FAILED) abort();
  return static_cast<Arrival*>(memory);
}

void arrive(Arrival& arrival) {
  arrival.time = now();
  sem_post(&arrival.arrived);
}

class Backend : public ATSCBUS::ATSCTVServerBackend {
 public:
  explicit Backend(Arrival& arrival) : arrival_(arrival) {}
  int jsonCommand(const char*, char**) override {
    arrive(arrival_);
    return 0;
  }

 private:
  Arrival& arrival_;
};

// The TV application's process: records the arrival of callbacks and bare messages.
[[noreturn]] void runTV(int memory, int socket) {
  bench::stayOnCore(false);
  Arrival& arrival = *map(memory);
  static Backend& backend = *new Backend(arrival);
  if (ATSC_RegisterTVServerBackend(&backend) != 0) {
    fprintf(stderr, "bench_callback: another TV application is registered\n");
    _exit(1);
  }
  arrive(arrival);
  std::array<char, kMessageBytes> message{};
  while (read(socket, message.data(), message.size()) > 0) arrive(arrival);
  _exit(0);
}

double secondsUntilArrival(Arrival& arrival, const timespec& start) {
  while (sem_wait(&arrival.arrived) != 0) {
  }
  return static_cast<double>(arrival.time.tv_sec - start.tv_sec) +
         static_cast<double>(arrival.time.tv_nsec - start.tv_nsec) * 1e-9;
}

// Returns whether the TV application answers within some seconds.
bool tvIsReady(Arrival& arrival) {
  timespec deadline = {};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 10;
  return sem_timedwait(&arrival.arrived, &deadline) == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 4 && strcmp(argv[1], "tv") == 0) runTV(atoi(argv[2]), atoi(argv[3]));
  // Both are inherited by the other process.
  const int memory = memfd_create("bench_callback", 0);
  int ends[2];
  if (memory < 0 || ftruncate(memory, sizeof(Arrival)) != 0 ||
      socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    perror("bench_callback");
    return 1;
  }
  Arrival& arrival = *map(memory);
  sem_init(&arrival.arrived, 1, 0);
  const Process tv({std::filesystem::read_symlink("/proc/self/exe"), "tv", std::to_string(memory),
                    std::to_string(ends[1])});
  int status = 1;
  bench::stayOnCore(true);
  if (tvIsReady(arrival)) {
    ATSC_Service_init(nullptr);
    bench::addTimed(
        "event to callback",
        [&arrival] {
          const timespec start = now();
          ATSC_Service_event_cb(AFW_VIEWING_DELAY, nullptr);
          return secondsUntilArrival(arrival, start);
        },
        [&arrival, socket = ends[0]] {
          const std::array<char, kMessageBytes> message{};
          const timespec start = now();
          if (write(socket, message.data(), message.size()) !=
              static_cast<ssize_t>(message.size())) {
            abort();
          }
          return secondsUntilArrival(arrival, start);
        },
        5000);
    status = bench::run(argc, argv);
  }
  fprintf(stderr, "%s", tv.err().c_str());
  return status;
}
