// The TV application: callbacks in, commands out, and the state that the pages show.
#ifndef ATSC_WEB_TELEVISION_TELEVISION_H_
#define ATSC_WEB_TELEVISION_TELEVISION_H_

#include <json/value.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "guide/guide_store.h"
#include "http/event_hub.h"
#include "http/router.h"
#include "television/block_reasons.h"
#include "television/callback_queue.h"
#include "television/pin.h"
#include "television/service_link.h"
#include "television/viewing_state.h"

namespace web {

// Two threads of its own: one forwards callbacks, the other asks the service what they mean and
// publishes the state. Commands of the pages are sent by the threads that answer them. The service
// may end and come back, and another TV application may be registered first: both are said in the
// state, and end by themselves. All functions may be called by any thread.
class Television {
 public:
  struct Options {
    std::string pinFile;
    std::string version;
    bool console = true;  // the page may send any text
  };

  // `guide` and `hub` have to outlive the object. Starts the threads.
  Television(GuideStore& guide, EventHub& hub, Options options);
  // Ends the threads; waits for the answer to a command. The registration lasts until the process
  // ends.
  ~Television();
  Television(const Television&) = delete;
  Television& operator=(const Television&) = delete;

  // Returns the state of the contract with the page, as it is now.
  Json::Value state();

  // Sends a command for a page, and notes what it changes.
  Sent command(const Json::Value& command);
  Sent rawCommand(const std::string& text);

  // Opens the channel that plays and its programmes, after the PIN was right. Waits for a few
  // seconds at most. Returns whether nothing is blocked any more.
  bool unlock();

  Pin& pin() { return pin_; }
  bool hasConsole() const { return options_.console; }
  // Publishes the state soon, if it has changed, or even if it has not.
  void publishSoon();
  void publishAgain();

 private:
  using Clock = std::chrono::steady_clock;

  // What the state thread has to know, in the order in which it happened.
  struct Event {
    enum class Kind { kCallback, kSending, kSent } kind;
    Json::Value json;
    int result = 0;
  };

  void forward();

  // Of the state thread.
  void follow();
  void work();
  void wait(Clock::time_point until);
  void take();
  void watchService();
  void useService(int pid);
  void leaveService();
  void registerSelf();
  bool startService();
  void askUrgent();
  void askMore();
  // Nothing if there is no service, or no answer in time: the question stays open.
  std::optional<Sent> ask(const char* commandClass, const char* name);
  std::optional<Json::Value> askJson(const char* commandClass, const char* name);
  void publish();
  Json::Value build(Clock::time_point now);
  Json::Value channelNow() const;
  Json::Value audioNow() const;
  Json::Value blockNow(const NowNext& onAir) const;
  NowNext onAirNow(Clock::time_point now);
  Clock::time_point nextWork() const;

  void note(Event event);
  Sent sendNoted(const Json::Value& command, const std::string& text);
  bool isOpen(std::chrono::milliseconds patience);
  Json::Value pinNow();

  GuideStore& guide_;
  EventHub& hub_;
  const Options options_;
  Pin pin_;
  ServiceLink link_;
  CallbackQueue& arrived_;  // never destroyed: the library calls it until the process ends
  const int wake_;          // eventfd of the state thread
  std::atomic<bool> ends_{false};
  std::atomic<bool> refreshed_{false};  // the lists or the guide have changed

  // Of the state thread.
  ViewingState viewing_;
  BlockReasons reasons_;
  std::vector<std::string> reasonNames_;
  int service_ = 0;
  int serviceEnd_ = -1;  // pidfd
  bool started_ = false;
  bool registered_ = false;
  int otherTv_ = 0;
  Clock::time_point lookAgain_ = {};
  Clock::time_point registerAgain_ = {};
  Clock::time_point pollAgain_ = {};
  std::optional<Clock::time_point> programmeEnds_;
  uint64_t taken_ = 0;  // of noted_

  std::mutex mutex_;
  std::condition_variable published_;
  std::vector<Event> events_;
  bool again_ = false;
  Json::Value state_;  // as published
  ReceiverTime time_;
  uint64_t plays_ = 0;
  uint64_t noted_ = 0;    // counts events_
  uint64_t handled_ = 0;  // how many of them the state contains

  std::thread stateThread_;
  std::thread forwardThread_;
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_TELEVISION_H_
