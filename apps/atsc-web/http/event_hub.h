// What the program tells the pages by itself: callbacks, each with a number, and its state.
#ifndef ATSC_WEB_HTTP_EVENT_HUB_H_
#define ATSC_WEB_HTTP_EVENT_HUB_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "http/exchange.h"
#include "http/router.h"

namespace web {

// All functions may be called on any thread; none waits for a page.
class EventHub {
 public:
  // What one page has got so far.
  struct Subscriber {
    uint64_t next = 0;   // number of the next callback for it
    uint64_t state = 0;  // revision of the state that it has; 0 for none
    bool gone = false;   // callbacks for it are lost, which it has not been told
  };

  EventHub();

  // Identifies this run of the program: numbers of another run mean nothing.
  const std::string& epoch() const { return epoch_; }
  // Returns the number of the newest callback, 0 if there was none.
  uint64_t last() const;

  // Publishes a callback: valid JSON, or any text. Returns its number.
  uint64_t publishCallback(const std::string& json);
  uint64_t publishText(const std::string& text);
  // Publishes the state, valid JSON. Pages that read slowly get only the newest one.
  void publishState(const std::string& json);

  // Called after each publication, on the thread of the publisher.
  void onPublished(std::function<void()> wake);
  // Called when a page starts, on the thread of its server. Must not call the hub.
  void onSubscribed(std::function<void()> greet);

  // Starts a page. `lastId` is the id of the last callback that it got ("EPOCH-N"), or empty.
  Subscriber subscribe(const std::string& lastId) const;
  // Returns server-sent events with what is new for the page: about `atMost` bytes, more for a
  // large one.
  std::string take(Subscriber& page, size_t atMost) const;

  // Returns the callbacks with a larger number, as far as they are kept.
  Response callbacksSince(uint64_t number) const;

 private:
  uint64_t publish(const std::string& member);
  void wake() const;

  std::string epoch_;
  mutable std::mutex mutex_;
  std::function<void()> wake_;
  std::function<void()> greet_;
  std::deque<std::string> kept_;  // data of the newest callbacks
  size_t keptBytes_ = 0;
  uint64_t first_ = 1;  // number of kept_.front()
  std::string state_;
  uint64_t stateRevision_ = 0;
};

// GET /api/callbacks. The server itself answers GET /api/events.
void addEventRoutes(Router& router, const EventHub& hub);

}  // namespace web

#endif  // ATSC_WEB_HTTP_EVENT_HUB_H_
