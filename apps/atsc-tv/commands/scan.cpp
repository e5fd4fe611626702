// atsc-tv scan: scans for channels and shows the progress.
#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>

#include "callbacks/callbacks.h"
#include "channels/channel_list.h"
#include "channels/receiver.h"
#include "commands/commands.h"
#include "common/json.h"
#include "terminal/failure.h"
#include "terminal/terminal.h"

namespace apps::tv {
namespace {

using Clock = std::chrono::steady_clock;

// A scan reports every frequency. A scan without a report for this long has been stopped.
constexpr std::chrono::seconds kSilence(10);

struct ScanOptions {
  std::string source = "VSB";
  uint32_t frequency = 0;  // Hz or RF channel; 0: the whole band
};

// The guide of the stations found arrives within this time after the end of a scan. Not every
// station sends a guide.
constexpr std::chrono::seconds kGuideWait(1);

// Returns a number of a message, 0 if it is missing or not a number.
uint32_t number(const Json::Value& message, const char* key) {
  return message[key].isUInt() ? message[key].asUInt() : 0;
}

std::string services(uint32_t count) {
  return std::to_string(count) + (count == 1 ? " service" : " services");
}

// Prints a line for each frequency with services and, on a terminal, draws a progress bar.
class ProgressView {
 public:
  explicit ProgressView(const Source& source) : source_(source), width_(terminalWidth()) {}
  ~ProgressView() { clear(); }
  ProgressView(const ProgressView&) = delete;
  ProgressView& operator=(const ProgressView&) = delete;

  void update(const Json::Value& message) {
    const uint32_t found = number(message, "ser_found");
    const uint32_t frequency = number(message, "cur_freq");
    clear();
    if (number(message, "lock_freq") == frequency && frequency != lastLock_) {
      lastLock_ = frequency;
      std::cout << "  " << place(frequency) << ": " << services(found - std::min(found, found_))
                << std::endl;
    }
    found_ = found;
    if (width_) draw(std::min(number(message, "progress"), 100u), frequency);
  }

  // Returns the number of services found so far.
  uint32_t found() const { return found_; }

  // Erases the progress bar.
  void clear() {
    if (drawn_) std::cout << "\r\033[K" << std::flush;
    drawn_ = false;
  }

 private:
  std::string place(uint32_t frequency) const {
    const int channel = rfChannel(source_, frequency);
    return (channel != 0 ? "RF " + std::to_string(channel) + ", " : "") + megahertz(frequency) +
           " MHz";
  }

  void draw(uint32_t percent, uint32_t frequency) {
    constexpr uint32_t kWidth = 30;
    const uint32_t filled = percent * kWidth / 100;
    std::string line = '[' + std::string(filled, '#') + std::string(kWidth - filled, '.') + "] " +
                       std::to_string(percent) + "%  " +
                       (frequency != 0 ? place(frequency) + "  " : "") + services(found_);
    // The cursor cannot return to the start of a wrapped line.
    line.resize(std::min(line.size(), *width_ - 1));
    std::cout << line << std::flush;
    drawn_ = true;
  }

  const Source& source_;
  const std::optional<size_t> width_;
  bool drawn_ = false;
  uint32_t found_ = 0;
  uint32_t lastLock_ = 0;
};

void start(const Client& client, const ScanOptions& options) {
  startReceiver(client);
  Json::Value request = command("SCAN", "start");
  request["src"] = options.source;
  request["mode"] = options.frequency != 0 ? "manual" : "auto";
  if (options.frequency != 0) request["freq"] = options.frequency;
  if (client.send(request).result != 0) {
    throw Failure(kFailure, std::string("the service refuses the scan: ") +
                                (options.frequency != 0 ? "there is no such channel, or " : "") +
                                "a scan is running (atsc-tv send '" +
                                compactJson(command("SCAN", "stop")) + "' stops it)");
  }
}

enum class Ending { kOver, kStoppedByUser, kSilent };

// Shows the progress until the scan ends. Throws Failure if the scan fails.
Ending follow(const Client& client, Callbacks& callbacks, int service, ProgressView& view) {
  Clock::time_point lastSign = Clock::now();
  for (;;) {
    std::string text;
    switch (callbacks.wait(Callbacks::kCheckService, &text)) {
      case Callbacks::Event::kInterrupt:
        view.clear();
        client.send(command("SCAN", "stop"));
        return Ending::kStoppedByUser;
      case Callbacks::Event::kTimeout:
        if (servicePid() != service) throw Failure(kFailure, "the service ended during the scan");
        if (Clock::now() - lastSign > kSilence) return Ending::kSilent;
        break;
      case Callbacks::Event::kMessage: {
        client.showReceived(text);
        const Json::Value message = parseJson(text).value_or(Json::Value());
        if (!message.isObject() || message["cbtype"] != "SCAN") break;
        lastSign = Clock::now();
        view.update(message);
        if (message["msg"] == "OVER") return Ending::kOver;
        if (message["msg"] == "ERROR") throw Failure(kFailure, "the scan failed");
      }
    }
  }
}

// Waits until the database has the guide.
void awaitGuide(const Client& client, Callbacks& callbacks) {
  const Clock::time_point end = Clock::now() + kGuideWait;
  for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
    std::string text;
    if (callbacks.wait(left, &text) != Callbacks::Event::kMessage) return;
    client.showReceived(text);
    const Json::Value message = parseJson(text).value_or(Json::Value());
    if (message.isObject() && message["cbtype"] == "EPG_COMPLETE") return;
  }
}

int scan(const CommonOptions& common, const ScanOptions& options) {
  const Client client = common.client();
  const Source& source = sourceNamed(options.source);
  if (options.frequency != 0 && !frequencyOf(source, options.frequency)) {
    throw Failure(kUsage, "--freq: " + rfChannelsOf(source));
  }
  client.requireService();
  const int service = servicePid();
  Callbacks& callbacks = Callbacks::start();
  start(client, options);
  std::cout << "Scanning " << source.title << " (" << source.name << ")" << std::endl;
  Ending ending;
  uint32_t found = 0;
  {
    ProgressView view(source);
    ending = follow(client, callbacks, service, view);
    found = view.found();
  }
  switch (ending) {
    case Ending::kOver:
      std::cout << "Scan over: " << services(found) << " found\n" << std::endl;
      if (found > 0) awaitGuide(client, callbacks);
      break;
    case Ending::kStoppedByUser:
      std::cout << "Scan stopped\n\n";
      break;
    case Ending::kSilent:
      std::cout << "No progress for " << kSilence.count() << " seconds: the scan was stopped\n\n";
      break;
  }
  const Json::Value channels = readChannels(common.channelDatabase(), source);
  if (channels.isNull()) {
    throw Failure(kFailure, common.channelDatabase() + ": no channel list; " + kSameDatabase);
  }
  printChannels(std::cout, source, channels);
  return ending == Ending::kSilent ? kFailure : kSuccess;
}

}  // namespace

void addScan(CLI::App& app, Action& action) {
  CLI::App* command = app.add_subcommand(
      "scan", "Scan for channels and show what was found; Ctrl-C stops the scan");
  auto options = std::make_shared<ScanOptions>();
  addSourceOption(*command, options->source, "Terrestrial or cable (default: VSB)");
  command
      ->add_option("--freq", options->frequency,
                   "Scan only this frequency in Hz, or this RF channel: VSB 2 to 69, QAM 1 to 135")
      ->check(CLI::Range(uint32_t{1}, std::numeric_limits<uint32_t>::max()))
      ->option_text("N");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return scan(common, *options); };
  });
}

}  // namespace apps::tv
