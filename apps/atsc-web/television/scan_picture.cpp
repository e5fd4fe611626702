#include "television/scan_picture.h"

#include <algorithm>
#include <utility>

#include "common/json.h"

namespace web {
namespace {

// A scan reports every frequency. Without a report for this long, another process has stopped it.
constexpr std::chrono::seconds kScanSilence(10);
constexpr std::chrono::minutes kScanShown(10);

// More frequencies than any plan has.
constexpr size_t kMaxPlaces = 1000;

constexpr int64_t kVsbModulation = 64;
constexpr int64_t kQamModulation = 1024;

}  // namespace

void ScanPicture::asked(const Json::Value& start) {
  // The service converts a number to a text here: the text that it compares with is no number.
  askedSource_ = &apps::sourceNamed(start.get("src", "VSB") == "VSB" ? "VSB" : "QAM");
  const int64_t frequency = apps::integer(start, "freq");
  const auto hertz = apps::frequencyOf(*askedSource_, frequency);
  askedSingle_.reset();
  if (start.get("mode", "auto") != "auto" && hertz) {
    askedSingle_ = apps::rfChannel(*askedSource_, *hertz);
  }
}

void ScanPicture::refused() { askedSource_ = nullptr; }

void ScanPicture::stopped(Clock::time_point now) {
  if (!running_) return;
  running_ = false;
  stopped_ = true;
  lastSign_ = now;
}

void ScanPicture::begin(Clock::time_point now) {
  const apps::Source* const asked = askedSource_;
  const auto single = askedSingle_;
  *this = ScanPicture();
  source_ = asked;
  isSourceSure_ = asked != nullptr;
  if (asked != nullptr) single_ = single;
  known_ = running_ = true;
  lastSign_ = now;
}

// The frequency plans share channels: what only one of them has, or a carrier, decides.
void ScanPicture::learnSource(const Json::Value& message) {
  if (isSourceSure_) return;
  const int64_t modulation = apps::integer(message, "type");
  const int64_t frequency = apps::integer(message, "cur_freq");
  const int64_t channel = apps::integer(message, "chn_num");
  const apps::Source* sure = modulation == kVsbModulation   ? &apps::kSources[0]
                             : modulation == kQamModulation ? &apps::kSources[1]
                                                            : nullptr;
  if (sure == nullptr && channel != 0) {
    const auto has = [&](const apps::Source& source) {
      return apps::rfChannel(source, frequency) == channel;
    };
    const bool first = has(apps::kSources[0]);
    if (first != has(apps::kSources[1])) sure = &apps::kSources[first ? 0 : 1];
  }
  if (sure == nullptr) return;
  source_ = sure;
  isSourceSure_ = true;
}

void ScanPicture::update(const Json::Value& message, const apps::Source& current,
                         Clock::time_point now) {
  const Json::Value state = message["msg"];
  if (state == "START" || !running_) begin(now);
  askedSource_ = nullptr;
  lastSign_ = now;
  learnSource(message);
  if (source_ == nullptr) source_ = &current;
  if (state == "PROGRESS" || state == "OVER") {
    constexpr int64_t kMostServices = 60'000;
    const int64_t found =
        std::clamp<int64_t>(apps::integer(message, "ser_found"), 0, kMostServices);
    const int64_t frequency = apps::integer(message, "cur_freq");
    const int64_t more = std::max<int64_t>(0, found - std::exchange(services_, found));
    progress_ = std::clamp<int64_t>(apps::integer(message, "progress"), 0, 100);
    frequency_ = frequency;
    tv_ = apps::integer(message, "tv_num");
    radio_ = apps::integer(message, "radio_num");
    data_ = apps::integer(message, "data_num");
    if (state == "PROGRESS") {
      const bool carrier = frequency != 0 && apps::integer(message, "lock_freq") == frequency;
      if (!band_.empty() && band_.back().frequency == frequency) {
        band_.back().carrier |= carrier;
        band_.back().services += more;
      } else if (band_.size() < kMaxPlaces) {
        band_.push_back({frequency, carrier, more});
      }
    } else if (more > 0 && !band_.empty()) {
      band_.back().services += more;
    }
  }
  if (state == "OVER" || state == "ERROR") {
    running_ = false;
    over_ = state == "OVER";
    stopped_ = state == "ERROR";
  }
}

bool ScanPicture::tick(Clock::time_point now) {
  const auto end = deadline();
  if (!end || now < *end) return false;
  if (running_) {
    stopped(now);
  } else {
    known_ = false;
  }
  return true;
}

std::optional<ScanPicture::Clock::time_point> ScanPicture::deadline() const {
  if (!known_) return std::nullopt;
  return running_ ? lastSign_ + kScanSilence : lastSign_ + kScanShown;
}

Json::Value ScanPicture::json() const {
  if (!known_) return Json::Value();
  Json::Value json;
  json["running"] = running_;
  json["over"] = over_;
  json["stopped"] = stopped_;
  json["src"] = source_->name;
  json["rf"] = single_ ? Json::Value(Json::Int64{*single_}) : Json::Value();
  json["progress"] = Json::Int64{progress_};
  json["freq"] = Json::Int64{frequency_};
  json["services"] = Json::Int64{services_};
  json["tv"] = Json::Int64{tv_};
  json["radio"] = Json::Int64{radio_};
  json["data"] = Json::Int64{data_};
  Json::Value& band = json["band"] = Json::arrayValue;
  for (const Place& place : band_) {
    Json::Value row;
    row["rf"] = apps::rfChannel(*source_, place.frequency);
    row["freq"] = Json::Int64{place.frequency};
    row["carrier"] = place.carrier;
    row["services"] = Json::Int64{place.services};
    band.append(std::move(row));
  }
  return json;
}

}  // namespace web
