// The middleware's events on their way to the application.
#ifndef ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_
#define ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "aifw.h"
#include "receiver/station/guide.h"

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

  // Drops what waits and joins the thread; no call begins afterwards. A call that does not return
  // within `patience`, and the calling one, is left alone.
  void shutDown(std::chrono::milliseconds patience);

 private:
  struct Entry {
    AFW_event_t event = AFW_INVALID;
    std::optional<AIFW_time_data> time;
    bool isAlert = false;
    std::string text;
    uint8_t alertPriority = 0;
    std::vector<uint16_t> sourceIds;
  };
  // Shared with the thread, which may outlive the queue.
  struct State {
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Entry> entries;
    AIFW_app_callback callback = nullptr;
    std::vector<uint16_t> update;
    uint8_t alertPriority = 0;
    bool overflowTold = false;
    bool ending = false;
    bool ended = false;  // the thread is about to end
  };

  void pushGuideUpdate(const std::vector<uint16_t>& sourceIds, bool unlessWaiting);
  bool waits(const Entry& entry) const;
  void push(Entry entry);
  static void run(State& state);
  static void report(AIFW_app_callback callback, Entry& entry);

  const std::shared_ptr<State> state_ = std::make_shared<State>();
  std::thread thread_;  // guarded by the state's mutex
};

// The source ids of a change, of events and of texts.
std::vector<uint16_t> sourceIdsOf(const Guide::Change& change);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_EVENTS_EVENT_QUEUE_H_
