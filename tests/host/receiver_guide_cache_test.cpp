// The event cache: its updates by the guide's tables, and how tables are collected.
#include <gtest/gtest.h>

#include <future>

#include "aiec.h"
#include "receiver/tuners/guide_tuner.h"
#include "receiver_test_guide.h"

namespace receiver_test {
namespace {

TEST(GuideCache, UnitesInstancesAndKeepsWhatWasNotRenewed) {
  Guide guide;
  const auto events = [&] { return titles(*guide.events(kAir, kChannel14, 3)); };
  PsipDecoder decoder;
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0101, kEit1, 1}, {0x0200, kEtt0, 1}}));
  push(decoder, kEit1, eit(3, {{2, 2000, text("B")}, {3, 3000, text("C")}}));
  push(decoder, kEit0, eit(3, {{2, 2000, text("B")}, {1, 1000, text("A")}}));
  push(decoder, kEtt0, ett(3, 2, text("bee")));
  EXPECT_EQ((Texts{}), events());
  const Guide::Change change = guide.update(kAir, kChannel14, decoder.guide(), std::nullopt);
  EXPECT_EQ((std::vector<uint16_t>{3}), change.events);
  EXPECT_EQ((std::vector<uint16_t>{3}), change.texts);
  EXPECT_EQ((Texts{"A", "Bbee", "C"}), events());
  EXPECT_EQ(1000u - 18 + kGpsEpoch, guide.events(kAir, kChannel14, 3)->front().start);
  EXPECT_TRUE(guide.events(kAir, 479000000, 3)->empty());

  // After tuning again, announced tables stay until they are received.
  PsipDecoder again;
  EXPECT_TRUE(guide.update(kAir, kChannel14, again.guide(), 15).events.size()) << "other times";
  push(again, kBase, mgt({{0x0100, kEit0, 2}, {0x0200, kEtt0, 1}}));
  const auto held = guide.events(kAir, kChannel14, 3);
  guide.update(kAir, kChannel14, again.guide(), std::nullopt);
  EXPECT_EQ((Texts{"A", "Bbee"}), events());
  EXPECT_EQ(1000u - 15 + kGpsEpoch, guide.events(kAir, kChannel14, 3)->front().start);
  push(again, kEtt0, ett(3, 2, text("bumble")));
  const Guide::Change textChange = guide.update(kAir, kChannel14, again.guide(), 15);
  EXPECT_EQ((std::vector<uint16_t>{}), textChange.events);
  EXPECT_EQ((std::vector<uint16_t>{3}), textChange.texts);
  for (int i = 0; i < 3; ++i) push(again, kEit0, eit(8, {{1, 1000, text("Z")}}, 2));
  guide.update(kAir, kChannel14, again.guide(), 15);
  EXPECT_EQ((Texts{}), events()) << "the instance was received, without this service";
  EXPECT_EQ((Texts{"A", "Bbee", "C"}), titles(*held));
}

TEST(GuideCache, DoesNotGrowWhileTablesChangeTheirPlace) {
  Guide guide;
  PsipDecoder decoder;
  unsigned source = 0;
  for (unsigned version = 1; version <= 3; ++version) {
    push(decoder, kBase, mgt({{0x0100, kEit0 + version, 1}}, version));
    for (int i = 0; i < 400; ++i)
      push(decoder, kEit0 + version, eit(++source, {{1, 100, text("x")}}));
    guide.update(kAir, kChannel14, decoder.guide(), 18);
  }
  EXPECT_EQ(1000u, guide.sourceIds(kAir).size());
  EXPECT_EQ(1u, guide.events(kAir, kChannel14, source)->size());
}

TEST(GuideCache, AScanReadsUntilAllIsKnown) {
  constexpr uint32_t kChannel17 = 491000000;
  const auto stream = [](unsigned version, const std::string& title, const Bytes& eits,
                         const std::vector<Bytes>& etts) {
    const Bytes round =
        packets(kBase, {vct(0xC8, {{"ONE", 6, 1, 3}, {"TWO", 6, 2, 4}}, version),
                        mgt({{0x0100, kEit0, version}, {0x0200, kEtt0, version}})}) +
        packets(0, {pat({{9, 0x1FFF}})}) +
        packets(kEit0, {eit(3, {{1, 1000, text(title)}}, version)});
    // Some tables are sent once, before the table that announces them; the system time is last.
    return packets(kEtt0, etts) + eits + round + round + round + packets(kBase, {stt(1000, 15)});
  };
  Air air;
  const Guide& guide = atschost::hostReceiver().guide();
  const auto events = [&](uint16_t sourceId) {
    return titles(*guide.events(kAir, kChannel17, sourceId));
  };
  air.write(kAir, kChannel17,
            stream(1, "News", packets(kEit0, {eit(4, {{1, 1000, text("Late")}})}),
                   {ett(3, 1, text(" of today"))}));
  scan(kAir, kChannel17);
  EXPECT_EQ((Texts{"News of today"}), events(3));
  EXPECT_EQ((Texts{"Late"}), events(4));
  EXPECT_EQ(1000u - 15 + kGpsEpoch, guide.events(kAir, kChannel17, 3)->front().start);

  air.write(kAir, kChannel17, stream(2, "Film", {}, {}));
  scan(kAir, kChannel17);
  EXPECT_EQ((Texts{"Film"}), events(3));
  EXPECT_EQ((Texts{}), events(4));
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
  atschost::Service service;
  service.key = {5, 1, kChannel14, kAir};
  std::promise<size_t> read, readAgain;  // number of rating region tables
  int asked = 0, reads = 0;
  const auto take = [&](uint32_t, uint32_t, atschost::CarrierResult& found) {
    if (++reads <= 2) (reads == 1 ? read : readAgain).set_value(found.ratingRegions.size());
  };
  atschost::Clock clock;
  atschost::GuideTuner tuner(atschost::hostAir(), clock, list,
                             {[&](uint32_t, uint32_t) { return asked++ == 0; }, take, [] {}});
  EXPECT_FALSE(tuner.beginRound()) << "nothing is listed";
  list.replace(kAir, kChannel14, {service});
  tuner.start();
  EXPECT_EQ(0u, read.get_future().get());
  EXPECT_TRUE(tuner.beginRound());
  EXPECT_EQ(1u, readAgain.get_future().get());
}

TEST(GuideCache, AnswersEventByEvent) {
  Air air;
  air.write(kAir, kChannel14, packets(0x1FFB, {vct(0xC8, {{"ONE", 6, 1, 3}, {"TWO", 6, 2, 4}})}));
  scan(kAir);
  const std::vector<Row> list = rows(kAir);
  ASSERT_EQ(2u, list.size());
  const AISRV_service_info& one = list[0].info;
  uint16_t count = 9;
  EXPECT_EQ(0, AIEC_get_total_events(&one, &count));
  EXPECT_EQ(0, count);

  const Bytes longTitle = text(segment(0, 0x3F, {0, 'x', 0xD8, 0x3C, 0xDF, 9}));
  const Bytes ratings = descriptor(0x87, {0xC1, 1, 2, 0, 3, 7, 4, 0});
  PsipDecoder decoder;
  push(decoder, kBase, mgt({{0x0100, kEit0, 1}, {0x0200, kEtt0, 1}}));
  push(decoder, kEit0,
       eit(3, {{1, 1000, longTitle, ratings + descriptor(0xAB, {0xE1, 0x20})},
               {2, 2800, text("B")},
               {3, 4600, text("C")}}));
  push(decoder, kEtt0, ett(3, 2, text("bee")));
  atschost::hostReceiver().guide().update(kAir, kChannel14, decoder.guide(), 18);

  EXPECT_EQ(0, AIEC_get_total_events(&one, &count));
  EXPECT_EQ(3, count);
  AIEC_event_info events[3] = {};
  Bytes names[3], marks[3];
  const auto lend = [&](uint16_t nameSize) {
    for (size_t i = 0; i < 3; ++i) {
      names[i].assign(AIEC_NAME_SIZE, 0xEE);
      marks[i].assign(AIEC_RATING_SIZE, 0xEE);
      events[i] = {};
      events[i].name = {names[i].data(), nameSize, 0};
      events[i].rating = {marks[i].data(), AIEC_RATING_SIZE, 0};
    }
  };
  const auto plain = [](const multiple_lang_t& lent) {
    return latin(std::string(reinterpret_cast<const char*>(lent.text), lent.length));
  };
  lend(5);  // ends within the pair
  ASSERT_EQ(0, AIEC_get_first_n_events(&one, events, 1, &count));
  ASSERT_EQ(1, count);
  EXPECT_EQ(1, events[0].event_id);
  EXPECT_EQ(1000u - 18 + kGpsEpoch, events[0].start_time);
  EXPECT_EQ(1800u, events[0].duration);
  EXPECT_EQ(int32_t{AI_TEXT_UTF16BE}, events[0].name.encoding);
  EXPECT_EQ("x", plain(events[0].name));
  EXPECT_EQ(0xEE, names[0][2]);
  EXPECT_EQ("TV-PG", plain(events[0].rating));
  EXPECT_EQ(1, events[0].multi_rating);
  EXPECT_EQ(1, events[0].genre_count);
  EXPECT_EQ(0x20, events[0].genres[0]);
  Bytes buffer(AIEC_DESCRIPTION_SIZE);
  multiple_lang_t lent{buffer.data(), AIEC_RATING_SIZE, 0};
  EXPECT_EQ(0, AIEC_get_multiple_event_rating_string(&events[0].key, &lent));
  EXPECT_EQ("TV-PG, PG-13", plain(lent));
  lent.length = AIEC_DESCRIPTION_SIZE;
  EXPECT_EQ(0, AIEC_get_event_description(&events[0].key, &lent));
  EXPECT_EQ(0, lent.length);

  const AIEC_event_key first = events[0].key;
  lend(AIEC_NAME_SIZE);
  ASSERT_EQ(0, AIEC_get_next_n_events(&first, events, 3, &count, 1));
  ASSERT_EQ(2, count);
  EXPECT_EQ("B", plain(events[0].name));
  EXPECT_EQ(0, events[0].rating.length);
  lent.length = AIEC_DESCRIPTION_SIZE;
  EXPECT_EQ(0, AIEC_get_event_description(&events[0].key, &lent));
  EXPECT_EQ("bee", plain(lent));
  const AIEC_event_key last = events[1].key;
  EXPECT_EQ(0, AIEC_get_next_n_events(&last, events, 3, &count, 1));
  EXPECT_EQ(0, count);
  EXPECT_NE(0, AIEC_get_next_n_events(&first, events, 3, &count, 0));
  AIEC_event_key beyond = last;
  ++beyond.event_index;
  EXPECT_NE(0, AIEC_get_event_description(&beyond, &lent));

  air.write(kAir, kChannel14, packets(0x1FFB, {vct(0xC8, {{"TWO", 6, 2, 4}})}));
  scan(kAir);
  EXPECT_NE(0, AIEC_get_next_n_events(&first, events, 3, &count, 1));
  EXPECT_NE(0, AIEC_get_total_events(&one, &count));
}

}  // namespace
}  // namespace receiver_test
