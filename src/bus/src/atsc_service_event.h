// The event pipeline: events of the middleware become callback messages to the TV application.
#ifndef ATSC_ATSC_SERVICE_EVENT_H_
#define ATSC_ATSC_SERVICE_EVENT_H_

#include <aifw.h>
#include <json/json.h>
#include <osal.h>
#include <pthread.h>
#include <semaphore.h>

#include <string>
#include <thread>
#include <vector>

#include "atsc_immortal.h"

// The name of an event in the log.
struct AFWEvent {
  char name[52];
  int32_t id;
};
static_assert(sizeof(AFWEvent) == 56, "a row of the table of names");

// The events' names, by event number.
extern const AFWEvent stAFWEvent[100];

// The messages that wait for the TV application, first come first; each list under its mutex, with
// one post of its semaphore for each message pushed. They live until the process has ended.
//
// Guide messages: the guide's table is rewritten before each is sent.
extern atsc::Immortal<std::vector<std::string>> m_event_update_list;
extern sem_t m_event_update_fire_sem;
extern pthread_mutex_t m_event_update_prot_mutex_;
extern std::thread m_event_update_thread;  // detached
// All other callbacks.
extern atsc::Immortal<std::vector<std::string>> m_cb_list;
extern sem_t m_cb_fire_sem;
extern pthread_mutex_t m_cb_prot_mutex_;
extern std::thread m_cb_thread;  // detached

// The threads of the queues: send the messages in order, without a lock.
[[noreturn]] void _ATSC_Service_event_update_task();
[[noreturn]] void _ATSC_Service_cb_task();

// Starts both queues.
void _ATSC_Service_Task_init();

namespace atsc {

// Append a message to a queue. Any thread; they never wait for the TV application.
void pushGuideMessage(std::string message);
void pushMessage(std::string message);

}  // namespace atsc

// Names a started thread; what the system's 15 characters do not hold is cut.
void SetThreadName(std::thread* thread, const char* name);

// The timer that runs from a change of the service list to the synchronisation; 0 before
// ATSC_Service_init().
extern OSAL_timer_id service_update_tmr_id;

// Brings the current source's channel table in line with the service list and announces a change.
void service_db_service_update_tm_callback(void* arg, int value);

// Builds the callback message of an event and queues it. `data` is that of the event; any thread.
void _ATSC_Service_CB_To_TV(AFW_event_t event, void* data);

// Sets "text" to the alert's text in UTF-8; nothing without a text.
void ConvertEASAlertText(Json::Value& message, multiple_lang_t* text);

#endif  // ATSC_ATSC_SERVICE_EVENT_H_
