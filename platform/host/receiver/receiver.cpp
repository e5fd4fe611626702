#include "receiver/receiver.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include "middleware_types.h"
#include "receiver/stream/air.h"
#include "receiver/tables/service_name.h"

namespace atschost {
namespace {

// what a callback may take to return once the process exits, before its thread is left alone.
constexpr std::chrono::milliseconds kExitPatience(2000);

constexpr uint32_t kMaxLanguage = AICN_LANGUAGE_SPANISH;

const char* const kDualModes[] = {"stereo", "left", "right", "mixed"};

// Numbers that a virtual channel table can give; on cable also one-part numbers (A/65 6.3.2).
bool is_number(const ServiceKey& key) {
  constexpr uint16_t kMaxPart = 0x3FF;
  constexpr uint16_t kMaxOnePart = 0x3FFF;
  const bool one_part = key.source == AI_INPUT_CABLE && key.minor == 0;
  return key.major != 0 && key.major <= (one_part ? kMaxOnePart : kMaxPart) &&
         key.minor <= kMaxPart;
}

bool is_deleted(const Service& service) { return service.flags & AISRV_FLAG_DELETED; }
bool is_surfable(const Service& service) {
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

std::atomic<Receiver*> existing_receiver{nullptr};

}  // namespace

Receiver* Receiver::existing() { return existing_receiver; }

Receiver& Receiver::instance() {
  static Receiver& receiver = [&]() -> Receiver& {
    auto* made = new Receiver(state_folder());
    existing_receiver = made;
    static Receiver* at_exit = made;
    static const pid_t process = getpid();
    std::atexit([] {
      if (getpid() == process) at_exit->shut_down();  // a forked child has none of the threads
    });
    return *made;
  }();
  return receiver;
}

Receiver::Receiver(const std::string& state_folder)
    : gate_([this](AFW_event_t event) { events_.raise(event); }),
      settings_file_(state_folder, "settings.json", "atsc-host-settings-1"),
      rating_regions_(state_folder, events_, [this] { learned_region(); }),
      parental_(state_folder),
      services_(state_folder),
      live_tuner_(
          services_, guide_, rating_regions_, alert_settings_, events_,
          [this] { decide_streams(); }, [this] { look(false); }),
      guide_tuner_(services_, {[this](uint32_t source, uint32_t frequency) {
                                 return live_tuner_.is_tuned_to(source, frequency);
                               },
                               [this](uint32_t source, uint32_t frequency, CarrierResult& found) {
                                 take_guide(source, frequency, found, guide_round_);
                               },
                               [this] {
                                 rating_regions_.receive({});  // stores what waits
                                 // The first round may be over before the application listens.
                                 if (guide_round_.source_ids.empty())
                                   guide_round_ = {};
                                 else if (events_.has_callback())
                                   report(std::exchange(guide_round_, {}));
                               }}),
      scanner_(services_,
               {[this](uint32_t source, uint32_t frequency) { tuned_by_scan(source, frequency); },
                [this](uint32_t source, uint32_t frequency, CarrierResult& found,
                       Scanner::Outcome& outcome) {
                  if (found.stream) guide_tuner_.note(source, frequency, *found.stream);
                  take_guide(source, frequency, found, outcome);
                },
                [this](const Scanner::Outcome& outcome) { report(outcome); }}) {
  settings_file_.load([this](const Json::Value& content) { load_settings(content); });
  tuner_source_ = settings_.source;
  settings_to_store_ = settings_;
}

void Receiver::load_settings(const Json::Value& content) {
  Settings settings;
  const auto source_member = [](const Json::Value& value) {
    const uint32_t source = number_member(value, "source", AI_INPUT_CABLE);
    if (!is_source(source)) throw std::runtime_error("\"source\" is unknown");
    return source;
  };
  const auto key_member = [](const Json::Value& value, uint32_t source) {
    ServiceKey key;
    key.source = source;
    key.major = static_cast<uint16_t>(number_member(value, "major", 0xFFFF));
    key.minor = static_cast<uint16_t>(number_member(value, "minor", 0xFFFF));
    key.frequency = number_member(value, "frequency", UINT32_MAX);
    return key;
  };
  const auto language_member = [&](const char* name) {
    return static_cast<int32_t>(number_member(content, name, kMaxLanguage, AICN_LANGUAGE_ENGLISH));
  };
  settings.source = source_member(content);
  // Older files have the current service alone.
  if (const Json::Value& current = content["current"]; !current.isNull())
    settings.last[settings.source] = key_member(current, settings.source);
  const Json::Value& last = content["last"];
  if (!last.isNull() && !last.isArray()) throw std::runtime_error("\"last\" is not a list");
  for (const Json::Value& value : last) {
    const uint32_t source = source_member(value);
    settings.last[source] = key_member(value, source);
  }
  settings.languages = {language_member("language"), language_member("second_language")};
  settings.dual_mode = number_member(content, "dual_mode", AIAUD_DUAL_MIXED, AIAUD_DUAL_STEREO);
  settings.clock.zone =
      static_cast<int32_t>(number_member(content, "zone", AIST_ZONE_HAWAII, AIST_ZONE_EASTERN));
  settings.clock.automatic = bool_member(content, "automatic_clock", true);
  settings.alerts.level =
      static_cast<int32_t>(number_member(content, "alert_level", AIFW_EAS_MAXIMUM, AIFW_EAS_ALL));
  settings.alerts.repeated_events = bool_member(content, "repeated_alerts", false);
  settings.alerts.cable_only = bool_member(content, "cable_alerts_only", false);
  settings_ = settings;
  Clock::instance().set_setting(settings.clock);
  alert_settings_.set(settings.alerts);
}

void Receiver::store_settings() {
  std::lock_guard<std::mutex> lock(mutex_);
  settings_to_store_ = settings_;
  settings_to_store_.clock = Clock::instance().setting();
  settings_to_store_.alerts = alert_settings_.get();
}

bool Receiver::sync_settings() {
  std::lock_guard<std::mutex> file_lock(file_mutex_);
  Settings settings;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings = settings_to_store_;
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
  content["dual_mode"] = settings.dual_mode;
  content["zone"] = settings.clock.zone;
  content["automatic_clock"] = settings.clock.automatic;
  content["alert_level"] = settings.alerts.level;
  content["repeated_alerts"] = settings.alerts.repeated_events != 0;
  content["cable_alerts_only"] = settings.alerts.cable_only != 0;
  return settings_file_.store(std::move(content));
}

bool Receiver::keep_settings() {
  store_settings();
  return sync_settings();
}

// A scan takes the tuner away from what was playing.
void Receiver::tuned_by_scan(uint32_t source, uint32_t frequency) {
  std::lock_guard<std::mutex> lock(mutex_);
  tuner_source_ = source;
  tuning_ = {frequency, modulation_of(source), {}};
  stop_locked();
}

void Receiver::take_guide(uint32_t source, uint32_t frequency, CarrierResult& found,
                          Scanner::Outcome& outcome) {
  if (!found.guide.eits.empty()) outcome.guide = true;
  if (found.guide.mgt_seen && !found.guide_complete) outcome.guide_partial = true;
  const auto ids =
      source_ids_of(guide_.update(source, frequency, found.guide, found.gps_utc_offset));
  outcome.source_ids.insert(ids.begin(), ids.end());
  rating_regions_.receive(std::move(found.rating_regions));
}

void Receiver::report(const Scanner::Outcome& outcome) {
  if (outcome.services) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  // Events of a service that is listed anew may be known already.
  std::set<uint16_t> ids = outcome.source_ids;
  for (const auto& [source, frequency, id] : outcome.listed)
    if (!guide_.events(source, frequency, id)->empty()) ids.insert(id);
  events_.raise_guide_update({ids.begin(), ids.end()});
  if (outcome.guide && !outcome.guide_partial) events_.raise(AFW_EPG_COMPLETE);
}

void Receiver::shut_down() {
  events_.shut_down(kExitPatience);
  live_tuner_.shut_down();
  guide_tuner_.shut_down();
  scanner_.shut_down(kExitPatience);
  rating_regions_.store();
}

void Receiver::set_callback(AIFW_app_callback callback) {
  const bool begins = callback && !events_.has_callback();
  events_.set_callback(callback);
  if (begins) raise_whole_guide(current_source());
}

// An application that keeps the guide of the current source only has to look at it anew.
void Receiver::raise_whole_guide(uint32_t source) {
  events_.refresh_guide(guide_.source_ids(source));
}

bool Receiver::is_in_standby(const char* refused) const {
  std::lock_guard<std::mutex> lock(mutex_);
  if (standby_) log().Warn("%s: refused in standby", refused);
  return standby_;
}

bool Receiver::play(const Service& chosen) {
  if (!carrier_exists(chosen.key.source, chosen.key.frequency)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto listed = services_.find(chosen.key);
  if (standby_ || !listed) return false;  // it may just have gone
  const Service& service = *listed;
  const uint32_t source = service.key.source;
  const bool other_source = std::exchange(settings_.source, source) != source;
  settings_.last[source] = service.key;
  tuner_source_ = source;
  tuning_ = {service.key.frequency, modulation_of(source), {}};
  playing_ = true;
  played_ = service;
  picture_open_ = true;
  streams_told_.clear();
  gate_.begin(service.flags & AISRV_FLAG_LOCKED);
  look_locked(service, true);
  decide_streams_locked(service);
  live_tuner_.play(service.key);
  if (other_source) raise_whole_guide(source);
  return true;
}

void Receiver::decide_streams() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (const Service* service = playing_locked()) decide_streams_locked(*service);
}

// Decides what of the service that plays is seen and heard, when it begins to play and whenever its
// streams or the settings may be others, and tells it in the log.
void Receiver::decide_streams_locked(const Service& service) {
  gate_.set_locked(service.flags & AISRV_FLAG_LOCKED);
  const auto video = std::find_if(service.streams.begin(), service.streams.end(), is_video);
  const auto tracks = audio_tracks(service.streams);
  const std::string blocked = gate_.why_blocked();
  const bool withheld = gate_.is_closed() || !blocked.empty();
  audio_track_ = withheld ? uint8_t{0} : choose_track(tracks, service.audio, settings_.languages);
  std::string told;
  if (withheld)
    told = !gate_.is_closed() ? "blocked: " + blocked
           : blocked.empty()  ? "locked"
                              : "locked; blocked: " + blocked;
  else if (!picture_open_)
    told = "picture closed";
  else if (video == service.streams.end())
    told = "no video";
  else
    told = "video PID " + std::to_string(video->pid);
  if (withheld) {
    told += "; no picture, no sound";
  } else if (audio_track_ == 0) {
    told += ", no audio";
  } else {
    const AISRV_pid_info& track = tracks[audio_track_ - 1u];
    const std::string language = track_language(track);
    told += ", audio track " + std::to_string(audio_track_) + " (PID " + std::to_string(track.pid) +
            ", " + (language.empty() ? "no language" : language) + ")";
    if (settings_.dual_mode != AIAUD_DUAL_STEREO)
      told += std::string(", dual mono ") + kDualModes[settings_.dual_mode];
  }
  if (told == streams_told_) return;
  log().Info("playing %u-%u on %s %u Hz: %s", service.key.major, service.key.minor,
             modulation_name(service.key.source), service.key.frequency, told.c_str());
  streams_told_ = told;
}

// Nothing was played; `known` when there was something to play.
void Receiver::fail(bool known) {
  if (known) live_tuner_.report_failure();
  std::lock_guard<std::mutex> lock(mutex_);
  gate_.fail();
}

bool Receiver::play_first(uint32_t source, uint32_t frequency) {
  if (is_in_standby("play")) return false;
  const auto services = select(services_, source, [&](const Service& s) {
    return !is_deleted(s) && (frequency == 0 || s.key.frequency == frequency);
  });
  if (!services.empty() && play(services.front())) return true;
  fail(!services.empty());
  log().Warn("cannot play a service of source %u, frequency %u Hz: %s", source, frequency,
             services.empty() ? "none is listed" : "its carrier is gone");
  return false;
}

bool Receiver::play_source(uint32_t source) {
  if (is_in_standby("play")) return false;
  std::optional<ServiceKey> key;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (const auto last = settings_.last.find(source); last != settings_.last.end())
      key = last->second;
  }
  const auto last = key ? services_.find(*key) : std::nullopt;
  if (!last || is_deleted(*last)) return play_first(source, 0);
  if (play(*last)) return true;
  fail(true);
  log().Warn("cannot play %u-%u, the last one of source %u: its carrier is gone", key->major,
             key->minor, source);
  return false;
}

bool Receiver::change_channel(const AIFW_channel_change_request& request) {
  if (is_in_standby("channel change")) return false;
  const uint32_t source = request.input_source;
  std::vector<Service> services;  // in the order in which they are tried
  switch (request.mode) {
    case AIFW_CHANGE_DIRECT:
      services = select(services_, source, [&](const Service& s) {
        return !is_deleted(s) && s.key.major == request.major && s.key.minor == request.minor;
      });
      // The same number may be received on several frequencies.
      std::stable_partition(services.begin(), services.end(),
                            [&](const Service& s) { return s.record == request.service_rec; });
      break;
    case AIFW_CHANGE_UP:
    case AIFW_CHANGE_DOWN: {
      services = select(services_, source, is_surfable);
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

void Receiver::stop_locked() {
  playing_ = false;
  gate_.stop();
  audio_track_ = 0;
  live_tuner_.stop();
}

void Receiver::stop_playing() {
  std::lock_guard<std::mutex> lock(mutex_);
  stop_locked();
}

void Receiver::stop_tuning() {
  std::lock_guard<std::mutex> lock(mutex_);
  stop_locked();
  tuning_ = {};
}

bool Receiver::follow_tuner(uint32_t source) {
  if (!is_source(source)) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    tuner_source_ = source;
    if (std::exchange(settings_.source, source) == source) return true;
    stop_locked();
    if (tuning_.modulation != modulation_of(source)) tuning_ = {};
  }
  raise_whole_guide(source);
  return true;
}

void Receiver::close_picture() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    picture_open_ = false;
  }
  decide_streams();
}

bool Receiver::enter_standby() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!std::exchange(standby_, true)) log().Info("standby begins");
    stop_locked();
    gate_.forget();
  }
  const bool settings = keep_settings();
  const bool parental = parental_.sync();
  return services_.store() && settings && parental;
}

void Receiver::leave_standby() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!std::exchange(standby_, false)) return;
    log().Info("standby ends");
  }
  // It counts as playing before standby, too, where playing was stopped first.
  const auto service = current();
  if (!service || !play(*service)) fail(service.has_value());
}

bool Receiver::add_service(const AISRV_service_info& record) {
  Service service;
  service.key = {record.major, record.minor, record.frequency,
                 source_of_id(record.service_id.input_source)};
  const bool known_type =
      record.service_type == AISRV_TYPE_RADIO || record.service_type == AISRV_TYPE_DATA;
  service.type = known_type ? record.service_type : uint32_t{AISRV_TYPE_TV};
  service.flags = record.AISRV_flags_;
  service.name = service_name(record.name);
  const bool listed = services_.find(service.key).has_value();
  if (!is_source(service.key.source) || !is_tunable(record.frequency) ||
      (record.modulation != 0 && record.modulation != modulation_of(service.key.source)) ||
      (!listed && !is_number(service.key))) {
    log().Warn("cannot add %u-%u, source %u, frequency %u Hz, modulation %u: cannot be tuned",
               record.major, record.minor, record.service_id.input_source, record.frequency,
               record.modulation);
    return false;
  }
  if (!services_.add(service)) return false;
  decide_streams();  // its lock may be another one
  events_.raise(listed ? AFW_SERVICE_UPDATE : AFW_SERVICE_ADDED);
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

bool Receiver::modify_service(const AISRV_service_info& record) {
  if (!services_.set_flags(source_of_id(record.service_id.input_source),
                           record.service_id.service_rec, record.AISRV_flags_,
                           record.AISRV_fav_group_))
    return false;
  decide_streams();  // its lock may be another one
  return true;
}

bool Receiver::reset_services(uint32_t source) {
  if (!is_source(source)) return false;
  // What plays ends before the list is empty, and nothing begins until it is: a carrier would fill
  // it again.
  const bool reset = services_.reset(source, [&] {
    std::unique_lock<std::mutex> lock(mutex_);
    if (settings_.source == source) stop_locked();
    return lock;
  });
  if (reset) events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return reset;
}

bool Receiver::reload_services() {
  if (!services_.reload()) return false;
  live_tuner_.tell_services();
  decide_streams();
  events_.raise(AFW_SERVICE_BUILD_COMPLETED);
  return true;
}

bool Receiver::choose_audio(uint8_t track) {
  const auto service = current();
  if (!service || track == 0 || track > audio_tracks(service->streams).size()) {
    log().Warn("there is no audio track %u", track);
    return false;
  }
  if (!services_.set_audio(service->key, track)) return false;
  decide_streams();
  return true;
}

uint8_t Receiver::audio_track() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return audio_track_;
}

AudioLanguages Receiver::audio_languages() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_.languages;
}

bool Receiver::set_audio_language(int32_t AudioLanguages::*which, int32_t language) {
  if (static_cast<uint32_t>(language) > kMaxLanguage) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_.languages.*which = language;
  }
  decide_streams();
  return true;
}

bool Receiver::set_dual_mode(uint32_t mode) {
  if (mode > AIAUD_DUAL_MIXED) return false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    settings_.dual_mode = mode;
  }
  decide_streams();
  return keep_settings();
}

int32_t Receiver::alert_setting(int32_t AlertSettings::Values::*which) const {
  return alert_settings_.get().*which;
}

bool Receiver::set_alert_setting(int32_t AlertSettings::Values::*which, int32_t value) {
  alert_settings_.set(which, value);
  return keep_settings();
}

std::optional<Service> Receiver::current() const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto last = settings_.last.find(settings_.source);
  if (last == settings_.last.end()) return std::nullopt;
  auto service = services_.find(last->second);
  if (!service && playing_ && played_.key == last->second) service = played_;
  return service;
}

uint32_t Receiver::current_source() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_.source;
}

uint32_t Receiver::tuner_source() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tuner_source_;
}

bool Receiver::is_playing() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return playing_;
}

AIFE_tuning_details Receiver::tuning() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return tuning_;
}

void Receiver::set_skip_play(bool skip) {
  std::lock_guard<std::mutex> lock(mutex_);
  skip_play_ = skip;
}

void Receiver::display() const {
  log().Info("%zu events wait to be reported", events_.waiting());
  log().Info("scan: %s", scanner_.is_running() ? "runs" : "none");
  std::lock_guard<std::mutex> lock(mutex_);
  log().Info("tuner: %s %u Hz, %s", modulation_name(tuner_source_), tuning_.frequency,
             standby_   ? "standby"
             : playing_ ? "playing"
                        : "not playing");
}

uint32_t source_of_id(uint32_t input_source) {
  switch (input_source) {
    case 0:
    case AI_INPUT_TERRESTRIAL:
      return AI_INPUT_TERRESTRIAL;
    case 1:
    case AI_INPUT_CABLE:
      return AI_INPUT_CABLE;
    default:
      return 0;
  }
}

void copy_record(const Service& service, AISRV_service_info& record) {
  const multiple_lang_t lent = record.name;
  record = {};
  record.service_id = {service.record, service.key.source};
  record.service_type = service.type;
  record.major = service.key.major;
  record.minor = service.key.minor;
  record.frequency = service.key.frequency;
  record.source_id = service.source_id;
  record.modulation = modulation_of(service.key.source);
  record.AISRV_fav_group_ = service.favourites;
  record.AISRV_flags_ = service.flags;
  record.build_from_pmt = service.from_pmt ? 1 : 0;
  record.transport_stream_id = service.tsid;
  record.program_number = service.program_number;
  record.name = {lent.text, 0, AI_TEXT_UTF16BE};
  if (!lent.text) return;
  const size_t length = std::min<size_t>(service.name.size(), lent.length) & ~size_t{1};
  std::memcpy(lent.text, service.name.data(), length);
  record.name.length = static_cast<uint16_t>(length);
}

}  // namespace atschost
