#include "receiver/control/player.h"

#include <algorithm>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"
#include "receiver/air/frequency_plan.h"
#include "receiver/control/channel_choice.h"
#include "receiver/control/presentation.h"

namespace atschost {

Player::Player(const Air& air, Settings& settings, ServiceList& services, const Guide& guide,
               const Viewing& viewing, EventQueue& events, LiveTuner& tuner)
    : air_(air),
      settings_(settings),
      services_(services),
      guide_(guide),
      viewing_(viewing),
      events_(events),
      tuner_(tuner),
      tunerSource_(settings.source()),
      gate_([&events](AFW_event_t event) { events.raise(event); }) {}

bool Player::isInStandby(const char* refused) const {
  const MutexLock lock(mutex_);
  if (standby_) log().Warn("%s: refused in standby", refused);
  return standby_;
}

bool Player::play(const Service& chosen) {
  if (!air_.carrierExists(chosen.key.source, chosen.key.frequency)) return false;
  const MutexLock lock(mutex_);
  const auto listed = services_.find(chosen.key);
  if (standby_ || !listed) return false;  // may have been removed meanwhile
  const Service& service = *listed;
  const uint32_t source = service.key.source;
  const bool otherSource = settings_.setSource(source) != source;
  settings_.setLast(service.key);
  tunerSource_ = source;
  tuning_ = {service.key.frequency, modulationOf(source), {}};
  playing_ = true;
  played_ = service;
  pictureOpen_ = true;
  logged_.clear();
  gate_.begin(service.flags & AISRV_FLAG_LOCKED);
  look(service, true);
  decideStreams(service);
  tuner_.play(service.key);
  if (otherSource) events_.refreshGuide(guide_.sourceIds(source));
  return true;
}

// Reports that nothing was played. `known` is true if there was a service to play.
void Player::fail(bool known) {
  if (known) tuner_.reportFailure();
  const MutexLock lock(mutex_);
  gate_.fail();
}

bool Player::playFirst(uint32_t source, uint32_t frequency) {
  if (isInStandby("play")) return false;
  const auto services = listedServices(services_, source, frequency);
  if (!services.empty() && play(services.front())) return true;
  fail(!services.empty());
  log().Warn("cannot play a service of source %u, frequency %u Hz: %s", source, frequency,
             services.empty() ? "none is listed" : "its carrier is gone");
  return false;
}

bool Player::playSource(uint32_t source) {
  if (isInStandby("play")) return false;
  const auto key = settings_.last(source);
  const auto last = key ? services_.find(*key) : std::nullopt;
  if (!last || isDeleted(*last)) return playFirst(source, 0);
  if (play(*last)) return true;
  fail(true);
  log().Warn("cannot play %u-%u, the last one of source %u: its carrier is gone", key->major,
             key->minor, source);
  return false;
}

bool Player::changeChannel(const AIFW_channel_change_request& request) {
  if (isInStandby("channel change")) return false;
  const uint32_t source = request.input_source;
  const auto services = chooseServices(services_, request, settings_.last(source));
  if (!services) {
    log().Error("channel change: unknown mode %u", request.mode);
    return false;
  }
  // Skips services whose carrier is gone.
  if (std::any_of(services->begin(), services->end(), [&](const Service& s) { return play(s); }))
    return true;
  fail(!services->empty());
  log().Warn("channel change (mode %u, source %u, %u-%u): %s", request.mode, source, request.major,
             request.minor, services->empty() ? "no such service" : "no carrier");
  return false;
}

void Player::stop() {
  playing_ = false;
  gate_.stop();
  audioTrack_ = 0;
  tuner_.stop();
}

void Player::stopPlaying() {
  const MutexLock lock(mutex_);
  stop();
}

void Player::stopTuning() {
  const MutexLock lock(mutex_);
  stop();
  tuning_ = {};
}

bool Player::followTuner(uint32_t source) {
  if (!isSource(source)) return false;
  {
    const MutexLock lock(mutex_);
    tunerSource_ = source;
    if (settings_.setSource(source) == source) return true;
    stop();
    if (tuning_.modulation != modulationOf(source)) tuning_ = {};
  }
  events_.refreshGuide(guide_.sourceIds(source));
  return true;
}

void Player::tunedByScan(uint32_t source, uint32_t frequency) {
  const MutexLock lock(mutex_);
  tunerSource_ = source;
  tuning_ = {frequency, modulationOf(source), {}};
  stop();
}

void Player::stopFor(uint32_t source, const std::function<void()>& change) {
  const MutexLock lock(mutex_);
  if (settings_.source() == source) stop();
  change();
}

void Player::closePicture() {
  {
    const MutexLock lock(mutex_);
    pictureOpen_ = false;
  }
  decideStreams();
}

void Player::enterStandby() {
  const MutexLock lock(mutex_);
  if (!std::exchange(standby_, true)) log().Info("standby begins");
  stop();
  gate_.forget();
}

void Player::leaveStandby() {
  {
    const MutexLock lock(mutex_);
    if (!std::exchange(standby_, false)) return;
    log().Info("standby ends");
  }
  // Plays the current service even if it was stopped before standby.
  const auto service = current();
  if (!service || !play(*service)) fail(service.has_value());
}

std::optional<Service> Player::current() const {
  const MutexLock lock(mutex_);
  const auto last = settings_.last(settings_.source());
  if (!last) return std::nullopt;
  auto service = services_.find(*last);
  if (!service && playing_ && played_.key == *last) service = played_;
  return service;
}

uint32_t Player::tunerSource() const {
  const MutexLock lock(mutex_);
  return tunerSource_;
}

bool Player::isPlaying() const {
  const MutexLock lock(mutex_);
  return playing_;
}

AIFE_tuning_details Player::tuning() const {
  const MutexLock lock(mutex_);
  return tuning_;
}

bool Player::chooseAudio(uint8_t track) {
  const auto service = current();
  if (!service || track == 0 || track > audioTracks(service->streams).size()) {
    log().Warn("there is no audio track %u", track);
    return false;
  }
  if (!services_.setAudio(service->key, track)) return false;
  decideStreams();
  return true;
}

uint8_t Player::audioTrack() const {
  const MutexLock lock(mutex_);
  return audioTrack_;
}

bool Player::setAudioLanguage(int32_t AudioLanguages::*which, int32_t language) {
  if (!settings_.setLanguage(which, language)) return false;
  decideStreams();
  return true;
}

bool Player::setDualMode(uint32_t mode) {
  if (!settings_.setDualMode(mode)) return false;
  decideStreams();
  return settings_.keep();
}

void Player::setPasswordRequired(bool required) {
  const MutexLock lock(mutex_);
  gate_.setPasswordRequired(required);
}

void Player::setPasswordGiven(bool given) {
  {
    const MutexLock lock(mutex_);
    gate_.setPasswordGiven(given);
  }
  decideStreams();
}

bool Player::setUnlocked(bool unlocked) {
  {
    const MutexLock lock(mutex_);
    if (!gate_.setUnlocked(unlocked)) return false;
  }
  decideStreams();
  return true;
}

void Player::setPlayFromApplication(bool fromApplication) {
  const MutexLock lock(mutex_);
  gate_.setPlayFromApplication(fromApplication);
}

// Returns the service that plays, else null. A service continues to play after its station removed
// it from the list.
const Service* Player::playing() {
  if (!playing_) return nullptr;
  if (auto listed = services_.find(played_.key)) played_ = *std::move(listed);
  return &played_;
}

void Player::look(bool asked) {
  const MutexLock lock(mutex_);
  const Service* service = playing();
  if (service && look(*service, asked)) decideStreams(*service);
}

// Returns whether different streams are now withheld from the viewer.
bool Player::look(const Service& service, bool asked) {
  OnNow now = onNow(service);
  // The rating of a newly tuned carrier may not have been read yet.
  if (now.enabled && !now.verdict.rated && !tuner_.hasRead(service.key)) return false;
  return gate_.judge(std::move(now.programme), viewing_.whyBlocked(now.verdict), asked,
                     std::chrono::steady_clock::now());
}

void Player::decideStreams() {
  const MutexLock lock(mutex_);
  if (const Service* service = playing()) decideStreams(*service);
}

void Player::decideStreams(const Service& service) {
  gate_.setLocked(service.flags & AISRV_FLAG_LOCKED);
  Presentation presentation =
      present(service, gate_, pictureOpen_, settings_.languages(), settings_.dualMode());
  audioTrack_ = presentation.audioTrack;
  if (presentation.text == logged_) return;
  log().Info("playing %u-%u on %s %u Hz: %s", service.key.major, service.key.minor,
             modulationName(service.key.source), service.key.frequency, presentation.text.c_str());
  logged_ = std::move(presentation.text);
}

OnNow Player::onNow(const Service& service) const {
  return viewing_.onNow(service, tuner_.advisories(service.key, service.programNumber));
}

std::optional<OnNow> Player::onNow(const AISRV_service_id& id) const {
  const uint32_t source = sourceOfId(id.input_source);
  std::optional<Service> service;
  services_.visit(source, [&](const Service& listed) {
    if (listed.record == id.service_rec) service = listed;
    return !service;
  });
  bool unlocked = false;
  {
    const MutexLock lock(mutex_);
    const bool plays =
        playing_ && (service ? played_.key == service->key
                             : played_.record == id.service_rec && played_.key.source == source);
    if (plays) service = played_;
    unlocked = plays && gate_.isUnlocked();
  }
  if (!service) return std::nullopt;
  OnNow now = onNow(*service);
  now.unlocked = unlocked;
  return now;
}

void Player::display() const {
  const MutexLock lock(mutex_);
  log().Info("tuner: %s %u Hz, %s", modulationName(tunerSource_), tuning_.frequency,
             standby_   ? "standby"
             : playing_ ? "playing"
                        : "not playing");
}

}  // namespace atschost
