// AIPC: parental control without rating regions, limits and ratings. Blocks nothing; stores the
// parental details.
#include "aifw.h"
#include "aipc.h"
#include "set.h"

using namespace minimal;

int AIPC_get_RRT_regions(uint32_t /*input*/, uint8_t* count, uint8_t* /*regions*/) {
  if (count == nullptr) return kFailure;
  *count = 0;
  return kSuccess;
}

int AIPC_get_RRT_details_with_version(uint32_t /*input*/, uint8_t /*region*/,
                                      AIPC_RRT_details* /*details*/, uint8_t* /*version*/) {
  return kFailure;
}

int AIPC_num_of_dimension(uint32_t /*input*/, uint8_t /*region*/, uint8_t* /*count*/) {
  return kFailure;
}

int AIPC_dimension_name_grad(uint32_t /*input*/, uint8_t /*region*/, uint8_t /*dimension*/,
                             multiple_lang_t* /*name*/, uint8_t* /*levels*/,
                             uint8_t* /*graduated*/) {
  return kFailure;
}

int AIPC_get_rating_value_text(uint32_t /*input*/, uint8_t /*region*/, uint8_t /*dimension*/,
                               uint8_t /*value*/, AIPC_rating_value_text* /*texts*/) {
  return kFailure;
}

int AIPC_collect_RRT(void) { return kFailure; }

// Returns a rating without limits.
int AIPC_retreive_rating(AIPC_dime_t* rating) {
  if (rating == nullptr) return kFailure;
  const uint32_t region = rating->region;
  *rating = {};
  rating->region = region;
  return kSuccess;
}

int AIPC_store_rating(AIPC_dime_t /*rating*/) { return kFailure; }

int AIPC_rating_encode(AIPC_dime_t* /*rating*/, uint8_t /*dimension*/, uint8_t /*value*/,
                       uint8_t /*block*/) {
  return kFailure;
}

int AIPC_drrt_rating_encode(AIPC_dime_t* /*rating*/, uint8_t /*dimension*/, uint8_t /*value*/,
                            uint8_t /*block*/) {
  return kFailure;
}

int AIPC_get_parental_details(AIPC_parental_details* details) {
  if (details == nullptr) return kFailure;
  *details = {};
  details->preset_mode = setting("parental_preset", 0);
  details->region = setting("parental_region", AIPC_REGION_US);
  details->region_value = static_cast<uint8_t>(setting("parental_region_value", 0));
  details->rated = static_cast<uint8_t>(setting("parental_rated", 0));
  details->enabled = static_cast<uint8_t>(setting("parental_enabled", 0));
  return kSuccess;
}

// Stores the details at once, not only in AIPC_store_all().
int AIPC_set_parental_details(const AIPC_parental_details* details) {
  if (details == nullptr) return kFailure;
  changeSettings({{"parental_preset", details->preset_mode},
                  {"parental_region", details->region},
                  {"parental_region_value", details->region_value},
                  {"parental_rated", details->rated},
                  {"parental_enabled", details->enabled}});
  report(AFW_PARENTAL_UPDATE);
  return kSuccess;
}

int AIFW_get_curr_region(AIPC_region_list_t* region) {
  if (region == nullptr) return kFailure;
  region->region = static_cast<uint32_t>(setting("parental_region", AIPC_REGION_US));
  return kSuccess;
}

int AIFW_set_curr_region(int32_t region) {
  if (region < 1 || region > 255) return kFailure;
  changeSettings({{"parental_region", region}});
  report(AFW_PARENTAL_UPDATE);
  return kSuccess;
}

int AIPC_set_rating_status_unrated_groups(int /*block*/, int32_t /*group*/) { return kFailure; }

int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group) {
  if (block == nullptr || group < 0 || group >= AIPC_UNRATED_GROUPS) return kFailure;
  *block = 0;
  return kSuccess;
}

int AIPC_reset_user_ratings(void) { return kSuccess; }

int AIPC_set_default_settings(void) {
  AIPC_parental_details details = {};
  details.region = AIPC_REGION_US;
  return AIPC_set_parental_details(&details);
}

int AIPC_store_all(void) { return kSuccess; }

// Fails: no rating is known.
int AIPC_check_rating(uint32_t /*country*/, uint32_t /*system*/,
                      const multiple_lang_t* /*rating*/) {
  return -1;
}
