// Takes callbacks from the library.
#ifndef ATSC_WEB_TELEVISION_CALLBACK_QUEUE_H_
#define ATSC_WEB_TELEVISION_CALLBACK_QUEUE_H_

#include <atsc/atsc_tv_server_backend.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

namespace web {

// The backend of the TV application. The BUS server thread only queues messages, so that the
// service never waits for a page.
class CallbackQueue final : public ATSCBUS::ATSCTVServerBackend {
 public:
  // The backend of this process: the library may call it until the process ends.
  static CallbackQueue& instance();

  // Called on the BUS server thread. Returns -1 if the queue is full.
  int jsonCommand(const char* command, char** result) override;

  // Waits for the next message; returns nothing after end().
  std::optional<std::string> next();
  // Ends next() until begin().
  void end();
  void begin();

 private:
  CallbackQueue() = default;

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::string> messages_;
  bool ends_ = false;
};

}  // namespace web

#endif  // ATSC_WEB_TELEVISION_CALLBACK_QUEUE_H_
