// Rating regions: their tables, stored tables, and the answers of AIPC.
#include "receiver/viewing/rating_regions.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <utility>

#include "aipc.h"
#include "files.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::EventQueue;
using atschost::PsipDecoder;
using atschost::RatingRegion;
using atschost::RatingRegions;

Bytes name(const std::string& latin) { return counted(text(latin)); }
// Returns the part after the protocol version: one graduated dimension with two values.
Bytes suitability(const std::string& region) {
  return name(region) + Bytes{1} + name("Suitability") + Bytes{0xF2, 0, 0} + name("All") +
         name("For all") + be16(0xFC00);
}
Bytes rrt(uint8_t region, const Bytes& body, unsigned version = 1) {
  return section(0xCA, 0xFF00u | region, Bytes{0} + body, version);
}

// Returns the names of a region and its dimensions with their values; "<" marks a graduated one.
std::string textOf(const RatingRegion& region) {
  std::string all = latin(region.name);
  for (const auto& dimension : region.dimensions) {
    all += "; " + latin(dimension.name) + (dimension.graduated ? " <" : "");
    for (const auto& value : dimension.values)
      all += ' ' + latin(value.abbreviation) + '/' + latin(value.text);
  }
  return all;
}

// Returns the fault, or the region.
std::string told(const Bytes& bytes) {
  RatingRegion region;
  const char* const fault = atschost::readRatingRegion(bytes.data(), bytes.size(), region);
  return fault ? fault : textOf(region);
}

const char* push(PsipDecoder& decoder, const Bytes& table) {
  return decoder.push(atschost::parseSection(0x1FFB, table.data(), table.size()));
}

std::vector<atschost::RatingRegionTable> received(const std::vector<Bytes>& tables) {
  PsipDecoder decoder;
  for (const Bytes& table : tables) EXPECT_STREQ(nullptr, push(decoder, table));
  return decoder.takeRatingRegions();
}

TEST(RatingRegionTable, IsReadWholeOrDropped) {
  const Bytes good = rrt(5, suitability("Elsewhere"));
  const Bytes longest = name(std::string(240, 'x')) + Bytes{0};
  const Bytes brokenText =
      counted({1, 'e', 'n', 'g', 1, 0, 0, 9, 'x'}) + Bytes{1, 0, 0xE0, 0xFC, 0};
  const std::pair<Bytes, std::string> kCases[] = {
      {good, "Elsewhere; Suitability < / All/For all"},
      {rrt(5, {0, 1, 0, 0xE0, 0xFC, 2, 9, 0}), "; "},
      {rrt(5, {0, 1, 0, 0xE0, 0xFC, 3, 9, 0}), "RRT passes the end"},
      {rrt(5, {0}), "RRT passes the end"},
      {rrt(5, name("Short") + Bytes{2} + name("One") + Bytes{0xE0}), "RRT passes the end"},
      {rrt(5, brokenText), "RRT has a broken text"},
      {rrt(5, name("Empty") + Bytes{0} + be16(0xFC00)), "RRT defines nothing"},
      {rrt(0, suitability("Nowhere")), "RRT has no region"},
      {section(0xCA, 0xFF05, Bytes{1} + suitability("")), "RRT of an unknown protocol version"},
      {inParts(good, 0, 1), "RRT has several sections"},
      {rrt(5, name("Long") + Bytes{4} + longest + longest + longest + longest + Bytes(40)),
       "RRT section is too long"},
      {section(0xCB, 0xFF05, Bytes{0} + suitability("Other")), "RRT is none"},
      {good + Bytes{0}, "RRT is none"},
  };
  for (const auto& [bytes, expected] : kCases) EXPECT_EQ(expected, told(bytes));

  // The previous table stays.
  PsipDecoder decoder;
  EXPECT_STREQ(nullptr, push(decoder, good));
  EXPECT_STRNE(nullptr, push(decoder, rrt(5, {0, 0, 0xFC, 0}, 2)));
  EXPECT_EQ(good, decoder.takeRatingRegions().at(0).section);
}

TEST(RatingRegionsTest, AreKeptAcrossRestarts) {
  TemporaryFolder folder;
  const std::string state = folder.path() / "state";
  const fs::path path = fs::path(state) / "regions.json";
  EventQueue events;
  const auto names = [](const RatingRegions& regions) {
    Texts list;
    for (const uint8_t number : regions.numbers())
      list.push_back(std::to_string(number) + ' ' + latin(regions.region(number)->name));
    return list;
  };
  const std::string us = "1 U.S. (50 states + possessions)";
  {
    int learned = 0;
    RatingRegions regions(state, events, [&] { ++learned; });
    EXPECT_EQ((Texts{us, "2 Canada"}), names(regions));
    EXPECT_EQ(
        "U.S. (50 states + possessions); Entire Audience < / None/None TV-G/TV-G TV-PG/TV-PG "
        "TV-14/TV-14 TV-MA/TV-MA; Dialogue / D/D; Language / L/L; Sex / S/S; Violence / V/V; "
        "Children < / TV-Y/TV-Y TV-Y7/TV-Y7; Fantasy violence / FV/FV; MPAA / N/A/MPAA Rating Not "
        "Applicable G/Suitable for All Ages PG/Parental Guidance Suggested PG-13/Parents Strongly "
        "Cautioned R/Restricted, under 17 must be accompanied by adult NC-17/No One 17 and Under "
        "Admitted X/No One 17 and Under Admitted NR/Not Rated by MPAA",
        textOf(*regions.region(1)));
    EXPECT_EQ(
        "Canada; Canadian English Language Rating < E/Exempt C/Children C8+/Children eight years "
        "and older G/General programming, suitable for all audiences PG/Parental Guidance "
        "14+/Viewers 14 years and older 18+/Adult Programming; Codes fran\347ais du Canada < "
        "E/Exempt\351es G/G\351n\351ral 8 ans+/8+ G\351n\351ral - D\351conseill\351 aux jeunes "
        "enfants 13 ans+/Cette \351mission peut ne pas convenir aux enfants de moins de 13 ans 16 "
        "ans+/Cette \351mission ne convient pas aux moins de 16 ans 18 ans+/Cette \351mission est "
        "r\351serv\351e aux adultes",
        textOf(*regions.region(2)));
    EXPECT_FALSE(regions.region(5));
    EXPECT_TRUE(regions.store());
    EXPECT_FALSE(fs::exists(path)) << "there is nothing to keep";
    regions.receive(received({rrt(1, suitability("Own")), rrt(5, suitability("Five"))}));
    EXPECT_TRUE(fs::exists(path));
    regions.receive(received({rrt(5, suitability("Fifth"), 2)}));
    EXPECT_EQ((Texts{"1 Own", "2 Canada", "5 Five"}), names(RatingRegions(state, events)))
        << "it is too early to write again";
    EXPECT_TRUE(regions.store());
    EXPECT_EQ(1, learned) << "region 5";
    const fs::path moved = fs::path(state) / "moved";
    fs::rename(path, moved);
    regions.receive(received({rrt(5, suitability("Fifth"), 2)}));
    EXPECT_TRUE(regions.store());
    EXPECT_FALSE(fs::exists(path)) << "what is known is not written again";
    fs::rename(moved, path);
  }
  const RatingRegions again(state, events);
  EXPECT_EQ((Texts{"1 Own", "2 Canada", "5 Fifth"}), names(again));
  EXPECT_EQ(2, again.region(5)->version);

  const std::string stored = readFile(path);
  std::string damaged = stored;
  damaged[damaged.find("\"ca") + 30] ^= 1;  // in the first section
  writeFile(path, damaged);
  EXPECT_EQ((Texts{us, "2 Canada", "5 Fifth"}), names(RatingRegions(state, events)));
  writeFile(path, stored.substr(0, stored.size() / 2));
  EXPECT_EQ((Texts{us, "2 Canada"}), names(RatingRegions(state, events)));

  writeFile(folder.path() / "file", "no folder");
  RatingRegions homeless(folder.path() / "file", events);
  homeless.receive(received({rrt(1, suitability("Own"))}));
  EXPECT_EQ((Texts{"1 Own", "2 Canada"}), names(homeless));
  EXPECT_FALSE(homeless.store());
}

TEST(AipcRegionsTest, AnswerByRegionDimensionAndValueAndWithTheTablesOnTheAir) {
  uint8_t abbreviation[5], longer[5];
  AIPC_rating_value_text texts{{abbreviation, 5, 0}, {longer, 5, 0}};
  const struct {
    uint32_t input;
    uint8_t region, dimension, value;
    bool known;
  } kCases[] = {{0, 2, 0, 0, false}, {3, 2, 0, 0, false}, {1, 0, 0, 0, false},
                {1, 2, 2, 0, false}, {1, 2, 0, 7, false}, {1, 2, 1, 1, true}};
  for (const auto& each : kCases)
    EXPECT_EQ(each.known, AIPC_get_rating_value_text(each.input, each.region, each.dimension,
                                                     each.value, &texts) == 0);
  const auto read = [](const multiple_lang_t& text) {
    EXPECT_EQ(int32_t{AI_TEXT_UTF16BE}, text.encoding);
    return latin({reinterpret_cast<const char*>(text.text), text.length});
  };
  EXPECT_EQ("G/G\351", read(texts.abbreviation) + '/' + read(texts.text)) << "whole characters";
  uint8_t count = 1, region = 0;
  EXPECT_EQ(0, AIPC_get_RRT_regions(1, &count, &region));
  EXPECT_EQ((std::pair{1, 1}), (std::pair<int, int>{count, region})) << "there is room for one";

  // The second table is stored when the process ends.
  const Air air;
  for (const std::string own : {"Own", "New"}) {
    air.write(kAir, kChannel14,
              packets(0x1FFB, {vct(0xC8, {{"GOOD", 5, 1, 3}}), rrt(1, suitability(own), 3)}));
    scan(kAir, kChannel14);
    EXPECT_EQ(own + "; Suitability < / All/For all",
              textOf(*atschost::hostReceiver().ratingRegions().region(1)));
  }
}

}  // namespace
}  // namespace receiver_test
