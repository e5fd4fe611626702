// The middleware's events on their way to the application.
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

// Reports events one at a time and in order, on a thread of its own that starts with the first one.
// Raising never waits for the application. Any thread.
class EventQueue {
 public:
  EventQueue() = default;
  ~EventQueue();

  // As AIFW_register_frmwrk_app_cb. A call that is running is not awaited; null drops what waits.
  void setCallback(AIFW_app_callback callback);
  bool hasCallback() const;
  // How many events wait to be reported, the one that is being reported not counted.
  size_t waiting() const;

  // Without a callback an event is dropped; so is one that would make too many wait.
  void raise(AFW_event_t event);
  void raiseTime(AFW_event_t event, const SystemTime& time);
  // `text` is UTF-16BE.
  void raiseAlert(AFW_event_t event, std::string text, uint8_t priority);
  // AFW_EPG_UPDATE, in as many events as its source ids (ascending, each once) need; none without
  // any.
  void raiseGuideUpdate(const std::vector<uint16_t>& sourceIds);
  // The same, but for those that wait already.
  void refreshGuide(const std::vector<uint16_t>& sourceIds);
  // What changed in one carrier's guide: AFW_EIT_UPDATE and AFW_ETT_UPDATE as they apply, then
  // AFW_EPG_UPDATE.
  void raiseGuideChange(const Guide::Change& change);

  // Of the event being reported, else of the last one.
  AIFW_event_update_data updateData() const;
  uint8_t alertPriority() const;

  // Drops what waits and joins the thread; no call begins afterwards. With `patience`, detaches the
  // thread if a call does not return in time; in any case the calling one.
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
  bool overflowTold_ GUARDED_BY(mutex_) = false;
  Thread thread_;  // started under the mutex
};

// The source ids of a change, of events and of texts.
std::vector<uint16_t> sourceIdsOf(const Guide::Change& change);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_
