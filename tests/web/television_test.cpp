// atsc-web with a real service: what its pages are told.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "apps/system_fixture.h"
#include "http_client.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr uint16_t kPort = 18077;

struct Reply {
  int status;
  Json::Value body;
};

class WebProgramTelevision : public SystemTest {
 protected:
  void TearDown() override {
    if (web_ && web_->alive()) {
      EXPECT_EQ(0, web_->stop()) << web_->err();
    }
    SystemTest::TearDown();
  }

  void startWeb(Words options = {}) {
    options.insert(options.begin(), {ATSC_WEB, "--db", db_, "--state", folder_ / "state", "--port",
                                     std::to_string(kPort)});
    web_ = start(std::move(options));
    if (!web_->says("http://")) throw std::runtime_error("no atsc-web: " + web_->err());
  }

  static Reply request(const std::string& line, const std::string& body, const std::string& grant) {
    HttpClient client(kPort);
    std::string head = line + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(kPort) + "\r\n";
    if (!grant.empty()) head += "X-Grant: " + grant + "\r\n";
    if (!body.empty()) {
      head += "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) +
              "\r\n";
    }
    client.send(head + "Connection: close\r\n\r\n" + body);
    const std::string answer = client.answer();
    const size_t end = answer.find("\r\n\r\n");
    return {statusOf(answer), parsed(end == std::string::npos ? "" : answer.substr(end + 4))};
  }
  static Reply post(const std::string& path, const std::string& body,
                    const std::string& grant = "") {
    return request("POST " + path, body, grant);
  }
  static Reply sendWeb(const std::string& name, const std::string& members = "",
                       const std::string& grant = "") {
    return post("/api/command", command(name, members), grant);
  }
  static void sets(const std::string& name, const std::string& members) {
    const Reply reply = sendWeb(name, members);
    EXPECT_EQ(200, reply.status) << name << members << reply.body;
    EXPECT_EQ(0, reply.body["result"].asInt()) << name << members;
  }
  static Reply pin(const std::string& members) { return post("/api/pin", '{' + members + '}'); }
  static Json::Value state() { return request("GET /api/state", "", "").body; }

  // Waits for a state that `fits`, and returns it.
  static Json::Value state(const char* what, const std::function<bool(const Json::Value&)>& fits) {
    Json::Value now;
    EXPECT_TRUE(eventually([&] { return fits(now = state()); }, std::chrono::seconds(30)))
        << what << now;
    return now;
  }
  static bool plays(const Json::Value& state, const char* number) {
    return state["playing"] == "playing" && state["channel"]["number"] == number;
  }

  std::unique_ptr<Process> web_;
};

TEST_F(WebProgramTelevision, ShowsWhatTheServiceTells) {
  broadcastLineups({"--start", "2026-11-22T01:10:00Z"});
  startWeb();
  EXPECT_FALSE(state()["service"]["running"].asBool());
  EXPECT_EQ("no-service", sendWeb("TIME GETCUR").body["error"].asString());
  startService(kFast, {"--fast", "--clock", "2026-11-22T01:10:00Z"});
  Json::Value now = state("a service that comes", [&](const Json::Value& s) {
    return s["service"]["pid"] == service_->pid() && s["clock"].isObject();
  });
  EXPECT_TRUE(now["registered"].asBool());
  EXPECT_EQ("none", now["playing"].asString());
  EXPECT_NEAR(1795309800, now["clock"]["utc"].asDouble(), 60);

  // A scan, which another process has started.
  act("SCAN start", R"("src":"QAM")");
  now = state("the end of a scan",
              [](const Json::Value& s) { return s["scan"]["over"].asBool() && plays(s, "2-1"); });
  EXPECT_EQ("QAM", now["scan"]["src"].asString());
  EXPECT_EQ(7, now["scan"]["services"].asInt());
  EXPECT_EQ(135u, now["scan"]["band"].size());
  EXPECT_EQ("QAM", now["source"].asString());
  sets("SCAN start", R"("src":"VSB","mode":"manual","freq":8)");
  now = state("a scan of one frequency", [](const Json::Value& s) {
    return s["scan"]["over"].asBool() && s["scan"]["src"] == "VSB" && plays(s, "5-1") &&
           s["now"].isObject() && s["now"]["title"] == "The Long Lock";
  });
  EXPECT_EQ(8, now["scan"]["rf"].asInt());
  ASSERT_EQ(1u, now["scan"]["band"].size());
  EXPECT_EQ(parsed(R"({"rf":8,"freq":183000000,"carrier":true,"services":3})"),
            now["scan"]["band"][0]);
  EXPECT_EQ("16:9", now["captions"]["aspect"].asString());
  EXPECT_EQ("spa", now["audio"]["tracks"][1]["language"].asString());
  EXPECT_EQ(0, now["audio"]["playing"].asInt());
  EXPECT_EQ(1795309200 + 3600, now["next"]["start"].asInt());

  // Settings that no callback reports, one of them by another process.
  sets("AUD CHANGE", R"("index":1)");
  sets("TIME SETTIMEZONE", R"("zone":"PST")");
  state("track and zone", [](const Json::Value& s) {
    return s["audio"]["playing"] == 1 && s["clock"]["offset"] == -480;
  });
  sets("FW POWERDOWN", R"("powerdown":1)");
  state("standby",
        [](const Json::Value& s) { return s["standby"].asBool() && s["playing"] == "stopped"; });
  sets("FW POWERDOWN", R"("powerdown":0)");
  state("its end", [](const Json::Value& s) { return !s["standby"].asBool() && plays(s, "5-1"); });

  // An alert, until the next channel.
  sets("FW CHANNELCHANGE", R"("input":"QAM","major":23,"minor":2)");
  now = state("an alert", [](const Json::Value& s) { return s["alert"].isObject(); });
  EXPECT_FALSE(now["alert"]["blocking"].asBool());
  EXPECT_EQ(3, now["alert"]["priority"].asInt());
  EXPECT_NEAR(now["clock"]["utc"].asDouble(), now["alert"]["since"].asDouble(), 5);
  EXPECT_THAT(now["alert"]["text"].asString(), HasSubstr("test of the emergency"));
  sets("FW CHANNELCHANGE", R"("input":"VSB","major":5,"minor":1)");
  state("its end", [](const Json::Value& s) { return s["alert"].isNull() && plays(s, "5-1"); });

  // A change that fails.
  sets("FW CHANNELCHANGE", R"("input":"VSB","major":77)");
  state("a change", [](const Json::Value& s) { return s["playing"] == "changing"; });
  state("no signal", [](const Json::Value& s) { return s["playing"] == "noSignal"; });
  const Reply raw = post("/api/console", R"({"class":"CN","command":"GETCURSRC"} and more)");
  EXPECT_EQ("VSB", raw.body["reply"]["src"].asString());
  EXPECT_EQ(-1, post("/api/console", "no JSON").body["result"].asInt());
}

TEST_F(WebProgramTelevision, KeepsWhatIsBlockedUntilThePinIsRight) {
  broadcastLineups({"--start", "2026-11-22T01:10:00Z"});
  startService(kFast, {"--fast", "--clock", "2026-11-22T01:10:00Z"});
  startWeb({"--no-console"});
  act("SCAN start", R"("mode":"manual","freq":8)");
  state("a channel", [](const Json::Value& s) { return plays(s, "5-1") && s["now"].isObject(); });
  EXPECT_EQ("console", post("/api/console", command("PC PWDUNLOCK")).body["error"].asString());
  EXPECT_EQ("console", sendWeb("TEST GETSERVICE").body["error"].asString());

  // Without a PIN anybody sets limits, but nothing is unlocked.
  const std::string limit = R"("region":1,"us":{"tv":4,"vio":1},"can":{},"dwn":[])";
  sets("PC STORERATING", limit);
  sets("PC SETPRTDETAIL", R"("pc_enable":1)");
  const auto isBlocked = [](const Json::Value& s) {
    return s["block"]["kind"] == "programme" && s["block"]["reasons"].size() > 0;
  };
  Json::Value now = state("a block", isBlocked);
  EXPECT_EQ("The Long Lock", now["block"]["title"].asString());
  EXPECT_EQ(parsed(R"(["TV-14","V"])"), now["block"]["reasons"]);
  EXPECT_EQ(403, sendWeb("PC PWDUNLOCK", R"("lock_status":1)").status);
  EXPECT_EQ("no-pin", pin(R"("op":"unlock","pin":"1234")").body["error"].asString());

  const std::string grant = pin(R"("op":"set","pin":"1234")").body["grant"].asString();
  EXPECT_EQ(403, sendWeb("PC STORERATING", limit).status);
  EXPECT_EQ(403, sendWeb("PC STORERATING", limit, "0123").status);
  EXPECT_EQ(200, sendWeb("PC STORERATING", limit, grant).status);
  EXPECT_FALSE(pin(R"("op":"unlock","pin":"4321")").body["ok"].asBool());
  EXPECT_TRUE(isBlocked(state()));
  // The scan has played the channel: PWDUNLOCK alone does nothing yet.
  EXPECT_EQ(parsed(R"({"ok":true,"unlocked":true})"), pin(R"("op":"unlock","pin":"1234")").body);
  state("what was blocked plays",
        [](const Json::Value& s) { return s["block"].isNull() && s["unlocked"].asBool(); });
  sets("PC PWDUNLOCK", R"("lock_status":0)");
  state("a block again", isBlocked);

  // A locked channel.
  sets("FW CHANNELMODIFY", R"("major":5,"minor":2,"type":"lock")");
  const std::string target = R"("input":"VSB","major":5,"minor":2)";
  EXPECT_EQ(403, sendWeb("FW CHANNELCHANGE", target + R"(,"password_reqd":0)").status);
  sets("FW CHANNELCHANGE", target);
  now = state("a locked channel", [](const Json::Value& s) {
    return plays(s, "5-2") && s["block"]["kind"] == "locked";
  });
  EXPECT_TRUE(pin(R"("op":"unlock","pin":"1234")").body["unlocked"].asBool());
  EXPECT_TRUE(state()["block"].isNull());
  EXPECT_EQ(403, sendWeb("FW CHANNELMODIFY", R"("major":5,"minor":2,"type":"unlock")").status);
  EXPECT_THAT(web_->err() + service_->err(), testing::Not(HasSubstr("1234\"")));

  // A new service locks the channel again. While nothing plays, only the clock tells what is on.
  restartService({"--fast", "--clock", "2026-11-22T01:59:57Z"});
  state("a locked channel again", [](const Json::Value& s) {
    return s["block"]["kind"] == "locked" && s["now"]["title"] == "Le cinéma, ça se discute";
  });
  sets("FW STOP", "");
  state("the next programme", [](const Json::Value& s) {
    return s["playing"] == "stopped" && s["block"].isNull() &&
           s["now"]["title"] == "Le Garçon qui n'avait pas d'ombre";
  });
}

TEST_F(WebProgramTelevision, FollowsServicesAndOtherTelevisions) {
  broadcastLineups({"--start", "2026-11-22T01:10:00Z"});
  startService(kFast, {"--fast"});
  scan("QAM");
  startWatch();
  startWeb();
  Json::Value now = state("another TV application", [&](const Json::Value& s) {
    return s["otherTv"]["pid"] == watch_->pid() && s["channel"]["number"] == "2-1";
  });
  EXPECT_FALSE(now["registered"].asBool());
  sets("FW CHANNELCHANGE", R"("input":"QAM","major":512)");
  state("a change without callbacks", [](const Json::Value& s) { return plays(s, "512"); });
  sets("FW CHANNELCHANGE", R"("input":"QAM","major":23,"minor":2)");
  state("another one", [](const Json::Value& s) { return plays(s, "23-2"); });
  watch_->kill();  // which leaves its socket
  // The alert that is present was reported to the other one.
  now = state("its alert", [](const Json::Value& s) { return s["alert"].isObject(); });
  EXPECT_TRUE(now["registered"].asBool());
  EXPECT_TRUE(now["otherTv"].isNull());

  const pid_t before = service_->pid();
  service_->kill();
  now = state("no service", [](const Json::Value& s) { return !s["service"]["running"].asBool(); });
  for (const char* member : {"channel", "alert", "scan", "block", "now"}) {
    EXPECT_TRUE(now[member].isNull()) << member;
  }
  EXPECT_EQ(503, sendWeb("FW PLAY").status);
  startService(kFast, {"--fast"});
  now = state("a new service",
              [](const Json::Value& s) { return plays(s, "23-2") && s["alert"].isObject(); });
  EXPECT_NE(before, now["service"]["pid"].asInt());

  // A service that hangs keeps one thread, not the pages and not the end of the program.
  service_->signal(SIGSTOP);
  EXPECT_TRUE(eventually([&] {
    const fs::directory_iterator threads("/proc/" + std::to_string(service_->pid()) + "/task");
    return std::all_of(begin(threads), end(threads), [](const fs::directory_entry& thread) {
      return readFile(thread.path() / "stat").find(") T ") != std::string::npos;
    });
  }));
  std::atomic<int> refused{0};
  const auto play = [&] { refused += sendWeb("FW PLAY").body["error"] == "busy" ? 1 : 0; };
  std::thread first(play);
  std::thread second(play);
  EXPECT_TRUE(eventually([&] { return refused > 0; }));
  EXPECT_TRUE(state()["service"]["running"].asBool());
  EXPECT_EQ(0, web_->stop()) << web_->err();
  first.join();
  second.join();
  service_->signal(SIGCONT);
}

}  // namespace
