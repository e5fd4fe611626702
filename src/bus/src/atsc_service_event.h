// The event pipeline: events of the middleware become callback messages to the TV application.
#ifndef ATSC_ATSC_SERVICE_EVENT_H_
#define ATSC_ATSC_SERVICE_EVENT_H_

#include <aifw.h>
#include <json/json.h>
#include <osal.h>
#include <semaphore.h>

#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "atsc_immortal.h"

namespace atsc {

// A queue of messages to the TV application and the thread that sends them, in order. Lives until
// the process has ended.
class CallbackQueue {
 public:
  using Send = void (*)(const std::string& message);

  // `send` is called on the queue's thread, without a lock, for each message.
  CallbackQueue(const char* thread_name, Send send) : thread_name_(thread_name), send_(send) {}

  // Empties the queue and starts its thread.
  void start();

  // Appends a message. Any thread; never waits for the TV application.
  void push(std::string message);

 private:
  void run();

  const char* const thread_name_;
  const Send send_;
  sem_t fire_sem_{};  // one post for each message
  std::mutex prot_mutex_;
  std::deque<std::string> list_;  // under prot_mutex_
  size_t next_warning_ = 1000;    // under prot_mutex_: length of the list to be logged next
  std::thread thread_;            // detached
};

}  // namespace atsc

// Guide messages: the guide's table is rewritten before each is sent.
extern atsc::Immortal<atsc::CallbackQueue> m_event_update;
// All other callbacks.
extern atsc::Immortal<atsc::CallbackQueue> m_cb;

// Starts both queues.
void _ATSC_Service_Task_init();

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
