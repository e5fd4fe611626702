#include "receiver/viewing/rating_regions.h"

#include <stdexcept>
#include <string_view>

#include "aipc.h"
#include "process/log.h"
#include "receiver/stream/transport.h"

namespace atschost {
namespace {

constexpr size_t kMaxReported = 1024;
// Minimum time between two writes, and after a failure.
constexpr std::chrono::seconds kStoreInterval(10);
constexpr std::chrono::minutes kRetryInterval(10);

constexpr std::string_view kDigits = "0123456789abcdef";

std::string toHex(const std::vector<uint8_t>& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::vector<uint8_t> fromHex(const std::string& text) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    const size_t high = kDigits.find(text[i]), low = kDigits.find(text[i + 1]);
    if (high == std::string::npos || low == std::string::npos) return {};
    bytes.push_back(static_cast<uint8_t>(high << 4 | low));
  }
  return bytes;
}

uint32_t crcOf(const std::vector<uint8_t>& section) {
  const uint8_t* crc = section.data() + section.size() - 4;
  return uint32_t{read16(crc)} << 16 | read16(crc + 2);
}

}  // namespace

RatingRegions::RatingRegions(const std::string& stateFolder, EventQueue& events,
                             std::function<void()> learned)
    : events_(events),
      learned_(std::move(learned)),
      file_(stateFolder, "regions.json", "atsc-host-regions-1") {
  Tables tables;
  for (RatingRegion& region : standardRatingRegions()) {
    const uint8_t number = region.number;
    tables[number].region = std::make_shared<const RatingRegion>(std::move(region));
  }
  file_.load([&](const Json::Value& content) { load(content, tables); });
  known_ = std::move(tables);
}

// Skips tables that cannot be used.
void RatingRegions::load(const Json::Value& content, Tables& tables) {
  const Json::Value& sections = content["sections"];
  if (!sections.isArray()) throw std::runtime_error("\"sections\" is not a list");
  std::map<uint8_t, Known> loaded;
  size_t unusable = 0;
  const char* lastFault = nullptr;
  for (const Json::Value& value : sections) {
    if (!value.isString()) throw std::runtime_error("a section is not a text");
    std::vector<uint8_t> section = fromHex(value.asString());
    RatingRegion region;
    if (const char* fault = readRatingRegion(section.data(), section.size(), region)) {
      ++unusable;
      lastFault = fault;
      continue;
    }
    const uint8_t number = region.number;
    loaded[number] = {std::make_shared<const RatingRegion>(std::move(region)), std::move(section)};
  }
  if (lastFault)
    log().Warn("%zu stored rating region tables are not used: %s", unusable, lastFault);
  for (auto& [number, known] : loaded) tables[number] = std::move(known);
}

void RatingRegions::receive(std::vector<RatingRegionTable> tables) {
  bool learned = false;
  bool store = false;
  {
    const MutexLock lock(mutex_);
    for (RatingRegionTable& table : tables) {
      const uint8_t number = table.region.number;
      const std::pair<uint8_t, uint32_t> content(number, crcOf(table.section));
      if (events_.hasCallback() && !reported_.count(content) && reported_.size() < kMaxReported) {
        reported_.insert(content);
        log().Info("rating region %u: table version %u", number, table.region.version);
        events_.raise(number == AIPC_REGION_US || number == AIPC_REGION_CANADA
                          ? AFW_RRT_UPDATE
                          : AFW_RRT_DOWNLOAD_UPDATE);
      }
      Known& known = known_[number];
      learned |= !known.region;
      if (known.section == table.section) continue;
      known.region = std::make_shared<const RatingRegion>(std::move(table.region));
      known.section = std::move(table.section);
      changed_ = true;
    }
    store = changed_;
  }
  if (learned && learned_) learned_();
  if (!store) return;
  // Does not wait while another thread stores: the next call stores the tables.
  if (!fileMutex_.tryLock()) return;
  const MutexLock fileLock(fileMutex_, std::adopt_lock);
  if (std::chrono::steady_clock::now() >= nextStore_) storeLocked();
}

bool RatingRegions::store() {
  const MutexLock fileLock(fileMutex_);
  return storeLocked();
}

bool RatingRegions::storeLocked() {
  Json::Value content;
  content["sections"] = Json::arrayValue;
  {
    const MutexLock lock(mutex_);
    if (!changed_) return true;
    changed_ = false;
    for (const auto& [number, known] : known_)
      if (!known.section.empty()) content["sections"].append(toHex(known.section));
  }
  const bool stored = file_.store(std::move(content));
  nextStore_ = std::chrono::steady_clock::now();
  nextStore_ += stored ? kStoreInterval : kRetryInterval;
  if (!stored) {
    const MutexLock lock(mutex_);
    changed_ = true;
  }
  return stored;
}

std::shared_ptr<const RatingRegion> RatingRegions::region(uint8_t number) const {
  const MutexLock lock(mutex_);
  const auto found = known_.find(number);
  return found == known_.end() ? nullptr : found->second.region;
}

std::vector<uint8_t> RatingRegions::numbers() const {
  std::vector<uint8_t> numbers;
  const MutexLock lock(mutex_);
  for (const auto& [number, known] : known_) numbers.push_back(number);
  return numbers;
}

}  // namespace atschost
