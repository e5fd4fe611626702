// What a scan has found so far.
#ifndef ATSC_WEB_TELEVISION_SCAN_PICTURE_H_
#define ATSC_WEB_TELEVISION_SCAN_PICTURE_H_

#include <json/value.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/source.h"

namespace web {

// Puts the SCAN callbacks of a scan together, whichever process started it. One thread.
class ScanPicture {
 public:
  using Clock = std::chrono::steady_clock;

  // A scan was asked for by this program: a callback does not tell the source.
  void asked(const Json::Value& start);
  void refused();
  void stopped(Clock::time_point now);
  // A SCAN callback. `current` is the source of the current channel.
  void update(const Json::Value& message, const apps::Source& current, Clock::time_point now);
  // Ends a scan that sends nothing any more, and forgets one that ended long ago. Returns whether
  // the picture has changed.
  bool tick(Clock::time_point now);
  // Returns when to call tick() again.
  std::optional<Clock::time_point> deadline() const;

  bool isRunning() const { return running_; }
  Json::Value json() const;  // null without a scan

 private:
  struct Place {
    int64_t frequency;
    bool carrier;
    int64_t services;
  };

  void begin(Clock::time_point now);
  void learnSource(const Json::Value& message);

  const apps::Source* source_ = nullptr;
  bool isSourceSure_ = false;
  std::optional<int64_t> single_;  // RF channel of a scan of one frequency
  const apps::Source* askedSource_ = nullptr;
  std::optional<int64_t> askedSingle_;
  bool known_ = false;  // there is a picture
  bool running_ = false;
  bool over_ = false;
  bool stopped_ = false;
  int64_t progress_ = 0;
  int64_t frequency_ = 0;
  int64_t services_ = 0;
  int64_t tv_ = 0;
  int64_t radio_ = 0;
  int64_t data_ = 0;
  std::vector<Place> band_;
  Clock::time_point lastSign_ = {};
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_SCAN_PICTURE_H_
