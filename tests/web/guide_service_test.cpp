// The guide of atsc-web while the service rewrites it.
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "apps/system_fixture.h"
#include "guide/guide_routes.h"
#include "guide/guide_store.h"

namespace {

constexpr int kCarriers = 5;
constexpr int kPerCarrier = 2;
constexpr int kGuideHours = 384;
constexpr int kMinutes = 15;

// Returns whether the program runs so slowly that the times of its locks say nothing.
bool isSlow() {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  return true;
#else
  return getenv("ATSC_TEST_EMULATOR") != nullptr;
#endif
}

class WebProgramGuide : public SystemTest {
 protected:
  void broadcastLargeGuide() {
    Json::Value root;
    root["medium"] = "air";
    root["guide_hours"] = kGuideHours;
    for (int i = 0; i < kCarriers; ++i) {
      Json::Value& channel = root["channels"][i];
      channel["frequency"] = 473000000 + i * 6000000;
      channel["tsid"] = i + 1;
      for (int at = 0; at < kPerCarrier; ++at) {
        Json::Value& service = channel["services"][at];
        service["program"] = at + 1;
        service["pmt_pid"] = 48 + at;
        service["major"] = 5 + i;
        service["minor"] = at + 1;
        service["name"] = "S" + std::to_string(i);
        service["source_id"] = at + 1;
        service["streams"] = Json::arrayValue;
        Json::Value& programme = service["programmes"][0];
        programme["minutes"] = kMinutes;
        programme["title"] = "Title of " + std::to_string(i);
        programme["description"] = std::string(200, 'd');
        programme["rating"] = "TV-14";
      }
    }
    writeFile(folder_ / "large.json", Json::FastWriter().write(root));
    broadcast({folder_ / "large.json", "--start", "2026-01-01T00:00:00Z"}, air_);
  }
};

// Five pages ask for all they can at full speed; each rewrite of the service reaches its file, and
// the pages.
TEST_F(WebProgramGuide, NeverKeepsTheServiceFromWriting) {
  broadcastLargeGuide();
  startService();
  scan("VSB");
  act("PC SETPRTDETAIL", "\"pc_enable\":1");
  web::GuideStore store({database_, events_});
  web::Router router;
  addGuideRoutes(router, store);
  const auto ask = [&](const std::string& path, std::map<std::string, std::string> query) {
    query["src"] = "VSB";
    return router.answer({"GET", path, "", query, {}});
  };
  const std::string all = std::to_string(kCarriers * kPerCarrier * kGuideHours * 60 / kMinutes);
  const auto blocked = [&] {
    return valueNow(events_, "SELECT count(*) FROM event_t WHERE parent_stat = 1");
  };
  ASSERT_TRUE(eventually([&] { return valueNow(events_, "SELECT count(*) FROM event_t") == all; }));

  std::atomic<bool> ends = false;
  std::atomic<int> answers = 0;
  std::vector<std::thread> pages;
  for (int i = 0; i < (isSlow() ? 1 : 5); ++i) {
    pages.emplace_back([&] {
      while (!ends) {
        for (const web::Response& response :
             {ask("/api/rows", {{"db", "guide"}, {"offset", "9000"}, {"count", "200"}}),
              ask("/api/rows", {{"db", "channels"}}), ask("/api/search", {{"q", "title"}}),
              ask("/api/channels", {}),
              ask("/api/guide", {{"rows", "1,2,3"}, {"from", "0"}, {"to", "1767312000"}})}) {
          ++answers;
          EXPECT_TRUE(isSlow() || response.status == 200) << response.body;
        }
      }
    });
  }
  for (int round = 0; round < 6; ++round) {
    const bool blocks = round % 2 == 0;
    act("PC STORERATING",
        std::string(R"("region":1,"us":{"tv":)") + (blocks ? "4" : "0") + R"(},"can":{},"dwn":[])");
    EXPECT_TRUE(eventually([&] { return blocked() == (blocks ? all : "0"); })) << blocked();
    store.guideChanged();
    EXPECT_TRUE(eventually([&] {
      const web::NowNext on = store.nowNext("VSB", "9-2-497000000", 1767312000);
      return on.now && on.now->blocked == blocks;
    }));
  }
  ends = true;
  for (std::thread& page : pages) page.join();
  EXPECT_LT(100, answers);
  EXPECT_TRUE(isSlow() || service_->count("database is locked") == 0);
}

}  // namespace
