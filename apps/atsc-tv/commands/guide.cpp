// atsc-tv guide: prints the programmes of the next hours from the database.
#include "guide/guide.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <iostream>
#include <memory>
#include <optional>

#include "channels/channel_list.h"
#include "commands/commands.h"
#include "common/json.h"
#include "common/utc_time.h"
#include "guide/guide_view.h"
#include "terminal/failure.h"
#include "terminal/local_time.h"
#include "terminal/terminal.h"

namespace apps::tv {
namespace {

constexpr const char* kFirst = "first";

// Formats a time as --at accepts it.
std::string optionTime(int64_t seconds) { return utcTime(seconds, "%Y-%m-%dT%H:%MZ"); }

struct GuideOptions {
  std::string source;   // empty: all
  std::string channel;  // empty: all
  uint32_t hours = 3;
  std::string at;                                 // empty: now
  std::optional<size_t> width = terminalWidth();  // of the grid; without a width there is no grid
  bool json = false;
};

// Returns the rows of the event table, with the channel's number and name added.
Json::Value rowsOf(const Guide& guide) {
  if (!guide.known) return Json::Value();
  Json::Value rows(Json::arrayValue);
  for (const GuideChannel& channel : guide.channels) {
    for (const Programme& programme : channel.programmes) {
      Json::Value& row = rows.append(programme.row);
      row["channel"] = channel.number;
      row["channel_name"] = channel.name;
    }
  }
  return rows;
}

bool hasProgrammes(const Guide& guide) {
  return std::any_of(guide.channels.begin(), guide.channels.end(),
                     [](const GuideChannel& channel) { return !channel.programmes.empty(); });
}

// Explains why there are no programmes to show, and what the user can do.
std::string whyEmpty(const Guide& guide, const Source& source, Span span) {
  if (!guide.scanned || guide.channels.empty()) {
    return std::string("no channels; atsc-tv scan --src ") + source.name + " finds them";
  }
  if (!guide.received) {
    return "no programmes received yet; run atsc-tv scan, or play a channel while atsc-tv watch "
           "runs";
  }
  if (guide.covered.start >= guide.covered.end) return kNoInformation;
  return "no programmes from " + optionTime(span.start) + " to " + optionTime(span.end) +
         "; those received go from " + optionTime(guide.covered.start) + " to " +
         optionTime(guide.covered.end) + " (--at and --hours choose others)";
}

void show(const Guide& guide, const Source& source, Span span, int64_t now,
          const GuideOptions& options) {
  if (!options.width) {
    // The reason goes to standard error: on standard output, each line is a programme.
    if (!hasProgrammes(guide)) {
      std::cerr << "atsc-tv: " << source.name << ": " << whyEmpty(guide, source, span) << '\n';
    }
    printLines(std::cout, guide, source);
    return;
  }
  const bool bold = terminalHasBold();
  std::cout << source.title << " (" << source.name << "), "
            << localTime(now, "%a %d %b %Y %H:%M %Z") << '\n';
  if (!hasProgrammes(guide)) {
    std::cout << whyEmpty(guide, source, span) << '\n';
  } else if (!options.channel.empty()) {
    printDetails(std::cout, guide, now, *options.width, bold);
  } else {
    printGrid(std::cout, guide, span, now, *options.width, bold);
  }
}

// Returns the start of the first programme received, or the current time if there is none.
int64_t firstStart(const CommonOptions& common, const GuideOptions& options) {
  std::optional<int64_t> first;
  for (const Source& source : kSources) {
    if (!options.source.empty() && options.source != source.name) continue;
    const Span covered =
        readGuide(common.channelDatabase(), common.eventDatabase(), source, {0, 0}, options.channel)
            .covered;
    if (covered.start < covered.end) first = std::min(first.value_or(covered.start), covered.start);
  }
  return first.value_or(std::time(nullptr));
}

int64_t timeOf(const CommonOptions& common, const GuideOptions& options) {
  if (options.at.empty()) return std::time(nullptr);
  return options.at == kFirst ? firstStart(common, options) : apps::parseUtcTime(options.at);
}

int guide(const CommonOptions& common, const GuideOptions& options) {
  const int64_t now = timeOf(common, options);
  Span span = {now, now + int64_t{options.hours} * 3600};
  // The grid has columns of whole half hours. The other views omit programmes that are over.
  if (!options.json && options.channel.empty() && options.width) {
    span = {halfHourStart(span.start), halfHourStart(span.end + kHalfHour - 1)};
  }
  Json::Value all(Json::objectValue);
  bool found = options.channel.empty();
  bool shown = false;
  for (const Source& source : kSources) {
    if (!options.source.empty() && options.source != source.name) continue;
    const Guide guide =
        readGuide(common.channelDatabase(), common.eventDatabase(), source, span, options.channel);
    found = found || !guide.channels.empty();
    if (options.json) {
      all[source.name] = rowsOf(guide);
      continue;
    }
    // Skips a source that was never scanned or does not have the channel.
    if (guide.channels.empty() && options.source.empty()) continue;
    if (shown && options.width) std::cout << '\n';
    shown = true;
    show(guide, source, span, now, options);
  }
  if (!found) throw noChannel(options.channel, options.source);
  if (options.json) {
    std::cout << compactJson(all) << '\n';
  } else if (!shown) {
    throw noChannels(common.channelDatabase());
  }
  return kSuccess;
}

}  // namespace

void addGuide(CLI::App& app, Action& action) {
  CLI::App* command =
      app.add_subcommand("guide", "Show the programmes of the current and the following hours");
  auto options = std::make_shared<GuideOptions>();
  command->footer(std::string("If standard output is not a terminal and --width is not given, "
                              "each line is a programme, with columns separated by tabs:\n") +
                  kLinesForm + ".");
  command
      ->add_option("--channel", options->channel,
                   "Show only the programmes of this channel, with their descriptions")
      ->option_text("NUMBER");
  command->add_option("--hours", options->hours, "How far to look ahead (default: 3)")
      ->check(CLI::Range(1u, 384u))
      ->option_text("N");
  addSourceOption(*command, options->source, "Show only terrestrial or only cable channels");
  command
      ->add_option("--at", options->at,
                   std::string("Show the guide for this time, ") + apps::kUtcTimeForm + ", or " +
                       kFirst +
                       " for the start of the first programme received (default: the current time "
                       "of this machine)")
      ->check([](const std::string& text) {
        return text == kFirst ? std::string() : apps::utcTimeFault(text);
      })
      ->option_text("TIME");
  command
      ->add_option("--width", options->width,
                   "Write for a terminal of N columns (default: as wide as the terminal is)")
      ->check(CLI::Range(20u, 1000u))
      ->option_text("N");
  command->add_flag(
      "--json", options->json,
      "Print one line of JSON: for each source the rows of its event table with channel "
      "number and name, null if the database has no such table");
  command->callback([&action, options] {
    action = [options](const CommonOptions& common) { return guide(common, *options); };
  });
}

}  // namespace apps::tv
