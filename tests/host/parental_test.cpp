// Parental control: blocked programmes, locked channels, and stored settings.
#include "receiver/viewing/parental.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cctype>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <sstream>

#include "aifw.h"
#include "aipc.h"
#include "aiup.h"
#include "modules/host.h"
#include "receiver/tables/psip_text.h"
#include "receiver/viewing/gate.h"
#include "receiver_test_air.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Advisory;
using atschost::Gate;
using atschost::ParentalSettings;
using atschost::RatingRegion;

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

// Returns the text of a verdict: "1:0=4", "free", or "unrated" with the group, "!" when blocked.
std::string textOf(const atschost::RatingVerdict& verdict) {
  std::ostringstream text;
  if (!verdict.rated)
    text << "unrated " << verdict.group << (verdict.blocked ? "!" : "");
  else if (verdict.blocked)
    text << +verdict.region << ":" << +verdict.dimension << "=" << +verdict.value;
  return text.str().empty() ? "free" : text.str();
}

TEST(ParentalTest, AProgrammeIsBlockedByItsRatings) {
  const struct {
    const char* limits;  // of every region
    int groups;          // bit n: unrated group n is blocked
    std::vector<std::pair<const char*, const char*>> verdicts;
  } kCases[] = {
      {"tv=4", 0, {{"1:0=4", "1:0=4"}, {"1:0=3", "free"}, {"1:0=5", "1:0=5"}}},
      {"tv=1", 7, {{"1:0=2", "1:0=2"}, {"1:0=1", "free"}, {"", "unrated 0!"}}},
      {"tv=5", 0, {{"1:0=15", "1:0=15"}, {"1:0=4", "free"}}},
      {"tv=-1 d=1", 7, {{"1:0=5", "free"}, {"1:1=2", "unrated 0!"}}},
      {"tv=4 v=1", 0, {{"1:0=3,4=1", "1:4=1"}}},
      {"tv=2147483647 d=1 l=1 s=1 v=2", 0, {{"1:0=5,4=1", "free"}, {"1:2=1", "1:2=1"}}},
      {"child=1", 0, {{"1:5=1", "1:5=1"}, {"1:5=2,6=1", "1:5=2"}}},
      {"child=2", 0, {{"1:5=1", "free"}, {"1:6=1", "1:6=1"}}},
      {"child=3", 0, {{"1:5=2", "free"}, {"1:5=2,6=1", "1:6=1"}}},
      {"child=4", 0, {{"1:5=2,6=1", "free"}}},
      {"mpaa=5", 0, {{"1:7=5", "1:7=5"}, {"1:7=4", "free"}}},
      {"mpaa=1", 0, {{"1:7=7", "1:7=7"}, {"1:7=1", "unrated 0"}, {"1:7=9", "unrated 0"}}},
      {"mpaa=2", 2, {{"1:7=8", "unrated 1!"}, {"1:7=8,0=3", "free"}, {"1:7=0", "unrated 0"}}},
      {"tv=1 mpaa=1", 1, {{"1:0=0,7=0", "unrated 0!"}, {"2:0=0,1=0", "unrated 2"}}},
      {"eng=1 fra=1", 4, {{"1:0=0 2:0=0", "unrated 2!"}, {"2:1=0", "unrated 2!"}}},
      {"eng=6", 0, {{"2:0=6", "2:0=6"}, {"2:0=5", "free"}, {"1:7=8 2:0=0", "unrated 1"}}},
      {"tv=4 eng=4 fra=3", 0, {{"2:0=3,1=2", "free"}, {"1:0=2 2:1=3", "2:1=3"}}},
      {"3 4 tv=4", 0, {{"9:2=3", "9:2=3"}, {"9:2=2", "free"}, {"9:2=15,200=3", "free"}}},
      {"3 4 tv=4", 0, {{"8:2=3", "unrated 0"}, {"8:2=3 1:0=3", "free"}}},  // 8 has no table
  };
  atschost::KnownRegions known;
  known.set(9);
  for (const auto& each : kCases) {
    ParentalSettings settings;
    for (const uint32_t region : {1, 2, 8, 9}) settings.setLimits(limits(region, each.limits));
    for (size_t group = 0; group < AIPC_UNRATED_GROUPS; ++group)
      settings.unratedGroups[group] = each.groups >> group & 1;
    for (const auto& [ratings, verdict] : each.verdicts) {
      settings.details.enabled = 1;
      EXPECT_EQ(verdict, textOf(settings.check(advisories(ratings), known)))
          << ratings << " under " << each.limits;
      settings.details.enabled = 2;
      EXPECT_FALSE(settings.check(advisories(ratings), known).blocked);
    }
  }
}

TEST(ParentalTest, LimitsAreChangedValueByValue) {
  const auto named = [](const char* text) {
    return RatingRegion::Value{atschost::toUtf16(text), ""};
  };
  const std::vector<RatingRegion::Value> values{named(""), named("A"), named("B"), named("C")};
  RatingRegion region;
  region.number = 9;
  region.dimensions = {{"", false, {}}, {"", false, values}, {"", true, values}};
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
    // One of them takes the region.
    const bool done = atschost::encodeRating(made, dimension, value, each.block) ||
                      atschost::encodeDownloadable(made, region, dimension, value, each.block);
    EXPECT_EQ(each.after != nullptr, done) << each.before << " " << each.dimension << each.value;
    EXPECT_EQ(each.after ? each.after : before, textOf(made))
        << each.before << " " << each.dimension << "." << each.value << " " << each.block;
  }
  EXPECT_NE(0, AIPC_rating_encode(nullptr, 0, 4, 1));
  AIPC_dime_t foreign = limits(200, "");
  EXPECT_NE(0, AIPC_drrt_rating_encode(&foreign, 0, 1, 1)) << "no table is known";
}

// Each letter before "=" is one step, see below. Events: L locked, O opened, P blocked, F free
// again.
TEST(ParentalTest, WhatIsKeptAwayIsToldInOrder) {
  std::istringstream cases(
      // Locked channels: each start is told. A password counts for the next channel to play.
      "B=L BB=LL Bb=LO BGg=LOL BGB=LOL rsBGR= RsBgR=L rBgR= GB= GRB=L GXB=L GFB=L "
      // The password for the programme also opens the channel.
      "BU=LO BUu=LOL BUsB=LOL U= "
      // What the viewer locks continues to play until it starts again.
      "bAK= bAKB=L baK=L baKk=LO bUaK= "
      // Each blocked programme is told, also when the guide misses it or its text changes.
      "b1=P b11=P b1+0=PF b1+2=PP b1+22=PP b1-=P b1-+2=PP b1s=P b1sb0=PF b1sb1=PP b1+v=P "
      // What changes quickly is told later, but a new block is not.
      "b10101+0=PF b1020+1=P b1+01=PFP "
      // The password also frees the following programmes. A lock and a block are independent.
      "b1U=PF b1U+2=PF b1Uu=PFP b1Usb2=PFP B1G=LPO B1+0=LPF B1U=LPOF");
  for (std::string each; cases >> each;) {
    const std::string steps = each.substr(0, each.find('='));
    std::string told;
    Gate gate([&](AFW_event_t event) {
      told += std::map<AFW_event_t, char>{
          {AFW_CHANNEL_LOCKED, 'L'},
          {AFW_CHANNEL_UNLOCKED, 'O'},
          {AFW_PARENTAL_BLOCKED, 'P'},
          {AFW_PARENTAL_UNBLOCKED,
           'F'}}.at(event);
    });
    auto time = std::chrono::steady_clock::now();
    bool playing = false;
    const auto judge = [&](int event, const char* why, std::vector<Advisory> rated = {}) {
      std::optional<std::pair<uint16_t, uint32_t>> id(std::in_place, event, event);
      if (event < 0) id.reset();
      gate.judge({std::move(rated), id}, why, false, time);
    };
    // A capital letter turns something on.
    const std::map<char, std::function<void(bool)>> kSteps = {
        {'b', [&](bool locked) { gate.begin(locked); }},
        {'s', [&](bool) { gate.stop(); }},
        {'x', [&](bool) { gate.forget(); }},
        {'f', [&](bool) { gate.fail(); }},
        {'r', [&](bool on) { gate.setPasswordRequired(on); }},
        {'g', [&](bool on) { gate.setPasswordGiven(on); }},
        {'u', [&](bool on) { EXPECT_EQ(playing, gate.setUnlocked(on)); }},
        {'a', [&](bool on) { gate.setPlayFromApplication(on); }},
        {'k', [&](bool on) { gate.setLocked(on); }},
        {'+', [&](bool) { time += std::chrono::seconds(1); }},
        {'0', [&](bool) { judge(0, ""); }},
        {'1', [&](bool) { judge(1, "blocked"); }},
        {'2', [&](bool) { judge(2, "blocked"); }},
        {'v', [&](bool) { judge(1, "other", advisories("1:0=5")); }},
        {'-', [&](bool) { judge(-1, "blocked"); }},
    };
    for (const char step : steps) {
      kSteps.at(static_cast<char>(std::tolower(step)))(std::isupper(step));
      playing = std::tolower(step) == 'b' || (playing && step != 's');
    }
    EXPECT_EQ(each, steps + "=" + told);
  }
}

TEST(ParentalTest, ATextIsARating) {
  const struct {
    uint32_t country, system;
    std::vector<std::pair<const char*, const char*>> ratings;  // null: not a rating
  } kCases[] = {
      {1, 1, {{"TV-14", "1:0=4"}, {"TV-PG-L-V-D", "1:0=3,2=1,4=1,1=1"}, {"None", "1:0=1"}}},
      {1, 1, {{"TV-Y", "1:5=1"}, {"TV-Y7-FV", "1:5=2,6=1"}, {"TV-MA-S", "1:0=5,3=1"}}},
      {1, 1, {{"TV-14-", nullptr}, {"TV-14-X", nullptr}, {"TV-14D", nullptr}, {"TV-", nullptr}}},
      {1, 1, {{"", nullptr}, {"\xFF\x80", nullptr}, {"PG-13", nullptr}, {"-TV-14", nullptr}}},
      {1, 2, {{"PG-13", "1:7=4"}, {"N/A", "1:7=1"}, {"NR", "1:7=8"}, {"E", nullptr}}},
      {2, 3, {{"C8+", "2:0=2"}, {"E", "2:0=0"}, {"18 ans+", nullptr}, {"", nullptr}}},
      {2, 4, {{"18 ans+", "2:1=5"}, {"E", "2:1=0"}, {"PG", nullptr}}},
      {2, 1, {{"TV-14", nullptr}}},
      {3, 3, {{"G", nullptr}}},
  };
  for (const auto& each : kCases) {
    for (const auto& [text, rating] : each.ratings) {
      const auto read = atschost::advisoryOfText(each.country, each.system, text);
      EXPECT_EQ(rating ? std::optional(advisories(rating).front()) : std::nullopt, read) << text;
    }
  }
}

TEST(ParentalModuleTest, SettingsAreKeptByTheStoreCallsAlone) {
  EXPECT_EQ(0, AIPC_set_default_settings());
  const auto limit = [](const char* text) { EXPECT_EQ(0, AIPC_store_rating(limits(1, text))); };
  uint8_t pg[] = "TV-PG\0-X";
  const multiple_lang_t rating{pg, sizeof pg, 0};
  const fs::path state = getenv("ATSC_HOST_STATE");
  const AIPC_parental_details given{-7, 2, 3, 4, 1, 0};
  limit("tv=3");
  EXPECT_EQ(0, AIPC_check_rating(1, 1, &rating)) << "not enabled";
  ASSERT_EQ(0, AIPC_set_parental_details(&given));
  EXPECT_EQ(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_CANADA));
  EXPECT_EQ(AIPC_BLOCKED, AIPC_check_rating(1, 1, &rating));
  EXPECT_EQ(-1, AIPC_check_rating(2, 1, &rating)) << "a rating of another country";
  EXPECT_EQ(-1, AIPC_check_rating(1, 1, nullptr));
  EXPECT_EQ(0, AIPC_store_all());
  const auto settings = [] { return *atschost::hostReceiver().parental().settings(); };
  ParentalSettings kept = settings();
  limit("tv=4");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(0, AIUP_store_all());
    EXPECT_EQ(0, AIUP_sync());
    EXPECT_EQ(kept, *TestReceiver(state).parental().settings());
  }
  EXPECT_TRUE(fs::exists(state / "settings.json"));

  // Invalid settings are refused and change nothing.
  AIPC_parental_details bad = given;
  for (const int32_t region : {0, -1, 256}) {
    bad.region = region;
    EXPECT_NE(0, AIPC_set_parental_details(&bad));
    EXPECT_NE(0, AIFW_set_curr_region(region));
    EXPECT_NE(0, AIPC_store_rating(limits(static_cast<uint32_t>(region), "tv=3")));
  }
  EXPECT_NE(0, AIPC_set_rating_status_unrated_groups(1, AIPC_UNRATED_GROUPS));
  EXPECT_NE(0, AIPC_set_rating_status_unrated_groups(1, -1));
  kept.setLimits(limits(1, "tv=4"));
  EXPECT_EQ(kept, settings());
  EXPECT_EQ(0, AIPC_reset_user_ratings());
  kept.limits.clear();
  kept.unratedGroups = {};
  EXPECT_EQ(kept, settings());
  EXPECT_EQ(0, AIPC_set_default_settings());
  EXPECT_EQ(ParentalSettings(), settings());
}

}  // namespace
}  // namespace receiver_test
