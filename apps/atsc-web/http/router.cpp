#include "http/router.h"

#include <exception>
#include <iostream>
#include <utility>

namespace web {

void Router::get(const std::string& path, Handler handler) {
  handlers_[path]["HEAD"] = handler;
  handlers_[path]["GET"] = std::move(handler);
}

void Router::post(const std::string& path, Handler handler) {
  handlers_[path]["POST"] = std::move(handler);
}

Response Router::answer(const Request& request) const {
  const auto methods = handlers_.find(request.path);
  if (methods == handlers_.end()) return errorResponse(404, "not-found", "no such path");
  const auto handler = methods->second.find(request.method);
  if (handler == methods->second.end()) {
    Response refused = errorResponse(405, "method", "the path has no such method");
    std::string& allowed = refused.headers["Allow"];
    for (const auto& [method, unused] : methods->second) {
      allowed += (allowed.empty() ? "" : ", ") + method;
    }
    return refused;
  }
  try {
    return handler->second(request);
  } catch (const std::exception& error) {
    std::cerr << "atsc-web: " << request.path << ": " << error.what() << std::endl;
  }
  return errorResponse(500, "internal", "the request failed, see the program's log");
}

}  // namespace web
