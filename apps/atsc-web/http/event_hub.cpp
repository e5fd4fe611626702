#include "http/event_hub.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <utility>

#include "common/text.h"
#include "http/random.h"

namespace web {
namespace {

constexpr size_t kKept = 1000;
// Callbacks are short; a flood of long ones takes no more memory than this.
constexpr size_t kKeptBytes = 2'000'000;

int64_t unixMilliseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

// A line end inside of an event would end it. JSON has them between its tokens only.
std::string oneLine(std::string json) {
  std::replace_if(
      json.begin(), json.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return json;
}

bool parseNumber(const std::string& text, size_t from, uint64_t* number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + from, end, *number);
  return error == std::errc() && stop == end;
}

}  // namespace

EventHub::EventHub() : epoch_(randomHex(4)) {}

uint64_t EventHub::last() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return first_ + kept_.size() - 1;
}

uint64_t EventHub::publishCallback(const std::string& json) {
  return publish("\"message\":" + apps::validUtf8(oneLine(json)));
}

uint64_t EventHub::publishText(const std::string& text) {
  return publish("\"text\":" + jsonText(text));
}

uint64_t EventHub::publish(const std::string& member) {
  uint64_t number = 0;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    number = first_ + kept_.size();
    kept_.push_back("{\"id\":" + std::to_string(number) +
                    ",\"at\":" + std::to_string(unixMilliseconds()) + "," + member + "}");
    keptBytes_ += kept_.back().size();
    while (kept_.size() > kKept || (keptBytes_ > kKeptBytes && kept_.size() > 1)) {
      keptBytes_ -= kept_.front().size();
      kept_.pop_front();
      ++first_;
    }
  }
  wake();
  return number;
}

void EventHub::publishState(const std::string& json) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    state_ = apps::validUtf8(oneLine(json));
    ++stateRevision_;
  }
  wake();
}

void EventHub::onPublished(std::function<void()> wake) {
  const std::lock_guard<std::mutex> lock(mutex_);
  wake_ = std::move(wake);
}

void EventHub::onSubscribed(std::function<void()> greet) {
  const std::lock_guard<std::mutex> lock(mutex_);
  greet_ = std::move(greet);
}

void EventHub::wake() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (wake_) wake_();
}

EventHub::Subscriber EventHub::subscribe(const std::string& lastId) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (greet_) greet_();
  const uint64_t next = first_ + kept_.size();
  if (lastId.empty()) return {next};
  uint64_t number = 0;
  const bool ours = lastId.compare(0, epoch_.size() + 1, epoch_ + "-") == 0 &&
                    parseNumber(lastId, epoch_.size() + 1, &number) && number < next;
  if (!ours || number + 1 < first_) return {ours ? first_ : next, 0, true};
  return {number + 1};
}

std::string EventHub::take(Subscriber& page, size_t atMost) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string events;
  if (page.state == 0 && stateRevision_ > 0) {
    events += "event: state\ndata: " + state_ + "\n\n";
    page.state = stateRevision_;
  }
  if (page.next < first_) {
    page.next = first_;
    page.gone = true;
  }
  if (page.gone) events += "event: gone\ndata: {}\n\n";
  page.gone = false;
  for (; page.next < first_ + kept_.size() && events.size() < atMost; ++page.next) {
    events += "event: callback\nid: " + epoch_ + "-" + std::to_string(page.next) +
              "\ndata: " + kept_[page.next - first_] + "\n\n";
  }
  if (page.state != stateRevision_ && events.size() < atMost) {
    events += "event: state\ndata: " + state_ + "\n\n";
    page.state = stateRevision_;
  }
  return events;
}

Response EventHub::callbacksSince(uint64_t number) const {
  const std::lock_guard<std::mutex> lock(mutex_);
  std::string body =
      "{\"epoch\":\"" + epoch_ + "\",\"first\":" + std::to_string(first_) + ",\"callbacks\":[";
  const uint64_t skipped = number >= first_ ? number - first_ + 1 : 0;
  for (uint64_t index = skipped; index < kept_.size(); ++index) {
    body += (index > skipped ? "," : "") + kept_[index];
  }
  return {200, body + "]}"};
}

void addEventRoutes(Router& router, const EventHub& hub) {
  router.get("/api/callbacks", [&hub](const Request& request) {
    const auto since = request.query.find("since");
    uint64_t number = 0;
    if (since != request.query.end() && !parseNumber(since->second, 0, &number)) {
      return errorResponse(400, "since", "since is no number");
    }
    return hub.callbacksSince(number);
  });
}

}  // namespace web
