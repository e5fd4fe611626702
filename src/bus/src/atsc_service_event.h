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

// Name of an event in the log.
struct AFWEvent {
  char name[52];
  int32_t id;
};
static_assert(sizeof(AFWEvent) == 56, "a row of the table of names");

// Names of the events, by event number.
extern const AFWEvent stAFWEvent[100];

// The queues of messages for the TV application, in order of arrival. The mutex guards the list;
// each pushed message posts the semaphore once. The queues exist until the process has ended.
//
// Guide messages. The guide table is rewritten before each message is sent.
extern atsc::Immortal<std::vector<std::string>> m_event_update_list;
extern sem_t m_event_update_fire_sem;
extern pthread_mutex_t m_event_update_prot_mutex_;
extern std::thread m_event_update_thread;  // detached
// All other callbacks.
extern atsc::Immortal<std::vector<std::string>> m_cb_list;
extern sem_t m_cb_fire_sem;
extern pthread_mutex_t m_cb_prot_mutex_;
extern std::thread m_cb_thread;  // detached

// The threads of the queues. They send the messages in order and hold no lock meanwhile.
[[noreturn]] void _ATSC_Service_event_update_task();
[[noreturn]] void _ATSC_Service_cb_task();

// Starts both queues.
void _ATSC_Service_Task_init();

namespace atsc {

// Append a message to a queue. Any thread. Do not wait for the TV application.
void pushGuideMessage(std::string message);
void pushMessage(std::string message);

}  // namespace atsc

// Names a started thread. Cuts the name to the 15 characters of the system.
void SetThreadName(std::thread* thread, const char* name);

// The timer between a change of the service list and the synchronisation; 0 before
// ATSC_Service_init().
extern OSAL_timer_id service_update_tmr_id;

// Synchronises the channel table of the current source and reports a change to the TV application.
void service_db_service_update_tm_callback(void* arg, int value);

// Builds the callback message of an event and queues it. `data` is the data of the event. Any
// thread.
void _ATSC_Service_CB_To_TV(AFW_event_t event, void* data);

// Sets "text" to the alert's text in UTF-8. Does nothing without a text.
void ConvertEASAlertText(Json::Value& message, multiple_lang_t* text);

#endif  // ATSC_ATSC_SERVICE_EVENT_H_
