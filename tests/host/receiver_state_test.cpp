// Stored state of a receiver, and playing.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "command_text.h"
#include "files.h"
#include "middleware_types.h"
#include "modules/host.h"
#include "receiver_test_service.h"
#include "replaced.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;

class ReceiverStateTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  const fs::path state_ = folder_.path() / "a" / "b";
  const fs::path services_ = state_ / "services.json";
};

// Stored files, in which nothing has its default value.
const std::map<std::string, std::string> kFiles = {
    {"services.json", R"({"format": "atsc-host-services-1", "services": [
      {"source": 2, "frequency": 473000000, "major": 9, "minor": 1, "record": 4, "type": 3,
       "source_id": 5, "tsid": 6, "program": 7, "flags": 12, "favourites": 48, "from_pmt": true,
       "added": true, "audio": 2, "name_utf16be": "0027d8009afe", "streams": [
         {"type": 129, "pid": 52, "language": "eng", "second_language": "spa", "audio_kind": 2,
          "main_audio": 3, "description_mask": 4, "full_mix": 1}], "captions": [
         {"number": 63, "digital": true, "easy_reader": true, "wide": true, "language": "fra"},
         {"number": 2, "digital": false, "easy_reader": false, "wide": false, "language": ""}]},
      {"source": 3, "frequency": 57000000, "major": 300, "minor": 0, "record": 65534, "type": 2,
       "source_id": 0, "tsid": 65535, "program": 0, "flags": 1, "favourites": 0,
       "from_pmt": false, "added": false, "audio": 0, "name_utf16be": "", "streams": [],
       "captions": []}]})"},
    {"settings.json", R"({"format": "atsc-host-settings-1", "source": 3, "last": [
       {"source": 2, "major": 9, "minor": 1, "frequency": 473000000},
       {"source": 3, "major": 300, "minor": 0, "frequency": 57000000}], "language": 2,
      "second_language": 1, "dual_mode": 3, "zone": 5, "automatic_clock": false,
      "alert_level": 2, "repeated_alerts": true, "cable_alerts_only": true})"},
    {"parental.json", R"({"format": "atsc-host-parental-1", "preset_mode": -7, "region": 2,
      "region_value": 3, "rated": 4, "enabled": 1, "unrated_groups": [5, 6, 7], "limits": [
       {"region": 1, "us_tv": -1, "us_dialogue": 2, "us_language": 3, "us_sex": 4,
        "us_violence": 5, "us_children": 6, "us_mpaa": 7, "canada_english": 8,
        "canada_french": 9},
       {"region": 255, "us_tv": 0, "us_dialogue": 0, "us_language": 0, "us_sex": 0,
        "us_violence": 0, "us_children": 0, "us_mpaa": 0, "canada_english": 0,
        "canada_french": 0, "downloadable": [
          {"dimension": 63, "values": [0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9]}]}]})"},
};

TEST_F(ReceiverStateTest, SurvivesARestart) {
  fs::create_directories(state_);
  for (const auto& [name, text] : kFiles) writeFile(state_ / name, text);
  TestReceiver receiver(state_);
  fs::remove_all(state_);
  receiver.settings().store();
  receiver.parental().store();
  EXPECT_FALSE(fs::exists(state_)) << "the disk is not waited for";
  EXPECT_TRUE(receiver.services().store());
  EXPECT_TRUE(receiver.settings().sync());
  EXPECT_TRUE(receiver.parental().sync());
  for (const auto& [name, text] : kFiles) EXPECT_EQ(parsed(text), parsed(readFile(state_ / name)));
  const auto past = fs::last_write_time(state_ / "services.json") - std::chrono::hours(1);
  fs::last_write_time(state_ / "services.json", past);
  EXPECT_TRUE(TestReceiver(state_).services().store());
  EXPECT_EQ(past, fs::last_write_time(state_ / "services.json")) << "nothing has changed";
}

TEST_F(ReceiverStateTest, ServiceFoundAgainKeepsWhatTheViewerSet) {
  {
    TestReceiver before(state_);
    before.services().replace(kAir, kChannel14,
                              {service(9, 1, kChannel14), service(9, 2, kChannel14)});
    EXPECT_TRUE(before.services().setFlags(kAir, 1, 13, 48));
  }
  // The format of older versions.
  writeFile(services_, replaced(replaced(readFile(services_), "\"added\" : false,", ""),
                                "\"audio\" : 0,", ""));
  TestReceiver receiver(state_);
  Service again = service(9, 1, kChannel14);
  again.programNumber = 7;
  receiver.services().replace(kAir, kChannel14, {service(9, 0, kChannel14), again});
  receiver.services().replace(kAir, kChannel15, {service(9, 1, kChannel15)});
  std::vector<std::vector<uint32_t>> list;
  for (const Service& s : listed(receiver))
    list.push_back({s.key.minor, s.record, s.flags, s.favourites, s.programNumber, s.audio});
  // The number of the service just lost is not reused at once.
  EXPECT_EQ((decltype(list){{0, 3, 1, 0, 1, 0}, {1, 1, 13, 48, 7, 0}, {1, 2, 1, 0, 1, 0}}), list);
}

// Calls `visit` with each value in `all` and its name.
void forEachValue(Json::Value& all, const std::string& name,
                  const std::function<void(const std::string& name, Json::Value& value)>& visit) {
  visit(name, all);
  if (all.isArray())
    for (Json::Value& each : all) forEachValue(each, "", visit);
  if (all.isObject())
    for (const std::string& key : all.getMemberNames()) forEachValue(all[key], key, visit);
}

TEST_F(ReceiverStateTest, DamagedFilesAreSetAside) {
  fs::create_directories(state_);
  const auto isSetAside = [&](const std::string& file, const std::string& text) {
    SCOPED_TRACE(text.substr(0, 2000));
    const fs::path path = state_ / file;
    writeFile(path, text);
    TestReceiver receiver(state_);
    EXPECT_TRUE(listed(receiver).empty());
    EXPECT_EQ(kAir, receiver.settings().source());
    EXPECT_EQ(atschost::ParentalSettings(), *receiver.parental().settings());
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(text, readFile(path.string() + ".bad"));
    fs::remove(path.string() + ".bad");
  };
  const std::map<std::string, int> kTooMuch = {
      {"alert_level", 4}, {"audio", 31},         {"audio_kind", AISRV_AUDIO_OTHER + 1},
      {"dimension", 64},  {"dual_mode", 4},      {"description_mask", 256},
      {"enabled", 256},   {"full_mix", 2},       {"language", 3},
      {"main_audio", 8},  {"major", 65536},      {"minor", 65536},
      {"number", 64},     {"pid", 8192},         {"program", 65536},
      {"rated", 256},     {"record", 65535},     {"region", 256},
      {"source", 4},      {"region_value", 256}, {"second_language", 3},
      {"tsid", 65536},    {"source_id", 65536},  {"zone", 12}};
  for (const auto& [file, text] : kFiles) {
    for (const std::string& damaged : {std::string(), text.substr(0, text.size() / 2), text + "x"})
      isSetAside(file, damaged);
    Json::Value content = parsed(text);
    forEachValue(content, "", [&, file = file](const std::string& name, Json::Value& value) {
      Json::Value before = value;
      value = Json::Value();
      value["another"] = "type";
      isSetAside(file, content.toStyledString());
      if (const auto tooMuch = kTooMuch.find(name); tooMuch != kTooMuch.end()) {
        value = tooMuch->second;
        isSetAside(file, content.toStyledString());
      }
      value = std::move(before);
    });
  }
  const struct {
    const char *file, *from, *to;
  } kDamages[] = {
      {"services.json", "services-1", "services-9"},
      {"services.json", "\"source\": 2", "\"source\": 1"},
      {"services.json", "\"record\": 4", "\"record\": 0"},
      {"services.json", "\"record\": 4", "\"record\": 65534"},
      {"services.json", "0027d8009afe", "00270"},
      {"services.json", "0027d8009afe", "002g"},
      {"services.json", "\"eng\"", "\"english\""},
      {"services.json", "\"eng\"", "\"1_2\""},
      {"services.json", "3, \"frequency\": 57000000, \"major\": 300, \"minor\": 0",
       "2, \"frequency\": 473000000, \"major\": 9, \"minor\": 1"},
      {"settings.json", "\"source\": 3", "\"source\": 1"},
      {"parental.json", "\"region\": 1,", "\"region\": 0,"},
      {"parental.json", "\"region\": 255", "\"region\": 1"},
      {"parental.json", "[0, 1, 0", "[0, 256, 0"},
      {"parental.json", "[0, 1, 0", "[0, 1, 0, 0"},
      {"parental.json", "[5, 6, 7]", "[5, 6, 7, 8]"},
  };
  for (const auto& each : kDamages)
    isSetAside(each.file, replaced(kFiles.at(each.file), each.from, each.to));
  isSetAside("services.json", std::string(100000, '['));
  fs::create_directory(state_ / "settings.json");
  EXPECT_EQ(kAir, TestReceiver(state_).settings().source());
  EXPECT_TRUE(fs::is_directory(state_ / "settings.json.bad"));
}

// Runs `use` while few more files can be opened.
void withFewFiles(rlim_t count, const std::function<void()>& use) {
  rlimit before;
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
  const int next = dup(STDERR_FILENO);
  close(next);
  const rlimit few{static_cast<rlim_t>(next) + count, before.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
  use();
  setrlimit(RLIMIT_NOFILE, &before);
}

TEST_F(ReceiverStateTest, AStoreThatFailsLateIsMadeGood) {
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  ASSERT_TRUE(receiver.services().store());
  const std::string before = readFile(services_);
  // The file can be opened, but not its folder.
  withFewFiles(1,
               [&] { EXPECT_FALSE(receiver.services().setFlags(kAir, 1, AISRV_FLAG_SKIPPED, 0)); });
  EXPECT_NE(before, readFile(services_)) << "too late to take it back";
  EXPECT_TRUE(receiver.services().store());
  EXPECT_EQ(before, readFile(services_));
#ifndef __SANITIZE_ADDRESS__  // The sanitizers' checks need descriptors themselves.
  std::optional<TestReceiver> unlucky;
  withFewFiles(0, [&] { unlucky.emplace(state_); });
  EXPECT_TRUE(listed(*unlucky).empty());
  EXPECT_FALSE(unlucky->services().store()) << "the file may be intact";
  EXPECT_EQ(before, readFile(services_));
#endif
}

TEST_F(ReceiverStateTest, ChannelsChangeInOrder) {
  Air air;
  TestReceiver receiver(state_);
  atschost::Player& player = receiver.player();
  const auto change = [&](uint32_t mode, uint16_t major, uint16_t minor, uint32_t record) {
    return player.changeChannel({mode, kAir, AISRV_SERVICE_MASK, major, minor, 0, record, kAir});
  };
  EXPECT_FALSE(change(AIFW_CHANGE_UP, 0, 0, 0xFFFF));
  for (const uint32_t frequency : {kChannel14, kChannel15}) air.write(kAir, frequency, {});
  const auto flagged = [](uint16_t minor, uint32_t flags) {
    return service(9, minor, kChannel14, kAir, flags);
  };
  constexpr uint32_t kVisible = AISRV_FLAG_VISIBLE;
  receiver.services().replace(
      kAir, kChannel14,
      {flagged(0, 0), flagged(1, kVisible), flagged(2, kVisible | AISRV_FLAG_SKIPPED),
       flagged(3, kVisible | AISRV_FLAG_DELETED)});
  receiver.services().replace(kAir, kChannel15,
                              {service(9, 1, kChannel15), service(10, 1, kChannel15)});
  receiver.services().replace(kAir, 485000000, {service(9, 5, 485000000)});  // without carrier
  const struct {
    uint32_t mode;
    uint16_t major, minor;
    const char* now;
    uint32_t record = 0xFFFF;
    bool refused = false;
  } kCases[] = {
      {AIFW_CHANGE_DIRECT, 9, 1, "9-1@479", listed(receiver)[2].record},
      {AIFW_CHANGE_UP, 0, 0, "10-1@479"},  // not hidden, skipped, deleted or lost services
      {AIFW_CHANGE_UP, 0, 0, "9-1@473"},
      {AIFW_CHANGE_DOWN, 0, 0, "10-1@479"},
      {AIFW_CHANGE_DIRECT, 9, 2, "9-2@473"},  // a skipped service can be chosen
      {AIFW_CHANGE_UP, 0, 0, "10-1@479"},
      {AIFW_CHANGE_DIRECT, 9, 1, "9-1@473"},
      {AIFW_CHANGE_UP, 0, 0, "9-1@479"},
      {AIFW_CHANGE_DOWN, 0, 0, "9-1@473"},
      {AIFW_CHANGE_DIRECT, 9, 3, "9-1@473", 0xFFFF, true},
      {AIFW_CHANGE_DIRECT, 9, 5, "9-1@473", 0xFFFF, true},
      {3, 0, 0, "9-1@473", 0xFFFF, true},
  };
  for (const auto& each : kCases) {
    EXPECT_EQ(!each.refused, change(each.mode, each.major, each.minor, each.record));
    const Service current = player.current().value();
    EXPECT_EQ(current.key.frequency, player.tuning().frequency);
    EXPECT_EQ(each.now, number(current) + "@" + std::to_string(current.key.frequency / 1000000));
  }
  EXPECT_FALSE(player.playFirst(kAir, 485000000)) << "its carrier is gone";
  EXPECT_TRUE(player.isPlaying());
  player.stopPlaying();
  EXPECT_FALSE(player.isPlaying());
  receiver.services().replace(kAir, kChannel14, {});
  EXPECT_FALSE(player.current()) << "no longer listed";
}

}  // namespace
}  // namespace receiver_test
