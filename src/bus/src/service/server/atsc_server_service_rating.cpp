#include "service/server/atsc_server_service_rating.h"

#include <aicn.h>
#include <aifw.h>
#include <atsc/atsc_service.h>

#include <algorithm>
#include <cstring>

#include "atsc_log.h"

ATSC_LOGGER("atsc/service/interface")

namespace atsc {

namespace {

// The levels of the rating document's objects.
struct Level {
  const char* key;
  int32_t AIPC_dime_t::*field;
};

constexpr Level kUS[] = {{"tv", &AIPC_dime_t::us_tv},        {"dia", &AIPC_dime_t::us_dialogue},
                         {"lan", &AIPC_dime_t::us_language}, {"sex", &AIPC_dime_t::us_sex},
                         {"vio", &AIPC_dime_t::us_violence}, {"child", &AIPC_dime_t::us_children},
                         {"mpaa", &AIPC_dime_t::us_mpaa}};
constexpr Level kCanada[] = {{"eng", &AIPC_dime_t::canada_english},
                             {"fra", &AIPC_dime_t::canada_french}};

template <size_t N>
Json::Value levelsToJson(const AIPC_dime_t& dime, const Level (&levels)[N]) {
  Json::Value object;
  for (const Level& level : levels) object[level.key] = dime.*level.field;
  return object;
}

template <size_t N>
void levelsFromJson(const Json::Value& object, const Level (&levels)[N], AIPC_dime_t& dime) {
  for (const Level& level : levels) {
    dime.*level.field = object.get(level.key, dime.*level.field).asInt();
  }
}

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  size_t begin = 0;
  for (size_t end; (end = text.find(separator, begin)) != std::string::npos; begin = end + 1) {
    parts.push_back(text.substr(begin, end - begin));
  }
  parts.push_back(text.substr(begin));
  return parts;
}

}  // namespace

bool GetCurrentATSCSetting(AIPC_region_list_t* region, AIIN_input_t* input) {
  ATSC_ENTER();
  if (region != nullptr && AIFW_get_curr_region(region) != 0) {
    ATSC_FAILED("Failed to get current region");
    ATSC_LEAVE();
    return false;
  }
  const int source = AICN_get_curr_input_source();
  if (source != AI_INPUT_TERRESTRIAL && source != AI_INPUT_CABLE) {
    ATSC_FAILED("Current input is not ATSC");
    ATSC_LEAVE();
    return false;
  }
  *input = {};
  uint8_t flag = 0;
  if (AIIN_get_input_details(static_cast<uint32_t>(source), &flag, input, 0) != 0) {
    ATSC_FAILED("Failed to get input details (%d)", source);
    ATSC_LEAVE();
    return false;
  }
  ATSC_LEAVE();
  return true;
}

bool Copy2UTF8(std::vector<uint8_t>& out, const multiple_lang_t* text) {
  ATSC_ENTER();
  const uint32_t length = text->length;
  if (text->encoding != AI_TEXT_UTF16BE) {
    out.assign(length + 1, 0);
    if (text->text != nullptr) std::copy_n(text->text, length, out.begin());
  } else {
    // The conversion writes at most the computed size, which these bytes hold.
    uint32_t size =
        Utili_UTF16BEToUTF8Length(text->text, std::min<uint32_t>(length, AIPC_TEXT_SIZE));
    out.assign(size + 1, 0);
    if (Utili_ConvertUTF16BEToUTF8(text->text, length, out.data(), &size) < 0) {
      ATSC_FAILED("Failed to convert UTF16 to UTF8");
      ATSC_LEAVE();
      return false;
    }
  }
  ATSC_LEAVE();
  return true;
}

void ConvertPCDime2JsonValue(const AIPC_dime_t& dime, Json::Value& value) {
  ATSC_ENTER();
  value["region"] = static_cast<int32_t>(dime.region);
  value["us"] = levelsToJson(dime, kUS);
  value["can"] = levelsToJson(dime, kCanada);
  Json::Value& table = value["dwn"] = Json::Value(Json::arrayValue);
  for (const auto& row : dime.downloadable) {
    Json::Value& levels = table.append(Json::Value(Json::arrayValue));
    for (const uint8_t level : row) levels.append(static_cast<int32_t>(level));
  }
  ATSC_LEAVE();
}

bool ConvertJsonValue2PCDime(const Json::Value& request, AIPC_dime_t& dime) {
  ATSC_ENTER();
  const Json::Value us = request.get("us", Json::Value());
  const Json::Value canada = request.get("can", Json::Value());
  const Json::Value table = request.get("dwn", Json::Value());
  AIPC_region_list_t current{};
  AIIN_input_t input{};
  if (!GetCurrentATSCSetting(&current, &input)) {
    ATSC_FAILED("Failed to get current ATSC Settings");
    ATSC_LEAVE();
    return true;
  }
  dime = {};
  dime.region = request.get("region", current.region).asUInt();
  if (ATSC_CALL(AIPC_retreive_rating, &dime) != 0) {
    ATSC_LEAVE();
    return false;
  }
  dime.region =
      static_cast<uint32_t>(request.get("region", static_cast<int32_t>(dime.region)).asInt());
  if (us.isNull()) {
    ATSC_FAILED("Can not find us setting in Json command");
    ATSC_LEAVE();
    return false;
  }
  levelsFromJson(us, kUS, dime);
  if (canada.isNull()) {
    ATSC_FAILED("Can not find can setting in Json command");
    ATSC_LEAVE();
    return false;
  }
  levelsFromJson(canada, kCanada, dime);
  if (table.isNull()) {
    ATSC_FAILED("Can not find dwn setting in Json command");
    ATSC_LEAVE();
    return false;
  }
  for (unsigned dimension = 0; dimension < AIPC_MAX_DIMENSIONS; ++dimension) {
    const bool exists = table.isValidIndex(dimension);
    for (unsigned level = 0; level < AIPC_MAX_LEVELS; ++level) {
      if (exists && table[dimension].isValidIndex(level)) {
        dime.downloadable[dimension][level] = static_cast<uint8_t>(table[dimension][level].asInt());
      } else {
        ATSC_LOG(Debug, "Can not find dwn_rat[%d][%d] [%d is valid: %s] in dwn_rat: %s", dimension,
                 level, dimension, exists ? "T" : "F", __PRETTY_FUNCTION__);
      }
    }
  }
  ATSC_LEAVE();
  return true;
}

bool StringCompare(const std::string& a, const std::string& b) {
  ATSC_ENTER();
  const bool less =
      a.empty() || (!b.empty() && static_cast<signed char>(a[0]) < static_cast<signed char>(b[0]));
  ATSC_LEAVE();
  return less;
}

void ConvertUSATVRatingString(const std::string& rating, uint8_t* buffer, uint32_t size) {
  ATSC_ENTER();
  std::vector<std::string> parts = split(rating, ',');
  const auto found = std::find_if(parts.begin(), parts.end(), [](const std::string& part) {
    return part.compare(0, 3, "TV-") == 0;
  });
  if (found == parts.end()) {
    ATSC_LOG(Error, "Invalid USA TV rating string: %s", rating.c_str());
    ATSC_LEAVE();
    return;
  }
  const std::string base = std::move(*found);
  parts.erase(found);
  // The comparison is a strict ordering only without the empty parts, which come first.
  const auto first = std::stable_partition(parts.begin(), parts.end(),
                                           [](const std::string& part) { return part.empty(); });
  std::stable_sort(first, parts.end(), StringCompare);

  if (base.size() + 1 > size) {
    ATSC_LOG(Error, "rating string buffer size is too small: %d > %d",
             static_cast<int>(base.size() + 1), static_cast<int>(size));
    ATSC_LEAVE();
    return;
  }
  size_t position = 0;
  const auto append = [&](const std::string& part) {
    memcpy(buffer + position, part.data(), part.size());
    position += part.size();
    buffer[position++] = '-';
  };
  append(base);
  for (const std::string& part : parts) {
    // Compares with the whole buffer, not with the remaining space.
    if (part.size() + 1 > size) {
      ATSC_LOG(Error, "rating string buffer size is too small: %d > %d",
               static_cast<int>(position + part.size() + 1), static_cast<int>(size));
      ATSC_LEAVE();
      return;
    }
    append(part);
  }
  buffer[position - 1] = '\0';
  ATSC_LEAVE();
}

}  // namespace atsc
