// The HTTP server of atsc-web as its clients see it, good and bad ones.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "files.h"
#include "http/event_hub.h"
#include "http/intake.h"
#include "http/router.h"
#include "http/server.h"
#include "http/token.h"
#include "http_client.h"
#include "process.h"
#include "temporary_folder.h"

namespace {

using std::chrono::milliseconds;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Clock = std::chrono::steady_clock;

constexpr size_t kLarge = 12'000'000;  // more than all answers that nobody reads may hold
constexpr const char* kToken = "correct-horse-battery";

class HttpTest : public testing::Test {
 protected:
  HttpTest() {
    router_.get("/api/echo", [](const web::Request& request) {
      return web::Response{200, request.query.at("q"), "text/plain"};
    });
    router_.post("/api/echo", [](const web::Request& request) {
      return web::Response{200, request.body, "text/plain"};
    });
    router_.get("/api/large", [](const web::Request&) {
      return web::Response{200, std::string(kLarge, 'x'), "text/plain"};
    });
    addEventRoutes(router_, hub_);
  }

  void start(web::HttpServer::Options options = {}) {
    server_.emplace(options, router_, hub_);
    server_->start();
  }

  uint16_t port() const { return server_->port(); }
  std::string host() const { return "127.0.0.1:" + std::to_string(port()); }

  // Sends a request whose lines are separated by "|"; $ stands for the port.
  std::string ask(std::string request, const std::string& body = "") {
    HttpClient client(port());
    client.send(bytes(std::move(request)) + body);
    return client.answer();
  }

  std::string bytes(std::string request) const {
    const std::string number = std::to_string(port());
    std::string made;
    for (const char c : request + "||") {
      made += c == '|' ? "\r\n" : c == '$' ? number : std::string(1, c);
    }
    return made;
  }

  HttpClient page(const std::string& last = "", int buffer = 0) {
    HttpClient client(port(), buffer);
    client.send(bytes("GET /api/events HTTP/1.1|Host: localhost:$" +
                      (last.empty() ? "" : "|Last-Event-ID: " + last)));
    EXPECT_EQ(statusOf(client.receive("\r\n\r\n")), 200);
    client.receive("retry: 1000\n\n");
    return client;
  }

  web::Router router_;
  web::EventHub hub_;
  std::optional<web::HttpServer> server_;
};

TEST_F(HttpTest, AnswersOwnPagesAndNobodyElse) {
  start();
  const std::string get = "GET /api/echo?q=a%20%C3%A9 HTTP/1.1|Host: ";
  const std::string post = "POST /api/echo HTTP/1.1|Host: localhost:$|Content-Length: 2|";
  const std::string json = "Content-Type: application/json";
  const std::string large(5000, 'a');
  const struct {
    std::string request;
    int status;
    const char* body = "";
  } rows[] = {
      {get + "127.0.0.1:$", 200, "a \xc3\xa9"},
      {get + "localhost:$|Origin: http://localhost:$|Sec-Fetch-Site: same-origin", 200},
      {get + "[::1]:$|Sec-Fetch-Site: none", 200},
      // A name that resolves to this machine, other ports, no name and two.
      {get + "television.example:$", 403, "host"},
      {get + "127.0.0.1", 403, "host"},
      {get + "127.0.0.1:1", 403, "host"},
      {"GET /api/echo HTTP/1.1", 403, "host"},
      {get + "127.0.0.1:$|Host: evil.example", 403, "host"},
      // Pages of others.
      {get + "localhost:$|Origin: http://evil.example", 403, "origin"},
      {get + "localhost:$|Origin: http://127.0.0.1:$", 403, "origin"},
      {get + "localhost:$|Origin: null", 403, "origin"},
      {get + "localhost:$|Sec-Fetch-Site: cross-site", 403, "origin"},
      {get + "localhost:$|Sec-Fetch-Site: same-site", 403, "origin"},
      {"GET / HTTP/1.1|Host: localhost:$|Sec-Fetch-Site: cross-site|Sec-Fetch-Mode: navigate", 403},
      {"GET /js/app.js HTTP/1.1|Host: localhost:$|Sec-Fetch-Site: cross-site", 403},
      {"GET /api/events HTTP/1.1|Host: localhost:$|Sec-Fetch-Site: cross-site", 403},
      // What a form of another page could send.
      {post + json, 200, "{}"},
      {post + json + "; charset=utf-8|Origin: http://localhost:$", 200, "{}"},
      {post + json + "|Origin: http://evil.example", 403, "origin"},
      {post + "Content-Type: text/plain", 415},
      {post + "Content-Type: application/x-www-form-urlencoded", 415},
      {post + "Content-Type: multipart/form-data; boundary=application/json", 415},
      {post + "Accept: */*", 415},
      {"OPTIONS /api/echo HTTP/1.1|Host: localhost:$|Access-Control-Request-Method: POST", 405},
      {"DELETE /api/echo HTTP/1.1|Host: localhost:$", 405},
      {"POST / HTTP/1.1|Host: localhost:$|Content-Length: 2|" + json, 404},
      {"GET /api/nothing HTTP/1.1|Host: localhost:$", 404},
      {"GET /../main.cpp HTTP/1.1|Host: localhost:$", 404},
      {"GET /api/echo HTTP/1.1|Host: localhost:$", 500, "internal"},
      {"GET /api/callbacks?since=1x HTTP/1.1|Host: localhost:$", 400, "since"},
      {"HEAD / HTTP/1.1|Host: localhost:$|Connection: close", 200},
      // Two readings of where a request ends.
      {post + json + "|Content-Length: 2", 400},
      {post + json + "|Transfer-Encoding: chunked", 411},
      {post + json + "|Content-Encoding: gzip", 415},
      {post + json + "|Expect: 100-continue", 417},
      {"POST /api/echo HTTP/1.1|Host: localhost:$|Content-Length: +2|" + json, 400},
      {"POST /api/echo HTTP/1.1|Host: localhost:$|Content-Length : 2|" + json, 400},
      {"GET / HTTP/1.1|Host: localhost:$| folded", 400},
      {"GET / HTTP/1.1|Host: localhost:$\nX: 1", 400},
      {"GET http://localhost:$/ HTTP/1.1|Host: localhost:$", 400},
      {"GET  / HTTP/1.1|Host: localhost:$", 400},
      {"GET / HTTP/2.0|Host: localhost:$", 505},
      {"nonsense", 400},
      // Bounds.
      {"POST /api/echo HTTP/1.1|Host: localhost:$|Content-Length: 1000001|" + json, 413},
      {"POST /api/echo HTTP/1.1|Host: localhost:$|Content-Length: 99999999999999999999", 413},
      {"GET /" + large + " HTTP/1.1|Host: localhost:$", 414},
      {get + "localhost:$|X: " + large + "|Y: " + large + "|Z: " + large + "|U: " + large, 431},
      {get + "localhost:$|Range: bytes=" + large, 200, "a \xc3\xa9"},
      {get + "localhost:$|X: " + large, 200},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.request.substr(0, 200));
    const std::string answer = ask(row.request, row.request.find("POST") == 0 ? "{}" : "");
    EXPECT_EQ(statusOf(answer), row.status) << answer;
    EXPECT_THAT(answer, HasSubstr(row.body));
    EXPECT_THAT(answer, Not(HasSubstr("Access-Control")));
  }
  std::string many = "GET / HTTP/1.1|Host: localhost:$";
  for (int line = 0; line < 63; ++line) many += "|A: 1";
  EXPECT_EQ(statusOf(ask(many)), 431);
  EXPECT_EQ(statusOf(ask(std::string(20'000, 'a'))), 414);
}

TEST_F(HttpTest, FilesOfThePageAreGuardedAndSentOnce) {
  start();
  const std::string first = ask("GET / HTTP/1.1|Host: localhost:$|Accept-Encoding: gzip, br");
  EXPECT_THAT(first, HasSubstr("Content-Type: text/html; charset=utf-8\r\n"));
  EXPECT_THAT(first, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'; "));
  EXPECT_THAT(first, HasSubstr("; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"));
  EXPECT_THAT(first, HasSubstr("X-Content-Type-Options: nosniff\r\n"));
  EXPECT_THAT(first, HasSubstr("Cross-Origin-Opener-Policy: same-origin\r\n"));
  EXPECT_THAT(first, HasSubstr("Cross-Origin-Resource-Policy: same-origin\r\n"));
  EXPECT_THAT(first, HasSubstr("Referrer-Policy: same-origin\r\n"));
  EXPECT_THAT(first, HasSubstr("Cache-Control: no-cache\r\n"));
  EXPECT_THAT(first, HasSubstr("<html"));
  const std::string tag = first.substr(first.find("ETag: ") + 6, 18);
  const std::string second = ask("GET / HTTP/1.1|Host: localhost:$|If-None-Match: " + tag);
  EXPECT_EQ(statusOf(second), 304);
  EXPECT_THAT(second, Not(HasSubstr("<html")));
  EXPECT_THAT(ask("GET /api/callbacks HTTP/1.1|Host: localhost:$"),
              HasSubstr("Cache-Control: no-store\r\n"));

  // Requests that are sent before the answers arrive.
  HttpClient client(port());
  const std::string post =
      "POST /api/echo HTTP/1.1|Host: localhost:$|Content-Type: application/json|Content-Length: 3";
  client.send(bytes(post) + "one" + bytes("GET /api/echo?q=two HTTP/1.1|Host: localhost:$") +
              bytes(post + "|Connection: close") + "end" + bytes("GET / HTTP/1.1"));
  EXPECT_THAT(client.answer(), EndsWith("\r\n\r\none"));
  EXPECT_THAT(client.answer(), EndsWith("\r\n\r\ntwo"));
  EXPECT_THAT(client.rest(), EndsWith("\r\n\r\nend"));

  // Who has asked all gets the answer, and the end of the connection at once.
  const Clock::time_point began = Clock::now();
  HttpClient once(port());
  once.send(bytes("GET /api/echo?q=two HTTP/1.1|Host: localhost:$"));
  EXPECT_THAT(once.answer(), EndsWith("\r\n\r\ntwo"));
  once.finish();
  EXPECT_EQ(once.rest(), "");
  EXPECT_LT(Clock::now() - began, std::chrono::seconds(15));
}

TEST_F(HttpTest, TheTokenIsAskedOnce) {
  web::HttpServer::Options options;
  options.token = kToken;
  start(options);
  const auto logIn = [this](const std::string& token) {
    const std::string body = "{\"token\":" + token + "}";
    return ask(
        "POST /login HTTP/1.1|Host: localhost:$|Content-Type: application/json|"
        "Content-Length: " +
            std::to_string(body.size()),
        body);
  };
  const std::string quoted = "\"" + std::string(kToken) + "\"";
  const std::string page = ask("GET / HTTP/1.1|Host: localhost:$");
  EXPECT_EQ(statusOf(page), 401);
  EXPECT_THAT(page, HasSubstr("id=\"login\""));
  EXPECT_EQ(statusOf(ask("GET /login.html HTTP/1.1|Host: localhost:$")), 200);
  for (const char* path : {"/api/callbacks", "/api/events", "/api/nothing"}) {
    const std::string get = std::string("GET ") + path + " HTTP/1.1|Host: localhost:$";
    for (const std::string cookie : {"", "atsc-web-$=", "atsc-web-$=0", "atsc-web-$=x; a=b"}) {
      EXPECT_EQ(statusOf(ask(get + "|Cookie: " + cookie)), 401) << path << cookie;
    }
  }
  for (const std::string& wrong : {std::string("\"\""), std::string("\"correct-horse-batter\""),
                                   quoted.substr(0, 3) + "\"", "\"" + std::string(kToken) + "y\"",
                                   std::string("[]"), std::string("0"), std::string("{")}) {
    EXPECT_EQ(statusOf(logIn(wrong)), 403) << wrong;
  }

  const std::string right = logIn(quoted);
  ASSERT_EQ(statusOf(right), 200);
  EXPECT_THAT(right, HasSubstr("; HttpOnly; SameSite=Strict"));
  EXPECT_THAT(right, Not(HasSubstr(kToken)));
  const size_t begin = right.find("Set-Cookie: ") + 12;
  const std::string cookie = right.substr(begin, right.find(';', begin) - begin);
  EXPECT_EQ(cookie.size(), cookie.find('=') + 1 + 64) << cookie;
  const std::string get = "GET /api/callbacks HTTP/1.1|Host: localhost:$|Cookie: ";
  EXPECT_EQ(statusOf(ask(get + "a=b; " + cookie)), 200);
  EXPECT_EQ(statusOf(ask(get + cookie + "0")), 401);
  EXPECT_EQ(statusOf(ask("GET / HTTP/1.1|Host: localhost:$|Cookie: " + cookie)), 200);
  // A session that is used outlives those that are not.
  for (int other = 0; other < 31; ++other) logIn(quoted);
  EXPECT_EQ(statusOf(ask(get + cookie)), 200);
  logIn(quoted);
  EXPECT_EQ(statusOf(ask(get + cookie)), 200);
  for (int other = 0; other < 32; ++other) logIn(quoted);
  EXPECT_EQ(statusOf(ask(get + cookie)), 401);
}

TEST(HttpToken, IsKeptFromOthers) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "token";
  const std::string whole(kToken);
  const struct {
    std::string content;
    mode_t mode;
    const char* fault;
  } rows[] = {{whole + "\n", 0600, ""},
              {whole, 0400, ""},
              {whole, 0640, "other users may access it"},
              {whole, 0604, "other users may access it"},
              {"fifteen-letters", 0600, "16 to 1000 printable"},
              {whole + " " + whole, 0600, "16 to 1000 printable"},
              {std::string(1001, 'a'), 0600, "16 to 1000 printable"},
              {std::string(1003, '\n'), 0600, "16 to 1000 printable"}};
  for (const auto& row : rows) {
    writeFile(file, row.content);
    chmod(file.c_str(), row.mode);
    std::string fault;
    try {
      EXPECT_EQ(web::readToken(file), whole);
    } catch (const std::runtime_error& error) {
      fault = error.what();
    }
    EXPECT_EQ(fault.empty(), row.fault[0] == '\0') << fault;
    EXPECT_THAT(fault, HasSubstr(row.fault));
    chmod(file.c_str(), 0600);
  }
  EXPECT_THROW(web::readToken(folder.path()), std::runtime_error);
  EXPECT_THROW(web::readToken(file + "2"), std::runtime_error);
  EXPECT_NO_THROW(web::checkListen("127.0.0.2", false));
  EXPECT_NO_THROW(web::checkListen("::1", false));
  EXPECT_NO_THROW(web::checkListen("::", true));
  for (const char* address : {"0.0.0.0", "::", "::ffff:127.0.0.1", "192.0.2.1"}) {
    EXPECT_THROW(web::checkListen(address, false), std::invalid_argument) << address;
  }
  EXPECT_THROW(web::checkListen("localhost", true), std::invalid_argument);
}

TEST_F(HttpTest, SlowAndManyClientsHoldNobodyUp) {
  web::HttpServer::Options options;
  options.requestTime = options.answerTime = milliseconds(800);
  start(options);
  const auto promptly = [this] {
    const Clock::time_point began = Clock::now();
    EXPECT_EQ(statusOf(ask("GET /api/echo?q=1 HTTP/1.1|Host: localhost:$")), 200);
    EXPECT_LT(Clock::now() - began, milliseconds(700));
  };
  // More than there are places: heads and bodies that never end, and answers that nobody reads.
  std::deque<HttpClient> slow;
  for (int each = 0; each < 30; ++each) {
    slow.emplace_back(port());
    slow.back().send("GET / HTTP/1.1\r\nHost: ");
    slow.emplace_back(port());
    slow.back().send(bytes("POST /api/echo HTTP/1.1|Host: localhost:$|"
                           "Content-Type: application/json|Content-Length: " +
                           std::to_string(web::Intake::kMostBody)) +
                     std::string(web::Intake::kMostBody - 1, ' '));
    slow.emplace_back(port(), 4096);
    slow.back().send(bytes("GET /api/large HTTP/1.1|Host: localhost:$"));
  }
  HttpClient unread = page("", 4096);
  for (int state = 0; state < 100; ++state) {
    hub_.publishState(std::string(200'000, '1'));
    std::this_thread::sleep_for(milliseconds(1));
  }
  promptly();
  const std::string late = slow[75].rest();
  EXPECT_EQ(statusOf(late), 408) << late;
  // A byte now and then does not make more time, nor does a request before.
  HttpClient drip(port());
  drip.send(bytes("GET /api/echo?q=1 HTTP/1.1|Host: localhost:$"));
  EXPECT_EQ(statusOf(drip.answer()), 200);
  const Clock::time_point began = Clock::now();
  while (Clock::now() - began < milliseconds(1200)) {
    drip.send("G");
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_EQ(statusOf(drip.rest()), 408);
  promptly();
  hub_.publishState("\"newest\"");
  EXPECT_THAT(unread.rest(), Not(HasSubstr("newest")));
  EXPECT_GT(ask("GET /api/large HTTP/1.1|Host: localhost:$").size(), kLarge);
}

TEST_F(HttpTest, EventsComeInOrderAndAgain) {
  hub_.publishState("{\"a\":\n1}");
  web::HttpServer::Options options;
  options.commentTime = milliseconds(50);
  start(options);
  HttpClient first = page();
  EXPECT_EQ(first.receive("\n\n"), "event: state\ndata: {\"a\": 1}\n\n");
  EXPECT_EQ(first.receive("\n\n"), ":\n\n");
  hub_.publishCallback("{\"kind\":\n\"SCAN\"}");
  hub_.publishText("no \"JSON\" \xff\n");
  std::string callback = first.receive("}\n\n");
  EXPECT_THAT(callback, HasSubstr("event: callback\nid: " + hub_.epoch() + "-1\ndata: {\"id\":1,"));
  EXPECT_THAT(callback, EndsWith(",\"message\":{\"kind\": \"SCAN\"}}\n\n"));
  EXPECT_THAT(first.receive("}\n\n"),
              EndsWith(",\"text\":\"no \\\"JSON\\\" \xef\xbf\xbd\\n\"}\n\n"));

  // Comes back: what it has not got, and whether something is lost.
  const auto missed = [this](const std::string& last) {
    HttpClient again = page(last);
    again.receive("\n\n");  // the state
    return again.receive(":\n\n");
  };
  EXPECT_EQ(missed(""), ":\n\n");
  EXPECT_EQ(missed(hub_.epoch() + "-2"), ":\n\n");
  EXPECT_THAT(missed(hub_.epoch() + "-1"),
              StartsWith("event: callback\nid: " + hub_.epoch() + "-2"));
  for (const char* other : {"00000000-1", "1", "-1", "x"}) {
    EXPECT_THAT(missed(other), StartsWith("event: gone\ndata: {}\n\n:")) << other;
  }
  EXPECT_THAT(missed(hub_.epoch() + "-3"), StartsWith("event: gone\n"));
  for (int count = 0; count < 1001; ++count) hub_.publishCallback("{}");
  EXPECT_EQ(hub_.last(), 1003u);
  EXPECT_THAT(missed(hub_.epoch() + "-3"),
              StartsWith("event: callback\nid: " + hub_.epoch() + "-4\n"));
  EXPECT_THAT(missed(hub_.epoch() + "-2"),
              StartsWith("event: gone\ndata: {}\n\nevent: callback\nid: " + hub_.epoch() + "-4\n"));
  const std::string kept = ask("GET /api/callbacks?since=1001 HTTP/1.1|Host: localhost:$");
  EXPECT_THAT(kept, HasSubstr("{\"epoch\":\"" + hub_.epoch() +
                              "\",\"first\":4,\"callbacks\":["
                              "{\"id\":1002,"));
  EXPECT_THAT(kept, HasSubstr("},{\"id\":1003,"));

  // A flood of long ones takes bounded memory.
  for (int count = 0; count < 30; ++count) hub_.publishCallback(std::string(100'000, '1'));
  EXPECT_LT(hub_.callbacksSince(0).body.size(), 2'200'000u);
}

TEST_F(HttpTest, PagesAreBoundedAndEndWithTheServer) {
  start();
  hub_.publishState("1");
  HttpClient slow = page("", 4096);
  std::deque<HttpClient> pages;
  for (int each = 1; each < 16; ++each) pages.push_back(page());
  EXPECT_EQ(statusOf(ask("GET /api/events HTTP/1.1|Host: localhost:$")), 503);
  EXPECT_EQ(statusOf(ask("GET /api/echo?q=1 HTTP/1.1|Host: localhost:$")), 200);

  // A page that reads slowly gets the newest state.
  const std::string filler(50'000, '2');
  for (int state = 0; state < 300; ++state) {
    hub_.publishState(filler);
    if (state % 30 == 0) std::this_thread::sleep_for(milliseconds(1));
  }
  hub_.publishState("\"newest\"");
  EXPECT_THAT(pages.front().receive("newest\"\n\n"), EndsWith("data: \"newest\"\n\n"));
  std::this_thread::sleep_for(milliseconds(100));
  const std::string read = slow.receive("newest\"\n\n");
  EXPECT_THAT(read, EndsWith("data: \"newest\"\n\n"));
  EXPECT_LT(read.size(), 12'000'000u);

  // Callbacks do not wait for anything.
  std::vector<double> microseconds;
  for (int each = 0; each < 101; ++each) {
    const Clock::time_point began = Clock::now();
    hub_.publishCallback("{}");
    pages.back().receive("}\n\n");
    microseconds.push_back(std::chrono::duration<double, std::micro>(Clock::now() - began).count());
  }
  std::sort(microseconds.begin(), microseconds.end());
  RecordProperty("median", std::to_string(microseconds[50]));
  EXPECT_LT(microseconds[50], 20'000);

  server_->stop();
  EXPECT_EQ(pages.back().rest(), "");
  EXPECT_FALSE(HttpClient(port()).connected());
}

TEST(WebProgram, EndsWithASignal) {
  const TemporaryFolder folder;
  const std::vector<std::string> words = {
      ATSC_WEB, "--db", folder.path() / "db", "--state", folder.path() / "state",
      "--port", "18077"};
  Process program(words);
  ASSERT_TRUE(program.says("http://127.0.0.1:18077/"));
  HttpClient client(18077);
  client.send("GET / HTTP/1.1\r\nHost: 127.0.0.1:18077\r\n\r\n");
  EXPECT_EQ(statusOf(client.answer()), 200);
  Process second(words);
  const Outcome refused = finish(second);
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("port 18077: Address already in use"));
  EXPECT_EQ(program.stop(), 0);
  EXPECT_EQ(program.err(), "");
}

}  // namespace
