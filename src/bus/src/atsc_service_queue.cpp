// The two callback queues.
#include <aicn.h>
#include <atsc/atsc_service.h>

#include <cstring>
#include <exception>

#include "atsc_log.h"
#include "atsc_service_db.h"
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
  const char* const threadName;
  void (*const task)();
  atsc::Immortal<std::vector<std::string>>& list;
  sem_t& fireSem;
  pthread_mutex_t& protMutex;
  std::thread& thread;
  size_t nextWarning = kManyWaiting;  // under protMutex: length of the list to be logged next

  void start();
  void push(std::string message);
  std::string next();
  size_t size();
};

Queue gEventUpdate{"ATSC_Service_event_update", _ATSC_Service_event_update_task,
                   m_event_update_list,         m_event_update_fire_sem,
                   m_event_update_prot_mutex_,  m_event_update_thread};
Queue gCb{"ATSC_Service_cb", _ATSC_Service_cb_task, m_cb_list,
          m_cb_fire_sem,     m_cb_prot_mutex_,      m_cb_thread};

void Queue::start() {
  sem_init(&fireSem, 0, 0);
  pthread_mutex_lock(&protMutex);
  list->clear();
  pthread_mutex_unlock(&protMutex);
  thread = std::thread(task);
  SetThreadName(&thread, threadName);
  thread.detach();
}

void Queue::push(std::string message) {
  size_t many = 0;
  pthread_mutex_lock(&protMutex);
  try {
    list->push_back(std::move(message));
  } catch (...) {
    pthread_mutex_unlock(&protMutex);
    throw;
  }
  if (list->size() > nextWarning) {
    many = list->size();
    nextWarning = 2 * many;
  }
  pthread_mutex_unlock(&protMutex);
  sem_post(&fireSem);
  if (many != 0) {
    ATSC_LOG(Warn, "%s: %zu messages wait for the TV application", threadName, many);
  }
}

// Waits for a post and removes the first message. Returns an empty text when there is no message.
std::string Queue::next() {
  while (sem_wait(&fireSem) != 0) {
  }
  std::string message;
  pthread_mutex_lock(&protMutex);
  if (!list->empty()) {
    message = std::move(list->front());
    list->erase(list->begin());
  }
  if (list->size() <= kManyWaiting / 2) nextWarning = kManyWaiting;
  pthread_mutex_unlock(&protMutex);
  return message;
}

// Returns the number of messages.
size_t Queue::size() {
  pthread_mutex_lock(&protMutex);
  const size_t size = list->size();
  pthread_mutex_unlock(&protMutex);
  return size;
}

}  // namespace

void _ATSC_Service_event_update_task() {
  ATSC_ENTER();
  // The guide was written for this input after the next `covered` messages had come.
  int written = 0;
  size_t covered = 0;
  for (;;) {
    const std::string message = gEventUpdate.next();
    const bool isCovered = covered > 0;
    if (isCovered) --covered;
    if (message.empty()) continue;
    const int source = AICN_get_curr_input_source();
    if (!isCovered || source != written) {
      const size_t waiting = gEventUpdate.size();
      ATSC_Service_db_UpdateEvent(source);
      written = source;
      covered = gEvent_DB_written ? waiting : 0;
    }
    ATSC_LOG(Debug, "evevnt update callback command: %s", message.c_str());
    ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
    ATSC_LOG(Debug, "end callback command");
  }
}

void _ATSC_Service_cb_task() {
  ATSC_ENTER();
  for (;;) {
    const std::string message = gCb.next();
    if (message.empty()) continue;
    ATSC_LOG(Debug, "start callback command: %s", message.c_str());
    ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
    ATSC_LOG(Debug, "end callback command");
  }
}

namespace atsc {

void pushGuideMessage(std::string message) { gEventUpdate.push(std::move(message)); }

void pushMessage(std::string message) { gCb.push(std::move(message)); }

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
  for (Queue* queue : {&gEventUpdate, &gCb}) {
    try {
      queue->start();
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "callback thread: %s", e.what());
    }
  }
  ATSC_LEAVE();
}
