// Collects the bytes of a connection until a request is whole, within bounds.
#ifndef ATSC_WEB_HTTP_INTAKE_H_
#define ATSC_WEB_HTTP_INTAKE_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace web {

// A request that has arrived, checked in its form.
struct WholeRequest {
  int fault = 0;     // status with which it is refused unread; 0 if it is well-formed
  std::string head;  // request line and header lines, each with CR LF, and the empty line
  std::string body;
};

class Intake {
 public:
  static constexpr size_t kMostHead = 16'384;
  static constexpr size_t kMostLines = 64;
  static constexpr size_t kMostTarget = 4'096;
  // Commands are short, and JSON takes a hundred times the memory of its text while it is read.
  static constexpr size_t kMostBody = 32'768;

  void feed(std::string_view bytes) { bytes_.append(bytes); }

  // Moves the next request out when it is whole. After a fault the connection is of no use.
  bool next(WholeRequest* request);

  // Returns whether part of a request has arrived.
  bool started() const { return !bytes_.empty(); }
  size_t size() const { return bytes_.capacity(); }

 private:
  std::string bytes_;
  size_t searched_ = 0;  // no empty line ends before
  size_t headSize_ = 0;  // 0 until the head is whole
  size_t bodySize_ = 0;
  std::string head_;
};

}  // namespace web

#endif  // ATSC_WEB_HTTP_INTAKE_H_
