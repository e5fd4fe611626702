// The receiver: what keeps what plays from the viewer.
#include <algorithm>
#include <string>
#include <utility>

#include "receiver/receiver.h"

namespace atschost {
namespace {

// A text of a broadcast (UTF-16BE) for the log.
std::string logText(const std::string& text) {
  std::string letters;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const bool plain = text[i] == 0 && text[i + 1] >= ' ' && text[i + 1] < 0x7F;
    letters += plain ? text[i + 1] : '?';
  }
  return letters;
}

}  // namespace

// Null when nothing plays. A service plays on when its station has taken it from the list.
const Service* Receiver::playingLocked() {
  if (!playing_) return nullptr;
  if (auto listed = services_.find(played_.key)) played_ = *std::move(listed);
  return &played_;
}

// Looks at what is on now on the service that plays, on behalf of the viewer (`asked`) or because
// another programme may have begun.
void Receiver::look(bool asked) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Service* service = playingLocked();
  if (service && lookLocked(*service, asked)) decideStreamsLocked(*service);
}

// Whether picture and sound are no longer kept away, or are now.
bool Receiver::lookLocked(const Service& service, bool asked) {
  OnNow now = onNow(service);
  // A carrier that was just tuned may have a rating yet.
  if (now.enabled && !now.verdict.rated && !liveTuner_.hasRead(service.key)) return false;
  std::string why = now.verdict.blocked ? whyBlocked(now.verdict) : std::string();
  return gate_.judge(std::move(now.programme), std::move(why), asked,
                     std::chrono::steady_clock::now());
}

Receiver::OnNow Receiver::onNow(const Service& service) const {
  OnNow now;
  const auto settings = parental_.settings();
  const KnownRegions known = knownRegions();
  now.enabled = settings->enabled();
  const uint32_t time = clock_.now();
  const auto events = guide_.events(service.key.source, service.key.frequency, service.sourceId);
  // The event that began last, of those that are not over.
  auto next = std::upper_bound(events->begin(), events->end(), time,
                               [](uint32_t t, const ShownEvent& event) { return t < event.start; });
  while (next != events->begin() && !now.programme.event) {
    --next;
    if (time - next->start >= next->event.duration) continue;
    now.programme.event = {next->event.eventId, next->start};
    now.programme.advisories = next->event.advisories;
  }
  now.verdict = settings->check(now.programme.advisories, known);
  // A rating counts before none, and what the streams say before what the guide says.
  auto advisories = liveTuner_.advisories(service.key, service.programNumber);
  const RatingVerdict verdict = settings->check(advisories, known);
  now.byStreams = verdict.rated || (!now.verdict.rated && verdict.group != AIPC_UNRATED_NO_RATING);
  if (now.byStreams) {
    now.programme.advisories = std::move(advisories);
    now.verdict = verdict;
  }
  return now;
}

std::optional<Receiver::OnNow> Receiver::onNow(const AISRV_service_id& id) const {
  std::optional<Service> service;
  services_.visit(sourceOfId(id.input_source), [&](const Service& listed) {
    if (listed.record == id.service_rec) service = listed;
    return !service;
  });
  bool unlocked = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    const bool plays =
        playing_ && (service ? played_.key == service->key
                             : played_.record == id.service_rec &&
                                   played_.key.source == sourceOfId(id.input_source));
    if (plays) service = played_;
    unlocked = plays && gate_.isUnlocked();
  }
  if (!service) return std::nullopt;
  OnNow now = onNow(*service);
  now.unlocked = unlocked;
  return now;
}

KnownRegions Receiver::knownRegions() const {
  KnownRegions known;
  for (const uint8_t number : ratingRegions_.numbers()) known.set(number);
  return known;
}

std::function<bool(const GuideEvent&)> Receiver::blockedEvents() const {
  const auto settings = parental_.settings();
  if (!settings->enabled()) return [](const GuideEvent&) { return false; };
  return [settings, known = knownRegions()](const GuideEvent& event) {
    return settings->check(event.advisories, known).blocked;
  };
}

// As "TV-14 (region 1, Entire Audience)".
std::string Receiver::whyBlocked(const RatingVerdict& verdict) const {
  if (!verdict.rated)
    return verdict.group == AIPC_UNRATED_US_MPAA  ? "not rated (MPAA NR)"
           : verdict.group == AIPC_UNRATED_CANADA ? "exempt (Canada)"
                                                  : "not rated";
  const auto region = ratingRegions_.region(verdict.region);
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

bool Receiver::changeParental(const std::function<bool(ParentalSettings&)>& edit) {
  const Parental::Change change = parental_.change(edit);
  if (change == Parental::Change::kRefused) return false;
  if (change == Parental::Change::kNone) return true;
  events_.raise(AFW_PARENTAL_UPDATE);
  if (change == Parental::Change::kMadeDifference) raiseWholeGuide(currentSource());
  look(true);
  return true;
}

// Ratings of a region count from its first table on.
void Receiver::learnedRegion() {
  if (!parental_.settings()->enabled()) return;
  raiseWholeGuide(currentSource());
  look(false);
}

void Receiver::setPasswordRequired(bool required) {
  std::lock_guard<std::mutex> lock(mutex_);
  gate_.setPasswordRequired(required);
}

void Receiver::setPasswordGiven(bool given) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    gate_.setPasswordGiven(given);
  }
  decideStreams();
}

bool Receiver::setUnlocked(bool unlocked) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!gate_.setUnlocked(unlocked)) return false;
  }
  decideStreams();
  return true;
}

void Receiver::setPlayFromApplication(bool fromApplication) {
  std::lock_guard<std::mutex> lock(mutex_);
  gate_.setPlayFromApplication(fromApplication);
}

}  // namespace atschost
