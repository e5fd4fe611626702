// A client of the HTTP server that sends arbitrary bytes.
#ifndef ATSC_TESTS_WEB_HTTP_CLIENT_H_
#define ATSC_TESTS_WEB_HTTP_CLIENT_H_

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "http/descriptor.h"

class HttpClient {
 public:
  // `buffer` bounds what the system takes for a client that does not read.
  explicit HttpClient(uint16_t port, int buffer = 0) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    if (buffer > 0) setsockopt(socket_.get(), SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    timeval limit = {60, 0};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }

  bool connected() const { return connected_; }

  void send(const std::string& bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
      const ssize_t size =
          ::send(socket_.get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
      if (size <= 0) return;
      sent += static_cast<size_t>(size);
    }
  }

  void finish() { shutdown(socket_.get(), SHUT_WR); }

  // Returns what arrives up to and with `end`, or up to the end of the connection.
  std::string receive(const std::string& end) {
    size_t at = arrived_.find(end);
    while (at == std::string::npos) {
      const size_t from = arrived_.size() < end.size() ? 0 : arrived_.size() - end.size();
      if (!more()) break;
      at = arrived_.find(end, from);
    }
    return take(at == std::string::npos ? arrived_.size() : at + end.size());
  }

  // Returns the next answer, head and body.
  std::string answer() {
    std::string head = receive("\r\n\r\n");
    const size_t length = head.find("Content-Length: ");
    const size_t size = length == std::string::npos ? 0 : std::stoul(head.substr(length + 16));
    while (arrived_.size() < size && more()) {
    }
    return head + take(size);
  }

  // Returns what arrives up to the end of the connection.
  std::string rest() {
    while (more()) {
    }
    return take(arrived_.size());
  }

 private:
  bool more() {
    char bytes[65536];
    const ssize_t size = recv(socket_.get(), bytes, sizeof bytes, 0);
    if (size > 0) arrived_.append(bytes, static_cast<size_t>(size));
    return size > 0;
  }

  std::string take(size_t size) {
    std::string taken = arrived_.substr(0, size);
    arrived_.erase(0, size);
    return taken;
  }

  web::Descriptor socket_;
  bool connected_ = false;
  std::string arrived_;
};

// Returns the status of an answer, 0 if there is none.
inline int statusOf(const std::string& answer) {
  return answer.compare(0, 9, "HTTP/1.1 ") == 0 ? atoi(answer.c_str() + 9) : 0;
}

#endif  // ATSC_TESTS_WEB_HTTP_CLIENT_H_
