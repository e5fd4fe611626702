#include "television/television_routes.h"

#include <cmath>
#include <optional>
#include <string>

#include "common/json.h"
#include "common/source.h"
#include "television/protection.h"

namespace web {
namespace {

std::string grantOf(const Request& request) {
  const auto header = request.headers.find("x-grant");
  return header != request.headers.end() ? header->second : "";
}

Response faultResponse(LinkFault fault) {
  return fault == LinkFault::kBusy
             ? errorResponse(503, "busy", "the service is busy with another command")
             : errorResponse(503, "no-service", "no service runs");
}

Response brokenPin() {
  return errorResponse(403, "pin-file",
                       "the file with the PIN cannot be used; nothing is unlocked until it is "
                       "removed");
}

// Returns why a command is refused, nothing if it may be sent.
std::optional<Response> refusal(Television& television, const Request& request,
                                const Json::Value& command) {
  const Protection needs = protection(command);
  if (needs == Protection::kFree) return std::nullopt;
  if (needs == Protection::kMalformed) {
    return errorResponse(400, "command", "a command is an object with class and command");
  }
  if (needs == Protection::kConsole) {
    return errorResponse(403, "console", "only the console may send this command");
  }
  const Pin::State state = television.pin().status().state;
  if (state == Pin::State::kBroken) return brokenPin();
  if (state == Pin::State::kNone && needs == Protection::kProtected) return std::nullopt;
  if (television.pin().isGranted(grantOf(request))) return std::nullopt;
  return errorResponse(403, "pin",
                       state == Pin::State::kNone ? "choose a PIN first" : "give the PIN first");
}

Json::Value replyOf(const Sent& sent) {
  return apps::parseJson(sent.text.value_or("")).value_or(Json::Value());
}

Json::Value sentJson(const Sent& sent) {
  Json::Value json;
  json["result"] = sent.result;
  json["reply"] = replyOf(sent);
  json["ms"] = std::round(sent.milliseconds * 1000) / 1000;
  return json;
}

Response sendCommand(Television& television, const Request& request) {
  // What is checked is what is sent: the value as it is read again.
  auto command = apps::parseJson(request.body);
  if (command) command = apps::parseJson(apps::compactJson(*command));
  if (!command) return errorResponse(400, "json", "the body is no JSON");
  if (const auto refused = refusal(television, request, *command)) return *refused;
  const Sent sent = television.command(*command);
  return sent.fault == LinkFault::kNone ? jsonResponse(sentJson(sent)) : faultResponse(sent.fault);
}

Response sendRaw(Television& television, const Request& request) {
  if (!television.hasConsole()) return errorResponse(403, "console", "there is no console");
  const Sent sent = television.rawCommand(request.body);
  if (sent.fault != LinkFault::kNone) return faultResponse(sent.fault);
  Json::Value json = sentJson(sent);
  json["text"] = sent.text ? Json::Value(*sent.text) : Json::Value();
  return jsonResponse(json);
}

Response pinAnswer(Television& television, Pin::Answer answer) {
  switch (answer) {
    case Pin::Answer::kForm:
      return errorResponse(400, "pin-form", "a PIN has 4 to 8 digits");
    case Pin::Answer::kNone:
      return errorResponse(409, "no-pin", "no PIN is set");
    case Pin::Answer::kBroken:
      return brokenPin();
    case Pin::Answer::kFailed:
      return errorResponse(500, "pin-file", "the file with the PIN cannot be written");
    case Pin::Answer::kRight:
    case Pin::Answer::kWrong:
    case Pin::Answer::kWait:
      break;
  }
  Json::Value json;
  json["ok"] = answer == Pin::Answer::kRight;
  if (answer != Pin::Answer::kRight) {
    json["wait"] = static_cast<int>(std::ceil(television.pin().status().wait));
  }
  return jsonResponse(json);
}

Response usePin(Television& television, const Request& request) {
  const Json::Value body = apps::parseJson(request.body).value_or(Json::Value());
  if (!body.isObject()) return errorResponse(400, "json", "the body is no JSON object");
  const auto text = [&](const char* key) {
    return body[key].isString() ? body[key].asString() : "";
  };
  Pin& pin = television.pin();
  const std::string operation = text("op");
  if (operation == "close") {
    pin.endGrant(grantOf(request));
    return pinAnswer(television, Pin::Answer::kRight);
  }
  if (operation != "set" && operation != "check" && operation != "unlock") {
    return errorResponse(400, "op", "op is set, check, unlock or close");
  }
  const Pin::Answer answer =
      operation == "set" ? pin.set(text("pin"), text("old")) : pin.check(text("pin"));
  television.publishSoon();  // whether a PIN is set, and the wait
  if (answer != Pin::Answer::kRight) return pinAnswer(television, answer);
  Json::Value json;
  json["ok"] = true;
  if (operation == "unlock") {
    json["unlocked"] = television.unlock();
  } else {
    json["grant"] = pin.grant();
  }
  return jsonResponse(json);
}

Response plan(const Request& request) {
  const auto name = request.query.find("src");
  if (name == request.query.end() || (name->second != "VSB" && name->second != "QAM")) {
    return errorResponse(400, "src", "src is VSB or QAM");
  }
  const apps::Source& source = apps::sourceNamed(name->second);
  Json::Value json;
  Json::Value& channels = json["channels"] = Json::arrayValue;
  for (int i = 0; source.plan[i] != -1; ++i) {
    Json::Value channel;
    channel["rf"] = source.firstChannel + i;
    channel["freq"] = source.plan[i];
    channels.append(channel);
  }
  return jsonResponse(json);
}

}  // namespace

void addTelevisionRoutes(Router& router, Television& television) {
  router.get("/api/state", [&](const Request&) { return jsonResponse(television.state()); });
  router.post("/api/command",
              [&](const Request& request) { return sendCommand(television, request); });
  router.post("/api/console", [&](const Request& request) { return sendRaw(television, request); });
  router.post("/api/pin", [&](const Request& request) { return usePin(television, request); });
  router.get("/api/plan", plan);
}

}  // namespace web
