// The state that the pages show.
#include <algorithm>
#include <cmath>
#include <utility>

#include "common/audio_tracks.h"
#include "guide/guide_routes.h"
#include "http/exchange.h"
#include "television/television.h"

namespace web {
namespace {

// The pages let the receiver's clock run on by themselves: a smaller difference is no news.
constexpr double kClockDiffers = 0.25;  // seconds

// So long after the end of a programme by an estimated clock, it is over by the receiver's clock.
constexpr std::chrono::milliseconds kAfterEnd(20);

Json::Value jsonOf(const std::optional<Programme>& programme) {
  return programme ? programmeJson(*programme) : Json::Value();
}

}  // namespace

Json::Value Television::pinNow() {
  const Pin::Status status = pin_.status();
  Json::Value json;
  json["set"] = status.state != Pin::State::kNone;
  json["broken"] = status.state == Pin::State::kBroken;
  json["wait"] = static_cast<int>(std::ceil(status.wait));
  return json;
}

Json::Value Television::channelNow() const {
  Json::Value json;
  const auto& current = viewing_.current();
  if (!current) return json;
  json["src"] = current->source->name;
  json["major"] = Json::Int64{current->major};
  json["minor"] = Json::Int64{current->minor};
  json["number"] = current->number();
  json["name"] = current->name;
  json["freq"] = Json::Int64{current->frequency};
  json["rf"] = apps::rfChannel(*current->source, current->frequency);
  json["key"] = current->key();
  json["row"] = Json::Int64{current->row};
  json["flags"] = Json::Int64{current->flags};
  json["fav"] = Json::Int64{current->favourites};
  const auto row = guide_.channel(current->source->name, current->key());
  json["record"] = row ? Json::Value(Json::Int64{row->record}) : Json::Value();
  json["type"] = row ? row->type : "";
  return json;
}

Json::Value Television::audioNow() const {
  const auto& current = viewing_.current();
  const auto row = current ? guide_.channel(current->source->name, current->key()) : std::nullopt;
  const auto tracks = apps::audioTracks(row ? row->audio : "");
  Json::Value json;
  json["tracks"] = Json::arrayValue;
  for (size_t i = 0; i < tracks.size(); ++i) {
    Json::Value track;
    track["index"] = static_cast<int>(i);
    track["language"] = tracks[i].language;
    track["coding"] = tracks[i].coding;
    track["described"] = tracks[i].described;
    json["tracks"].append(std::move(track));
  }
  const apps::PreferredLanguages& languages = viewing_.languages();
  json["playing"] =
      static_cast<int>(apps::playingTrack(row ? row->audioIndex : 0, tracks, languages));
  json["first"] = languages.first;
  json["second"] = languages.second;
  return json;
}

NowNext Television::onAirNow(Clock::time_point now) {
  programmeEnds_.reset();
  const auto& current = viewing_.current();
  if (!current || !viewing_.time().isKnown()) return {};
  const double utc = viewing_.time().at(now);
  NowNext onAir = guide_.nowNext(current->source->name, current->key(), static_cast<int64_t>(utc));
  const auto ends = [&](int64_t time) {
    const std::chrono::duration<double> left(static_cast<double>(time) - utc);
    // A guide that is years away is asked for again by other reasons.
    if (left > std::chrono::hours(24)) return;
    const auto due = now + std::chrono::ceil<std::chrono::milliseconds>(left) + kAfterEnd;
    if (!programmeEnds_ || due < *programmeEnds_) programmeEnds_ = due;
  };
  if (onAir.now) ends(onAir.now->start + onAir.now->duration);
  if (onAir.next) ends(onAir.next->start);
  return onAir;
}

Json::Value Television::blockNow(const NowNext& onAir) const {
  Json::Value json;
  if (!viewing_.isLocked() && !viewing_.isProgrammeBlocked()) return json;
  const std::string rating = onAir.now ? onAir.now->rating : "";
  json["kind"] = viewing_.isLocked() ? "locked" : rating.empty() ? "unrated" : "programme";
  json["title"] = onAir.now ? onAir.now->title : "";
  json["rating"] = rating;
  json["reasons"] = Json::arrayValue;
  if (!viewing_.isLocked()) {
    for (const std::string& name : reasonNames_) json["reasons"].append(name);
  }
  return json;
}

Json::Value Television::build(Clock::time_point now) {
  Json::Value json;
  json["epoch"] = hub_.epoch();
  json["last"] = Json::UInt64{hub_.last()};
  json["version"] = options_.version;
  json["service"]["running"] = service_ != 0;
  json["service"]["pid"] = service_;
  json["registered"] = registered_;
  json["otherTv"] = Json::Value();
  if (!registered_) json["otherTv"]["pid"] = otherTv_ > 0 ? Json::Value(otherTv_) : Json::Value();
  json["console"] = options_.console;
  json["pin"] = pinNow();
  json["source"] = viewing_.source().name;
  const NowNext onAir = onAirNow(now);
  json["channel"] = channelNow();
  json["playing"] = viewing_.playingName();
  json["standby"] = viewing_.isStandby();
  json["block"] = blockNow(onAir);
  json["unlocked"] = viewing_.isUnlocked();
  json["now"] = jsonOf(onAir.now);
  json["next"] = jsonOf(onAir.next);
  json["audio"] = audioNow();
  json["captions"] = viewing_.captions();
  json["clock"] = viewing_.clock(now);
  json["scan"] = viewing_.scan().json();
  json["alert"] = viewing_.alert();
  const Versions versions = guide_.versions();
  json["versions"]["channels"] = Json::UInt64{versions.channels};
  json["versions"]["guide"] = Json::UInt64{versions.guide};
  return json;
}

void Television::publish() {
  if (!viewing_.isProgrammeBlocked()) reasonNames_.clear();
  const Clock::time_point now = Clock::now();
  Json::Value fresh = build(now);
  // What differs each time is left out of the comparison.
  const auto essence = [](Json::Value state) {
    state.removeMember("last");
    if (state["clock"].isObject()) state["clock"].removeMember("utc");
    return state;
  };
  const ReceiverTime time = viewing_.time();
  bool news = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool clockDiffers =
        time.isKnown() != time_.isKnown() ||
        (time.isKnown() && std::abs(time.at(now) - time_.at(now)) > kClockDiffers);
    news = std::exchange(again_, false) || clockDiffers || essence(fresh) != essence(state_);
    if (news) {
      state_ = fresh;
      time_ = time;
    }
    plays_ = viewing_.plays();
    if (!viewing_.questions.viewing) handled_ = taken_;
  }
  published_.notify_all();
  if (news) hub_.publishState(jsonText(fresh));
}

Json::Value Television::state() {
  Json::Value state;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    state = state_;
    if (state["clock"].isObject()) state["clock"]["utc"] = time_.at(Clock::now());
  }
  state["last"] = Json::UInt64{hub_.last()};
  state["pin"] = pinNow();
  return state;
}

}  // namespace web
