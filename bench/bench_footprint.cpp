// Measures the time of the service from exec to its first answered command, compared with a process
// that only loads the libraries; and its memory after scans of the sample broadcast, with a large
// guide, and when that guide has gone.
#include <atsc/atsc_service.h>
#include <atsc_host.h>
#include <json/json.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "listener.h"
#include "process.h"
#include "report.h"
#include "temporary_folder.h"
#include "wait.h"

namespace {

constexpr int kStarts = 10;
// After the last callback of a scan the service still works on what it has found.
constexpr std::chrono::seconds kSettled{2};
// With this argument the program only loads the libraries and ends.
constexpr const char* kLoadOnly = "--load-only";

void run(const std::vector<std::string>& words) {
  Process process(words);
  // Process::wait() would look only every few milliseconds.
  siginfo_t end;
  if (waitid(P_PID, static_cast<id_t>(process.pid()), &end, WEXITED | WNOWAIT) != 0) abort();
  if (process.wait() != 0) abort();
}

bool answers() {
  char* text = nullptr;
  const int result =
      ATSC_TransmitServiceClientJSONCommand(R"({"class":"TIME","command":"GETCUR"})", &text);
  const bool answered = result == 0 && text != nullptr;
  free(text);
  return answered;
}

// A service on an air folder that answers commands.
class Service {
 public:
  Service(const std::string& air, const std::string& folder)
      : process_({ATSC_SERVICE, "--air", air, "--db", folder}) {
    while (ATSC_host_find(ATSC_HOST_SERVICE_NAME) != process_.pid() || !answers()) {
      if (!process_.alive()) abort();
      // Leaves the processor to the service.
      std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
  }

  ~Service() {
    process_.signal(SIGTERM);
    if (process_.wait() != 0) abort();
  }

  pid_t child() const { return process_.pid(); }

 private:
  Process process_;
};

template <typename Work>
double seconds(Work work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double startSeconds(const std::string& air, const std::string& folder) {
  const auto begin = std::chrono::steady_clock::now();
  const Service service(air, folder);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void scan(Listener& listener, const char* source) {
  const size_t from = listener.count();
  const std::string command =
      std::string(R"({"class":"SCAN","command":"start","src":")") + source + "\"}";
  if (ATSC_TransmitServiceClientJSONCommand(command.c_str(), nullptr) != 0) abort();
  const auto hears = [&](const char* kind) { return !listener.heard(from, kind).empty(); };
  if (!eventually([&] { return hears("OVER") && hears("EPG_COMPLETE"); })) abort();
}

// Returns the resident KiB of a process by mapping: a file's name, or memory without a name.
std::map<std::string, long> residentMemory(pid_t process) {
  std::map<std::string, long> parts;
  std::ifstream maps("/proc/" + std::to_string(process) + "/smaps");
  std::string part;
  for (std::string line; std::getline(maps, line);) {
    const size_t colon = line.find(':');
    long size = 0;
    if (colon != std::string::npos && line.find('-') < colon) {
      // ADDRESS-ADDRESS RIGHTS OFFSET DEVICE INODE      NAME
      const size_t slash = line.rfind('/');
      const bool heap = line.find("[heap]") != std::string::npos;
      part = slash != std::string::npos ? line.substr(slash + 1)
             : heap                     ? "heap"
                                        : "thread stacks and arenas";
    } else if (sscanf(line.c_str(), "Rss: %ld kB", &size) == 1) {
      parts[part] += size;
    }
  }
  return parts;
}

long totalOf(const std::map<std::string, long>& parts) {
  long total = 0;
  for (const auto& [name, size] : parts) total += size;
  return total;
}

// Prints a line with the resident KiB of a process and its largest parts; `before`, if not 0, is
// what it is compared with.
void reportMemory(const char* title, pid_t process, long before, bool json) {
  const auto byName = residentMemory(process);
  const long total = totalOf(byName);
  std::vector<std::pair<long, std::string>> parts;
  for (const auto& [name, size] : byName) parts.emplace_back(size, name);
  std::sort(parts.rbegin(), parts.rend());
  parts.resize(std::min<size_t>(parts.size(), 5));
  if (json) {
    Json::Value line;
    line["name"] = title;
    line["ours"] = static_cast<Json::Int64>(total);
    line["unit"] = "KiB";
    if (before != 0) {
      line["floor"] = static_cast<Json::Int64>(before);
      line["ratio"] = static_cast<double>(total) / static_cast<double>(before);
    }
    for (const auto& [size, name] : parts) {
      line["mostly"][name] = static_cast<Json::Int64>(size);
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    printf("%s\n", Json::writeString(builder, line).c_str());
    return;
  }
  printf("%-44s ours %10ld", title, total);
  if (before != 0) printf("  base  %10ld", before);
  printf("  KiB");
  if (before != 0)
    printf("  ratio %5.2f", static_cast<double>(total) / static_cast<double>(before));
  printf("  mostly");
  for (const auto& [size, name] : parts) {
    printf("%s %s %ld", &name == &parts.front().second ? "" : ",", name.c_str(), size);
  }
  printf("\n");
}

// Writes a lineup of 12 services with 55,000 programmes.
void writeLargeGuide(const std::string& file) {
  constexpr int kCarriers = 6;
  Json::Value root;
  root["medium"] = "air";
  root["guide_hours"] = 384;
  for (int carrier = 0; carrier < kCarriers; ++carrier) {
    Json::Value& channel = root["channels"][carrier];
    channel["frequency"] = 183000000 + carrier * 6000000;
    channel["tsid"] = 1 + carrier;
    for (int at = 0; at < 2; ++at) {
      Json::Value& service = channel["services"][at];
      service["program"] = at + 1;
      service["pmt_pid"] = 48 + at;
      service["major"] = 5 + carrier;
      service["minor"] = at + 1;
      service["name"] = "L" + std::to_string(2 * carrier + at);
      service["source_id"] = 2 * carrier + at + 1;
      Json::Value stream;
      stream["type"] = "mpeg2-video";
      stream["pid"] = 1024 + at;
      service["streams"].append(stream);
      for (const char* rating : {"TV-G", "TV-PG", "TV-14-D-L", "TV-MA"}) {
        Json::Value programme;
        programme["minutes"] = 5;
        programme["title"] = std::string("A programme that is rated ") + rating;
        programme["rating"] = rating;
        service["programmes"].append(programme);
      }
    }
  }
  std::ofstream(file) << root;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && strcmp(argv[1], kLoadOnly) == 0) return 0;
  const TemporaryFolder temporary;
  const std::string folder = temporary.path();
  unsetenv("ATSC_HOST_STATE");
  const std::string air = folder + "/air";
  run({PSIPMUX, LINEUPS "/metro-air.json", LINEUPS "/metro-cable.json", "--out", air});

  const std::string self = std::filesystem::read_symlink("/proc/self/exe");
  const auto load = [self] { return seconds([&] { run({self, kLoadOnly}); }); };
  const auto first = [&](const std::string& database) {
    std::filesystem::remove_all(database);
    return startSeconds(air, database);
  };
  // A new database each time, on the disk and in memory: the difference is the time of the disk.
  bench::addTimed(
      "exec to first answer, first start", [&] { return first(folder + "/new"); }, load, kStarts);
  const TemporaryFolder temporaryMemory(TemporaryFolder::memory());
  const std::string memory = temporaryMemory.path();
  bench::addTimed(
      "the same without a disk", [&] { return first(memory + "/new"); }, load, kStarts);

  const std::string scanned = folder + "/db";
  static Listener listener;
  {
    const Service service(air, scanned);
    if (ATSC_RegisterTVServerBackend(&listener) != 0) return 1;
    ATSC_TransmitServiceClientJSONCommand(R"({"class":"FW","command":"INIT"})", nullptr);
    scan(listener, "VSB");
    scan(listener, "QAM");
    const bool json = argc == 2;
    reportMemory("service memory after both scans", service.child(), 0, json);
    const long before = totalOf(residentMemory(service.child()));
    // The terrestrial stations make way for others, and return.
    std::filesystem::copy(scanned, folder + "/scanned");
    const std::string small = air + "/vsb", large = folder + "/large";
    writeLargeGuide(folder + "/large.json");
    run({PSIPMUX, folder + "/large.json", "--out", large});
    std::filesystem::rename(small, air + "/away");
    std::filesystem::rename(large + "/vsb", small);
    scan(listener, "VSB");
    std::this_thread::sleep_for(kSettled);
    reportMemory("service memory with 55,000 programmes", service.child(), before, json);
    std::filesystem::rename(small, large + "/vsb");
    std::filesystem::rename(air + "/away", small);
    scan(listener, "VSB");
    std::this_thread::sleep_for(kSettled);
    reportMemory("service memory after that guide", service.child(), before, json);
  }
  bench::addTimed(
      "exec to first answer, after a scan", [&] { return startSeconds(air, folder + "/scanned"); },
      load, kStarts);
  std::filesystem::copy(folder + "/scanned", memory + "/db");
  bench::addTimed(
      "exec to first answer, after a scan, no disk",
      [&] { return startSeconds(air, memory + "/db"); }, load, kStarts);
  return bench::run(argc, argv);
}
