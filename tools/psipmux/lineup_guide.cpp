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
constexpr unsigned kMaxRegions = 8;  // of a content_advisory_descriptor
constexpr unsigned kMaxDimensions = 16;
constexpr unsigned kMaxValues = 15;
constexpr unsigned kMaxCaptionServices = 16;
constexpr unsigned kMaxGenres = 31;
constexpr unsigned kMaxAlerts = 8;
constexpr unsigned kMaxLocations = 31;
constexpr size_t kShortText = 255;  // a length of 8 bits
constexpr size_t kMaxDescriptor = 255;
constexpr size_t kRatingDescriptionUnits = 16;
// The fields before the text in an ETT; more than enough for those of an alert.
constexpr size_t kMaxEtm = kMaxLongSectionSize - kSectionHeaderSize - kCrcSize - 5;
constexpr size_t kMaxAlertText = 3000;

// Categorical genre codes (A/65 table 6.20) from 0x20 on, a comma after each.
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

// Ratings of the dimensions of CEA-766.
constexpr uint8_t kRegionUs = 1;
constexpr uint8_t kRegionCanada = 2;
struct TvRating {
  const char* name;
  uint8_t dimension, value;
  const char* flags;  // that may follow
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

uint8_t Small(const Node& node, const char* key, int64_t low, int64_t high) {
  return static_cast<uint8_t>(node.Integer(key, low, high));
}

/// "TV-14-D-V": a rating, and after it what it is for, in the order of the dimensions.
std::vector<Rating::Dimension> TvDimensions(const Node& node) {
  const std::string text = node.String();
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
  node.Fail("must be a TV rating such as TV-Y7-FV or TV-14-D-L-S-V");
}

Rating::Dimension NumberedDimension(const Node& dimensions, const std::string& key) {
  const bool number =
      !key.empty() && key.size() <= 2 &&
      std::all_of(key.begin(), key.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!number) dimensions.At(Printable(key)).Fail("must be the number of a dimension");
  return {static_cast<uint8_t>(std::stoi(key)), Small(dimensions, key.c_str(), 0, 15)};
}

Rating ParseRegionRating(const Node& node) {
  node.AllowKeys({"region", "dimensions", "text"});
  Rating rating;
  rating.region = Small(node, "region", 1, 255);
  if (node.Has("dimensions")) {
    const Node dimensions = node.At("dimensions");
    for (const std::string& key : dimensions.Keys()) {
      rating.dimensions.push_back(NumberedDimension(dimensions, key));
    }
  }
  rating.text = node.LocalTextOr("text", kShortText);
  for (const LanguageText& text : rating.text) {
    if (text.text.size() > kRatingDescriptionUnits) {
      node.At("text").Fail("must be at most 16 UTF-16 units");
    }
  }
  return rating;
}

Text English(const Node& node, const char* key) { return {{"eng", node.Utf16(key)}}; }

std::vector<Rating> ParseRatings(const Node& programme) {
  std::vector<Rating> ratings;
  if (!programme.Has("rating")) return ratings;
  const Node node = programme.At("rating");
  if (node.IsString()) return {{kRegionUs, TvDimensions(node), English(programme, "rating")}};
  node.AllowKeys({"us_tv", "us_movie", "ca_english", "ca_french", "regions"});
  Unique regions;
  if (node.Has("us_tv") || node.Has("us_movie")) {
    Rating rating{kRegionUs, {}, {}};
    if (node.Has("us_tv")) rating.dimensions = TvDimensions(node.At("us_tv"));
    if (node.Has("us_movie")) {
      rating.dimensions.push_back({kMovieDimension, node.OneOf("us_movie", kMovieRatings)});
    }
    rating.text = English(node, node.Has("us_tv") ? "us_tv" : "us_movie");
    regions.Add(kRegionUs, node);
    ratings.push_back(rating);
  }
  if (node.Has("ca_english") || node.Has("ca_french")) {
    Rating rating{kRegionCanada, {}, {}};
    if (node.Has("ca_english")) {
      rating.dimensions.push_back({0, node.OneOf("ca_english", kEnglishRatings)});
    }
    if (node.Has("ca_french")) {
      rating.dimensions.push_back({1, node.OneOf("ca_french", kFrenchRatings)});
    }
    rating.text = English(node, node.Has("ca_english") ? "ca_english" : "ca_french");
    regions.Add(kRegionCanada, node);
    ratings.push_back(rating);
  }
  for (const Node& region : node.ElementsOr("regions", 1, kMaxRegions)) {
    ratings.push_back(ParseRegionRating(region));
    regions.Add(ratings.back().region, region.At("region"));
  }
  if (ratings.empty()) node.Fail("must not be empty");
  if (ratings.size() > kMaxRegions) node.Fail("must have at most 8 regions");
  return ratings;
}

CaptionService ParseCaption(const Node& node, size_t position) {
  CaptionService caption;
  caption.number = static_cast<uint8_t>(position + 1);
  if (node.IsString()) {
    caption.language = node.String();
  } else {
    node.AllowKeys({"language", "service", "line21_field", "easy_reader", "wide"});
    caption.language = node.String("language");
    caption.digital = !node.Has("line21_field");
    if (caption.digital) {
      caption.number = static_cast<uint8_t>(node.IntegerOr("service", 1, 63, caption.number));
    } else {
      node.ForbidKeys({"service"}, "not with line21_field");
      caption.number = Small(node, "line21_field", 0, 1);
    }
    caption.easy_reader = node.BooleanOr("easy_reader", false);
    caption.wide = node.BooleanOr("wide", false);
  }
  if (!IsLanguage(caption.language)) node.Fail("language must be three lower-case letters");
  return caption;
}

uint8_t ParseGenre(const Node& node) {
  const std::string name = node.String();
  std::istringstream genres(kGenres);
  uint8_t code = 0x20;
  for (std::string genre; std::getline(genres, genre, ','); ++code) {
    if (genre == name) return code;
  }
  node.Fail("must be a genre of A/65 in lower case");
}

Programme ParseProgramme(const Node& node) {
  node.AllowKeys({"minutes", "title", "description", "rating", "captions", "genres"});
  Programme programme;
  programme.duration =
      static_cast<uint32_t>(node.Integer("minutes", kMinMinutes, kMaxMinutes) * 60);
  programme.title = node.LocalText("title", kShortText);
  programme.description = node.LocalTextOr("description", kMaxEtm);
  programme.ratings = ParseRatings(node);
  if (ContentAdvisory(programme.ratings).size() > kMaxDescriptor) {
    node.At("rating").Fail("takes more than the 255 bytes of a descriptor");
  }
  programme.captions = ParseCaptions(node);
  for (const Node& genre : node.ElementsOr("genres", 1, kMaxGenres)) {
    programme.genres.push_back(ParseGenre(genre));
  }
  return programme;
}

RatingRegion::Value ParseValue(const Node& node) {
  if (node.IsString()) return {node.LocalText(kShortText), node.LocalText(kShortText)};
  node.AllowKeys({"abbrev", "rating"});
  return {node.LocalText("abbrev", kShortText), node.LocalText("rating", kShortText)};
}

RatingRegion ParseRatingRegion(const Node& node) {
  node.AllowKeys({"region", "version", "name", "dimensions"});
  RatingRegion region;
  region.region = Small(node, "region", 1, 255);
  region.version = static_cast<uint8_t>(node.IntegerOr("version", 0, 31, 0));
  region.name = node.LocalText("name", kShortText);
  for (const Node& each : node.Elements("dimensions", 1, kMaxDimensions)) {
    each.AllowKeys({"name", "graduated", "values"});
    RatingRegion::Dimension dimension;
    dimension.name = each.LocalText("name", kShortText);
    dimension.graduated = each.BooleanOr("graduated", false);
    for (const Node& value : each.Elements("values", 1, kMaxValues)) {
      dimension.values.push_back(ParseValue(value));
    }
    region.dimensions.push_back(dimension);
  }
  const size_t size = BuildRrt(region).size();
  if (size > kMaxSectionSize) {
    node.Fail("takes a section of " + std::to_string(size) + " bytes, it may have " +
              std::to_string(kMaxSectionSize));
  }
  return region;
}

std::string ParseCode(const Node& node, const char* key, size_t low, size_t high) {
  const std::string code = node.String(key);
  const bool graphic =
      std::all_of(code.begin(), code.end(), [](char c) { return c > ' ' && c <= '~'; });
  if (!graphic || code.size() < low || code.size() > high) {
    node.At(key).Fail("must be " + (low == high ? "" : std::to_string(low) + " to ") +
                      std::to_string(high) + " ASCII characters");
  }
  return code;
}

Alert ParseAlert(const Node& node) {
  node.AllowKeys({"sequence", "event_id", "originator", "event_code", "activation_text", "text",
                  "time_remaining", "duration", "priority", "locations"});
  Alert alert;
  alert.sequence = Small(node, "sequence", 0, 31);
  alert.event_id = static_cast<uint16_t>(node.IntegerOr("event_id", 0, 0xFFFF, alert.sequence));
  alert.originator = ParseCode(node, "originator", 3, 3);
  alert.event_code = ParseCode(node, "event_code", 1, 255);
  alert.activation_text = node.LocalTextOr("activation_text", kShortText);
  alert.text = node.LocalTextOr("text", kMaxAlertText);
  alert.time_remaining = static_cast<uint8_t>(node.IntegerOr("time_remaining", 0, 120, 0));
  alert.duration = static_cast<uint16_t>(node.IntegerOr("duration", 0, 6000, 0));
  alert.priority = Small(node, "priority", 0, 15);
  for (const Node& each : node.Elements("locations", 1, kMaxLocations)) {
    each.AllowKeys({"state", "county", "subdivision"});
    alert.locations.push_back({Small(each, "state", 0, 99),
                               static_cast<uint8_t>(each.IntegerOr("subdivision", 0, 9, 0)),
                               static_cast<uint16_t>(each.IntegerOr("county", 0, 999, 0))});
  }
  return alert;
}

}  // namespace

std::vector<Programme> ParseProgrammes(const Node& service) {
  std::vector<Programme> programmes;
  for (const Node& node : service.ElementsOr("programmes", 1, kMaxProgrammes)) {
    programmes.push_back(ParseProgramme(node));
  }
  return programmes;
}

std::vector<RatingRegion> ParseRatingRegions(const Node& lineup) {
  std::vector<RatingRegion> regions;
  Unique numbers;
  for (const Node& node : lineup.ElementsOr("rating_regions", 0, kMaxRegions)) {
    regions.push_back(ParseRatingRegion(node));
    numbers.Add(regions.back().region, node.At("region"));
  }
  return regions;
}

std::vector<Alert> ParseAlerts(const Node& channel) {
  std::vector<Alert> alerts;
  Unique sequences;
  for (const Node& node : channel.ElementsOr("alerts", 0, kMaxAlerts)) {
    alerts.push_back(ParseAlert(node));
    sequences.Add(alerts.back().sequence, node.At("sequence"));
  }
  return alerts;
}

std::vector<CaptionService> ParseCaptions(const Node& node) {
  std::vector<CaptionService> captions;
  for (const Node& caption : node.ElementsOr("captions", 1, kMaxCaptionServices)) {
    captions.push_back(ParseCaption(caption, captions.size()));
  }
  return captions;
}

}  // namespace psipmux
