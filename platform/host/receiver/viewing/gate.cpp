#include "receiver/viewing/gate.h"

namespace atschost {
namespace {

constexpr std::chrono::seconds kEventInterval(1);

}  // namespace

void Gate::setPasswordRequired(bool required) {
  passwordRequired_ = required;
  // A password that was given for a channel that could not play does not apply to the next channel.
  if (required) passwordGiven_ = false;
}

void Gate::setPasswordGiven(bool given) {
  passwordGiven_ = given && !playing_;
  if (!playing_) return;
  playing_->opened = given;
  raiseLock();
}

bool Gate::setUnlocked(bool unlocked) {
  if (!playing_) return false;
  playing_->unlocked = unlocked;
  raiseLock();
  if (auto finding = playing_->finding)
    judge(std::move(finding->programme), std::move(finding->why), true, {});
  return true;
}

void Gate::begin(bool locked) {
  Playing playing;
  playing.locked = locked;
  playing.lockHolds = locked && passwordRequired_;
  playing.opened = std::exchange(passwordGiven_, false);
  playing_ = std::move(playing);
  if (isClosed()) lastRaisedClosed_ = false;  // each locked service raises an event
  raiseLock();
}

void Gate::forget() {
  stop();
  passwordGiven_ = false;
}

void Gate::setLocked(bool locked) {
  if (!playing_ || playing_->locked == locked) return;
  playing_->locked = locked;
  playing_->lockHolds = locked && (playing_->lockHolds || !fromApplication_);
  playing_->opened = false;
  raiseLock();
}

bool Gate::isClosed() const {
  return playing_ && playing_->lockHolds && !playing_->opened && !playing_->unlocked;
}

void Gate::raiseLock() {
  if (lastRaisedClosed_ == isClosed()) return;
  lastRaisedClosed_ = isClosed();
  raise_(lastRaisedClosed_ ? AFW_CHANNEL_LOCKED : AFW_CHANNEL_UNLOCKED);
}

bool Gate::judge(ProgrammeId programme, std::string why, bool asked, Instant at) {
  if (!playing_) return false;
  playing_->finding = Finding{programme, why};
  const bool blocked = !why.empty() && !playing_->unlocked;
  const bool another = blocked && !(playing_->reported && playing_->reported->same(programme));
  bool news = asked;
  if (lastRaisedBlocked_ != blocked || another) {
    // A new block is raised without delay.
    const bool closes = blocked && playing_->whyBlocked.empty();
    if (!asked && !closes && at < playing_->nextEvent) return false;
    if (!asked) playing_->nextEvent = at + kEventInterval;
    lastRaisedBlocked_ = blocked;
    news = true;
    raise_(blocked ? AFW_PARENTAL_BLOCKED : AFW_PARENTAL_UNBLOCKED);
  }
  if (!blocked) {
    playing_->reported.reset();
    why.clear();
  } else {
    // The event may be missing in the guide for a while.
    if (!another && !programme.event) programme.event = playing_->reported->event;
    playing_->reported = std::move(programme);
  }
  // The text of the same rating can also change on the air.
  return news && std::exchange(playing_->whyBlocked, why) != why;
}

}  // namespace atschost
