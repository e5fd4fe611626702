#include "receiver/viewing/parental.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "process/immortal.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

// Dimensions of region 1 (CEA-766), and values that are limits or have a special meaning.
enum { kEntireAudience = 0, kDialogue, kLanguage, kSex, kViolence, kChildren, kFantasy, kMpaa };
enum { kTvG = 2, kTvMa = 5, kTvY = 1, kTvY7 = 2, kMpaaG = 2, kMpaaX = 7, kMpaaNotRated = 8 };
constexpr int32_t kFantasyOnly = 3;  // of us_children

// Of region 2.
enum { kEnglish = 0, kFrench };
enum { kEnglishC = 1, kEnglish18 = 6, kFrenchG = 1, kFrench18 = 5 };

using Level = int32_t AIPC_dime_t::*;

struct NamedLevel {
  const char* name;  // in the file
  Level level;
};
constexpr NamedLevel kLevels[] = {
    {"us_tv", &AIPC_dime_t::us_tv},
    {"us_dialogue", &AIPC_dime_t::us_dialogue},
    {"us_language", &AIPC_dime_t::us_language},
    {"us_sex", &AIPC_dime_t::us_sex},
    {"us_violence", &AIPC_dime_t::us_violence},
    {"us_children", &AIPC_dime_t::us_children},
    {"us_mpaa", &AIPC_dime_t::us_mpaa},
    {"canada_english", &AIPC_dime_t::canada_english},
    {"canada_french", &AIPC_dime_t::canada_french},
};

// Limits of a dimension of regions 1 and 2. Blocks the values from the level on, within `first` and
// `last`; for a content flag, value 1.
struct LimitedDimension {
  uint8_t region;
  uint8_t dimension;
  Level level;
  uint8_t first, last;
  bool flag = false;
};
constexpr LimitedDimension kLimited[] = {
    {AIPC_REGION_US, kEntireAudience, &AIPC_dime_t::us_tv, kTvG, kTvMa},
    {AIPC_REGION_US, kDialogue, &AIPC_dime_t::us_dialogue, 1, 1, true},
    {AIPC_REGION_US, kLanguage, &AIPC_dime_t::us_language, 1, 1, true},
    {AIPC_REGION_US, kSex, &AIPC_dime_t::us_sex, 1, 1, true},
    {AIPC_REGION_US, kViolence, &AIPC_dime_t::us_violence, 1, 1, true},
    {AIPC_REGION_US, kChildren, &AIPC_dime_t::us_children, kTvY, kTvY7},
    {AIPC_REGION_US, kMpaa, &AIPC_dime_t::us_mpaa, kMpaaG, kMpaaX},
    {AIPC_REGION_CANADA, kEnglish, &AIPC_dime_t::canada_english, kEnglishC, kEnglish18},
    {AIPC_REGION_CANADA, kFrench, &AIPC_dime_t::canada_french, kFrenchG, kFrench18},
};

const LimitedDimension* limited(uint32_t region, uint8_t dimension) {
  const auto found = std::find_if(
      std::begin(kLimited), std::end(kLimited),
      [&](const LimitedDimension& d) { return d.region == region && d.dimension == dimension; });
  return found == std::end(kLimited) ? nullptr : found;
}

bool isBuiltIn(uint32_t region) { return region == AIPC_REGION_US || region == AIPC_REGION_CANADA; }

// Fantasy violence has no separate level: it belongs to the level of the children's ratings.
bool isFantasy(uint32_t region, uint8_t dimension, uint8_t value) {
  return region == AIPC_REGION_US && dimension == kFantasy && value == 1;
}

// Returns the separate group that a value belongs to; -1 if there is none.
int32_t groupOf(uint8_t region, uint8_t dimension, uint8_t value) {
  if (region == AIPC_REGION_US && dimension == kMpaa && value == kMpaaNotRated)
    return AIPC_UNRATED_US_MPAA;
  if (region == AIPC_REGION_CANADA && dimension <= kFrench && value == 0)
    return AIPC_UNRATED_CANADA;
  return -1;
}

// Returns whether a value is a rating. Values that no table names count as the highest rating.
bool isRating(uint8_t region, uint8_t dimension, uint8_t value) {
  if (!isBuiltIn(region)) return value > 0;
  if (isFantasy(region, dimension, value)) return true;
  const LimitedDimension* limit = limited(region, dimension);
  if (!limit || value == 0) return false;
  if (limit->flag) return value == 1;
  if (limit->level == &AIPC_dime_t::us_mpaa) return value >= kMpaaG && value <= kMpaaX;
  return true;  // including "None" of the television ratings
}

bool isBlocked(const AIPC_dime_t& limits, uint8_t region, uint8_t dimension, uint8_t value) {
  if (!isBuiltIn(region))
    return dimension < AIPC_MAX_DIMENSIONS && value < AIPC_MAX_LEVELS &&
           limits.downloadable[dimension][value] == 1;
  const int32_t children = limits.us_children;
  if (isFantasy(region, dimension, value)) return children >= kTvY && children <= kFantasyOnly;
  const LimitedDimension* limit = limited(region, dimension);
  if (!limit || !isRating(region, dimension, value)) return false;
  const int32_t level = limits.*limit->level;
  if (limit->flag) return level == 1;
  if (limit->level == &AIPC_dime_t::us_children && children > kTvY7) return false;
  return level > 0 && value >= std::max<int32_t>(level, limit->first);
}

int32_t intMember(const Json::Value& object, const char* key) {
  const Json::Value& value = object[key];
  if (!value.isInt()) throw std::runtime_error(std::string("\"") + key + "\" is not a number");
  return value.asInt();
}

// Returns a list that may be absent.
const Json::Value& listMember(const Json::Value& object, const char* key, size_t max) {
  const Json::Value& list = object[key];
  if ((!list.isNull() && !list.isArray()) || list.size() > max)
    throw std::runtime_error(std::string("\"") + key + "\" is not a list");
  return list;
}

Json::Value toJson(const AIPC_dime_t& limits) {
  Json::Value value;
  value["region"] = limits.region;
  for (const NamedLevel& level : kLevels) value[level.name] = limits.*level.level;
  for (uint32_t dimension = 0; dimension < AIPC_MAX_DIMENSIONS; ++dimension) {
    const auto& row = limits.downloadable[dimension];
    if (std::all_of(std::begin(row), std::end(row), [](uint8_t each) { return each == 0; }))
      continue;
    Json::Value kept;
    kept["dimension"] = dimension;
    for (const uint8_t each : row) kept["values"].append(each);
    value["downloadable"].append(kept);
  }
  return value;
}

AIPC_dime_t limitsFromJson(const Json::Value& value) {
  AIPC_dime_t limits{};
  limits.region = numberMember(value, "region", UINT8_MAX);
  if (!isRegion(limits.region)) throw std::runtime_error("a region is 0");
  for (const NamedLevel& level : kLevels) limits.*level.level = intMember(value, level.name);
  for (const Json::Value& row : listMember(value, "downloadable", AIPC_MAX_DIMENSIONS)) {
    const uint32_t dimension = numberMember(row, "dimension", AIPC_MAX_DIMENSIONS - 1);
    uint8_t* at = limits.downloadable[dimension];
    for (const Json::Value& each : listMember(row, "values", AIPC_MAX_LEVELS)) {
      if (!each.isUInt() || each.asUInt() > UINT8_MAX)
        throw std::runtime_error("\"values\" are not bytes");
      *at++ = static_cast<uint8_t>(each.asUInt());
    }
  }
  return limits;
}

Json::Value toJson(const ParentalSettings& settings) {
  Json::Value content;
  content["preset_mode"] = settings.details.preset_mode;
  content["region"] = settings.details.region;
  content["region_value"] = settings.details.region_value;
  content["rated"] = settings.details.rated;
  content["enabled"] = settings.details.enabled;
  content["limits"] = Json::arrayValue;
  for (const auto& [region, limits] : settings.limits) content["limits"].append(toJson(limits));
  for (const int32_t block : settings.unratedGroups) content["unrated_groups"].append(block);
  return content;
}

ParentalSettings settingsFromJson(const Json::Value& content) {
  ParentalSettings settings;
  AIPC_parental_details& details = settings.details;
  const auto byteMember = [&](const char* key) {
    return static_cast<uint8_t>(numberMember(content, key, UINT8_MAX));
  };
  details.preset_mode = intMember(content, "preset_mode");
  details.region = intMember(content, "region");
  if (!isRegion(details.region)) throw std::runtime_error("\"region\" is none");
  details.region_value = byteMember("region_value");
  details.rated = byteMember("rated");
  details.enabled = byteMember("enabled");
  for (const Json::Value& value : listMember(content, "limits", UINT8_MAX)) {
    const AIPC_dime_t limits = limitsFromJson(value);
    if (!settings.limits.emplace(static_cast<uint8_t>(limits.region), limits).second)
      throw std::runtime_error("a region is there twice");
  }
  size_t group = 0;
  for (const Json::Value& value : listMember(content, "unrated_groups", AIPC_UNRATED_GROUPS)) {
    if (!value.isInt()) throw std::runtime_error("\"unrated_groups\" are not numbers");
    settings.unratedGroups[group++] = value.asInt();
  }
  return settings;
}

// Returns the value with that name in a dimension of regions 1 and 2; 0 if there is none.
uint8_t valueNamed(uint8_t region, uint8_t dimension, std::string_view name) {
  static const auto& regions = immortal<std::vector<RatingRegion>>(standardRatingRegions());
  const auto& values = regions[region - 1u].dimensions[dimension].values;
  const std::string wanted = toUtf16(name);
  for (size_t value = 0; value < values.size(); ++value)
    if (values[value].abbreviation == wanted) return static_cast<uint8_t>(value);
  return 0;
}

constexpr size_t kLongestAge = 5;  // "TV-14"

// Parses a text such as "TV-14-D-V": an age, then content flags.
std::optional<Advisory> televisionAdvisory(std::string_view text) {
  Advisory advisory;
  advisory.region = AIPC_REGION_US;
  for (const uint8_t dimension : {kEntireAudience, kChildren}) {
    for (size_t end = 0; end <= kLongestAge && advisory.values.empty();) {
      end = text.find('-', end + 1);
      const uint8_t value = valueNamed(AIPC_REGION_US, dimension, text.substr(0, end));
      if (value == 0) continue;
      advisory.values.emplace_back(dimension, value);
      text = end == text.npos ? std::string_view() : text.substr(end);
    }
    if (!advisory.values.empty()) break;
  }
  if (advisory.values.empty()) return std::nullopt;
  while (!text.empty()) {
    text.remove_prefix(1);
    const std::string_view name = text.substr(0, text.find('-'));
    bool known = false;
    for (const uint8_t dimension : {kDialogue, kLanguage, kSex, kViolence, kFantasy}) {
      if (name.empty() || valueNamed(AIPC_REGION_US, dimension, name) != 1) continue;
      known = true;
      advisory.values.emplace_back(dimension, 1);
    }
    if (!known) return std::nullopt;
    text.remove_prefix(name.size());
  }
  return advisory;
}

}  // namespace

bool ParentalSettings::operator==(const ParentalSettings& other) const {
  return std::memcmp(&details, &other.details, sizeof(details)) == 0 && hasLimitsOf(other);
}

bool ParentalSettings::blocksAs(const ParentalSettings& other) const {
  return enabled() == other.enabled() && (!enabled() || hasLimitsOf(other));
}

bool ParentalSettings::hasLimitsOf(const ParentalSettings& other) const {
  return unratedGroups == other.unratedGroups &&
         std::equal(limits.begin(), limits.end(), other.limits.begin(), other.limits.end(),
                    [](const auto& a, const auto& b) {
                      return std::memcmp(&a.second, &b.second, sizeof(a.second)) == 0;
                    });
}

AIPC_dime_t ParentalSettings::limitsOf(uint32_t region) const {
  AIPC_dime_t none{};
  none.region = region;
  const auto found = isRegion(region) ? limits.find(static_cast<uint8_t>(region)) : limits.end();
  return found == limits.end() ? none : found->second;
}

void ParentalSettings::setLimits(const AIPC_dime_t& given) {
  AIPC_dime_t none{};
  none.region = given.region;
  const auto region = static_cast<uint8_t>(given.region);
  if (std::memcmp(&given, &none, sizeof(none)) == 0)
    limits.erase(region);
  else
    limits[region] = given;
}

RatingVerdict ParentalSettings::check(const std::vector<Advisory>& advisories,
                                      const KnownRegions& known) const {
  RatingVerdict verdict;
  std::bitset<AIPC_UNRATED_GROUPS> groups;
  for (const Advisory& advisory : advisories) {
    const uint8_t region = advisory.region;
    if (!isBuiltIn(region) && !known[region]) continue;
    const auto limit = limits.find(region);
    for (const auto& [dimension, value] : advisory.values) {
      if (const int32_t group = groupOf(region, dimension, value); group >= 0)
        groups.set(static_cast<size_t>(group));
      const bool blocked =
          limit != limits.end() && isBlocked(limit->second, region, dimension, value);
      verdict.rated |= blocked || isRating(region, dimension, value);
      if (!blocked || verdict.blocked || !enabled()) continue;
      verdict.blocked = true;
      verdict.region = region;
      verdict.dimension = dimension;
      verdict.value = value;
    }
  }
  if (verdict.rated) return verdict;
  if (groups.none()) groups.set(AIPC_UNRATED_NO_RATING);
  for (size_t group = AIPC_UNRATED_GROUPS; group-- > 0;) {
    if (!groups[group] || verdict.blocked) continue;
    verdict.group = static_cast<int32_t>(group);
    verdict.blocked = enabled() && unratedGroups[group] == 1;
  }
  return verdict;
}

bool encodeRating(AIPC_dime_t& limits, uint8_t dimension, uint8_t value, bool block) {
  int32_t& children = limits.us_children;
  if (isFantasy(limits.region, dimension, value)) {
    // Part of TV-Y7: cannot be allowed while TV-Y7 is blocked.
    if (children == kTvY || children == kTvY7) return block;
    children = block ? kFantasyOnly : 0;
    return true;
  }
  const LimitedDimension* limit = limited(limits.region, dimension);
  if (!limit || value < limit->first || value > limit->last) return false;
  int32_t& level = limits.*limit->level;
  if (limit->flag) {
    level = block ? 1 : 0;
    return true;
  }
  // A block of fantasy violence alone blocks no children's value, and stays when all are allowed.
  const bool fantasyOnly = &level == &children && level == kFantasyOnly;
  const int32_t none = limit->last + 1;
  int32_t lowest = level <= 0 ? none : std::clamp<int32_t>(level, limit->first, none);
  lowest = block ? std::min<int32_t>(lowest, value) : std::max<int32_t>(lowest, value + 1);
  if (lowest < none)
    level = lowest;
  else
    level = fantasyOnly ? kFantasyOnly : 0;
  return true;
}

bool encodeDownloadable(AIPC_dime_t& limits, const RatingRegion& region, uint8_t dimension,
                        uint8_t value, bool block) {
  if (isBuiltIn(region.number) || limits.region != region.number) return false;
  if (dimension >= AIPC_MAX_DIMENSIONS || dimension >= region.dimensions.size()) return false;
  const RatingRegion::Dimension& table = region.dimensions[dimension];
  const size_t count = std::min<size_t>(table.values.size(), AIPC_MAX_LEVELS);
  if (value >= count) return false;
  const RatingRegion::Value& named = table.values[value];
  if (named.abbreviation.empty() && named.text.empty()) return false;
  size_t first = value;
  size_t end = value + 1u;
  if (table.graduated && block) end = count;
  if (table.graduated && !block) first = 0;
  uint8_t* row = limits.downloadable[dimension];
  std::fill(row + first, row + end, static_cast<uint8_t>(block ? 1 : 0));
  return true;
}

std::optional<Advisory> advisoryOfText(uint32_t country, uint32_t system, std::string_view text) {
  struct System {
    uint32_t country, system;
    uint8_t region, dimension;
  };
  constexpr System kSystems[] = {{1, 2, AIPC_REGION_US, kMpaa},
                                 {2, 3, AIPC_REGION_CANADA, kEnglish},
                                 {2, 4, AIPC_REGION_CANADA, kFrench}};
  if (text.empty()) return std::nullopt;
  if (country == 1 && system == 1) return televisionAdvisory(text);
  for (const System& each : kSystems) {
    if (each.country != country || each.system != system) continue;
    const uint8_t value = valueNamed(each.region, each.dimension, text);
    const bool exempt = each.region == AIPC_REGION_CANADA && text == "E";
    if (value == 0 && !exempt) return std::nullopt;
    return Advisory{each.region, {{each.dimension, value}}};
  }
  return std::nullopt;
}

Parental::Parental(const std::string& stateFolder)
    : settings_(std::make_shared<const ParentalSettings>()),
      file_(stateFolder, "parental.json", "atsc-host-parental-1") {
  std::shared_ptr<const ParentalSettings> stored;
  file_.load([&](const Json::Value& content) {
    stored = std::make_shared<const ParentalSettings>(settingsFromJson(content));
  });
  if (stored) settings_ = std::move(stored);
}

std::shared_ptr<const ParentalSettings> Parental::settings() const {
  const MutexLock lock(mutex_);
  return settings_;
}

Parental::Change Parental::change(const std::function<bool(ParentalSettings&)>& edit) {
  const MutexLock lock(mutex_);
  ParentalSettings changed = *settings_;
  if (!edit(changed)) return Change::kRefused;
  if (changed == *settings_) return Change::kNone;
  const bool same = changed.blocksAs(*settings_);
  settings_ = std::make_shared<const ParentalSettings>(std::move(changed));
  return same ? Change::kMade : Change::kMadeDifference;
}

void Parental::store() {
  const MutexLock lock(mutex_);
  toStore_ = settings_;
}

bool Parental::sync() {
  const MutexLock fileLock(fileMutex_);
  std::shared_ptr<const ParentalSettings> settings;
  {
    const MutexLock lock(mutex_);
    settings = toStore_;
  }
  if (!settings) return true;
  if (!file_.store(toJson(*settings))) return false;
  const MutexLock lock(mutex_);
  if (toStore_ == settings) toStore_.reset();
  return true;
}

}  // namespace atschost
