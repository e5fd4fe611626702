#include "receiver/events/event_queue.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"

namespace atschost {
namespace {

// More events than a broadcast raises in hours: the callback does not return.
constexpr size_t kMaxWaiting = 100000;

// Number of waiting events that are compared, from the newest on.
constexpr size_t kRefreshDepth = 32;

}  // namespace

EventQueue::~EventQueue() { shutDown(); }

void EventQueue::setCallback(AIFW_app_callback callback) {
  const MutexLock lock(mutex_);
  callback_ = callback;
  if (!callback) entries_.clear();
}

bool EventQueue::hasCallback() const {
  const MutexLock lock(mutex_);
  return callback_ != nullptr;
}

size_t EventQueue::waiting() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

void EventQueue::raise(AFW_event_t event) {
  Entry entry;
  entry.event = event;
  push(std::move(entry));
}

void EventQueue::raiseTime(AFW_event_t event, const SystemTime& time) {
  Entry entry;
  entry.event = event;
  const int daylight = (time.daylightStatus ? 1 : 0) | (time.daylightDayOfMonth & 0x1F) << 1;
  entry.time = AIFW_time_data{time.gpsSeconds, time.gpsUtcOffset, static_cast<uint8_t>(daylight),
                              time.daylightHour, 0};
  push(std::move(entry));
}

void EventQueue::raiseAlert(AFW_event_t event, std::string text, uint8_t priority) {
  Entry entry;
  entry.event = event;
  entry.isAlert = true;
  entry.text = std::move(text);
  entry.alertPriority = priority;
  push(std::move(entry));
}

void EventQueue::raiseGuideUpdate(const std::vector<uint16_t>& sourceIds) {
  pushGuideUpdate(sourceIds, false);
}

// A waiting event is enough: the application reads the guide when it is notified.
void EventQueue::refreshGuide(const std::vector<uint16_t>& sourceIds) {
  pushGuideUpdate(sourceIds, true);
}

void EventQueue::pushGuideUpdate(const std::vector<uint16_t>& sourceIds, bool unlessWaiting) {
  for (size_t first = 0; first < sourceIds.size(); first += AIFW_MAX_UPDATED_SOURCES) {
    const size_t count = std::min<size_t>(AIFW_MAX_UPDATED_SOURCES, sourceIds.size() - first);
    Entry entry;
    entry.event = AFW_EPG_UPDATE;
    entry.sourceIds.assign(sourceIds.begin() + static_cast<ptrdiff_t>(first),
                           sourceIds.begin() + static_cast<ptrdiff_t>(first + count));
    if (!unlessWaiting || !waits(entry)) push(std::move(entry));
  }
}

bool EventQueue::waits(const Entry& entry) const {
  const MutexLock lock(mutex_);
  const auto& waiting = entries_;
  const auto depth = static_cast<ptrdiff_t>(std::min(waiting.size(), kRefreshDepth));
  return std::any_of(waiting.rbegin(), waiting.rbegin() + depth, [&](const Entry& other) {
    return other.event == entry.event && other.sourceIds == entry.sourceIds;
  });
}

void EventQueue::raiseGuideChange(const Guide::Change& change) {
  if (!change.events.empty()) raise(AFW_EIT_UPDATE);
  if (!change.texts.empty()) raise(AFW_ETT_UPDATE);
  raiseGuideUpdate(sourceIdsOf(change));
}

void EventQueue::push(Entry entry) {
  const MutexLock lock(mutex_);
  if (!callback_ || thread_.isEnding()) return;
  if (entries_.size() >= kMaxWaiting) {
    if (!std::exchange(overflowLogged_, true))
      log().Error("%zu events wait for a callback that has not returned; more are dropped",
                  kMaxWaiting);
    return;
  }
  overflowLogged_ = false;
  entries_.push_back(std::move(entry));
  thread_.start("AFW events", [this] { run(); });
  changed_.notifyAll();
}

AIFW_event_update_data EventQueue::updateData() const {
  AIFW_event_update_data data{};
  const MutexLock lock(mutex_);
  data.count = static_cast<uint32_t>(update_.size());
  std::copy(update_.begin(), update_.end(), data.source_ids);
  return data;
}

uint8_t EventQueue::alertPriority() const {
  const MutexLock lock(mutex_);
  return alertPriority_;
}

void EventQueue::shutDown(std::optional<std::chrono::milliseconds> patience) {
  {
    const MutexLock lock(mutex_);
    thread_.askToEnd();
    entries_.clear();
    changed_.notifyAll();
  }
  const bool isOwn = thread_.isCurrent();
  if (!thread_.join(patience) && !isOwn)
    log().Warn("an event callback has not returned; its thread is left running");
}

void EventQueue::run() {
  MutexLock lock(mutex_);
  for (;;) {
    while (!thread_.isEnding() && entries_.empty()) changed_.wait(lock);
    if (thread_.isEnding()) return;
    Entry entry = std::move(entries_.front());
    entries_.pop_front();
    if (entry.event == AFW_EPG_UPDATE) update_ = entry.sourceIds;
    if (entry.isAlert) alertPriority_ = entry.alertPriority;
    const AIFW_app_callback callback = callback_;
    lock.unlock();
    if (callback) report(callback, entry);
    lock.lock();
  }
}

void EventQueue::report(AIFW_app_callback callback, Entry& entry) {
  multiple_lang_t text{};
  void* data = nullptr;
  if (entry.time) data = &*entry.time;
  if (entry.isAlert) {
    text.text = reinterpret_cast<uint8_t*>(entry.text.data());
    text.length = static_cast<uint16_t>(std::min<size_t>(entry.text.size(), 0xFFFE));
    text.encoding = AI_TEXT_UTF16BE;
    data = &text;
  }
  try {
    callback(entry.event, data);
  } catch (const std::exception& e) {
    log().Error("the callback of event %d threw: %s", entry.event, e.what());
  } catch (...) {
    log().Error("the callback of event %d threw", entry.event);
  }
}

std::vector<uint16_t> sourceIdsOf(const Guide::Change& change) {
  std::vector<uint16_t> all;
  std::set_union(change.events.begin(), change.events.end(), change.texts.begin(),
                 change.texts.end(), std::back_inserter(all));
  return all;
}

}  // namespace atschost
