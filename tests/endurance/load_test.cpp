// An hour of a busy evening in ten minutes, or only its first seconds. A TV application sends
// commands from eight threads and reads both databases. The middleware has four threads of events
// besides the receiver's events. A guide of some 50,000 programmes is rewritten every five seconds.
// The viewer scans and zaps. Expects no failures, no lost messages and no growth.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <mutex>
#include <thread>

#include "endurance_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr long kHeapMarginKb = 1280;  // what the service keeps of the load is not more

constexpr int kServices = 12;
constexpr int kPerCarrier = 2;
constexpr int kGuideHours = 384;
constexpr int kMinutes = 5;

class LoadTest : public EnduranceTest {
 protected:
  static constexpr size_t kThreads = 8;

  bool goesOn() const { return steady_clock::now() < end_; }

  void send(const std::string& text) {
    const auto begin = steady_clock::now();
    const bool failed = transmit(text).result != 0;
    const std::lock_guard<std::mutex> lock(mutex_);
    took_.push_back(steady_clock::now() - begin);
    if (failed) ++failed_[text];
  }

  // The viewer: zaps, and sometimes scans.
  void view() {
    for (int round = 0; goesOn(); ++round) {
      for (int i = 0; i < 18 && goesOn(); ++i) {
        const int service = (round * 7 + i * 5) % kServices;
        send(command("FW CHANNELCHANGE",
                     i == 8    ? R"("mode":"UP")"
                     : i == 17 ? R"("mode":"DOWN")"
                               : "\"major\":" + std::to_string(5 + service / kPerCarrier) +
                                     ",\"minor\":" + std::to_string(1 + service % kPerCarrier)));
        std::this_thread::sleep_for(milliseconds(longForm() ? 1500 : 300));
      }
      const size_t from = listener().count();
      send(command("SCAN start", R"("src":"VSB")"));
      waitFor("OVER", from);
    }
  }

  // The rest of the TV application.
  void askAll(size_t thread) {
    const std::string document = R"("region":1,"us":{"tv":3,"dia":1},"can":{},"dwn":[])";
    const std::vector<std::string> commands = {
        command("SRV GETCUR"),
        command("TIME GETCUR"),
        command("TIME GETSETTING"),
        command("TIME SETTIMEZONE", thread % 2 == 0 ? R"("zone":"EST")" : R"("zone":"PST")"),
        command("CN GETCURSRC"),
        command("CN SETPREAUD", R"("first":"spa","second":"eng")"),
        command("CN GETPREAUD"),
        command("PC ISPCBLOCKED"),
        command("PC NUMDIM", "\"region\":1"),
        command("PC RETREIVERATING", "\"region\":1"),
        command("PC ENCODE", document + R"(,"rat_dim":0,"val":4,"block":true)"),
        command("PC STORERATING", document),
        command("PC CHECKRAT", R"("system":"USA-TV","rating":"TV-14,D")"),
        command("PC SETUNRATEDGRP", R"("unrat_grp":1,"block":false)"),
        command("EAS EASUSERSETTING", R"("op":"get")"),
        command("MSC LOGCTL", R"("para":"RESUME")"),
        command("PC STOREALL"),
        command("TEST GETSERVICE", R"("input":"VSB")"),
    };
    for (size_t i = thread; goesOn(); ++i) {
      send(commands[i % commands.size()]);
      std::this_thread::sleep_for(milliseconds(15));
    }
  }

  // Reads both databases as a TV application does.
  void read() {
    const std::string programmes = std::to_string(kServices * kGuideHours * 60 / kMinutes);
    while (goesOn()) {
      try {
        EXPECT_EQ(std::to_string(kServices),
                  valueOf(database_, "SELECT count(*) FROM channel_data_t"));
        EXPECT_EQ(programmes, valueOf(db_ / "ATSC_event.db", "SELECT count(*) FROM event_t"));
      } catch (const SQLite::Exception& error) {
        ADD_FAILURE() << error.what();
      }
      std::this_thread::sleep_for(milliseconds(500));
    }
  }

  // Returns the used part of the service's heap.
  long heapKb() const { return std::stol(readFile(events_.string() + ".heap")) / 1024; }

  size_t errors() const { return service_->count("[error]") + service_->count("[Error]"); }

  // Returns what the service has raised, from the callbacks, which arrive in order.
  std::string received() const {
    Json::UInt times = 0;
    unsigned alerts = 0;
    for (const Json::Value& message : listener().heard(from_)) {
      if (message["class"] != "CALLBACK") return "malformed: " + message.toStyledString();
      const Json::Value& time = message["SystemTime"];
      const bool counted = time.isInt() && time.asUInt() < 1000000;  // not the receiver's clock
      if (counted && time.asUInt() != ++times) return "no time " + std::to_string(times);
      if (message.isMember("text") &&
          message["text"] != std::to_string(++alerts) + ": leave the valley") {
        return "no alert " + std::to_string(alerts);
      }
    }
    return "raised " + std::to_string(times) + " times, " + std::to_string(alerts) + " alerts\n";
  }

  const size_t from_ = listener().count();
  const std::filesystem::path events_ = folder_ / "events";
  steady_clock::time_point end_;
  std::mutex mutex_;
  std::vector<steady_clock::duration> took_;
  std::map<std::string, int> failed_;  // commands and how often
};

TEST_F(LoadTest, ABusyEvening) {
  const std::vector<std::string> ratings{"TV-G", "TV-PG", "TV-14-D-L", "TV-MA"};
  broadcastLineup({"S", kServices, kPerCarrier, 177000000, kGuideHours, kMinutes, ratings}, air_);
  environment_["ATSC_FAULT_FOLDER"] = "";
  environment_["LOAD_EVENTS"] = events_;
  startFaultyService();
  send(kInit);
  send(command("SCAN start", R"("src":"VSB")"));
  waitFor("EPG_COMPLETE", from_);
  send(command("FW PLAY"));
  waitFor("CHANNEL_PLAY_SUCCESS", from_);
  send(command("FW STOP"));
  const Usage before = usageOf(service_->pid());
  long heapBefore = heapKb();
  for (int i = 0; i < 20; ++i) {  // the guide may still be written
    std::this_thread::sleep_for(milliseconds(50));
    heapBefore = std::min(heapBefore, heapKb());
  }
  const size_t errorsBefore = errors();

  writeFile(events_, "");
  end_ = steady_clock::now() + seconds(longForm() ? 600 : 12);
  std::vector<std::thread> threads;
  threads.emplace_back([&] { view(); });
  for (size_t i = 1; i < kThreads; ++i) threads.emplace_back([&, i] { askAll(i); });
  threads.emplace_back([&] { read(); });
  for (std::thread& thread : threads) thread.join();
  std::filesystem::remove(events_);
  send(command("FW STOP"));

  // All callbacks arrive in order.
  ASSERT_TRUE(service_->says("alerts\n"));
  const std::string out = service_->out();
  const std::string raised = out.substr(out.find("raised "));
  EXPECT_TRUE(eventually([&] { return received() == raised; })) << raised << received();
  EXPECT_EQ(errorsBefore, errors()) << service_->err() << out;
  EXPECT_THAT(failed_, testing::IsEmpty());
  EXPECT_LT(*std::max_element(took_.begin(), took_.end()) / milliseconds(1), 5000);

  Usage after;
  long heapAfter = 0;
  EXPECT_TRUE(eventually([&] {
    after = usageOf(service_->pid());
    heapAfter = heapKb();
    return after.threads <= before.threads && after.descriptors <= before.descriptors &&
           heapAfter < heapBefore + kHeapMarginKb;
  })) << after.threads
      << " threads, before " << before.threads << "; " << after.descriptors
      << " descriptors, before " << before.descriptors << "; heap " << heapAfter << " KiB, before "
      << heapBefore;
  EXPECT_EQ(0, service_->stop());
}

}  // namespace
