// Prints one line per benchmark: our cost, the cost of the floor, and the ratio of both.
#ifndef ATSC_BENCH_REPORT_H_
#define ATSC_BENCH_REPORT_H_

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

// Registers a pair: `ours` and `floor` are timed alternately in the same run, `iterations` calls
// per repetition.
void add(const std::string& name, std::function<void()> ours, std::function<void()> floor,
         int iterations);

// Like add(), for time that is spent in another process: `ours` and `floor` return the seconds of
// one call.
void addTimed(const std::string& name, std::function<double()> ours, std::function<double()> floor,
              int iterations);

// Adds the line `name`, which compares the `ours` of two earlier benchmarks: `of`, with `to` as the
// floor. Shows how the cost grows.
void addGrowth(const std::string& name, const std::string& of, const std::string& to);

// Adds the line `name` for a figure that is not a time: `ours` and `floor` are called once and
// return it in `unit`. Without a floor there is no ratio.
void addFigure(const std::string& name, const std::string& unit, std::function<double()> ours,
               std::function<double()> floor = nullptr);

// Binds the calling thread, and threads and processes that it starts, to the first or last core
// that is available at the first call. For costs that depend on the wake-ups between cores.
void stayOnCore(bool first);

// Runs all benchmarks and prints the lines; with `--json` one JSON object per line. Returns the
// exit status for main().
int run(int argc, char** argv);

}  // namespace bench

#endif  // ATSC_BENCH_REPORT_H_
