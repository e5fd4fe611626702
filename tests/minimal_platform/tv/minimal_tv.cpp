// A TV application that tests a service process on the minimal platform. The environment variable
// MINIMAL_SERVICE is the program of the service; others name the databases.
#include <atsc/atsc_service.h>
#include <gtest/gtest.h>
#include <json/json.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "listener.h"
#include "process.h"
#include "rows.h"
#include "wait.h"

namespace {

using Rows = std::vector<std::string>;

const std::vector<std::string> kService{getenv("MINIMAL_SERVICE")};

Rows channels(const std::string& sql) { return rowsOf(getenv("ATSC_CNAHHEL_DB"), sql); }
Rows events(const std::string& sql) { return rowsOf(getenv("ATSC_EVENT_DB"), sql); }

// Returns the columns of both tables that TV applications refer to or show.
Rows allChannels() {
  constexpr const char* kColumns =
      "ch_index, ch_id_pk, name, fav_group, srv_flag, audio_pid, video_pid";
  return channels(std::string("SELECT ") + kColumns + " FROM channel_data_t UNION ALL SELECT " +
                  kColumns + " FROM channel_data_c");
}

bool serviceAnswers() { return !parsed(transmit(command("TIME GETCUR")).text)["year"].isNull(); }

std::string current() {
  const Json::Value reply = parsed(transmit(command("SRV GETCUR")).text);
  return reply["major"].asString() + '-' + reply["minor"].asString() + ' ' +
         reply["chn_name"].asString();
}

class MinimalPlatformTest : public testing::Test {
 protected:
  void TearDown() override {
    if (HasFailure()) std::cout << service_->err();
  }

  void start() {
    service_ = std::make_unique<Process>(kService);
    EXPECT_TRUE(service_->says("ready\n"));
  }
  int end(int signal) {
    service_->signal(signal);
    return service_->wait();
  }

  // Sends a command and returns the first callback of a kind that follows it.
  Json::Value order(const std::string& command, const std::string& kind) {
    from_ = backend_.count();
    EXPECT_EQ(0, transmit(command).result) << command;
    return wait(kind);
  }
  Json::Value wait(const std::string& kind) {
    EXPECT_TRUE(eventually([&] { return !backend_.heard(from_, kind).empty(); })) << kind;
    return backend_.heard(from_, kind).at(0);
  }

  // Scans three frequencies, checks the messages and waits until a channel plays.
  void scan(const std::string& source, int services) {
    const Json::Value over = order(command("SCAN start", "\"src\":\"" + source + '"'), "OVER");
    EXPECT_EQ(services, over["ser_found"].asInt());
    EXPECT_EQ(services, over["tv_num"].asInt());
    std::string messages;
    int progress = -1;
    for (const Json::Value& message : backend_.heard(from_)) {
      if (message["cbtype"] != "SCAN") continue;
      messages += message["msg"].asString() + ' ';
      EXPECT_LE(progress, message["progress"].asInt());
      progress = message["progress"].asInt();
    }
    EXPECT_EQ("START PROGRESS PROGRESS PROGRESS OVER ", messages);
    EXPECT_EQ(100, progress);
    wait("CHANNEL_PLAY_SUCCESS");
    wait("EPG_COMPLETE");
  }

  Listener& backend_ = *new Listener;  // the library may call it until the process ends
  size_t from_ = 0;
  std::unique_ptr<Process> service_;
};

TEST_F(MinimalPlatformTest, AServiceInItsOwnProcess) {
  ASSERT_FALSE(serviceAnswers()) << "before the service runs: by this process?";
  start();
  EXPECT_EQ(0, ATSC_RegisterTVServerBackend(&backend_));
  EXPECT_EQ(-1, ATSC_RegisterTVServerBackend(&backend_)) << "a second registration";
  EXPECT_EQ(1, Process(kService).wait()) << "a second service";
  EXPECT_TRUE(serviceAnswers());
  order(command("FW INIT"), "STT_UPDATE_EVENT");

  scan("VSB", 4);
  EXPECT_EQ((Rows{"7|1|HARBOR|1793", "7|2|HARBOR2|1794", "9|1|HILL|2305", "9|2|HILL-NW|2306"}),
            channels("SELECT major_no, minor_no, name, source_id FROM channel_data_t "
                     "ORDER BY 1, 2"));
  EXPECT_EQ("7-1 HARBOR", current());
  scan("QAM", 2);
  EXPECT_EQ((Rows{"101|0|CITY|57000000|52_eng_129,53_spa_129,",
                  "102|0|SPORT|63000000|52_eng_129,53_spa_129,"}),
            channels("SELECT major_no, minor_no, name, freq, audio_pid FROM channel_data_c "
                     "ORDER BY 1"));
  EXPECT_EQ(Rows{"8"}, events("SELECT count(*) FROM event_c"));
  EXPECT_EQ("101-0 CITY", current());

  for (const char* members : {R"("src":"VSB","major":7,"minor":2,"type":"fav","group":1)",
                              R"("src":"VSB","major":9,"minor":1,"type":"lock")"}) {
    EXPECT_EQ(0, transmit(command("FW CHANNELMODIFY", members)).result) << members;
  }
  order(command("FW CHANNELCHANGE", R"("input":"VSB","major":9,"minor":1)"), "CHANNEL_LOCKED");
  EXPECT_EQ("9-1 HILL", current());
  order(command("FW CHANNELCHANGE", R"("input":"VSB","mode":"UP")"), "CHANNEL_PLAY_SUCCESS");
  EXPECT_EQ("9-2 HILL-NW", current());

  // The guide has texts for each channel of the current input source.
  SQLite::Database guide = openDatabase(getenv("ATSC_EVENT_DB"));
  guide.exec(std::string("ATTACH '") + getenv("ATSC_CNAHHEL_DB") + "' AS list");
  SQLite::Statement texts(
      guide,
      "SELECT c.name, count(*), max(start_time) - min(start_time), "
      "abs(min(start_time) - unixepoch()) < 3600 FROM event_t e "
      "JOIN list.channel_data_t c USING (ch_id_pk) GROUP BY c.ch_index ORDER BY c.name");
  EXPECT_EQ((Rows{"HARBOR|4|5400|1", "HARBOR2|4|5400|1", "HILL|4|5400|1", "HILL-NW|4|5400|1"}),
            rowsOf(texts));
  EXPECT_EQ(Rows{"The Long Way Home|A film in many parts.|TV-PG"},
            events("SELECT DISTINCT name, \"desc\", rating FROM event_t WHERE genre = '34,'"));

  // A restart changes nothing, whether the service was stopped or killed.
  const Rows before = allChannels();
  EXPECT_EQ(Rows{"16"}, channels("SELECT fav_group FROM channel_data_t WHERE name = 'HARBOR2'"));
  for (const int signal : {SIGTERM, SIGKILL}) {
    EXPECT_EQ(signal == SIGTERM ? 0 : -SIGKILL, end(signal));
    EXPECT_FALSE(serviceAnswers()) << "by a service that has ended";
    start();
    EXPECT_EQ(before, allChannels());
    order(command("FW INIT"), "EPG_COMPLETE");
    EXPECT_EQ(Rows{"16"}, events("SELECT count(*) FROM event_t"));
    EXPECT_EQ(0, transmit(command("FW PLAY")).result);
    EXPECT_EQ("9-2 HILL-NW", current());
  }
  EXPECT_EQ(0, end(SIGTERM));
}

}  // namespace
