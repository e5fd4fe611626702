#include "http/intake.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <utility>

namespace web {
namespace {

// Header names and methods (RFC 9110, token).
bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
  });
}

bool isVisible(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7f; });
}

bool sameName(std::string_view one, std::string_view other) {
  return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

std::string_view trimmed(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// METHOD TARGET HTTP/1.1
int requestLineFault(std::string_view line) {
  const size_t first = line.find(' ');
  const size_t second = line.find(' ', first == std::string_view::npos ? first : first + 1);
  if (second == std::string_view::npos) return 400;
  const std::string_view target = line.substr(first + 1, second - first - 1);
  const std::string_view version = line.substr(second + 1);
  if (target.size() > Intake::kMostTarget) return 414;
  if (!isToken(line.substr(0, first)) || target.empty() || target[0] != '/' || !isVisible(target)) {
    return 400;
  }
  if (version == "HTTP/1.1" || version == "HTTP/1.0") return 0;
  return version.compare(0, 5, "HTTP/") == 0 ? 505 : 400;
}

struct HeadFacts {
  int fault = 0;
  size_t bodySize = 0;
  std::string head;
};

HeadFacts refusedHead(int fault) {
  HeadFacts facts;
  facts.fault = fault;
  return facts;
}

// Reads what decides where the request ends, strictly: two readings of it would make one request
// into two.
HeadFacts readHead(std::string_view head) {
  HeadFacts facts;
  std::optional<size_t> length;
  size_t lines = 0;
  for (size_t at = 0; at < head.size(); ++lines) {
    const size_t end = head.find("\r\n", at);
    const std::string_view line = head.substr(at, end - at);
    at = end + 2;
    if (lines == Intake::kMostLines) return refusedHead(431);
    if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
      return refusedHead(400);
    if (lines == 0) {
      if (const int fault = requestLineFault(line)) return refusedHead(fault);
    } else if (!line.empty()) {
      const size_t colon = line.find(':');
      const std::string_view name = line.substr(0, colon);
      if (colon == std::string_view::npos || !isToken(name)) return refusedHead(400);
      const std::string_view value = trimmed(line.substr(colon + 1));
      // Bodies come in one piece, in the open.
      if (sameName(name, "Transfer-Encoding")) return refusedHead(411);
      if (sameName(name, "Content-Encoding")) return refusedHead(415);
      if (sameName(name, "Expect")) return refusedHead(417);
      if (sameName(name, "Content-Length")) {
        size_t number = 0;
        const auto [stop, error] =
            std::from_chars(value.data(), value.data() + value.size(), number);
        if (length || value.empty() || stop != value.data() + value.size()) return refusedHead(400);
        if (error != std::errc() || number > Intake::kMostBody) return refusedHead(413);
        length = number;
      }
      // Parts of answers are not offered, and answers are not compressed.
      if (sameName(name, "Range") || sameName(name, "Accept-Encoding")) continue;
    }
    facts.head.append(line).append("\r\n");
  }
  facts.bodySize = length.value_or(0);
  return facts;
}

}  // namespace

bool Intake::next(WholeRequest* request) {
  if (headSize_ == 0) {
    // Empty lines before a request are ignored, as some clients send one behind a body.
    const size_t begin = std::min(bytes_.find_first_not_of("\r\n"), bytes_.size());
    bytes_.erase(0, begin);
    searched_ -= std::min(searched_, begin);
    const size_t end = bytes_.find("\r\n\r\n", searched_);
    const size_t size = end == std::string::npos ? bytes_.size() : end + 4;
    if (size > kMostHead) {
      const bool longTarget = bytes_.find('\r') >= kMostHead;
      *request = {longTarget ? 414 : 431, "", ""};
      return true;
    }
    if (end == std::string::npos) {
      searched_ = bytes_.size() > 3 ? bytes_.size() - 3 : 0;
      return false;
    }
    HeadFacts facts = readHead(std::string_view(bytes_).substr(0, size));
    if (facts.fault != 0) {
      *request = {facts.fault, "", ""};
      return true;
    }
    headSize_ = size;
    bodySize_ = facts.bodySize;
    head_ = std::move(facts.head);
  }
  if (bytes_.size() < headSize_ + bodySize_) return false;
  *request = {0, std::move(head_), bytes_.substr(headSize_, bodySize_)};
  bytes_.erase(0, headSize_ + bodySize_);
  if (bytes_.empty()) bytes_.shrink_to_fit();
  searched_ = headSize_ = bodySize_ = 0;
  return true;
}

}  // namespace web
