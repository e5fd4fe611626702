// "PC": queries of blocking, rating checks and the unlock.
#include <aicn.h>
#include <aiec.h>
#include <aifw.h>
#include <aipc.h>
#include <aisrv.h>
#include <atsc/atsc_service.h>

#include <algorithm>
#include <array>
#include <vector>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"
#include "service/server/atsc_server_service_rating.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

// Declared length of the rating text of a check. The buffer has space for longer texts.
constexpr uint16_t kRatingTextSize = 96;

struct RatingSystem {
  const char* name;
  uint32_t country;
  uint32_t system;
};

constexpr RatingSystem kUSTelevision = {"USA-TV", 1, 1};
constexpr RatingSystem kRatingSystems[] = {
    kUSTelevision, {"USA-MPAA", 1, 2}, {"CAN-ENG", 2, 3}, {"CAN-FRA", 2, 4}};

// Returns whether the current programme is blocked; sets `status` to the text of the reply.
bool IsParentalBlocked(std::string& status) {
  ATSC_ENTER();
  bool blocked = false;
  int verdict = -1;
  uint32_t ratingStatus = 1;
  std::array<uint8_t, 16> name{};
  AISRV_service_info service{};
  service.name.text = name.data();
  service.name.length = name.size();
  if (AICN_get_current(&service) != 0) {
    ATSC_LOG(Error, "Failed to get current service info.\n");
  } else {
    verdict = AIEC_check_rating(&service);
    if (verdict == AIPC_BLOCKED) {
      blocked = true;
    } else if (verdict == AIPC_BLOCKED_BY_STATUS || verdict == AIPC_UNRATED) {
      std::array<uint8_t, AISRV_MAX_ADVISORIES> advisories{};
      uint8_t count = AISRV_MAX_ADVISORIES;
      const bool advised =
          AISRV_get_CAD_list(&service, &count, advisories.data()) == 0 && count != 0;
      if (verdict == AIPC_UNRATED || advised) {
        // The programme counts as blocked when the status cannot be read.
        AISRV_get_rating_status(&service, &ratingStatus);
        blocked = ratingStatus == 1;
      }
    }
  }
  status = blocked                   ? "VIEWING_BLOCKED"
           : verdict == AIPC_UNRATED ? "VIEWING_UNRATED"
                                     : "VIEWING_ALLOWED";
  ATSC_LEAVE();
  return blocked;
}

}  // namespace

int ATSCServerService::PC_IsParentalBlocked(Json::Value& /*request*/, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  std::string status;
  Json::Value reply;
  reply["blocked"] = IsParentalBlocked(status);
  reply["status"] = status;
  handler.answer(reply, result);
  return handler.leave();
}

int ATSCServerService::PC_CheckRating(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!atsc::hasMember(request, "system", Json::stringValue)) {
    return handler.refuse("Can not find rating system");
  }
  if (!atsc::hasMember(request, "rating", Json::stringValue)) {
    return handler.refuse("Can not find rating string");
  }
  const std::string name = request["system"].asString();
  const std::string rating = request["rating"].asString();
  const auto system = std::find_if(std::begin(kRatingSystems), std::end(kRatingSystems),
                                   [&](const RatingSystem& each) { return name == each.name; });
  bool blocked = false;
  if (system != std::end(kRatingSystems) && !rating.empty()) {
    std::vector<uint8_t> text(std::max<size_t>(kRatingTextSize, rating.size()) + 2);
    if (system->system == kUSTelevision.system) {
      atsc::ConvertUSATVRatingString(rating, text.data(), kRatingTextSize);
    } else {
      std::copy(rating.begin(), rating.end(), text.begin());
    }
    const multiple_lang_t reference = {text.data(), kRatingTextSize, 0};
    blocked = AIPC_check_rating(system->country, system->system, &reference) == AIPC_BLOCKED;
  }
  Json::Value reply;
  reply["blocked"] = blocked;
  handler.answer(reply, result);
  return handler.leave();
}

int ATSCServerService::PC_PwdUnlock(Json::Value& request, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!atsc::hasMember(request, "lock_status", Json::intValue)) {
    return handler.refuse("Can not find lock status");
  }
  // The unlock holds only for the channel of the last channel change. Two channels without a row
  // are different channels.
  const int32_t saved = saved_channel_index_;
  const auto isUnknown = [saved](int index) {
    return index == INVALID_CHANNEL_INDEX ||
           (index == ATSC_CHANNEL_NOT_FOUND && saved == ATSC_CHANNEL_NOT_FOUND);
  };
  const auto isSaved = [saved, isUnknown](int index) {
    return index == saved && !isUnknown(index);
  };
  if (isUnknown(GetCurrentChannelIdx()) || saved == INVALID_CHANNEL_INDEX ||
      !isSaved(GetCurrentChannelIdx())) {
    const char* const reason = isUnknown(GetCurrentChannelIdx()) ? "failed to get current ch idx"
                               : saved == INVALID_CHANNEL_INDEX  ? "Not yet changed channel"
                                                                 : "orig ch idx != current ch idx";
    ATSC_LOG(Info, "\033[0;41;37m %s. \033[0m\n", reason);
    return handler.leave();
  }
  const bool unlocked = request["lock_status"].asInt() != 0;
  AICN_set_play_from_ap(1);
  AIFW_pwd_unlocked_no_checking_status(unlocked ? 1 : 0);
  return handler.leave();
}

}  // namespace ATSCBUS
