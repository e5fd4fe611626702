// Actions of a viewer with the remote control: sources, channels, audio, standby, changes of the
// list.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <thread>

#include "aiaud.h"
#include "aicn.h"
#include "aife.h"
#include "aiin.h"
#include "aivc.h"
#include "arrivals.h"
#include "atsc_host.h"
#include "files.h"
#include "modules/host.h"
#include "osal.h"
#include "receiver/station/audio.h"
#include "receiver/tables/service_name.h"
#include "receiver_test_air.h"
#include "receiver_test_service.h"
#include "wait.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::AudioLanguages;
using atschost::Receiver;

constexpr int32_t kEng = AICN_LANGUAGE_ENGLISH;
constexpr int32_t kFre = AICN_LANGUAGE_FRENCH;
constexpr int32_t kSpa = AICN_LANGUAGE_SPANISH;

AISRV_service_info record(uint16_t major, uint16_t minor, uint32_t frequency, const char* name = "",
                          uint32_t source = kAir) {
  AISRV_service_info made{};
  made.service_id.input_source = source;
  made.major = major;
  made.minor = minor;
  made.frequency = frequency;
  made.modulation = source == kCable ? AI_MODULATION_QAM : AI_MODULATION_8VSB;
  made.AISRV_flags_ = AISRV_FLAG_VISIBLE;
  made.name.text = reinterpret_cast<uint8_t*>(const_cast<char*>(name));
  made.name.length = static_cast<uint16_t>(std::strlen(name));
  return made;
}

// The numbers of the listed services, with flags and favourites that the viewer set.
Texts numbers(const Receiver& receiver) {
  Texts list;
  for (const Service& s : listed(receiver)) {
    list.push_back(number(s));
    if (s.flags != AISRV_FLAG_VISIBLE || s.favourites != 0)
      list.back() += ' ' + std::to_string(s.flags) + ' ' + std::to_string(s.favourites);
  }
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
      {{"eng", "FRE"}, 0, kFre, kSpa, 2},
      {{"engd", "engh", "spam"}, 0, kEng, kSpa, 3},
      {{"engc", "spam"}, 0, kEng, kEng, 2},
      {{"engd", "ger", "spad"}, 0, kEng, kSpa, 2},
      {{"gerd", "engh"}, 0, kEng, kSpa, 1},
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
  constexpr int32_t kBytes = 0, kUtf16 = AI_TEXT_UTF16BE;
  const struct {
    std::string text;
    int32_t encoding;
    std::u16string name;
  } cases[] = {
      {"K\xC3\xA4se \xF0\x9F\x93\xBA", kBytes, u"K\u00E4se \U0001F4FA"},
      // Not UTF-8: Latin-1.
      {"K\xE4se", kBytes, u"K\u00E4se"},
      {"\xC0\x80", kBytes, u"\u00C0\u0080"},
      {"\xED\xA0\x80", kBytes, u"\u00ED\u00A0\u0080"},
      {"\xED\xBF\xBF", kBytes, u"\u00ED\u00BF\u00BF"},
      {"\xF4\x90\x80\x80", kBytes, u"\u00F4\u0090\u0080\u0080"},
      {"\xC3", kBytes, u"\u00C3"},
      {std::string("AB\0CD", 5), kBytes, u"AB"},
      {std::string("\0A\xDC\1\xD8\x3D\xDC\xFA\xD8\1", 10), kUtf16, u"A\uFFFD\U0001F4FA\uFFFD"},
      {std::string(5000, 'x'), kBytes, std::u16string(64, u'x')},
      {std::string(63, 'x') + "\xF0\x9F\x93\xBA", kBytes, std::u16string(63, u'x')},
  };
  for (auto [text, encoding, name] : cases)
    EXPECT_EQ(name, utf16(atschost::serviceName({reinterpret_cast<uint8_t*>(text.data()),
                                                 static_cast<uint16_t>(text.size()), encoding})));
  EXPECT_EQ("", atschost::serviceName({nullptr, 5, 0}));
}

class ReceiverPlayTest : public testing::Test {
 protected:
  ReceiverPlayTest() { air_.write(kAir, kChannel14, {}); }

  void list(std::vector<Service> services) {
    receiver_.services().replace(kAir, kChannel14, std::move(services));
  }
  // Runs an action. Returns the current service when it was done.
  std::string after(bool done) const { return done ? number(player_.current()) : "refused"; }
  std::string change(uint32_t mode, uint16_t major = 0, uint16_t minor = 0) {
    return after(
        player_.changeChannel({mode, kAir, AISRV_SERVICE_MASK, major, minor, 0, 0xFFFF, kAir}));
  }
  // Puts a file where the state folder should be.
  void blockState() {
    fs::remove_all(state_);
    writeFile(state_, "a file");
  }

  Air air_;
  TemporaryFolder folder_;
  const fs::path state_ = folder_.path() / "state";
  TestReceiver receiver_{state_, air_.antenna()};
  atschost::Player& player_ = receiver_.player();
  atschost::ServiceEditor& editor_ = receiver_.serviceEditor();
  const Service one_ = service(9, 1, kChannel14), two_ = service(9, 2, kChannel14);
};

TEST_F(ReceiverPlayTest, EachSourceRemembersWhatPlayedLast) {
  air_.write(kCable, kChannel15, {});
  EXPECT_EQ("refused", after(player_.playSource(kAir))) << "nothing is listed";
  list({one_, two_});
  receiver_.services().replace(kCable, kChannel15, {service(300, 0, kChannel15, kCable)});
  EXPECT_EQ("9-1", after(player_.playSource(kAir)));
  EXPECT_EQ("9-2", change(AIFW_CHANGE_UP));
  EXPECT_EQ("300-0", after(player_.playSource(kCable)));
  EXPECT_EQ(kCable, player_.tunerSource());
  EXPECT_TRUE(receiver_.settings().keep() && receiver_.services().store());
  {
    const Air elsewhere;
    TestReceiver lost(state_), restarted(state_, air_.antenna());
    EXPECT_FALSE(lost.player().playSource(kAir)) << "each receiver has its own antenna";
    EXPECT_EQ(kCable, restarted.player().tunerSource());
    EXPECT_TRUE(restarted.player().playSource(kAir));
    EXPECT_EQ("9-2", number(restarted.player().current()));
  }
  // Another source becomes the current source, without playing.
  EXPECT_EQ("9-2", after(player_.playSource(kAir)));
  player_.stopTuning();
  EXPECT_EQ(0u, player_.tuning().frequency);
  EXPECT_EQ("9-2", after(player_.followTuner(kAir)));
  EXPECT_EQ("refused", after(player_.followTuner(4)));
  EXPECT_EQ("300-0", after(player_.followTuner(kCable)));
  EXPECT_FALSE(player_.isPlaying());

  // A failure changes nothing. Deleted services do not play on their own.
  fs::remove(air_.path(kAir, kChannel14));
  EXPECT_EQ("refused", after(player_.playSource(kAir)));
  EXPECT_EQ("refused", change(AIFW_CHANGE_DIRECT, 9, 1));
  EXPECT_EQ("300-0", after(true));
  air_.write(kAir, kChannel14, {});
  EXPECT_TRUE(receiver_.services().setFlags(kAir, 2, AISRV_FLAG_DELETED, 0));
  EXPECT_EQ("9-1", after(player_.playSource(kAir)));
}

TEST_F(ReceiverPlayTest, StandbyRefusesToPlayAndGoesOnAfterwards) {
  list({one_, two_});
  player_.leaveStandby();
  EXPECT_FALSE(player_.isPlaying());
  EXPECT_EQ("9-2", change(AIFW_CHANGE_DIRECT, 9, 2));
  for (const bool stoppedFirst : {false, true}) {
    if (stoppedFirst) player_.stopTuning();
    EXPECT_TRUE(receiver_.enterStandby());
    EXPECT_TRUE(fs::exists(state_ / "settings.json") && fs::exists(state_ / "services.json"));
    EXPECT_FALSE(player_.isPlaying());
    EXPECT_EQ("refused", after(player_.playFirst(kAir, 0)));
    EXPECT_EQ("refused", after(player_.playSource(kAir)));
    EXPECT_EQ("refused", change(AIFW_CHANGE_UP));
    player_.leaveStandby();
    EXPECT_EQ("9-2", after(player_.isPlaying()));
  }
  player_.setAudioLanguage(&AudioLanguages::first, kFre);  // to be stored
  blockState();
  EXPECT_FALSE(receiver_.enterStandby());
  EXPECT_EQ("refused", after(player_.playFirst(kAir, 0))) << "it is in standby all the same";
}

// Each function fails and changes nothing when the state cannot be stored, and succeeds afterwards.
TEST_F(ReceiverPlayTest, WhatCannotBeStoredIsRefusedAndNothingIsLost) {
  list({one_});
  EXPECT_EQ("9-1", after(player_.playFirst(kAir, 0)));
  AISRV_service_info changed = record(0, 0, 0);
  changed.service_id.service_rec = 1;
  changed.AISRV_flags_ = kSkipped;
  changed.AISRV_fav_group_ = 0x30;
  const std::function<bool()> kCalls[] = {
      [&] { return editor_.add(record(9, 5, kChannel15)); },
      [&] { return editor_.modify(changed); },
      [&] { return player_.chooseAudio(2); },
      [&] { return editor_.reset(kAir); },
  };
  blockState();
  for (const auto& call : kCalls) EXPECT_FALSE(call());
  EXPECT_FALSE(receiver_.services().store());
  receiver_.settings().store();
  EXPECT_FALSE(receiver_.settings().sync());
  EXPECT_FALSE(player_.setDualMode(AIAUD_DUAL_LEFT));
  EXPECT_EQ(Texts{"9-1"}, numbers(receiver_));
  EXPECT_TRUE(player_.isPlaying());
  EXPECT_EQ(1, player_.audioTrack());

  fs::remove(state_);
  EXPECT_TRUE(receiver_.settings().sync());
  for (size_t i = 0; i < 3; ++i) EXPECT_TRUE(kCalls[i]() && kCalls[i]()) << "also when set twice";
  EXPECT_EQ(2, player_.audioTrack());
  EXPECT_EQ((Texts{"9-1 " + std::to_string(kSkipped) + " 48", "9-5"}),
            numbers(TestReceiver(state_)));
  EXPECT_TRUE(kCalls[3]());
  EXPECT_FALSE(player_.isPlaying());
  EXPECT_EQ(Texts{}, numbers(TestReceiver(state_)));
  EXPECT_FALSE(editor_.reset(1) || editor_.modify(changed) || player_.chooseAudio(1));
}

TEST_F(ReceiverPlayTest, OnlyWhatCanBeTunedIsAdded) {
  list({service(14, 5000, kChannel14)});
  AISRV_service_info foreign = record(9, 1, kChannel14);
  foreign.modulation = AI_MODULATION_QAM;
  for (const AISRV_service_info& each :
       {foreign, record(9, 1, 1000), record(9, 1, kChannel14, "", 4), record(0, 1, kChannel14),
        record(1024, 1, kChannel14), record(9, 1024, kChannel14), record(9000, 0, kChannel14)})
    EXPECT_FALSE(editor_.add(each)) << each.major << "-" << each.minor;
  EXPECT_TRUE(editor_.add(record(9000, 0, kChannel14, "", kCable)));
  EXPECT_TRUE(editor_.add(record(1023, 1023, kChannel14, "", 0))) << "0 is terrestrial, too";
  EXPECT_TRUE(editor_.add(record(14, 5000, kChannel14))) << "it is listed";
  EXPECT_EQ((Texts{"14-5000", "1023-1023"}), numbers(receiver_));
}

TEST_F(ReceiverPlayTest, TheListIsReadAnewAsItIsStored) {
  list({one_});
  EXPECT_FALSE(editor_.reload()) << "there is none";
  EXPECT_EQ(Texts{"9-1"}, numbers(receiver_));
  {
    TestReceiver other(state_);
    other.services().replace(kAir, kChannel14, {service(9, 7, kChannel14)});
    ASSERT_TRUE(other.services().store());
  }
  EXPECT_TRUE(editor_.reload());
  writeFile(state_ / "services.json", "{");
  EXPECT_FALSE(editor_.reload());
  EXPECT_EQ(Texts{"9-7"}, numbers(receiver_));
  EXPECT_TRUE(receiver_.services().store());
  EXPECT_EQ(Texts{"9-7"}, numbers(TestReceiver(state_)));

  // The tuned carrier tells its services again.
  air_.write(kAir, kChannel14, goodCarrier());
  const auto hasBoth = [&] {
    return eventually([&] { return numbers(receiver_) == Texts{"5-1", "9-8"}; });
  };
  EXPECT_TRUE(editor_.reset(kAir) && editor_.add(record(9, 8, kChannel14)));
  EXPECT_TRUE(player_.playSource(kAir));
  EXPECT_TRUE(hasBoth());
  EXPECT_TRUE(editor_.reload());
  EXPECT_EQ(Texts{"9-8"}, numbers(receiver_)) << "what is stored";
  EXPECT_TRUE(hasBoth());
}

TEST_F(ReceiverPlayTest, NothingPlaysOfAListThatWasReset) {
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(editor_.add(record(7, 7, kChannel14)));
    std::thread player([&] {
      for (int n = 0; n < 20; ++n) player_.playSource(kAir);
    });
    EXPECT_TRUE(editor_.reset(kAir));
    player.join();
    EXPECT_FALSE(player_.isPlaying());
  }
}

TEST_F(ReceiverPlayTest, SettingsOfOlderFilesAreTakenAndUnknownOnesRefused) {
  fs::create_directories(state_);
  writeFile(state_ / "settings.json",
            R"({"format": "atsc-host-settings-1", "source": 2,
                "current": {"major": 9, "minor": 1, "frequency": 473000000}})");
  TestReceiver old(state_);
  old.services().replace(kAir, kChannel14, {one_});
  EXPECT_EQ("9-1", number(old.player().current()));
  EXPECT_EQ(kEng, old.settings().languages().first);
  EXPECT_FALSE(old.player().setAudioLanguage(&AudioLanguages::first, 3));
  EXPECT_FALSE(old.player().setDualMode(4));
}

// Events of the receiver of this process.
Arrivals<AFW_event_t> raised;
void note(AFW_event_t event, void*) { raised.add(event); }

TEST_F(ReceiverPlayTest, WhatTheViewerSetSurvivesScansLiveTablesAndRestarts) {
  const std::vector<Element> one{{2, 49, ""}, {129, 52, "eng"}};
  const std::vector<Element> two{{2, 49, ""}, {129, 52, "eng"}, {129, 53, "spa"}};
  // Channels 5-1, 5-2 and so on, unless their name is empty.
  const auto send = [&](const Texts& names, unsigned version,
                        const std::vector<Element>& elements) {
    std::vector<Channel> channels;
    for (unsigned i = 1; i <= names.size(); ++i)
      if (!names[i - 1].empty())
        channels.push_back({names[i - 1], 5, i, i, 2, false, serviceLocation(elements)});
    air_.write(kAir, kChannel14, packets(0x1FFB, {vct(0xC8, channels, version)}));
  };
  ATSC_host_set_fast(1);
  send({"GOOD"}, 1, two);
  scan(kAir);
  ASSERT_EQ(0, AIFW_play_first_service(kAir, 0));
  Receiver& receiver = atschost::hostReceiver();
  const auto track = [&] { return receiver.player().audioTrack(); };
  EXPECT_EQ(0, AIFW_change_audio(2));
  EXPECT_NE(0, AIFW_change_audio(3));
  AISRV_service_info listed = rows(kAir)[0].info;
  listed.AISRV_flags_ = kSkipped;
  listed.AISRV_fav_group_ = 0x10;
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_MODIFY, &listed));
  const AISRV_service_info mine = record(5, 4, kChannel14, "MINE");
  const AISRV_service_info renamed = record(5, 1, kChannel14, "RENAMED");
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_ADD, &mine));
  EXPECT_NE(0, AIFW_modify_service(7, &mine));
  EXPECT_EQ(0, AIFW_modify_service(AIFW_SERVICE_ADD, &renamed));
  EXPECT_EQ((Texts{"5-1 1 16", "5-4"}), numbers(receiver));

  // The carrier has the service and later drops it: in a scan and while it plays.
  send({"GOOD", "", "", "THEIRS"}, 2, two);
  scan(kAir, kChannel14);
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-4 MINE"}), labels(kAir));
  EXPECT_EQ((Texts{"49  2", "52 eng 129", "53 spa 129"}), streams(rows(kAir)[1]));
  EXPECT_EQ(4, rows(kAir)[1].info.program_number);
  AIFW_register_frmwrk_app_cb(note);
  const auto await = [](AFW_event_t event) {
    EXPECT_FALSE(raised.takeUntil([&](AFW_event_t other) { return other == event; }).empty());
  };
  EXPECT_EQ(0, AIFW_play_first_service(kAir, 0));
  await(AFW_CHANNEL_PLAY_SUCCESS);
  EXPECT_EQ(2, track()) << "chosen before the scans";
  send({"OTHER", "NEW"}, 3, one);
  await(AFW_SERVICE_ADDED);
  EXPECT_EQ((Texts{"5-1 RENAMED", "5-2 NEW", "5-4 MINE"}), labels(kAir));
  EXPECT_EQ(Texts{}, streams(rows(kAir)[2]));
  EXPECT_EQ(1, track()) << "there is one only";
  send({"OTHER", "NEW", "MORE"}, 4, two);
  await(AFW_SERVICE_ADDED);
  EXPECT_EQ(2, track()) << "there again";
  AIFW_register_frmwrk_app_cb(nullptr);

  fs::remove(air_.path(kAir, kChannel14));
  scan(kAir);
  EXPECT_EQ(0, AISRV_sync_to_database());
  EXPECT_EQ((Texts{"5-1 1 16", "5-4"}), numbers(TestReceiver(getenv("ATSC_HOST_STATE"))));
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
  EXPECT_NE(0, AIVC_close_video(1));
  EXPECT_EQ(0, AIVC_close_video(0));
  EXPECT_NE(0, AIFW_play_src(1, kAir));
  EXPECT_NE(0, AIFW_handle_tuner_mode_change(0));
  EXPECT_NE(0, AIFW_modify_service(AIFW_SERVICE_ADD, nullptr));
  uint32_t count = 0;
  for (const AISRV_query_filter& filter : {AISRV_query_filter{{0, 1}}, {{1, 0}}})
    EXPECT_NE(0, AISRV_get_total_services(kAir, AISRV_SERVICE_MASK, &filter, 0, &count));
  int32_t language = kSpa;
  EXPECT_NE(0, AICN_set_sec_pref_aud_lang(-1));
  EXPECT_EQ(0, AICN_get_sec_pref_aud_lang(&language));
  EXPECT_EQ(kEng, language);
}

}  // namespace
}  // namespace receiver_test
