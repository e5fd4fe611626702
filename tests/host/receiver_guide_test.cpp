// The guide: the texts and ratings of its tables, how the tables are collected, and the cache of
// their events.
#include <gtest/gtest.h>

#include <sstream>

#include "aiec.h"
#include "arrivals.h"
#include "command_text.h"
#include "files.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/huffman_tables.h"
#include "receiver/tables/psip_decoder.h"
#include "receiver/tables/psip_text.h"
#include "receiver/tuners/guide_tuner.h"
#include "receiver_test_air.h"
#include "receiver_test_service.h"

namespace receiver_test {
namespace {

using atschost::Guide;
using atschost::GuideEvent;
using atschost::PsipDecoder;
using atschost::ShownEvent;

// PIDs, and those that mark what is no section.
constexpr unsigned kBase = 0x1FFB, kEit0 = 0x1D00, kEit1 = 0x1D01, kEtt0 = 0x1E00;
constexpr unsigned kEndOfPass = 0x2000, kSilence = 0x2001;

TEST(GuideText, CompressionsModesAndLanguages) {
  const Bytes paper = {0xF1, 0xE7, 0xDF, 0x94, 0x2B, 0x60, 0xD7, 0x00};
  const Bytes rocky = {0xD3, 0x86, 0x32, 0x58};
  // All tags of single-byte mode, and windows beyond the first plane.
  const Bytes allWindows = {0x41, 0xDF, 0x12, 0x81, 0x03, 0x5F, 0x10, 0xDF, 0x1B, 0x03, 0xDF, 0x1C,
                            0x88, 0x80, 0x0B, 0xBF, 0xFF, 0xFF, 0x0D, 0x0A, 0x41, 0x10, 0xDF, 0x12,
                            0x81, 0x03, 0x5F, 0x10, 0xDF, 0x13, 0xDF, 0x14, 0x80, 0x15, 0xFF};
  const std::u16string allWindowsText =
      u"A\u00DF\u0401\u015F\u00DF\u01DF\uF000\U0010FFFF\r\nA\u00DF\u0401\u015F\u00DF\u01DF\uF000"
      u"\U0010FFFF";
  const struct {
    const char* name;
    uint8_t compression, mode;
    Bytes bytes;
    std::u16string expected;
  } segments[] = {
      {"Latin-1", 0, 0, {'c', 0xE9}, u"c\u00E9"},
      {"titles' Huffman code", 1, 0, paper, u"Paper Crafting"},
      {"the same without padding", 1, 0, rocky, u"Rocky V"},
      {"without its end", 1, 0, {0xD3, 0x86, 0x32}, u"Rocky "},
      {"characters that are in no tree", 1, 0, {0xCB, 0xE9, 0x61, 0xC3}, u"\u00E9an"},
      {"Cyrillic", 0, 4, {0x1C, 0x3E}, u"\u041C\u043E"},
      {"SCSU windows", 0, 0x3E, allWindows, allWindowsText},
      {"its Unicode mode", 0, 0x3E, {15, 0x53, 0xEF, 0xF0, 0xE0, 1, 0xE1, 'x'}, u"\u53EF\uE001x"},
      {"a window defined there", 0, 0x3E, {15, 0xE9, 0xFF, 0x80}, u"\uFF60"},
      {"special windows", 0, 0x3E, {0x18, 0xF9, 0x80, 0x19, 0xFF, 0x80}, u"\u00C0\uFF60"},
      {"cut in a definition", 0, 0x3E, {'a', 0x0B, 0xBF}, u"a"},
      {"reserved", 0, 0x3E, {'a', 0x18, 0xA8, 'b'}, u"a"},
      {"half a pair, NUL, half a unit",
       0,
       0x3F,
       {0xDF, 9, 0, 0, 0xD8, 0x3C, 0, 'x', 0xD8, 0, 1},
       u"\uFFFD\uFFFDx\uFFFD"},
      {"longer than wanted", 0, 0, Bytes(255, 'x'), std::u16string(50, u'x')},
  };
  const auto read = [](const Bytes& bytes) {
    return utf16(atschost::readText(bytes.data(), bytes.size(), 100));
  };
  for (const auto& each : segments)
    EXPECT_EQ(each.expected, read(text(segment(each.compression, each.mode, each.bytes))))
        << each.name;

  const auto plain = [](char letter) { return segment(0, 0, {static_cast<uint8_t>(letter)}); };
  const std::pair<Bytes, std::u16string> strings[] = {
      {Bytes{1} + stringOf("eng", {segment(0, 0x3F, {0xD8, 0x3C}), segment(0, 0x3F, {0xDF, 9})}),
       u"\U0001F309"},
      {Bytes{1} + stringOf("eng", {segment(0, 7, {'a'}), segment(3, 0, {'b'}), segment(1, 4, rocky),
                                   plain('c')}),
       u"c"},
      {Bytes{2} + stringOf("spa", {plain('s')}) + stringOf("ENG", {plain('e')}), u"e"},
      {Bytes{2} + stringOf("fra", {plain('f')}) + stringOf("spa", {plain('s')}), u"f"},
      // Damaged.
      {{}, u""},
      {{255, 'e', 'n', 'g', 255, 0, 0, 1, 'a', 0}, u"a"},
      {{1, 'e', 'n', 'g', 1, 0, 0, 200, 'a'}, u""},
  };
  for (const auto& [bytes, expected] : strings)
    EXPECT_EQ(expected, read(bytes)) << testing::PrintToString(bytes);
}

using Advisories = std::vector<atschost::Advisory>;

// Returns the content of a content_advisory_descriptor, whose regions have the description.
Bytes advisoryContent(const Advisories& regions, const Bytes& description = {}) {
  Bytes content{static_cast<uint8_t>(0xC0 | regions.size())};
  for (const auto& [region, values] : regions) {
    content = content + Bytes{region, static_cast<uint8_t>(values.size())};
    for (const auto& [dimension, value] : values)
      content = content + Bytes{dimension, static_cast<uint8_t>(0xF0 | value)};
    content = content + counted(description);
  }
  return content;
}

const char* push(PsipDecoder& decoder, unsigned pid, const Bytes& bytes) {
  return decoder.push(
      atschost::parseSection(static_cast<uint16_t>(pid), bytes.data(), bytes.size()));
}

// An EIT with one event.
Bytes show(unsigned source, unsigned id, const std::string& title, unsigned version = 1) {
  return eit(source, {{id, 100 * id, text(title)}}, version);
}

struct Step {
  unsigned pid;
  Bytes table;
  std::string expected;  // the state afterwards
};

// Pushes tables and compares the state after each. A state has the PIDs' events as "instance/source
// title", the texts, and signs: a fault '!', a change '*', complete 'c', settled 's'.
void follow(PsipDecoder& decoder, const std::vector<Step>& steps) {
  for (size_t i = 0; i < steps.size(); ++i) {
    const Step& step = steps[i];
    const char* fault = nullptr;
    if (step.pid == kEndOfPass) decoder.endPass();
    if (step.pid == kSilence) decoder.giveUpSilent();
    if (step.pid < kEndOfPass) fault = push(decoder, step.pid, step.table);
    std::string state;
    for (const auto& [key, events] : decoder.guide().eits)
      for (const GuideEvent& e : *events)
        state += std::to_string(key.first) + '/' + std::to_string(key.second) + ' ' +
                 latin(e.title) + ' ';
    for (const auto& [instance, texts] : decoder.guide().etts)
      for (const auto& [id, text] : texts) state += latin(text) + ' ';
    state += std::string(fault ? "!" : "") + (decoder.takeGuideChange() ? "*" : "") +
             (decoder.guideComplete() ? "c" : "") + (decoder.guideSettled() ? "s" : "");
    EXPECT_EQ(step.expected, state) << "step " << i;
  }
}

TEST(GuideTables, NewVersionsReplaceWhenWhole) {
  PsipDecoder decoder;
  const Bytes next = eit(3, {{1, 100, text("next")}}, 2, false);
  const Bytes first = inParts(show(3, 1, "first", 2), 0, 1);
  const Bytes second = inParts(show(3, 2, "second", 2), 1, 1);
  EXPECT_FALSE(decoder.wants(kEit0));
  follow(decoder, {
                      {kEit0, show(3, 1, "early"), ""},
                      {kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEit0, 1}}), "*"},
                      {kEit0, show(3, 1, "one"), "0/3 one *"},
                      {kEit0, next, "0/3 one "},
                      {kEit0, show(3, 1, "other"), "0/3 one !"},
                      {kEit0, second, "0/3 one "},
                      {kEit0, first, "0/3 first 0/3 second *"},
                      {kEit0, second, "0/3 first 0/3 second "},
                      // Texts on the same PID, all with the same table_id_extension.
                      {kEit0, ett(3, 2, text("two")), "0/3 first 0/3 second two *"},
                      {kEit0, ett(3, 3, text("three")), "0/3 first 0/3 second two three *"},
                      {kEit0, ett(3, 3, text("trois")), "0/3 first 0/3 second two three !"},
                      {kEit0, ett(3, 3, text("tres"), 2), "0/3 first 0/3 second two tres *"},
                  });
  EXPECT_TRUE(decoder.wants(kEit0));

  // Versions that never become whole take no memory for ever.
  const std::string title(200, 't');
  const Bytes parts[] = {inParts(show(3, 1, title, 5), 0, 1), inParts(show(3, 1, title, 6), 0, 1)};
  for (int i = 0; i < 50000; ++i) push(decoder, kEit0, parts[i % 2]);
  EXPECT_STREQ(nullptr, push(decoder, kEit0, parts[0]));
}

TEST(GuideTables, CompleteWhenEveryPidRepeatedItself) {
  const Bytes first = inParts(show(3, 1, "a"), 0, 1), second = inParts(show(3, 2, "b"), 1, 1);
  const Bytes message = ett(3, 1, text("c"));
  const MgtEntry event{0x0100, kEit0, 2}, silent{0x0101, kEit1, 1}, story{0x0200, kEtt0, 2};
  PsipDecoder decoder;
  follow(decoder, {
                      {kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEtt0, 1}}), "*"},
                      {kEit0, first, ""},
                      {kEit0, first, ""},
                      {kEtt0, message, "c *"},
                      {kEtt0, message, "c "},
                      {kEit0, second, "0/3 a 0/3 b c *c"},
                      {kBase, mgt({{0x0100, kEit0, 1}, story}, 2), "0/3 a 0/3 b c *"},
                      {kEtt0, message, "0/3 a 0/3 b c "},
                      {kEtt0, message, "0/3 a 0/3 b c c"},
                      // One PID has no tables, and one table is never whole.
                      {kBase, mgt({event, silent, story}, 3), "0/3 a 0/3 b c *"},
                      {kEit0, first, "0/3 a 0/3 b c "},
                      {kEit0, first, "0/3 a 0/3 b c "},
                      {kSilence, {}, "0/3 a 0/3 b c "},
                      {kEit0, second, "0/3 a 0/3 b c c"},
                      {kBase, mgt({{0x0100, kEit0, 3}, silent, story}, 4), "0/3 a 0/3 b c *"},
                      {kEit0, first, "0/3 a 0/3 b c "},
                      {kEndOfPass, {}, "0/3 a 0/3 b c "},
                      {kEndOfPass, {}, "0/3 a 0/3 b c *cs"},
                  });
}

TEST(GuideTables, TheMgtRenumbersDropsAndRenews) {
  const Bytes kept = show(8, 6, "kept", 4), fresh = show(3, 2, "new", 5);
  const Bytes two = ett(3, 2, text("two"), 5);
  PsipDecoder decoder;
  follow(decoder,
         {
             {kBase, mgt({{0x0100, kEit0, 1}, {0x0101, kEit1, 4}, {0x017F, 0x1E7F, 1}}), "*"},
             {kEit0, show(3, 1, "past"), "0/3 past *"},
             {kEit1, show(3, 2, "now", 4), "0/3 past 1/3 now *"},
             {kEit1, show(9, 5, "else", 4), "0/3 past 1/3 now 1/9 else *"},
             {kBase, mgt({{0x0100, kEit1, 4}}, 2), "0/3 now 0/9 else *"},
             {kEit0, show(3, 1, "late"), "0/3 now 0/9 else "},
             {kBase, mgt({{0x0100, kEit1, 4}, {0x0200, kEtt0, 4}}, 3), "0/3 now 0/9 else *"},
             {kEit1, kept, "0/3 now 0/8 kept 0/9 else *"},
             {kEtt0, ett(3, 2, text("two"), 4), "0/3 now 0/8 kept 0/9 else two *"},
             {kEtt0, ett(3, 3, text("three"), 4), "0/3 now 0/8 kept 0/9 else two three *"},
             // A version without source 9 and the text of event 3, which stay until this is
             // certain.
             {kBase, mgt({{0x0100, kEit1, 5}, {0x0200, kEtt0, 5}}, 4),
              "0/3 now 0/8 kept 0/9 else two three *"},
             {kEit1, fresh, "0/3 new 0/8 kept 0/9 else two three *"},
             {kEit1, fresh, "0/3 new 0/8 kept 0/9 else two three "},
             {kEit1, kept, "0/3 new 0/8 kept 0/9 else two three "},
             {kEit1, fresh, "0/3 new 0/8 kept 0/9 else two three "},
             {kEit1, kept, "0/3 new 0/8 kept 0/9 else two three "},
             {kEit1, kept, "0/3 new 0/8 kept two three *"},
             {kEtt0, two, "0/3 new 0/8 kept two three "},
             {kEtt0, two, "0/3 new 0/8 kept two three c"},
             {kEtt0, two, "0/3 new 0/8 kept two *cs"},
         });
}

TEST(GuideTables, DescriptorsOfEvents) {
  const Advisories film{{1, {{4, 1}, {0, 4}, {4, 0}}}, {2, {{0, 3}, {1, 2}}}};
  Bytes cutOff = advisoryContent(film);
  cutOff.pop_back();
  const Bytes entry{'e', 'n', 'g', 0xC1, 0x3F, 0xFF};
  Bytes many;
  for (uint8_t i = 1; i <= 31; ++i)
    many = many + Bytes{'e', 'n', 'g', static_cast<uint8_t>(0xC0 | i), 0x3F, 0xFF};
  const auto captions = [](uint8_t count, const Bytes& entries) {
    return descriptor(0x86, Bytes{static_cast<uint8_t>(0xE0 | count)} + entries);
  };
  const Bytes genres = descriptor(0xAB, {0xE2, 0x20, 0x21});
  const struct {
    Advisories rated;
    std::string description;
    Bytes others;          // further descriptors
    const char* expected;  // rating, all ratings, caption services, genres, fault
  } cases[] = {
      {{{1, {{0, 4}, {1, 1}}}, {1, {{7, 4}}}},
       "",
       captions(1, entry) + genres,
       "TV-14-D|TV-14-D, PG-13|1|32 33 |"},
      {{{1, {{0, 4}, {1, 1}, {2, 1}, {3, 1}, {4, 1}}}}, "", {}, "TV-14-D-L-S-V||0||"},
      {{{1, {{5, 2}, {6, 1}}}}, "", {}, "TV-Y7-FV||0||"},
      {{{1, {{0, 3}, {7, 4}}}}, "", {}, "TV-PG|TV-PG, PG-13|0||"},
      {{{1, {{5, 1}}}, {2, {{0, 5}, {1, 3}}}}, "", {}, "TV-Y|TV-Y, 14+, 13 ans+|0||"},
      {{{1, {{0, 2}}}, {1, {{0, 2}}}}, "", {}, "TV-G||0||"},
      {{{5, {{0, 1}}}}, "Suitable", {}, "Suitable||0||"},
      {{{5, {{0, 0}}}}, "All", {}, "All||0||"},
      {{{1, {}}}, "No dimension", {}, "||0||"},
      {{{1, {{0, 0}, {5, 0}}}}, "No value", {}, "||0||"},
      {{{1, {{0, 1}, {7, 1}}}}, "", {}, "||0||"},  // none of the audience, no film
      {{{1, {{0, 15}, {99, 3}}}}, "Not defined", {}, "Not defined||0||"},
      {{}, "", captions(0, entry), "||0||"},
      {{}, "", captions(2, entry + entry), "||1||"},                      // each once
      {{}, "", captions(1, {'e', 'n', 'g', 0xC0, 0x3F, 0xFF}), "||0||"},  // without a number
      {{}, "", captions(31, many), "||16||"},
      {{}, "", descriptor(0xAB, {0xE3, 5}), "||0|5 |"},
      // Of a damaged descriptor what is whole counts, and its table is not dropped.
      {{}, "", descriptor(0x87, cutOff), "TV-14-V||0||EIT descriptor passes its end"},
      {{}, "", captions(1, entry) + Bytes{0x87, 9, 1}, "||1||EIT descriptor passes its end"},
      {{}, "", captions(3, entry + entry), "||1||EIT descriptor passes its end"},
      {{}, "", descriptor(0x86, {0xE1}) + genres, "||0|32 33 |EIT descriptor passes its end"},
  };
  PsipDecoder decoder;
  const Bytes plan = mgt({{0x0100, kEit0, 1}, {0x0101, kEit0, 1}, {0x0200, kEtt0, 1}});
  push(decoder, kBase, plan);
  unsigned source = 0;
  for (const auto& each : cases) {
    const Bytes content = advisoryContent(each.rated, text(each.description));
    const Bytes all = (each.rated.empty() ? Bytes() : descriptor(0x87, content)) + each.others;
    const char* fault = push(decoder, kEit0, eit(++source, {{1, 100, text("one"), all}}));
    const GuideEvent event = decoder.guide().eits.at({0, source})->at(0);
    EXPECT_EQ(event.captions, !event.captionServices.empty());
    std::string found = latin(event.rating) + '|' + latin(event.otherRatings) + '|' +
                        std::to_string(event.captionServices.size()) + '|';
    for (const uint8_t genre : event.genres) found += std::to_string(genre) + ' ';
    EXPECT_EQ(each.expected, found + '|' + (fault ? fault : ""));
    EXPECT_TRUE(each.rated.empty() || each.rated == event.advisories) << each.expected;
  }
  Bytes tooMany = show(99, 1, "lost");
  tooMany[9] = 200;
  EXPECT_STREQ("EIT event passes the end", push(decoder, kEit0, sealed(tooMany)));
  EXPECT_EQ(0u, decoder.guide().eits.count({0, 99}));

  // The total size of texts is limited.
  const char* fault = nullptr;
  const Bytes longest = text(std::string(255, 'x'));
  for (unsigned id = 0; id < 100000 && !fault; ++id)
    fault = push(decoder, kEtt0, ett(id >> 14, id & 0x3FFF, longest));
  EXPECT_STREQ("guide tables are more than is kept", fault);
}

TEST(GuideTables, TimeAndAlerts) {
  PsipDecoder decoder;
  push(decoder, kBase, section(0xCD, 0, Bytes{0} + be32(1000000018) + Bytes{18, 0x8E, 2}));
  const auto time = decoder.takeSystemTime();
  ASSERT_TRUE(time);
  EXPECT_FALSE(decoder.takeSystemTime());
  EXPECT_EQ((std::tuple{1000000000u + kGpsEpoch, true, 14, 2}),
            (std::tuple{time->unixSeconds(), time->daylightStatus, +time->daylightDayOfMonth,
                        +time->daylightHour}));

  for (const std::string message : {"", "Take cover"}) {
    EXPECT_STREQ(nullptr, push(decoder, kBase, alert(4, "Tornado", message)));
    const atschost::EmergencyAlert found = decoder.takeAlert().value();
    EXPECT_EQ(
        (std::tuple{4, 9, "CIV TOR Tornado", 30, 77u, 15, 11, false}),
        (std::tuple{+found.sequence, +found.eventId,
                    found.originator + ' ' + found.eventCode + ' ' + latin(found.activationText),
                    +found.timeRemaining, found.start, +found.duration, +found.priority,
                    found.hasDetailsChannel}));
    EXPECT_EQ(message.empty() ? "Tornado" : message, latin(found.text));
  }
}

// The events of a source id as "start title description", by their start.
Texts shown(const Guide& guide, uint16_t sourceId, uint32_t frequency = kChannel14) {
  Texts list;
  for (const ShownEvent& e : *guide.events(kAir, frequency, sourceId))
    list.push_back(std::to_string(e.start - kGpsEpoch) + ' ' + latin(e.event->title) + ' ' +
                   latin(std::string(e.description)));
  return list;
}

TEST(GuideCache, UnitesInstancesAndKeepsWhatWasNotRenewed) {
  Guide guide;
  // Returns the source ids of changed events and descriptions.
  const auto update = [&](PsipDecoder& decoder, std::optional<uint8_t> offset) {
    const Guide::Change change = guide.update(kAir, kChannel14, decoder.guide(), offset);
    return testing::PrintToString(std::pair{change.events, change.texts});
  };
  PsipDecoder decoder;
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0101, kEit1, 1}, {0x0200, kEtt0, 1}}));
  push(decoder, kEit1, eit(3, {{2, 200, text("B")}, {3, 300, text("C")}}));
  push(decoder, kEit0, eit(3, {{2, 200, text("B")}, {1, 100, text("A")}}));
  push(decoder, kEtt0, ett(3, 2, text("bee")));
  EXPECT_EQ(Texts{}, shown(guide, 3));
  EXPECT_EQ("({ 3 }, { 3 })", update(decoder, std::nullopt));
  EXPECT_EQ((Texts{"82 A ", "182 B bee", "282 C "}), shown(guide, 3));
  EXPECT_EQ(Texts{}, shown(guide, 3, 479000000));
  EXPECT_EQ("({ 3 }, { 3 })", update(decoder, 15)) << "other times";

  // After tuning again, announced tables stay until they are received.
  PsipDecoder again;
  EXPECT_EQ("({}, {})", update(again, std::nullopt));
  push(again, kBase, mgt({{0x0100, kEit0, 2}, {0x0200, kEtt0, 1}}));
  const auto held = guide.events(kAir, kChannel14, 3);
  EXPECT_EQ("({ 3 }, {})", update(again, std::nullopt));
  EXPECT_EQ((Texts{"85 A ", "185 B bee"}), shown(guide, 3));
  push(again, kEtt0, ett(3, 2, text("bumble")));
  EXPECT_EQ("({}, { 3 })", update(again, 15));
  for (int i = 0; i < 3; ++i) push(again, kEit0, show(8, 1, "Z", 2));
  EXPECT_EQ("({ 3, 8 }, { 3 })", update(again, 15)) << "received, without service 3";
  EXPECT_EQ(Texts{}, shown(guide, 3));
  EXPECT_EQ(std::vector<uint16_t>{8}, guide.sourceIds(kAir));
  EXPECT_EQ("B bee",
            latin(held->at(1).event->title) + ' ' + latin(std::string(held->at(1).description)));

  // Tables that change their place do not accumulate.
  unsigned source = 0;
  for (unsigned version = 3; version <= 5; ++version) {
    push(again, kBase, mgt({{0x0100, kEit0 + version, 1}}, version));
    for (int i = 0; i < 400; ++i) push(again, kEit0 + version, show(++source, 1, "x"));
    update(again, 18);
  }
  EXPECT_EQ(1000u, guide.sourceIds(kAir).size());
  EXPECT_EQ(Texts{"82 x "}, shown(guide, static_cast<uint16_t>(source)));
  guide.forget(kAir, kChannel14);
  EXPECT_EQ(Texts{}, shown(guide, static_cast<uint16_t>(source)));
}

TEST(GuideTuner, ReadsWhatNobodyReceivesAnyMoreAndWhatIsAskedFor) {
  Air air;
  // A rating region table is sent long after all other tables.
  const Bytes region = Bytes{0} + counted(text("Far")) + Bytes{1, 0, 0xE0} + be16(0xFC00);
  Bytes idle;
  for (int i = 0; i < 1000; ++i) idle = idle + packets(0x1FFE, {section(0x40, 0, Bytes(150))});
  air.write(kAir, kChannel14,
            packets(0, {pat({{9, 0x1FFF}})}) +
                packets(kBase, {vct(0xC8, {{"ONE", 5, 1, 3}}), mgt({}), stt(1000, 15)}) + idle +
                packets(kBase, {section(0xCA, 0xFF05, region)}));
  TemporaryFolder state;
  atschost::ServiceList list(state.path());
  Arrivals<size_t> reads;  // number of rating region tables
  int asked = 0;
  atschost::Clock clock;
  atschost::GuideTuner tuner(
      atschost::hostAir(), clock, list,
      {[&](uint32_t, uint32_t) { return asked++ == 0; },
       [&](uint32_t, uint32_t, auto& found) { reads.add(found.ratingRegions.size()); }, [] {}});
  EXPECT_FALSE(tuner.beginRound()) << "nothing is listed";
  list.replace(kAir, kChannel14, {service(5, 1, kChannel14)});
  tuner.start();
  EXPECT_EQ(std::vector<size_t>{0}, reads.take(1));
  EXPECT_TRUE(tuner.beginRound());
  EXPECT_EQ(std::vector<size_t>{1}, reads.take(1));
}

TEST(GuideCache, AnswersEventByEvent) {
  Air air;
  air.write(kAir, kChannel14, packets(kBase, {vct(0xC8, {{"ONE", 6, 1, 3}, {"TWO", 6, 2, 4}})}));
  scan(kAir);
  const AISRV_service_info one = rows(kAir).at(0).info;
  uint16_t count = 9;
  EXPECT_EQ(0, AIEC_get_total_events(&one, &count));
  EXPECT_EQ(0, count);
  const Bytes longTitle = text(segment(0, 0x3F, {0, 'x', 0xD8, 0x3C, 0xDF, 9}));
  PsipDecoder decoder;
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEtt0, 1}}));
  push(decoder, kEit0,
       eit(3, {{1, 1000, longTitle,
                contentAdvisory(1, {{0, 3}, {7, 4}}) + descriptor(0xAB, {0xE1, 0x20})},
               {2, 2800, text("B"), {}, 60},
               {3, 4600, text("C"), contentAdvisory(1, {{0, 2}})}}));
  push(decoder, kEtt0, ett(3, 2, text("bee")));
  atschost::hostReceiver().guide().update(kAir, kChannel14, decoder.guide(), 18);

  // Each event's id, start, duration, title, rating, all ratings, genres and description.
  AIEC_event_info events[3];
  Bytes names[3], ratings[3], buffer(AIEC_DESCRIPTION_SIZE);
  const auto plain = [](const multiple_lang_t& lent) {
    EXPECT_EQ(int32_t{AI_TEXT_UTF16BE}, lent.encoding);
    return latin(std::string(reinterpret_cast<const char*>(lent.text), lent.length));
  };
  const auto answer = [&](uint16_t nameSize, const auto& ask) {
    for (size_t i = 0; i < 3; ++i) {
      events[i] = {};
      names[i].assign(AIEC_NAME_SIZE, 0xEE);
      events[i].name = {names[i].data(), nameSize, 0};
      ratings[i].resize(AIEC_RATING_SIZE);
      events[i].rating = {ratings[i].data(), AIEC_RATING_SIZE, 0};
    }
    EXPECT_EQ(0, ask());
    Texts list;
    for (uint16_t i = 0; i < count; ++i) {
      const AIEC_event_info& e = events[i];
      multiple_lang_t lent{buffer.data(), AIEC_DESCRIPTION_SIZE, 0};
      std::ostringstream line;
      line << e.event_id << ' ' << e.start_time - kGpsEpoch << ' ' << e.duration << ' '
           << plain(e.name) << ' ' << plain(e.rating) << ' ' << +e.multi_rating;
      EXPECT_EQ(0, AIEC_get_multiple_event_rating_string(&e.key, &lent));
      line << " (" << plain(lent) << ')';
      for (int g = 0; g < e.genre_count; ++g) line << ' ' << +e.genres[g];
      lent.length = AIEC_DESCRIPTION_SIZE;
      EXPECT_EQ(0, AIEC_get_event_description(&e.key, &lent));
      line << ": " << plain(lent);
      list.push_back(line.str());
    }
    return list;
  };
  EXPECT_EQ(Texts{"1 982 1800 x TV-PG 1 (TV-PG, PG-13) 32: "},
            answer(5, [&] { return AIEC_get_first_n_events(&one, events, 1, &count); }));
  EXPECT_EQ(0xEE, names[0][2]) << "no half of a pair";
  const AIEC_event_key begin = events[0].key;
  AIEC_event_key last = begin;
  const auto next = [&] { return AIEC_get_next_n_events(&last, events, 3, &count, 1); };
  EXPECT_EQ((Texts{"2 2782 60 B  0 (): bee", "3 4582 1800 C TV-G 0 (TV-G): "}),
            answer(AIEC_NAME_SIZE, next));
  last = events[1].key;
  EXPECT_EQ(Texts{}, answer(AIEC_NAME_SIZE, next));
  EXPECT_NE(0, AIEC_get_next_n_events(&begin, events, 3, &count, 0));
  ++last.event_index;
  multiple_lang_t lent{buffer.data(), AIEC_DESCRIPTION_SIZE, 0};
  EXPECT_NE(0, AIEC_get_event_description(&last, &lent));

  air.write(kAir, kChannel14, packets(kBase, {vct(0xC8, {{"TWO", 6, 2, 4}})}));
  scan(kAir);
  EXPECT_NE(0, AIEC_get_next_n_events(&begin, events, 3, &count, 1));
  EXPECT_NE(0, AIEC_get_total_events(&one, &count));
}

TEST(GuideText, HuffmanTreesAreThePublishedOnes) {
  const Json::Value published = parsed(readFile(A65_HUFFMAN));
  for (const auto& [name, trees] :
       {std::pair("c5", atschost::kTitleTrees), {"c7", atschost::kDescriptionTrees}}) {
    Bytes bytes;
    for (const Json::Value& byte : published[name])
      bytes.push_back(static_cast<uint8_t>(byte.asUInt()));
    EXPECT_EQ(bytes, Bytes(trees.bytes, trees.bytes + trees.size)) << name;
  }
}

}  // namespace
}  // namespace receiver_test
