#include "receiver/receiver.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"
#include "receiver/tables/service_name.h"

namespace atschost {
namespace {

// What a callback may take to return once the process exits, before its thread is left alone.
constexpr std::chrono::milliseconds kExitPatience(2000);

constexpr uint32_t kMaxLanguage = AICN_LANGUAGE_SPANISH;

const char* const kDualModes[] = {"stereo", "left", "right", "mixed"};

// Numbers that a virtual channel table can give; on cable also one-part numbers (A/65 6.3.2).
bool isNumber(const ServiceKey& key) {
  constexpr uint16_t kMaxPart = 0x3FF;
  constexpr uint16_t kMaxOnePart = 0x3FFF;
  const bool onePart = key.source == AI_INPUT_CABLE && key.minor == 0;
  return key.major != 0 && key.major <= (onePart ? kMaxOnePart : kMaxPart) && key.minor <= kMaxPart;
}

bool isDeleted(const Service& service) { return service.flags & AISRV_FLAG_DELETED; }
bool isSurfable(const Service& service) {
  const uint32_t mask = AISRV_FLAG_VISIBLE | AISRV_FLAG_DELETED | AISRV_FLAG_SKIPPED;
  return (service.flags & mask) == AISRV_FLAG_VISIBLE;
}

template <typename Wanted>
std::vector<Service> select(const ServiceList& list, uint32_t source, Wanted wanted) {
  std::vector<Service> services;
  list.visit(source, [&](const Service& service) {
    if (wanted(service)) services.push_back(service);
    return true;
  });
  return services;
}

}  // namespace

Receiver::Receiver(const std::string& stateFolder, const Air& air, Clock& clock)
    : air_(air),
      clock_(clock),
      gate_([this](AFW_event_t event) { events_.raise(event); }),
      settingsFile_(stateFolder, "settings.json", "atsc-host-settings-1"),
      ratingRegions_(stateFolder, events_, [this] { learnedRegion(); }),
      parental_(stateFolder),
      services_(stateFolder),
      liveTuner_(
          air, clock, services_, guide_, ratingRegions_, alertSettings_, events_,
          [this] { decideStreams(); }, [this] { look(false); }),
      guideTuner_(air, clock, services_,
                  {[this](uint32_t source, uint32_t frequency) {
                     return liveTuner_.isTunedTo(source, frequency);
                   },
                   [this](uint32_t source, uint32_t frequency, CarrierResult& found) {
                     takeGuide(source, frequency, found, guideRound_);
                   },
                   [this] {
                     ratingRegions_.receive({});  // stores what waits
                     // The first round may be over before the application listens.
                     if (guideRound_.sourceIds.empty())
                       guideRound_ = {};
                     else if (events_.hasCallback())
                       report(std::exchange(guideRound_, {}));
                   }}),
      scanner_(air, clock, services_,
               {[this](uint32_t source, uint32_t frequency) { tunedByScan(source, frequency); },
                [this](uint32_t source, uint32_t frequency, CarrierResult& found,
                       Scanner::Outcome& outcome) {
                  if (found.stream) guideTuner_.note(source, frequency, *found.stream);
                  takeGuide(source, frequency, found, outcome);
                },
                [this](const Scanner::Outcome& outcome) { report(outcome); }}) {
  settingsFile_.load([this](const Json::Value& content) { loadSettings(content); });
  tunerSource_ = settings_.source;
  settingsToStore_ = settings_;
}

void Receiver::loadSettings(const Json::Value& content) {
  Settings settings;
  const auto sourceMember = [](const Json::Value& value) {
    const uint32_t source = numberMember(value, "source", AI_INPUT_CABLE);
    if (!isSource(source)) throw std::runtime_error("\"source\" is unknown");
    return source;
  };
  const auto keyMember = [](const Json::Value& value, uint32_t source) {
    ServiceKey key;
    key.source = source;
    key.major = static_cast<uint16_t>(numberMember(value, "major", 0xFFFF));
    key.minor = static_cast<uint16_t>(numberMember(value, "minor", 0xFFFF));
    key.frequency = numberMember(value, "frequency", UINT32_MAX);
    return key;
  };
  const auto languageMember = [&](const char* name) {
    return static_cast<int32_t>(numberMember(content, name, kMaxLanguage, AICN_LANGUAGE_ENGLISH));
  };
  settings.source = sourceMember(content);
  // Older files have the current service alone.
  if (const Json::Value& current = content["current"]; !current.isNull())
    settings.last[settings.source] = keyMember(current, settings.source);
  const Json::Value& last = content["last"];
  if (!last.isNull() && !last.isArray()) throw std::runtime_error("\"last\" is not a list");
  for (const Json::Value& value : last) {
    const uint32_t source = sourceMember(value);
    settings.last[source] = keyMember(value, source);
  }
  settings.languages = {languageMember("language"), languageMember("second_language")};
  settings.dualMode = numberMember(content, "dual_mode", AIAUD_DUAL_MIXED, AIAUD_DUAL_STEREO);
  settings.clock.zone =
      static_cast<int32_t>(numberMember(content, "zone", AIST_ZONE_HAWAII, AIST_ZONE_EASTERN));
  settings.clock.automatic = boolMember(content, "automatic_clock", true);
  settings.alerts.level =
      static_cast<int32_t>(numberMember(content, "alert_level", AIFW_EAS_MAXIMUM, AIFW_EAS_ALL));
  settings.alerts.repeatedEvents = boolMember(content, "repeated_alerts", false);
  settings.alerts.cableOnly = boolMember(content, "cable_alerts_only", false);
  settings_ = settings;
  clock_.setSetting(settings.clock);
  alertSettings_.set(settings.alerts);
}

void Receiver::storeSettings() {
  std::lock_guard<std::mutex> lock(mutex_);
  settingsToStore_ = settings_;
  settingsToStore_.clock = clock_.setting();
  settingsToStore_.alerts = alertSettings_.get();
}

bool Receiver::syncSettings() {
  std::lock_guard<std::mutex> fileLock(fileMutex_);
  Settings settings;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings = settingsToStore_;
  }
  Json::Value content;
  content["source"] = settings.source;
  content["last"] = Json::arrayValue;
  for (const auto& [source, key] : settings.last) {
    Json::Value value;
    value["source"] = source;
    value["major"] = key.major;
    value["minor"] = key.minor;
    value["frequency"] = key.frequency;
    content["last"].append(value);
  }
  content["language"] = settings.languages.first;
  content["second_language"] = settings.languages.second;
  content["dual_mode"] = settings.dualMode;
  content["zone"] = settings.clock.zone;
  content["automatic_clock"] = settings.clock.automatic;
  content["alert_level"] = settings.alerts.level;
  content["repeated_alerts"] = settings.alerts.repeatedEvents != 0;
  content["cable_alerts_only"] = settings.alerts.cableOnly != 0;
  return settingsFile_.store(std::move(content));
}

bool Receiver::keepSettings() {
  storeSettings();
  return syncSettings();
}

// A scan takes the tuner away from what was playing.
void Receiver::tunedByScan(uint32_t source, uint32_t frequency) {
  std::lock_guard<std::mutex> lock(mutex_);
  tunerSource_ = source;
  tuning_ = {frequency, modulationOf(source), {}};
  stopLocked();
}

void Receiver::takeGuide(uint32_t source, uint32_t frequency, CarrierResult& found,
                         Scanner::Outcome& outcome) {
  if (!found.guide.eits.empty()) outcome.guide = true;
  if (found.guide.mgtSeen && !found.guideComplete) outcome.guidePartial = true;
  const auto ids = sourceIdsOf(guide_.update(source, frequency, found.guide, found.gpsUtcOffset));
  outcome.sourceIds.insert(ids.begin(), ids.end());
  ratingRegions_.receive(std::move(found.ratingRegions));
}

void Receiver::report(const Scanner::Outcome& outcome) {
  if (outcome.services) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  // Events of a service that is listed anew may be known already.
  std::set<uint16_t> ids = outcome.sourceIds;
  for (const auto& [source, frequency, id] : outcome.listed)
    if (!guide_.events(source, frequency, id)->empty()) ids.insert(id);
  events_.raiseGuideUpdate({ids.begin(), ids.end()});
  if (outcome.guide && !outcome.guidePartial) events_.raise(AFW_EPG_COMPLETE);
}

void Receiver::shutDown() {
  events_.shutDown(kExitPatience);
  liveTuner_.shutDown();
  guideTuner_.shutDown();
  scanner_.shutDown(kExitPatience);
  ratingRegions_.store();
}

void Receiver::setCallback(AIFW_app_callback callback) {
  const bool begins = callback && !events_.hasCallback();
  events_.setCallback(callback);
  if (begins) raiseWholeGuide(currentSource());
}

// An application that keeps the guide of the current source only has to look at it anew.
void Receiver::raiseWholeGuide(uint32_t source) { events_.refreshGuide(guide_.sourceIds(source)); }

bool Receiver::isInStandby(const char* refused) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (standby_) log().Warn("%s: refused in standby", refused);
  return standby_;
}

bool Receiver::play(const Service& chosen) {
  if (!air_.carrierExists(chosen.key.source, chosen.key.frequency)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto listed = services_.find(chosen.key);
  if (standby_ || !listed) return false;  // it may just have gone
  const Service& service = *listed;
  const uint32_t source = service.key.source;
  const bool otherSource = std::exchange(settings_.source, source) != source;
  settings_.last[source] = service.key;
  tunerSource_ = source;
  tuning_ = {service.key.frequency, modulationOf(source), {}};
  playing_ = true;
  played_ = service;
  pictureOpen_ = true;
  streamsTold_.clear();
  gate_.begin(service.flags & AISRV_FLAG_LOCKED);
  lookLocked(service, true);
  decideStreamsLocked(service);
  liveTuner_.play(service.key);
  if (otherSource) raiseWholeGuide(source);
  return true;
}

void Receiver::decideStreams() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (const Service* service = playingLocked()) decideStreamsLocked(*service);
}

// Decides what of the service that plays is seen and heard, when it begins to play and whenever its
// streams or the settings may be others, and tells it in the log.
void Receiver::decideStreamsLocked(const Service& service) {
  gate_.setLocked(service.flags & AISRV_FLAG_LOCKED);
  const auto video = std::find_if(service.streams.begin(), service.streams.end(), isVideo);
  const auto tracks = audioTracks(service.streams);
  const std::string blocked = gate_.whyBlocked();
  const bool withheld = gate_.isClosed() || !blocked.empty();
  audioTrack_ = withheld ? uint8_t{0} : chooseTrack(tracks, service.audio, settings_.languages);
  std::string told;
  if (withheld)
    told = !gate_.isClosed() ? "blocked: " + blocked
           : blocked.empty() ? "locked"
                             : "locked; blocked: " + blocked;
  else if (!pictureOpen_)
    told = "picture closed";
  else if (video == service.streams.end())
    told = "no video";
  else
    told = "video PID " + std::to_string(video->pid);
  if (withheld) {
    told += "; no picture, no sound";
  } else if (audioTrack_ == 0) {
    told += ", no audio";
  } else {
    const AISRV_pid_info& track = tracks[audioTrack_ - 1u];
    const std::string language = trackLanguage(track);
    told += ", audio track " + std::to_string(audioTrack_) + " (PID " + std::to_string(track.pid) +
            ", " + (language.empty() ? "no language" : language) + ")";
    if (settings_.dualMode != AIAUD_DUAL_STEREO)
      told += std::string(", dual mono ") + kDualModes[settings_.dualMode];
  }
  if (told == streamsTold_) return;
  log().Info("playing %u-%u on %s %u Hz: %s", service.key.major, service.key.minor,
             modulationName(service.key.source), service.key.frequency, told.c_str());
  streamsTold_ = told;
}

// Nothing was played; `known` when there was something to play.
void Receiver::fail(bool known) {
  if (known) liveTuner_.reportFailure();
  std::lock_guard<std::mutex> lock(mutex_);
  gate_.fail();
}

bool Receiver::playFirst(uint32_t source, uint32_t frequency) {
  if (isInStandby("play")) return false;
  const auto services = select(services_, source, [&](const Service& s) {
    return !isDeleted(s) && (frequency == 0 || s.key.frequency == frequency);
  });
  if (!services.empty() && play(services.front())) return true;
  fail(!services.empty());
  log().Warn("cannot play a service of source %u, frequency %u Hz: %s", source, frequency,
             services.empty() ? "none is listed" : "its carrier is gone");
  return false;
}

bool Receiver::playSource(uint32_t source) {
  if (isInStandby("play")) return false;
  std::optional<ServiceKey> key;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (const auto last = settings_.last.find(source); last != settings_.last.end())
      key = last->second;
  }
  const auto last = key ? services_.find(*key) : std::nullopt;
  if (!last || isDeleted(*last)) return playFirst(source, 0);
  if (play(*last)) return true;
  fail(true);
  log().Warn("cannot play %u-%u, the last one of source %u: its carrier is gone", key->major,
             key->minor, source);
  return false;
}

bool Receiver::changeChannel(const AIFW_channel_change_request& request) {
  if (isInStandby("channel change")) return false;
  const uint32_t source = request.input_source;
  std::vector<Service> services;  // in the order in which they are tried
  switch (request.mode) {
    case AIFW_CHANGE_DIRECT:
      services = select(services_, source, [&](const Service& s) {
        return !isDeleted(s) && s.key.major == request.major && s.key.minor == request.minor;
      });
      // The same number may be received on several frequencies.
      std::stable_partition(services.begin(), services.end(),
                            [&](const Service& s) { return s.record == request.service_rec; });
      break;
    case AIFW_CHANGE_UP:
    case AIFW_CHANGE_DOWN: {
      services = select(services_, source, isSurfable);
      std::optional<ServiceKey> from;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (const auto last = settings_.last.find(source); last != settings_.last.end())
          from = last->second;
      }
      const bool up = request.mode == AIFW_CHANGE_UP;
      if (!up) std::reverse(services.begin(), services.end());
      if (from) {
        const auto next = std::find_if(services.begin(), services.end(), [&](const Service& s) {
          return up ? *from < s.key : s.key < *from;
        });
        std::rotate(services.begin(), next, services.end());
      }
      break;
    }
    default:
      log().Error("channel change: unknown mode %u", request.mode);
      return false;
  }
  // A service whose carrier is gone is passed over.
  if (std::any_of(services.begin(), services.end(), [this](const Service& s) { return play(s); }))
    return true;
  fail(!services.empty());
  log().Warn("channel change (mode %u, source %u, %u-%u): %s", request.mode, source, request.major,
             request.minor, services.empty() ? "no such service" : "no carrier");
  return false;
}

void Receiver::stopLocked() {
  playing_ = false;
  gate_.stop();
  audioTrack_ = 0;
  liveTuner_.stop();
}

void Receiver::stopPlaying() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopLocked();
}

void Receiver::stopTuning() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopLocked();
  tuning_ = {};
}

bool Receiver::followTuner(uint32_t source) {
  if (!isSource(source)) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    tunerSource_ = source;
    if (std::exchange(settings_.source, source) == source) return true;
    stopLocked();
    if (tuning_.modulation != modulationOf(source)) tuning_ = {};
  }
  raiseWholeGuide(source);
  return true;
}

void Receiver::closePicture() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    pictureOpen_ = false;
  }
  decideStreams();
}

bool Receiver::enterStandby() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!std::exchange(standby_, true)) log().Info("standby begins");
    stopLocked();
    gate_.forget();
  }
  const bool settings = keepSettings();
  const bool parental = parental_.sync();
  return services_.store() && settings && parental;
}

void Receiver::leaveStandby() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!std::exchange(standby_, false)) return;
    log().Info("standby ends");
  }
  // It counts as playing before standby, too, where playing was stopped first.
  const auto service = current();
  if (!service || !play(*service)) fail(service.has_value());
}

bool Receiver::addService(const AISRV_service_info& record) {
  Service service;
  service.key = {record.major, record.minor, record.frequency,
                 sourceOfId(record.service_id.input_source)};
  const bool knownType =
      record.service_type == AISRV_TYPE_RADIO || record.service_type == AISRV_TYPE_DATA;
  service.type = knownType ? record.service_type : uint32_t{AISRV_TYPE_TV};
  service.flags = record.AISRV_flags_;
  service.name = serviceName(record.name);
  const bool listed = services_.find(service.key).has_value();
  if (!isSource(service.key.source) || !isTunable(record.frequency) ||
      (record.modulation != 0 && record.modulation != modulationOf(service.key.source)) ||
      (!listed && !isNumber(service.key))) {
    log().Warn("cannot add %u-%u, source %u, frequency %u Hz, modulation %u: cannot be tuned",
               record.major, record.minor, record.service_id.input_source, record.frequency,
               record.modulation);
    return false;
  }
  if (!services_.add(service)) return false;
  decideStreams();  // its lock may be another one
  events_.raise(listed ? AFW_SERVICE_UPDATE : AFW_SERVICE_ADDED);
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

bool Receiver::modifyService(const AISRV_service_info& record) {
  if (!services_.setFlags(sourceOfId(record.service_id.input_source), record.service_id.service_rec,
                          record.AISRV_flags_, record.AISRV_fav_group_))
    return false;
  decideStreams();  // its lock may be another one
  return true;
}

bool Receiver::resetServices(uint32_t source) {
  if (!isSource(source)) return false;
  // What plays ends before the list is empty, and nothing begins until it is: a carrier would fill
  // it again.
  const bool reset = services_.reset(source, [&] {
    std::unique_lock<std::mutex> lock(mutex_);
    if (settings_.source == source) stopLocked();
    return lock;
  });
  if (reset) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return reset;
}

bool Receiver::reloadServices() {
  if (!services_.reload()) return false;
  liveTuner_.tellServices();
  decideStreams();
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

bool Receiver::chooseAudio(uint8_t track) {
  const auto service = current();
  if (!service || track == 0 || track > audioTracks(service->streams).size()) {
    log().Warn("there is no audio track %u", track);
    return false;
  }
  if (!services_.setAudio(service->key, track)) return false;
  decideStreams();
  return true;
}

uint8_t Receiver::audioTrack() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return audioTrack_;
}

AudioLanguages Receiver::audioLanguages() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_.languages;
}

bool Receiver::setAudioLanguage(int32_t AudioLanguages::*which, int32_t language) {
  if (static_cast<uint32_t>(language) > kMaxLanguage) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_.languages.*which = language;
  }
  decideStreams();
  return true;
}

bool Receiver::setDualMode(uint32_t mode) {
  if (mode > AIAUD_DUAL_MIXED) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_.dualMode = mode;
  }
  decideStreams();
  return keepSettings();
}

int32_t Receiver::alertSetting(int32_t AlertSettings::Values::*which) const {
  return alertSettings_.get().*which;
}

bool Receiver::setAlertSetting(int32_t AlertSettings::Values::*which, int32_t value) {
  alertSettings_.set(which, value);
  return keepSettings();
}

std::optional<Service> Receiver::current() const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto last = settings_.last.find(settings_.source);
  if (last == settings_.last.end()) return std::nullopt;
  auto service = services_.find(last->second);
  if (!service && playing_ && played_.key == last->second) service = played_;
  return service;
}

uint32_t Receiver::currentSource() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_.source;
}

uint32_t Receiver::tunerSource() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tunerSource_;
}

bool Receiver::isPlaying() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return playing_;
}

AIFE_tuning_details Receiver::tuning() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tuning_;
}

void Receiver::setSkipPlay(bool skip) {
  std::lock_guard<std::mutex> lock(mutex_);
  skipPlay_ = skip;
}

void Receiver::display() const {
  log().Info("%zu events wait to be reported", events_.waiting());
  log().Info("scan: %s", scanner_.isRunning() ? "runs" : "none");
  std::lock_guard<std::mutex> lock(mutex_);
  log().Info("tuner: %s %u Hz, %s", modulationName(tunerSource_), tuning_.frequency,
             standby_   ? "standby"
             : playing_ ? "playing"
                        : "not playing");
}

}  // namespace atschost
