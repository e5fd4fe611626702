#include "receiver/receiver.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>
#include <utility>

#include "middleware_types.h"
#include "receiver/air.h"

namespace atschost {
namespace {

// what a callback may take to return once the process exits, before its thread is left alone.
constexpr std::chrono::milliseconds kExitPatience(2000);

bool is_deleted(const Service& service) { return service.flags & AISRV_FLAG_DELETED; }
bool is_surfable(const Service& service) {
  return !(service.flags & (AISRV_FLAG_DELETED | AISRV_FLAG_SKIPPED));
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

Receiver& Receiver::instance() {
  static Receiver& receiver = [&]() -> Receiver& {
    auto* made = new Receiver(state_folder());
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
    : settings_{AI_INPUT_TERRESTRIAL, std::nullopt},
      settings_file_(state_folder, "settings.json", "atsc-host-settings-1"),
      rating_regions_(events_),
      services_(state_folder),
      live_tuner_(services_, guide_, rating_regions_, events_),
      guide_tuner_(services_, {[this](uint32_t source, uint32_t frequency) {
                                 return live_tuner_.is_tuned_to(source, frequency);
                               },
                               [this](uint32_t source, uint32_t frequency, CarrierResult& found) {
                                 take_guide(source, frequency, found, guide_round_);
                               },
                               [this] {
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
  settings_to_store_ = settings_;
}

void Receiver::load_settings(const Json::Value& content) {
  Settings settings{number_member(content, "source", AI_INPUT_CABLE), std::nullopt};
  if (!is_source(settings.source)) throw std::runtime_error("\"source\" is unknown");
  if (const Json::Value& current = content["current"]; !current.isNull()) {
    ServiceKey key;
    key.source = settings.source;
    key.major = static_cast<uint16_t>(number_member(current, "major", 0xFFFF));
    key.minor = static_cast<uint16_t>(number_member(current, "minor", 0xFFFF));
    key.frequency = number_member(current, "frequency", UINT32_MAX);
    settings.current = key;
  }
  settings_ = settings;
}

void Receiver::store_settings() {
  std::lock_guard<std::mutex> file_lock(file_mutex_);
  std::lock_guard<std::mutex> lock(mutex_);
  settings_to_store_ = settings_;
}

bool Receiver::sync_settings() {
  std::lock_guard<std::mutex> file_lock(file_mutex_);
  Json::Value content;
  content["source"] = settings_to_store_.source;
  if (const auto& key = settings_to_store_.current) {
    content["current"]["major"] = key->major;
    content["current"]["minor"] = key->minor;
    content["current"]["frequency"] = key->frequency;
  }
  return settings_file_.store(std::move(content));
}

// A scan takes the tuner away from what was playing.
void Receiver::tuned_by_scan(uint32_t source, uint32_t frequency) {
  std::lock_guard<std::mutex> lock(mutex_);
  tuning_ = {frequency, modulation_of(source)};
  playing_ = false;
  live_tuner_.stop();
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
}

void Receiver::set_callback(AIFW_app_callback callback) {
  const bool begins = callback && !events_.has_callback();
  events_.set_callback(callback);
  if (begins) raise_whole_guide(current_source());
}

// An application that keeps the guide of the current source only has to look at it anew.
void Receiver::raise_whole_guide(uint32_t source) {
  events_.raise_guide_update(guide_.source_ids(source));
}

bool Receiver::play(const Service& service) {
  if (!carrier_exists(service.key.source, service.key.frequency)) return false;
  std::lock_guard<std::mutex> lock(mutex_);
  const bool other_source = settings_.source != service.key.source;
  settings_ = {service.key.source, service.key};
  tuning_ = {service.key.frequency, modulation_of(service.key.source)};
  playing_ = true;
  log().Info("playing %u-%u on %s %u Hz", service.key.major, service.key.minor,
             modulation_name(service.key.source), service.key.frequency);
  live_tuner_.play(service.key);
  if (other_source) raise_whole_guide(service.key.source);
  return true;
}

bool Receiver::play_first(uint32_t source, uint32_t frequency) {
  const auto services = select(services_, source, [&](const Service& s) {
    return !is_deleted(s) && (frequency == 0 || s.key.frequency == frequency);
  });
  if (!services.empty() && play(services.front())) return true;
  if (!services.empty()) live_tuner_.report_failure();
  log().Warn("cannot play a service of source %u, frequency %u Hz: %s", source, frequency,
             services.empty() ? "none is listed" : "its carrier is gone");
  return false;
}

bool Receiver::change_channel(const AIFW_channel_change_request& request) {
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
        if (settings_.source == source) from = settings_.current;
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
  if (!services.empty()) live_tuner_.report_failure();
  log().Warn("channel change (mode %u, source %u, %u-%u): %s", request.mode, source, request.major,
             request.minor, services.empty() ? "no such service" : "no carrier");
  return false;
}

void Receiver::stop_playing() {
  std::lock_guard<std::mutex> lock(mutex_);
  playing_ = false;
  live_tuner_.stop();
}

std::optional<Service> Receiver::current() const {
  std::optional<ServiceKey> key;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    key = settings_.current;
  }
  std::optional<Service> found;
  if (!key) return found;
  services_.visit(key->source, [&](const Service& service) {
    if (service.key == *key) found = service;
    return !found;
  });
  return found;
}

uint32_t Receiver::current_source() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return settings_.source;
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

void Receiver::set_password_required(bool required) {
  std::lock_guard<std::mutex> lock(mutex_);
  password_required_ = required;
}

void Receiver::set_password_given(bool given) {
  std::lock_guard<std::mutex> lock(mutex_);
  password_given_ = given;
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
