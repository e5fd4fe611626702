#include "receiver/receiver.h"

#include <set>
#include <utility>

#include "process/log.h"

namespace atschost {
namespace {

// Maximum wait for a callback at exit, before its thread is detached.
constexpr std::chrono::milliseconds kExitPatience(2000);

}  // namespace

Receiver::Receiver(const std::string& stateFolder, const Air& air, Clock& clock)
    : clock_(clock),
      ratingRegions_(stateFolder, events_, [this] { learnedRegion(); }),
      parental_(stateFolder),
      services_(stateFolder),
      settings_(stateFolder, clock, alertSettings_),
      viewing_(clock, guide_, parental_, ratingRegions_),
      liveTuner_(
          air, clock, services_, guide_, ratingRegions_, alertSettings_, events_,
          [this] { player_.decideStreams(); }, [this] { player_.look(false); }),
      player_(air, settings_, services_, guide_, viewing_, events_, liveTuner_),
      serviceEditor_(services_, player_, liveTuner_, events_),
      guideTuner_(air, clock, services_,
                  {[this](uint32_t source, uint32_t frequency) {
                     return liveTuner_.isTunedTo(source, frequency);
                   },
                   [this](uint32_t source, uint32_t frequency, CarrierResult& found) {
                     takeGuide(source, frequency, found, guideRound_);
                   },
                   [this] { endGuideRound(); }}),
      scanner_(
          air, clock, services_,
          {[this](uint32_t source, uint32_t frequency) { player_.tunedByScan(source, frequency); },
           [this](uint32_t source, uint32_t frequency, CarrierResult& found,
                  Scanner::Outcome& outcome) {
             if (found.stream) guideTuner_.note(source, frequency, *found.stream);
             takeGuide(source, frequency, found, outcome);
           },
           [this](const Scanner::Outcome& outcome) { report(outcome); }}) {}

void Receiver::takeGuide(uint32_t source, uint32_t frequency, CarrierResult& found,
                         Scanner::Outcome& outcome) {
  if (!found.locked) return guide_.forget(source, frequency);
  if (!found.guide.eits.empty()) outcome.guide = true;
  if (found.guide.mgtSeen && !found.guideComplete) outcome.guidePartial = true;
  const auto ids = sourceIdsOf(guide_.update(source, frequency, found.guide, found.gpsUtcOffset));
  outcome.sourceIds.insert(ids.begin(), ids.end());
  ratingRegions_.receive(std::move(found.ratingRegions));
}

void Receiver::report(const Scanner::Outcome& outcome) {
  if (outcome.services) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  // Events of a newly listed service may be known already.
  std::set<uint16_t> ids = outcome.sourceIds;
  for (const auto& [source, frequency, id] : outcome.listed)
    if (!guide_.events(source, frequency, id)->empty()) ids.insert(id);
  events_.raiseGuideUpdate({ids.begin(), ids.end()});
  if (outcome.guide && !outcome.guidePartial) events_.raise(AFW_EPG_COMPLETE);
}

void Receiver::endGuideRound() {
  ratingRegions_.receive({});  // stores waiting tables
  // The first round may end before the application registers its callback.
  if (guideRound_.sourceIds.empty())
    guideRound_ = {};
  else if (events_.hasCallback())
    report(std::exchange(guideRound_, {}));
}

void Receiver::setCallback(AIFW_app_callback callback) {
  const bool begins = callback && !events_.hasCallback();
  events_.setCallback(callback);
  if (begins) refreshGuide();
}

// An application that keeps the guide of the current source has to read it again.
void Receiver::refreshGuide() { events_.refreshGuide(guide_.sourceIds(settings_.source())); }

bool Receiver::enterStandby() {
  player_.enterStandby();
  const bool settings = settings_.keep();
  const bool parental = parental_.sync();
  return services_.store() && settings && parental;
}

bool Receiver::changeParental(const std::function<bool(ParentalSettings&)>& edit) {
  const Parental::Change change = parental_.change(edit);
  if (change == Parental::Change::kRefused) return false;
  if (change == Parental::Change::kNone) return true;
  events_.raise(AFW_PARENTAL_UPDATE);
  if (change == Parental::Change::kMadeDifference) refreshGuide();
  player_.look(true);
  return true;
}

// Ratings of a region count after its first table.
void Receiver::learnedRegion() {
  if (!parental_.settings()->enabled()) return;
  refreshGuide();
  player_.look(false);
}

void Receiver::display() const {
  log().Info("%zu events wait to be reported", events_.waiting());
  log().Info("scan: %s", scanner_.isRunning() ? "runs" : "none");
  player_.display();
}

void Receiver::endThreads(std::optional<std::chrono::milliseconds> patience) {
  events_.shutDown(patience);
  liveTuner_.shutDown();
  guideTuner_.shutDown();
  scanner_.shutDown(patience);
}

void Receiver::shutDown() {
  endThreads(kExitPatience);
  ratingRegions_.store();
}

}  // namespace atschost
