#include "receiver/viewing/viewing.h"

#include <algorithm>
#include <string>
#include <utility>

namespace atschost {
namespace {

// Converts a text of a broadcast (UTF-16BE) for the log.
std::string logText(const std::string& text) {
  std::string letters;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const bool plain = text[i] == 0 && text[i + 1] >= ' ' && text[i + 1] < 0x7F;
    letters += plain ? text[i + 1] : '?';
  }
  return letters;
}

}  // namespace

Viewing::Viewing(const Clock& clock, const Guide& guide, const Parental& parental,
                 const RatingRegions& regions)
    : clock_(clock), guide_(guide), parental_(parental), regions_(regions) {}

OnNow Viewing::onNow(const Service& service, std::vector<Advisory> advisories) const {
  OnNow now;
  const auto settings = parental_.settings();
  const KnownRegions known = knownRegions();
  now.enabled = settings->enabled();
  const uint32_t time = clock_.now();
  const auto events = guide_.events(service.key.source, service.key.frequency, service.sourceId);
  // Finds the event that started last and is not over.
  auto next = std::upper_bound(events->begin(), events->end(), time,
                               [](uint32_t t, const ShownEvent& event) { return t < event.start; });
  while (next != events->begin() && !now.programme.event) {
    --next;
    if (time - next->start >= next->event->duration) continue;
    now.programme.event = {next->event->eventId, next->start};
    now.programme.advisories = next->event->advisories;
  }
  now.verdict = settings->check(now.programme.advisories, known);
  // Prefers ratings over no ratings, and those of the streams over those of the guide.
  const RatingVerdict verdict = settings->check(advisories, known);
  now.byStreams = verdict.rated || (!now.verdict.rated && verdict.group != AIPC_UNRATED_NO_RATING);
  if (now.byStreams) {
    now.programme.advisories = std::move(advisories);
    now.verdict = verdict;
  }
  return now;
}

KnownRegions Viewing::knownRegions() const {
  KnownRegions known;
  for (const uint8_t number : regions_.numbers()) known.set(number);
  return known;
}

std::function<bool(const GuideEvent&)> Viewing::blockedEvents() const {
  const auto settings = parental_.settings();
  if (!settings->enabled()) return [](const GuideEvent&) { return false; };
  return [settings, known = knownRegions()](const GuideEvent& event) {
    return settings->check(event.advisories, known).blocked;
  };
}

std::string Viewing::whyBlocked(const RatingVerdict& verdict) const {
  if (!verdict.blocked) return {};
  if (!verdict.rated)
    return verdict.group == AIPC_UNRATED_US_MPAA  ? "not rated (MPAA NR)"
           : verdict.group == AIPC_UNRATED_CANADA ? "exempt (Canada)"
                                                  : "not rated";
  const auto region = regions_.region(verdict.region);
  std::string value, dimension;
  if (region && verdict.dimension < region->dimensions.size()) {
    const RatingRegion::Dimension& table = region->dimensions[verdict.dimension];
    dimension = logText(table.name);
    if (verdict.value < table.values.size())
      value = logText(table.values[verdict.value].abbreviation);
  }
  if (value.empty()) value = "value " + std::to_string(verdict.value);
  if (dimension.empty()) dimension = "dimension " + std::to_string(verdict.dimension);
  return value + " (region " + std::to_string(verdict.region) + ", " + dimension + ")";
}

}  // namespace atschost
