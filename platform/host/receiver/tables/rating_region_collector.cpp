#include "receiver/tables/rating_region_collector.h"

#include <algorithm>
#include <utility>

namespace atschost {

const char* RatingRegionCollector::push(const Section& section) {
  const auto number = static_cast<uint8_t>(section.extension);
  const uint8_t* const end = section.bytes + section.size;
  std::vector<uint8_t>& known = known_[number];
  if (std::equal(known.begin(), known.end(), section.bytes, end)) return nullptr;
  RatingRegionTable table;
  if (const char* fault = readRatingRegion(section, table.region)) return fault;
  known.assign(section.bytes, end);
  table.section = known;
  const auto isOfRegion = [&](const RatingRegionTable& t) { return t.region.number == number; };
  new_.erase(std::remove_if(new_.begin(), new_.end(), isOfRegion), new_.end());
  new_.push_back(std::move(table));
  return nullptr;
}

std::vector<RatingRegionTable> RatingRegionCollector::take() { return std::exchange(new_, {}); }

}  // namespace atschost
