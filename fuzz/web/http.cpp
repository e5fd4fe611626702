// Bytes of a connection to atsc-web: requests, their bodies, and what is neither.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

#include "common/json.h"
#include "common/text.h"
#include "guide/guide_routes.h"
#include "http/event_hub.h"
#include "http/intake.h"
#include "http/site.h"
#include "input.h"
#include "rows.h"
#include "television/television.h"
#include "television/television_routes.h"
#include "temporary_folder.h"

namespace {

constexpr uint16_t kPort = 8077;
constexpr const char* kToken = "correct-horse-battery";

// Two sites, with and without a token, that share what they show.
struct Sites {
  Sites() {
    // The reasons for refused requests would fill the output.
    std::cerr.setstate(std::ios::failbit);
    hub.publishState("{}");
    hub.publishCallback("{\"kind\":\"SCAN\"}");
    addEventRoutes(router, hub);
    web::addGuideRoutes(router, guide);
    addTelevisionRoutes(router, television);
    router.post("/api/echo", [](const web::Request& request) {
      const std::optional<Json::Value> body = apps::parseJson(request.body);
      return body ? web::jsonResponse(*body) : web::errorResponse(400, "json");
    });
  }

  TemporaryFolder folder{TemporaryFolder::memory()};
  web::GuideStore guide{{folder.path() / "channels", folder.path() / "events"}};
  web::Router router;
  web::EventHub hub;
  // Without a service.
  web::Television television{guide, hub, {folder.path() / "pin", "0", true}};
  web::Site open{kPort, "", router, hub};
  web::Site guarded{kPort, kToken, router, hub};
};

size_t countOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// Whoever gets an answer has named the page, and says of no other page that it asks.
void checkAccess(const web::WholeRequest& request, const web::Site::Outcome& outcome,
                 bool guarded) {
  const std::string& answer = outcome.bytes;
  fuzz::require(answer.compare(0, 9, "HTTP/1.1 ") == 0, "an answer", answer);
  const int status = atoi(answer.c_str() + 9);
  const size_t headEnd = answer.find("\r\n\r\n");
  fuzz::require(status >= 200 && status < 600 && headEnd != std::string::npos, "a head", answer);
  fuzz::require(status != 500, "no fault of the server", request.head);
  const std::string head = answer.substr(0, headEnd);
  fuzz::require(head.find("Access-Control") == std::string::npos, "no other origin", answer);
  fuzz::require(head.find("Content-Security-Policy: default-src 'none'") != std::string::npos,
                "a policy", answer);
  if (status < 300) {
    const std::string asked = lower(request.head);
    fuzz::require(countOf(asked, "\r\nhost:") == 1, "one host", request.head);
    fuzz::require(countOf(asked, "\r\norigin:") <= 1, "one origin", request.head);
    fuzz::require(!guarded || !outcome.page, "no events without the token", request.head);
  }
  const std::string body = answer.substr(headEnd + 4);
  if (!outcome.page && head.find("Content-Type: application/json") != std::string::npos &&
      status != 304 && lower(request.head.substr(0, 5)) != "head ") {
    fuzz::require(apps::parseJson(body).has_value(), "JSON", body);
    fuzz::require(apps::validUtf8(body) == body, "UTF-8", body);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Sites sites;
  fuzz::Input input(data, size);
  const uint8_t how = input.byte();
  const bool guarded = (how & 1) != 0;
  web::Site& site = guarded ? sites.guarded : sites.open;
  const size_t piece = (how >> 1) == 0 ? SIZE_MAX : how >> 1;
  web::Intake whole;
  web::Intake pieces;
  const std::string bytes = input.rest();
  whole.feed(bytes);
  size_t fed = 0;
  for (web::WholeRequest request; whole.next(&request);) {
    // Where a request ends does not depend on how it arrives.
    web::WholeRequest again;
    while (!pieces.next(&again)) {
      fuzz::require(fed < bytes.size(), "the same requests", bytes);
      const std::string next = bytes.substr(fed, piece);
      fed += next.size();
      pieces.feed(next);
    }
    const bool tooLong = request.fault == 414 || request.fault == 431;
    fuzz::require((again.fault == request.fault || (tooLong && again.fault != 0)) &&
                      again.head == request.head && again.body == request.body,
                  "the same request", bytes);
    const web::Site::Outcome outcome = site.answer(request, "127.0.0.1");
    checkAccess(request, outcome, guarded);
    if (!outcome.keep || outcome.page) break;
  }
  return 0;
}
