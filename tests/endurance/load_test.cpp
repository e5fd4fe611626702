// An hour of a busy evening in ten minutes, or only its first minutes. A TV application sends
// commands from eight threads and reads both databases. The middleware has four threads of events
// besides the receiver's events. A guide of some 50,000 programmes is rewritten every five seconds.
// The viewer scans and zaps. Expects no failures, no lost messages and no growth.
#include <SQLiteCpp/SQLiteCpp.h>
#include <atsc/atsc_service.h>
#include <atsc/atsc_tv_server_backend.h>
#include <json/json.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <numeric>
#include <thread>

#include "command.h"
#include "system_fixture.h"
#include "usage.h"

namespace fs = std::filesystem;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kMeasuresMemory = false;  // sanitizers keep freed memory
#else
constexpr bool kMeasuresMemory = true;
#endif

constexpr int kCarriers = 6;
constexpr int kServices = 2 * kCarriers;
constexpr int kGuideHours = 384;
constexpr int kProgrammes = kServices * kGuideHours * 12;

std::string field(const std::string& text, const std::string& name) {
  return "\"" + name + "\":" + text;
}

// Returns a lineup with two services per carrier and a programme every five minutes.
std::string lineup() {
  Json::Value lineup;
  lineup["medium"] = "air";
  lineup["guide_hours"] = kGuideHours;
  for (int i = 0; i < kServices; ++i) {
    Json::Value& channel = lineup["channels"][i / 2];
    channel["frequency"] = 177000000 + i / 2 * 6000000;
    channel["tsid"] = 100 + i / 2;
    Json::Value& service = channel["services"][i % 2];
    service["program"] = i % 2 + 1;
    service["pmt_pid"] = 48 + i % 2;
    service["major"] = 10 + i / 2;
    service["minor"] = i % 2 + 1;
    service["name"] = "S" + std::to_string(i);
    service["source_id"] = i + 1;
    for (const char* type : {"mpeg2-video", "ac3", "ac3"}) {
      Json::Value stream;
      stream["type"] = type;
      stream["pid"] = 64 + 8 * (i % 2) + static_cast<int>(service["streams"].size());
      service["streams"].append(stream);
    }
    for (const char* rating : {"TV-G", "TV-PG", "TV-14-D-L", "TV-MA"}) {
      Json::Value programme;
      programme["minutes"] = 5;
      programme["title"] = std::string("It's \"") + rating + "\" time";
      programme["rating"] = rating;
      service["programmes"].append(programme);
    }
  }
  return Json::FastWriter().write(lineup);
}

class Backend final : public ATSCBUS::ATSCTVServerBackend {
 public:
  int jsonCommand(const char* text, char**) override {
    Json::Value message;
    const bool parsed = Json::Reader().parse(text, message);
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!parsed || message["class"] != "CALLBACK") ++malformed_;
    const std::string kind = message["cbtype"].asString();
    ++counts_[kind == "SCAN" ? message["msg"].asString() : kind];
    // Counted events arrive in order.
    if (kind == "STT_UPDATE_EVENT" || kind == "TIME_CHANGE") {
      const Json::UInt time = message["SystemTime"].asUInt();
      if (time < 1000000 && time != ++times_) ++lost_;
    } else if (message.isMember("text") && std::stoul(message["text"].asString()) != ++alerts_) {
      ++lost_;
    }
    return 0;
  }

  int count(const std::string& kind) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return counts_[kind];
  }

  // Returns the received counted events; "" when one is missing or malformed.
  std::string received() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (lost_ + malformed_ > 0) return "";
    return "raised " + std::to_string(times_) + " times, " + std::to_string(alerts_) + " alerts";
  }

 private:
  std::mutex mutex_;
  std::map<std::string, int> counts_;
  unsigned long times_ = 0;
  unsigned long alerts_ = 0;
  int lost_ = 0;
  int malformed_ = 0;
};

// Sends the commands of one thread and measures their times.
class Sender {
 public:
  void send(const std::string& text) {
    char* reply = nullptr;
    const auto begin = steady_clock::now();
    const int result = ATSC_TransmitServiceClientJSONCommand(text.c_str(), &reply);
    took_.push_back(steady_clock::now() - begin);
    if (result != 0) failed_[text] += 1;
    free(reply);
  }

  const std::vector<steady_clock::duration>& took() const { return took_; }
  const std::map<std::string, int>& failed() const { return failed_; }

 private:
  std::vector<steady_clock::duration> took_;
  std::map<std::string, int> failed_;
};

class LoadTest : public SystemTest {
 protected:
  static constexpr int kThreads = 8;

  bool goesOn() const { return steady_clock::now() < end_; }

  // The viewer: zaps, and sometimes scans.
  void view(Sender& sender) {
    for (int round = 0; goesOn(); ++round) {
      for (int i = 0; i < 18 && goesOn(); ++i) {
        if (i % 10 == 9) {
          sender.send(command("FW CHANNELCHANGE",
                              R"("mode":")" + std::string(i % 4 == 1 ? "UP" : "DOWN") + "\""));
        } else {
          const int service = (round * 7 + i * 5) % kServices;
          sender.send(
              command("FW CHANNELCHANGE", field(std::to_string(10 + service / 2), "major") + "," +
                                              field(std::to_string(1 + service % 2), "minor")));
        }
        std::this_thread::sleep_for(milliseconds(1500));
      }
      const int overs = backend_.count("OVER");
      sender.send(command("SCAN start", R"("src":"VSB")"));
      EXPECT_TRUE(eventually([&] { return backend_.count("OVER") > overs; }));
    }
  }

  // The rest of the TV application.
  void ask(Sender& sender, size_t thread) {
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
      sender.send(commands[i % commands.size()]);
      std::this_thread::sleep_for(milliseconds(15));
    }
  }

  // Reads both databases as a TV application does.
  void read() {
    while (goesOn()) {
      try {
        EXPECT_EQ(std::to_string(kServices),
                  valueOf(database_, "SELECT count(*) FROM channel_data_t"));
        EXPECT_EQ(std::to_string(kProgrammes),
                  valueOf(db_ / "ATSC_event.db", "SELECT count(*) FROM event_t"));
      } catch (const SQLite::Exception& error) {
        ADD_FAILURE() << error.what();
      }
      std::this_thread::sleep_for(milliseconds(500));
    }
  }

  // Takes a sample of the service every second.
  std::vector<Usage> watch() const {
    std::vector<Usage> samples;
    while (goesOn()) {
      samples.push_back(usageOf(service_->pid()));
      std::this_thread::sleep_for(seconds(1));
    }
    return samples;
  }

  // Stops playing and scanning.
  void rest() {
    Sender sender;
    sender.send(command("FW STOP"));
    EXPECT_TRUE(sender.failed().empty());
  }

  Backend& backend_ = *new Backend;  // the library may call it until the process ends
  steady_clock::time_point end_;
};

long medianMemory(std::vector<Usage> samples, size_t from, size_t to) {
  std::vector<long> memory;
  for (size_t i = from; i < to; ++i) memory.push_back(samples[i].memoryKb);
  std::nth_element(memory.begin(), memory.begin() + static_cast<long>(memory.size() / 2),
                   memory.end());
  return memory[memory.size() / 2];
}

TEST_F(LoadTest, ABusyEvening) {
  const bool full = longForm();
  const seconds length(full ? 600 : 60);
  const fs::path events = folder_ / "events";
  std::ofstream(folder_ / "lineup.json") << lineup();
  broadcast({folder_ / "lineup.json"}, air_);
  environment_["SPDLOG_LEVEL"] = "warn";
  environment_["LOAD_EVENTS"] = events;
  service_ = start({LOAD_SERVICE, "--air", air_, "--db", db_});
  ASSERT_TRUE(service_->says("ready")) << service_->err();
  ASSERT_EQ(0, ATSC_RegisterTVServerBackend(&backend_));
  Sender first;
  for (const std::string& text : {std::string(kInit), command("SCAN start", R"("src":"VSB")")}) {
    first.send(text);
  }
  ASSERT_TRUE(eventually([&] { return backend_.count("EPG_COMPLETE") > 0; }));
  first.send(command("FW PLAY"));
  ASSERT_TRUE(eventually([&] { return backend_.count("CHANNEL_PLAY_SUCCESS") > 0; }));
  ASSERT_TRUE(first.failed().empty());
  rest();
  const Usage before = usageOf(service_->pid());
  const size_t errors = service_->count("[error]") + service_->count("[Error]");

  std::ofstream(events).close();
  end_ = steady_clock::now() + length;
  std::array<Sender, kThreads> senders;
  std::vector<std::thread> threads;
  threads.emplace_back([&] { view(senders[0]); });
  for (size_t i = 1; i < senders.size(); ++i) {
    threads.emplace_back([&, i] { ask(senders[i], i); });
  }
  threads.emplace_back([&] { read(); });
  const std::vector<Usage> samples = watch();
  for (std::thread& thread : threads) thread.join();
  fs::remove(events);
  rest();

  // All callbacks arrive in order.
  ASSERT_TRUE(service_->says("raised "));
  const std::string out = service_->out();
  const size_t at = out.find("raised ");
  EXPECT_TRUE(eventually([&] {
    return backend_.received() == out.substr(at, out.find('\n', at) - at);
  })) << backend_.received();
  EXPECT_EQ(errors, service_->count("[error]") + service_->count("[Error]"))
      << service_->err() << out;
  std::vector<steady_clock::duration> took;
  for (const Sender& sender : senders) {
    for (const auto& [text, times] : sender.failed()) ADD_FAILURE() << text << ' ' << times;
    took.insert(took.end(), sender.took().begin(), sender.took().end());
  }
  EXPECT_TRUE(eventually([&] {
    const Usage now = usageOf(service_->pid());
    return now.threads <= before.threads && now.descriptors <= before.descriptors;
  })) << usageOf(service_->pid()).threads
      << " threads, before " << before.threads << "; " << usageOf(service_->pid()).descriptors
      << " descriptors, before " << before.descriptors;

  const size_t quarter = samples.size() / 4;
  const long warm = medianMemory(samples, quarter, 2 * quarter);
  const long last = medianMemory(samples, 3 * quarter, samples.size());
  // A minute is little more than the warm-up.
  if (kMeasuresMemory && full) {
    EXPECT_LT(last, warm + warm / 20 + 2048);
  }
  std::sort(took.begin(), took.end());
  const auto ms = [](steady_clock::duration time) {
    return std::to_string(std::chrono::duration<double, std::milli>(time).count()) + " ms";
  };
  std::cout << took.size() << " commands: median " << ms(took[took.size() / 2]) << ", 99 % "
            << ms(took[took.size() / 100 * 99]) << ", worst " << ms(took.back()) << "; "
            << backend_.count("EPG_UPDATE") + backend_.count("EPG_COMPLETE") << " guides, "
            << backend_.count("OVER") << " scans, " << backend_.count("CHANNEL_PLAY_SUCCESS")
            << " channels, " << out.substr(at, out.find('\n', at) - at) << "; memory "
            << before.memoryKb << " KiB before, " << warm << " warm, " << last << " last; "
            << before.threads << " threads, " << before.descriptors << " descriptors\n";

  service_->signal(SIGTERM);
  EXPECT_EQ(0, service_->wait());
}

}  // namespace
