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
void _ATSC_Service_Task_init();
void SetThreadName(std::thread* thread, const char* name);
void ConvertEASAlertText(Json::Value& message, multiple_lang_t* text);
// NOLINTEND(readability-identifier-naming)

namespace {

using ::testing::EndsWith;

// A derived server, to call the handlers directly.
class Server : public ATSCBUS::ATSCServerService {};

TEST_F(LibraryTest, EventNamesAndQueuesAreThoseOfTheirTables) {
  EXPECT_STREQ("SERVICE_UPDATE_EVENT ", stAFWEvent[4].name);
  EXPECT_STREQ("", stAFWEvent[71].name);
  EXPECT_EQ(0, stAFWEvent[99].id);
  _ATSC_Service_Task_init();
  EXPECT_FALSE(m_cb_thread.joinable() || m_event_update_thread.joinable());
  setenv("ATSC_EVENT_DB", (folder_ / "events.db").c_str(), 1);
  const auto push = [](std::vector<std::string>& list, pthread_mutex_t& mutex, sem_t& sem) {
    pthread_mutex_lock(&mutex);
    list.push_back("{}");
    pthread_mutex_unlock(&mutex);
    sem_post(&sem);
    return fake::waitForSent(1).size();
  };
  EXPECT_EQ(1u, push(m_cb_list, m_cb_prot_mutex_, m_cb_fire_sem));
  fake::reset();
  EXPECT_EQ(1u, push(m_event_update_list, m_event_update_prot_mutex_, m_event_update_fire_sem));
  EXPECT_NE("", fake::logLine("[_ATSC_Service_event_update_task()]"));
  EXPECT_EQ(-1, g_tv_server_backend_default.jsonCommand("", nullptr));
}

TEST_F(LibraryTest, ThreadsOfTheServersAreKnown) {
  tv_thread_tid = static_cast<uint32_t>(gettid());
  send("{}");
  EXPECT_TRUE(fake::logged("Warn", "TV call command({}) in IPC server thread"));
  EXPECT_EQ(static_cast<uint32_t>(gettid()), service_thread_tid);
  tv_thread_tid = 0;
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

TEST_F(LibraryTest, FunctionsLogTheirBeginningAndEnd) {
  std::thread thread([] {});
  SetThreadName(&thread, "n");
  thread.join();
  Json::Value message;
  ConvertEASAlertText(message, nullptr);
  char text[4] = {0, 'A', 0, 0};
  char out[4];
  unsigned char bytes[50];
  uint32_t size = sizeof out;
  Utili_UnicodeToUTF8('A', out);
  Utili_UTF16BEToUTF8Length(text, 3);
  Utili_ConvertUTF16BEToUTF8(text, 3, out, &size);
  AISRV_service_info record{};
  const uint32_t count = 1;
  Utili_allocSrvMem(&record, &count, bytes);
  Utili_printSrvInfo(&record);
  _ATSC_Service_db_getChannelInsert_Command(&record, 0);
  _ATSC_Service_db_getChannelUpdate_Command(&record, 0);
  _ATSC_Service_db_genBkupColumn();
  std::filesystem::remove(folder_ / "columns.json");
  _ATSC_Service_db_cus_init();
  ATSC_Service_db_updateChannelEntryText(nullptr, "", "", "");
  for (const char* function :
       {"SetThreadName", "ConvertEASAlertText", "Utili_UnicodeToUTF8", "Utili_UTF16BEToUTF8Length",
        "Utili_ConvertUTF16BEToUTF8", "Utili_allocSrvMem", "Utili_printSrvInfo",
        "_ATSC_Service_db_getChannelInsert_Command", "_ATSC_Service_db_getChannelUpdate_Command",
        "_ATSC_Service_db_genBkupColumn", "_ATSC_Service_db_cus_init",
        "ATSC_Service_db_updateChannelEntryText"}) {
    EXPECT_THAT(fake::logLine("[" + std::string(function) + "()]"), EndsWith("] LEAVE "))
        << function;
  }
}

TEST_F(LibraryTest, LinesCarryTheFunctionThatTheyAreAbout) {
  const fake::Service service = fake::service(7, 1, 177000000, "A");
  const struct {
    const char* command;
    const char* failing;  // function of the middleware
    const char* function;
  } cases[] = {
      {"FW CHANNELMODIFY", "AISRV_get_total_services", "FW_modifyChannel"},
      {"SCAN stop", "AIFW_play_first_service", "Scan_stop"},
      {"AUD CHANGE", "AIIN_get_db_no_input_details", "AUD_changeAudio"},
      {"TEST GETSERVICE", "AISRV_get_pid_details", "ATSC_Service_db_UpdateChannel"},
      {"TEST GETSERVICE", "AISRV_get_n_services", "ATSC_Service_db_UpdateChannel"},
  };
  for (const auto& each : cases) {
    fake::reset();
    fake::setServices(2, {service});
    fake::setCurrent(service, 2);
    fake::setResult(each.failing, 5);
    ask(each.command);
    EXPECT_NE("", fake::logLine("[" + std::string(each.function) + "()][atsc_serv"))
        << each.function;
    EXPECT_THAT(fake::logLine("Failed to call " + std::string(each.failing) + "()"),
                ::testing::HasSubstr("[" + std::string(each.function) + "()]"))
        << each.failing;
  }
  EXPECT_NE("", fake::logLine("[ATSC_Service_db_UpdateChannel()]"));
  fake::reset();
  ask("FW CHANNELMODIFY");
  EXPECT_EQ("", fake::logLine("channel count"));
  fake::setServices(2, {service});
  ask("TEST GETSERVICE");
  EXPECT_NE("", fake::logLine("[ATSC_Service_db_UpdateChannel()][atsc_service_db_channel.cpp"));
  EXPECT_THAT(fake::logLine("SQL Command"),
              ::testing::HasSubstr("[ATSC_Service_db_UpdateChannel()]"));
}

}  // namespace
