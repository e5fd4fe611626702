#include "receiver/rating_regions.h"

#include "receiver/log.h"
#include "receiver/transport.h"

namespace atschost {
namespace {

constexpr size_t kMaxReported = 1024;

}  // namespace

void RatingRegions::receive(std::vector<RatingRegionTable> tables) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (RatingRegionTable& table : tables) {
    if (table.section.size() < 4) continue;
    const uint8_t* crc = table.section.data() + table.section.size() - 4;
    const std::pair<uint8_t, uint32_t> content(table.region,
                                               uint32_t{read16(crc)} << 16 | read16(crc + 2));
    if (events_.has_callback() && !reported_.count(content) && reported_.size() < kMaxReported) {
      reported_.insert(content);
      log().Info("rating region %u: table version %u", table.region, table.version);
      events_.raise(table.region == 1 || table.region == 2 ? AFW_RRT_UPDATE
                                                           : AFW_RRT_DOWNLOAD_UPDATE);
    }
    tables_[table.region] = std::move(table);
  }
}

std::optional<RatingRegionTable> RatingRegions::table(uint8_t region) const {
  std::lock_guard<std::mutex> lock(mutex_);
  const auto found = tables_.find(region);
  if (found == tables_.end()) return std::nullopt;
  return found->second;
}

}  // namespace atschost
