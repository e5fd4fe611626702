// Names and types that a program which links the library's objects declares itself, without our
// headers.
#include <aifw.h>
#include <atsc/atsc_tv_server_backend.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <thread>

#include "fixture.h"

// NOLINTBEGIN(readability-identifier-naming)
struct EventName {
  char name[52];
  int32_t id;
};
extern const EventName stAFWEvent[100];
extern std::atomic<uint32_t> service_thread_tid, tv_thread_tid;
extern ATSCBUS::ATSCTVServerBackend g_tv_server_backend_default;
extern std::vector<std::string> m_cb_list, m_event_update_list;
extern sem_t m_cb_fire_sem, m_event_update_fire_sem;
extern pthread_mutex_t m_cb_prot_mutex_, m_event_update_prot_mutex_;
extern std::thread m_cb_thread, m_event_update_thread;
void _ATSC_Service_cb_task();
void _ATSC_Service_event_update_task();
// NOLINTEND(readability-identifier-naming)

namespace {

// A derived server, to call the handlers directly.
class Server : public ATSCBUS::ATSCServerService {};

TEST_F(LibraryTest, EventNamesAndQueuesAreThoseOfTheirTables) {
  EXPECT_STREQ("SERVICE_UPDATE_EVENT ", stAFWEvent[4].name);
  startQueues();
  EXPECT_FALSE(m_cb_thread.joinable() || m_event_update_thread.joinable());
  const auto push = [](Lines& list, pthread_mutex_t& mutex, sem_t& sem) {
    fake::reset();
    pthread_mutex_lock(&mutex);
    list.push_back("{}");
    pthread_mutex_unlock(&mutex);
    sem_post(&sem);
    return fake::waitForSent(1);
  };
  EXPECT_EQ(Lines{"{}"}, push(m_cb_list, m_cb_prot_mutex_, m_cb_fire_sem));
  EXPECT_EQ(Lines{"{}"},
            push(m_event_update_list, m_event_update_prot_mutex_, m_event_update_fire_sem));
  EXPECT_NE("", fake::logLine("[_ATSC_Service_event_update_task()]"));
  EXPECT_EQ(-1, g_tv_server_backend_default.jsonCommand("", nullptr));
  // A thread of a server that sends a command to it blocks itself.
  EXPECT_EQ(0u, service_thread_tid);
  tv_thread_tid = static_cast<uint32_t>(gettid());
  send("{}");
  tv_thread_tid = 0;
  EXPECT_EQ(static_cast<uint32_t>(gettid()), service_thread_tid);
  std::thread([] { ATSC_TransmitTVClientJSONCommand("1", nullptr); }).join();
  ATSC_TransmitTVClientJSONCommand("2", nullptr);
  EXPECT_EQ((Lines{"TV call command({}) in IPC server thread",
                   "Service call command(2) in IPC server thread"}),
            logsOf("Warn"));
}

TEST_F(LibraryTest, HandlersCanBeCalledByThemselves) {
  Server server;
  Json::Value wrong;
  wrong["mode"] = wrong["first"] = wrong["major"] = Json::Value(Json::objectValue);
  EXPECT_EQ(-1, server.AUD_setDualMode(wrong));
  EXPECT_EQ(-1, server.CN_setPreAudLang(wrong));
  EXPECT_EQ(0, server.FW_changeChannel(wrong));
  EXPECT_EQ(0, server.Time_setSyncMode(wrong));
}

TEST_F(LibraryTest, LinesCarryTheFunctionThatTheyAreAbout) {
  EXPECT_THAT(fake::loggers(), testing::ElementsAre(testing::Pair("not_sure_how_work", "atsc")));
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"FW CHANNELMODIFY", "AISRV_get_total_services", "FW_modifyChannel"},
      {"SCAN stop", "AIFW_play_first_service", "Scan_stop"},
      {"AUD CHANGE", "AIIN_get_db_no_input_details", "AUD_changeAudio"},
      {"TEST GETSERVICE", "AISRV_get_pid_details", "ATSC_Service_db_UpdateChannel"},
      {"TEST GETSERVICE", "AISRV_get_n_services", "ATSC_Service_db_UpdateChannel"},
  };
  for (const auto& [request, failing, function] : cases) {
    fake::reset();
    fake::setServices(2, {fake::service(7, 1, 177000000, "A")});
    fake::setCurrent(fake::service(7, 1, 177000000, "A"), 2);
    fake::setResult(failing, 5);
    ask(request);
    const std::string place = "[" + std::string(function) + "()]";
    EXPECT_NE("", fake::logLine(place + "[atsc_serv"));
    EXPECT_THAT(fake::logLine("Failed to call " + std::string(failing) + "()"),
                ::testing::HasSubstr(place));
  }
}

}  // namespace
