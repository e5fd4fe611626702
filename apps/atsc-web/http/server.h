// The HTTP server: sockets, their bounds, and the threads that answer.
#ifndef ATSC_WEB_HTTP_SERVER_H_
#define ATSC_WEB_HTTP_SERVER_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "http/event_hub.h"
#include "http/router.h"

namespace web {

class HttpServer {
 public:
  struct Options {
    std::string address;  // IP address to listen on; empty: 127.0.0.1 and ::1
    uint16_t port = 0;    // 0: any free one
    std::string token;    // asked from each browser once; empty: not asked
    // How long a request may take from its first byte to its last, and how long a page may take for
    // what it has been sent.
    std::chrono::milliseconds requestTime = std::chrono::seconds(10);
    std::chrono::milliseconds answerTime = std::chrono::seconds(30);
    // After this silence a comment tells whether the page is still there.
    std::chrono::milliseconds commentTime = std::chrono::seconds(15);
  };

  // Listens; answers from start() on. Throws std::runtime_error if the address is not free.
  // `router` and `hub` have to outlive the server.
  HttpServer(const Options& options, const Router& router, EventHub& hub);
  ~HttpServer();

  void start();
  // Closes all connections. Waits for handlers that run.
  void stop();

  uint16_t port() const;
  // Returns the address for a browser, such as http://127.0.0.1:8077/.
  std::string url() const;

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_SERVER_H_
