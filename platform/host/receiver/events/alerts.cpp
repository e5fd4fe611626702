#include "receiver/events/alerts.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "middleware_types.h"
#include "process/log.h"

namespace atschost {
namespace {

// Time that an alert without an end stays after its table was last received.
constexpr std::chrono::seconds kGone(10);
// Minimum interval between two new alerts, so that the application can follow any broadcast.
constexpr std::chrono::seconds kAlertInterval(1);

// alert_priority.
constexpr uint8_t kTestMessage = 0;  // not for receivers in homes
constexpr uint8_t kMedium = 7;
constexpr uint8_t kHigh = 11;  // this priority and maximum are shown over any programme
constexpr uint8_t kMaximum = 15;

constexpr size_t kMaxReported = 256;  // maximum of remembered events

uint64_t hashOf(const EmergencyAlert& alert) {
  return std::hash<std::string>()(alert.originator + alert.eventCode + alert.text) ^
         uint64_t { alert.eventId } << 32 ^ alert.start;
}

// Returns a hash of the fields that all messages about one event share.
size_t eventHashOf(const EmergencyAlert& alert) {
  return std::hash<std::string>()(alert.originator + alert.eventCode) ^
         std::hash<uint16_t>()(alert.eventId) << 8;
}

}  // namespace

void Alerts::receive(const EmergencyAlert& alert, Instant at, std::optional<uint32_t> stationTime) {
  const AlertSettings::Values settings = settings_.get();
  if (!isWanted(alert.priority, settings)) return;
  const size_t sequence = alert.sequence % shown_.size();
  const uint64_t hash = hashOf(alert);
  const size_t event = eventHashOf(alert);
  if (present_ && present_->event == event) present_->lastSeen = at;
  if (shown_[sequence] == hash) return;
  if (!settings.repeatedEvents &&
      std::find(reported_.begin(), reported_.end(), event) != reported_.end())
    return;
  if (present_ && present_->event != event && alert.priority < present_->priority) return;
  if (waiting_ && alert.priority < waiting_->priority) return;
  if (lastNew_ && at - *lastNew_ < kAlertInterval) {
    waiting_ = alert;
    return;
  }
  lastNew_ = at;
  waiting_.reset();
  // The replaced alert starts again if it is still sent after the higher one ends.
  if (present_ && alert.priority > present_->priority) forget(*present_);
  shown_[sequence] = hash;
  // Sequence numbers wrap around: forgets the earlier alerts with the next numbers.
  for (size_t ahead = 1; ahead <= shown_.size() / 2; ++ahead)
    shown_[(sequence + ahead) % shown_.size()].reset();

  endPresent();
  const bool blocking = alert.priority == kHigh || alert.priority == kMaximum;
  log().Info("alert %u, event %u, priority %u, starts", alert.sequence, alert.eventId,
             alert.priority);
  events_.raiseAlert(blocking ? AFW_EAS_START_BLOCKING : AFW_EAS_START_NON_BLOCKING, alert.text,
                     alert.priority);
  reported_.push_back(event);
  if (reported_.size() > kMaxReported) reported_.pop_front();
  Present present;
  present.priority = alert.priority;
  present.sequence = sequence;
  present.event = event;
  present.start = present.lastSeen = at;
  present.remaining = std::chrono::seconds(alert.timeRemaining);
  if (alert.duration > 0 && (alert.start != 0 || stationTime))
    present.eventEnd = (alert.start ? alert.start : *stationTime) + alert.duration * 60u;
  present_ = present;
}

void Alerts::check(Instant at, std::optional<uint32_t> stationTime) {
  if (waiting_ && at - *lastNew_ >= kAlertInterval) {
    const EmergencyAlert alert = *std::exchange(waiting_, std::nullopt);
    receive(alert, at, stationTime);
  }
  if (!present_) return;
  if (!isWanted(present_->priority, settings_.get())) {
    forget(*present_);
    endPresent();
    return;
  }
  if (present_->remaining.count() > 0) {
    if (at - present_->start >= present_->remaining) endPresent();
    return;
  }
  const bool over = present_->eventEnd && stationTime && *stationTime >= *present_->eventEnd;
  if (over || at - present_->lastSeen >= kGone) endPresent();
}

void Alerts::stop() {
  waiting_.reset();
  if (present_) forget(*present_);
  endPresent();
}

bool Alerts::isWanted(uint8_t priority, const AlertSettings::Values& settings) const {
  if (settings.cableOnly && source_ != AI_INPUT_CABLE) return false;
  switch (settings.level) {
    case AIFW_EAS_MEDIUM:
      return priority >= kMedium;
    case AIFW_EAS_HIGH:
      return priority >= kHigh;
    case AIFW_EAS_MAXIMUM:
      return priority >= kMaximum;
    default:
      return priority != kTestMessage;
  }
}

// Lets the alert be reported again.
void Alerts::forget(const Present& alert) {
  shown_[alert.sequence].reset();
  reported_.erase(std::remove(reported_.begin(), reported_.end(), alert.event), reported_.end());
}

void Alerts::endPresent() {
  if (!present_) return;
  present_.reset();
  log().Info("the alert ends");
  events_.raise(AFW_EAS_STOP);
}

}  // namespace atschost
