// Parental control: blocked programmes, locked channels, and stored settings.
#include "receiver/viewing/parental.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>

#include "aifw.h"
#include "aipc.h"
#include "aiup.h"
#include "files.h"
#include "modules/host.h"
#include "receiver/tables/psip_text.h"
#include "receiver/viewing/gate.h"
#include "receiver_test_air.h"
#include "replaced.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Advisory;
using atschost::Gate;
using atschost::ParentalSettings;
using atschost::RatingRegion;
using atschost::Receiver;

const std::pair<std::string, int32_t AIPC_dime_t::*> kLevels[] = {
    {"tv", &AIPC_dime_t::us_tv},          {"d", &AIPC_dime_t::us_dialogue},
    {"l", &AIPC_dime_t::us_language},     {"s", &AIPC_dime_t::us_sex},
    {"v", &AIPC_dime_t::us_violence},     {"child", &AIPC_dime_t::us_children},
    {"mpaa", &AIPC_dime_t::us_mpaa},      {"eng", &AIPC_dime_t::canada_english},
    {"fra", &AIPC_dime_t::canada_french},
};

// Parses a text such as "tv=4 v=1"; a number is a value of the downloadable dimension 2.
AIPC_dime_t limits(uint32_t region, const std::string& text) {
  AIPC_dime_t made{};
  made.region = region;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (isdigit(word[0])) made.downloadable[2][std::stoul(word)] = 1;
    for (const auto& [name, level] : kLevels)
      if (word.substr(0, word.find('=')) == name)
        made.*level = static_cast<int32_t>(std::stol(word.substr(name.size() + 1)));
  }
  return made;
}

std::string textOf(const AIPC_dime_t& made) {
  std::string text;
  for (const auto& [name, level] : kLevels)
    if (made.*level != 0) text += name + "=" + std::to_string(made.*level) + " ";
  for (unsigned dimension = 0; dimension < AIPC_MAX_DIMENSIONS; ++dimension)
    for (unsigned value = 0; value < AIPC_MAX_LEVELS; ++value)
      if (made.downloadable[dimension][value] != 0)
        text += std::to_string(dimension) + "." + std::to_string(value) + " ";
  return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

// Parses "1:0=4,1=1 2:0=3": regions with dimensions and values.
std::vector<Advisory> advisories(const std::string& text) {
  std::vector<Advisory> made;
  std::istringstream in(text);
  for (unsigned region, dimension, value; in >> region;) {
    made.push_back({static_cast<uint8_t>(region), {}});
    for (char sign = 0; in.get(sign) && sign != ' ';) {
      in >> dimension >> sign >> value;
      made.back().values.emplace_back(static_cast<uint8_t>(dimension), static_cast<uint8_t>(value));
    }
  }
  return made;
}

TEST(ParentalTest, AProgrammeIsBlockedByItsRatings) {
  const struct {
    const char* advisories;
    const char* limits;  // of every region
    int groups;          // bit n: unrated group n is blocked
    const char* verdict;
  } kCases[] = {
      {"1:0=4", "tv=4", 0, "blocked 1:0=4"},
      {"1:0=3", "tv=4", 0, "free"},
      {"1:0=5", "tv=4", 0, "blocked 1:0=5"},
      {"1:0=2", "tv=1", 0, "blocked 1:0=2"},
      {"1:0=1", "tv=1", 7, "free"},  // "None"
      {"1:0=15", "tv=5", 0, "blocked 1:0=15"},
      {"1:0=5", "tv=-1 d=1", 7, "free"},
      {"1:0=5", "tv=2147483647", 0, "free"},
      {"1:0=3,4=1", "tv=4 v=1", 0, "blocked 1:4=1"},
      {"1:0=3,4=1", "d=1 l=1 s=1 v=2", 0, "free"},
      {"1:5=1", "child=1", 0, "blocked 1:5=1"},
      {"1:5=2,6=1", "child=1", 0, "blocked 1:5=2"},
      {"1:5=1", "child=2", 0, "free"},
      {"1:5=2", "child=3", 0, "free"},
      {"1:5=2,6=1", "child=3", 0, "blocked 1:6=1"},
      {"1:5=2,6=1", "child=4", 0, "free"},
      {"1:7=5", "mpaa=5", 0, "blocked 1:7=5"},
      {"1:7=7", "mpaa=1", 0, "blocked 1:7=7"},
      {"1:7=1", "mpaa=1", 0, "unrated 0"},          // "N/A"
      {"1:7=8", "mpaa=2", 2, "unrated 1 blocked"},  // "NR"
      {"1:7=8,0=3", "mpaa=2", 2, "free"},
      {"1:0=0,7=0", "tv=1 mpaa=1", 1, "unrated 0 blocked"},
      {"1:0=0 2:0=0", "eng=1", 0, "unrated 2"},
      {"2:0=0,1=0", "eng=1 fra=1", 4, "unrated 2 blocked"},
      {"2:0=6", "eng=6", 0, "blocked 2:0=6"},
      {"2:0=3,1=2", "eng=4 fra=3", 0, "free"},
      {"1:0=2 2:1=3", "tv=4 fra=3", 0, "blocked 2:1=3"},
      {"", "tv=1", 1, "unrated 0 blocked"},
      {"9:2=3", "3 4", 0, "blocked 9:2=3"},
      {"9:2=2", "3 4", 0, "free"},
      {"9:2=15,200=3", "3 4", 0, "free"},
      {"8:2=3", "3 4", 0, "unrated 0"},  // a region without table
      {"8:2=3 1:0=3", "3 tv=4", 0, "free"},
  };
  atschost::KnownRegions known;
  known.set(9);
  for (const auto& each : kCases) {
    ParentalSettings settings;
    settings.details.enabled = 1;
    for (const uint32_t region : {1, 2, 8, 9}) settings.setLimits(limits(region, each.limits));
    for (size_t group = 0; group < AIPC_UNRATED_GROUPS; ++group)
      settings.unratedGroups[group] = each.groups >> group & 1;
    const auto verdict = settings.check(advisories(each.advisories), known);
    std::ostringstream text;
    if (!verdict.rated)
      text << "unrated " << verdict.group << (verdict.blocked ? " blocked" : "");
    else if (verdict.blocked)
      text << "blocked " << +verdict.region << ":" << +verdict.dimension << "=" << +verdict.value;
    else
      text << "free";
    EXPECT_EQ(each.verdict, text.str()) << each.advisories << " under " << each.limits;
    settings.details.enabled = 2;
    EXPECT_FALSE(settings.check(advisories(each.advisories), known).blocked);
  }
}

TEST(ParentalTest, LimitsAreChangedValueByValue) {
  const auto named = [](const char* text) {
    return RatingRegion::Value{atschost::toUtf16(text), ""};
  };
  RatingRegion region;
  region.number = 9;
  region.dimensions = {{"", false, {}},
                       {"", false, {named(""), named("A"), named("B"), named("C")}},
                       {"", true, {named(""), named("A"), named("B"), named("C")}}};
  const struct {
    uint32_t region;
    const char* before;
    int dimension, value, block;
    const char* after;  // null: refused
  } kCases[] = {
      {1, "", 0, 4, 1, "tv=4"},           {1, "tv=3", 0, 4, 1, "tv=3"},
      {1, "tv=3", 0, 4, 0, "tv=5"},       {1, "tv=3", 0, 5, 0, ""},
      {1, "tv=4", 0, 2, 0, "tv=4"},       {1, "tv=1", 0, 2, 0, "tv=3"},
      {1, "tv=99", 0, 3, 1, "tv=3"},      {1, "tv=-5", 0, 3, 0, ""},
      {1, "tv=4", 0, 1, 0, nullptr},      {1, "tv=4", 0, 6, 1, nullptr},
      {1, "tv=4", 2, 1, 1, "tv=4 l=1"},   {1, "l=1", 2, 1, 0, ""},
      {1, "", 2, 2, 1, nullptr},          {1, "", 5, 1, 1, "child=1"},
      {1, "child=1", 5, 1, 0, "child=2"}, {1, "child=1", 5, 2, 0, ""},
      {1, "child=3", 5, 1, 1, "child=1"}, {1, "child=3", 5, 2, 0, "child=3"},
      {1, "", 6, 1, 1, "child=3"},        {1, "child=2", 6, 1, 1, "child=2"},
      {1, "child=2", 6, 1, 0, nullptr},   {1, "child=3", 6, 1, 0, ""},
      {1, "", 7, 1, 1, nullptr},          {1, "", 7, 8, 1, nullptr},
      {1, "mpaa=6", 7, 7, 0, ""},         {1, "", 8, 1, 1, nullptr},
      {2, "eng=1", 0, 2, 0, "eng=3"},     {2, "", 1, 5, 1, "fra=5"},
      {2, "", 1, 0, 1, nullptr},          {9, "", 2, 2, 1, "2.2 2.3"},
      {9, "1 2 3", 2, 2, 0, "2.3"},       {9, "", 1, 2, 1, "1.2"},
      {9, "", 1, 0, 1, nullptr},          {9, "", 1, 4, 1, nullptr},
      {9, "", 3, 1, 1, nullptr},          {8, "", 1, 1, 1, nullptr},
  };
  for (const auto& each : kCases) {
    AIPC_dime_t made = limits(each.region, each.before);
    const std::string before = textOf(made);
    const auto dimension = static_cast<uint8_t>(each.dimension);
    const auto value = static_cast<uint8_t>(each.value);
    const bool done =
        each.region <= 2 ? atschost::encodeRating(made, dimension, value, each.block)
                         : atschost::encodeDownloadable(made, region, dimension, value, each.block);
    EXPECT_EQ(each.after != nullptr, done) << each.before << " " << each.dimension << each.value;
    EXPECT_EQ(each.after ? each.after : before, textOf(made))
        << each.before << " " << each.dimension << "." << each.value << " " << each.block;
  }
  AIPC_dime_t foreign = limits(9, "");
  EXPECT_FALSE(atschost::encodeRating(foreign, 0, 4, true));
  EXPECT_NE(0, AIPC_rating_encode(nullptr, 0, 4, 1));
  foreign.region = 200;
  EXPECT_NE(0, AIPC_drrt_rating_encode(&foreign, 0, 1, 1)) << "no table is known";
}

// Each letter is one step, see below. Events: L locked, O opened, P blocked, F free again.
TEST(ParentalTest, WhatIsKeptAwayIsToldInOrder) {
  const struct {
    const char* steps;
    const char* told;
  } kCases[] = {
      {"B", "L"},       // a locked channel starts
      {"rsBGR", ""},    // channel change with the password
      {"RsBgR", "L"},   // without the password
      {"rBgR", ""},     // as the gate was created
      {"GB", ""},       // password before it plays
      {"GRB", "L"},     // password for another channel, which could not play
      {"GXB", "L"},     // standby
      {"BGg", "LOL"},   //
      {"BGB", "LOL"},   // the same channel starts again
      {"BB", "LL"},     // each raises an event
      {"Bb", "LO"},     // another channel
      {"BU", "LO"},     // password for the programme
      {"BUu", "LOL"},   // password revoked
      {"BUsB", "LOL"},  // playing stopped
      {"U", ""},        // nothing plays
      {"bAK", ""},      // locked by the viewer: continues to play
      {"bAKB", "L"},    // until it starts again
      {"baK", "L"},     {"baKk", "LO"},     {"bUaK", ""},    {"b1", "P"},
      {"b11", "P"},     {"b1+0", "PF"},     {"b1+2", "PP"},  // another programme
      {"b1+22", "PP"},  {"b1-", "P"},                        // the event is missing in the guide
      {"b1-+2", "PP"},  {"b10101+0", "PF"},                  // changes quickly
      {"b1020+1", "P"}, {"b1s", "P"},       {"b1sb0", "PF"}, {"b1sb1", "PP"},
      {"b1U", "PF"},    {"b1U+2", "PF"},                     // also for the following programmes
      {"b1Uu", "PFP"},  {"b1Usb2", "PFP"},  {"B1G", "LPO"},  // opening the lock unblocks nothing
      {"B1+0", "LPF"},  // a free programme does not open the lock
      {"B1U", "LPOF"},  {"b1+01", "PFP"},   {"GFB", "L"},  // password for a channel that failed
      {"b1+v", "P"},  // the same programme with another text of its rating
  };
  for (const auto& each : kCases) {
    std::string told;
    Gate gate([&](AFW_event_t event) {
      told += event == AFW_CHANNEL_LOCKED       ? 'L'
              : event == AFW_CHANNEL_UNLOCKED   ? 'O'
              : event == AFW_PARENTAL_BLOCKED   ? 'P'
              : event == AFW_PARENTAL_UNBLOCKED ? 'F'
                                                : '?';
    });
    auto time = std::chrono::steady_clock::now();
    bool playing = false;
    for (const char* step = each.steps; *step; ++step) {
      const auto number = static_cast<uint16_t>(*step - '0');
      switch (*step) {
        case 'B':
        case 'b':  // starts, locked or not
          gate.begin(*step == 'B');
          playing = true;
          break;
        case 's':
          gate.stop();
          playing = false;
          break;
        case 'X':
          gate.forget();
          break;
        case 'R':
        case 'r':
          gate.setPasswordRequired(*step == 'R');
          break;
        case 'G':
        case 'g':
          gate.setPasswordGiven(*step == 'G');
          break;
        case 'U':
        case 'u':
          EXPECT_EQ(playing, gate.setUnlocked(*step == 'U'));
          break;
        case 'A':
        case 'a':
          gate.setPlayFromApplication(*step == 'A');
          break;
        case 'K':
        case 'k':
          gate.setLocked(*step == 'K');
          break;
        case '+':
          time += std::chrono::seconds(1);
          break;
        case 'F':
          gate.fail();
          break;
        case 'v':
          gate.judge({{{1, {{0, 5}}}}, std::pair<uint16_t, uint32_t>(1, 1)}, "other", false, time);
          break;
        case '-':
          gate.judge({{}, std::nullopt}, "blocked", false, time);
          break;
        default:  // programme 0 is free
          gate.judge({{}, std::pair(number, number)}, number == 0 ? "" : "blocked", false, time);
      }
    }
    EXPECT_EQ(each.told, told) << each.steps;
  }
}

TEST(ParentalTest, OnlyAChangeOfWhatIsBlockedMakesADifference) {
  using Settings = ParentalSettings;
  using Change = atschost::Parental::Change;
  TemporaryFolder folder;
  atschost::Parental parental(folder.path());
  const auto change = [&](auto edit) {
    return parental.change([&](Settings& settings) {
      edit(settings);
      return true;
    });
  };
  const auto limit = [](Settings& s) { s.setLimits(limits(1, "tv=4")); };
  EXPECT_EQ(Change::kMade, change(limit));
  EXPECT_EQ(Change::kMade, change([](Settings& s) { s.unratedGroups[0] = 1; }));
  EXPECT_EQ(Change::kMadeDifference, change([](Settings& s) { s.details.enabled = 1; }));
  EXPECT_EQ(Change::kMade, change([](Settings& s) { s.details.region = 2; }));
  EXPECT_EQ(Change::kNone, change(limit));
  EXPECT_EQ(Change::kMadeDifference, change([](Settings& s) { s.limits.clear(); }));
  EXPECT_EQ(Change::kMadeDifference, change([](Settings& s) { s.unratedGroups[0] = 0; }));
  EXPECT_EQ(Change::kRefused, parental.change([](Settings&) { return false; }));
}

class ParentalModuleTest : public testing::Test {
 protected:
  ParentalModuleTest() { AIPC_set_default_settings(); }
  ~ParentalModuleTest() override { AIPC_set_default_settings(); }
  static void enable(uint8_t enabled = 1) {
    AIPC_parental_details details{};
    EXPECT_EQ(0, AIPC_get_parental_details(&details));
    details.enabled = enabled;
    EXPECT_EQ(0, AIPC_set_parental_details(&details));
  }
  static void limit(const std::string& text, uint32_t region = 1) {
    EXPECT_EQ(0, AIPC_store_rating(limits(region, text)));
  }
  static std::string limitOf(uint32_t region) {
    AIPC_dime_t read{};
    read.region = region;
    EXPECT_EQ(0, AIPC_retreive_rating(&read));
    EXPECT_EQ(region, read.region);
    return textOf(read);
  }
};

TEST_F(ParentalModuleTest, ATextIsComparedWithTheLimits) {
  enable();
  limit("tv=4 v=1 child=3 mpaa=4");
  limit("eng=2 fra=5", 2);
  std::string flags = "TV-PG";
  while (flags.size() < 60000) flags += "-D-L-S";
  const struct {
    uint32_t country, system;
    std::string text;
    int verdict;
  } kCases[] = {
      {1, 1, "TV-14", 11},
      {1, 1, "TV-PG", 0},
      {1, 1, "TV-MA-D-V", 11},
      {1, 1, "TV-PG-L-V-D", 11},
      {1, 1, "TV-PG-D", 0},
      {1, 1, "TV-Y7", 0},
      {1, 1, "TV-Y7-FV", 11},
      {1, 1, "TV-Y", 0},
      {1, 1, "None", 0},
      {1, 1, flags, 0},
      {1, 1, flags + "-V", 11},
      {1, 1, "TV-14-", -1},
      {1, 1, "TV-14-X", -1},
      {1, 1, "TV-14D", -1},
      {1, 1, "TV-", -1},
      {1, 1, std::string("TV-14\0-X", 8), 11},
      {1, 1, std::string(65535, '-'), -1},
      {1, 1, "\xFF\x80", -1},
      {1, 1, "", -1},
      {1, 2, "PG-13", 11},
      {1, 2, "PG", 0},
      {1, 2, "NR", 0},
      {1, 2, "N/A", 0},
      {1, 2, "E", -1},
      {2, 3, "C8+", 11},
      {2, 3, "E", 0},
      {2, 4, "18 ans+", 11},
      {2, 4, "16 ans+", 0},
      {2, 4, "PG", -1},
      {2, 1, "TV-14", -1},
      {3, 3, "G", -1},
  };
  for (const auto& each : kCases) {
    std::vector<uint8_t> bytes(each.text.begin(), each.text.end());  // without a NUL
    uint8_t none = 'x';
    const multiple_lang_t text{bytes.empty() ? &none : bytes.data(),
                               static_cast<uint16_t>(bytes.size()), 0};
    EXPECT_EQ(each.verdict, AIPC_check_rating(each.country, each.system, &text))
        << each.text.substr(0, 20);
  }
  enable(0);
  char letters[] = "TV-14";
  const multiple_lang_t text{reinterpret_cast<uint8_t*>(letters), 5, 0};
  EXPECT_EQ(0, AIPC_check_rating(1, 1, &text));
  EXPECT_EQ(-1, AIPC_check_rating(1, 1, nullptr));
}

TEST_F(ParentalModuleTest, SettingsAreKeptByTheStoreCallsAlone) {
  const fs::path state = getenv("ATSC_HOST_STATE");
  const AIPC_parental_details given{-7, 2, 3, 4, 1, 0};
  ASSERT_EQ(0, AIPC_set_parental_details(&given));
  limit("tv=-2147483648 child=99");
  limit("3 14", 255);
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_CANADA));
  EXPECT_EQ(0, AIPC_store_all());
  limit("tv=4");
  EXPECT_EQ(0, AIUP_store_all());
  EXPECT_EQ(0, AIUP_sync());
  const auto check = [&] {
    const auto settings = TestReceiver(state).parental().settings();
    EXPECT_EQ("tv=-2147483648 child=99", textOf(settings->limitsOf(1)));
    EXPECT_EQ("2.3 2.14", textOf(settings->limitsOf(255)));
    EXPECT_EQ(-7, settings->details.preset_mode);
    EXPECT_EQ(2, settings->details.region);
    EXPECT_EQ(4, settings->details.rated);
    EXPECT_EQ(1, settings->unratedGroups[AIPC_UNRATED_CANADA]);
  };
  check();
  EXPECT_EQ(0, AIUP_sync());
  check();
  EXPECT_EQ("tv=4", limitOf(1));

  // Invalid settings are refused and change nothing.
  AIPC_parental_details bad = given;
  for (const int32_t region : {0, -1, 256}) {
    bad.region = region;
    EXPECT_NE(0, AIPC_set_parental_details(&bad));
    EXPECT_NE(0, AIFW_set_curr_region(region));
    EXPECT_NE(0, AIPC_store_rating(limits(static_cast<uint32_t>(region), "tv=3")));
  }
  EXPECT_NE(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_GROUPS));
  EXPECT_EQ(0, AIFW_set_curr_region(255));
  AIPC_region_list_t current{};
  EXPECT_EQ(0, AIFW_get_curr_region(&current));
  EXPECT_EQ(255u, current.region);
  EXPECT_EQ(0, AIPC_reset_user_ratings());
  EXPECT_EQ("", limitOf(1));
  int32_t block = -1;
  EXPECT_EQ(0, AIPC_get_rating_status_unrated_groups(&block, AIPC_UNRATED_CANADA));
  EXPECT_EQ(0, block);
  AIPC_parental_details read{};
  EXPECT_EQ(0, AIPC_get_parental_details(&read));
  EXPECT_EQ(-7, read.preset_mode);
  EXPECT_EQ(0, AIPC_set_default_settings());
  EXPECT_EQ(0, AIPC_get_parental_details(&read));
  EXPECT_EQ(1, read.region);
  EXPECT_EQ(0, read.preset_mode + read.enabled + read.rated);

  // A damaged file is renamed.
  const fs::path file = state / "parental.json";
  const std::string text = readFile(file);
  for (const auto& [from, to] : {std::pair{"\"region\" : 2,", "\"region\" : 256,"},
                                 {"\"region\" : 255", "\"region\" : 1"},
                                 {"\"us_tv\" : -2147483648", "\"us_tv\" : \"4\""},
                                 {"\"dimension\" : 2", "\"dimension\" : 64"},
                                 {"\"values\" : ", "\"values\" : {}, \"x\" : "}}) {
    writeFile(file, replaced(text, from, to));
    EXPECT_EQ(ParentalSettings(), *TestReceiver(state).parental().settings()) << to;
    EXPECT_TRUE(!fs::exists(file) && fs::exists(file.string() + ".bad")) << to;
  }
  EXPECT_EQ(0, AIPC_store_all());
  EXPECT_EQ(0, AIUP_sync());
  EXPECT_TRUE(fs::exists(file));
}

}  // namespace
}  // namespace receiver_test
