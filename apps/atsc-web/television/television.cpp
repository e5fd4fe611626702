#include "television/television.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/json.h"
#include "common/service.h"
#include "http/exchange.h"

namespace web {
namespace {

// A service that is new, or a TV application that has ended, is noticed after this time.
constexpr std::chrono::seconds kLookAgain(1);
constexpr std::chrono::seconds kRegisterAgain(60);

// Other processes send commands too, and not all that they change causes a callback. A repeated
// INIT has no effect, except on a new service.
constexpr std::chrono::seconds kPollAgain(10);
constexpr std::chrono::seconds kPollAlone(2);  // without callbacks

// A question waits this long while a command of a page is on its way. Then the state goes out
// without its answer, and it is asked again.
constexpr std::chrono::milliseconds kQuestionPatience(50);
constexpr std::chrono::milliseconds kAskAgain(100);
constexpr std::chrono::seconds kCommandPatience(2);

// More than come while a command takes its time.
constexpr size_t kMaxEvents = 10000;

constexpr std::chrono::milliseconds kUnlockTakes(300);
constexpr int kUnlockAttempts = 3;
constexpr std::chrono::seconds kChangeTakes(5);

}  // namespace

Television::Television(GuideStore& guide, EventHub& hub, Options options)
    : guide_(guide),
      hub_(hub),
      options_(std::move(options)),
      pin_(options_.pinFile),
      arrived_(CallbackQueue::instance()),
      wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (wake_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  arrived_.begin();
  // The first registration is tried before anybody can ask.
  registerSelf();
  publish();
  guide_.onRefreshed([this] {
    refreshed_ = true;
    publishSoon();
  });
  // A page lets the clock run on from the state that it gets first.
  hub_.onSubscribed([this] { publishAgain(); });
  forwardThread_ = std::thread([this] { forward(); });
  stateThread_ = std::thread([this] { follow(); });
}

Television::~Television() {
  hub_.onSubscribed(nullptr);
  guide_.onRefreshed(nullptr);
  ends_ = true;
  arrived_.end();
  eventfd_write(wake_, 1);
  forwardThread_.join();
  stateThread_.join();
  if (serviceEnd_ >= 0) close(serviceEnd_);
  close(wake_);
}

// A callback goes to the pages before anything is asked.
void Television::forward() {
  while (const std::optional<std::string> text = arrived_.next()) {
    try {
      std::optional<Json::Value> message = apps::parseJson(*text);
      if (!message) {
        hub_.publishText(*text);
        continue;
      }
      hub_.publishCallback(jsonText(*message));
      note({Event::Kind::kCallback, std::move(*message)});
    } catch (const std::exception&) {
      // Without memory for this one. The next poll tells what it meant.
    }
  }
}

void Television::follow() {
  while (!ends_) {
    try {
      work();
    } catch (const std::exception&) {
      // Without memory, or the guide cannot be read. What is open is asked again.
      pollAgain_ = Clock::now() + kLookAgain;
    }
    wait(nextWork());
  }
}

void Television::work() {
  take();
  if (serviceEnd_ < 0 || Clock::now() >= lookAgain_) watchService();
  viewing_.tick(Clock::now());
  if (service_ != 0 && Clock::now() >= pollAgain_) {
    pollAgain_ = Clock::now() + (registered_ ? kPollAgain : kPollAlone);
    started_ = started_ && ask("FW", "INIT").has_value();
    Questions& questions = viewing_.questions;
    questions.channel = questions.viewing = questions.clock = questions.languages = true;
  }
  if (service_ != 0 && !started_) started_ = startService();
  askUrgent();
  if (std::exchange(viewing_.channelsChanged, false)) guide_.channelsChanged();
  if (std::exchange(viewing_.guideChanged, false)) guide_.guideChanged();
  publish();
  if (viewing_.questions.any()) {
    askMore();
    publish();
  }
}

Television::Clock::time_point Television::nextWork() const {
  const Clock::time_point now = Clock::now();
  Clock::time_point next = now + kPollAgain;
  const auto sooner = [&](Clock::time_point time) { next = std::min(next, time); };
  sooner(lookAgain_);
  if (service_ != 0) {
    sooner(pollAgain_);
    if (viewing_.questions.any() || !started_) sooner(now + kAskAgain);
  }
  if (const auto due = viewing_.deadline()) sooner(*due);
  if (programmeEnds_) sooner(*programmeEnds_);
  return next;
}

void Television::wait(Clock::time_point until) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
  pollfd waited[] = {{wake_, POLLIN, 0}, {serviceEnd_, POLLIN, 0}};
  poll(waited, 2, static_cast<int>(std::max<int64_t>(0, left.count())));
  eventfd_t woken;
  eventfd_read(wake_, &woken);
  if (waited[1].revents != 0) leaveService();
}

// Takes what has come since the last time, all at once: many callbacks make one state. A callback
// that a command has caused comes after the event that the command is sent, but maybe before that
// of its result.
void Television::take() {
  std::vector<Event> events;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    events.swap(events_);
    taken_ = noted_;
  }
  // Another process may have changed marks.
  if (refreshed_.exchange(false)) viewing_.questions.channel = true;
  const Clock::time_point now = Clock::now();
  for (const Event& event : events) {
    switch (event.kind) {
      case Event::Kind::kCallback:
        viewing_.callback(event.json, now);
        break;
      case Event::Kind::kSending:
        viewing_.sending(event.json, now);
        break;
      case Event::Kind::kSent:
        viewing_.sent(event.json, event.result, now);
        break;
    }
  }
}

void Television::watchService() {
  if (!registered_ && Clock::now() >= registerAgain_) registerSelf();
  const int pid = std::max(0, apps::servicePid());
  if (pid != service_) {
    if (service_ != 0) leaveService();
    if (pid != 0) useService(pid);
  }
  // Without a descriptor of the process only the name tells that the service has ended.
  lookAgain_ = Clock::now() + (registered_ && serviceEnd_ >= 0 ? kPollAgain : kLookAgain);
}

void Television::useService(int pid) {
  serviceEnd_ = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
  if (serviceEnd_ < 0 && errno == ESRCH) return;  // it has ended already
  service_ = pid;
  link_.serviceIs(true);
  started_ = false;
  viewing_.reset();
  reasons_.forget();
  reasonNames_.clear();
  pollAgain_ = Clock::now() + kPollAgain;
}

void Television::leaveService() {
  if (serviceEnd_ >= 0) close(serviceEnd_);
  serviceEnd_ = -1;
  service_ = 0;
  link_.serviceIs(false);
  started_ = false;
  viewing_.reset();
  lookAgain_ = Clock::now() + kLookAgain;
}

void Television::registerSelf() {
  const int other = apps::registerTv(&arrived_);
  const bool first = other == 0 && !registered_;
  registered_ = other == 0;
  viewing_.getsCallbacks = registered_;
  otherTv_ = other;
  // Each try with a file in the way is an error in the log.
  registerAgain_ = Clock::now() + (other < 0 ? kRegisterAgain : kLookAgain);
  // Callbacks were lost: what is present is to be reported again.
  if (first) started_ = false;
}

// Makes a service send its events and play. What it plays already is begun anew: only so does it
// report a present alert, lock or block.
bool Television::startService() {
  const auto init = ask("FW", "INIT");
  if (!init || init->result != 0) return false;
  if (!registered_) return true;
  const auto send = [&](const Json::Value& command) {
    viewing_.sending(command, Clock::now());
    const Sent sent = link_.send(command, kCommandPatience);
    if (sent.fault != LinkFault::kNone) return false;
    viewing_.sent(command, sent.result, Clock::now());
    return true;
  };
  if (viewing_.isStandby()) {
    Json::Value down = apps::command("FW", "POWERDOWN");
    down["powerdown"] = true;
    return send(down);
  }
  return send(apps::command("FW", "STOP")) && send(apps::command("FW", "PLAY"));
}

std::optional<Sent> Television::ask(const char* commandClass, const char* name) {
  if (service_ == 0) return std::nullopt;
  Sent sent = link_.send(apps::command(commandClass, name), kQuestionPatience);
  if (sent.fault != LinkFault::kNone) return std::nullopt;
  return sent;
}

std::optional<Json::Value> Television::askJson(const char* commandClass, const char* name) {
  const auto sent = ask(commandClass, name);
  if (!sent) return std::nullopt;
  return apps::parseJson(sent->text.value_or("")).value_or(Json::Value());
}

// What a banner shows first. Callbacks tell whether it is blocked.
void Television::askUrgent() {
  Questions& questions = viewing_.questions;
  if (questions.channel) {
    const auto current = askJson("SRV", "GETCUR");
    const auto source = current ? askJson("CN", "GETCURSRC") : std::nullopt;
    if (source) {
      questions.channel = false;
      viewing_.channelIs(*current, *source);
    }
  }
}

void Television::askMore() {
  Questions& questions = viewing_.questions;
  if (questions.viewing) {
    if (const auto reply = askJson("PC", "ISPCBLOCKED")) {
      questions.viewing = false;
      viewing_.viewingIs(*reply);
    }
  }
  if (questions.clock) {
    const auto setting = askJson("TIME", "GETSETTING");
    const Clock::time_point asked = Clock::now();
    const auto now = setting ? askJson("TIME", "GETCUR") : std::nullopt;
    if (now) {
      questions.clock = false;
      viewing_.clockIs(*setting, *now, asked, Clock::now());
    }
  }
  if (questions.languages) {
    if (const auto reply = askJson("CN", "GETPREAUD")) {
      questions.languages = false;
      viewing_.languagesAre(*reply);
    }
  }
  if (questions.captions) {
    Json::Value command = apps::command("CC", "get_sar");
    command["AiccServiceId"] = 1;
    const Sent sent = link_.send(command, kQuestionPatience);
    if (sent.fault == LinkFault::kNone) {
      questions.captions = false;
      viewing_.captionsAre(sent.result,
                           apps::parseJson(sent.text.value_or("")).value_or(Json::Value()));
    }
  }
  if (std::exchange(questions.limits, false)) {
    reasons_.forget();
    questions.reasons |= viewing_.isProgrammeBlocked();
  }
  if (questions.reasons && viewing_.isProgrammeBlocked() && viewing_.current()) {
    const auto ask = [&](const Json::Value& command) {
      const Sent sent = link_.send(command, kQuestionPatience);
      Json::Value reply = apps::parseJson(sent.text.value_or("")).value_or(Json::Value());
      if (!reply.isObject()) throw std::runtime_error("no reply");
      return reply;
    };
    const auto utc = static_cast<int64_t>(viewing_.time().at(Clock::now()));
    const NowNext onAir = guide_.nowNext(viewing_.source().name, viewing_.current()->key(), utc);
    try {
      reasonNames_ = reasons_.of(onAir.now ? onAir.now->rating : "", ask);
      questions.reasons = false;
    } catch (const std::runtime_error&) {
      // The service has ended, or is busy.
    }
  } else {
    questions.reasons = false;
  }
}

void Television::note(Event event) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++noted_;
    if (events_.size() < kMaxEvents) events_.push_back(std::move(event));
  }
  eventfd_write(wake_, 1);
}

Sent Television::command(const Json::Value& command) {
  return sendNoted(command, apps::compactJson(command));
}

Sent Television::rawCommand(const std::string& text) {
  return sendNoted(apps::parseJson(text).value_or(Json::Value()), text);
}

Sent Television::sendNoted(const Json::Value& command, const std::string& text) {
  note({Event::Kind::kSending, command});
  Sent sent = link_.send(text, kCommandPatience);
  note({Event::Kind::kSent, command, sent.fault == LinkFault::kNone ? sent.result : -1});
  return sent;
}

void Television::publishSoon() { eventfd_write(wake_, 1); }

void Television::publishAgain() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    again_ = true;
  }
  publishSoon();
}

// Waits until the state shows no block.
bool Television::isOpen(std::chrono::milliseconds patience) {
  std::unique_lock<std::mutex> lock(mutex_);
  const uint64_t noted = noted_;
  return published_.wait_for(lock, patience,
                             [&] { return handled_ >= noted && state_["block"].isNull(); });
}

bool Television::unlock() {
  Json::Value given = apps::command("PC", "PWDUNLOCK");
  given["lock_status"] = 1;
  if (command(given).fault != LinkFault::kNone) return false;
  if (isOpen(kUnlockTakes)) return true;
  // It applies to the channel of the last CHANNELCHANGE only: there was none, or to another one.
  Json::Value change = apps::command("FW", "CHANNELCHANGE");
  uint64_t plays = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const Json::Value& channel = state_["channel"];
    if (!channel.isObject()) return false;
    change["input"] = channel["src"];
    change["major"] = channel["major"];
    change["minor"] = channel["minor"];
    if (channel["record"].isInt()) change["service_record"] = channel["record"];
    change["password_reqd"] = false;
    plays = plays_;
  }
  if (command(change).fault != LinkFault::kNone) return false;
  {
    std::unique_lock<std::mutex> lock(mutex_);
    const bool callbacks = state_["registered"].asBool();
    published_.wait_for(lock, callbacks ? kChangeTakes : std::chrono::seconds(1),
                        [&] { return plays_ > plays; });
  }
  // The channel of a change before may have begun to play only now: then this one locks again.
  for (int attempt = 0; attempt < kUnlockAttempts; ++attempt) {
    if (command(given).fault != LinkFault::kNone) return false;
    if (isOpen(kUnlockTakes)) return true;
  }
  return false;
}

}  // namespace web
