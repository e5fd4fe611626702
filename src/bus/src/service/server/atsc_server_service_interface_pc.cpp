// "PC": parental-control settings and rating tables. ISPCBLOCKED, CHECKRAT and PWDUNLOCK are in
// atsc_server_service_interface_check.cpp, the alert commands in
// atsc_server_service_interface_eas.cpp.
#include <aifw.h>
#include <aipc.h>
#include <aiup.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

#include "atsc_log.h"
#include "service/server/atsc_server_service.h"
#include "service/server/atsc_server_service_interface.h"
#include "service/server/atsc_server_service_rating.h"

ATSC_LOGGER("atsc/service/interface")

namespace ATSCBUS {

namespace {

constexpr char kNoSettings[] = "Failed to get current ATSC Settings";
constexpr char kNoTableSettings[] = "Failed to get current ATSC settings";
constexpr char kNoDimension[] = "Can not find rating dimension";
constexpr char kNoValue[] = "Can not find rating value";
constexpr char kNoBlock[] = "Can not find block setting";
constexpr char kNoGroup[] = "Can not find unrated group";
constexpr char kNoRecord[] = "Failed to convert Json value to AIPC_dim_t";

// A text buffer for the middleware, one byte longer than the declared length.
struct LentText {
  explicit LentText(multiple_lang_t& text) { text = {bytes.data(), AIPC_TEXT_SIZE, 0}; }
  std::array<uint8_t, AIPC_TEXT_SIZE + 1> bytes{};
};

// Sets a text of a reply. Returns false when the text cannot be converted.
bool putText(Json::Value& member, multiple_lang_t text, const LentText& lent) {
  // Reads at most the declared length of the buffer; the conversion of UTF-16 has its own limit.
  const uint8_t* const end = lent.bytes.data() + AIPC_TEXT_SIZE;
  if (text.encoding != AI_TEXT_UTF16BE && text.text >= lent.bytes.data() && text.text <= end) {
    text.length = std::min(text.length, static_cast<uint16_t>(end - text.text));
  }
  std::vector<uint8_t> converted;
  if (!atsc::Copy2UTF8(converted, &text)) return false;
  member = reinterpret_cast<const char*>(converted.data());
  return true;
}

uint8_t byteMember(const Json::Value& request, const char* key, int absent) {
  return static_cast<uint8_t>(request.get(key, absent).asInt());
}
uint8_t unsignedByteMember(const Json::Value& request, const char* key, uint32_t absent) {
  return static_cast<uint8_t>(request.get(key, absent).asUInt());
}

// Changes the rating settings of a request with one of the two encoders and replies with them.
int encodeRating(const atsc::Handler& handler, const Json::Value& request, char** result,
                 const char* name, int (*encode)(AIPC_dime_t*, uint8_t, uint8_t, uint8_t)) {
  *result = nullptr;
  AIPC_dime_t dime{};
  if (!atsc::ConvertJsonValue2PCDime(request, dime)) return handler.refuse(kNoRecord);
  if (!request.isMember("rat_dim")) return handler.refuse(kNoDimension);
  if (!request.isMember("val")) return handler.refuse(kNoValue);
  if (!request.isMember("block")) return handler.refuse(kNoBlock);
  const uint8_t dimension = byteMember(request, "rat_dim", 0);
  const uint8_t value = byteMember(request, "val", 0);
  const bool block = request["block"].asBool();
  return handler.answer(name, encode(&dime, dimension, value, block ? 1 : 0), result,
                        [&](Json::Value& reply) {
                          atsc::ConvertPCDime2JsonValue(dime, reply);
                          return 0;
                        });
}

}  // namespace

int ATSCServerService::PC_NumOfDimension(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(&current, &input)) return handler.refuse(kNoSettings);
  const uint8_t region = unsignedByteMember(request, "region", current.region);
  uint8_t count = 0;
  const int status = AIPC_num_of_dimension(input.handle, region, &count);
  return handler.answer("AIPC_num_of_dimension", status, result, [&](Json::Value& reply) {
    reply["num_dim"] = int{count};
    return 0;
  });
}

int ATSCServerService::PC_DimensionName(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!request.isMember("rat_dim")) return handler.refuse(kNoDimension);
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(&current, &input)) return handler.refuse(kNoSettings);
  const uint8_t region = unsignedByteMember(request, "region", current.region);
  const uint8_t dimension = unsignedByteMember(request, "rat_dim", 0);
  multiple_lang_t name{};
  const LentText lent(name);
  uint8_t levels = 0;
  uint8_t graduated = 0;
  const int status =
      AIPC_dimension_name_grad(input.handle, region, dimension, &name, &levels, &graduated);
  return handler.answer("AIPC_dimension_name_grad", status, result, [&](Json::Value& reply) {
    if (!putText(reply["dim_name"], name, lent)) return handler.refuse("Failed to Copy2UTF8()");
    reply["dim_lvl"] = int{levels};
    reply["grad"] = graduated == 1;
    return 0;
  });
}

int ATSCServerService::PC_RetreiveRating(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(&current, &input)) return handler.refuse(kNoSettings);
  AIPC_dime_t dime{};
  dime.region = request.get("region", current.region).asUInt();
  const int status = AIPC_retreive_rating(&dime);
  return handler.answer("AIPC_retreive_rating", status, result, [&](Json::Value& reply) {
    atsc::ConvertPCDime2JsonValue(dime, reply);
    return 0;
  });
}

int ATSCServerService::PC_StoreRating(Json::Value& request, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  AIPC_dime_t dime{};
  if (!atsc::ConvertJsonValue2PCDime(request, dime)) return handler.refuse(kNoRecord);
  return handler.leave("AIPC_store_rating", AIPC_store_rating(dime));
}

int ATSCServerService::PC_RatingEncode(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  return encodeRating(handler, request, result, "AIPC_rating_encode", AIPC_rating_encode);
}

int ATSCServerService::PC_DRRTRatingEncode(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  return encodeRating(handler, request, result, "AIPC_drrt_rating_encode", AIPC_drrt_rating_encode);
}

int ATSCServerService::PC_GetParentalDetails(Json::Value& /*request*/, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  AIPC_parental_details details{};
  const int status = AIPC_get_parental_details(&details);
  return handler.answer("AIPC_get_parental_details", status, result, [&](Json::Value& reply) {
    reply["preset_mode"] = details.preset_mode;
    reply["region"] = details.region;
    reply["reg_val"] = int{details.region_value};
    reply["pc_rated"] = int{details.rated};
    reply["pc_enable"] = int{details.enabled};
    return 0;
  });
}

int ATSCServerService::PC_SetParentalDetails(Json::Value& request, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  AIPC_parental_details details{};
  if (AIPC_get_parental_details(&details) != 0) {
    return handler.refuse("Failed to get parental_details");
  }
  details.preset_mode = request.get("preset_mode", details.preset_mode).asInt();
  details.region = request.get("region", details.region).asInt();
  details.region_value = byteMember(request, "reg_val", details.region_value);
  details.rated = byteMember(request, "pc_rated", details.rated);
  details.enabled = byteMember(request, "pc_enable", details.enabled);
  return handler.leave("AIPC_set_parental_details", AIPC_set_parental_details(&details));
}

int ATSCServerService::PC_GetRRTRegions(Json::Value& /*request*/, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(nullptr, &input)) return handler.refuse(kNoSettings);
  std::array<uint8_t, 256> regions{};
  uint8_t count = 255;
  const int status = AIPC_get_RRT_regions(input.handle, &count, regions.data());
  return handler.answer("AIPC_get_RRT_regions", status, result, [&](Json::Value& reply) {
    reply["regions"] = int{count};
    Json::Value& list = reply["reg_lst"];  // null without regions
    for (unsigned i = 0; i < count; ++i) list.append(int{regions[i]});
    return 0;
  });
}

int ATSCServerService::PC_GetRRTDetails(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(&current, &input)) return handler.refuse(kNoTableSettings);
  const uint8_t region = byteMember(request, "region", static_cast<int>(current.region));
  AIPC_RRT_details details{};
  const LentText lent(details.name);
  uint8_t version = 0;
  const int status = AIPC_get_RRT_details_with_version(input.handle, region, &details, &version);
  return handler.answer("AIPC_get_RRT_details_with_version", status, result,
                        [&](Json::Value& reply) {
                          if (!putText(reply["reg_name"], details.name, lent)) {
                            return handler.refuse("Failed to Copy2UTF8()");
                          }
                          reply["region"] = static_cast<int>(details.region);
                          reply["version"] = int{version};
                          return 0;
                        });
}

int ATSCServerService::PC_GetRatingValueText(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  *result = nullptr;
  if (!request.isMember("rat_dim")) return handler.refuse("Can not find dimension");
  if (!request.isMember("val")) return handler.refuse(kNoValue);
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!atsc::GetCurrentATSCSetting(&current, &input)) return handler.refuse(kNoTableSettings);
  const uint8_t region = byteMember(request, "region", static_cast<int>(current.region));
  const uint8_t dimension = byteMember(request, "rat_dim", 0);
  const uint8_t value = byteMember(request, "val", 0);
  AIPC_rating_value_text texts{};
  const LentText abbreviation(texts.abbreviation);
  const LentText text(texts.text);
  const int status = AIPC_get_rating_value_text(input.handle, region, dimension, value, &texts);
  return handler.answer("AIPC_get_rating_value_text", status, result, [&](Json::Value& reply) {
    if (!putText(reply["rat_val_txt"], texts.text, text)) {
      return handler.refuse("rating_value is failed to Copy2UTF8()");
    }
    if (!putText(reply["abbr_rat_val_txt"], texts.abbreviation, abbreviation)) {
      return handler.refuse("abbr_rating_value is failed to Copy2UTF8()");
    }
    reply["region"] = int{region};
    return 0;
  });
}

int ATSCServerService::PC_SetRatingStatusUnratedGroups(Json::Value& request, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!request.isMember("unrat_grp")) return handler.refuse(kNoGroup);
  if (!request.isMember("block")) return handler.refuse(kNoBlock);
  const int32_t group = request["unrat_grp"].asInt();
  const bool block = request["block"].asBool();
  return handler.leave("AIPC_set_rating_status_unrated_groups",
                       AIPC_set_rating_status_unrated_groups(block ? 1 : 0, group));
}

int ATSCServerService::PC_GetRatingStatusUnratedGroups(Json::Value& request, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!request.isMember("unrat_grp")) return handler.refuse(kNoGroup);
  int32_t block = 0;
  const int status = AIPC_get_rating_status_unrated_groups(&block, request["unrat_grp"].asInt());
  return handler.answer("AIPC_get_rating_status_unrated_groups", status, result,
                        [&](Json::Value& reply) {
                          reply["block"] = block == 1;
                          return 0;
                        });
}

int ATSCServerService::PC_ResetUserRatings(Json::Value& /*request*/, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  return handler.leave("AIPC_reset_user_ratings", AIPC_reset_user_ratings());
}

int ATSCServerService::PC_SetDefaultSetting(Json::Value& /*request*/, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  return handler.leave("AIPC_set_default_settings", AIPC_set_default_settings());
}

int ATSCServerService::PC_StoreAll(Json::Value& /*request*/, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  const struct {
    const char* name;
    int (*call)();
  } steps[] = {{"AIPC_store_all", AIPC_store_all},
               {"AIUP_store_all", AIUP_store_all},
               {"AIUP_sync", AIUP_sync}};
  for (const auto& step : steps) {
    // The message shows the result of this function, not of the call that failed.
    if (step.call() != 0) return handler.leave(step.name, -1);
  }
  return handler.leave();
}

int ATSCServerService::PC_SetCurrentRegion(Json::Value& request, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  if (!request.isMember("region")) return handler.refuse(kNoDimension);
  return handler.leave("AIFW_set_curr_region", AIFW_set_curr_region(request["region"].asInt()));
}

int ATSCServerService::PC_GetCurrentRegion(Json::Value& /*request*/, char** result) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  AIPC_region_list_t current{};
  const int status = AIFW_get_curr_region(&current);
  // The message of a failure names another function.
  return handler.answer("AIPC_get_rating_status_unrated_groups", status, result,
                        [&](Json::Value& reply) {
                          reply["region"] = static_cast<int>(current.region);
                          return 0;
                        });
}

int ATSCServerService::PC_StartCollectRRT(Json::Value& /*request*/, char** /*result*/) {
  const atsc::Handler handler(*g_logger, ATSC_HERE());
  return handler.leave("AIPC_collect_RRT", AIPC_collect_RRT());
}

}  // namespace ATSCBUS
