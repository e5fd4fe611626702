// A request and its answer, as the routes of the program see them.
#ifndef ATSC_WEB_HTTP_EXCHANGE_H_
#define ATSC_WEB_HTTP_EXCHANGE_H_

#include <json/value.h>

#include <functional>
#include <map>
#include <string>

namespace web {

struct Request {
  std::string method;
  std::string path;
  std::string body;
  std::map<std::string, std::string> query;
  std::map<std::string, std::string> headers;  // with names in lower case
};

struct Response {
  int status = 200;
  std::string body;
  std::string type = "application/json";
  std::map<std::string, std::string> headers = {};  // more than the server adds itself
};

// May be called by several threads at once.
using Handler = std::function<Response(const Request&)>;

// Writes a value as UTF-8 in one line. Joins pairs of surrogates; other
// bytes that are no UTF-8 become U+FFFD.
std::string jsonText(const Json::Value& value);

Response jsonResponse(const Json::Value& value, int status = 200);

// Makes {"error":error,"message":message}.
Response errorResponse(int status, const std::string& error, const std::string& message = "");

}  // namespace web

#endif  // ATSC_WEB_HTTP_EXCHANGE_H_
