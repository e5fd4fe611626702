#include "service/client.h"

#include <iostream>
#include <optional>

#include "common/json.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

// Converts a text to one line: compact JSON if the text is JSON.
std::string lineOf(const std::string& text) {
  const std::optional<Json::Value> json = parseJson(text);
  return json ? compactJson(*json) : oneLine(text);
}

void show(const char* direction, const std::string& line) {
  std::cerr << direction << ' ' << line << std::endl;
}

}  // namespace

void Client::requireService() const {
  if (servicePid() == 0) throw Failure(kNoService, "no service runs; start atsc-service");
}

Reply Client::sendRaw(const std::string& command) const {
  requireService();
  if (verbose_) show(">", lineOf(command));
  const std::optional<Reply> reply = transmit(command);
  if (!reply) {
    requireService();
    throw Failure(kNoService, "the service did not answer: it has ended, or the text is too long");
  }
  return *reply;
}

Reply Client::send(const Json::Value& command) const {
  Reply reply = sendRaw(compactJson(command));
  if (verbose_) {
    show("<",
         "result " + std::to_string(reply.result) + (reply.text ? ": " + lineOf(*reply.text) : ""));
  }
  return reply;
}

Json::Value Client::ask(const Json::Value& command) const {
  const Reply reply = send(command);
  const Json::Value answer = parseJson(reply.text.value_or("")).value_or(Json::Value());
  if (!answer.isObject()) {
    throw Failure(kFailure, "the service has no answer to " + compactJson(command));
  }
  return answer;
}

void Client::showReceived(const std::string& text) const {
  if (verbose_) show("<", lineOf(text));
}

}  // namespace apps::tv
