// The two callback queues.
#include <aicn.h>
#include <atsc/atsc_service.h>
#include <pthread.h>

#include <cstring>
#include <exception>

#include "atsc_log.h"
#include "atsc_service_event.h"

ATSC_LOGGER("atsc/service")

namespace {

// A queue longer than this is logged, again whenever it has doubled, and anew once it has halved.
constexpr size_t kManyWaiting = 1000;

void _ATSC_Service_cb_task(const std::string& message) {
  ATSC_LOG(Debug, "start callback command: %s", message.c_str());
  ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
  ATSC_LOG(Debug, "end callback command");
}

void _ATSC_Service_event_update_task(const std::string& message) {
  const int source = AICN_get_curr_input_source();
  ATSC_Service_db_UpdateEvent(source);
  ATSC_LOG(Debug, "evevnt update callback command: %s", message.c_str());
  ATSC_TransmitTVClientJSONCommand(message.c_str(), nullptr);
  ATSC_LOG(Debug, "end callback command");
}

}  // namespace

atsc::Immortal<atsc::CallbackQueue> m_event_update("ATSC_Service_event_update",
                                                   _ATSC_Service_event_update_task);
atsc::Immortal<atsc::CallbackQueue> m_cb("ATSC_Service_cb", _ATSC_Service_cb_task);

namespace atsc {

void CallbackQueue::start() {
  sem_init(&fire_sem_, 0, 0);
  {
    std::lock_guard<std::mutex> lock(prot_mutex_);
    list_.clear();
  }
  thread_ = std::thread(&CallbackQueue::run, this);
  SetThreadName(&thread_, thread_name_);
  thread_.detach();
}

void CallbackQueue::push(std::string message) {
  size_t many = 0;
  {
    std::lock_guard<std::mutex> lock(prot_mutex_);
    list_.push_back(std::move(message));
    if (list_.size() > next_warning_) {
      many = list_.size();
      next_warning_ = 2 * many;
    }
  }
  sem_post(&fire_sem_);
  if (many != 0) {
    ATSC_LOG(Warn, "%s: %zu messages wait for the TV application", thread_name_, many);
  }
}

void CallbackQueue::run() {
  for (;;) {
    while (sem_wait(&fire_sem_) != 0) {
    }
    std::string message;
    {
      std::lock_guard<std::mutex> lock(prot_mutex_);
      if (!list_.empty()) {
        message = std::move(list_.front());
        list_.pop_front();
      }
      if (list_.size() <= kManyWaiting / 2) next_warning_ = kManyWaiting;
    }
    if (message.empty()) continue;
    try {
      send_(message);
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "callback lost: %s", e.what());
    }
  }
}

}  // namespace atsc

void SetThreadName(std::thread* thread, const char* name) {
  char text[16] = {};  // the system's limit
  strncpy(text, name, sizeof text - 1);
  pthread_setname_np(thread->native_handle(), text);
}

void _ATSC_Service_Task_init() {
  ATSC_ENTER();
  for (atsc::CallbackQueue* queue : {&*m_event_update, &*m_cb}) {
    try {
      queue->start();
    } catch (const std::exception& e) {
      ATSC_LOG(Error, "callback thread: %s", e.what());
    }
  }
  ATSC_LEAVE();
}
