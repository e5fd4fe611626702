#include "receiver/control/settings.h"

#include <json/value.h>

#include <stdexcept>
#include <utility>

#include "aicn.h"
#include "aifw.h"
#include "receiver/air/frequency_plan.h"

namespace atschost {
namespace {

constexpr uint32_t kMaxLanguage = AICN_LANGUAGE_SPANISH;

uint32_t sourceMember(const Json::Value& value) {
  const uint32_t source = numberMember(value, "source", AI_INPUT_CABLE);
  if (!isSource(source)) throw std::runtime_error("\"source\" is unknown");
  return source;
}

ServiceKey keyMember(const Json::Value& value, uint32_t source) {
  ServiceKey key;
  key.source = source;
  key.major = static_cast<uint16_t>(numberMember(value, "major", 0xFFFF));
  key.minor = static_cast<uint16_t>(numberMember(value, "minor", 0xFFFF));
  key.frequency = numberMember(value, "frequency", UINT32_MAX);
  return key;
}

int32_t languageMember(const Json::Value& content, const char* name) {
  return static_cast<int32_t>(numberMember(content, name, kMaxLanguage, AICN_LANGUAGE_ENGLISH));
}

}  // namespace

Settings::Settings(const std::string& stateFolder, Clock& clock, AlertSettings& alerts)
    : clock_(clock), alerts_(alerts), file_(stateFolder, "settings.json", "atsc-host-settings-1") {
  std::optional<Values> loaded;
  file_.load([&](const Json::Value& content) { loaded = fromJson(content); });
  if (!loaded) return;
  clock_.setSetting(loaded->clock);
  alerts_.set(loaded->alerts);
  values_ = toStore_ = *std::move(loaded);
}

Settings::Values Settings::fromJson(const Json::Value& content) {
  Values values;
  values.source = sourceMember(content);
  // Older files only have the current service.
  if (const Json::Value& current = content["current"]; !current.isNull())
    values.last[values.source] = keyMember(current, values.source);
  const Json::Value& last = content["last"];
  if (!last.isNull() && !last.isArray()) throw std::runtime_error("\"last\" is not a list");
  for (const Json::Value& value : last) {
    const uint32_t source = sourceMember(value);
    values.last[source] = keyMember(value, source);
  }
  values.languages = {languageMember(content, "language"),
                      languageMember(content, "second_language")};
  values.dualMode = numberMember(content, "dual_mode", AIAUD_DUAL_MIXED, AIAUD_DUAL_STEREO);
  values.clock.zone =
      static_cast<int32_t>(numberMember(content, "zone", AIST_ZONE_HAWAII, AIST_ZONE_EASTERN));
  values.clock.automatic = boolMember(content, "automatic_clock", true);
  values.alerts.level =
      static_cast<int32_t>(numberMember(content, "alert_level", AIFW_EAS_MAXIMUM, AIFW_EAS_ALL));
  values.alerts.repeatedEvents = boolMember(content, "repeated_alerts", false);
  values.alerts.cableOnly = boolMember(content, "cable_alerts_only", false);
  return values;
}

Json::Value Settings::toJson(const Values& values) {
  Json::Value content;
  content["source"] = values.source;
  content["last"] = Json::arrayValue;
  for (const auto& [source, key] : values.last) {
    Json::Value value;
    value["source"] = source;
    value["major"] = key.major;
    value["minor"] = key.minor;
    value["frequency"] = key.frequency;
    content["last"].append(value);
  }
  content["language"] = values.languages.first;
  content["second_language"] = values.languages.second;
  content["dual_mode"] = values.dualMode;
  content["zone"] = values.clock.zone;
  content["automatic_clock"] = values.clock.automatic;
  content["alert_level"] = values.alerts.level;
  content["repeated_alerts"] = values.alerts.repeatedEvents != 0;
  content["cable_alerts_only"] = values.alerts.cableOnly != 0;
  return content;
}

uint32_t Settings::source() const {
  const MutexLock lock(mutex_);
  return values_.source;
}

uint32_t Settings::setSource(uint32_t source) {
  const MutexLock lock(mutex_);
  return std::exchange(values_.source, source);
}

std::optional<ServiceKey> Settings::last(uint32_t source) const {
  const MutexLock lock(mutex_);
  const auto found = values_.last.find(source);
  if (found == values_.last.end()) return std::nullopt;
  return found->second;
}

void Settings::setLast(const ServiceKey& key) {
  const MutexLock lock(mutex_);
  values_.last[key.source] = key;
}

AudioLanguages Settings::languages() const {
  const MutexLock lock(mutex_);
  return values_.languages;
}

bool Settings::setLanguage(int32_t AudioLanguages::*which, int32_t language) {
  if (static_cast<uint32_t>(language) > kMaxLanguage) return false;
  const MutexLock lock(mutex_);
  values_.languages.*which = language;
  return true;
}

uint32_t Settings::dualMode() const {
  const MutexLock lock(mutex_);
  return values_.dualMode;
}

bool Settings::setDualMode(uint32_t mode) {
  if (mode > AIAUD_DUAL_MIXED) return false;
  const MutexLock lock(mutex_);
  values_.dualMode = mode;
  return true;
}

int32_t Settings::alert(int32_t AlertSettings::Values::*which) const {
  return alerts_.get().*which;
}

bool Settings::setAlert(int32_t AlertSettings::Values::*which, int32_t value) {
  alerts_.set(which, value);
  return keep();
}

void Settings::store() {
  const MutexLock lock(mutex_);
  toStore_ = values_;
  toStore_.clock = clock_.setting();
  toStore_.alerts = alerts_.get();
}

bool Settings::sync() {
  const MutexLock fileLock(fileMutex_);
  Json::Value content;
  {
    const MutexLock lock(mutex_);
    content = toJson(toStore_);
  }
  return file_.store(std::move(content));
}

bool Settings::keep() {
  store();
  return sync();
}

}  // namespace atschost
