// The guide's tables, their texts and ratings.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <random>

#include "files.h"
#include "receiver/stream/transport.h"
#include "receiver/tables/content_advisory.h"
#include "receiver/tables/psip_text.h"
#include "receiver_test_guide.h"

namespace receiver_test {
namespace {

// Reads a capture to its end.
class Capture {
 public:
  explicit Capture(const std::string& name)
      : bytes_(readBytes(std::string(ATSC_CAPTURES_DIR) + "/" + name)) {}
  bool is_here() const { return !bytes_.empty(); }
  void read(PsipDecoder& decoder) const {
    atschost::PacketSync sync;
    std::map<uint16_t, atschost::SectionAssembler> assemblers;
    const auto sink = [&](const uint8_t* packet) {
      const uint16_t pid = atschost::packetPid(packet);
      if (!decoder.wants(pid)) return;
      EXPECT_EQ(nullptr, assemblers[pid].push(packet, [&](const uint8_t* s, size_t size) {
        EXPECT_STREQ(nullptr, decoder.push(atschost::parseSection(pid, s, size)));
      }));
    };
    sync.push(bytes_.data(), bytes_.size(), sink);
    sync.finish(sink);
  }

 private:
  const Bytes bytes_;
};

#define SKIP_WITHOUT(capture) \
  if (!(capture).is_here()) GTEST_SKIP() << "the field captures are not here"

TEST(GuideText, CompressionsModesAndLanguages) {
  const Bytes paper = {0xF1, 0xE7, 0xDF, 0x94, 0x2B, 0x60, 0xD7, 0x00};
  const Bytes rocky = {0xD3, 0x86, 0x32, 0x58};
  const Bytes russian = {0x12, 0x9C, 0xBE, 0xC1, 0xBA, 0xB2, 0xB0};
  // All tags of single-byte mode, and windows beyond the first plane.
  const Bytes allWindows = {0x41, 0xDF, 0x12, 0x81, 0x03, 0x5F, 0x10, 0xDF, 0x1B, 0x03, 0xDF, 0x1C,
                            0x88, 0x80, 0x0B, 0xBF, 0xFF, 0xFF, 0x0D, 0x0A, 0x41, 0x10, 0xDF, 0x12,
                            0x81, 0x03, 0x5F, 0x10, 0xDF, 0x13, 0xDF, 0x14, 0x80, 0x15, 0xFF};
  const std::u16string allWindowsText =
      u"A\u00DF\u0401\u015F\u00DF\u01DF\uF000\U0010FFFF\r\nA\u00DF\u0401\u015F\u00DF\u01DF\uF000"
      u"\U0010FFFF";
  struct Case {
    const char* name;
    Bytes bytes;
    std::u16string expected;
  };
  const std::vector<Case> cases = {
      {"Latin-1", text("caf\xE9"), u"caf\u00E9"},
      {"titles' Huffman code", text(segment(1, 0, paper)), u"Paper Crafting"},
      {"the same without padding", text(segment(1, 0, rocky)), u"Rocky V"},
      {"characters that are in no tree", text(segment(1, 0, {0xCB, 0xE9, 0x61, 0xC3})),
       u"\u00E9an"},
      {"Cyrillic", text(segment(0, 4, {0x1C, 0x3E})), u"\u041C\u043E"},
      {"kana", text(segment(0, 0x30, {0x42})), u"\u3042"},
      {"SCSU", text(segment(0, 0x3E, russian)), u"\u041C\u043E\u0441\u043A\u0432\u0430"},
      {"SCSU windows", text(segment(0, 0x3E, allWindows)), allWindowsText},
      {"SCSU Unicode mode", text(segment(0, 0x3E, {0x0F, 0x53, 0xEF, 0xF0, 0xE0, 1, 0xE1, 'x'})),
       u"\u53EF\uE001x"},
      {"UTF-16 pair in two segments",
       Bytes{1} + stringOf("eng", {segment(0, 0x3F, {0xD8, 0x3C}), segment(0, 0x3F, {0xDF, 9})}),
       u"\U0001F309"},
      {"half a pair, NUL, half a unit",
       text(segment(0, 0x3F, {0xDF, 9, 0, 0, 0xD8, 0x3C, 0, 'x', 0xD8, 0, 1})),
       u"\uFFFD\uFFFDx\uFFFD"},
      {"unknown mode and compressions",
       Bytes{1} + stringOf("eng", {segment(0, 7, {'a'}), segment(3, 0, {'b'}), segment(1, 4, rocky),
                                   segment(0, 0, {'c'})}),
       u"c"},
      {"English before others",
       Bytes{2} + stringOf("spa", {segment(0, 0, {'s'})}) + stringOf("ENG", {segment(0, 0, {'e'})}),
       u"e"},
      {"the first when none is English",
       Bytes{2} + stringOf("fra", {segment(0, 0, {'f'})}) + stringOf("spa", {segment(0, 0, {'s'})}),
       u"f"},
      {"longer than wanted", text(std::string(255, 'x')), std::u16string(50, u'x')},
      // Damaged texts.
      {"no bytes", {}, u""},
      {"more strings, segments than there are", {255, 'e', 'n', 'g', 255, 0, 0, 1, 'a', 0}, u"a"},
      {"segment past the end", {1, 'e', 'n', 'g', 1, 0, 0, 200, 'a'}, u""},
      {"Huffman without end", text(segment(1, 0, {0xD3, 0x86, 0x32})), u"Rocky "},
      {"SCSU cut in a definition", text(segment(0, 0x3E, {'a', 0x0B, 0xBF})), u"a"},
      {"SCSU reserved", text(segment(0, 0x3E, {'a', 0x18, 0xA8, 'b'})), u"a"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(utf16(c.expected), atschost::readText(c.bytes.data(), c.bytes.size(), 100)) << c.name;
  }
  std::mt19937 random(4);
  for (int i = 0; i < 3000; ++i) {
    Bytes noise(random() % 250);
    for (uint8_t& byte : noise) byte = static_cast<uint8_t>(random());
    const Bytes bytes = i % 3 ? text(segment(static_cast<uint8_t>(i % 3), 0, noise))
                              : text(segment(0, 0x3E, noise));
    EXPECT_LE(atschost::readText(bytes.data(), bytes.size(), 100).size(), 100u);
  }
}

TEST(GuideText, Ratings) {
  const auto region = [](uint8_t number, const std::vector<Bytes>& dimensions,
                         const Bytes& description = {}) {
    Bytes bytes{number, static_cast<uint8_t>(dimensions.size())};
    for (const Bytes& d : dimensions) bytes = bytes + d;
    return bytes + counted(description);
  };
  struct Case {
    const char* name;
    uint8_t regions;
    Bytes bytes;
    Texts expected;
    std::string advisories;  // region:dimension=value,
  };
  const std::vector<Case> cases = {
      {"flags in their order",
       1,
       region(1, {{4, 1}, {1, 1}, {2, 1}, {3, 1}, {0, 0xF4}}),
       {"TV-14-D-L-S-V"},
       "1:0=4,1=1,2=1,3=1,4=1, "},
      {"children", 1, region(1, {{5, 2}, {6, 1}}), {"TV-Y7-FV"}, "1:5=2,6=1, "},
      {"two systems", 1, region(1, {{0, 3}, {7, 4}}), {"TV-PG", "PG-13"}, "1:0=3,7=4, "},
      {"two regions",
       2,
       region(1, {{5, 1}}) + region(2, {{0, 5}, {1, 3}}),
       {"TV-Y", "14+", "13 ans+"},
       "1:5=1, 2:0=5,1=3, "},
      {"repeated",
       2,
       region(1, {{0, 2}, {0, 5}}) + region(1, {{0, 2}}),
       {"TV-G"},
       "1:0=2, 1:0=2, "},
      {"another region", 1, region(5, {{0, 1}}, text("Suitable")), {"Suitable"}, "5:0=1, "},
      {"no dimension", 1, region(1, {}, text("TV-G")), {}, "1: "},
      {"no value", 1, region(1, {{0, 0}, {5, 0}}, text("TV-G")), {}, "1:0=0,5=0, "},
      {"none of the audience, no film", 1, region(1, {{0, 1}, {7, 1}}), {}, "1:0=1,7=1, "},
      {"values that are not defined",
       1,
       region(1, {{0, 15}, {99, 3}}, text("Own words")),
       {"Own words"},
       "1:0=15,99=3, "},
      {"cut off", 2, region(1, {{0, 2}}) + Bytes{2, 9, 0}, {"TV-G"}, "1:0=2, "},
  };
  for (const Case& c : cases) {
    const Bytes bytes = Bytes{static_cast<uint8_t>(0xC0 | c.regions)} + c.bytes;
    Texts ratings, plain;
    std::vector<atschost::Advisory> advisories;
    atschost::readContentAdvisory(bytes.data(), bytes.size(), ratings, advisories);
    for (const std::string& rating : ratings) plain.push_back(latin(rating));
    EXPECT_EQ(c.expected, plain) << c.name;
    std::string told;
    for (const auto& advisory : advisories) {
      told += std::to_string(advisory.region) + ':';
      for (const auto& [dimension, value] : advisory.values)
        told += std::to_string(dimension) + '=' + std::to_string(value) + ',';
      told += ' ';
    }
    EXPECT_EQ(c.advisories, told) << c.name;
  }
}

TEST(GuideCapture, Boston) {
  const Capture capture("boston/vsb/503000000.ts");
  SKIP_WITHOUT(capture);
  PsipDecoder decoder;
  capture.read(decoder);
  EXPECT_TRUE(decoder.guideComplete());
  Guide guide;
  EXPECT_EQ((std::vector<uint16_t>{1, 2, 3, 4}),
            guide.update(kAir, 503000000, decoder.guide(), decoder.gpsUtcOffset()).events);
  std::map<std::string, int> ratings;
  int captioned = 0;
  std::vector<size_t> counts;
  for (const uint16_t sourceId : {1, 2, 3, 4}) {
    const auto events = guide.events(kAir, 503000000, sourceId);
    counts.push_back(events->size());
    for (const ShownEvent& e : *events) {
      ++ratings[latin(e.event.rating)];
      captioned += e.event.captions;
    }
  }
  EXPECT_EQ((std::vector<size_t>{15, 20, 24, 24}), counts);
  EXPECT_EQ((std::map<std::string, int>{
                {"", 57}, {"TV-Y", 14}, {"TV-G", 6}, {"TV-PG", 4}, {"TV-14", 1}, {"TV-Y7", 1}}),
            ratings);
  EXPECT_EQ(35, captioned);
  const ShownEvent first = guide.events(kAir, 503000000, 1)->front();
  EXPECT_EQ("Frontline 2", latin(first.event.title));
  EXPECT_EQ(1389279600u, first.start);  // 2014-01-09 15:00:00 UTC
  EXPECT_EQ(3600u, first.event.duration);
  EXPECT_EQ("To Catch A Trader", latin(first.description));
}

TEST(GuideCapture, ThreePrograms) {
  const Capture capture("sections/three-programs-psip.ts");
  SKIP_WITHOUT(capture);
  PsipDecoder decoder;
  for (const bool allIsKnown : {false, true}) {
    capture.read(decoder);
    EXPECT_FALSE(decoder.guideComplete()) << "its MGT announces what is not sent";
    decoder.endPass();
    EXPECT_EQ(allIsKnown, decoder.guideComplete());
  }
  Guide guide;
  guide.update(kAir, kChannel14, decoder.guide(), decoder.gpsUtcOffset());
  std::map<uint16_t, std::string> withText;  // the hours that have a text
  for (const uint16_t sourceId : {3, 4, 5}) {
    const auto events = guide.events(kAir, kChannel14, sourceId);
    ASSERT_EQ(7u, events->size());
    for (size_t i = 0; i < events->size(); ++i) {
      const ShownEvent& e = (*events)[i];
      EXPECT_EQ(1776877200u + 3600 * i, e.start);  // from 2026-04-22 17:00:00 UTC on
      EXPECT_EQ(3600u, e.event.duration);
      EXPECT_EQ("Simulated PSIP", latin(e.event.title));
      withText[sourceId] += e.description.empty() ? '-' : 'x';
    }
  }
  EXPECT_EQ((std::map<uint16_t, std::string>{{3, "--xxxxx"}, {4, "----xxx"}, {5, "---xxx-"}}),
            withText);
}

TEST(GuideCapture, Alert) {
  const Capture alert("sections/cable-emergency-alert-inband.ts");
  SKIP_WITHOUT(alert);
  PsipDecoder decoder;
  alert.read(decoder);
  const auto received = decoder.takeAlert();
  ASSERT_TRUE(received);
  EXPECT_EQ("REQUIRED WEEKLY TEST", latin(received->text));
  EXPECT_EQ("EAS RWT", received->originator + " " + received->eventCode);
  EXPECT_EQ(15, received->priority);
  EXPECT_EQ(29, received->timeRemaining);
  EXPECT_EQ(15, received->duration);
}

TEST(GuideTables, NewVersionsReplaceWhenWhole) {
  PsipDecoder decoder;
  push(decoder, kEit0, eit(3, {{1, 100, text("early")}}));
  EXPECT_FALSE(decoder.wants(kEit0)) << "no MGT, no guide";
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEit0, 1}}));
  EXPECT_TRUE(decoder.wants(kEit0));
  push(decoder, kEit0, eit(3, {{1, 100, text("one")}}));
  EXPECT_EQ((Texts{"0 3 one"}), titles(decoder.guide()));
  EXPECT_TRUE(decoder.takeGuideChange());

  push(decoder, kEit0, eit(3, {{1, 100, text("next")}}, 2, false));
  EXPECT_STRNE(nullptr, push(decoder, kEit0, eit(3, {{1, 100, text("other")}})));
  push(decoder, kEit0, inParts(eit(3, {{3, 300, text("second")}}, 2), 1, 1));
  EXPECT_EQ((Texts{"0 3 one"}), titles(decoder.guide()));
  EXPECT_FALSE(decoder.takeGuideChange());
  push(decoder, kEit0, inParts(eit(3, {{2, 200, text("first")}}, 2), 0, 1));
  EXPECT_EQ((Texts{"0 3 first", "0 3 second"}), titles(decoder.guide()));

  // Texts on the same PID, all with the same table_id_extension.
  push(decoder, kEit0, ett(3, 2, text("two")));
  push(decoder, kEit0, ett(3, 3, text("three")));
  push(decoder, kEit0, ett(3, 3, text("tres"), 2));
  const auto& texts = decoder.guide().etts.at(0);
  EXPECT_EQ(utf16(u"two"), texts.at(3 << 16 | 2 << 2 | 2));
  EXPECT_EQ(utf16(u"tres"), texts.at(3 << 16 | 3 << 2 | 2));
}

TEST(GuideTables, CompleteWhenEveryPidRepeatedItself) {
  PsipDecoder decoder;
  const Bytes first = inParts(eit(3, {{1, 100, text("a")}}), 0, 1);
  const Bytes second = inParts(eit(3, {{2, 200, text("b")}}), 1, 1);
  const Bytes message = ett(3, 1, text("c"));
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEtt0, 1}}));
  for (const Bytes& table : {first, first}) push(decoder, kEit0, table);
  for (const Bytes& table : {message, message}) push(decoder, kEtt0, table);
  EXPECT_FALSE(decoder.guideComplete());
  push(decoder, kEit0, second);
  EXPECT_TRUE(decoder.guideComplete());
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEtt0, 2}}, 2));
  EXPECT_FALSE(decoder.guideComplete());
  for (const Bytes& table : {message, message}) push(decoder, kEtt0, table);
  EXPECT_TRUE(decoder.guideComplete());

  // One PID has no tables, and one table is never complete.
  push(decoder, kBase, mgt({{0x0100, kEit0, 2}, {0x0101, kEit1, 1}, {0x0200, kEtt0, 2}}, 3));
  for (const Bytes& table : {first, first}) push(decoder, kEit0, table);
  decoder.giveUpSilent();
  EXPECT_FALSE(decoder.guideComplete()) << "half a table is not silence";
  push(decoder, kEit0, second);
  EXPECT_TRUE(decoder.guideComplete());
  push(decoder, kBase, mgt({{0x0100, kEit0, 3}, {0x0101, kEit1, 1}, {0x0200, kEtt0, 2}}, 4));
  push(decoder, kEit0, first);
  decoder.endPass();
  EXPECT_FALSE(decoder.guideComplete());
  decoder.endPass();
  EXPECT_TRUE(decoder.guideComplete() && decoder.guideSettled());
}

TEST(GuideTables, TheMgtRenumbersDropsAndRenews) {
  PsipDecoder decoder;
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0101, kEit1, 4}}));
  push(decoder, kEit0, eit(3, {{1, 100, text("past")}}, 1));
  push(decoder, kEit1, eit(3, {{2, 200, text("now")}}, 4));
  push(decoder, kEit1, eit(9, {{5, 200, text("else")}}, 4));
  push(decoder, kBase, mgt({{0x0100, kEit1, 4}}, 2));
  EXPECT_EQ((Texts{"0 3 now", "0 9 else"}), titles(decoder.guide()));
  EXPECT_FALSE(decoder.wants(kEit0));

  // A new version without source 9 and the text of event 3: the old tables stay until this is
  // certain.
  push(decoder, kBase, mgt({{0x0100, kEit1, 4}, {0x0200, kEtt0, 4}}, 3));
  const Bytes kept = eit(8, {{6, 200, text("kept")}}, 4);
  push(decoder, kEit1, kept);
  for (const unsigned id : {2, 3}) push(decoder, kEtt0, ett(3, id, text("text"), 4));
  push(decoder, kBase, mgt({{0x0100, kEit1, 5}, {0x0200, kEtt0, 5}}, 4));
  const Bytes fresh = eit(3, {{2, 200, text("new")}}, 5);
  for (const Bytes& table : {fresh, fresh, kept, fresh}) push(decoder, kEit1, table);
  EXPECT_EQ((Texts{"0 3 new", "0 8 kept", "0 9 else"}), titles(decoder.guide()));
  EXPECT_EQ(2u, decoder.guide().etts.at(0).size());
  for (int i = 0; i < 3; ++i) {
    push(decoder, kEit1, kept);
    push(decoder, kEtt0, ett(3, 2, text("text"), 5));
  }
  EXPECT_EQ((Texts{"0 3 new", "0 8 kept"}), titles(decoder.guide()));
  EXPECT_EQ(1u, decoder.guide().etts.at(0).size());
}

TEST(GuideTables, TimeAndAlerts) {
  PsipDecoder decoder;
  push(decoder, kBase, section(0xCD, 0, Bytes{0} + be32(1000000018) + Bytes{18, 0x8E, 2}));
  const auto time = decoder.takeSystemTime();
  ASSERT_TRUE(time);
  EXPECT_FALSE(decoder.takeSystemTime());
  EXPECT_EQ(1000000000u + kGpsEpoch, time->unixSeconds());
  EXPECT_TRUE(time->daylightStatus);
  EXPECT_EQ(14, time->daylightDayOfMonth);
  EXPECT_EQ(2, time->daylightHour);

  const auto alert = [](unsigned sequence, const Bytes& message) {
    const Bytes body = Bytes{0, 0, 9, 'C', 'I', 'V'} + counted(bytesOf("TOR")) +
                       counted(text("Tornado")) + Bytes{30} + be32(0) + be16(15) + be16(0xF00B) +
                       Bytes(8) + be16(message.size()) + message + Bytes{0, 0} + be16(0xFC00);
    return section(0xD8, 0, body, sequence);
  };
  push(decoder, kBase, alert(4, {}));
  EXPECT_EQ("Tornado", latin(decoder.takeAlert().value().text));
  push(decoder, kBase, alert(5, text("Take cover")));
  EXPECT_EQ("Take cover", latin(decoder.takeAlert().value().text));
}

TEST(GuideTables, SurviveHostileSections) {
  const Bytes advisory = descriptor(0x87, {0xC1, 1, 2, 0, 4, 1, 1, 0});
  const Bytes captions = descriptor(0x86, {0xE1, 'e', 'n', 'g', 0xC1, 0x3F, 0xFF});
  const Bytes genres = descriptor(0xAB, {0xE2, 0x20, 0x21});
  const Bytes plan = mgt({{0x0100, kEit0, 1}, {0x0101, kEit0, 1}, {0x0200, kEtt0, 1}});
  const std::pair<unsigned, Bytes> sound[] = {
      {kBase, plan},
      {kEit0, eit(3, {{1, 100, text("one"), advisory + captions + genres}})},
      {kEtt0, ett(3, 1, text("message"))},
      {kBase, section(0xCA, 0xFF01,
                      Bytes{0} + counted(text("US")) + Bytes{1, 0, 0xE1, 0, 0} + be16(0xFC00))},
      {kBase, section(0xD8, 0, Bytes(40))},
      {kBase, section(0xCD, 0, Bytes(8))},
  };
  PsipDecoder decoder;
  for (const auto& [pid, table] : sound) EXPECT_STREQ(nullptr, push(decoder, pid, table));
  const GuideEvent event = decoder.guide().eits.at({0, 3}).at(0);
  EXPECT_EQ("TV-14-D", latin(event.rating));
  EXPECT_EQ((std::vector<atschost::Advisory>{{1, {{0, 4}, {1, 1}}}}), event.advisories);
  EXPECT_TRUE(event.captions);
  EXPECT_EQ((std::vector<uint8_t>{0x20, 0x21}), event.genres);

  // A truncated descriptor is dropped; a truncated event drops its table.
  EXPECT_STRNE(nullptr, push(decoder, kEit0,
                             eit(4, {{1, 100, text("kept"), captions + Bytes{0x87, 9, 1}}})));
  EXPECT_TRUE(decoder.guide().eits.at({0, 4}).at(0).captions);
  EXPECT_STRNE(nullptr,
               push(decoder, kEit0, eit(6, {{1, 100, text("kept"), descriptor(0x86, {0xE1})}})));
  EXPECT_FALSE(decoder.guide().eits.at({0, 6}).at(0).captions);
  Bytes tooMany = eit(5, {{1, 100, text("lost")}});
  tooMany[9] = 200;
  EXPECT_STRNE(nullptr, push(decoder, kEit0, sealed(tooMany)));
  EXPECT_EQ(0u, decoder.guide().eits.count({0, 5}));

  // The total size of texts is limited.
  PsipDecoder flooded;
  push(flooded, kBase, plan);
  const char* fault = nullptr;
  const Bytes longest = text(std::string(255, 'x'));
  for (unsigned id = 0; id < 100000 && !fault; ++id)
    fault = push(flooded, kEtt0, ett(id >> 14, id & 0x3FFF, longest));
  EXPECT_STRNE(nullptr, fault);
}

}  // namespace
}  // namespace receiver_test
