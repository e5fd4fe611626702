// One line a benchmark: what it costs us, what the floor costs, and the ratio of both.
#ifndef ATSC_BENCH_REPORT_H_
#define ATSC_BENCH_REPORT_H_

#include <benchmark/benchmark.h>

#include <functional>
#include <string>

namespace bench {

// Registers the pair: `ours` and `floor` are timed alternately in the same run, `iterations` calls
// each a repetition.
void add(const std::string& name, std::function<void()> ours, std::function<void()> floor,
         int iterations);

// The same for what takes its time elsewhere: `ours` and `floor` return the seconds of one call.
void addTimed(const std::string& name, std::function<double()> ours, std::function<double()> floor,
              int iterations);

// The microseconds of an earlier benchmark's `ours` become the floor of a line of their own:
// `name`, for how cost grows.
void addGrowth(const std::string& name, const std::string& of, const std::string& to);

// Runs all and prints; `--json` prints one JSON object a line. Returns the exit status of main().
int run(int argc, char** argv);

}  // namespace bench

#endif  // ATSC_BENCH_REPORT_H_
