// Queue of the middleware's events to the application.
#ifndef ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_
#define ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "aifw.h"
#include "process/mutex.h"
#include "process/thread.h"
#include "receiver/station/guide.h"
#include "receiver/tables/system_time.h"

namespace atschost {

// Reports events in order, one at a time, on its own thread, which starts with the first event.
// Raising an event never waits for the application. Any thread.
class EventQueue {
 public:
  EventQueue() = default;
  ~EventQueue();

  // See AIFW_register_frmwrk_app_cb(). Does not wait for a running call. Null drops the waiting
  // events.
  void setCallback(AIFW_app_callback callback);
  bool hasCallback() const;
  // Returns the number of waiting events, without the event that is being reported.
  size_t waiting() const;

  // Queues an event. Drops it if there is no callback or the queue is full.
  void raise(AFW_event_t event);
  void raiseTime(AFW_event_t event, const SystemTime& time);
  // `text` is UTF-16BE.
  void raiseAlert(AFW_event_t event, std::string text, uint8_t priority);
  // Raises as many AFW_EPG_UPDATE events as the source ids need, none for an empty list. The ids
  // are ascending and unique.
  void raiseGuideUpdate(const std::vector<uint16_t>& sourceIds);
  // Like raiseGuideUpdate(), but skips an event that is among the newest 32 waiting events.
  void refreshGuide(const std::vector<uint16_t>& sourceIds);
  // Raises AFW_EIT_UPDATE and AFW_ETT_UPDATE as they apply, then AFW_EPG_UPDATE, for a change of
  // one carrier's guide.
  void raiseGuideChange(const Guide::Change& change);

  // Return the data of the event that is being reported, else of the last event.
  AIFW_event_update_data updateData() const;
  uint8_t alertPriority() const;

  // Drops the waiting events and joins the thread; no call starts afterwards. With `patience`,
  // detaches the thread if a call does not return in time. Called on the thread itself, detaches
  // it.
  void shutDown(std::optional<std::chrono::milliseconds> patience = std::nullopt) EXCLUDES(mutex_);

 private:
  struct Entry {
    AFW_event_t event = AFW_INVALID;
    std::optional<AIFW_time_data> time;
    bool isAlert = false;
    std::string text;
    uint8_t alertPriority = 0;
    std::vector<uint16_t> sourceIds;
  };

  void pushGuideUpdate(const std::vector<uint16_t>& sourceIds, bool unlessWaiting);
  bool waits(const Entry& entry) const;
  void push(Entry entry);
  void run();
  static void report(AIFW_app_callback callback, Entry& entry);

  mutable Mutex mutex_;
  CondVar changed_;
  std::deque<Entry> entries_ GUARDED_BY(mutex_);
  AIFW_app_callback callback_ GUARDED_BY(mutex_) = nullptr;
  std::vector<uint16_t> update_ GUARDED_BY(mutex_);
  uint8_t alertPriority_ GUARDED_BY(mutex_) = 0;
  bool overflowLogged_ GUARDED_BY(mutex_) = false;
  Thread thread_;  // started under the mutex
};

// Returns the source ids of a change, both of events and of texts.
std::vector<uint16_t> sourceIdsOf(const Guide::Change& change);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_
