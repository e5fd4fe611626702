#include "http/token.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "http/random.h"

namespace web {
namespace {

constexpr size_t kShortestToken = 16;
constexpr size_t kLongestToken = 1000;
constexpr size_t kMostSessions = 32;
constexpr std::chrono::hours kSessionIdle{24};

// Takes the same time wherever the first difference is.
bool sameSecret(const std::string& one, const std::string& other) {
  volatile unsigned char difference = one.size() == other.size() ? 0 : 1;
  for (size_t index = 0; index < one.size(); ++index) {
    const char against = other.empty() ? '\0' : other[index % other.size()];
    difference = difference | static_cast<unsigned char>(one[index] ^ against);
  }
  return difference == 0;
}

}  // namespace

std::string readToken(const std::string& file) {
  const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) {
    throw std::runtime_error(file + ": " + std::generic_category().message(errno));
  }
  struct stat status;
  const bool known = fstat(descriptor, &status) == 0;
  std::string token(kLongestToken + 2, '\0');
  const ssize_t size = known ? read(descriptor, token.data(), token.size()) : -1;
  close(descriptor);
  if (!known || !S_ISREG(status.st_mode)) throw std::runtime_error(file + ": not a regular file");
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    throw std::runtime_error(file + ": other users may access it; chmod 600 helps");
  }
  token.resize(size > 0 ? static_cast<size_t>(size) : 0);
  while (!token.empty() && (token.back() == '\n' || token.back() == '\r')) token.pop_back();
  if (token.size() < kShortestToken || token.size() > kLongestToken ||
      !std::all_of(token.begin(), token.end(), [](char c) { return c > ' ' && c < 0x7f; })) {
    throw std::runtime_error(file +
                             ": has to hold 16 to 1000 printable ASCII characters in one line");
  }
  return token;
}

bool isLoopback(const std::string& address) {
  in_addr ip4;
  if (inet_pton(AF_INET, address.c_str(), &ip4) == 1) return (ntohl(ip4.s_addr) >> 24) == 127;
  in6_addr ip6;
  return inet_pton(AF_INET6, address.c_str(), &ip6) == 1 && IN6_IS_ADDR_LOOPBACK(&ip6);
}

void checkListen(const std::string& address, bool token) {
  in6_addr any;
  if (inet_pton(AF_INET, address.c_str(), &any) != 1 &&
      inet_pton(AF_INET6, address.c_str(), &any) != 1) {
    throw std::invalid_argument("--listen: '" + address + "' is no IP address");
  }
  if (!token && !isLoopback(address)) {
    throw std::invalid_argument("--listen " + address + " needs --token-file");
  }
}

Sessions::Sessions(std::string token) : token_(std::move(token)) {}

std::string Sessions::open(const std::string& token) {
  if (token_.empty() || !sameSecret(token, token_)) return "";
  const std::lock_guard<std::mutex> lock(mutex_);
  if (sessions_.size() == kMostSessions) sessions_.pop_front();
  sessions_.push_back({randomHex(32), Clock::now()});
  return sessions_.back().number;
}

bool Sessions::known(const std::string& cookies, const std::string& name) {
  if (token_.empty()) return true;
  std::string number;
  for (size_t at = 0; at < cookies.size();) {
    const size_t end = std::min(cookies.find(';', at), cookies.size());
    if (cookies.compare(at, name.size() + 1, name + "=") == 0) {
      number = cookies.substr(at + name.size() + 1, end - at - name.size() - 1);
      break;
    }
    at = cookies.find_first_not_of("; ", end);
  }
  if (number.empty()) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  const Clock::time_point now = Clock::now();
  for (auto session = sessions_.begin(); session != sessions_.end(); ++session) {
    if (!sameSecret(number, session->number)) continue;
    if (now - session->used > kSessionIdle) {
      sessions_.erase(session);
      return false;
    }
    // The one that is evicted is the one not used for longest.
    Session used = {session->number, now};
    sessions_.erase(session);
    sessions_.push_back(std::move(used));
    return true;
  }
  return false;
}

}  // namespace web
