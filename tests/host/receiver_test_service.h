// Services of a receiver's list, made by hand.
#ifndef ATSC_TESTS_HOST_RECEIVER_TEST_SERVICE_H_
#define ATSC_TESTS_HOST_RECEIVER_TEST_SERVICE_H_

#include <algorithm>
#include <optional>
#include <string>

#include "receiver_test_air.h"

namespace receiver_test {

using atschost::Service;

constexpr uint32_t kSkipped = AISRV_FLAG_VISIBLE | AISRV_FLAG_SKIPPED;

// An audio stream: its language, then 'd' for a description, 'h' for the hearing impaired, 'm' for
// a main track or 'c' for a commentary.
inline AISRV_pid_info audio(const std::string& text, uint16_t pid = 52) {
  constexpr char kKinds[] = "mhdc";  // in the order of AISRV_AUDIO_*, from 1 on
  AISRV_pid_info stream{};
  stream.stream_type = 0x81;
  stream.pid = pid;
  std::copy_n(text.begin(), std::min<size_t>(3, text.size()), stream.language);
  if (text.size() > 3)
    stream.audio_kind = static_cast<uint8_t>(std::string(kKinds).find(text[3]) + 1);
  return stream;
}

inline Service service(uint16_t major, uint16_t minor, uint32_t frequency, uint32_t source = kAir,
                       uint32_t flags = AISRV_FLAG_VISIBLE) {
  Service s;
  s.key = {major, minor, frequency, source};
  s.flags = flags;
  s.streams = {audio("eng"), audio("spa", 53)};
  s.programNumber = 1;
  return s;
}

inline std::vector<Service> listed(const atschost::Receiver& receiver) {
  std::vector<Service> list;
  const_cast<atschost::Receiver&>(receiver).services().visit(kAir, [&](const Service& s) {
    list.push_back(s);
    return true;
  });
  return list;
}

inline std::string number(const std::optional<Service>& s) {
  return s ? std::to_string(s->key.major) + "-" + std::to_string(s->key.minor) : "none";
}

}  // namespace receiver_test

#endif  // ATSC_TESTS_HOST_RECEIVER_TEST_SERVICE_H_
