// The rating regions of AIPC.
#include "aipc.h"
#include "modules/call.h"
#include "modules/host.h"
#include "receiver/tables/psip_text.h"

using atschost::copyText;
using atschost::hostReceiver;
using atschost::loggedStatusOf;
using atschost::RatingRegion;
using atschost::statusOf;

namespace {

// Returns whether `input` is the AIIN_input_t.handle of an input. Both inputs have the same tables.
bool isInput(uint32_t input) { return input == 1 || input == 2; }

std::shared_ptr<const RatingRegion> regionOf(uint32_t input, uint8_t number) {
  return isInput(input) ? hostReceiver().ratingRegions().region(number) : nullptr;
}

// Returns null when there is no such dimension.
const RatingRegion::Dimension* dimensionOf(const std::shared_ptr<const RatingRegion>& region,
                                           uint8_t number) {
  return region && number < region->dimensions.size() ? &region->dimensions[number] : nullptr;
}

}  // namespace

int AIPC_get_RRT_regions(uint32_t input, uint8_t* count, uint8_t* regions) {
  return statusOf(__func__, [&] {
    if (!isInput(input) || !count || (!regions && *count > 0)) return false;
    const uint8_t capacity = *count;
    *count = 0;
    for (const uint8_t number : hostReceiver().ratingRegions().numbers())
      if (*count < capacity) regions[(*count)++] = number;
    return true;
  });
}

int AIPC_get_RRT_details_with_version(uint32_t input, uint8_t region, AIPC_RRT_details* details,
                                      uint8_t* version) {
  return statusOf(__func__, [&] {
    const auto known = regionOf(input, region);
    if (!known || !details || !version) return false;
    details->region = known->number;
    copyText(known->name, details->name);
    *version = known->version;
    return true;
  });
}

int AIPC_num_of_dimension(uint32_t input, uint8_t region, uint8_t* count) {
  return statusOf(__func__, [&] {
    const auto known = regionOf(input, region);
    if (!known || !count) return false;
    *count = static_cast<uint8_t>(known->dimensions.size());
    return true;
  });
}

int AIPC_dimension_name_grad(uint32_t input, uint8_t region, uint8_t dimension,
                             multiple_lang_t* name, uint8_t* levels, uint8_t* graduated) {
  return statusOf(__func__, [&] {
    const auto known = regionOf(input, region);
    const RatingRegion::Dimension* asked = dimensionOf(known, dimension);
    if (!asked || !name || !levels || !graduated) return false;
    copyText(asked->name, *name);
    *levels = static_cast<uint8_t>(asked->values.size());
    *graduated = asked->graduated ? 1 : 0;
    return true;
  });
}

int AIPC_get_rating_value_text(uint32_t input, uint8_t region, uint8_t dimension, uint8_t value,
                               AIPC_rating_value_text* texts) {
  return statusOf(__func__, [&] {
    const auto known = regionOf(input, region);
    const RatingRegion::Dimension* asked = dimensionOf(known, dimension);
    if (!asked || value >= asked->values.size() || !texts) return false;
    copyText(asked->values[value].abbreviation, texts->abbreviation);
    copyText(asked->values[value].text, texts->text);
    return true;
  });
}

int AIPC_collect_RRT() {
  return loggedStatusOf(__func__, [] { return hostReceiver().collectRatingRegions(); });
}
