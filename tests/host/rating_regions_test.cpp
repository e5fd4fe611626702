// Rating regions: their tables, stored tables, and the answers of AIPC.
#include "receiver/viewing/rating_regions.h"

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <utility>

#include "aiin.h"
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

// Returns the fault, or the names of a region and its dimensions with their values.
std::string told(const Bytes& bytes) {
  RatingRegion region;
  if (const char* fault = atschost::readRatingRegion(bytes.data(), bytes.size(), region))
    return fault;
  std::string all = latin(region.name);
  for (const auto& dimension : region.dimensions) {
    all += "; " + latin(dimension.name) + (dimension.graduated ? " <" : "");
    for (const auto& value : dimension.values)
      all += ' ' + latin(value.abbreviation) + '/' + latin(value.text);
  }
  return all;
}

Bytes capture(const std::string& name) {
  return *ATSC_CAPTURES_DIR ? readBytes(fs::path(ATSC_CAPTURES_DIR) / name) : Bytes{};
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
  Bytes otherTable = good, longer = good;
  otherTable[0] = 0xCB;
  longer.push_back(0);
  Bytes longest = name("Long") + Bytes{4};
  for (int i = 0; i < 4; ++i) longest = longest + name(std::string(240, 'x')) + Bytes{0};
  const Bytes brokenText =
      counted({1, 'e', 'n', 'g', 1, 0, 0, 9, 'x'}) + Bytes{1, 0, 0xE0, 0xFC, 0};
  const std::pair<Bytes, std::string> kCases[] = {
      {good, "Elsewhere; Suitability < / All/For all"},
      {rrt(5, {0, 1, 0, 0xE0, 0xFC, 0}), "; "},
      {rrt(5, {0, 1, 0, 0xE0, 0xFC, 2, 9, 0}), "; "},
      {rrt(5, {0, 1, 0, 0xE0, 0xFC, 3, 9, 0}), "RRT passes the end"},
      {rrt(5, {0}), "RRT passes the end"},
      {rrt(5, name("Short") + Bytes{2} + name("One") + Bytes{0xE0}), "RRT passes the end"},
      {rrt(5, brokenText), "RRT has a broken text"},
      {rrt(5, name("Empty") + Bytes{0} + be16(0xFC00)), "RRT defines nothing"},
      {rrt(0, suitability("Nowhere")), "RRT has no region"},
      {section(0xCA, 0xFF05, Bytes{1} + suitability("")), "RRT of an unknown protocol version"},
      {inParts(good, 0, 1), "RRT has several sections"},
      {rrt(5, longest + name(std::string(40, 'x')) + be16(0xFC00)), "RRT section is too long"},
      {sealed(otherTable), "RRT is none"},
      {sealed(longer), "RRT is none"},
      {{}, "RRT is none"},
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
    EXPECT_EQ(8u, regions.region(1)->dimensions.size());
    EXPECT_EQ(2u, regions.region(2)->dimensions.size());
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
  EXPECT_TRUE(fs::exists(path.string() + ".bad"));

  writeFile(folder.path() / "file", "no folder");
  RatingRegions homeless(folder.path() / "file", events);
  homeless.receive(received({rrt(1, suitability("Own"))}));
  EXPECT_EQ((Texts{"1 Own", "2 Canada"}), names(homeless));
  EXPECT_FALSE(homeless.store());
}

// Returns the answers of AIPC for a value, its dimension and its region; "none" when a call fails.
std::string answer(uint8_t region, uint8_t dimension, uint8_t value, uint16_t room = AIPC_TEXT_SIZE,
                   uint32_t input = 1) {
  std::vector<Bytes> buffers(4, Bytes(room));
  const auto lend = [&](size_t i) { return multiple_lang_t{buffers[i].data(), room, 0}; };
  const auto read = [](const multiple_lang_t& text) {
    EXPECT_EQ(int32_t{AI_TEXT_UTF16BE}, text.encoding);
    return latin({reinterpret_cast<const char*>(text.text), text.length});
  };
  AIPC_RRT_details details{0, lend(0)};
  multiple_lang_t name = lend(1);
  AIPC_rating_value_text texts{lend(2), lend(3)};
  uint8_t version = 0, dimensions = 0, levels = 0, graduated = 0;
  if (AIPC_get_RRT_details_with_version(input, region, &details, &version) != 0 ||
      AIPC_num_of_dimension(input, region, &dimensions) != 0 ||
      AIPC_dimension_name_grad(input, region, dimension, &name, &levels, &graduated) != 0 ||
      AIPC_get_rating_value_text(input, region, dimension, value, &texts) != 0)
    return "none";
  EXPECT_EQ(region, details.region);
  return read(details.name) + " v" + std::to_string(version) + ' ' + std::to_string(dimensions) +
         "; " + read(name) + ' ' + std::to_string(levels) + (graduated ? " <; " : "; ") +
         read(texts.abbreviation) + '/' + read(texts.text);
}

TEST(AipcRegionsTest, AnswerByRegionDimensionAndValue) {
  EXPECT_EQ("Canada v0 2; Codes fran\347ais du Canada 6 <; G/G\351n\351ral", answer(2, 1, 1));
  EXPECT_EQ("Ca v0 2; Co 6 <; G/G\351", answer(2, 1, 1, 5)) << "whole characters";
  for (const auto& [input, region, dimension, value] :
       {std::array{0, 2, 0, 0}, {3, 2, 0, 0}, {1, 0, 0, 0}, {1, 2, 2, 0}, {1, 2, 0, 7}}) {
    EXPECT_EQ("none", answer(static_cast<uint8_t>(region), static_cast<uint8_t>(dimension),
                             static_cast<uint8_t>(value), AIPC_TEXT_SIZE, uint32_t(input)));
  }
  AIIN_input_t input{};
  uint8_t flag = 0, count = 1, regions[255] = {};
  ASSERT_EQ(0, AIIN_get_input_details(AI_INPUT_CABLE, &flag, &input, 0));
  EXPECT_EQ(0, AIPC_get_RRT_regions(input.handle, &count, regions));
  EXPECT_EQ(1, count) << "there is room for one";
  count = 255;
  EXPECT_EQ(0, AIPC_get_RRT_regions(1, &count, regions));
  EXPECT_GE(count, 2);
  EXPECT_EQ(2, regions[1]);
}

TEST(AipcRegionsTest, AnswerWithTheTablesOnTheAir) {
  const Bytes listed = packets(0x1FFB, {vct(0xC8, {{"GOOD", 5, 1, 3}})});
  const struct {
    Bytes stream;
    uint8_t dimension, value;
    const char* answer;
  } kCases[] = {
      {packets(0x1FFB, {vct(0xC8, {{"GOOD", 5, 1, 3}}), rrt(1, suitability("Own"), 3)}), 0, 1,
       "Own v3 1; Suitability 2 <; All/For all"},
      {listed + capture("sections/rating-region-1.ts"), 7, 1,
       "U.S. (50 states + possessions) v0 8; MPAA 9; N/A/MPAA Rating Not Applicable"},
      {capture("boston/vsb/641000000.ts"), 0, 4,
       "U.S.(50 States+Possessions) v0 8; EntireAudience 6 <; TV-14/TV-14"},
  };
  Air air;
  for (const auto& each : kCases) {
    if (each.stream.empty() || each.stream == listed) continue;  // there is no such capture
    air.write(AI_INPUT_TERRESTRIAL, 641000000, each.stream);
    scan(AI_INPUT_TERRESTRIAL, 641000000);
    EXPECT_EQ(each.answer, answer(1, each.dimension, each.value));
  }
}

}  // namespace
}  // namespace receiver_test
