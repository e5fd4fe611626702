#include "http/site.h"

#include <httplib.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <string_view>
#include <utility>

#include "common/json.h"
#include "http/assets.h"

namespace web {
namespace {

constexpr std::pair<const char*, const char*> kEveryAnswer[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; "
     "worker-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

constexpr const char* kNoStore = "no-store";

// Returns the lines of those headers.
std::string everyHeader() {
  std::string lines;
  for (const auto& [name, value] : kEveryAnswer) {
    lines.append(name).append(": ").append(value).append("\r\n");
  }
  return lines;
}

// The bytes of one request, and of its answer.
class MemoryStream final : public httplib::Stream {
 public:
  explicit MemoryStream(std::string_view input) : input_(input) {}

  const std::string& output() const { return output_; }
  std::string takeOutput() { return std::move(output_); }

  bool is_readable() const override { return !input_.empty(); }
  bool is_writable() const override { return true; }
  ssize_t read(char* to, size_t size) override {
    size = std::min(size, input_.size());
    memcpy(to, input_.data(), size);
    input_.remove_prefix(size);
    return static_cast<ssize_t>(size);
  }
  ssize_t write(const char* from, size_t size) override {
    output_.append(from, size);
    return static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string&, int&) const override {}
  void get_local_ip_and_port(std::string&, int&) const override {}
  socket_t socket() const override { return 0; }

 private:
  std::string_view input_;
  std::string output_;
};

const std::string& headerOf(const Request& request, const char* name) {
  static const std::string kNone;
  const auto header = request.headers.find(name);
  return header != request.headers.end() ? header->second : kNone;
}

Request requestOf(const httplib::Request& parsed, const std::string& body) {
  Request request;
  request.method = parsed.method;
  request.path = parsed.path;
  request.body = body;
  request.query.insert(parsed.params.begin(), parsed.params.end());
  for (const auto& [name, value] : parsed.headers) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; });
    const auto [known, first] = request.headers.emplace(std::move(lower), value);
    // Two of a kind agree with nothing that is expected of one.
    if (!first) known->second += ", " + value;
  }
  return request;
}

bool isJson(const std::string& type) {
  const std::string media = type.substr(0, type.find(';'));
  return media == "application/json" || media == "application/json ";
}

std::string bracketed(const std::string& address) {
  return address.find(':') != std::string::npos ? "[" + address + "]" : address;
}

Response assetResponse(const Asset& asset, const Request& request, int status = 200) {
  Response response{status, "", asset.type};
  response.headers["ETag"] = asset.tag;
  // Asked again each time, and seldom sent again.
  response.headers["Cache-Control"] = "no-cache";
  if (status == 200 && headerOf(request, "if-none-match") == asset.tag) {
    response.status = 304;
  } else {
    response.body = asset.content;
  }
  return response;
}

}  // namespace

// Parses one request and writes its answer. The routes of httplib are not used: they match regular
// expressions against what the client sends.
class Site::Parser final : public httplib::Server {
 public:
  Parser(Site& site, const WholeRequest& whole, const std::string& local)
      : site_(site), whole_(whole), local_(local) {
    set_default_headers({std::begin(kEveryAnswer), std::end(kEveryAnswer)});
    set_keep_alive_max_count(1000);
    set_keep_alive_timeout(30);
    set_pre_routing_handler([this](const httplib::Request& parsed, httplib::Response& response) {
      handle(requestOf(parsed, whole_.body), response);
      return HandlerResponse::Handled;
    });
  }

  Outcome run() {
    MemoryStream stream(whole_.head);
    bool closed = false;
    const bool written = process_request(stream, false, closed, nullptr);
    if (page_) return {eventsHead(), true, page_};
    if (!written || stream.output().empty()) return {refusal(400, "request", ""), false, {}};
    return {stream.takeOutput(), !closed, {}};
  }

 private:
  void handle(const Request& request, httplib::Response& to) {
    Response response;
    if (std::optional<Response> refused = site_.refuse(request, local_)) {
      response = *std::move(refused);
    } else {
      const bool known = site_.sessions_.known(headerOf(request, "cookie"), site_.cookie_);
      if (known && request.method == "GET" && request.path == "/api/events") {
        const auto last = request.query.find("last");
        const std::string& header = headerOf(request, "last-event-id");
        page_ = site_.hub_.subscribe(header.empty() && last != request.query.end() ? last->second
                                                                                   : header);
        return;
      }
      response = site_.route(request, known);
    }
    to.status = response.status;
    response.headers.emplace("Cache-Control", kNoStore);
    for (const auto& [name, value] : response.headers) to.set_header(name, value);
    to.set_header("Content-Type", response.type);
    to.body = std::move(response.body);
  }

  std::string eventsHead() const {
    // A page comes back a second after the program does.
    return "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-store\r\n"
           "Connection: close\r\n" +
           everyHeader() + "\r\nretry: 1000\n\n";
  }

  Site& site_;
  const WholeRequest& whole_;
  const std::string& local_;
  std::optional<EventHub::Subscriber> page_;
};

Site::Site(uint16_t port, const std::string& token, const Router& router, const EventHub& hub)
    : port_(port),
      guarded_(!token.empty()),
      // The cookies of a machine are shared by all its ports.
      cookie_("atsc-web-" + std::to_string(port)),
      sessions_(token),
      router_(router),
      hub_(hub) {
  // httplib builds its tables with the first request: before there are threads.
  Parser(*this, {0, "GET / HTTP/1.1\r\n\r\n", ""}, "").run();
}

Site::Outcome Site::answer(const WholeRequest& request, const std::string& local) {
  if (request.fault != 0) return {refusal(request.fault, "request", "refused unread"), false, {}};
  return Parser(*this, request, local).run();
}

std::string Site::refusal(int status, const std::string& error, const std::string& message) {
  const std::string body = errorResponse(status, error, message).body;
  // A client shows the number; the words behind it mean nothing.
  return "HTTP/1.1 " + std::to_string(status) +
         " Refused\r\nContent-Type: application/json\r\nConnection: close\r\n" + everyHeader() +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::optional<Response> Site::refuse(const Request& request, const std::string& local) {
  const std::string port = ":" + std::to_string(port_);
  // A name that another page makes resolve to this machine is none of these.
  const std::string& host = headerOf(request, "host");
  const std::string names[] = {"127.0.0.1", "localhost", "[::1]", bracketed(local)};
  if (std::none_of(std::begin(names), std::end(names), [&](const std::string& name) {
        return host == name + port || (port_ == 80 && host == name);
      })) {
    return errorResponse(403, "host", "the page has no such name: use its address");
  }
  const auto origin = request.headers.find("origin");
  if (origin != request.headers.end() && origin->second != "http://" + host) {
    return errorResponse(403, "origin", "asked by another page");
  }
  const auto site = request.headers.find("sec-fetch-site");
  if (site != request.headers.end() && site->second != "same-origin" && site->second != "none") {
    return errorResponse(403, "origin", "asked by another page: open the address itself");
  }
  if (request.method != "GET" && request.method != "HEAD" && request.method != "POST") {
    return errorResponse(405, "method", "only GET, HEAD and POST");
  }
  if (request.method == "POST" && !isJson(headerOf(request, "content-type"))) {
    return errorResponse(415, "type", "only application/json");
  }
  return std::nullopt;
}

Response Site::route(const Request& request, bool known) {
  if (request.path == "/login" && request.method == "POST" && guarded_) return logIn(request);
  if (request.method != "POST") {
    const bool root = request.path == "/" || request.path == "/index.html";
    if (root && !known) {
      const Asset* const page = findAsset("login.html");
      if (page != nullptr) return assetResponse(*page, request, 401);
    } else if (const Asset* const asset = findAsset(root ? "index.html" : request.path.substr(1))) {
      return assetResponse(*asset, request);
    }
  }
  if (!known) return errorResponse(401, "login", "the token is needed first");
  return router_.answer(request);
}

Response Site::logIn(const Request& request) {
  const std::optional<Json::Value> body = apps::parseJson(request.body);
  const std::string token =
      body && body->isObject() && (*body)["token"].isString() ? (*body)["token"].asString() : "";
  const std::string number = sessions_.open(token);
  if (number.empty()) return errorResponse(403, "token", "wrong token");
  Json::Value value;
  value["ok"] = true;
  Response response = jsonResponse(value);
  response.headers["Set-Cookie"] =
      cookie_ + "=" + number + "; Path=/; HttpOnly; SameSite=Strict; Max-Age=86400";
  return response;
}

}  // namespace web
