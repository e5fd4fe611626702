#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "logger_cpp.h"
#include "role.h"

namespace {

// A global of a program: logs before and after main().
struct Early {
  Early() { logger.Info("before main %d", 1); }
  ~Early() { logger.Error("after main"); }
  LoggerCpp logger{"not used", "early"};
} early;

TEST(Logger, ShowsLinesOfTheLevelAndAbove) {
  const char* const kLines[] = {"trace line", "debug line", "info line", "warn line", "error line"};
  const std::pair<const char*, size_t> kCases[] = {{"trace", 0}, {"debug", 1},    {"warn", 3},
                                                   {"error", 4}, {"err", 4},      {"off", 5},
                                                   {"loud", 2},  {"CRITICAL", 5}, {"Warning", 3}};
  for (const auto& [level, suppressed] : kCases) {
    Helper process({"levels"}, {{"SPDLOG_LEVEL", level}});
    EXPECT_EQ(process.wait(), 0);
    for (size_t i = 0; i < std::size(kLines); ++i)
      EXPECT_EQ(process.count(kLines[i]), i >= suppressed) << kLines[i] << " at " << level;
  }
}

TEST(Logger, LinesAreCompleteAndFormattedOnce) {
  ::unsetenv("SPDLOG_LEVEL");
  Helper process({"levels"});
  EXPECT_EQ(process.wait(), 0);
  const std::string log = process.err();
  EXPECT_EQ(process.count("[early] [info] before main 1\n"), 1u);
  EXPECT_EQ(process.count("[early] [error] after main\n"), 1u);
  EXPECT_EQ(process.count("braces {} {0} {:d} 100% \033[1m\n"), 1u) << "the text is not a format";
  for (const size_t length : {511, 512, 100000}) {
    EXPECT_EQ(process.count("<" + std::string(length - 2, 'x') + ">\n"), 1u) << length;
  }
  // Every line is "[2024-01-31 12:34:56.789] [...", so lines of threads are not mixed.
  size_t lines = 0;
  for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1, ++lines) {
    EXPECT_EQ(log[at], '[');
    EXPECT_EQ(log.substr(at + 24, 3), "] [") << log.substr(at, 80);
  }
  EXPECT_EQ(lines, 2u + 3u + 1u + 3u + 400u);
}

int levelsRole(const std::vector<std::string>&) {
  LoggerCpp logger("x", "test");
  logger.Trace("trace %s", "line");
  logger.Debug("debug %s", "line");
  logger.Info("info %s", "line");
  logger.Warn("warn %s", "line");
  logger.Error("error %s", "line");
  logger.Info("%s %d%% \033[1m", "braces {} {0} {:d}", 100);
  for (const size_t length : {511, 512, 100000}) {
    logger.Info("<%s>", std::string(length - 2, 'x').c_str());
  }
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&logger, i] {
      for (int line = 0; line < 100; ++line) logger.Info("thread %d line %d", i, line);
    });
  }
  for (std::thread& thread : threads) thread.join();
  return 0;
}

const AddRoles kAddLevels({{"levels", levelsRole}});

}  // namespace
