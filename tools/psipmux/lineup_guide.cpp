#include "lineup_guide.h"

#include <algorithm>
#include <sstream>

#include "bytes.h"
#include "guide.h"

namespace psipmux {
namespace {

constexpr unsigned kMaxProgrammes = 1000;
constexpr int64_t kMinMinutes = 5;
constexpr int64_t kMaxMinutes = 24 * 60;
constexpr unsigned kMaxRegions = 8;  // in a content_advisory_descriptor
constexpr unsigned kMaxDimensions = 16;
constexpr unsigned kMaxValues = 15;
constexpr unsigned kMaxCaptionServices = 16;
constexpr unsigned kMaxGenres = 31;
constexpr unsigned kMaxAlerts = 8;
constexpr unsigned kMaxLocations = 31;
constexpr size_t kShortText = 255;  // bytes, limited by an 8-bit length
constexpr size_t kMaxDescriptor = 255;
constexpr size_t kRatingDescriptionUnits = 16;
// Limited by the section size; 5 bytes are the fields before the text in an ETT.
constexpr size_t kMaxEtm = kMaxLongSectionSize - kSectionHeaderSize - kCrcSize - 5;
constexpr size_t kMaxAlertText = 3000;

// Categorical genre codes (A/65 table 6.20) from 0x20 on, each followed by a comma.
constexpr const char* kGenres =
    "education,entertainment,movie,news,religious,sports,other,action,advertisement,animated,"
    "anthology,automobile,awards,baseball,basketball,bulletin,business,classical,college,"
    "combat,comedy,commentary,concert,consumer,contemporary,crime,dance,documentary,drama,"
    "elementary,erotica,exercise,fantasy,farm,fashion,fiction,food,football,foreign,"
    "fund raiser,game/quiz,garden,golf,government,health,high school,history,hobby,hockey,home,"
    "horror,information,instruction,international,interview,language,legal,live,local,math,"
    "medical,meeting,military,miniseries,music,mystery,national,nature,police,politics,premier,"
    "prerecorded,product,professional,public,racing,reading,repair,repeat,review,romance,"
    "science,series,service,shopping,soap opera,special,suspense,talk,technical,tennis,travel,"
    "variety,video,weather,western,art,auto racing,aviation,biography,boating,bowling,boxing,"
    "cartoon,children,classic film,community,computers,country music,court,extreme sports,"
    "family,financial,gymnastics,headlines,horse racing,hunting/fishing/outdoors,independent,"
    "jazz,magazine,motorcycle racing,music/film/books,news-international,news-local,"
    "news-national,news-regional,olympics,original,performing arts,pets/animals,pop,"
    "rock & roll,sci-fi,self improvement,sitcom,skating,skiing,soccer,track/field,true,"
    "volleyball,wrestling,";

// Ratings of CEA-766 by dimension.
constexpr uint8_t kRegionUs = 1;
constexpr uint8_t kRegionCanada = 2;
struct TvRating {
  const char* name;
  uint8_t dimension, value;
  const char* flags;  // allowed content flags
};
constexpr TvRating kTvRatings[] = {{"TV-Y", 5, 1, ""},      {"TV-Y7", 5, 2, "F"},
                                   {"TV-G", 0, 2, ""},      {"TV-PG", 0, 3, "DLSV"},
                                   {"TV-14", 0, 4, "DLSV"}, {"TV-MA", 0, 5, "LSV"}};
constexpr Choice kTvFlags[] = {{"-D", 1}, {"-L", 2}, {"-S", 3}, {"-V", 4}, {"-FV", 6}};
constexpr uint8_t kMovieDimension = 7;
constexpr Choice kMovieRatings[] = {{"G", 2},     {"PG", 3}, {"PG-13", 4}, {"R", 5},
                                    {"NC-17", 6}, {"X", 7},  {"NR", 8}};
constexpr Choice kEnglishRatings[] = {{"E", 0},  {"C", 1},   {"C8+", 2}, {"G", 3},
                                      {"PG", 4}, {"14+", 5}, {"18+", 6}};
constexpr Choice kFrenchRatings[] = {{"E", 0},       {"G", 1},       {"8 ans+", 2},
                                     {"13 ans+", 3}, {"16 ans+", 4}, {"18 ans+", 5}};

uint8_t small(const Node& node, const char* key, int64_t low, int64_t high) {
  return static_cast<uint8_t>(node.integer(key, low, high));
}

/// Parses a rating with content flags in the order of their dimensions, such as "TV-14-D-V".
std::vector<Rating::Dimension> tvDimensions(const Node& node) {
  const std::string text = node.string();
  for (const TvRating& rating : kTvRatings) {
    const std::string name = rating.name;
    if (text.compare(0, name.size(), name) != 0) continue;
    std::vector<Rating::Dimension> dimensions = {{rating.dimension, rating.value}};
    size_t at = name.size();
    for (const Choice& flag : kTvFlags) {
      const std::string word = flag.name;
      if (std::string(rating.flags).find(word[1]) == std::string::npos) continue;
      if (text.compare(at, word.size(), word) != 0) continue;
      dimensions.push_back({flag.value, 1});
      at += word.size();
    }
    if (at == text.size()) return dimensions;
  }
  node.fail("must be a TV rating such as TV-Y7-FV or TV-14-D-L-S-V");
}

Rating::Dimension numberedDimension(const Node& dimensions, const std::string& key) {
  const bool number =
      !key.empty() && key.size() <= 2 &&
      std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!number) dimensions.at(printable(key)).fail("must be the number of a dimension");
  return {static_cast<uint8_t>(std::stoi(key)), small(dimensions, key.c_str(), 0, 15)};
}

Rating parseRegionRating(const Node& node) {
  node.allowKeys({"region", "dimensions", "text"});
  Rating rating;
  rating.region = small(node, "region", 1, 255);
  if (node.has("dimensions")) {
    const Node dimensions = node.at("dimensions");
    for (const std::string& key : dimensions.keys()) {
      rating.dimensions.push_back(numberedDimension(dimensions, key));
    }
  }
  rating.text = node.localTextOr("text", kShortText);
  for (const LanguageText& text : rating.text) {
    if (text.text.size() > kRatingDescriptionUnits) {
      node.at("text").fail("must be at most 16 UTF-16 units");
    }
  }
  return rating;
}

Text english(const Node& node, const char* key) { return {{"eng", node.utf16(key)}}; }

std::vector<Rating> parseRatings(const Node& programme) {
  std::vector<Rating> ratings;
  if (!programme.has("rating")) return ratings;
  const Node node = programme.at("rating");
  if (node.isString()) return {{kRegionUs, tvDimensions(node), english(programme, "rating")}};
  node.allowKeys({"us_tv", "us_movie", "ca_english", "ca_french", "regions"});
  Unique regions;
  if (node.has("us_tv") || node.has("us_movie")) {
    Rating rating{kRegionUs, {}, {}};
    if (node.has("us_tv")) rating.dimensions = tvDimensions(node.at("us_tv"));
    if (node.has("us_movie")) {
      rating.dimensions.push_back({kMovieDimension, node.oneOf("us_movie", kMovieRatings)});
    }
    rating.text = english(node, node.has("us_tv") ? "us_tv" : "us_movie");
    regions.add(kRegionUs, node);
    ratings.push_back(rating);
  }
  if (node.has("ca_english") || node.has("ca_french")) {
    Rating rating{kRegionCanada, {}, {}};
    if (node.has("ca_english")) {
      rating.dimensions.push_back({0, node.oneOf("ca_english", kEnglishRatings)});
    }
    if (node.has("ca_french")) {
      rating.dimensions.push_back({1, node.oneOf("ca_french", kFrenchRatings)});
    }
    rating.text = english(node, node.has("ca_english") ? "ca_english" : "ca_french");
    regions.add(kRegionCanada, node);
    ratings.push_back(rating);
  }
  for (const Node& region : node.elementsOr("regions", 1, kMaxRegions)) {
    ratings.push_back(parseRegionRating(region));
    regions.add(ratings.back().region, region.at("region"));
  }
  if (ratings.empty()) node.fail("must not be empty");
  if (ratings.size() > kMaxRegions) node.fail("must have at most 8 regions");
  return ratings;
}

CaptionService parseCaption(const Node& node, size_t position) {
  CaptionService caption;
  caption.number = static_cast<uint8_t>(position + 1);
  if (node.isString()) {
    caption.language = node.string();
  } else {
    node.allowKeys({"language", "service", "line21_field", "easy_reader", "wide"});
    caption.language = node.string("language");
    caption.digital = !node.has("line21_field");
    if (caption.digital) {
      caption.number = static_cast<uint8_t>(node.integerOr("service", 1, 63, caption.number));
    } else {
      node.forbidKeys({"service"}, "not with line21_field");
      caption.number = small(node, "line21_field", 0, 1);
    }
    caption.easyReader = node.booleanOr("easy_reader", false);
    caption.wide = node.booleanOr("wide", false);
  }
  if (!isLanguage(caption.language)) node.fail("language must be three lower-case letters");
  return caption;
}

uint8_t parseGenre(const Node& node) {
  const std::string name = node.string();
  std::istringstream genres(kGenres);
  uint8_t code = 0x20;
  for (std::string genre; std::getline(genres, genre, ','); ++code) {
    if (genre == name) return code;
  }
  node.fail("must be a genre of A/65 in lower case");
}

Programme parseProgramme(const Node& node) {
  node.allowKeys({"minutes", "title", "description", "rating", "captions", "genres"});
  Programme programme;
  programme.duration =
      static_cast<uint32_t>(node.integer("minutes", kMinMinutes, kMaxMinutes) * 60);
  programme.title = node.localText("title", kShortText);
  programme.description = node.localTextOr("description", kMaxEtm);
  programme.ratings = parseRatings(node);
  if (contentAdvisory(programme.ratings).size() > kMaxDescriptor) {
    node.at("rating").fail("takes more than the 255 bytes of a descriptor");
  }
  programme.captions = parseCaptions(node);
  for (const Node& genre : node.elementsOr("genres", 1, kMaxGenres)) {
    programme.genres.push_back(parseGenre(genre));
  }
  return programme;
}

RatingRegion::Value parseValue(const Node& node) {
  if (node.isString()) return {node.localText(kShortText), node.localText(kShortText)};
  node.allowKeys({"abbrev", "rating"});
  return {node.localText("abbrev", kShortText), node.localText("rating", kShortText)};
}

RatingRegion parseRatingRegion(const Node& node) {
  node.allowKeys({"region", "version", "name", "dimensions"});
  RatingRegion region;
  region.region = small(node, "region", 1, 255);
  region.version = static_cast<uint8_t>(node.integerOr("version", 0, 31, 0));
  region.name = node.localText("name", kShortText);
  for (const Node& each : node.elements("dimensions", 1, kMaxDimensions)) {
    each.allowKeys({"name", "graduated", "values"});
    RatingRegion::Dimension dimension;
    dimension.name = each.localText("name", kShortText);
    dimension.graduated = each.booleanOr("graduated", false);
    for (const Node& value : each.elements("values", 1, kMaxValues)) {
      dimension.values.push_back(parseValue(value));
    }
    region.dimensions.push_back(dimension);
  }
  const size_t size = buildRrt(region).size();
  if (size > kMaxSectionSize) {
    node.fail("takes a section of " + std::to_string(size) + " bytes, it may have " +
              std::to_string(kMaxSectionSize));
  }
  return region;
}

std::string parseCode(const Node& node, const char* key, size_t low, size_t high) {
  const std::string code = node.string(key);
  const bool graphic =
      std::all_of(code.begin(), code.end(), [](char c) { return c > ' ' && c <= '~'; });
  if (!graphic || code.size() < low || code.size() > high) {
    node.at(key).fail("must be " + (low == high ? "" : std::to_string(low) + " to ") +
                      std::to_string(high) + " ASCII characters");
  }
  return code;
}

Alert parseAlert(const Node& node) {
  node.allowKeys({"sequence", "event_id", "originator", "event_code", "activation_text", "text",
                  "time_remaining", "duration", "priority", "locations"});
  Alert alert;
  alert.sequence = small(node, "sequence", 0, 31);
  alert.eventId = static_cast<uint16_t>(node.integerOr("event_id", 0, 0xFFFF, alert.sequence));
  alert.originator = parseCode(node, "originator", 3, 3);
  alert.eventCode = parseCode(node, "event_code", 1, 255);
  alert.activationText = node.localTextOr("activation_text", kShortText);
  alert.text = node.localTextOr("text", kMaxAlertText);
  alert.timeRemaining = static_cast<uint8_t>(node.integerOr("time_remaining", 0, 120, 0));
  alert.duration = static_cast<uint16_t>(node.integerOr("duration", 0, 6000, 0));
  alert.priority = small(node, "priority", 0, 15);
  for (const Node& each : node.elements("locations", 1, kMaxLocations)) {
    each.allowKeys({"state", "county", "subdivision"});
    alert.locations.push_back({small(each, "state", 0, 99),
                               static_cast<uint8_t>(each.integerOr("subdivision", 0, 9, 0)),
                               static_cast<uint16_t>(each.integerOr("county", 0, 999, 0))});
  }
  return alert;
}

}  // namespace

std::vector<Programme> parseProgrammes(const Node& service) {
  std::vector<Programme> programmes;
  for (const Node& node : service.elementsOr("programmes", 1, kMaxProgrammes)) {
    programmes.push_back(parseProgramme(node));
  }
  return programmes;
}

std::vector<RatingRegion> parseRatingRegions(const Node& lineup) {
  std::vector<RatingRegion> regions;
  Unique numbers;
  for (const Node& node : lineup.elementsOr("rating_regions", 0, kMaxRegions)) {
    regions.push_back(parseRatingRegion(node));
    numbers.add(regions.back().region, node.at("region"));
  }
  return regions;
}

std::vector<Alert> parseAlerts(const Node& channel) {
  std::vector<Alert> alerts;
  Unique sequences;
  for (const Node& node : channel.elementsOr("alerts", 0, kMaxAlerts)) {
    alerts.push_back(parseAlert(node));
    sequences.add(alerts.back().sequence, node.at("sequence"));
  }
  return alerts;
}

std::vector<CaptionService> parseCaptions(const Node& node) {
  std::vector<CaptionService> captions;
  for (const Node& caption : node.elementsOr("captions", 1, kMaxCaptionServices)) {
    captions.push_back(parseCaption(caption, captions.size()));
  }
  return captions;
}

}  // namespace psipmux
