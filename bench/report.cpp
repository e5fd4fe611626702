#include "report.h"

#include <json/json.h>
#include <sched.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <vector>

namespace bench {

namespace {

constexpr int kRepetitions = 7;

struct Growth {
  std::string name;
  std::string of;
  std::string to;
};

struct Figure {
  std::string name;
  std::string unit;
  std::function<double()> ours;
  std::function<double()> floor;
};

std::vector<std::string>& names() {
  static std::vector<std::string> list;
  return list;
}

std::vector<Growth>& growths() {
  static std::vector<Growth> list;
  return list;
}

std::vector<Figure>& figures() {
  static std::vector<Figure> list;
  return list;
}

// Collects the median of every benchmark, in microseconds.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& /*context*/) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) failed = run.error_message;
      if (run.aggregate_name == "median") {
        medians[run.run_name.function_name] = run.GetAdjustedRealTime();
      }
    }
  }

  std::map<std::string, double> medians;
  std::string failed;
};

// `base` is the name of the floor; null without one.
void print(const std::string& name, double ours, const char* base, double floor,
           const std::string& unit, bool json) {
  if (json) {
    Json::Value line;
    line["name"] = name;
    line["ours"] = ours;
    line["unit"] = unit;
    if (base != nullptr) {
      line["floor"] = floor;
      line["ratio"] = ours / floor;
    }
    Json::StreamWriterBuilder builder;
    builder["indentation"] = "";
    printf("%s\n", Json::writeString(builder, line).c_str());
  } else if (base == nullptr) {
    printf("%-44s ours %10.1f                    %s\n", name.c_str(), ours, unit.c_str());
  } else {
    printf("%-44s ours %10.1f  %s %10.1f  %s  ratio %5.2f\n", name.c_str(), ours, base, floor,
           unit.c_str(), ours / floor);
  }
}

benchmark::internal::Benchmark* registerOne(const std::string& name,
                                            std::function<void(benchmark::State&)> body,
                                            int iterations) {
  return benchmark::RegisterBenchmark(name.c_str(), std::move(body))
      ->Iterations(iterations)
      ->Repetitions(kRepetitions)
      ->ReportAggregatesOnly()
      ->Unit(benchmark::kMicrosecond);
}

void registerCalls(const std::string& name, std::function<void()> body, int iterations) {
  registerOne(
      name,
      [body = std::move(body)](benchmark::State& state) {
        for (auto _ : state) body();
      },
      iterations)
      ->UseRealTime();
}

void registerTimed(const std::string& name, std::function<double()> body, int iterations) {
  registerOne(
      name,
      [body = std::move(body)](benchmark::State& state) {
        for (auto _ : state) state.SetIterationTime(body());
      },
      iterations)
      ->UseManualTime();
}

}  // namespace

void add(const std::string& name, std::function<void()> ours, std::function<void()> floor,
         int iterations) {
  names().push_back(name);
  registerCalls(name + ":ours", std::move(ours), iterations);
  registerCalls(name + ":floor", std::move(floor), iterations);
}

void addTimed(const std::string& name, std::function<double()> ours, std::function<double()> floor,
              int iterations) {
  names().push_back(name);
  registerTimed(name + ":ours", std::move(ours), iterations);
  registerTimed(name + ":floor", std::move(floor), iterations);
}

void addGrowth(const std::string& name, const std::string& of, const std::string& to) {
  growths().push_back({name, of, to});
}

void addFigure(const std::string& name, const std::string& unit, std::function<double()> ours,
               std::function<double()> floor) {
  figures().push_back({name, unit, std::move(ours), std::move(floor)});
}

void stayOnCore(bool first) {
  static const cpu_set_t allowed = [] {
    cpu_set_t set;
    CPU_ZERO(&set);
    sched_getaffinity(0, sizeof set, &set);
    return set;
  }();
  cpu_set_t one;
  CPU_ZERO(&one);
  for (int core = 0; core < CPU_SETSIZE; ++core) {
    if (!CPU_ISSET(core, &allowed)) continue;
    CPU_ZERO(&one);
    CPU_SET(core, &one);
    if (first) break;
  }
  sched_setaffinity(0, sizeof one, &one);
}

int run(int argc, char** argv) {
  const bool json = argc == 2 && strcmp(argv[1], "--json") == 0;
  if (argc > 1 && !json) {
    fprintf(stderr, "usage: %s [--json]\n", argv[0]);
    return 2;
  }
  // Runs ours and floor alternately, so that both have the same conditions.
  std::string interleaving = "--benchmark_enable_random_interleaving=true";
  char* arguments[] = {argv[0], &interleaving[0], nullptr};
  int count = 2;
  benchmark::Initialize(&count, arguments);
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  if (!collector.failed.empty()) {
    fprintf(stderr, "benchmark failed: %s\n", collector.failed.c_str());
    return 1;
  }
  for (const std::string& name : names()) {
    print(name, collector.medians[name + ":ours"], "floor", collector.medians[name + ":floor"],
          "us", json);
  }
  for (const Growth& growth : growths()) {
    print(growth.name, collector.medians[growth.of + ":ours"], "base ",
          collector.medians[growth.to + ":ours"], "us", json);
  }
  for (const Figure& figure : figures()) {
    const double ours = figure.ours();
    print(figure.name, ours, figure.floor ? "floor" : nullptr, figure.floor ? figure.floor() : 0,
          figure.unit, json);
  }
  return 0;
}

}  // namespace bench
