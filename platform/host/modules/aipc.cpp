#include "aipc.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <string_view>

#include "receiver/receiver.h"

using atschost::logged_status_of;
using atschost::member_of;
using atschost::ParentalSettings;
using atschost::Receiver;

namespace {

using Details = AIPC_parental_details;

bool change(const std::function<bool(ParentalSettings&)>& edit) {
  return Receiver::instance().change_parental(edit);
}

bool is_group(int32_t group) { return group >= 0 && group < AIPC_UNRATED_GROUPS; }

void remove_limits(ParentalSettings& settings) {
  settings.limits.clear();
  settings.unrated_groups = {};
}

}  // namespace

int AIPC_retreive_rating(AIPC_dime_t* rating) {
  return logged_status_of(
      __func__,
      [&] {
        if (!rating) return false;
        *rating = Receiver::instance().parental().settings()->limits_of(rating->region);
        return true;
      },
      member_of(rating, &AIPC_dime_t::region));
}

int AIPC_store_rating(AIPC_dime_t rating) {
  return logged_status_of(
      __func__,
      [&] {
        return change([&](ParentalSettings& settings) {
          if (!atschost::is_region(rating.region)) return false;
          settings.set_limits(rating);
          return true;
        });
      },
      rating.region);
}

int AIPC_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  return logged_status_of(
      __func__,
      [&] { return rating && atschost::encode_rating(*rating, dimension, value, block == 1); },
      member_of(rating, &AIPC_dime_t::region), dimension, value, block);
}

int AIPC_drrt_rating_encode(AIPC_dime_t* rating, uint8_t dimension, uint8_t value, uint8_t block) {
  return logged_status_of(
      __func__,
      [&] {
        if (!rating || !atschost::is_region(rating->region)) return false;
        const auto region =
            Receiver::instance().rating_regions().region(static_cast<uint8_t>(rating->region));
        return region &&
               atschost::encode_downloadable(*rating, *region, dimension, value, block == 1);
      },
      member_of(rating, &AIPC_dime_t::region), dimension, value, block);
}

int AIPC_get_parental_details(AIPC_parental_details* details) {
  return logged_status_of(
      __func__,
      [&] {
        if (!details) return false;
        *details = Receiver::instance().parental().settings()->details;
        return true;
      },
      member_of(details, &Details::enabled));
}

int AIPC_set_parental_details(const AIPC_parental_details* details) {
  return logged_status_of(
      __func__,
      [&] {
        return details && change([&](ParentalSettings& settings) {
                 if (!atschost::is_region(details->region)) return false;
                 settings.details = *details;
                 settings.details.reserved = 0;
                 return true;
               });
      },
      member_of(details, &Details::preset_mode), member_of(details, &Details::region),
      member_of(details, &Details::enabled));
}

int AIPC_set_rating_status_unrated_groups(int block, int32_t group) {
  return logged_status_of(
      __func__,
      [&] {
        return is_group(group) && change([&](ParentalSettings& settings) {
                 settings.unrated_groups[static_cast<size_t>(group)] = block;
                 return true;
               });
      },
      block, group);
}

int AIPC_get_rating_status_unrated_groups(int32_t* block, int32_t group) {
  return logged_status_of(
      __func__,
      [&] {
        if (!block || !is_group(group)) return false;
        const auto settings = Receiver::instance().parental().settings();
        *block = settings->unrated_groups[static_cast<size_t>(group)];
        return true;
      },
      block, group);
}

int AIPC_reset_user_ratings() {
  return logged_status_of(__func__, [] {
    return change([](ParentalSettings& settings) {
      remove_limits(settings);
      return true;
    });
  });
}

int AIPC_set_default_settings() {
  return logged_status_of(__func__, [] {
    return change([](ParentalSettings& settings) {
      settings = {};
      return true;
    });
  });
}

int AIPC_store_all() {
  return logged_status_of(__func__, [] {
    Receiver::instance().parental().store();
    return true;
  });
}

int AIPC_check_rating(uint32_t country, uint32_t system, const multiple_lang_t* rating) {
  int verdict = -1;
  const auto check = [&] {
    if (!rating || !rating->text) return false;
    const auto* text = reinterpret_cast<const char*>(rating->text);
    const std::string_view given(text, strnlen(text, rating->length));
    const auto advisory = atschost::advisory_of_text(country, system, given);
    if (!advisory) return false;
    const auto checked = Receiver::instance().parental().settings()->check({*advisory}, {});
    verdict = checked.rated && checked.blocked ? int{AIPC_BLOCKED} : 0;
    return true;
  };
  atschost::run_body(__func__, check);
  atschost::log_call(__func__, verdict, country, system);
  return verdict;
}
