// Answers whole requests: who may, the files of the page, the routes, the events.
#ifndef ATSC_WEB_HTTP_SITE_H_
#define ATSC_WEB_HTTP_SITE_H_

#include <cstdint>
#include <optional>
#include <string>

#include "http/event_hub.h"
#include "http/exchange.h"
#include "http/intake.h"
#include "http/router.h"
#include "http/token.h"

namespace web {

class Site {
 public:
  struct Outcome {
    std::string bytes;                         // the answer; for events its head
    bool keep = false;                         // the connection can take another request
    std::optional<EventHub::Subscriber> page;  // set if events follow
  };

  // `router` and `hub` have to outlive the site.
  Site(uint16_t port, const std::string& token, const Router& router, const EventHub& hub);

  // Answers a request that came to the address `local` of this machine. Any thread.
  Outcome answer(const WholeRequest& request, const std::string& local);

  // Returns an answer without a request, after which the connection is closed.
  static std::string refusal(int status, const std::string& error, const std::string& message);

 private:
  class Parser;

  // Returns the answer to a request that is refused.
  std::optional<Response> refuse(const Request& request, const std::string& local);
  Response route(const Request& request, bool known);
  Response logIn(const Request& request);

  const uint16_t port_;
  const bool guarded_;
  const std::string cookie_;
  Sessions sessions_;
  const Router& router_;
  const EventHub& hub_;
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_SITE_H_
