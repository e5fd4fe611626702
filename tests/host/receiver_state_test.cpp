// Stored state of a receiver, and playing.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "aicn.h"
#include "aife.h"
#include "aiin.h"
#include "aipt.h"
#include "aiup.h"
#include "files.h"
#include "middleware_types.h"
#include "modules/host.h"
#include "receiver_test_air.h"
#include "replaced.h"

namespace receiver_test {
namespace {

namespace fs = std::filesystem;
using atschost::Receiver;
using atschost::Service;

constexpr uint32_t kChannel15 = 479000000;

Service service(uint16_t major, uint16_t minor, uint32_t frequency, uint32_t source = kAir) {
  Service s;
  s.key = {major, minor, frequency, source};
  s.name = std::string("\0'\xD8\0", 4);  // an unpaired surrogate survives as well
  AISRV_pid_info stream{};
  stream.pid = 52;
  stream.stream_type = 129;
  stream.audio_kind = AISRV_AUDIO_DESCRIPTION;
  stream.description_mask = 4;
  std::copy_n("eng", 3, stream.language);
  s.streams = {stream};
  return s;
}

std::vector<Service> listed(Receiver& receiver, uint32_t source = kAir) {
  std::vector<Service> list;
  receiver.services().visit(source, [&](const Service& s) {
    list.push_back(s);
    return true;
  });
  return list;
}

class ReceiverStateTest : public testing::Test {
 protected:
  TemporaryFolder folder_;
  const fs::path state_ = folder_.path() / "a" / "b";
  const fs::path services_ = state_ / "services.json";
};

TEST_F(ReceiverStateTest, ServicesSurviveARestart) {
  {
    TestReceiver receiver(state_);
    receiver.services().replace(kAir, kChannel14,
                                {service(9, 2, kChannel14), service(9, 1, kChannel14)});
    receiver.services().replace(kCable, kChannel14, {service(300, 0, kChannel14, kCable)});
    EXPECT_FALSE(fs::exists(state_));
    EXPECT_TRUE(receiver.services().store());
    fs::remove(services_);
    EXPECT_TRUE(receiver.services().store()) << "somebody had removed it";
  }
  struct stat status;
  ASSERT_EQ(0, stat(services_.c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
  ASSERT_EQ(0, stat(state_.c_str(), &status));
  EXPECT_EQ(0700u, status.st_mode & 07777);

  TestReceiver receiver(state_);
  const std::vector<Service> list = listed(receiver);
  ASSERT_EQ(2u, list.size());
  EXPECT_EQ(1, list[0].key.minor);
  EXPECT_EQ(2, list[0].record);
  EXPECT_EQ(service(9, 1, kChannel14).name, list[0].name);
  ASSERT_EQ(1u, list[0].streams.size());
  EXPECT_EQ(4, list[0].streams[0].description_mask);
  EXPECT_EQ("eng", std::string(list[0].streams[0].language, 3));
  EXPECT_EQ(1u, listed(receiver, kCable).size());
}

TEST_F(ReceiverStateTest, ServiceFoundAgainKeepsWhatTheViewerSet) {
  TestReceiver(state_).services().store();
  {
    TestReceiver receiver(state_);
    receiver.services().replace(kAir, kChannel14,
                                {service(9, 1, kChannel14), service(9, 2, kChannel14)});
    receiver.services().store();
  }
  const std::string set = replaced(replaced(readFile(services_), "\"flags\" : 1", "\"flags\" : 13"),
                                   "\"favourites\" : 0", "\"favourites\" : 48");
  // The format of older versions.
  writeFile(services_, replaced(replaced(set, "\"added\" : false,", ""), "\"audio\" : 0,", ""));
  TestReceiver receiver(state_);
  Service again = service(9, 1, kChannel14);
  again.programNumber = 7;
  receiver.services().replace(kAir, kChannel14, {service(9, 0, kChannel14), again});
  receiver.services().replace(kAir, kChannel15, {service(9, 1, kChannel15)});
  const std::vector<Service> list = listed(receiver);
  ASSERT_EQ(3u, list.size());
  EXPECT_EQ(13u, list[1].flags);
  EXPECT_EQ(48u, list[1].favourites);
  EXPECT_EQ(1, list[1].record);
  EXPECT_EQ(7, list[1].programNumber);
  EXPECT_EQ(uint32_t(AISRV_FLAG_VISIBLE), list[0].flags);
  EXPECT_EQ(3, list[0].record) << "the number of the service just lost is not reused at once";
  EXPECT_EQ(2, list[2].record);
}

TEST_F(ReceiverStateTest, DamagedFilesAreSetAside) {
  {
    TestReceiver receiver(state_);
    receiver.services().replace(kAir, kChannel14,
                                {service(9, 1, kChannel14), service(9, 2, kChannel14)});
    ASSERT_TRUE(receiver.services().store());
  }
  const std::string good = readFile(services_);
  const auto with = [&](const char* from, const char* to) { return replaced(good, from, to); };
  const std::string damaged[] = {
      "",
      good.substr(0, good.size() / 2),
      std::string(100000, '['),
      with("services-1", "services-9"),
      with("\"pid\" : 52", "\"pid\" : 8192"),
      with("\"language\" : \"eng\"", "\"language\" : \"english\""),
      with("\"name_utf16be\" : \"", "\"name_utf16be\" : \"0"),
      with("\"record\" : 1", "\"record\" : 2"),
      with("\"added\" : false", "\"added\" : 0"),
      with("\"audio\" : 0", "\"audio\" : 31"),
      with("\"minor\" : 1", "\"minor\" : 2"),
      with("\"streams\" :", "\"streams\" : {}, \"x\" :"),
  };
  for (const std::string& text : damaged) {
    SCOPED_TRACE(text.substr(0, 60));
    writeFile(services_, text);
    TestReceiver receiver(state_);
    EXPECT_TRUE(listed(receiver).empty());
    EXPECT_EQ(text, readFile(services_.string() + ".bad"));
    EXPECT_FALSE(fs::exists(services_));
  }
  fs::create_directory(state_ / "settings.json");
  TestReceiver receiver(state_);
  EXPECT_EQ(kAir, receiver.settings().source());
  EXPECT_TRUE(fs::exists(state_ / "settings.json.bad"));
}

TEST_F(ReceiverStateTest, UnwritableFolderIsReported) {
  fs::create_directories(state_.parent_path());
  writeFile(state_, "a file where the folder should be");
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  EXPECT_FALSE(receiver.services().store());
  receiver.settings().store();
  EXPECT_FALSE(receiver.settings().sync());
  fs::remove(state_);
  EXPECT_TRUE(receiver.services().store()) << "tried again";
  EXPECT_TRUE(receiver.settings().sync());
}

AIFW_channel_change_request change(uint32_t mode, uint16_t major = 0, uint16_t minor = 0,
                                   uint32_t record = 0xFFFF) {
  return {mode, kAir, AISRV_SERVICE_MASK, major, minor, 0, record, kAir};
}

// Allows one more file to be opened during its lifetime.
class OneFile {
 public:
  OneFile() {
    getrlimit(RLIMIT_NOFILE, &before_);
    const int next = dup(STDERR_FILENO);
    close(next);
    const rlimit few{static_cast<rlim_t>(next) + 1, before_.rlim_max};
    EXPECT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
  }
  ~OneFile() { setrlimit(RLIMIT_NOFILE, &before_); }

 private:
  rlimit before_{};
};

TEST_F(ReceiverStateTest, AStoreThatFailsLateIsMadeGood) {
  TestReceiver receiver(state_);
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14)});
  ASSERT_TRUE(receiver.services().store());
  const std::string before = readFile(services_);
  {
    OneFile fileButNotItsFolder;
    EXPECT_FALSE(receiver.services().setFlags(kAir, 1, AISRV_FLAG_SKIPPED, 0));
  }
  EXPECT_NE(before, readFile(services_)) << "too late to take it back";
  EXPECT_TRUE(receiver.services().store());
  EXPECT_EQ(before, readFile(services_));
}

TEST_F(ReceiverStateTest, ChannelsChangeInOrder) {
  Air air;
  air.write(kAir, kChannel14, {});
  air.write(kAir, kChannel15, {});
  Service skipped = service(9, 2, kChannel14), deleted = service(9, 3, kChannel14);
  skipped.flags |= AISRV_FLAG_SKIPPED;
  deleted.flags |= AISRV_FLAG_DELETED;
  TestReceiver receiver(state_);
  EXPECT_FALSE(receiver.player().changeChannel(change(AIFW_CHANGE_UP)));
  receiver.services().replace(kAir, kChannel14, {service(9, 1, kChannel14), skipped, deleted});
  receiver.services().replace(kAir, kChannel15,
                              {service(9, 1, kChannel15), service(10, 1, kChannel15)});
  receiver.services().replace(kAir, 485000000, {service(9, 5, 485000000)});  // without carrier
  const auto now = [&] {
    const auto key = receiver.player().current().value().key;
    EXPECT_EQ(key.frequency, receiver.player().tuning().frequency);
    return std::to_string(key.major) + "-" + std::to_string(key.minor) + "@" +
           std::to_string(key.frequency / 1000000);
  };
  EXPECT_TRUE(receiver.player().playFirst(kAir, kChannel15));
  EXPECT_EQ("9-1@479", now());
  const struct {
    AIFW_channel_change_request request;
    const char* now;
  } kCases[] = {
      {change(AIFW_CHANGE_UP), "10-1@479"},  // not skipped, deleted or lost services
      {change(AIFW_CHANGE_UP), "9-1@473"},
      {change(AIFW_CHANGE_DOWN), "10-1@479"},
      {change(AIFW_CHANGE_DIRECT, 9, 2), "9-2@473"},  // a skipped service can be chosen
      {change(AIFW_CHANGE_UP), "10-1@479"},
      {change(AIFW_CHANGE_DIRECT, 9, 1), "9-1@473"},
      {change(AIFW_CHANGE_DIRECT, 9, 1, listed(receiver)[1].record), "9-1@479"},
  };
  for (const auto& each : kCases) {
    EXPECT_TRUE(receiver.player().changeChannel(each.request));
    EXPECT_EQ(each.now, now());
  }
  for (const auto& request :
       {change(AIFW_CHANGE_DIRECT, 9, 3), change(AIFW_CHANGE_DIRECT, 9, 5), change(3)}) {
    EXPECT_FALSE(receiver.player().changeChannel(request));
  }
  EXPECT_EQ("9-1@479", now());
  EXPECT_TRUE(receiver.player().isPlaying());
  receiver.player().stopPlaying();
  EXPECT_FALSE(receiver.player().isPlaying());

  // The current service is known after a restart, but does not play. There is none when it is no
  // longer listed.
  receiver.settings().store();
  EXPECT_TRUE(receiver.services().store());
  EXPECT_TRUE(receiver.settings().sync());
  TestReceiver restarted(state_);
  EXPECT_EQ(kChannel15, restarted.player().current().value().key.frequency);
  EXPECT_FALSE(restarted.player().isPlaying());
  restarted.services().replace(kAir, kChannel15, {});
  EXPECT_FALSE(restarted.player().current());
}

TEST_F(ReceiverStateTest, ModulesAnswerForTheReceiverOfTheProcess) {
  Air air;
  EXPECT_EQ(0, AIFW_init(0));
  scan(kAir);
  air.write(kAir, kChannel14, goodCarrier());
  scan(kAir, kChannel14);
  AISRV_service_info record{};
  EXPECT_EQ(0, AIFW_play_first_service(kAir, 0));
  EXPECT_EQ(0, AICN_get_current(&record));
  EXPECT_EQ(5, record.major);
  int status = -1;
  EXPECT_EQ(0, AIPT_get_index_status(&status, 0));
  EXPECT_EQ(1, status);
  EXPECT_EQ(0, AIFW_stop_curr_src());
  uint8_t flag = 0;
  AIIN_input_t input;
  AIFE_tuning_details tuning;
  ASSERT_EQ(0, AIIN_get_input_details(kAir, &flag, &input, 0));
  ASSERT_EQ(0, AIFE_get_tuning_details(input.tuner, AIFE_MAIN_PATH, &tuning));
  EXPECT_EQ(kChannel14, tuning.frequency);
  EXPECT_EQ(0, AIUP_store_all());
  EXPECT_EQ(0, AIUP_sync());
  EXPECT_TRUE(fs::exists(fs::path(getenv("ATSC_HOST_STATE")) / "settings.json"));
  fs::remove(air.path(kAir, kChannel14));
  EXPECT_NE(0, AIFW_play_first_service(kAir, 0)) << "its carrier is gone";
}

}  // namespace
}  // namespace receiver_test
