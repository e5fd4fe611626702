// The secret that lets a browser in when the page is not for this machine only.
#ifndef ATSC_WEB_HTTP_TOKEN_H_
#define ATSC_WEB_HTTP_TOKEN_H_

#include <chrono>
#include <deque>
#include <mutex>
#include <string>

namespace web {

// Reads the token of a file: 16 to 1,000 printable characters without spaces. Throws
// std::runtime_error with the reason for another content, and for a file that others can access.
std::string readToken(const std::string& file);

// Throws std::invalid_argument if `address` is no IP address, or needs a token and there is none.
void checkListen(const std::string& address, bool token);

bool isLoopback(const std::string& address);

// The browsers that have given the token. A browser knows a random number, not the token. Any
// thread.
class Sessions {
 public:
  using Clock = std::chrono::steady_clock;

  // With an empty token everyone is let in.
  explicit Sessions(std::string token);

  // Starts a session. Returns its number, or an empty text for a wrong token.
  std::string open(const std::string& token);
  // Returns whether the value of the header Cookie has the number of a session under `name`.
  bool known(const std::string& cookies, const std::string& name);

 private:
  struct Session {
    std::string number;
    Clock::time_point used;
  };

  const std::string token_;
  std::mutex mutex_;
  std::deque<Session> sessions_;  // the oldest first
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_TOKEN_H_
