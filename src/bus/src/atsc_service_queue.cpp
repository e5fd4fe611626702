// The two callback queues.
#include <aicn.h>
#include <atsc/atsc_service.h>

#include <cstring>
#include <exception>

#include "atsc_log.h"
#include "atsc_service_event.h"

ATSC_LOGGER("atsc/service")

atsc::Immortal<std::vector<std::string>> m_event_update_list;
sem_t m_event_update_fire_sem;
pthread_mutex_t m_event_update_prot_mutex_ = PTHREAD_MUTEX_INITIALIZER;
std::thread m_event_update_thread;

atsc::Immortal<std::vector<std::string>> m_cb_list;
sem_t m_cb_fire_sem;
pthread_mutex_t m_cb_prot_mutex_ = PTHREAD_MUTEX_INITIALIZER;
std::thread m_cb_thread;

namespace {

// Length from which a queue is logged: the first time, each time the length has doubled, and again
// after the length has halved.
constexpr size_t kManyWaiting = 1000;

// One callback queue.
struct Queue {
  const char* const thread_name;
  void (*const task)();
  atsc::Immortal<std::vector<std::string>>& list;
  sem_t& fire_sem;
  pthread_mutex_t& prot_mutex;
  std::thread& thread;
  size_t next_warning = kManyWaiting;  // under prot_mutex: length of the list to be logged next

  void start();
  void push(std::string message);
  std::string next();
};

Queue g_event_update{"ATSC_Service_event_update", _ATSC_Service_event_update_task,
                     m_event_update_list,         m_event_update_fire_sem,
                     m_event_update_prot_mutex_,  m_event_update_thread};
Queue g_cb{"ATSC_Service_cb", _ATSC_Service_cb_task, m_cb_list,
           m_cb_fire_sem,     m_cb_prot_mutex_,      m_cb_thread};

void Queue::start() {
  sem_init(&fire_sem, 0, 0);
  pthread_mutex_lock(&prot_mutex);
  list->clear();
  pthread_mutex_unlock(&prot_mutex);
  thread = std::thread(task);
  SetThreadName(&thread, thread_name);
  thread.detach();
}

void Queue::push(std::string message) {
  size_t many = 0;
  pthread_mutex_lock(&prot_mutex);
  try {
    list->push_back(std::move(message));
  } catch (...) {
    pthread_mutex_unlock(&prot_mutex);
    throw;
  }
  if (list->size() > next_warning) {
    many = list->size();
    next_warning = 2 * many;
  }
  pthread_mutex_unlock(&prot_mutex);
  sem_post(&fire_sem);
  if (many != 0) {
    ATSC_LOG(Warn, "%s: %zu messages wait for the TV application", thread_name, many);
  }
}

// Waits for a post and removes the first message. Returns an empty text when there is no message.
std::string Queue::next() {
  while (sem_wait(&fire_sem) != 0) {
  }
  std::string message;
  pthread_mutex_lock(&prot_mutex);
  if (!list->empty()) {
    message = std::move(list->front());
    list->erase(list->begin());
  }
  if (list->size() <= kManyWaiting / 2) next_warning = kManyWaiting;
  pthread_mutex_unlock(&prot_mutex);
  return message;
}

}  // namespace

void _ATSC_Service_event_update_task() {
  ATSC_ENTER();
  for (;;) {
    const std::string message = g_event_update.next();
    if (message.empty()) continue;
    const int source = AICN_get_curr_input_source();
    ATSC_Service_db_UpdateEvent(source);
    ATSC_LOG(Debug, "evevnt update callback command: %s", message.c_str());
    ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
    ATSC_LOG(Debug, "end callback command");
  }
}

void _ATSC_Service_cb_task() {
  ATSC_ENTER();
  for (;;) {
    const std::string message = g_cb.next();
    if (message.empty()) continue;
    ATSC_LOG(Debug, "start callback command: %s", message.c_str());
    ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
    ATSC_LOG(Debug, "end callback command");
  }
}

namespace atsc {

void pushGuideMessage(std::string message) { g_event_update.push(std::move(message)); }

void pushMessage(std::string message) { g_cb.push(std::move(message)); }

}  // namespace atsc

void SetThreadName(std::thread* thread, const char* name) {
  ATSC_ENTER();
  char text[16] = {};  // the system's limit
  strncpy(text, name, sizeof text - 1);
  pthread_setname_np(thread->native_handle(), text);
  ATSC_LEAVE();
}

void _ATSC_Service_Task_init() {
  ATSC_ENTER();
  for (Queue* queue : {&g_event_update, &g_cb}) {
    try {
      queue->start();
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "callback thread: %s", e.what());
    }
  }
  ATSC_LEAVE();
}
