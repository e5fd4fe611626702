// psipmux: writes transport streams from lineups.

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "calendar.h"
#include "lineup.h"
#include "mux.h"

namespace {

namespace fs = std::filesystem;

constexpr char kDescription[] =
    "Turn lineups (JSON) into an air folder of MPEG-2 transport streams.\n"
    "\n"
    "Writes DIR/vsb/FREQUENCY.ts for every channel of an air lineup and\n"
    "DIR/qam/FREQUENCY.ts for every channel of a cable lineup, frequencies in Hz.\n"
    "A stream carries PAT, PMT, MGT, VCT and STT and, if the lineup has them, guide (EIT,\n"
    "ETT), rating regions (RRT) and emergency alerts. It has 1000 packets per second and\n"
    "lasts 4 seconds, up to 16 seconds with a large guide. Play it in a loop. The tables\n"
    "announce audio and video, but no packets with those PIDs are sent.";

constexpr int kFailure = 1;
constexpr int kUsage = 2;

using psipmux::daysFromCivil;
using psipmux::kGpsEpoch;

/// Parses a time such as 2026-04-22T19:39:46Z. Returns the Unix time, or nothing if the text is
/// invalid.
std::optional<int64_t> parseTime(const std::string& text) {
  const std::string form = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != form.size()) return std::nullopt;
  std::array<int64_t, 6> fields{};
  size_t field = 0;
  for (size_t i = 0; i < form.size(); ++i) {
    if (form[i] == 'd') {
      if (text[i] < '0' || text[i] > '9') return std::nullopt;
      fields[field] = fields[field] * 10 + (text[i] - '0');
    } else {
      if (text[i] != form[i]) return std::nullopt;
      ++field;
    }
  }
  const int64_t year = fields[0], month = fields[1], day = fields[2];
  if (month < 1 || month > 12 || day < 1 || fields[3] > 23 || fields[4] > 59 || fields[5] > 59) {
    return std::nullopt;
  }
  const int64_t days = daysFromCivil(year, month, day);
  const int64_t nextMonth =
      month == 12 ? daysFromCivil(year + 1, 1, 1) : daysFromCivil(year, month + 1, 1);
  if (days >= nextMonth) return std::nullopt;
  return ((days * 24 + fields[3]) * 60 + fields[4]) * 60 + fields[5];
}

/// Converts a Unix time to system_time of the STT. Returns nothing if it exceeds the 32-bit field.
std::optional<uint32_t> toSystemTime(int64_t unixTime) {
  const int64_t seconds = unixTime - kGpsEpoch + psipmux::kGpsUtcOffset;
  // Times in the guide are up to 16 days and the length of a programme later.
  constexpr int64_t kGuide = 20 * 86400;
  if (unixTime < kGpsEpoch || seconds > INT64_C(0xFFFFFFFF) - kGuide) return std::nullopt;
  return static_cast<uint32_t>(seconds);
}

/// A file that is written under a temporary name in its folder. commit() renames it to its target;
/// the destructor removes it otherwise.
class PendingFile {
 public:
  PendingFile(fs::path target, const psipmux::Bytes& content) : target_(std::move(target)) {
    // Names may be taken by a killed process or, in a shared folder, by another machine.
    constexpr int kMostNames = 1000;
    const std::string name = "." + target_.filename().string() + "." + std::to_string(::getpid());
    int fd = -1;
    for (int i = 0; i < kMostNames && fd < 0 && (i == 0 || errno == EEXIST); ++i) {
      temporary_ = target_.parent_path() / (name + "-" + std::to_string(i));
      fd = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }
    if (fd < 0) {
      const int error = errno;
      temporary_.clear();
      fail(error);
    }
    int error = 0;
    for (size_t done = 0; done < content.size() && error == 0;) {
      const ssize_t count = ::write(fd, content.data() + done, content.size() - done);
      if (count >= 0) {
        done += static_cast<size_t>(count);
      } else if (errno != EINTR) {
        error = errno;
      }
    }
    if (::close(fd) != 0 && error == 0) error = errno;
    if (error != 0) {
      remove();
      fail(error);
    }
  }
  PendingFile(PendingFile&& other) noexcept
      : target_(std::move(other.target_)), temporary_(std::exchange(other.temporary_, {})) {}
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;
  PendingFile& operator=(PendingFile&&) = delete;
  ~PendingFile() { remove(); }

  void commit() {
    std::error_code error;
    fs::rename(temporary_, target_, error);
    if (error) fail(error.value());
    temporary_.clear();
  }

 private:
  void remove() noexcept {
    if (!temporary_.empty()) ::unlink(temporary_.c_str());
  }
  [[noreturn]] void fail(int error) const {
    throw std::runtime_error(target_.string() +
                             ": cannot write: " + std::generic_category().message(error));
  }

  fs::path target_;
  fs::path temporary_;
};

void run(const std::vector<std::string>& files, const fs::path& out, uint32_t systemTime) {
  std::vector<psipmux::Lineup> lineups;
  std::map<fs::path, std::string> firstUse;  // of each output file
  const auto output = [&](const psipmux::Lineup& lineup, const psipmux::Channel& channel) {
    return out / (lineup.medium == psipmux::Medium::kAir ? "vsb" : "qam") /
           (std::to_string(channel.frequency) + ".ts");
  };
  const auto path = [](size_t channel) { return "channels[" + std::to_string(channel) + "]"; };
  for (const std::string& file : files) {
    lineups.push_back(psipmux::readLineup(file));
    for (size_t i = 0; i < lineups.back().channels.size(); ++i) {
      const auto [use, inserted] = firstUse.emplace(
          output(lineups.back(), lineups.back().channels[i]), file + ": " + path(i) + ".frequency");
      if (!inserted) {
        throw psipmux::LineupError(file + ": " + path(i) + ".frequency: already used by " +
                                   use->second);
      }
    }
  }
  std::vector<PendingFile> pending;
  for (size_t l = 0; l < lineups.size(); ++l) {
    for (size_t i = 0; i < lineups[l].channels.size(); ++i) {
      const psipmux::Channel& channel = lineups[l].channels[i];
      const fs::path target = output(lineups[l], channel);
      try {
        const psipmux::Bytes stream = psipmux::multiplex(lineups[l], channel, systemTime);
        std::error_code error;
        fs::create_directories(target.parent_path(), error);
        if (error) {
          throw std::runtime_error(target.parent_path().string() +
                                   ": cannot create: " + error.message());
        }
        pending.emplace_back(target, stream);
      } catch (const psipmux::MuxError& error) {
        throw psipmux::LineupError(files[l] + ": " + path(i) + ": " + error.what());
      }
    }
  }
  for (PendingFile& file : pending) file.commit();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app(kDescription, "psipmux");
    app.set_version_flag("--version", std::string("psipmux ") + ATSC_VERSION);
    std::vector<std::string> files;
    std::string out;
    std::string start;
    app.add_option("LINEUP", files, "Lineups, one medium each")->required();
    app.add_option("--out", out, "Air folder to write to, created if missing")
        ->required()
        ->type_name("DIR");
    app.add_option(
           "--start", start,
           "UTC time at the start of the streams, such as 2026-04-22T19:39:46Z (default: now). "
           "Each loop starts again at this time, the guide with the three-hour period that "
           "contains "
           "it")
        ->type_name("TIME");
    try {
      app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
      if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
      std::cerr << "psipmux: " << error.what() << "; see psipmux --help\n";
      return kUsage;
    }
    const std::optional<int64_t> unixTime =
        app.count("--start") != 0 ? parseTime(start)
                                  : std::chrono::duration_cast<std::chrono::seconds>(
                                        std::chrono::system_clock::now().time_since_epoch())
                                        .count();
    const std::optional<uint32_t> systemTime =
        unixTime ? toSystemTime(*unixTime) : std::optional<uint32_t>();
    if (!systemTime) {
      std::cerr << "psipmux: --start: must be a UTC time of 1980-01-06 to 2116 such as "
                   "2026-04-22T19:39:46Z\n";
      return kUsage;
    }
    run(files, out, *systemTime);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "psipmux: " << error.what() << '\n';
    return kFailure;
  }
}
