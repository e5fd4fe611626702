#include "client.h"

#include <atsc/atsc_service.h>
#include <atsc_host.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "failure.h"
#include "json.h"
#include "text.h"

namespace tv {
namespace {

void show(const char* direction, const std::string& text) {
  std::cerr << direction << ' ' << printable(text, true) << std::endl;
}

}  // namespace

Json::Value command(const char* command_class, const char* name) {
  Json::Value value;
  value["class"] = command_class;
  value["command"] = name;
  return value;
}

int servicePid() { return ATSC_host_find(ATSC_HOST_SERVICE_NAME); }

void Client::requireService() const {
  if (servicePid() == 0) throw Failure(kNoService, "no service runs; start atsc-service");
}

Reply Client::sendRaw(const std::string& command) const {
  requireService();
  if (verbose_) show(">", command);
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
  if (reply.text) showReceived(*reply.text);
  showReceived("result " + std::to_string(reply.result));
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
  if (verbose_) show("<", text);
}

}  // namespace tv
