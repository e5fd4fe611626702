#include "aipc.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

#include "modules/call.h"
#include "modules/host.h"

using atschost::hostReceiver;
using atschost::loggedStatusOf;
using atschost::memberOf;
using atschost::ParentalSettings;

namespace {

using Details = AIPC_parental_details;

bool change(const std::function<bool(ParentalSettings&)>& edit) {
  return hostReceiver().changeParental(edit);
}

bool isGroup(int32_t group) { return group >= 0 && group < AIPC_UNRATED_GROUPS; }

void removeLimits(ParentalSettings& settings) {
  settings.limits.clear();
  settings.unratedGroups = {};
}

}  // namespace

int AIPC_retreive_rating(AIPC_dime_t* rating) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!rating) return false;
        *rating = hostReceiver().parental().settings()->limitsOf(rating->region);
        return true;
      },
      memberOf(rating, &AIPC_dime_t::region));
}

int AIPC_store_rating(AIPC_dime_t rating) {
  return loggedStatusOf(
      __func__,
      [&] {
        return change([&](ParentalSettings& settings) {
          if (!atschost::isRegion(rating.region)) return false;
          settings.setLimits(rating);
          return true;
        });
      },
      rating.region);
}

int AIPC_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  return loggedStatusOf(
      __func__,
      [&] { return rating && atschost::encodeRating(*rating, dimension, value, block == 1); },
      memberOf(rating, &AIPC_dime_t::region), dimension, value, block);
}

int AIPC_drrt_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!rating || !atschost::isRegion(rating->region)) return false;
        const auto region =
            hostReceiver().ratingRegions().region(static_cast<uint8_t>(rating->region));
        return region &&
               atschost::encodeDownloadable(*rating, *region, dimension, value, block == 1);
      },
      memberOf(rating, &AIPC_dime_t::region), dimension, value, block);
}

int AIPC_get_parental_details(AIPC_parental_details* details) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!details) return false;
        *details = hostReceiver().parental().settings()->details;
        return true;
      },
      memberOf(details, &Details::enabled));
}

int AIPC_set_parental_details(const AIPC_parental_details* details) {
  return loggedStatusOf(
      __func__,
      [&] {
        return details && change([&](ParentalSettings& settings) {
                 if (!atschost::isRegion(details->region)) return false;
                 settings.details = *details;
                 settings.details.reserved = 0;
                 return true;
               });
      },
      memberOf(details, &Details::preset_mode), memberOf(details, &Details::region),
      memberOf(details, &Details::enabled));
}

int AIPC_set_rating_status_unrated_groups(int block, int32_t group) {
  return loggedStatusOf(
      __func__,
      [&] {
        return isGroup(group) && change([&](ParentalSettings& settings) {
                 settings.unratedGroups[static_cast<size_t>(group)] = block;
                 return true;
               });
      },
      block, group);
}

int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group) {
  return loggedStatusOf(
      __func__,
      [&] {
        if (!block || !isGroup(group)) return false;
        const auto settings = hostReceiver().parental().settings();
        *block = settings->unratedGroups[static_cast<size_t>(group)];
        return true;
      },
      block, group);
}

int AIPC_reset_user_ratings() {
  return loggedStatusOf(__func__, [] {
    return change([](ParentalSettings& settings) {
      removeLimits(settings);
      return true;
    });
  });
}

int AIPC_set_default_settings() {
  return loggedStatusOf(__func__, [] {
    return change([](ParentalSettings& settings) {
      settings = {};
      return true;
    });
  });
}

int AIPC_store_all() {
  return loggedStatusOf(__func__, [] {
    hostReceiver().parental().store();
    return true;
  });
}

int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating) {
  int verdict = -1;
  const auto check = [&] {
    if (!rating || !rating->text) return false;
    const auto* text = reinterpret_cast<const char*>(rating->text);
    const std::string_view given(text, strnlen(text, rating->length));
    const auto advisory = atschost::advisoryOfText(country, system, given);
    if (!advisory) return false;
    const auto checked = hostReceiver().parental().settings()->check({*advisory}, {});
    verdict = checked.rated && checked.blocked ? int{AIPC_BLOCKED} : 0;
    return true;
  };
  atschost::runBody(__func__, check);
  atschost::logCall(__func__, verdict, country, system);
  return verdict;
}
