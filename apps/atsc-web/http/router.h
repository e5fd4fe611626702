// Finds the handler of a request.
#ifndef ATSC_WEB_HTTP_ROUTER_H_
#define ATSC_WEB_HTTP_ROUTER_H_

#include <map>
#include <string>

#include "http/exchange.h"

namespace web {

class Router {
 public:
  // Adds a handler for a whole path. All are added before the first request.
  void get(const std::string& path, Handler handler);
  void post(const std::string& path, Handler handler);

  // Answers with 404 or 405 what has no handler, and with 500 when a handler throws.
  Response answer(const Request& request) const;

 private:
  std::map<std::string, std::map<std::string, Handler>> handlers_;  // by path and method
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_ROUTER_H_
