#include "receiver/tables/content_advisory.h"

#include <algorithm>
#include <array>
#include <map>

#include "aiec.h"
#include "receiver/stream/byte_reader.h"
#include "receiver/tables/psip_text.h"

namespace atschost {
namespace {

constexpr uint8_t kUnitedStates = 1;
constexpr uint8_t kCanada = 2;

using Values = std::map<uint8_t, uint8_t>;  // rating_value by rating_dimension
using Names = std::array<const char*, 16>;  // by rating_value; null: no rating, or an unknown one

// Dimensions of region 1.
enum { kEntireAudience = 0, kDialogue, kLanguage, kSex, kViolence, kChildren, kFantasy, kMpaa };
constexpr Names kEntireAudienceNames = {nullptr, nullptr, "TV-G", "TV-PG", "TV-14", "TV-MA"};
constexpr Names kChildrenNames = {nullptr, "TV-Y", "TV-Y7"};
constexpr Names kMpaaNames = {nullptr, nullptr, "G", "PG", "PG-13", "R", "NC-17", "X", "NR"};

// Dimensions of region 2.
enum { kEnglish = 0, kFrench };
constexpr Names kEnglishNames = {"E", "C", "C8+", "G", "PG", "14+", "18+"};
constexpr Names kFrenchNames = {"E", "G", "8 ans+", "13 ans+", "16 ans+", "18 ans+"};

const char* nameOf(const Values& values, uint8_t dimension, const Names& names) {
  const auto value = values.find(dimension);
  return value == values.end() ? nullptr : names[value->second];
}

void add(std::vector<std::string>& ratings, std::string rating) {
  if (!rating.empty() && std::find(ratings.begin(), ratings.end(), rating) == ratings.end())
    ratings.push_back(std::move(rating));
}

// Returns the age rating of region 1 with its content flags; empty if not rated.
std::string televisionRating(const Values& values) {
  const char* age = nameOf(values, kEntireAudience, kEntireAudienceNames);
  if (!age) age = nameOf(values, kChildren, kChildrenNames);
  if (!age) return {};
  std::string text = age;
  for (const auto& [dimension, flag] : {std::pair{kDialogue, "-D"},
                                        {kLanguage, "-L"},
                                        {kSex, "-S"},
                                        {kViolence, "-V"},
                                        {kFantasy, "-FV"}}) {
    const auto value = values.find(static_cast<uint8_t>(dimension));
    if (value != values.end() && value->second == 1) text += flag;
  }
  return text;
}

std::vector<std::string> knownRatings(uint8_t region, const Values& values) {
  std::vector<std::string> texts;
  const auto addName = [&](uint8_t dimension, const Names& names) {
    if (const char* name = nameOf(values, dimension, names)) texts.push_back(name);
  };
  if (region == kUnitedStates) {
    texts.push_back(televisionRating(values));
    if (texts.back().empty()) texts.pop_back();
    addName(kMpaa, kMpaaNames);
  } else if (region == kCanada) {
    addName(kEnglish, kEnglishNames);
    addName(kFrench, kFrenchNames);
  }
  return texts;
}

// Returns whether the values rate the programme: value 0 of region 1 is no rating.
bool isRated(uint8_t region, const Values& values) {
  return std::any_of(values.begin(), values.end(),
                     [&](const auto& value) { return region != kUnitedStates || value.second; });
}

}  // namespace

bool readContentAdvisory(const uint8_t* data, size_t size, std::vector<std::string>& ratings,
                         std::vector<Advisory>& advisories) {
  ByteReader in(data, size);
  for (unsigned regions = in.u8() & 0x3F; regions > 0; --regions) {
    const uint8_t region = in.u8();
    Values values;
    for (unsigned dimensions = in.u8(); dimensions > 0 && !in.passedEnd(); --dimensions) {
      const uint8_t dimension = in.u8();
      values.emplace(dimension, in.u8() & 0x0F);
    }
    const ByteReader description = in.part(in.u8());
    if (in.passedEnd()) return false;
    advisories.push_back({region, {values.begin(), values.end()}});
    if (!isRated(region, values)) continue;
    const std::vector<std::string> known = knownRatings(region, values);
    for (const std::string& text : known) add(ratings, toUtf16(text));
    if (known.empty())
      add(ratings, readText(description.data(), description.left(), AIEC_RATING_SIZE));
  }
  return !in.passedEnd();
}

}  // namespace atschost
