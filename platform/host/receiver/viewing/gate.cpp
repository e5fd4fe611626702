#include "receiver/viewing/gate.h"

namespace atschost {
namespace {

constexpr std::chrono::seconds kTellInterval(1);

}  // namespace

void Gate::set_password_required(bool required) {
  password_required_ = required;
  // One that was given for a channel that then could not play is not for the next one.
  if (required) password_given_ = false;
}

void Gate::set_password_given(bool given) {
  password_given_ = given && !playing_;
  if (!playing_) return;
  playing_->opened = given;
  tell_lock();
}

bool Gate::set_unlocked(bool unlocked) {
  if (!playing_) return false;
  playing_->unlocked = unlocked;
  tell_lock();
  if (auto finding = playing_->finding)
    judge(std::move(finding->programme), std::move(finding->why), true, {});
  return true;
}

void Gate::begin(bool locked) {
  Playing playing;
  playing.locked = locked;
  playing.lock_holds = locked && password_required_;
  playing.opened = std::exchange(password_given_, false);
  playing_ = std::move(playing);
  if (is_closed()) told_closed_ = false;  // it is told of each
  tell_lock();
}

void Gate::forget() {
  stop();
  password_given_ = false;
}

void Gate::set_locked(bool locked) {
  if (!playing_ || playing_->locked == locked) return;
  playing_->locked = locked;
  playing_->lock_holds = locked && (playing_->lock_holds || !from_application_);
  playing_->opened = false;
  tell_lock();
}

bool Gate::is_closed() const {
  return playing_ && playing_->lock_holds && !playing_->opened && !playing_->unlocked;
}

void Gate::tell_lock() {
  if (told_closed_ == is_closed()) return;
  told_closed_ = is_closed();
  raise_(told_closed_ ? AFW_CHANNEL_LOCKED : AFW_CHANNEL_UNLOCKED);
}

bool Gate::judge(ProgrammeId programme, std::string why, bool asked, Instant at) {
  if (!playing_) return false;
  playing_->finding = Finding{programme, why};
  const bool blocked = !why.empty() && !playing_->unlocked;
  const bool another = blocked && !(playing_->told && playing_->told->same(programme));
  bool news = asked;
  if (told_blocked_ != blocked || another) {
    // What is to be kept away does not wait.
    const bool closes = blocked && playing_->why_blocked.empty();
    if (!asked && !closes && at < playing_->next_tell) return false;
    if (!asked) playing_->next_tell = at + kTellInterval;
    told_blocked_ = blocked;
    news = true;
    raise_(blocked ? AFW_PARENTAL_BLOCKED : AFW_PARENTAL_UNBLOCKED);
  }
  if (!blocked) {
    playing_->told.reset();
    why.clear();
  } else {
    // The guide may lose sight of it for a while.
    if (!another && !programme.event) programme.event = playing_->told->event;
    playing_->told = std::move(programme);
  }
  // The words for one and the same rating may change on the air, too.
  return news && std::exchange(playing_->why_blocked, why) != why;
}

}  // namespace atschost
