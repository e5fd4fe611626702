#include "service/client.h"

#include <atsc/atsc_service.h>
#include <atsc_host.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "service/json.h"
#include "terminal/failure.h"
#include "terminal/text.h"

namespace tv {
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

Json::Value command(const char* commandClass, const char* name) {
  Json::Value value;
  value["class"] = commandClass;
  value["command"] = name;
  return value;
}

int servicePid() { return ATSC_host_find(ATSC_HOST_SERVICE_NAME); }

void Client::requireService() const {
  if (servicePid() == 0) throw Failure(kNoService, "no service runs; start atsc-service");
}

Reply Client::sendRaw(const std::string& command) const {
  requireService();
  if (verbose_) show(">", lineOf(command));
  char* raw = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(command.c_str(), &raw);
  const std::unique_ptr<char, void (*)(void*)> text(raw, std::free);
  if (ATSC_host_last_transact() != 0) {
    requireService();
    throw Failure(kNoService, "the service did not answer: it has ended, or the text is too long");
  }
  return {result, text ? std::optional<std::string>(text.get()) : std::nullopt};
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

}  // namespace tv
