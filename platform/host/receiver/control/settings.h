// The viewer's settings, and the services that played last.
#ifndef ATSC_HOST_RECEIVER_CONTROL_SETTINGS_H_
#define ATSC_HOST_RECEIVER_CONTROL_SETTINGS_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "aiaud.h"
#include "middleware_types.h"
#include "process/mutex.h"
#include "receiver/events/alerts.h"
#include "receiver/station/audio.h"
#include "receiver/station/clock.h"
#include "receiver/station/service.h"
#include "receiver/station/state_file.h"

namespace atschost {

// Stores the settings in a file, including those of the clock and of the alerts. Any thread. Only
// sync(), keep() and setAlert() wait for the disk.
class Settings {
 public:
  // Loads the settings of the last run and applies those of the clock and of the alerts.
  Settings(const std::string& stateFolder, Clock& clock, AlertSettings& alerts);

  // Returns the current source, AI_INPUT_*.
  uint32_t source() const;
  // Returns the previous source.
  uint32_t setSource(uint32_t source);

  // Returns the service that played last on a source.
  std::optional<ServiceKey> last(uint32_t source) const;
  void setLast(const ServiceKey& key);

  AudioLanguages languages() const;
  // Returns false for a language that is not one of AICN_LANGUAGE_*.
  bool setLanguage(int32_t AudioLanguages::*which, int32_t language);

  // Returns the mode, AIAUD_DUAL_*.
  uint32_t dualMode() const;
  // Returns false for an unknown mode.
  bool setDualMode(uint32_t mode);

  int32_t alert(int32_t AlertSettings::Values::*which) const;
  // Returns false, but with the value in force, if it cannot be stored.
  bool setAlert(int32_t AlertSettings::Values::*which, int32_t value);

  // Copies the current settings for the next sync().
  void store();
  // Writes the copy of store(). On failure logs the reason and returns false.
  bool sync();
  // Calls store() and sync().
  bool keep();

 private:
  struct Values {
    uint32_t source = AI_INPUT_TERRESTRIAL;
    std::map<uint32_t, ServiceKey> last;  // by source
    AudioLanguages languages;
    uint32_t dualMode = AIAUD_DUAL_STEREO;
    // Used for storing only: clock and alerts have the current values.
    Clock::Setting clock;
    AlertSettings::Values alerts;
  };

  static Values fromJson(const Json::Value& content);
  static Json::Value toJson(const Values& values);

  Clock& clock_;
  AlertSettings& alerts_;
  mutable Mutex mutex_;
  Values values_ GUARDED_BY(mutex_);
  Values toStore_ GUARDED_BY(mutex_);
  Mutex fileMutex_;
  StateFile file_ GUARDED_BY(fileMutex_);
};

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_CONTROL_SETTINGS_H_
