#include "television/viewing_state.h"

#include <cmath>
#include <ctime>
#include <functional>
#include <map>

#include "common/json.h"

namespace web {
namespace {

// No callback reports that a change failed.
constexpr std::chrono::seconds kChangeLasts(5);
// Nor that it was made, if another TV application gets the callbacks.
constexpr std::chrono::seconds kUnreportedChange(1);

std::string stringMember(const Json::Value& object, const char* key) {
  return object[key].isString() ? object[key].asString() : "";
}

// Names a command: "FW PLAY".
std::string nameOf(const Json::Value& command) {
  return stringMember(command, "class") + ' ' + stringMember(command, "command");
}

// Reads a value as the service does. What it refuses does not matter.
bool isTrue(const Json::Value& value) {
  return value == true || (value.isNumeric() && value.asDouble() != 0);
}

}  // namespace

std::string ViewingState::Current::key() const {
  return std::to_string(major) + '-' + std::to_string(minor) + '-' + std::to_string(frequency);
}

// A cable channel with a one-part number (A/65 6.3.2) has the minor number 0.
std::string ViewingState::Current::number() const {
  const std::string first = std::to_string(major);
  return minor == 0 && source == &apps::kSources[1] ? first : first + '-' + std::to_string(minor);
}

void ViewingState::reset() {
  const bool standby = standby_;
  const apps::ReceiverClock setting = setting_;
  const ReceiverTime time = time_;
  const uint64_t plays = plays_;
  const bool callbacks = getsCallbacks;
  *this = ViewingState();
  standby_ = standby;
  setting_ = setting;
  time_ = time;
  plays_ = plays;
  getsCallbacks = callbacks;
  questions = {true, true, false, true, true, true, true};
  channelsChanged = guideChanged = true;
}

// Nothing plays: no callback reports that the reasons of a block are gone.
void ViewingState::stop() {
  playing_ = Playing::kStopped;
  locked_ = blocked_ = unlocked_ = unlockAsked_ = false;
}

void ViewingState::change(Clock::time_point now) {
  playing_ = Playing::kChanging;
  changeEnds_ = now + (getsCallbacks ? kChangeLasts : kUnreportedChange);
  opensNext_ = false;
}

void ViewingState::callback(const Json::Value& message, Clock::time_point now) {
  using Handler = void (*)(ViewingState&, const Json::Value&, Clock::time_point);
  const Handler limits = [](ViewingState& s, const Json::Value&, Clock::time_point) {
    s.questions.viewing = s.questions.limits = true;
  };
  const Handler guide = [](ViewingState& s, const Json::Value&, Clock::time_point) {
    s.guideChanged = s.questions.viewing = true;
  };
  const Handler clock = [](ViewingState& s, const Json::Value&, Clock::time_point) {
    s.questions.clock = true;
  };
  const Handler alert = [](ViewingState& s, const Json::Value& message, Clock::time_point now) {
    s.alert_ = Json::objectValue;
    s.alert_["blocking"] = message["cbtype"] == "EASSTARTBLOCKING";
    s.alert_["text"] = stringMember(message, "text");
    s.alert_["priority"] = Json::Int64{apps::integer(message, "priority")};
    s.alert_["since"] =
        Json::Int64{s.time_.isKnown() ? std::llround(s.time_.at(now)) : std::time(nullptr)};
  };
  static const std::map<std::string, Handler> handlers = {
      {"SCAN",
       [](ViewingState& s, const Json::Value& message, Clock::time_point now) {
         const bool before = s.scan_.isRunning();
         s.scan_.update(message, *s.source_, now);
         if (!before && s.scan_.isRunning()) s.stop();
         if (message["msg"] != "OVER") return;
         s.channelsChanged = s.questions.channel = true;
         // The first channel plays, if there is one.
         const bool plays = s.playing_ == Playing::kPlaying;  // it has been reported already
         if (apps::integer(message, "ser_found") > 0 && !plays && !s.standby_) s.change(now);
       }},
      {"CHANNEL_PLAY_SUCCESS",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.playing_ = Playing::kPlaying;
         s.standby_ = false;
         s.unlocked_ = s.unlockAsked_ = s.opensNext_ && !s.locked_;
         s.opensNext_ = false;
         ++s.plays_;
         s.questions.channel = s.questions.viewing = s.questions.captions = true;
         s.questions.clock = true;
       }},
      {"CHANNEL_LOCKED",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.locked_ = true;
         s.unlocked_ = false;
         s.questions.channel = true;
       }},
      {"CHANNEL_UNLOCKED",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.unlocked_ = s.unlocked_ || (s.locked_ && s.unlockAsked_);
         s.locked_ = false;
         s.questions.channel = s.questions.viewing = true;
       }},
      {"PARENTAL_BLOCKED",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.blocked_ = true;
         s.unlocked_ = false;
         s.questions.viewing = s.questions.reasons = true;
       }},
      {"PARENTAL_UNBLOCKED",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.unlocked_ = s.unlocked_ || (s.blocked_ && s.unlockAsked_);
         s.blocked_ = false;
         s.questions.viewing = true;
       }},
      {"EVENT_TRANSITION",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.questions.viewing = s.questions.captions = true;
       }},
      {"SERVICE_BUILD_COMPLETED",
       [](ViewingState& s, const Json::Value&, Clock::time_point) {
         s.channelsChanged = s.questions.channel = true;
       }},
      {"EASSTOP",
       [](ViewingState& s, const Json::Value&, Clock::time_point) { s.alert_ = Json::Value(); }},
      {"EASSTARTBLOCKING", alert},
      {"EASSTARTNONBLOCKING", alert},
      {"PARENTAL_UPDATE", limits},
      {"RRT_UPDATE", limits},
      {"RRT_DL_UPDATE", limits},
      {"EPG_UPDATE", guide},
      {"EPG_COMPLETE", guide},
      {"STT_UPDATE_EVENT", clock},
      {"TIME_CHANGE", clock},
  };
  if (!message.isObject()) return;
  const auto handler = handlers.find(stringMember(message, "cbtype"));
  if (handler != handlers.end()) handler->second(*this, message, now);
}

void ViewingState::sending(const Json::Value& command, Clock::time_point now) {
  if (!command.isObject()) return;
  const std::string name = nameOf(command);
  if (name == "SCAN start") scan_.asked(command);
  if (name == "PC PWDUNLOCK") unlockAsked_ = isTrue(command["lock_status"]);
  const bool plays = name == "FW CHANNELCHANGE" || name == "FW PLAY" || name == "FW PLAYSRC" ||
                     name == "SCAN stop";
  if (standby_ ? name == "FW POWERDOWN" && !isTrue(command["powerdown"]) : plays) {
    change(now);
    opensNext_ = name == "FW CHANNELCHANGE" && command.isMember("password_reqd") &&
                 !isTrue(command["password_reqd"]);
  }
}

void ViewingState::sent(const Json::Value& command, int result, Clock::time_point now) {
  if (!command.isObject()) return;
  const std::string name = nameOf(command);
  const bool done = result == 0;
  if (name == "SCAN start" && !done) {
    scan_.refused();
  } else if (name == "SCAN stop") {
    if (done) scan_.stopped(now);
    channelsChanged = questions.channel = true;
  } else if (name == "FW PLAY" || name == "FW PLAYSRC") {
    // A callback may have reported the play already.
    if (!done) stop();
    questions.channel = questions.viewing = true;
  } else if (name == "FW STOP") {
    stop();
    questions.channel = true;
  } else if (name == "FW POWERDOWN" && done) {
    standby_ = isTrue(command["powerdown"]);
    if (standby_) stop();
    questions.channel = questions.viewing = true;
  } else if (name == "FW CHANNELMODIFY" || name == "FW CHANNELADD" || name == "FW RELOADDB" ||
             name == "SRV RESET" || name == "TEST GETSERVICE" || name == "AUD CHANGE") {
    const char* const emptied = command["src"] == "VSB" ? "VSB" : "QAM";
    if (name == "SRV RESET" && done && source_->name == std::string(emptied)) stop();
    channelsChanged = questions.channel = true;
  } else if (name == "CN SETPREAUD") {
    questions.languages = true;
  } else if (name == "TIME SETTIMEZONE" || name == "TIME SETMODE") {
    questions.clock = true;
  } else if (name == "PC PWDUNLOCK") {
    if (!unlockAsked_) unlocked_ = false;
    questions.viewing = true;
  } else if (name.compare(0, 6, "PC SET") == 0 || name == "PC STORERATING" || name == "PC RESET" ||
             name == "PC DEFAULTSETTING") {
    questions.viewing = questions.limits = true;
  }
}

bool ViewingState::tick(Clock::time_point now) {
  bool changed = scan_.tick(now);
  if (playing_ == Playing::kChanging && now >= changeEnds_) {
    playing_ = getsCallbacks ? Playing::kNoSignal : Playing::kPlaying;
    questions.channel = questions.viewing = changed = true;
  }
  return changed;
}

std::optional<ViewingState::Clock::time_point> ViewingState::deadline() const {
  std::optional<Clock::time_point> next = scan_.deadline();
  if (playing_ == Playing::kChanging && (!next || changeEnds_ < *next)) next = changeEnds_;
  return next;
}

void ViewingState::channelIs(const Json::Value& reply, const Json::Value& source) {
  constexpr int64_t kNoRow = 0xFFFF;
  if (source.isObject() && source["src"].isString()) {
    source_ = &apps::kSources[source["src"] == "QAM" ? 1 : 0];
  }
  if (!reply.isObject()) return;
  if (apps::integer(reply, "srv_rec") == kNoRow) {
    current_.reset();
    if (playing_ != Playing::kChanging) playing_ = Playing::kNone;
    return;
  }
  Current current;
  current.source = source_;
  current.major = apps::integer(reply, "major");
  current.minor = apps::integer(reply, "minor");
  current.frequency = apps::integer(reply, "freq");
  current.name = stringMember(reply, "chn_name");
  current.flags = apps::integer(reply, "srv_flag");
  current.favourites = apps::integer(reply, "fav_group");
  current.row = apps::integer(reply, "srv_rec");
  const bool other =
      !current_ || current_->source != current.source || current_->key() != current.key();
  if (other) questions.captions = true;
  if (playing_ == Playing::kNone) {
    playing_ = getsCallbacks ? Playing::kStopped : Playing::kPlaying;
  }
  current_ = std::move(current);
}

void ViewingState::viewingIs(const Json::Value& reply) {
  if (!reply.isObject()) return;
  const bool blocked = reply["status"] == "VIEWING_BLOCKED";
  if (blocked_ && !blocked && unlockAsked_) unlocked_ = true;
  if (blocked) unlocked_ = false;
  // While nothing plays, nothing is kept from the viewer.
  blocked_ = blocked && (playing_ == Playing::kPlaying || playing_ == Playing::kChanging);
  questions.reasons |= blocked_;
}

void ViewingState::clockIs(const Json::Value& setting, const Json::Value& now,
                           Clock::time_point asked, Clock::time_point answered) {
  if (!setting.isObject() || !now.isObject()) return;
  setting_ = apps::receiverClock(setting, now);
  time_.learn(setting_.utc, asked, answered);
}

void ViewingState::languagesAre(const Json::Value& reply) {
  if (!reply.isObject()) return;
  languages_ = {stringMember(reply, "first"), stringMember(reply, "second")};
}

void ViewingState::captionsAre(int result, const Json::Value& reply) {
  aspect_.reset();
  if (result == 0 && reply.isObject()) {
    aspect_ = static_cast<int>(apps::integer(reply, "cc_aspect_ratio"));
  }
}

const char* ViewingState::playingName() const {
  switch (playing_) {
    case Playing::kChanging:
      return "changing";
    case Playing::kPlaying:
      return "playing";
    case Playing::kNoSignal:
      return "noSignal";
    case Playing::kStopped:
      return "stopped";
    case Playing::kNone:
      break;
  }
  return "none";
}

Json::Value ViewingState::captions() const {
  Json::Value json;
  if (aspect_) json["aspect"] = *aspect_ == 1 ? "16:9" : "4:3";
  return json;
}

Json::Value ViewingState::clock(Clock::time_point now) const {
  if (!time_.isKnown()) return Json::Value();
  Json::Value json;
  json["utc"] = time_.at(now);
  json["zone"] = setting_.zone;
  json["offset"] = Json::Int64{setting_.offset};
  json["automatic"] = setting_.automatic;
  return json;
}

}  // namespace web
