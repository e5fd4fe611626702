// Actions of a viewer with the remote control: sources, channels, audio, standby, changes of the
// list.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <thread>
#include <vector>

#include "aiaud.h"
#include "aicn.h"
#include "aife.h"
#include "aiin.h"
#include "aiup.h"
#include "aivc.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "files.h"
#include "modules/host.h"
#include "osal.h"
#include "receiver/station/audio.h"
#include "receiver/tables/service_name.h"
#include "receiver_test_air.h"
#include "rmgr.h"
#include "wait.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::AudioLanguages;
using atschost::Receiver;
using atschost::Service;

constexpr uint32_t kChannel15 = 479000000;
constexpr int32_t kEng = AICN_LANGUAGE_ENGLISH;
constexpr int32_t kFre = AICN_LANGUAGE_FRENCH;
constexpr int32_t kSpa = AICN_LANGUAGE_SPANISH;

// An audio stream: its language, then 'd' for a description, 'h' for the hearing impaired or 'c'
// for a commentary.
AISRV_pid_info audio(const std::string& text, uint16_t pid = 52) {
  AISRV_pid_info stream{};
  stream.stream_type = 0x81;
  stream.pid = pid;
  std::copy_n(text.begin(), std::min<size_t>(3, text.size()), stream.language);
  const char kind = text.size() > 3 ? text[3] : 0;
  stream.audio_kind = kind == 'd'   ? AISRV_AUDIO_DESCRIPTION
                      : kind == 'h' ? AISRV_AUDIO_HEARING_IMPAIRED
                      : kind == 'm' ? AISRV_AUDIO_MAIN
                      : kind == 'c' ? AISRV_AUDIO_OTHER
                                    : 0;
  return stream;
}

Service service(uint16_t major, uint16_t minor, uint32_t frequency, uint32_t source = kAir,
                uint32_t flags = AISRV_FLAG_VISIBLE) {
  Service s;
  s.key = {major, minor, frequency, source};
  s.flags = flags;
  s.streams = {audio("eng"), audio("spa", 53)};
  s.programNumber = 1;
  return s;
}

AIFW_channel_change_request change(uint32_t mode, uint32_t source = kAir, uint16_t major = 0,
                                   uint16_t minor = 0) {
  return {mode, source, AISRV_SERVICE_MASK, major, minor, 0, 0xFFFF, source};
}

// A record with a name buffer.
struct Record : AISRV_service_info {
  Record(uint16_t majorPart, uint16_t minorPart, uint32_t hertz, std::string text = {},
         uint32_t source = kAir)
      : AISRV_service_info{}, letters(std::move(text)) {
    service_id.input_source = source;
    major = majorPart;
    minor = minorPart;
    frequency = hertz;
    modulation = source == kCable ? AI_MODULATION_QAM : AI_MODULATION_8VSB;
    AISRV_flags_ = AISRV_FLAG_VISIBLE;
    name = {reinterpret_cast<uint8_t*>(letters.data()), static_cast<uint16_t>(letters.size()), 0};
  }
  std::string letters;
};

std::string number(const std::optional<Service>& s) {
  return s ? std::to_string(s->key.major) + "-" + std::to_string(s->key.minor) : "none";
}

Texts numbers(const Receiver& receiver, uint32_t source = kAir) {
  Texts list;
  const_cast<Receiver&>(receiver).services().visit(source, [&](const Service& s) {
    list.push_back(number(s));
    return true;
  });
  return list;
}

TEST(ReceiverAudioTest, TheTrackIsChosenByLanguageAmongMainTracks) {
  const struct {
    Texts tracks;
    uint8_t chosen;
    int32_t first, second;
    int track;
  } kCases[] = {
      {{}, 1, kEng, kSpa, 0},
      {{"spa", "eng"}, 0, kEng, kSpa, 2},
      {{"eng", "spa"}, 0, kFre, kSpa, 2},
      {{"eng", "fra"}, 0, kFre, kSpa, 2},
      {{"eng", "FRE"}, 0, kFre, kSpa, 2},
      {{"engd", "eng"}, 0, kEng, kSpa, 2},
      {{"engd", "engh", "spam"}, 0, kEng, kSpa, 3},
      {{"engc", "spam"}, 0, kEng, kEng, 2},
      {{"engd", "ger", "spad"}, 0, kEng, kSpa, 2},
      {{"gerd", "engh"}, 0, kEng, kSpa, 1},
      {{"", "ger"}, 0, kEng, kSpa, 1},
      {{"eng", "engd"}, 2, kEng, kSpa, 2},
      {{"ger", "eng"}, 3, kEng, kSpa, 2},  // the chosen track is gone
  };
  for (const auto& each : kCases) {
    std::vector<AISRV_pid_info> tracks;
    for (const std::string& text : each.tracks) tracks.push_back(audio(text));
    EXPECT_EQ(each.track, atschost::chooseTrack(tracks, each.chosen, {each.first, each.second}))
        << testing::PrintToString(each.tracks);
  }
  AISRV_pid_info second = audio("");
  std::copy_n("spa", 3, second.second_language);
  EXPECT_EQ("spa", atschost::trackLanguage(second));
  EXPECT_EQ("", atschost::trackLanguage(audio("a\n%")));
}

TEST(ReceiverNameTest, NamesOfViewersBecomeUtf16) {
  const auto name = [](std::string text, int32_t encoding = 0) {
    const std::string bytes = atschost::serviceName(
        {reinterpret_cast<uint8_t*>(text.data()), static_cast<uint16_t>(text.size()), encoding});
    std::u16string units;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
      units += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) << 8 |
                                     static_cast<uint8_t>(bytes[i + 1]));
    return units;
  };
  EXPECT_EQ(u"K\u00E4se \U0001F4FA", name("K\xC3\xA4se \xF0\x9F\x93\xBA"));
  EXPECT_EQ(u"K\u00E4se", name("K\xE4se")) << "not UTF-8";
  for (const char* text : {"\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xC3"})
    EXPECT_EQ(u'\0' + static_cast<uint8_t>(text[0]), name(text)[0]) << "Latin-1";
  EXPECT_EQ(u"AB", name(std::string("AB\0CD", 5)));
  EXPECT_EQ(u"A\uFFFD\U0001F4FA\uFFFD",
            name(std::string("\0A\xDC\1\xD8\x3D\xDC\xFA\xD8\1", 10), AI_TEXT_UTF16BE));
  EXPECT_EQ(std::u16string(64, u'x'), name(std::string(5000, 'x')));
  EXPECT_EQ(63u, name(std::string(63, 'x') + "\xF0\x9F\x93\xBA").size()) << "no half of a pair";
  EXPECT_EQ("", atschost::serviceName({nullptr, 5, 0}));
}

class ReceiverPlayTest : public testing::Test {
 protected:
  Air air_;
  TemporaryFolder folder_;
  const fs::path state_ = folder_.path() / "state";
};

TEST_F(ReceiverPlayTest, UpAndDownNeedAServiceThatTheViewerSurfs) {
  air_.write(kAir, kChannel14, {});
  TestReceiver receiver(state_);
  receiver.services().replace(
      kAir, kChannel14,
      {service(9, 1, kChannel14, kAir, 0), service(9, 2, kChannel14),
       service(9, 3, kChannel14, kAir, AISRV_FLAG_VISIBLE | AISRV_FLAG_SKIPPED)});
  for (const uint32_t mode : {AIFW_CHANGE_UP, AIFW_CHANGE_UP, AIFW_CHANGE_DOWN}) {
    EXPECT_TRUE(receiver.player().changeChannel(change(mode)));
    EXPECT_EQ("9-2", number(receiver.player().current()));
  }
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14, kAir, 0)});
  ASSERT_TRUE(receiver.player().playFirst(kAir, 0));
  EXPECT_FALSE(receiver.player().changeChannel(change(AIFW_CHANGE_DOWN)));
  EXPECT_EQ("9-1", number(receiver.player().current()));
}

TEST_F(ReceiverPlayTest, EachSourceRemembersWhatPlayedLast) {
  air_.write(kAir, kChannel14, {});
  air_.write(kCable, kChannel15, {});
  {
    TestReceiver receiver(state_);
    EXPECT_FALSE(receiver.player().playSource(kAir)) << "nothing is listed";
    receiver.services().replace(kAir, kChannel14,
                                {service(9, 1, kChannel14), service(9, 2, kChannel14)});
    receiver.services().replace(kCable, kChannel15, {service(300, 0, kChannel15, kCable)});
    EXPECT_TRUE(receiver.player().playSource(kAir));
    EXPECT_EQ("9-1", number(receiver.player().current()));
    EXPECT_TRUE(receiver.player().changeChannel(change(AIFW_CHANGE_UP)));
    EXPECT_TRUE(receiver.player().playSource(kCable));
    EXPECT_EQ(kCable, receiver.player().tunerSource());
    EXPECT_EQ("300-0", number(receiver.player().current()));
    EXPECT_TRUE(receiver.settings().keep());
    EXPECT_TRUE(receiver.services().store());
  }
  TestReceiver receiver(state_, air_.antenna());
  EXPECT_EQ(kCable, receiver.settings().source());
  EXPECT_EQ(kCable, receiver.player().tunerSource());
  const Air elsewhere;
  EXPECT_FALSE(TestReceiver(state_, elsewhere.antenna()).player().playSource(kAir));
  EXPECT_TRUE(receiver.player().playSource(kAir)) << "each receiver has its own antenna";
  EXPECT_EQ("9-2", number(receiver.player().current()));

  // Another source becomes the current source, without playing.
  receiver.player().stopTuning();
  EXPECT_EQ(0u, receiver.player().tuning().frequency);
  EXPECT_TRUE(receiver.player().followTuner(receiver.player().tunerSource()));
  EXPECT_EQ("9-2", number(receiver.player().current()));
  EXPECT_FALSE(receiver.player().followTuner(4));
  EXPECT_TRUE(receiver.player().followTuner(kCable));
  EXPECT_EQ("300-0", number(receiver.player().current()));
  EXPECT_FALSE(receiver.player().isPlaying());

  // A failure changes nothing. Deleted services do not play on their own.
  fs::remove(air_.path(kAir, kChannel14));
  EXPECT_FALSE(receiver.player().playSource(kAir));
  EXPECT_FALSE(receiver.player().changeChannel(change(AIFW_CHANGE_DIRECT, kAir, 9, 1)));
  EXPECT_EQ("300-0", number(receiver.player().current()));
  air_.write(kAir, kChannel14, {});
  EXPECT_TRUE(receiver.services().setFlags(kAir, 2, AISRV_FLAG_DELETED, 0));
  EXPECT_TRUE(receiver.player().playSource(kAir));
  EXPECT_EQ("9-1", number(receiver.player().current()));
}

TEST_F(ReceiverPlayTest, StandbyRefusesToPlayAndGoesOnAfterwards) {
  air_.write(kAir, kChannel14, {});
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14,
                              {service(9, 1, kChannel14), service(9, 2, kChannel14)});
  receiver.player().leaveStandby();
  EXPECT_FALSE(receiver.player().isPlaying());
  ASSERT_TRUE(receiver.player().changeChannel(change(AIFW_CHANGE_DIRECT, kAir, 9, 2)));
  for (const bool stoppedFirst : {false, true}) {
    if (stoppedFirst) receiver.player().stopTuning();
    EXPECT_TRUE(receiver.enterStandby());
    EXPECT_TRUE(fs::exists(state_ / "settings.json") && fs::exists(state_ / "services.json"));
    EXPECT_FALSE(receiver.player().isPlaying());
    EXPECT_FALSE(receiver.player().playFirst(kAir, 0) || receiver.player().playSource(kAir) ||
                 receiver.player().changeChannel(change(AIFW_CHANGE_UP)));
    receiver.player().leaveStandby();
    EXPECT_TRUE(receiver.player().isPlaying());
    EXPECT_EQ("9-2", number(receiver.player().current()));
  }
  receiver.player().setAudioLanguage(&AudioLanguages::first, kFre);  // to be stored
  fs::remove_all(state_);
  std::ofstream(state_) << "a file where the folder should be";
  EXPECT_FALSE(receiver.enterStandby());
  EXPECT_FALSE(receiver.player().playFirst(kAir, 0)) << "it is in standby all the same";
}

// Each function fails and changes nothing when the state cannot be stored, and succeeds afterwards.
TEST_F(ReceiverPlayTest, WhatCannotBeStoredIsRefusedAndNothingIsLost) {
  air_.write(kAir, kChannel14, {});
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  ASSERT_TRUE(receiver.player().playFirst(kAir, 0));
  EXPECT_EQ(1, receiver.player().audioTrack());
  Record changed(0, 0, 0);
  changed.service_id.service_rec = 1;
  changed.AISRV_flags_ = AISRV_FLAG_VISIBLE | AISRV_FLAG_SKIPPED;
  changed.AISRV_fav_group_ = 0x30;
  const std::function<bool()> kCalls[] = {
      [&] { return receiver.serviceEditor().add(Record(9, 5, kChannel15)); },
      [&] { return receiver.serviceEditor().modify(changed); },
      [&] { return receiver.player().chooseAudio(2); },
      [&] { return receiver.serviceEditor().reset(kAir); },
  };
  std::ofstream(state_) << "a file where the folder should be";
  for (const auto& call : kCalls) EXPECT_FALSE(call());
  EXPECT_FALSE(receiver.services().store());
  receiver.settings().store();
  EXPECT_FALSE(receiver.settings().sync());
  EXPECT_FALSE(receiver.player().setDualMode(AIAUD_DUAL_LEFT));
  EXPECT_EQ(Texts{"9-1"}, numbers(receiver));
  EXPECT_TRUE(receiver.player().isPlaying());
  EXPECT_EQ(1, receiver.player().audioTrack());
  EXPECT_EQ(uint32_t{AISRV_FLAG_VISIBLE}, receiver.player().current().value().flags);

  fs::remove(state_);
  EXPECT_TRUE(receiver.settings().sync());
  for (size_t i = 0; i < 3; ++i) EXPECT_TRUE(kCalls[i]() && kCalls[i]()) << "also when set twice";
  EXPECT_EQ(2, receiver.player().audioTrack());
  {
    TestReceiver restarted(state_);
    EXPECT_EQ((Texts{"9-1", "9-5"}), numbers(restarted));
    EXPECT_EQ(changed.AISRV_flags_, restarted.player().current().value().flags);
    EXPECT_EQ(0x30u, restarted.player().current().value().favourites);
  }
  EXPECT_TRUE(kCalls[3]());
  EXPECT_FALSE(receiver.player().isPlaying());
  EXPECT_EQ(Texts{}, numbers(TestReceiver(state_)));
  EXPECT_FALSE(receiver.serviceEditor().reset(1));
  EXPECT_FALSE(receiver.serviceEditor().modify(changed));
  EXPECT_FALSE(receiver.player().chooseAudio(1));
}

TEST_F(ReceiverPlayTest, OnlyWhatCanBeTunedIsAdded) {
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(14, 5000, kChannel14)});
  Record foreign(9, 1, kChannel14);
  foreign.modulation = AI_MODULATION_QAM;
  for (const Record& record :
       {foreign, Record(9, 1, 1000), Record(9, 1, kChannel14, "", 4), Record(0, 1, kChannel14),
        Record(1024, 1, kChannel14), Record(9, 1024, kChannel14), Record(9000, 0, kChannel14)})
    EXPECT_FALSE(receiver.serviceEditor().add(record)) << record.major << "-" << record.minor;
  EXPECT_TRUE(receiver.serviceEditor().add(Record(9000, 0, kChannel14, "", kCable)));
  EXPECT_TRUE(receiver.serviceEditor().add(Record(9, 1, kChannel14, "", 0)))
      << "0 is terrestrial, too";
  EXPECT_TRUE(receiver.serviceEditor().add(Record(14, 5000, kChannel14))) << "it is listed";
  EXPECT_EQ((Texts{"9-1", "14-5000"}), numbers(receiver));
}

TEST_F(ReceiverPlayTest, TheListIsReadAnewAsItIsStored) {
  const fs::path file = state_ / "services.json";
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  EXPECT_FALSE(receiver.serviceEditor().reload()) << "there is none";
  EXPECT_EQ(Texts{"9-1"}, numbers(receiver));
  {
    TestReceiver other(state_);
    other.services().replace(kAir, kChannel14, {service(9, 7, kChannel14)});
    ASSERT_TRUE(other.services().store());
  }
  EXPECT_TRUE(receiver.serviceEditor().reload());
  EXPECT_EQ(Texts{"9-7"}, numbers(receiver));
  const auto foreign = [](std::string text) {  // a language of no letters
    return text.replace(text.find("\"eng\"") + 1, 3, "1_2");
  };
  writeFile(file, foreign(readFile(file)));
  EXPECT_FALSE(receiver.serviceEditor().reload());
  std::ofstream(file) << "{";
  EXPECT_FALSE(receiver.serviceEditor().reload());
  EXPECT_EQ(Texts{"9-7"}, numbers(receiver));
  EXPECT_TRUE(receiver.services().store());
  EXPECT_EQ(Texts{"9-7"}, numbers(TestReceiver(state_)));
}

TEST_F(ReceiverPlayTest, TheTunedCarrierTellsItsServicesAgainAfterAReload) {
  air_.write(kAir, kChannel14, goodCarrier());
  TestReceiver receiver(state_);
  ASSERT_TRUE(receiver.serviceEditor().add(Record(7, 7, kChannel14, "MINE")));
  const auto hasBoth = [&] {
    return eventually([&] { return numbers(receiver) == Texts{"5-1", "7-7"}; });
  };
  EXPECT_TRUE(receiver.player().playSource(kAir));
  EXPECT_TRUE(hasBoth());
  EXPECT_TRUE(receiver.serviceEditor().reload());
  EXPECT_EQ(Texts{"7-7"}, numbers(receiver)) << "what is stored";
  EXPECT_TRUE(hasBoth());
}

TEST_F(ReceiverPlayTest, NothingPlaysOfAListThatWasReset) {
  air_.write(kAir, kChannel14, {});
  TestReceiver receiver(state_);
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(receiver.serviceEditor().add(Record(7, 7, kChannel14)));
    std::thread player([&] {
      for (int n = 0; n < 20; ++n) receiver.player().playSource(kAir);
    });
    EXPECT_TRUE(receiver.serviceEditor().reset(kAir));
    player.join();
    EXPECT_FALSE(receiver.player().isPlaying());
  }
}

TEST_F(ReceiverPlayTest, SettingsOfOlderFilesAreTakenAndFaultyOnesSetAside) {
  const fs::path file = state_ / "settings.json";
  fs::create_directories(state_);
  const std::string current = R"("current": {"major": 9, "minor": 1, "frequency": 473000000})";
  const auto write = [&](const std::string& member) {
    std::ofstream(file) << R"({"format": "atsc-host-settings-1", "source": 2, )" << member << "}";
  };
  write(current);
  TestReceiver old(state_);
  old.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  EXPECT_EQ("9-1", number(old.player().current()));
  EXPECT_EQ(kEng, old.settings().languages().first);

  old.player().setAudioLanguage(&AudioLanguages::second, kSpa);
  EXPECT_FALSE(old.player().setAudioLanguage(&AudioLanguages::first, 3));
  EXPECT_TRUE(old.player().setDualMode(AIAUD_DUAL_MIXED));
  EXPECT_FALSE(old.player().setDualMode(4));
  EXPECT_EQ(kSpa, TestReceiver(state_).settings().languages().second);

  for (const char* member :
       {R"("language": 3)", R"("second_language": "eng")", R"("dual_mode": 4)", R"("zone": -1)",
        R"("automatic_clock": 1)", R"("last": {"source": 2})", R"("last": [{"source": 1}])"}) {
    write(member);
    EXPECT_EQ(kEng, TestReceiver(state_).settings().languages().second) << member;
    EXPECT_FALSE(fs::exists(file)) << member;
  }
}

// Events of the receiver of this process.
Arrivals<AFW_event_t> raised;
void note(AFW_event_t event, void*) { raised.add(event); }
// Runs `action` and waits for a later event.
void await(AFW_event_t event, const std::function<void()>& action) {
  raised.clear();
  action();
  EXPECT_FALSE(raised.takeUntil([&](AFW_event_t other) { return other == event; }).empty());
}

// Channels 5-minor of the given names, each with the same streams.
Bytes carrier(const std::vector<std::pair<unsigned, std::string>>& names, unsigned version = 1,
              const std::vector<Element>& elements = {{2, 49, ""}, {129, 52, "eng"}}) {
  std::vector<Channel> channels;
  for (const auto& [minor, name] : names)
    channels.push_back({name, 5, minor, minor, 2, false, serviceLocation(elements)});
  return packets(0x1FFB, {vct(0xC8, channels, version)});
}

TEST_F(ReceiverPlayTest, WhatTheViewerSetSurvivesScansLiveTablesAndRestarts) {
  ATSC_host_set_fast(1);
  scan(kAir);  // nothing is on the air
  const std::vector<Element> two{{2, 49, ""}, {129, 52, "eng"}, {129, 53, "spa"}};
  air_.write(kAir, kChannel14, carrier({{1, "GOOD"}}, 1, two));
  scan(kAir, kChannel14);
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  Receiver& receiver = atschost::hostReceiver();
  EXPECT_EQ(1, receiver.player().audioTrack());
  EXPECT_EQ(0, AICN_set_pref_aud_lang(kSpa));
  EXPECT_EQ(2, receiver.player().audioTrack()) << "at once";
  EXPECT_EQ(0, AICN_set_pref_aud_lang(kEng));
  EXPECT_EQ(0, AIFW_change_audio(2));
  EXPECT_NE(0, AIFW_change_audio(3));
  AISRV_service_info listed = rows(kAir)[0].info;
  listed.AISRV_flags_ |= AISRV_FLAG_SKIPPED;
  listed.AISRV_fav_group_ = 0x10;
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &listed));
  const Record mine(5, 9, kChannel14, "MINE"), renamed(5, 1, kChannel14, "RENAMED");
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_ADD, &mine));
  EXPECT_NE(0, AIFW_modify_service(7, &mine));

  scan(kAir, kChannel14);
  EXPECT_EQ((Texts{"5-1 GOOD", "5-9 MINE"}), labels(kAir));
  EXPECT_EQ(listed.AISRV_flags_, rows(kAir)[0].info.AISRV_flags_);
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_ADD, &renamed));
  EXPECT_EQ(uint32_t{AISRV_FLAG_VISIBLE}, rows(kAir)[0].info.AISRV_flags_);

  // The carrier has the service and later drops it: in a scan and while it plays.
  air_.write(kAir, kChannel14, carrier({{1, "GOOD"}, {9, "THEIRS"}}, 2, two));
  scan(kAir, kChannel14);
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-9 MINE"}), labels(kAir));
  EXPECT_EQ((Texts{"49  2", "52 eng 129", "53 spa 129"}), streams(rows(kAir)[1]));
  EXPECT_EQ(9, rows(kAir)[1].info.program_number);
  AIFW_register_frmwrk_app_cb(note);
  await(AFW_CHANNEL_PLAY_SUCCESS, [] { EXPECT_EQ(0, AIFW_play_first_service(kAir, 0)); });
  EXPECT_EQ(2, receiver.player().audioTrack()) << "chosen before the scans";
  await(AFW_SERVICE_ADDED, [&] {
    air_.write(kAir, kChannel14, carrier({{1, "OTHER"}, {2, "NEW"}}, 3));
  });
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-2 NEW", "5-9 MINE"}), labels(kAir));
  EXPECT_EQ(Texts{}, streams(rows(kAir)[2]));
  EXPECT_EQ(1, receiver.player().audioTrack()) << "there is one only";
  await(AFW_SERVICE_ADDED, [&] {
    air_.write(kAir, kChannel14, carrier({{1, "OTHER"}, {2, "NEW"}, {3, "MORE"}}, 4, two));
  });
  EXPECT_EQ(2, receiver.player().audioTrack()) << "there again";
  AIFW_register_frmwrk_app_cb(nullptr);

  fs::remove(air_.path(kAir, kChannel14));
  scan(kAir);
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-9 MINE"}), labels(kAir));
  EXPECT_EQ(0x10u, rows(kAir)[0].info.AISRV_fav_group_);
  EXPECT_EQ(0, AISRV_sync_to_database());
  TestReceiver restarted(getenv("ATSC_HOST_STATE"));
  EXPECT_EQ((Texts{"5-1", "5-9"}), numbers(restarted));
  EXPECT_EQ(0, RMGRReload());
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-9 MINE"}), labels(kAir));
  EXPECT_EQ(0, AISRV_reset_db(kAir));
  EXPECT_EQ(Texts{}, labels(kAir));
}

TEST_F(ReceiverPlayTest, ModulesRefuseWhatTheyDoNotKnow) {
  AIIN_input_t input{};
  for (const uint32_t source : {0u, 1u, 2u, 3u}) {
    EXPECT_EQ(0, AIIN_get_db_no_input_details(source, &input));
    EXPECT_EQ(source % 2 == 0 ? kAir : kCable, input.type);
    EXPECT_EQ(uint32_t{AIFE_MAIN_TUNER}, input.tuner);
  }
  EXPECT_NE(0, AIIN_get_db_no_input_details(4, &input));
  EXPECT_NE(0, AIFE_tune_stop_request(2, AIFE_MAIN_PATH));
  EXPECT_EQ(0, AIFE_tune_stop_request(AIFE_MAIN_TUNER, AIFE_MAIN_PATH));
  EXPECT_NE(0, AIVC_close_video(1));
  EXPECT_EQ(0, AIVC_close_video(0));
  EXPECT_NE(0, AIFW_play_src(1, kAir));
  EXPECT_NE(0, AIFW_handle_tuner_mode_change(0));
  EXPECT_NE(0, AIFW_modify_service(AIFW_SERVICE_ADD, nullptr));
  int32_t language = kSpa;
  EXPECT_NE(0, AICN_set_sec_pref_aud_lang(-1));
  EXPECT_EQ(0, AICN_get_sec_pref_aud_lang(&language));
  EXPECT_EQ(kEng, language);
  OSAL_display_sem_details_();
}

}  // namespace
}  // namespace receiver_test
