#include "http/exchange.h"

#include "common/json.h"
#include "common/text.h"

namespace web {

std::string jsonText(const Json::Value& value) {
  return apps::validUtf8(apps::readableJson(value));
}

Response jsonResponse(const Json::Value& value, int status) { return {status, jsonText(value)}; }

Response errorResponse(int status, const std::string& error, const std::string& message) {
  Json::Value value;
  value["error"] = error;
  value["message"] = message;
  return jsonResponse(value, status);
}

}  // namespace web
