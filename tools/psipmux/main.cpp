// psipmux: turns lineups into an air folder of transport streams.

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
    "A stream holds PAT, PMT, MGT, VCT and STT, and what the lineup says of guide (EIT,\n"
    "ETT), rating regions (RRT) and emergency alerts. It has 1000 packets a second, is\n"
    "4 seconds long, with a large guide up to 16, and is meant to be played in a loop.\n"
    "The tables announce audio and video, but none is carried: those PIDs stay silent.";

constexpr int kFailure = 1;
constexpr int kUsage = 2;

using psipmux::daysFromCivil;
using psipmux::kGpsEpoch;

/// Unix time of a text like 2026-04-22T19:39:46Z, or nothing when it is not such a time.
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

/// STT system_time of a Unix time, or nothing when it lies outside the 32-bit field.
std::optional<uint32_t> toSystemTime(int64_t unixTime) {
  const int64_t seconds = unixTime - kGpsEpoch + psipmux::kGpsUtcOffset;
  // The guide reaches past the present by 16 days and the length of its last programme.
  constexpr int64_t kGuide = 20 * 86400;
  if (unixTime < kGpsEpoch || seconds > INT64_C(0xFFFFFFFF) - kGuide) return std::nullopt;
  return static_cast<uint32_t>(seconds);
}

/// A file under a temporary name in its folder. It gets its own name by commit() and is removed
/// when that never comes.
class PendingFile {
 public:
  PendingFile(fs::path target, const psipmux::Bytes& content) : target_(std::move(target)) {
    // A run that was killed may have left a file, and another machine may use the folder too.
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
  std::map<fs::path, std::string> firstUse;  // of an output file
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
    app.add_option("--out", out, "Air folder to write to; made when missing")
        ->required()
        ->type_name("DIR");
    app.add_option(
           "--start", start,
           "UTC time at the start of the streams, like 2026-04-22T19:39:46Z (default: "
           "now). Each loop begins again at this time, the guide with the three hours it lies in")
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
